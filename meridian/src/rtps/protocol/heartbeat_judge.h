#pragma once

// Which heartbeats of one writer a reliable reader believes. They are all that tells what a writer has
// written, and any host can send them: delayed, repeated and invented ones must not move the reader for long,
// while a writer that begins anew with the same GUID must be noticed.

#include <optional>

#include "rtps/protocol/times.h"
#include "rtps/wire/message.h"

namespace meridian::rtps {

class HeartbeatJudge {
  public:
    enum class Verdict {
        believed,
        ignored,    // delayed or repeated
        doubtful,   // not believed yet: the writer should be asked for another one
        began_anew, // the writer's numbers start over; believed
    };

    /// known: the highest number that the writer is known to have written.
    Verdict judge(const Heartbeat& heartbeat, SequenceNumber known, MonotonicTime now);
    /// One was believed.
    bool heard() const { return heard_; }

  private:
    struct Claim {
        Count count;
        SequenceNumber last;
        MonotonicTime since;
    };
    Verdict judge_old(const Heartbeat& heartbeat, MonotonicTime now);
    Verdict judge_claim(const Heartbeat& heartbeat, MonotonicTime now);
    Verdict believe(const Heartbeat& heartbeat, Verdict verdict, MonotonicTime now);

    bool heard_ = false;
    Count count_ = 0;
    Count count_before_ = 0; // of the one believed before that one
    SequenceNumber last_ = 0;
    MonotonicTime time_{0};
    // In a row, with counts that are old but grow among themselves.
    int old_ = 0;
    Count old_count_ = 0;
    MonotonicTime old_since_{0};
    std::optional<Claim> claim_; // of a newer count, not believed yet
};

} // namespace meridian::rtps
