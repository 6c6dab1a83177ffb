#pragma once

// Endpoint discovery (DDSI-RTPS 2.5, 8.5.4): the table of the endpoints of other participants, filled by the
// builtin readers for publications and subscriptions.
//
// What an endpoint announces becomes visible once its participant is known and its type is settled; what it
// announces meanwhile replaces what waits. An endpoint that goes while it waits is settled as it stands, so
// that it is told of before its end is.
//
// What a participant tells of its own endpoints before it is known is never lost: the builtin readers take
// data of known participants only, and ask for all of it when one becomes known. What a discovery server or
// the service of a node tells of others' endpoints (see ParticipantDiscovery::speaks_for) waits for their
// participant, for a limited time and in limited number; it is dropped where the participant speaks for
// itself.

#include <deque>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/seeded_hash.h"
#include "rtps/protocol/participant_discovery.h"
#include "rtps/protocol/remote_endpoint.h"
#include "rtps/protocol/sinks.h"
#include "rtps/protocol/type_settler.h"
#include "rtps/protocol/warn_once.h"

namespace meridian::rtps {

struct LocalEndpoint;
class Reader;

/// An entry of the table; at least one of the records is set.
struct DiscoveredEndpoint {
    // What every sample needs comes first: with many topics it must be fetched from afar.
    Guid guid;
    Reader* only_reader = nullptr; // where `matched` is one reader
    RemoteEndpointRef record;      // what is visible
    std::shared_ptr<RemoteEndpoint> waiting;
    std::vector<LocalEndpoint*> matched; // kept by LocalEndpoints
    bool is_told_apart = false;          // announcements for it alone stand in a history

    const RemoteEndpoint& newest() const { return waiting != nullptr ? *waiting : *record; }
};

class EndpointDiscovery {
  public:
    /// Called during the calls below; must not change the table.
    class Listener {
      public:
        virtual ~Listener() = default;
        virtual void on_endpoint_discovered(DiscoveredEndpoint& endpoint) = 0;
        virtual void on_endpoint_changed(DiscoveredEndpoint& endpoint) = 0;
        /// Called while the endpoint can still be found.
        virtual void on_endpoint_gone(DiscoveredEndpoint& endpoint, GoneReason reason,
                                      WireTime timestamp) = 0;
        /// Whether endpoints of this topic are to be kept.
        virtual bool wants(const std::string& /*topic_name*/) const { return true; }
    };

    /// The references must outlive the object.
    EndpointDiscovery(const ParticipantConfig& config, const ParticipantDiscovery& participants,
                      WarnOnce& warnings, Listener& listener);

    /// Without one publications have no types. Must outlive the object.
    void set_type_settler(TypeSettler& settler) { settler_ = &settler; }
    /// The answer to a question of which the settler said that it is waiting; null: there is no type.
    void settle_type(const Guid& publication, const EndpointTypeRef& type);

    /// Samples of the builtin readers; writers: of the one for publications.
    void on_sample(const Sample& sample, bool writers);

    /// What others told of its endpoints before can be seen now, if they speak for it.
    void participant_known(const GuidPrefix& prefix);
    /// Removes its endpoints.
    void participant_gone(const GuidPrefix& prefix, GoneReason reason);
    void clear();

    /// Those that wait included.
    DiscoveredEndpoint* find(const Guid& guid);
    /// The operations below pass over those that are not visible.
    template <typename Function>
    void for_each(Function function) {
        for (auto& entry : by_participant_)
            for_each_of(entry.second, function);
    }
    template <typename Function>
    void for_each_of_participant(const GuidPrefix& prefix, Function function) {
        const auto at = by_participant_.find(prefix);
        if (at != by_participant_.end())
            for_each_of(at->second, function);
    }
    /// In the order of their GUIDs.
    template <typename Function>
    void for_each_of_topic(const std::string& topic_name, Function function) const {
        const auto range = by_topic_.equal_range(topic_name);
        for (auto at = range.first; at != range.second; ++at)
            function(**at);
    }

  private:
    struct EndpointsOfParticipant {
        std::unordered_map<uint32_t, DiscoveredEndpoint, SeededHash> by_entity;
        RecordMaker records;
        size_t memory = 0;             // of their records
        MonotonicTime unseen_since{0}; // told of since then; until the participant is known
    };
    /// An endpoint that was told of while its participant was not known.
    struct Unseen {
        MonotonicTime since; // of the endpoints of that participant
        MonotonicTime told;
        GuidPrefix participant;
        GuidPrefix told_by;
    };
    using EndpointsByParticipant = std::unordered_map<GuidPrefix, EndpointsOfParticipant>;
    /// By topic name, then GUID.
    struct TopicOrder {
        using is_transparent = void;
        bool operator()(const DiscoveredEndpoint* a, const DiscoveredEndpoint* b) const {
            const int order = a->record->topic_name.compare(b->record->topic_name);
            return order != 0 ? order < 0 : a->record->guid < b->record->guid;
        }
        bool operator()(const DiscoveredEndpoint* a, const std::string& b) const {
            return a->record->topic_name < b;
        }
        bool operator()(const std::string& a, const DiscoveredEndpoint* b) const {
            return a < b->record->topic_name;
        }
    };

    template <typename Function>
    static void for_each_of(EndpointsOfParticipant& endpoints, Function& function) {
        for (auto& entry : endpoints.by_entity) {
            if (entry.second.record != nullptr)
                function(entry.second);
        }
    }
    void take(EndpointData&& data, const Sample& sample);
    /// False where the participant's part of the memory does not allow the record.
    static bool charge(const EndpointsOfParticipant& siblings, RemoteEndpoint& record);
    bool told_too_many_unseen(const GuidPrefix& prefix) const;
    void put(EndpointsOfParticipant& siblings, std::shared_ptr<RemoteEndpoint> record);
    /// False for what an endpoint cannot be, with the reason in error.
    bool is_acceptable(const EndpointData& data, const Sample& sample, bool writers, std::string& error);
    /// Asks for the type of what waits, and makes it visible if it is settled.
    void settle(DiscoveredEndpoint& endpoint);
    void drop_type_object(RemoteEndpoint& record);
    void make_visible(DiscoveredEndpoint& endpoint);
    void on_dispose(const Sample& sample);
    void remove(const Guid& guid, GoneReason reason, WireTime timestamp);
    /// It is not visible, or no longer.
    void erase(const Guid& guid);
    /// Those of participants that did not become known meanwhile.
    void forget_unseen(MonotonicTime now);
    /// None of them is visible.
    void forget(EndpointsByParticipant::iterator endpoints);

    const ParticipantConfig& config_;
    const ParticipantDiscovery& participants_;
    WarnOnce& warnings_;
    Listener& listener_;
    TypeSettler* settler_ = nullptr;
    size_t count_ = 0;
    EndpointsByParticipant by_participant_;
    std::deque<Unseen> unseen_;                          // of the last kUnseenPatience, the oldest first
    std::unordered_map<GuidPrefix, size_t> unseen_told_; // by whom so many of them were told
    std::set<DiscoveredEndpoint*, TopicOrder> by_topic_; // visible ones
    /// By hash: those found last. Samples of thousands of writers find theirs by one look.
    std::vector<DiscoveredEndpoint*> recent_;
};

} // namespace meridian::rtps
