#pragma once

// The readers and writers of this participant and their matches. Decides about matches; it sends
// nothing itself. What a remote endpoint is matched with stands in its record, so that neither a sample nor
// an announcement touches endpoints of other topics.

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/seeded_hash.h"
#include "rtps/protocol/config.h"
#include "rtps/protocol/endpoint_discovery.h"
#include "rtps/protocol/events.h"
#include "rtps/protocol/liveliness.h"
#include "rtps/protocol/participant_discovery.h"
#include "rtps/protocol/reader.h"
#include "rtps/protocol/reliable_writer.h"
#include "rtps/protocol/sinks.h"
#include "rtps/protocol/warn_once.h"

namespace meridian::rtps {

struct LocalEndpoint {
    EndpointData data;
    std::optional<BuiltinPeer> builtin_peer;
    EndpointSink* sink = nullptr;      // never null once added
    ReaderSink* reader_sink = nullptr; // the same one, of a reader
    std::unique_ptr<Reader> reader;    // one of the two is set
    std::unique_ptr<ReliableWriter> writer;
};

class LocalEndpoints {
  public:
    /// The references must outlive the object.
    LocalEndpoints(const Output& output, const ParticipantDiscovery& participants, Liveliness& liveliness,
                   const Events& events, WarnOnce& warnings);

    /// Nothing is matched yet.
    LocalEndpoint& add(std::unique_ptr<LocalEndpoint> endpoint);
    /// The endpoint must exist, and be matched with no endpoint that is not builtin.
    void remove(EntityId id);
    LocalEndpoint* find(EntityId id) const;
    bool has_topic(const std::string& name) const { return by_topic_.count(name) != 0; }
    template <typename Function>
    void for_each(Function function) {
        for (auto& entry : endpoints_)
            function(*entry.second);
    }
    /// Those with a builtin peer.
    const std::vector<LocalEndpoint*>& builtin() const { return builtin_; }

    /// Matches builtin endpoints of ours with those that the participant says it has, but for our announcing
    /// ones where Events does not admit it; updates routes when it is known.
    void match_participant(const RemoteParticipant& remote, MonotonicTime now);
    void match_participant(LocalEndpoint& local, const RemoteParticipant& remote, MonotonicTime now);
    /// Forgets the matches of builtin endpoints with this participant.
    void unmatch_participant(const GuidPrefix& prefix);

    enum class Cause { news, remote_changed };
    /// Matches (or unmatches, or changes the route of) one pair, as both stand now.
    void match(LocalEndpoint& local, DiscoveredEndpoint& remote, MonotonicTime now,
               Cause cause = Cause::news);
    void match_all(DiscoveredEndpoint& remote, MonotonicTime now, Cause cause = Cause::news);
    /// Forgets what there was between the two.
    void part(LocalEndpoint& local, DiscoveredEndpoint& remote);
    void part_all(DiscoveredEndpoint& remote);

  private:
    using Pair = std::pair<Guid, EntityId>; // remote, local

    void unmatch(LocalEndpoint& local, DiscoveredEndpoint& remote);
    /// Whether writers of the participant get answers from here, as far as is known.
    static bool is_answerable(const RemoteParticipant& participant);
    void tell_of_detour(const RemoteEndpoint& remote, const Route& route);
    /// Each is now known to the other. cause: of a match that was there before.
    void pair(LocalEndpoint& local, DiscoveredEndpoint& remote, const RemoteParticipant& participant,
              const Route& route, MonotonicTime now, Cause cause);
    void connect(LocalEndpoint& local, const Guid& remote, const RemoteParticipant& participant,
                 const EndpointQos& qos, const Route& route, MonotonicTime now);
    /// Empty where the endpoint cannot be reached.
    Route route_to(const DiscoveredEndpoint& remote, const RemoteParticipant& participant) const;

    const Output& output_;
    const ParticipantDiscovery& participants_;
    Liveliness& liveliness_;
    const Events& events_;
    WarnOnce& warnings_;
    std::unordered_map<uint32_t, std::unique_ptr<LocalEndpoint>> endpoints_; // by entity id
    std::vector<LocalEndpoint*> builtin_;
    std::unordered_map<std::string, std::vector<LocalEndpoint*>, SeededHash>
        by_topic_;                                  // those without a builtin peer
    std::map<Pair, std::vector<uint32_t>> refused_; // pairs that do not fit, and the policies told
};

} // namespace meridian::rtps
