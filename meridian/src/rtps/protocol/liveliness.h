#pragma once

// Liveliness of writers (DDS 1.4, 2.2.3.11; DDSI-RTPS 2.5, 8.4.13): when the own writers' assertions are due,
// and which matched remote writers missed theirs.

#include <functional>
#include <map>
#include <utility>

#include "rtps/protocol/sinks.h"

namespace meridian::rtps {

class Liveliness {
  public:
    /// Told when a watched writer missed its lease, or was heard again. Must not call back.
    using Listener = std::function<void(const Guid& writer, bool alive)>;
    explicit Liveliness(Listener listener) : listener_(std::move(listener)) {}

    /// Own writers; leases that are infinite need no assertion.
    void add_own(EntityId writer, LivelinessKind kind, Duration lease, MonotonicTime now);
    void remove_own(EntityId writer);
    /// True when the message that asserts all automatic writers is due; the next one is scheduled then.
    bool assertion_due(MonotonicTime now);

    /// Matched remote writers with a finite lease. Adding a known one changes nothing.
    void add_remote(const Guid& writer, LivelinessKind kind, Duration lease, MonotonicTime now);
    void remove_remote(const Guid& writer);
    bool watches_any() const { return !remotes_.empty(); }
    /// A sample or a heartbeat with the liveliness flag of this writer came: also its participant is alive by
    /// it.
    void on_writer_asserted(const Guid& writer, MonotonicTime now);
    /// A participant message of this kind (ParticipantMessage::Kind) came.
    void on_participant_asserted(const GuidPrefix& prefix, uint32_t kind, MonotonicTime now);

    MonotonicTime next_deadline() const;
    void on_timer(MonotonicTime now);

  private:
    struct Remote {
        LivelinessKind kind = LivelinessKind::automatic;
        Duration lease{0};
        MonotonicTime asserted{0}; // of its own
        bool alive = true;
    };
    /// An assertion of a participant is for all its writers of that kind, and costs the same however many
    /// there are.
    struct RemoteParticipant {
        struct OfKind {
            MonotonicTime asserted{0};
            bool some_lost = false;
        };
        OfKind automatic;
        OfKind manual;
        std::map<EntityId, Remote> writers;

        OfKind* of(LivelinessKind kind);
        MonotonicTime expires(const Remote& writer);
    };
    void revive(const Guid& writer, Remote& remote, MonotonicTime now);
    void schedule_assertion(MonotonicTime now);

    const Listener listener_;
    std::map<EntityId, Duration> own_automatic_;
    MonotonicTime assert_at_ = kNever;
    std::map<GuidPrefix, RemoteParticipant> remotes_;
    MonotonicTime expiry_check_at_ = kNever;
    MonotonicTime expiry_pause_until_{0}; // no check earlier than this
};

} // namespace meridian::rtps
