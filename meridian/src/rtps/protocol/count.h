#pragma once

// Arithmetic of numbers that others choose: counts of heartbeats and acknowledgements grow modulo 2^32;
// sequence numbers beyond any that a writer can reach are not believed, so that sums of them never overflow.

#include "rtps/protocol/times.h"
#include "rtps/wire/types.h"

namespace meridian::rtps {

/// True when a is later than b.
inline bool newer(Count a, Count b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b)) > 0;
}

inline Count next_count(Count count) {
    return static_cast<Count>(static_cast<uint32_t>(count) + 1);
}

/// The counts of one sender. Repeated and delayed messages have old ones, but only for a moment: later an old
/// count means that the one before was not the sender's.
class SenderCount {
  public:
    bool heard() const { return heard_; }
    bool is_new(Count count, MonotonicTime now) const {
        return !heard_ || newer(count, count_) || now - time_ >= std::chrono::seconds(1);
    }
    void take(Count count, MonotonicTime now) {
        heard_ = true;
        count_ = count;
        time_ = now;
    }

  private:
    bool heard_ = false;
    Count count_ = 0;
    MonotonicTime time_{0};
};

/// A jump over more numbers than a writer writes while others do not hear it is not believed at once.
constexpr SequenceNumber kFarAhead = SequenceNumber{1} << 20;

constexpr SequenceNumber kHighestSequenceNumber = SequenceNumber{1} << 62;

inline bool plausible(SequenceNumber number) {
    return number >= 1 && number <= kHighestSequenceNumber;
}

} // namespace meridian::rtps
