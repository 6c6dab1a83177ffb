#pragma once

// Endpoint discovery (DDSI-RTPS 2.5, 8.5.4): the table of the endpoints of other participants, filled by the
// builtin readers for publications and subscriptions, and the announcements of the own endpoints.
//
// Endpoint data that comes before its participant is known is never lost: the builtin readers take data of
// known participants only, and ask for all of it when one becomes known. What a known participant announces
// on behalf of an unknown one waits here, unseen, for as long as its announcer is there.

#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "rtps/protocol/participant_discovery.h"
#include "rtps/protocol/reliable_writer.h"
#include "rtps/protocol/sinks.h"
#include "rtps/protocol/warn_once.h"

namespace meridian::rtps {

struct LocalEndpoint;

struct RemoteEndpoint {
    EndpointData data;
    ByteBuffer announcement; // as it came
    WireTime timestamp = kTimeInvalid;
    bool visible = false; // its participant is known
    // Kept by LocalEndpoints:
    std::vector<LocalEndpoint*> matched;
    bool undecided = false; // a local reader waits for the decision whether its type fits
};

class EndpointDiscovery {
  public:
    /// Called during the calls below; must not change the table.
    class Listener {
      public:
        virtual ~Listener() = default;
        virtual void on_endpoint_discovered(RemoteEndpoint& endpoint) = 0;
        virtual void on_endpoint_changed(RemoteEndpoint& endpoint) = 0;
        /// Called while the endpoint can still be found.
        virtual void on_endpoint_gone(RemoteEndpoint& endpoint, GoneReason reason, WireTime timestamp) = 0;
    };

    /// The references must outlive the object.
    EndpointDiscovery(size_t max_endpoints, const ParticipantDiscovery& participants, WarnOnce& warnings,
                      Listener& listener);

    /// Samples of the builtin readers; writers: of the one for publications.
    void on_sample(const Sample& sample, bool writers);

    void participant_discovered(const GuidPrefix& prefix);
    /// Removes its endpoints, and those it announced for others.
    void participant_gone(const GuidPrefix& prefix, GoneReason reason);
    void clear();

    /// Visible ones only, like the operations below.
    RemoteEndpoint* find(const Guid& guid) const;
    template <typename Function>
    void for_each(Function function) const {
        for (const auto& entry : by_participant_)
            for_each_of(entry.second, function);
    }
    template <typename Function>
    void for_each_of_participant(const GuidPrefix& prefix, Function function) const {
        const auto at = by_participant_.find(prefix);
        if (at != by_participant_.end())
            for_each_of(at->second, function);
    }
    /// In the order of their GUIDs.
    template <typename Function>
    void for_each_of_topic(const std::string& topic_name, Function function) const {
        const auto range = by_topic_.equal_range(topic_name);
        for (auto at = range.first; at != range.second; ++at) {
            if ((*at)->visible)
                function(**at);
        }
    }

    /// The sample that announces a local endpoint through a builtin writer, and the one that disposes it.
    static void announce(ReliableWriter& builtin_writer, const EndpointData& data, Now now);
    static void dispose(ReliableWriter& builtin_writer, const Guid& guid, Now now);

  private:
    using Endpoints = std::unordered_map<uint32_t, std::unique_ptr<RemoteEndpoint>>; // by entity id
    /// By topic name, then GUID.
    struct TopicOrder {
        using is_transparent = void;
        bool operator()(const RemoteEndpoint* a, const RemoteEndpoint* b) const {
            const int order = a->data.topic_name.compare(b->data.topic_name);
            return order != 0 ? order < 0 : a->data.guid < b->data.guid;
        }
        bool operator()(const RemoteEndpoint* a, const std::string& b) const {
            return a->data.topic_name < b;
        }
        bool operator()(const std::string& a, const RemoteEndpoint* b) const {
            return a < b->data.topic_name;
        }
    };

    template <typename Function>
    static void for_each_of(const Endpoints& endpoints, Function& function) {
        for (const auto& entry : endpoints) {
            if (entry.second->visible)
                function(*entry.second);
        }
    }
    RemoteEndpoint* find_any(const Guid& guid) const;
    void note_announcer(const Guid& endpoint, const GuidPrefix& announcer);
    void add(EndpointData&& data, const Sample& sample);
    void change(RemoteEndpoint& endpoint, EndpointData&& data, const Sample& sample);
    void on_dispose(const Sample& sample);
    void remove(const Guid& guid, GoneReason reason, WireTime timestamp);

    size_t max_endpoints_;
    const ParticipantDiscovery& participants_;
    WarnOnce& warnings_;
    Listener& listener_;
    std::unordered_map<GuidPrefix, Endpoints> by_participant_;
    std::set<RemoteEndpoint*, TopicOrder> by_topic_;
    std::map<Guid, GuidPrefix> announced_by_others_; // and by whom
};

} // namespace meridian::rtps
