#include "rtps/protocol/local_endpoints.h"

#include <algorithm>

#include "rtps/protocol/locator_choice.h"
#include "rtps/protocol/qos_matching.h"

namespace meridian::rtps {

namespace {

bool same_topic(const LocalEndpoint& local, const EndpointData& remote) {
    const EntityId own = local.data.guid.entity;
    const EntityId other = remote.guid.entity;
    return !local.builtin_peer && own.is_writer() == other.is_reader() &&
           own.is_reader() == other.is_writer() && own.is_builtin() == other.is_builtin() &&
           local.data.topic_name == remote.topic_name && local.data.type_name == remote.type_name;
}

std::string describe_keys(const EndpointData& local, const EndpointData& remote) {
    const auto kind = [](const Guid& guid) {
        return std::string(guid.entity.is_writer() ? "writer " : "reader ") + to_string(guid) +
               (guid.entity.has_key() ? " has a key" : " has none");
    };
    return "topic \"" + local.topic_name + "\", type \"" + local.type_name + "\": " + kind(remote.guid) +
           " and " + kind(local.guid) + "; they do not match";
}

bool announces_endpoints(const LocalEndpoint& local) {
    const EntityId id = local.data.guid.entity;
    return id == entity::publications_writer || id == entity::subscriptions_writer;
}

} // namespace

LocalEndpoints::LocalEndpoints(const Output& output, const ParticipantDiscovery& participants,
                               Liveliness& liveliness, Events& events)
    : output_(output),
      participants_(participants),
      liveliness_(liveliness),
      events_(events),
      warn_once_(events) {}

LocalEndpoint& LocalEndpoints::add(std::unique_ptr<LocalEndpoint> endpoint) {
    LocalEndpoint& added = *endpoint;
    endpoints_[added.data.guid.entity] = std::move(endpoint);
    return added;
}

LocalEndpoint* LocalEndpoints::find(EntityId id) {
    const auto at = endpoints_.find(id);
    return at != endpoints_.end() ? at->second.get() : nullptr;
}

const LocalEndpoint* LocalEndpoints::find(EntityId id) const {
    const auto at = endpoints_.find(id);
    return at != endpoints_.end() ? at->second.get() : nullptr;
}

void LocalEndpoints::remove(EntityId id) {
    const auto at = endpoints_.find(id);
    LocalEndpoint& endpoint = *at->second;
    while (!endpoint.matched.empty())
        unmatch(endpoint, *endpoint.matched.begin());
    endpoints_.erase(at);
}

bool LocalEndpoints::is_undecided(const Guid& remote) const {
    return std::any_of(endpoints_.begin(), endpoints_.end(),
                       [&remote](const auto& entry) { return entry.second->undecided.count(remote) != 0; });
}

const std::vector<LocalEndpoint*>* LocalEndpoints::readers_of(const Guid& writer) const {
    const auto at = readers_by_writer_.find(writer);
    return at != readers_by_writer_.end() ? &at->second : nullptr;
}

Route LocalEndpoints::route_to(const RemoteEndpoint& remote, const RemoteParticipant& participant) const {
    Route route{participant.data.guid.prefix,
                choose_locators(remote.data.unicast, participant.announced_from, output_)};
    if (route.locators.empty())
        route.locators = participant.user.locators;
    return route;
}

void LocalEndpoints::connect(LocalEndpoint& local, const Guid& remote, const EndpointQos& qos,
                             bool expects_inline_qos, const Route& route, MonotonicTime now) {
    const bool is_new = local.matched.insert(remote).second;
    if (local.reader) {
        const RemoteParticipant* participant = participants_.find(remote.prefix);
        local.reader->add_writer(
            RemoteWriter{remote, route, participant != nullptr ? participant->data.vendor : VendorId{}}, now);
        if (is_new)
            readers_by_writer_[remote].push_back(&local);
        liveliness_.add_remote(remote, qos.liveliness, to_duration(qos.liveliness_lease), now);
        return;
    }
    RemoteReader reader;
    reader.guid = remote;
    reader.route = route;
    reader.reliable = qos.reliability == Reliability::reliable;
    reader.transient_local = qos.durability != Durability::volatile_;
    reader.expects_inline_qos = expects_inline_qos;
    local.writer->add_reader(reader, now);
}

void LocalEndpoints::unmatch(LocalEndpoint& local, const Guid& remote) {
    const Guid guid = remote; // the argument may live in the set
    if (local.matched.erase(guid) == 0)
        return;
    if (local.reader) {
        local.reader->remove_writer(guid);
        const auto at = readers_by_writer_.find(guid);
        if (at != readers_by_writer_.end()) {
            auto& readers = at->second;
            readers.erase(std::remove(readers.begin(), readers.end(), &local), readers.end());
            if (readers.empty()) {
                readers_by_writer_.erase(at);
                liveliness_.remove_remote(guid);
            }
        }
    } else {
        local.writer->remove_reader(guid);
    }
    if (!local.builtin_peer)
        events_.unmatched(local.data.guid, guid);
}

void LocalEndpoints::match_participant(const RemoteParticipant& remote, MonotonicTime now) {
    for (auto& entry : endpoints_)
        match_participant(*entry.second, remote, now);
}

void LocalEndpoints::match_participant(LocalEndpoint& local, const RemoteParticipant& remote,
                                       MonotonicTime now) {
    if (!local.builtin_peer)
        return;
    const Guid guid{remote.data.guid.prefix, local.builtin_peer->remote};
    // A writer of its that believed to be matched would wait for acknowledgements that never come.
    const bool is_told = !announces_endpoints(local) || events_.admits(guid.prefix);
    if ((remote.data.builtin_endpoints & local.builtin_peer->remote_bit) == 0 || !is_told) {
        unmatch(local, guid);
        return;
    }
    // Builtin counterparts have the QoS of ours.
    connect(local, guid, local.data.qos, false, remote.metatraffic, now);
}

void LocalEndpoints::unmatch_participant(const GuidPrefix& prefix) {
    for (auto& entry : endpoints_) {
        LocalEndpoint& local = *entry.second;
        const Guid first{prefix, EntityId{0}};
        for (auto at = local.matched.lower_bound(first); at != local.matched.end() && at->prefix == prefix;
             at = local.matched.lower_bound(first))
            unmatch(local, *at);
        for (auto at = local.undecided.lower_bound(first);
             at != local.undecided.end() && at->prefix == prefix;)
            at = local.undecided.erase(at);
        for (auto at = local.refused.lower_bound(first);
             at != local.refused.end() && at->first.prefix == prefix;)
            at = local.refused.erase(at);
    }
}

void LocalEndpoints::match(LocalEndpoint& local, const RemoteEndpoint& remote, MonotonicTime now) {
    const Guid guid = remote.data.guid;
    const RemoteParticipant* participant = participants_.find(guid.prefix);
    if (participant == nullptr || !same_topic(local, remote.data) || !events_.admits(guid.prefix)) {
        if (!local.builtin_peer) {
            unmatch(local, guid);
            local.refused.erase(guid);
        }
        return;
    }
    if (local.data.guid.entity.has_key() != guid.entity.has_key()) {
        unmatch(local, guid);
        local.refused.erase(guid);
        warn_once_.warn(to_string(local.data.guid) + to_string(guid), describe_keys(local.data, remote.data));
        return;
    }
    const bool writes = local.writer != nullptr;
    const std::vector<uint32_t> policies = writes ? incompatible_policies(local.data.qos, remote.data.qos)
                                                  : incompatible_policies(remote.data.qos, local.data.qos);
    if (!policies.empty()) {
        unmatch(local, guid);
        auto& told = local.refused[guid];
        if (told != policies) {
            told = policies;
            events_.incompatible(local.data.guid, remote.data, policies);
        }
        return;
    }
    local.refused.erase(guid);
    const TypeMatch types = events_.types_fit(local.data.guid, remote.data);
    if (types == TypeMatch::undecided)
        local.undecided.insert(guid);
    else
        local.undecided.erase(guid);
    if (types != TypeMatch::fits) {
        unmatch(local, guid);
        return;
    }
    const bool is_new = local.matched.count(guid) == 0;
    connect(local, guid, remote.data.qos, remote.data.expects_inline_qos, route_to(remote, *participant),
            now);
    if (is_new)
        events_.matched(local.data.guid, remote.data);
}

void LocalEndpoints::match_all(const RemoteEndpoint& remote, MonotonicTime now) {
    for (auto& entry : endpoints_) {
        if (!entry.second->builtin_peer)
            match(*entry.second, remote, now);
    }
}

void LocalEndpoints::unmatch_all(const Guid& remote) {
    for (auto& entry : endpoints_) {
        unmatch(*entry.second, remote);
        entry.second->refused.erase(remote);
        entry.second->undecided.erase(remote);
    }
}

} // namespace meridian::rtps
