#pragma once

// What the protocol reports, kept for the builtin readers: the remote participants and the changes of their
// endpoints.

#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "discovery/endpoint_cache.h"
#include "discovery/partitions.h"
#include "discovery/remote_participant.h"
#include "platform/mutex.h"
#include "rtps/protocol/events.h"
#include "types/lookup/publication_types.h"

namespace meridian::discovery {

using PublicationCache = EndpointCache<DDS_PublicationBuiltinTopicData>;
using SubscriptionCache = EndpointCache<DDS_SubscriptionBuiltinTopicData>;

/// Takes the events of one participant. Endpoints of participants whose partitions do not match the own ones
/// are held back until they do. Any thread; the lock order is events' caller, store, cache, cache observer.
///
/// A publication is reported once its type is known, or known not to be had. What happens to it while its
/// type is looked up waits too, and is then reported in order with that type: announcements with the same
/// type information, and its end, also that of its participant. It counts as gone at once for everything but
/// the report. An announcement with other type information ends the wait: what was before it is reported
/// without a type.
class DiscoveryStore final : public rtps::Events {
  public:
    DiscoveryStore(uint32_t domain_id, PartitionList own_partitions);

    /// Publications carry the types that come from there, and wait until they are known. Without it they
    /// carry none. Set before events come; must outlive them.
    void set_types(types::PublicationTypes* types) { types_ = types; }
    /// What a publication waited for; an empty type: it has none. Under the lock of the events' caller.
    void type_resolved(const rtps::Guid& publication, const types::TypeRef& type);

    /// The type of a publication, null where there is none; false while it waits for it.
    bool find_type(const rtps::Guid& publication, const DDS_TypeCode*& type) const;

    PublicationCache& publications() { return publications_; }
    SubscriptionCache& subscriptions() { return subscriptions_; }

    /// Reports what now is, or no longer is, in a matching participant.
    void set_own_partitions(PartitionList own_partitions);

    /// A remote participant that is there, or whose endpoints a builtin reader still holds. Null: unknown.
    RemoteParticipant::Data find_participant(const rtps::GuidPrefix& prefix) const;

    /// Whether the partitions of the participant let its endpoints match ours.
    bool admits(const rtps::GuidPrefix& prefix) const override;
    void participant_discovered(const rtps::ParticipantData& data) override;
    void participant_changed(const rtps::ParticipantData& data) override;
    void participant_gone(const rtps::ParticipantData& data, rtps::GoneReason reason) override;
    void endpoint_discovered(const rtps::EndpointData& data, rtps::WireTime source_timestamp) override;
    void endpoint_changed(const rtps::EndpointData& data, rtps::WireTime source_timestamp) override;
    void endpoint_gone(const rtps::EndpointData& data, rtps::GoneReason reason,
                       rtps::WireTime source_timestamp) override;
    void warning(const std::string& text) override;

  private:
    /// Beyond it the oldest events of a publication that waits for its type are dropped.
    static constexpr size_t kMaxHeldEvents = 100;

    /// The last announcement of an endpoint; one of the records is set.
    struct Endpoint {
        std::shared_ptr<DDS_PublicationBuiltinTopicData> publication;
        std::shared_ptr<DDS_SubscriptionBuiltinTopicData> subscription;
        DDS_Time_t announced = DDS_TIME_INVALID;
        bool waits_for_type = false; // and is not reported until then
    };
    struct Entry {
        std::shared_ptr<RemoteParticipant> participant;
        bool matches = false;
        bool answers_type_lookup = false;
        std::map<rtps::Guid, Endpoint> endpoints;
    };

    /// What happened to a publication since its type is looked up.
    struct Held {
        struct Event {
            std::shared_ptr<RemoteParticipant> participant;
            std::shared_ptr<DDS_PublicationBuiltinTopicData> publication; // null: it is gone
            DDS_Time_t when = DDS_TIME_INVALID;
        };
        rtps::ByteBuffer type_information; // as announced
        std::vector<Event> events;
    };

    bool answers_type_lookup(const rtps::GuidPrefix& participant) const MERIDIAN_EXCLUDES(mutex_);
    void put_participant(const rtps::ParticipantData& data) MERIDIAN_REQUIRES(mutex_);
    void put_endpoint(const rtps::EndpointData& data, rtps::WireTime source_timestamp)
        MERIDIAN_EXCLUDES(mutex_);
    Entry& entry_of(const rtps::GuidPrefix& prefix) MERIDIAN_REQUIRES(mutex_);
    void hold(const rtps::Guid& publication, Held::Event event) MERIDIAN_REQUIRES(mutex_);
    /// Reports what was held of a publication, with that type.
    void release(std::map<rtps::Guid, Held>::iterator held, const types::TypeRef& type)
        MERIDIAN_REQUIRES(mutex_);
    /// An endpoint of the entry is gone.
    void end(const Entry& entry, const rtps::Guid& guid, const Endpoint& endpoint, DDS_Time_t when)
        MERIDIAN_REQUIRES(mutex_);
    void match(Entry& entry) MERIDIAN_REQUIRES(mutex_);
    void report(const Entry& entry, const rtps::Guid& guid, const Endpoint& endpoint)
        MERIDIAN_REQUIRES(mutex_);
    void report_gone(const rtps::Guid& guid, DDS_Time_t when) MERIDIAN_REQUIRES(mutex_);

    const uint32_t domain_id_;
    types::PublicationTypes* types_ = nullptr;
    PublicationCache publications_;
    SubscriptionCache subscriptions_;
    mutable Mutex mutex_;
    PartitionList own_partitions_ MERIDIAN_GUARDED_BY(mutex_);
    std::unordered_map<rtps::GuidPrefix, Entry> participants_ MERIDIAN_GUARDED_BY(mutex_);
    std::map<rtps::Guid, Held> held_ MERIDIAN_GUARDED_BY(mutex_);
    std::unordered_map<rtps::GuidPrefix, std::weak_ptr<RemoteParticipant>> departed_
        MERIDIAN_GUARDED_BY(mutex_);
};

} // namespace meridian::discovery
