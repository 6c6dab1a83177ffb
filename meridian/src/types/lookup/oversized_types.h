#pragma once

// Tells of types that are larger than they may be: the first ones of a participant one by one, the rest of a
// minute as a count. All participants together have a limit too: a participant that leaves and comes as
// another begins anew. Not thread-safe.

#include <deque>
#include <map>
#include <string>
#include <utility>

#include "rtps/protocol/times.h"

namespace meridian::types {

class OversizedTypes {
  public:
    explicit OversizedTypes(uint64_t limit) : limit_(limit) {}

    uint64_t limit() const { return limit_; }
    /// Whether so many bytes are above the limit, which is told.
    bool is_too_large(uint64_t size, const std::string& name, const rtps::GuidPrefix& participant,
                      rtps::MonotonicTime now);
    /// Those of the participant that were not told yet, as a count.
    void tell_too_large(const rtps::GuidPrefix& participant, rtps::MonotonicTime now);

    rtps::MonotonicTime next_deadline() const;
    void on_timer(rtps::MonotonicTime now);

  private:
    /// One line more.
    bool may_tell(rtps::MonotonicTime now);

    const uint64_t limit_;
    std::map<rtps::GuidPrefix, unsigned> types_;                          // since the last count
    std::deque<std::pair<rtps::MonotonicTime, rtps::GuidPrefix>> counts_; // that are to come
    rtps::MonotonicTime told_until_{0};
    unsigned told_ = 0; // lines until then
};

} // namespace meridian::types
