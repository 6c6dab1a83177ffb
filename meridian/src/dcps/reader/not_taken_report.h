#pragma once

// Tells of samples that came and could not be taken: as a warning when it begins, and how many they were at
// the end as an error, since what was reported is not all there was, which must show at every verbosity but
// silence.

#include <array>
#include <cstdint>

#include "platform/log.h"
#include "rtps/protocol/sinks.h"

namespace meridian::dcps {

class NotTakenReport {
  public:
    void add(const char* topic, rtps::NotTaken reason, uint64_t count) {
        static constexpr Texts kFirst{
            "samples come incomplete: fragments were lost on the way; a reliable reader asks for them again",
            "samples are larger than what is put together from fragments, and dropped",
            "no memory is left for samples that come in fragments; they are dropped"};
        uint64_t& total = totals_[static_cast<size_t>(reason)];
        if (total == 0)
            MERIDIAN_LOG_WARNING("dcps", "topic \"%s\": %s", topic, kFirst[static_cast<size_t>(reason)]);
        total += count;
    }
    void tell_totals(const char* topic) const {
        static constexpr Texts kTotals{"came incomplete", "were too large", "found no memory"};
        for (size_t reason = 0; reason < kReasons; ++reason) {
            if (totals_[reason] != 0)
                MERIDIAN_LOG_ERROR("dcps", "topic \"%s\": %llu samples %s", topic,
                                   static_cast<unsigned long long>(totals_[reason]), kTotals[reason]);
        }
    }

  private:
    static constexpr size_t kReasons = static_cast<size_t>(rtps::NotTaken::count);
    using Texts = std::array<const char*, kReasons>;
    std::array<uint64_t, kReasons> totals_{};
};

} // namespace meridian::dcps
