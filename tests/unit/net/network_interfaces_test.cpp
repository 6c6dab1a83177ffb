#include "rtps/net/network_interfaces.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include "common/private_network.h"

namespace meridian::rtps::net {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Interface make(const std::string& name, unsigned index, const std::vector<std::string>& addresses) {
    Interface interface;
    interface.name = name;
    interface.index = index;
    interface.up = true;
    interface.multicast = true;
    for (const std::string& text : addresses)
        interface.addresses.push_back({parse_address(text).value_or(IpAddress{}), 24});
    return interface;
}

Interface make_loopback() {
    Interface loopback = make("lo", 1, {"127.0.0.1", "::1"});
    loopback.loopback = true;
    return loopback;
}

std::vector<Interface> usual_host() {
    return {make_loopback(), make("eth0", 2, {"10.0.0.1", "10.0.0.2", "fe80::2", "fd00::2"}),
            make("eth1", 3, {"192.168.7.1", "fe80::3"})};
}

/// "lo 127.0.0.1" and so on.
std::vector<std::string> used(const std::vector<Interface>& all, Family family,
                              const InterfaceFilter& filter) {
    std::vector<std::string> result;
    for (const Interface& interface : usable_interfaces(all, family, filter)) {
        for (const InterfaceAddress& entry : interface.addresses)
            result.push_back(interface.name + " " + to_string(entry.address));
    }
    return result;
}

TEST(InterfaceFilter, WithoutRulesAllThatAreUp) {
    std::vector<Interface> all = usual_host();
    EXPECT_THAT(used(all, Family::v4, {}),
                ElementsAre("lo 127.0.0.1", "eth0 10.0.0.1", "eth0 10.0.0.2", "eth1 192.168.7.1"));
    EXPECT_THAT(used(all, Family::v6, {}),
                ElementsAre("lo ::1", "eth0 fe80::2", "eth0 fd00::2", "eth1 fe80::3"));
    all[1].up = false;
    EXPECT_THAT(used(all, Family::v4, {}), ElementsAre("lo 127.0.0.1", "eth1 192.168.7.1"));
}

TEST(InterfaceFilter, ListsTakeNamesAddressesAndWildcards) {
    const std::vector<Interface> all = usual_host();
    InterfaceFilter filter;
    filter.allow = {"eth0"};
    EXPECT_THAT(used(all, Family::v4, filter), ElementsAre("eth0 10.0.0.1", "eth0 10.0.0.2"));
    filter.allow = {"10.0.0.2", "lo"};
    EXPECT_THAT(used(all, Family::v4, filter), ElementsAre("lo 127.0.0.1", "eth0 10.0.0.2"));
    filter.allow = {"192.168.*"};
    EXPECT_THAT(used(all, Family::v4, filter), ElementsAre("eth1 192.168.7.1"));
    filter.allow = {"eth?"};
    filter.deny = {"10.0.0.1"};
    EXPECT_THAT(used(all, Family::v4, filter), ElementsAre("eth0 10.0.0.2", "eth1 192.168.7.1"));
    filter.allow = {};
    filter.deny = {"eth[01]"};
    EXPECT_THAT(used(all, Family::v4, filter), ElementsAre("lo 127.0.0.1"));
    filter.deny = {};
    filter.allow = {"wlan0"};
    EXPECT_THAT(used(all, Family::v4, filter), IsEmpty());
}

TEST(InterfaceFilter, LoopbackRules) {
    const std::vector<Interface> all = usual_host();
    InterfaceFilter filter;
    filter.ignore_loopback = true;
    EXPECT_THAT(used(all, Family::v6, filter), ElementsAre("eth0 fe80::2", "eth0 fd00::2", "eth1 fe80::3"));
    // Nothing left: the last resort takes loopback, whatever the rules.
    filter.allow = {"wlan0"};
    filter.loopback_as_last_resort = true;
    EXPECT_THAT(used(all, Family::v4, filter), ElementsAre("lo 127.0.0.1"));
    filter.allow = {"eth1"};
    EXPECT_THAT(used(all, Family::v4, filter), ElementsAre("eth1 192.168.7.1"));
    // Loopback only: the other rules do not count.
    filter.loopback_only = true;
    filter.deny = {"*"};
    EXPECT_THAT(used(all, Family::v4, filter), ElementsAre("lo 127.0.0.1"));
}

std::vector<std::string> announced(const std::vector<Interface>& all, Family family) {
    std::vector<std::string> result;
    for (const IpAddress& address : announced_addresses(usable_interfaces(all, family, {}), family))
        result.push_back(to_string(address));
    return result;
}

TEST(AnnouncedAddresses, LoopbackAndLinkLocalOnlyWithoutBetter) {
    EXPECT_THAT(announced(usual_host(), Family::v4), ElementsAre("10.0.0.1", "10.0.0.2", "192.168.7.1"));
    EXPECT_THAT(announced(usual_host(), Family::v6), ElementsAre("fd00::2"));
    EXPECT_THAT(announced({make_loopback()}, Family::v4), ElementsAre("127.0.0.1"));
    EXPECT_THAT(announced({make_loopback()}, Family::v6), ElementsAre("::1"));
    EXPECT_THAT(announced({make_loopback(), make("eth0", 2, {"169.254.1.1"})}, Family::v4),
                ElementsAre("169.254.1.1"));
    EXPECT_THAT(announced({make_loopback(), make("eth0", 2, {"fe80::2"})}, Family::v6),
                ElementsAre("fe80::2"));
    EXPECT_THAT(announced({}, Family::v4), IsEmpty());
}

TEST(AnnouncedAddresses, ThoseThatTheSystemGivesUpSoonOnlyWithoutBetter) {
    Interface interface = make("eth0", 2, {"fd00::1", "fd00::2", "fe80::2"});
    interface.addresses[0].is_passing = true;
    EXPECT_THAT(announced({make_loopback(), interface}, Family::v6), ElementsAre("fd00::2"));
    interface.addresses.erase(interface.addresses.begin() + 1);
    EXPECT_THAT(announced({make_loopback(), interface}, Family::v6), ElementsAre("fd00::1"));
}

TEST(Enumeration, KnowsAddressesThatTheSystemGivesUpSoon) {
    test::OtherHost other;
    other.run([] {
        test::shell(
            "ip addr add fd01::1/64 dev lo nodad; "
            "ip addr add fd01::2/64 dev lo nodad preferred_lft 0 valid_lft 1000");
        std::string error;
        const std::vector<Interface> all = enumerate_interfaces(error);
        ASSERT_EQ(all.size(), 1u) << error;
        for (const InterfaceAddress& entry : all[0].addresses)
            EXPECT_EQ(entry.is_passing, to_string(entry.address) == "fd01::2") << to_string(entry.address);
    });
}

TEST(Enumeration, FindsLoopbackOfThisNetwork) {
    std::string error;
    const std::vector<Interface> all = enumerate_interfaces(error);
    ASSERT_EQ(all.size(), 1u) << error;
    EXPECT_EQ(all[0].name, "lo");
    EXPECT_EQ(all[0].index, 1u);
    EXPECT_TRUE(all[0].up);
    EXPECT_TRUE(all[0].loopback);
    EXPECT_TRUE(all[0].multicast);
    ASSERT_FALSE(all[0].addresses.empty());
    EXPECT_EQ(all[0].addresses[0].address.family, Family::v4);
    EXPECT_EQ(to_string(all[0].addresses[0].address), "127.0.0.1");
    EXPECT_EQ(all[0].addresses[0].prefix_length, 8u);
}

TEST(Enumeration, MonitorTellsOfNewAddressesAndLinks) {
    InterfaceMonitor monitor;
    std::string error;
    EXPECT_EQ(monitor.descriptor(), -1);
    EXPECT_FALSE(monitor.drain());
    ASSERT_TRUE(monitor.open(error)) << error;
    const auto noticed = [&monitor](const std::string& command) {
        test::shell(command);
        pollfd waiting{monitor.descriptor(), POLLIN, 0};
        return poll(&waiting, 1, 2000) == 1 && monitor.drain();
    };
    EXPECT_FALSE(monitor.drain());
    EXPECT_TRUE(noticed("ip addr add 10.9.9.9/32 dev lo"));
    EXPECT_TRUE(noticed("ip addr del 10.9.9.9/32 dev lo"));
    EXPECT_TRUE(noticed("ip -6 addr add fd09::9/128 dev lo nodad"));
    EXPECT_TRUE(noticed("ip -6 addr del fd09::9/128 dev lo"));
    EXPECT_TRUE(noticed("ip link add near type veth peer name far"));
    EXPECT_TRUE(noticed("ip link del near"));
    EXPECT_FALSE(monitor.drain());
}

} // namespace
} // namespace meridian::rtps::net
