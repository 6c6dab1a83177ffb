#pragma once

// Time in the protocol layer: everything here is a pure state machine, and the caller says what time it is.

#include <chrono>

#include "rtps/wire/types.h"

namespace meridian::rtps {

/// A point on a clock that never jumps; its epoch is the caller's choice, but values are not negative.
using MonotonicTime = std::chrono::nanoseconds;
using Duration = std::chrono::nanoseconds;
constexpr MonotonicTime kNever = MonotonicTime::max();

/// The two clocks, read by the caller right before a call.
struct Now {
    MonotonicTime monotonic{0};
    WireTime wall; // for source timestamps only
};

/// kDurationInfinite (and anything beyond range) becomes kNever; negative values become 0.
Duration to_duration(WireDuration duration);
/// base + delta, kNever where that overflows or either is kNever.
MonotonicTime later(MonotonicTime base, Duration delta);

} // namespace meridian::rtps
