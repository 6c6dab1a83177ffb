#include "quixspy/quixSpyHelpers.h"

#include <algorithm>

#include "meridian/wildcard.h"

void QUIXSpy_printTimestamp(std::string& line, const DDS_Time_t& time) {
    char text[QUIX_TIME_OF_DAY_BUFFER_SIZE] = {};
    if (time.sec >= 0) {
        // Nanoseconds to units of 2^-32 s: the factor is 2^61 / 10^9, rounded.
        const uint64_t fraction = (static_cast<uint64_t>(time.nanosec) * 2305843009U) >> 29;
        const QUIXNtpTime ntp_time{time.sec, static_cast<DDS_UnsignedLong>(fraction)};
        if (QUIXNtpTime_to_time_of_day(ntp_time, text)) {
            line += text;
            return;
        }
    }
    line += "xx:xx:xx";
}

int QUIXSpy_matchesPattern(const char* name, const char* const* patterns, int32_t count) {
    const auto matches = [name](const char* pattern) { return QUIXString_matchesWildcard(pattern, name); };
    return count == 0 || std::any_of(patterns, patterns + std::max(count, 0), matches) ? 1 : 0;
}
