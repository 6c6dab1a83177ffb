#include "rtps/protocol/times.h"

namespace meridian::rtps {

Duration to_duration(WireDuration duration) {
    if (duration == kDurationInfinite || duration.seconds == 0x7fffffff)
        return kNever;
    if (duration.seconds < 0)
        return Duration(0);
    return std::chrono::seconds(duration.seconds) +
           std::chrono::nanoseconds(nanoseconds_from_fraction(duration.fraction));
}

MonotonicTime later(MonotonicTime base, Duration delta) {
    if (base == kNever || delta == kNever || delta > kNever - base)
        return kNever;
    return base + delta;
}

} // namespace meridian::rtps
