#include "rtps/protocol/makers.h"

#include <gtest/gtest.h>

namespace meridian::rtps::test {

namespace {

Quirks of(VendorId maker, const std::vector<RawParameter>& raw = {}) {
    ParticipantData data;
    data.vendor = maker;
    data.raw = raw;
    data.raw_endianness = Endianness::little;
    return quirks_of(data);
}

TEST(Makers, TheReleaseOfFastDdsTellsItsSerializer) {
    EXPECT_EQ(of(kFastDds).fast_cdr, 1);
    EXPECT_EQ(of(kFastDds, {{0x8007, {}}}).fast_cdr, 0) << "2.12 to 2.14 may have either";
    EXPECT_EQ(of(kFastDds, {{0x8007, {}}, {0x8000, {3, 6, 2, 0}}}).fast_cdr, 2);
    EXPECT_EQ(of(kFastDds, {{0x8007, {}}, {0x8000, {2, 20, 0, 0}}}).fast_cdr, 0);
    EXPECT_EQ(of(kFastDds, {{0x8007, {}}, {0x8000, {}}}).fast_cdr, 0);
    EXPECT_EQ(of(kCycloneDds, {{0x8000, {3, 6, 2, 0}}}).fast_cdr, 0);
}

TEST(Makers, EachReleaseOfFastDdsHearsItsOwnAddressesOnly) {
    for (const Quirks& quirks : {of(kFastDds), of(kFastDds, {{0x8007, {}}}), of(kFastDds, {{0x8000, {3}}})}) {
        EXPECT_TRUE(quirks.has(kHearsOwnAddressesOnly));
        EXPECT_TRUE(quirks.has(kPreemptedByZero));
        EXPECT_FALSE(quirks.has(kSendsFragmentsBehind));
    }
}

TEST(Makers, OpenDdsKnowsEmptyRangesSinceItAnnouncesFlags) {
    EXPECT_EQ(of(kOpenDds).flags, kCountsNanoseconds | kKnowsNoEmptyRange);
    EXPECT_EQ(of(kOpenDds).fast_cdr, 1);
    EXPECT_EQ(of(kOpenDds, {{0xb005, {3, 0, 0, 0}}}).flags, kCountsNanoseconds);
}

TEST(Makers, OthersDoAsTheStandardSays) {
    EXPECT_EQ(of(kCycloneDds).flags, 0);
    EXPECT_EQ(of(kOwnVendorId, {{0xb005, {3, 0, 0, 0}}}).flags, 0);
    EXPECT_FALSE(of(kOpenDds, {{0xb005, {11, 0, 0, 0}}}).has(kCountsNanoseconds));
}

} // namespace

} // namespace meridian::rtps::test
