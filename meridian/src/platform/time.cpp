#include "meridian/time.h"

#include <cstdio>
#include <ctime>

namespace {

/// Nanoseconds beyond a second are allowed in a record, so records are compared by what they mean.
int64_t total_nanoseconds(const DDS_Duration_t& duration) {
    return int64_t{duration.sec} * 1000000000 + int64_t{duration.nanosec};
}

} // namespace

bool DDS_Duration_is_infinite(const DDS_Duration_t& duration) {
    return duration.sec == DDS_DURATION_INFINITE_SEC;
}

bool operator==(const DDS_Duration_t& a, const DDS_Duration_t& b) {
    if (DDS_Duration_is_infinite(a) || DDS_Duration_is_infinite(b))
        return DDS_Duration_is_infinite(a) && DDS_Duration_is_infinite(b);
    return total_nanoseconds(a) == total_nanoseconds(b);
}

bool operator<(const DDS_Duration_t& a, const DDS_Duration_t& b) {
    if (DDS_Duration_is_infinite(a))
        return false;
    return DDS_Duration_is_infinite(b) || total_nanoseconds(a) < total_nanoseconds(b);
}

bool QUIXNtpTime_to_time_of_day(const QUIXNtpTime& time, char* buffer) {
    if (buffer == nullptr || time.sec < 0)
        return false;
    // Whole seconds are shown, so the fraction only ever cuts off: 23:59:59.9 is still that day.
    const time_t seconds = time.sec;
    std::tm utc{};
    if (gmtime_r(&seconds, &utc) == nullptr)
        return false;
    std::snprintf(buffer, QUIX_TIME_OF_DAY_BUFFER_SIZE, "%02d:%02d:%02d", utc.tm_hour, utc.tm_min,
                  utc.tm_sec);
    return true;
}
