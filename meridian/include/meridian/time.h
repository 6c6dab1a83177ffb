#pragma once

// Time and duration (OMG DDS 1.4, 2.3.2) and the UTC time-of-day formatter.

#include "meridian/base.h"

/// A period. Infinite: both fields at their infinite values.
struct DDS_Duration_t {
    DDS_Long sec;
    DDS_UnsignedLong nanosec;
};
constexpr DDS_Long DDS_DURATION_INFINITE_SEC = 0x7fffffff;
constexpr DDS_UnsignedLong DDS_DURATION_INFINITE_NSEC = 0x7fffffffu;
constexpr DDS_Duration_t DDS_DURATION_INFINITE{DDS_DURATION_INFINITE_SEC, DDS_DURATION_INFINITE_NSEC};
constexpr DDS_Duration_t DDS_DURATION_ZERO{0, 0};

/// True when the seconds or both fields are infinite.
bool DDS_Duration_is_infinite(const DDS_Duration_t& duration);
bool operator==(const DDS_Duration_t& a, const DDS_Duration_t& b);
inline bool operator!=(const DDS_Duration_t& a, const DDS_Duration_t& b) {
    return !(a == b);
}
bool operator<(const DDS_Duration_t& a, const DDS_Duration_t& b);

/// Seconds since 1970-01-01 UTC. Invalid: seconds -1.
struct DDS_Time_t {
    DDS_Long sec;
    DDS_UnsignedLong nanosec;
};
constexpr DDS_Time_t DDS_TIME_INVALID{-1, 0xffffffffu};

/// A time in seconds and fractions of 2^-32 s.
struct QUIXNtpTime {
    DDS_Long sec;
    DDS_UnsignedLong frac;
};
constexpr int QUIX_TIME_OF_DAY_BUFFER_SIZE = 29;
/// Writes the UTC time of day, "HH:MM:SS", into a buffer of at least QUIX_TIME_OF_DAY_BUFFER_SIZE characters.
/// False, and the buffer untouched, for negative seconds or a null buffer.
bool QUIXNtpTime_to_time_of_day(const QUIXNtpTime& time, char* buffer);
