#include "rtps/net/peers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "rtps/net/address.h"

namespace meridian::rtps::net {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::vector<std::string> texts(const LocatorList& locators) {
    std::vector<std::string> result;
    for (const Locator& locator : locators)
        result.push_back((plain_locator(locator) ? "host " : "") +
                         to_string(plain_locator(locator).value_or(locator)));
    return result;
}

TransportConfig with_mask(uint32_t mask, uint32_t domain_id = 0) {
    TransportConfig config;
    config.mask = mask;
    config.domain_id = domain_id;
    return config;
}

std::vector<std::string> resolved(const std::vector<std::string>& peers, uint32_t mask = 3) {
    const Peers result = resolve_peers(peers, with_mask(mask));
    EXPECT_THAT(result.unusable, IsEmpty());
    return texts(result.destinations.empty() ? result.with_port : result.destinations);
}

std::string refused(const std::string& peer, uint32_t mask = 3) {
    const Peers result = resolve_peers({"0@10.0.0.1", peer}, with_mask(mask | 1));
    EXPECT_THAT(texts(result.destinations), ElementsAre("udpv4:10.0.0.1:7410")) << peer;
    EXPECT_THAT(result.unusable, ElementsAre(HasSubstr("'" + peer + "'")));
    return result.unusable.empty() ? "" : result.unusable.front();
}

TEST(Peers, AddressGetsThePortsOfTheFirstParticipants) {
    EXPECT_THAT(resolved({"10.0.0.9"}),
                ElementsAre("udpv4:10.0.0.9:7410", "udpv4:10.0.0.9:7412", "udpv4:10.0.0.9:7414",
                            "udpv4:10.0.0.9:7416", "udpv4:10.0.0.9:7418"));
}

TEST(Peers, IndexLimitStandsInFront) {
    EXPECT_THAT(resolved({"0@10.0.0.9"}), ElementsAre("udpv4:10.0.0.9:7410"));
    EXPECT_THAT(resolved({"1@10.0.0.9"}), ElementsAre("udpv4:10.0.0.9:7410", "udpv4:10.0.0.9:7412"));
    EXPECT_EQ(resolved({"119@10.0.0.9"}).size(), 120u);
}

TEST(Peers, PortsFollowTheDomain) {
    EXPECT_THAT(texts(resolve_peers({"0@10.0.0.9", "239.255.0.7"}, with_mask(1, 2)).destinations),
                ElementsAre("udpv4:10.0.0.9:7910", "host udpv4:239.255.0.7:7900", "udpv4:239.255.0.7:7900"));
    // The highest domain has ports for 63 participants only.
    EXPECT_EQ(resolve_peers({"119@10.0.0.9"}, with_mask(1, 232)).destinations.size(), 63u);
}

TEST(Peers, TransportPrefixes) {
    for (const char* peer : {"0@udpv4://10.0.0.9", "0@builtin.udpv4://10.0.0.9"})
        EXPECT_THAT(resolved({peer}), ElementsAre("udpv4:10.0.0.9:7410")) << peer;
    for (const char* peer : {"0@udpv6://fd00::1", "0@builtin.udpv6://[fd00::1]", "0@[fd00::1]", "0@fd00::1"})
        EXPECT_THAT(resolved({peer}, 8), ElementsAre("udpv6:[fd00::1]:7410")) << peer;
    for (const char* peer : {"0@shmem://", "0@builtin.shmem://"}) {
        EXPECT_THAT(resolved({peer}, 2), ElementsAre("udpv4:127.0.0.1:7410")) << peer;
        EXPECT_THAT(resolved({peer}, 8), ElementsAre("udpv6:[::1]:7410")) << peer;
    }
}

TEST(Peers, ScopeOfALinkLocalAddressIsAccepted) {
    EXPECT_THAT(resolved({"0@fe80::7%eth0"}, 8), ElementsAre("udpv6:[fe80::7]:7410"));
    EXPECT_THAT(resolved({"0@[fe80::7%eth0]"}, 8), ElementsAre("udpv6:[fe80::7]:7410"));
}

TEST(Peers, MulticastGroupsGetTheMulticastPort) {
    EXPECT_THAT(resolved({"239.255.0.1", "3@ff02::ffff:efff:1"}, 9),
                ElementsAre("host udpv4:239.255.0.1:7400", "udpv4:239.255.0.1:7400",
                            "host udpv6:[ff02::ffff:efff:1]:7400", "udpv6:[ff02::ffff:efff:1]:7400"));
}

TEST(Peers, NamesAreLookedUp) {
    // "localhost" is known without a name server.
    EXPECT_THAT(resolved({"0@udpv4://localhost"}), ElementsAre("udpv4:127.0.0.1:7410"));
}

TEST(Peers, AtAPortOfItsOwnMayBeADiscoveryServer) {
    const Peers peers = resolve_peers({"10.0.0.9:11811", "0@10.0.0.8", "239.255.0.9:7900"}, with_mask(3));
    EXPECT_THAT(texts(peers.with_port), ElementsAre("udpv4:10.0.0.9:11811"));
    EXPECT_THAT(texts(peers.destinations),
                ElementsAre("udpv4:10.0.0.8:7410", "host udpv4:239.255.0.9:7900", "udpv4:239.255.0.9:7900"));
}

TEST(Peers, EachDestinationOnce) {
    EXPECT_THAT(resolved({"0@10.0.0.9", "1@10.0.0.9"}),
                ElementsAre("udpv4:10.0.0.9:7410", "udpv4:10.0.0.9:7412"));
    EXPECT_THAT(resolved({"10.0.0.9:11811", "10.0.0.9:11811"}), ElementsAre("udpv4:10.0.0.9:11811"));
}

TEST(Peers, PortsAreThoseThatAreGiven) {
    EXPECT_THAT(resolved({"10.0.0.9:11811", "3@udpv4://10.0.0.8:7410"}),
                ElementsAre("udpv4:10.0.0.9:11811", "udpv4:10.0.0.8:7410"));
    EXPECT_THAT(resolved({"localhost:7"}), ElementsAre("udpv4:127.0.0.1:7"));
    EXPECT_THAT(resolved({"[fd00::1]:7500", "[fe80::7%eth0]:7501"}, 8),
                ElementsAre("udpv6:[fd00::1]:7500", "udpv6:[fe80::7]:7501"));
    EXPECT_THAT(resolved({"0@fd00::1:7500"}, 8), ElementsAre("udpv6:[fd00::1:7500]:7410"));
    EXPECT_THAT(resolved({"239.255.0.9:7900"}),
                ElementsAre("host udpv4:239.255.0.9:7900", "udpv4:239.255.0.9:7900"));
    for (const char* peer : {"10.0.0.9:", "10.0.0.9:0", "10.0.0.9:65536", "10.0.0.9:x", "[fd00::1]:x"})
        EXPECT_THAT(refused(peer, 9), HasSubstr("is not a port")) << peer;
    EXPECT_THAT(refused(":7410"), HasSubstr("no host"));
}

TEST(Peers, OthersAreUsedWhereSomeCannotBe) {
    const Peers peers = resolve_peers({"x@10.0.0.7", "0@10.0.0.9", "tcpv4://10.0.0.8"}, with_mask(3));
    EXPECT_THAT(texts(peers.destinations), ElementsAre("udpv4:10.0.0.9:7410"));
    EXPECT_THAT(peers.unusable, ElementsAre(HasSubstr("'x@10.0.0.7'"), HasSubstr("'tcpv4://10.0.0.8'")));
    EXPECT_THAT(resolve_peers({"x@10.0.0.7", "no such host"}, with_mask(3)).destinations, IsEmpty());
}

TEST(Peers, UnusableOnesAreNamed) {
    EXPECT_THAT(refused(""), HasSubstr("no host"));
    EXPECT_THAT(refused("4@"), HasSubstr("no host"));
    EXPECT_THAT(refused("udpv4://"), HasSubstr("no host"));
    EXPECT_THAT(refused("[]"), HasSubstr("no host"));
    EXPECT_THAT(refused("x@10.0.0.9"), HasSubstr("'x'"));
    EXPECT_THAT(refused("@10.0.0.9"), HasSubstr("participant index"));
    EXPECT_THAT(refused("-1@10.0.0.9"), HasSubstr("participant index"));
    EXPECT_THAT(refused("120@10.0.0.9"), HasSubstr("participant index"));
    EXPECT_THAT(refused("99999999999999999999@10.0.0.9"), HasSubstr("participant index"));
    EXPECT_THAT(refused("tcpv4://10.0.0.9"), HasSubstr("'tcpv4'"));
    EXPECT_THAT(refused("0.0.0.0"), HasSubstr("unspecified"));
    EXPECT_THAT(refused("fd00::1"), HasSubstr("not enabled") /* IPv4 only */);
    EXPECT_THAT(refused("udpv6://127.0.0.1", 9), HasSubstr("not enabled"));
    refused("no such host");
    refused("1.2.3.4.5");
    refused("[10.0.0.9");
}

TEST(Peers, DefaultsAreTheGroupsAndThisHost) {
    EXPECT_THAT(texts(default_peers(with_mask(3))),
                ElementsAre("host udpv4:239.255.0.1:7400", "udpv4:239.255.0.1:7400", "udpv4:127.0.0.1:7410",
                            "udpv4:127.0.0.1:7412", "udpv4:127.0.0.1:7414", "udpv4:127.0.0.1:7416",
                            "udpv4:127.0.0.1:7418"));
    EXPECT_THAT(texts(default_peers(with_mask(8, 1))),
                ElementsAre("host udpv6:[ff02::ffff:efff:1]:7650", "udpv6:[ff02::ffff:efff:1]:7650",
                            "host udpv6:[ff1e::ffff:efff:1]:7650", "udpv6:[ff1e::ffff:efff:1]:7650",
                            "udpv6:[::1]:7660", "udpv6:[::1]:7662", "udpv6:[::1]:7664", "udpv6:[::1]:7666",
                            "udpv6:[::1]:7668"));
    EXPECT_EQ(default_peers(with_mask(9)).size(), 16u);
}

} // namespace
} // namespace meridian::rtps::net
