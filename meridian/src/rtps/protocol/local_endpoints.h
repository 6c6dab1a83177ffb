#pragma once

// The readers and writers of this participant, and who they are matched with. Holds the routing tables by
// which submessages find their endpoint, and decides about matches; it sends nothing itself.

#include <map>
#include <memory>
#include <set>
#include <unordered_map>
#include <vector>

#include "rtps/protocol/endpoint_discovery.h"
#include "rtps/protocol/liveliness.h"
#include "rtps/protocol/participant_discovery.h"
#include "rtps/protocol/reader.h"
#include "rtps/protocol/reliable_writer.h"
#include "rtps/protocol/warn_once.h"

namespace meridian::rtps {

struct LocalEndpoint {
    EndpointData data;
    std::optional<BuiltinPeer> builtin_peer;
    std::unique_ptr<Reader> reader; // one of the two is set
    std::unique_ptr<ReliableWriter> writer;
    std::set<Guid> matched;
    std::map<Guid, std::vector<uint32_t>> refused; // remote endpoints that do not fit, and the policies told
    std::set<Guid> undecided;                      // remote endpoints whose type is still to be compared
};

class LocalEndpoints {
  public:
    /// The references must outlive the object.
    LocalEndpoints(const Output& output, const ParticipantDiscovery& participants, Liveliness& liveliness,
                   Events& events);

    /// Nothing is matched yet.
    LocalEndpoint& add(std::unique_ptr<LocalEndpoint> endpoint);
    /// Unmatches first. The endpoint must exist.
    void remove(EntityId id);
    LocalEndpoint* find(EntityId id);
    const LocalEndpoint* find(EntityId id) const;
    template <typename Function>
    void for_each(Function function) {
        for (auto& entry : endpoints_)
            function(*entry.second);
    }

    /// True when a local endpoint waits for the decision whether the type of this remote one fits.
    bool is_undecided(const Guid& remote) const;
    /// Readers matched with this writer; nullptr when there are none.
    const std::vector<LocalEndpoint*>* readers_of(const Guid& writer) const;

    /// Matches builtin endpoints of ours with those that the participant says it has, but for our announcing
    /// ones where Events does not admit it; updates routes when it is known.
    void match_participant(const RemoteParticipant& remote, MonotonicTime now);
    void match_participant(LocalEndpoint& local, const RemoteParticipant& remote, MonotonicTime now);
    /// Forgets every match with an endpoint of this participant.
    void unmatch_participant(const GuidPrefix& prefix);
    /// Matches (or unmatches, or changes the route of) one pair, as both stand now.
    void match(LocalEndpoint& local, const RemoteEndpoint& remote, MonotonicTime now);
    void match_all(const RemoteEndpoint& remote, MonotonicTime now);
    void unmatch_all(const Guid& remote);

  private:
    void unmatch(LocalEndpoint& local, const Guid& remote);
    void connect(LocalEndpoint& local, const Guid& remote, const EndpointQos& qos, bool expects_inline_qos,
                 const Route& route, MonotonicTime now);
    Route route_to(const RemoteEndpoint& remote, const RemoteParticipant& participant) const;

    const Output& output_;
    const ParticipantDiscovery& participants_;
    Liveliness& liveliness_;
    Events& events_;
    WarnOnce warn_once_;
    std::map<EntityId, std::unique_ptr<LocalEndpoint>> endpoints_;
    std::unordered_map<Guid, std::vector<LocalEndpoint*>> readers_by_writer_;
};

} // namespace meridian::rtps
