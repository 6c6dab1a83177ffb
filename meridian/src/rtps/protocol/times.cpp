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

WireDuration to_wire(Duration duration) {
    constexpr int64_t kSecond = 1000000000;
    if (duration.count() < 0)
        return {0, 0};
    if (duration.count() / kSecond >= 0x7fffffff)
        return kDurationInfinite;
    return {static_cast<int32_t>(duration.count() / kSecond),
            fraction_from_nanoseconds(static_cast<uint32_t>(duration.count() % kSecond))};
}

MonotonicTime later(MonotonicTime base, Duration delta) {
    if (base == kNever || delta == kNever || delta > kNever - base)
        return kNever;
    return base + delta;
}

} // namespace meridian::rtps
