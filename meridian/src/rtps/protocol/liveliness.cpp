#include "rtps/protocol/liveliness.h"

#include <algorithm>
#include <utility>

#include "rtps/wire/discovery_data.h"

namespace meridian::rtps {

namespace {

// Others choose the leases: how soon a check follows one that looked at many writers, or lost many, of which
// one packet may revive all.
constexpr Duration kPauseForLook = std::chrono::microseconds(1);
constexpr Duration kPauseForLoss = std::chrono::microseconds(100);

} // namespace

void Liveliness::add_own(EntityId writer, LivelinessKind kind, Duration lease, MonotonicTime now) {
    own_automatic_.erase(writer);
    if (kind == LivelinessKind::automatic && lease != kNever)
        own_automatic_[writer] = lease;
    assert_at_ = own_automatic_.empty() ? kNever : now;
}

void Liveliness::remove_own(EntityId writer) {
    own_automatic_.erase(writer);
    if (own_automatic_.empty())
        assert_at_ = kNever;
}

void Liveliness::schedule_assertion(MonotonicTime now) {
    assert_at_ = kNever;
    for (const auto& entry : own_automatic_) {
        // A third of the lease: one lost message is no loss of liveliness.
        const Duration pause = std::max<Duration>(entry.second / 3, std::chrono::milliseconds(1));
        assert_at_ = std::min(assert_at_, later(now, pause));
    }
}

bool Liveliness::assertion_due(MonotonicTime now) {
    if (now < assert_at_)
        return false;
    schedule_assertion(now);
    return true;
}

Liveliness::RemoteParticipant::OfKind* Liveliness::RemoteParticipant::of(LivelinessKind kind) {
    switch (kind) {
        case LivelinessKind::automatic:
            return &automatic;
        case LivelinessKind::manual_by_participant:
            return &manual;
        default:
            return nullptr;
    }
}

MonotonicTime Liveliness::RemoteParticipant::expires(const Remote& writer) {
    const OfKind* all = of(writer.kind);
    return later(all != nullptr ? std::max(writer.asserted, all->asserted) : writer.asserted, writer.lease);
}

void Liveliness::add_remote(const Guid& writer, LivelinessKind kind, Duration lease, MonotonicTime now) {
    if (lease == kNever)
        return;
    const auto [at, is_new] = remotes_[writer.prefix].writers.try_emplace(writer.entity);
    if (!is_new)
        return;
    at->second.kind = kind;
    at->second.lease = lease;
    at->second.asserted = now;
    expiry_check_at_ = std::min(expiry_check_at_, later(now, lease));
}

void Liveliness::remove_remote(const Guid& writer) {
    const auto participant = remotes_.find(writer.prefix);
    if (participant == remotes_.end())
        return;
    participant->second.writers.erase(writer.entity);
    if (participant->second.writers.empty())
        remotes_.erase(participant);
}

void Liveliness::revive(const Guid& writer, Remote& remote, MonotonicTime now) {
    if (remote.alive)
        return;
    remote.alive = true;
    expiry_check_at_ = std::min(expiry_check_at_, later(now, remote.lease));
    listener_(writer, true);
}

void Liveliness::on_writer_asserted(const Guid& writer, MonotonicTime now) {
    const auto participant = remotes_.find(writer.prefix);
    if (participant == remotes_.end())
        return;
    const auto at = participant->second.writers.find(writer.entity);
    if (at == participant->second.writers.end())
        return;
    if (at->second.kind == LivelinessKind::manual_by_topic) {
        at->second.asserted = now;
        revive(writer, at->second, now);
        return;
    }
    on_participant_asserted(writer.prefix,
                            at->second.kind == LivelinessKind::automatic ? ParticipantMessage::automatic
                                                                         : ParticipantMessage::manual,
                            now);
}

void Liveliness::on_participant_asserted(const GuidPrefix& prefix, uint32_t kind, MonotonicTime now) {
    const auto at = remotes_.find(prefix);
    if (at == remotes_.end())
        return;
    const LivelinessKind asserted = kind == ParticipantMessage::manual ? LivelinessKind::manual_by_participant
                                                                       : LivelinessKind::automatic;
    RemoteParticipant::OfKind& all = *at->second.of(asserted);
    all.asserted = now;
    if (!std::exchange(all.some_lost, false))
        return;
    for (auto& [entity, writer] : at->second.writers) {
        if (writer.kind == asserted)
            revive({prefix, entity}, writer, now);
    }
}

MonotonicTime Liveliness::next_deadline() const {
    return std::min(assert_at_, std::max(expiry_check_at_, expiry_pause_until_));
}

void Liveliness::on_timer(MonotonicTime now) {
    if (now < std::max(expiry_check_at_, expiry_pause_until_))
        return;
    expiry_check_at_ = kNever;
    expiry_pause_until_ = now;
    for (auto& [prefix, participant] : remotes_) {
        expiry_pause_until_ += kPauseForLook * static_cast<int64_t>(participant.writers.size());
        for (auto& [entity, writer] : participant.writers) {
            if (!writer.alive)
                continue;
            const MonotonicTime expires = participant.expires(writer);
            if (expires > now) {
                expiry_check_at_ = std::min(expiry_check_at_, expires);
                continue;
            }
            writer.alive = false;
            expiry_pause_until_ += kPauseForLoss;
            if (RemoteParticipant::OfKind* all = participant.of(writer.kind))
                all->some_lost = true;
            listener_({prefix, entity}, false);
        }
    }
}

} // namespace meridian::rtps
