#include "rtps/net/own_participants.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <set>

namespace meridian::rtps::net {
namespace {

uint32_t word(const GuidPrefix& prefix, size_t index) {
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i)
        value = value << 8 | prefix.bytes[index * 4 + i];
    return value;
}

TEST(OwnParticipants, WordsAreVendorAndHostThenProcessThenUnique) {
    OwnParticipants own;
    const GuidPrefix first = own.choose(0, 0, 0);
    const GuidPrefix second = own.choose(0, 0, 0);
    EXPECT_EQ(first.bytes[0], kOwnVendorId.bytes[0]);
    EXPECT_EQ(first.bytes[1], kOwnVendorId.bytes[1]);
    EXPECT_EQ(word(first, 1), static_cast<uint32_t>(getpid()));
    EXPECT_EQ(word(first, 0), word(second, 0));
    EXPECT_EQ(word(first, 1), word(second, 1));
    EXPECT_NE(word(first, 2), word(second, 2));
    EXPECT_NE(word(first, 2), 0u);
}

TEST(OwnParticipants, TwoProcessesChooseDifferently) {
    OwnParticipants own;
    OwnParticipants other;
    EXPECT_NE(own.choose(0, 0, 0), other.choose(0, 0, 0));
}

TEST(OwnParticipants, GivenWordsStand) {
    OwnParticipants own;
    const GuidPrefix prefix = own.choose(0x01020304, 0x0a0b0c0d, 0xf0f1f2f3);
    EXPECT_EQ(to_string(prefix), "01020304.0a0b0c0d.f0f1f2f3");
    EXPECT_EQ(word(own.choose(0, 4711, 0), 1), 4711u);
}

TEST(OwnParticipants, RemembersAll) {
    OwnParticipants own;
    std::set<GuidPrefix> chosen;
    for (int i = 0; i < 1000; ++i)
        chosen.insert(own.choose(0, 0, 0));
    EXPECT_EQ(chosen.size(), 1000u);
    for (const GuidPrefix& prefix : chosen)
        EXPECT_TRUE(own.contains(prefix));
    EXPECT_FALSE(own.contains(GuidPrefix{}));
    EXPECT_FALSE(own.contains(OwnParticipants().choose(1, 2, 3)));
}

} // namespace
} // namespace meridian::rtps::net
