#include "rtps/protocol/liveliness.h"

#include <algorithm>

#include "rtps/wire/discovery_data.h"

namespace meridian::rtps {

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

void Liveliness::add_remote(const Guid& writer, LivelinessKind kind, Duration lease, MonotonicTime now) {
    if (lease == kNever || remotes_.count(writer) != 0)
        return;
    Remote& remote = remotes_[writer];
    remote.kind = kind;
    remote.lease = lease;
    remote.expires = later(now, lease);
    expiry_check_at_ = std::min(expiry_check_at_, remote.expires);
}

void Liveliness::remove_remote(const Guid& writer) {
    remotes_.erase(writer);
}

void Liveliness::renew(const Guid& writer, Remote& remote, MonotonicTime now) {
    remote.expires = later(now, remote.lease);
    expiry_check_at_ = std::min(expiry_check_at_, remote.expires);
    if (remote.alive)
        return;
    remote.alive = true;
    listener_.on_liveliness_changed(writer, true);
}

void Liveliness::on_writer_asserted(const Guid& writer, MonotonicTime now) {
    const auto at = remotes_.find(writer);
    if (at == remotes_.end())
        return;
    if (at->second.kind == LivelinessKind::manual_by_topic) {
        renew(writer, at->second, now);
        return;
    }
    on_participant_asserted(writer.prefix,
                            at->second.kind == LivelinessKind::automatic ? ParticipantMessage::automatic
                                                                         : ParticipantMessage::manual,
                            now);
}

void Liveliness::on_participant_asserted(const GuidPrefix& prefix, uint32_t kind, MonotonicTime now) {
    const LivelinessKind asserted = kind == ParticipantMessage::manual ? LivelinessKind::manual_by_participant
                                                                       : LivelinessKind::automatic;
    for (auto at = remotes_.lower_bound(Guid{prefix, EntityId{0}});
         at != remotes_.end() && at->first.prefix == prefix; ++at) {
        if (at->second.kind == asserted)
            renew(at->first, at->second, now);
    }
}

MonotonicTime Liveliness::next_deadline() const {
    return std::min(assert_at_, expiry_check_at_);
}

void Liveliness::on_timer(MonotonicTime now) {
    if (now < expiry_check_at_)
        return;
    expiry_check_at_ = kNever;
    for (auto& entry : remotes_) {
        Remote& remote = entry.second;
        if (!remote.alive)
            continue;
        if (remote.expires <= now) {
            remote.alive = false;
            listener_.on_liveliness_changed(entry.first, false);
        } else {
            expiry_check_at_ = std::min(expiry_check_at_, remote.expires);
        }
    }
}

} // namespace meridian::rtps
