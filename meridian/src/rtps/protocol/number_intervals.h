#pragma once

// A set of sequence numbers as intervals, so that it costs nothing how many numbers they hold.

#include <algorithm>
#include <vector>

#include "rtps/wire/types.h"

namespace meridian::rtps {

class NumberIntervals {
  public:
    struct Interval {
        SequenceNumber first;
        SequenceNumber end; // behind the last one
    };
    /// Beyond so many the highest are forgotten.
    static constexpr size_t kMost = 256;

    /// Ascending intervals, none of them empty. `room` is used, and kept for its memory only.
    void add(const std::vector<Interval>& more, std::vector<Interval>& room) {
        room.clear();
        auto a = intervals_.begin();
        auto b = more.begin();
        while (a != intervals_.end() || b != more.end()) {
            const bool old = b == more.end() || (a != intervals_.end() && a->first <= b->first);
            const Interval& next = old ? *a++ : *b++;
            if (!room.empty() && next.first <= room.back().end)
                room.back().end = std::max(room.back().end, next.end);
            else if (room.size() < kMost)
                room.push_back(next);
            else
                break;
        }
        intervals_.swap(room);
    }
    void remove_below(SequenceNumber number) {
        intervals_.erase(intervals_.begin(), first_ending_above(number));
    }
    void clear() { intervals_.clear(); }

    /// The first number from this one on that is not in the set.
    SequenceNumber first_outside(SequenceNumber number) const {
        const auto at = first_ending_above(number);
        return at != intervals_.end() && at->first <= number ? at->end : number;
    }
    /// The first number from this one on that is in the set; none where there is none.
    SequenceNumber first_inside(SequenceNumber number, SequenceNumber none) const {
        const auto at = first_ending_above(number);
        return at == intervals_.end() ? none : std::max(at->first, number);
    }
    bool empty() const { return intervals_.empty(); }

  private:
    std::vector<Interval>::const_iterator first_ending_above(SequenceNumber number) const {
        return std::upper_bound(intervals_.begin(), intervals_.end(), number,
                                [](SequenceNumber n, const Interval& interval) { return n < interval.end; });
    }

    std::vector<Interval> intervals_; // ascending, none touches the next
};

} // namespace meridian::rtps
