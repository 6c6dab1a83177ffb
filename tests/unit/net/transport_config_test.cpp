#include "rtps/net/transport_config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace meridian::rtps::net {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(TransportProperties, TakeLoopbackAndInterfaceListsPerFamily) {
    TransportConfig config;
    std::string error;
    ASSERT_TRUE(
        apply_properties({{"dds.transport.UDPv4.builtin.ignore_loopback_interface", "1"},
                          {"dds.transport.UDPv4.builtin.parent.allow_interfaces_list", "eth0, 10.*,,lo "},
                          {"dds.transport.UDPv6.builtin.parent.deny_interfaces_list", "wlan?"},
                          {"dds.transport.UDPv4.builtin.something_else", "x"},
                          {"name", "value"}},
                         config, error))
        << error;
    EXPECT_TRUE(config.v4.ignore_loopback_interface);
    EXPECT_FALSE(config.v6.ignore_loopback_interface);
    EXPECT_THAT(config.v4.allow_interfaces, ElementsAre("eth0", "10.*", "lo"));
    EXPECT_THAT(config.v4.deny_interfaces, IsEmpty());
    EXPECT_THAT(config.v6.allow_interfaces, IsEmpty());
    EXPECT_THAT(config.v6.deny_interfaces, ElementsAre("wlan?"));
}

TEST(TransportProperties, BlanksAroundNameAndValueDoNotCount) {
    TransportConfig config;
    config.v4.ignore_loopback_interface = true;
    std::string error;
    ASSERT_TRUE(apply_properties({{" dds.transport.UDPv4.builtin.ignore_loopback_interface ", " 0 "}}, config,
                                 error));
    EXPECT_FALSE(config.v4.ignore_loopback_interface);
}

TEST(TransportProperties, WrongValueIsNamed) {
    TransportConfig config;
    std::string error;
    EXPECT_FALSE(
        apply_properties({{"dds.transport.UDPv6.builtin.ignore_loopback_interface", "yes"}}, config, error));
    EXPECT_THAT(error, HasSubstr("UDPv6.builtin.ignore_loopback_interface"));
    EXPECT_THAT(error, HasSubstr("'yes'"));
}

TEST(TransportCheck, DefaultsAreFine) {
    std::string error;
    EXPECT_TRUE(check(TransportConfig{}, error)) << error;
}

TEST(TransportCheck, RefusesWhatCannotBe) {
    const auto refused = [](void (*change)(TransportConfig&)) {
        TransportConfig config;
        change(config);
        std::string error;
        EXPECT_FALSE(check(config, error));
        return error;
    };
    EXPECT_THAT(refused([](TransportConfig& c) { c.domain_id = 233; }), HasSubstr("domain 233"));
    EXPECT_THAT(refused([](TransportConfig& c) { c.participant_index = 120; }), HasSubstr("index 120"));
    EXPECT_THAT(refused([](TransportConfig& c) { c.participant_index = -2; }), HasSubstr("index -2"));
    EXPECT_THAT(refused([](TransportConfig& c) {
                    c.domain_id = 232;
                    c.participant_index = 63;
                }),
                HasSubstr("index 63"));
    EXPECT_THAT(refused([](TransportConfig& c) { c.mask = 0; }), HasSubstr("mask 0"));
    EXPECT_THAT(refused([](TransportConfig& c) { c.mask = 5; }), HasSubstr("mask 5"));
    EXPECT_THAT(refused([](TransportConfig& c) { c.v4.message_size_max = 575; }), HasSubstr("575"));
    EXPECT_THAT(refused([](TransportConfig& c) { c.v6.multicast_ttl = 256; }),
                HasSubstr("UDPv6 multicast_ttl"));
    EXPECT_THAT(refused([](TransportConfig& c) { c.v4.multicast_ttl = -1; }), HasSubstr("multicast_ttl"));
    EXPECT_THAT(refused([](TransportConfig& c) { c.receive_buffer_size = -1; }), HasSubstr("receive buffer"));
}

} // namespace
} // namespace meridian::rtps::net
