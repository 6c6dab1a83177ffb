#include "platform/clock.h"

#include <ctime>
#include <limits>

namespace meridian {

namespace {

std::chrono::nanoseconds read_clock(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

} // namespace

std::chrono::nanoseconds monotonic_now() {
    return read_clock(CLOCK_MONOTONIC);
}

std::chrono::nanoseconds wall_now() {
    return read_clock(CLOCK_REALTIME);
}

DDS_Time_t wall_time() {
    const int64_t now = wall_now().count();
    const int64_t seconds = now / 1000000000;
    if (seconds > std::numeric_limits<DDS_Long>::max())
        return {std::numeric_limits<DDS_Long>::max(), 999999999};
    return {static_cast<DDS_Long>(seconds), static_cast<DDS_UnsignedLong>(now % 1000000000)};
}

std::chrono::nanoseconds deadline_after(std::chrono::nanoseconds start, const DDS_Duration_t& duration) {
    constexpr auto kForever = std::chrono::nanoseconds::max();
    if (DDS_Duration_is_infinite(duration))
        return kForever;
    if (duration.sec < 0)
        return start;
    const auto period = std::chrono::seconds(duration.sec) + std::chrono::nanoseconds(duration.nanosec);
    return start > kForever - period ? kForever : start + period;
}

} // namespace meridian
