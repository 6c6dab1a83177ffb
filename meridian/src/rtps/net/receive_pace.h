#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "rtps/protocol/times.h"

namespace meridian::rtps::net {

/// Decides when the receive thread rests before it fetches what has come. Where samples come one by one and
/// so often that each wakes the thread anew, waking costs more than they do; what comes during a rest is
/// fetched together.
///
/// Nothing is to be lost or to wait for it: there is no rest with socket buffers that a burst of its length
/// might fill, while datagrams come in masses, and while others get answers for which they may be waiting.
class ReceivePace {
  public:
    static constexpr Duration kRest = std::chrono::microseconds(500);
    /// Octets; what one host can send to another, or to itself, in a rest is less.
    static constexpr size_t kRoomyBuffer = size_t{4} << 20;

    /// The smallest buffer of the sockets, in octets.
    explicit ReceivePace(size_t socket_buffer) : is_roomy_(socket_buffer >= kRoomyBuffer) {}

    /// Before all sockets are fetched from.
    void begin() { is_few_ = true; }
    /// After what was fetched from one has been read: how many datagrams it was, and whether there were
    /// answers that could not wait.
    void note(uint64_t datagrams, bool has_answered, MonotonicTime now) {
        is_few_ = is_few_ && datagrams <= kFew;
        if (has_answered)
            answers_until_ = now + kAnswers;
    }
    /// Whether to rest when a wait that began and ended then has brought samples and nothing else.
    bool is_time_to_rest(MonotonicTime begin, MonotonicTime end) const {
        return is_roomy_ && is_few_ && end - begin < kOften && end >= answers_until_;
    }

  private:
    static constexpr uint64_t kFew = 16;
    static constexpr Duration kOften = std::chrono::microseconds(100);
    static constexpr Duration kAnswers = std::chrono::milliseconds(10);

    const bool is_roomy_;
    bool is_few_ = true;
    MonotonicTime answers_until_{0};
};

} // namespace meridian::rtps::net
