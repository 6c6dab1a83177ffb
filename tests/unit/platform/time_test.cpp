#include "meridian/time.h"

#include <gtest/gtest.h>

#include <limits>

#include "meridian/guid.h"
#include "meridian/version.h"
#include "platform/clock.h"

namespace {

constexpr DDS_Duration_t kOneSecond{1, 0};

TEST(Duration, InfiniteIsBySeconds) {
    EXPECT_TRUE(DDS_Duration_is_infinite(DDS_DURATION_INFINITE));
    EXPECT_TRUE(DDS_Duration_is_infinite({DDS_DURATION_INFINITE_SEC, 0}));
    EXPECT_FALSE(DDS_Duration_is_infinite(DDS_DURATION_ZERO));
    EXPECT_FALSE(DDS_Duration_is_infinite({0, DDS_DURATION_INFINITE_NSEC}));
}

TEST(Duration, OrderAndEquality) {
    EXPECT_LT(DDS_DURATION_ZERO, kOneSecond);
    EXPECT_LT(kOneSecond, DDS_DURATION_INFINITE);
    EXPECT_FALSE(DDS_DURATION_INFINITE < kOneSecond);
    EXPECT_FALSE(DDS_DURATION_INFINITE < DDS_DURATION_INFINITE);
    EXPECT_FALSE(kOneSecond < kOneSecond);
    EXPECT_LT((DDS_Duration_t{-1, 0}), DDS_DURATION_ZERO);
    EXPECT_LT((DDS_Duration_t{1, 1}), (DDS_Duration_t{1, 2}));
    EXPECT_EQ((DDS_Duration_t{DDS_DURATION_INFINITE_SEC, 5}), DDS_DURATION_INFINITE);
    EXPECT_NE(kOneSecond, DDS_DURATION_INFINITE);
    EXPECT_EQ((DDS_Duration_t{0, 1000000000}), kOneSecond); // not normalised, the same period
    EXPECT_NE((DDS_Duration_t{1, 1}), kOneSecond);
}

std::string time_of_day(const QUIXNtpTime& time) {
    char buffer[QUIX_TIME_OF_DAY_BUFFER_SIZE] = {};
    return QUIXNtpTime_to_time_of_day(time, buffer) ? buffer : "failed";
}

TEST(TimeOfDay, IsUtcWithoutRounding) {
    EXPECT_EQ(time_of_day({0, 0}), "00:00:00");
    EXPECT_EQ(time_of_day({86399, 0xffffffffu}), "23:59:59");
    EXPECT_EQ(time_of_day({86400, 0}), "00:00:00");
    EXPECT_EQ(time_of_day({1700000000, 0x80000000u}), "22:13:20");
    EXPECT_EQ(time_of_day({std::numeric_limits<DDS_Long>::max(), 0}), "03:14:07");
}

TEST(TimeOfDay, FailsWithoutTouchingTheBuffer) {
    char buffer[QUIX_TIME_OF_DAY_BUFFER_SIZE] = "before";
    EXPECT_FALSE(QUIXNtpTime_to_time_of_day({-1, 0}, buffer));
    EXPECT_STREQ(buffer, "before");
    EXPECT_FALSE(QUIXNtpTime_to_time_of_day({0, 0}, nullptr));
}

TEST(Clock, MonotonicNeverGoesBack) {
    const auto first = meridian::monotonic_now();
    const auto second = meridian::monotonic_now();
    EXPECT_GT(first.count(), 0);
    EXPECT_GE(second, first);
}

TEST(Clock, WallTimeAgreesWithItsParts) {
    const auto before = meridian::wall_now();
    const DDS_Time_t time = meridian::wall_time();
    const auto after = meridian::wall_now();
    const auto moment = std::chrono::seconds(time.sec) + std::chrono::nanoseconds(time.nanosec);
    EXPECT_GE(moment, before);
    EXPECT_LE(moment, after);
    EXPECT_LT(time.nanosec, 1000000000u);
}

TEST(Clock, Deadlines) {
    using std::chrono::nanoseconds;
    const nanoseconds start{500};
    EXPECT_EQ(meridian::deadline_after(start, DDS_DURATION_INFINITE), nanoseconds::max());
    EXPECT_EQ(meridian::deadline_after(start, {2, 7}), nanoseconds{2000000507});
    EXPECT_EQ(meridian::deadline_after(start, {-1, 0}), start);
    EXPECT_EQ(meridian::deadline_after(nanoseconds::max() - nanoseconds{10}, kOneSecond), nanoseconds::max());
}

TEST(Guid, WordsAreReadInNetworkOrder) {
    DDS_GUID_t guid{};
    for (DDS_Octet i = 0; i < 16; ++i)
        guid.value[i] = static_cast<DDS_Octet>(0xf0 + i);
    PRESGuid words{};
    DDS_GUID_copy_to_pres_guid(guid, &words);
    EXPECT_EQ(words.hostId, 0xf0f1f2f3u);
    EXPECT_EQ(words.appId, 0xf4f5f6f7u);
    EXPECT_EQ(words.instanceId, 0xf8f9fafbu);
    EXPECT_EQ(words.entityId, 0xfcfdfeffu);
    DDS_GUID_copy_to_pres_guid(guid, nullptr);
}

TEST(Version, NumbersAndTextAgree) {
    const QUIXConfigVersion& version = QUIXConfigVersion::get_instance();
    const QUIXConfigProductVersion numbers = version.get_product_version();
    const std::string text = "meridian " + std::to_string(numbers.major) + '.' +
                             std::to_string(numbers.minor) + '.' + std::to_string(numbers.release) + '.' +
                             std::to_string(numbers.revision);
    EXPECT_EQ(version.to_string(), text);
}

} // namespace
