#include "rtps/protocol/heartbeat_judge.h"

#include "rtps/protocol/count.h"

namespace meridian::rtps {

namespace {

constexpr Duration kRestartProof = std::chrono::milliseconds(500);
constexpr int kRestartHeartbeats = 3;
// Packets are delayed by less than this; heartbeats that look old later than this are worth a question.
constexpr Duration kLongestDelay = std::chrono::milliseconds(100);
constexpr Duration kClaimProof = std::chrono::milliseconds(100);
constexpr uint32_t kFarCount = 1 << 16;

} // namespace

HeartbeatJudge::Verdict HeartbeatJudge::judge(const Heartbeat& heartbeat, SequenceNumber known,
                                              MonotonicTime now) {
    if (!heard_)
        return believe(heartbeat, Verdict::believed, now);
    const uint32_t steps = static_cast<uint32_t>(heartbeat.count) - static_cast<uint32_t>(count_);
    if (!newer(heartbeat.count, count_))
        return judge_old(heartbeat, now);
    if (steps > kFarCount || heartbeat.last > known + kFarAhead || heartbeat.last < last_)
        return judge_claim(heartbeat, now);
    return believe(heartbeat, Verdict::believed, now);
}

HeartbeatJudge::Verdict HeartbeatJudge::judge_old(const Heartbeat& heartbeat, MonotonicTime now) {
    if (old_ == 0)
        old_since_ = now;
    else if (!newer(heartbeat.count, old_count_))
        return Verdict::ignored;
    old_count_ = heartbeat.count;
    ++old_;
    // Delayed and repeated packets look old too, but not for so long while nothing newer comes.
    if (old_ >= kRestartHeartbeats && now - old_since_ >= kRestartProof && now - time_ >= kRestartProof) {
        // Or one count was not the writer's, and it goes on where it was.
        const bool goes_on = newer(heartbeat.count, count_before_) && heartbeat.last >= last_;
        return believe(heartbeat, goes_on ? Verdict::believed : Verdict::began_anew, now);
    }
    return now - time_ >= kLongestDelay ? Verdict::doubtful : Verdict::ignored;
}

/// A jump forward or back is believed when later heartbeats agree with it and none speaks against it.
HeartbeatJudge::Verdict HeartbeatJudge::judge_claim(const Heartbeat& heartbeat, MonotonicTime now) {
    if (!claim_ || !newer(heartbeat.count, claim_->count) || heartbeat.last < claim_->last)
        claim_ = Claim{heartbeat.count, heartbeat.last, now};
    if (now - claim_->since < kClaimProof)
        return Verdict::doubtful;
    return believe(heartbeat, heartbeat.last < last_ ? Verdict::began_anew : Verdict::believed, now);
}

HeartbeatJudge::Verdict HeartbeatJudge::believe(const Heartbeat& heartbeat, Verdict verdict,
                                                MonotonicTime now) {
    count_before_ = heard_ ? count_ : heartbeat.count;
    heard_ = true;
    count_ = heartbeat.count;
    last_ = heartbeat.last;
    time_ = now;
    old_ = 0;
    claim_.reset();
    return verdict;
}

} // namespace meridian::rtps
