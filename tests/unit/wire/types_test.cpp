// Texts of the value types, times, number sets and hashes.

#include "rtps/wire/types.h"

#include <random>
#include <unordered_set>

#include "wire_test.h"

namespace meridian::rtps {
namespace {

Locator udp6(const std::string& hex, uint32_t port) {
    Locator locator;
    locator.kind = kLocatorUdpV6;
    locator.port = port;
    const ByteBuffer bytes = from_hex(hex);
    for (size_t i = 0; i < locator.address.size(); ++i)
        locator.address[i] = bytes.at(i);
    return locator;
}

TEST(Texts, Guids) {
    EXPECT_EQ(to_string(prefix_of(1)), "01020304.05060708.090a0b0c");
    EXPECT_EQ(to_string(Guid{prefix_of(0xf0), entity::publications_writer}),
              "f0f1f2f3.f4f5f6f7.f8f9fafb:000003c2");
}

TEST(Texts, Locators) {
    EXPECT_EQ(to_string(udp4(127, 0, 0, 1, 7400)), "udpv4:127.0.0.1:7400");
    EXPECT_EQ(to_string(udp6("00000000 00000000 00000000 00000001", 7400)), "udpv6:[::1]:7400");
    EXPECT_EQ(to_string(udp6("00000000 00000000 00000000 00000000", 1)), "udpv6:[::]:1");
    EXPECT_EQ(to_string(udp6("fe800000 00000000 02000000 0000abcd", 1)), "udpv6:[fe80::200:0:0:abcd]:1");
    EXPECT_EQ(to_string(udp6("20010db8 00000001 00000000 00000000", 1)), "udpv6:[2001:db8:0:1::]:1");
    EXPECT_EQ(to_string(udp6("00010000 00020003 00040005 00060007", 1)), "udpv6:[1:0:2:3:4:5:6:7]:1");
    EXPECT_EQ(to_string(udp6("00010000 00000003 00000000 00000007", 1)), "udpv6:[1:0:0:3::7]:1");
    Locator other = udp4(1, 2, 3, 4, 5);
    other.kind = 16;
    EXPECT_EQ(to_string(other), "kind 16:00000000000000000000000001020304:5");
}

TEST(Fractions, WholeNanosecondsComeBackExactly) {
    EXPECT_EQ(fraction_from_nanoseconds(0), 0u);
    EXPECT_EQ(fraction_from_nanoseconds(500'000'000), 0x80000000u);
    EXPECT_EQ(fraction_from_nanoseconds(100'000'000), 429496730u);
    EXPECT_EQ(nanoseconds_from_fraction(0xffffffff), 999'999'999u);
    std::mt19937 random(7);
    for (int i = 0; i < 100'000; ++i) {
        const uint32_t nanoseconds = static_cast<uint32_t>(random() % 1'000'000'000);
        ASSERT_EQ(nanoseconds_from_fraction(fraction_from_nanoseconds(nanoseconds)), nanoseconds);
    }
    EXPECT_EQ(nanoseconds_from_fraction(fraction_from_nanoseconds(999'999'999)), 999'999'999u);
}

TEST(NumberSets, HoldWhatIsWithinReach) {
    SequenceNumberSet set;
    set.base = 10;
    EXPECT_TRUE(set.empty());
    EXPECT_FALSE(set.insert(9));
    EXPECT_FALSE(set.insert(266));
    EXPECT_TRUE(set.insert(265));
    EXPECT_TRUE(set.insert(10));
    EXPECT_EQ(set.num_bits, 256u);
    EXPECT_TRUE(set.contains(10) && set.contains(265));
    EXPECT_FALSE(set.contains(11) || set.contains(266) || set.contains(9));
    EXPECT_FALSE(set.empty());
}

TEST(NumberSets, AgreeWithASetOfNumbers) {
    std::mt19937 random(11);
    for (int round = 0; round < 500; ++round) {
        FragmentNumberSet set;
        set.base = static_cast<FragmentNumber>(random() % 1000 + 1);
        std::unordered_set<FragmentNumber> expected;
        for (int i = 0; i < 30; ++i) {
            const FragmentNumber n = static_cast<FragmentNumber>(random() % 1500);
            if (set.insert(n))
                expected.insert(n);
            ASSERT_EQ(expected.count(n) != 0, n >= set.base && n - set.base < 256);
        }
        for (FragmentNumber n = 0; n < 1500; ++n)
            ASSERT_EQ(set.contains(n), expected.count(n) != 0);
    }
}

TEST(Hashes, SpreadNeighbours) {
    std::unordered_set<size_t> hashes;
    for (uint32_t i = 0; i < 256; ++i) {
        for (uint32_t j = 0; j < 256; ++j) {
            Guid guid{prefix_of(1), EntityId{i << 8 | 2}};
            guid.prefix.bytes[11] = static_cast<uint8_t>(j);
            hashes.insert(std::hash<Guid>()(guid));
        }
    }
    EXPECT_EQ(hashes.size(), 65536u);
}

TEST(EntityIds, Kinds) {
    EXPECT_TRUE(entity::publications_writer.is_writer() && entity::publications_writer.is_builtin());
    EXPECT_TRUE(entity::type_lookup_reply_reader.is_reader());
    EXPECT_FALSE(entity::participant.is_writer() || entity::participant.is_reader());
    EXPECT_TRUE(EntityId{0x102}.has_key() && EntityId{0x107}.has_key());
    EXPECT_FALSE(EntityId{0x103}.has_key() || EntityId{0x104}.has_key() || EntityId{0x103}.is_builtin());
}

} // namespace
} // namespace meridian::rtps
