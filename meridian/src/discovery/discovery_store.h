#pragma once

// What the protocol reports, kept for the builtin readers: the remote participants and the changes of their
// endpoints.

#include <memory>
#include <set>
#include <string>
#include <unordered_map>

#include "discovery/endpoint_cache.h"
#include "discovery/partitions.h"
#include "platform/mutex.h"
#include "rtps/protocol/events.h"

namespace meridian::discovery {

/// Takes the events of one participant. Endpoints of participants whose partitions do not match the own ones
/// are held back until they do. Any thread; the lock order is events' caller, store, cache, cache observer.
class DiscoveryStore final : public rtps::Events {
  public:
    explicit DiscoveryStore(PartitionList own_partitions);

    EndpointCache& publications() { return publications_; }
    EndpointCache& subscriptions() { return subscriptions_; }

    /// Reports what now is, or no longer is, in a matching participant.
    void set_own_partitions(PartitionList own_partitions);

    /// The last announcement of a remote participant that is there, or whose endpoints a builtin reader still
    /// holds. Null: unknown.
    rtps::ParticipantRef find_participant(const rtps::GuidPrefix& prefix) const;

    /// Whether the partitions of the participant let its endpoints match ours.
    bool admits(const rtps::GuidPrefix& prefix) const override;
    void participant_discovered(const rtps::ParticipantRef& participant) override;
    void participant_changed(const rtps::ParticipantRef& participant) override;
    void participant_gone(const rtps::ParticipantRef& participant, rtps::GoneReason reason) override;
    void endpoint_discovered(const rtps::RemoteEndpointRef& endpoint) override;
    void endpoint_changed(const rtps::RemoteEndpointRef& endpoint) override;
    void endpoint_gone(const rtps::RemoteEndpointRef& endpoint, rtps::GoneReason reason,
                       rtps::WireTime source_timestamp) override;
    void warning(const std::string& text) override;
    void error(const std::string& text) override;

  private:
    struct ByGuid {
        bool operator()(const rtps::RemoteEndpointRef& a, const rtps::RemoteEndpointRef& b) const {
            return a->guid < b->guid;
        }
    };
    struct Participant {
        rtps::ParticipantRef announced;
        bool matches = false;
        std::set<rtps::RemoteEndpointRef, ByGuid> endpoints;
    };

    void put_participant(const rtps::ParticipantRef& announced) MERIDIAN_REQUIRES(mutex_);
    /// Once, of the first participant of whose partitions not all count.
    void tell_if_cut(const rtps::ParticipantData& participant) MERIDIAN_REQUIRES(mutex_);
    Participant& participant_of(const rtps::GuidPrefix& prefix) MERIDIAN_REQUIRES(mutex_);
    /// has_moved: its partitions, with which its endpoints are shown, have changed.
    void match(Participant& participant, bool has_moved) MERIDIAN_REQUIRES(mutex_);
    /// when: the time of the change; kTimeInvalid where it is not that of the endpoint's own announcement.
    void report(const Participant& participant, const rtps::RemoteEndpointRef& endpoint, rtps::WireTime when)
        MERIDIAN_REQUIRES(mutex_);
    void report_gone(const Participant& participant, const rtps::RemoteEndpoint& endpoint,
                     rtps::WireTime when) MERIDIAN_REQUIRES(mutex_);
    EndpointCache& cache_of(const rtps::RemoteEndpoint& endpoint) {
        return endpoint.is_writer ? publications_ : subscriptions_;
    }

    EndpointCache publications_;
    EndpointCache subscriptions_;
    mutable Mutex mutex_;
    PartitionList own_partitions_ MERIDIAN_GUARDED_BY(mutex_);
    bool cut_told_ MERIDIAN_GUARDED_BY(mutex_) = false;
    std::unordered_map<rtps::GuidPrefix, Participant> participants_ MERIDIAN_GUARDED_BY(mutex_);
    /// Participants that have gone; the caches keep those alive whose endpoints they hold.
    std::unordered_map<rtps::GuidPrefix, std::weak_ptr<const rtps::ParticipantData>> departed_
        MERIDIAN_GUARDED_BY(mutex_);
    /// With so many it is looked which of them are of use still.
    size_t departed_limit_ MERIDIAN_GUARDED_BY(mutex_) = 16;
};

} // namespace meridian::discovery
