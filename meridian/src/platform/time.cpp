#include "meridian/time.h"

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
    // Whole seconds are shown, so the fraction only ever cuts off: 23:59:59.9 is still that day. UTC as POSIX
    // counts it has no leap seconds: every day has as many, and no calendar is needed. Every report line has
    // such a text, so it is put together by hand.
    const auto seconds = static_cast<unsigned>(time.sec % 86400);
    const unsigned parts[] = {seconds / 3600, seconds / 60 % 60, seconds % 60};
    for (const unsigned part : parts) {
        *buffer++ = static_cast<char>('0' + part / 10);
        *buffer++ = static_cast<char>('0' + part % 10);
        *buffer++ = ':';
    }
    *--buffer = '\0';
    return true;
}
