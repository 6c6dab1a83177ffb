#include "rtps/net/address.h"

#include <gtest/gtest.h>

namespace meridian::rtps::net {
namespace {

IpAddress address(const std::string& text) {
    const auto parsed = parse_address(text);
    EXPECT_TRUE(parsed) << text;
    return parsed.value_or(IpAddress{});
}

TEST(Address, ReadsAndWritesBothFamilies) {
    for (const char* text :
         {"127.0.0.1", "239.255.0.1", "0.0.0.0", "::1", "fe80::1", "ff02::ffff:efff:1", "::"})
        EXPECT_EQ(to_string(address(text)), text);
    for (const char* text :
         {"", "1.2.3", "1.2.3.4.5", "256.1.1.1", "[::1]", "fe80::1%lo", "host", "1.2.3.4 "})
        EXPECT_FALSE(parse_address(text)) << text;
}

TEST(Address, KnowsItsKind) {
    EXPECT_TRUE(address("127.9.9.9").is_loopback());
    EXPECT_TRUE(address("::1").is_loopback());
    EXPECT_FALSE(address("::2").is_loopback());
    EXPECT_FALSE(address("128.0.0.1").is_loopback());
    EXPECT_TRUE(address("224.0.0.1").is_multicast());
    EXPECT_TRUE(address("239.255.255.255").is_multicast());
    EXPECT_FALSE(address("240.0.0.1").is_multicast());
    EXPECT_TRUE(address("ff1e::1").is_multicast());
    EXPECT_FALSE(address("fe80::1").is_multicast());
    EXPECT_TRUE(address("169.254.3.4").is_link_local());
    EXPECT_TRUE(address("febf::1").is_link_local());
    EXPECT_FALSE(address("fec0::1").is_link_local());
    EXPECT_TRUE(address("0.0.0.0").is_unspecified());
    EXPECT_TRUE(address("::").is_unspecified());
    EXPECT_FALSE(address("0.0.0.1").is_unspecified());
}

TEST(Address, GroupsAreTheOnesThatPeersUse) {
    EXPECT_EQ(to_string(multicast_group_v4()), "239.255.0.1");
    EXPECT_EQ(multicast_groups_v6()[0], address("ff02::ffff:239.255.0.1"));
    EXPECT_EQ(multicast_groups_v6()[1], address("ff1e::ffff:efff:1"));
}

TEST(Address, ComparesNetworks) {
    EXPECT_TRUE(same_network(address("10.1.2.3"), address("10.1.2.200"), 24));
    EXPECT_FALSE(same_network(address("10.1.2.3"), address("10.1.3.3"), 24));
    EXPECT_TRUE(same_network(address("10.1.2.3"), address("10.1.3.3"), 23));
    EXPECT_FALSE(same_network(address("10.1.2.3"), address("10.1.2.2"), 32));
    EXPECT_TRUE(same_network(address("10.1.2.3"), address("99.1.2.2"), 0));
    EXPECT_TRUE(same_network(address("fd00::1"), address("fd00::ffff"), 64));
    EXPECT_FALSE(same_network(address("fd00::1"), address("fd00:0:0:1::1"), 64));
    EXPECT_FALSE(same_network(address("0.0.0.0"), address("::"), 0));
}

TEST(Address, GoesThroughLocatorsAndSocketAddresses) {
    for (const char* text : {"10.1.2.3", "fd00::7"}) {
        const Locator locator = to_locator(address(text), 7411);
        EXPECT_EQ(address_of(locator), address(text));
        const SocketAddress socket = to_socket_address(address(text), 7411);
        EXPECT_EQ(to_locator(socket.get()), locator);
    }
    EXPECT_EQ(to_locator(address("10.1.2.3"), 1).kind, kLocatorUdpV4);
    EXPECT_EQ(to_locator(address("fd00::7"), 1).kind, kLocatorUdpV6);
    Locator shared_memory;
    shared_memory.kind = 16;
    EXPECT_FALSE(address_of(shared_memory));
    EXPECT_FALSE(address_of(Locator{}));
}

TEST(Address, HostLocatorsArePlainOnesInDisguise) {
    for (const char* text : {"239.255.0.1", "ff02::1"}) {
        const Locator host = to_host_locator(address(text), 7400);
        EXPECT_FALSE(address_of(host));
        EXPECT_EQ(plain_locator(host), to_locator(address(text), 7400));
        EXPECT_FALSE(plain_locator(to_locator(address(text), 7400)));
    }
    Locator foreign = to_locator(address("239.255.0.1"), 7400);
    foreign.kind = 0x7fffffff;
    EXPECT_FALSE(plain_locator(foreign));
    EXPECT_FALSE(plain_locator(Locator{}));
}

TEST(Address, IgnoresRubbishAboveAnIpv4Address) {
    Locator locator = to_locator(address("10.1.2.3"), 7411);
    locator.address[0] = 0x55;
    EXPECT_EQ(address_of(locator), address("10.1.2.3"));
}

} // namespace
} // namespace meridian::rtps::net
