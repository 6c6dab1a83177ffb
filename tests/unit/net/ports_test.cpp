#include "rtps/net/ports.h"

#include <gtest/gtest.h>

namespace meridian::rtps::net {
namespace {

TEST(Ports, FollowTheStandardMapping) {
    const struct {
        uint32_t domain;
        uint32_t index;
        uint16_t metatraffic_multicast;
        uint16_t metatraffic_unicast;
        uint16_t user_multicast;
        uint16_t user_unicast;
    } rows[] = {
        {0, 0, 7400, 7410, 7401, 7411},        {0, 1, 7400, 7412, 7401, 7413},
        {0, 119, 7400, 7648, 7401, 7649},      {1, 0, 7650, 7660, 7651, 7661},
        {7, 3, 9150, 9166, 9151, 9167},        {232, 0, 65400, 65410, 65401, 65411},
        {232, 62, 65400, 65534, 65401, 65535},
    };
    for (const auto& row : rows) {
        const auto multicast = multicast_ports(row.domain);
        const auto unicast = unicast_ports(row.domain, row.index);
        ASSERT_TRUE(multicast && unicast) << row.domain << " " << row.index;
        EXPECT_EQ(multicast->metatraffic, row.metatraffic_multicast);
        EXPECT_EQ(multicast->user, row.user_multicast);
        EXPECT_EQ(unicast->metatraffic, row.metatraffic_unicast);
        EXPECT_EQ(unicast->user, row.user_unicast);
    }
}

TEST(Ports, EndWhereTheNumbersEnd) {
    EXPECT_FALSE(multicast_ports(233));
    EXPECT_FALSE(multicast_ports(4294967295u));
    EXPECT_FALSE(unicast_ports(233, 0));
    EXPECT_FALSE(unicast_ports(232, 63));
    EXPECT_FALSE(unicast_ports(0, 120));
    EXPECT_TRUE(unicast_ports(231, 119));
}

} // namespace
} // namespace meridian::rtps::net
