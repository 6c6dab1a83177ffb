#pragma once

// The two clocks. Any thread.

#include <chrono>

#include "meridian/time.h"

namespace meridian {

/// A clock that never jumps, for periods and deadlines. Its epoch means nothing; values are positive.
std::chrono::nanoseconds monotonic_now();

/// Time since 1970-01-01 UTC; jumps when the clock is set.
std::chrono::nanoseconds wall_now();
/// The same as a DDS time, held at the last second that fits.
DDS_Time_t wall_time();

/// The moment `duration` after `start` on a clock of nanoseconds; nanoseconds::max() for an infinite duration
/// or when it does not fit. A negative duration counts as zero.
std::chrono::nanoseconds deadline_after(std::chrono::nanoseconds start, const DDS_Duration_t& duration);

} // namespace meridian
