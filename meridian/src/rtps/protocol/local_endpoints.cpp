#include "rtps/protocol/local_endpoints.h"

#include <algorithm>
#include <utility>

#include "rtps/protocol/locator_choice.h"
#include "rtps/protocol/makers.h"
#include "rtps/protocol/qos_matching.h"

namespace meridian::rtps {

namespace {

bool same_topic(const LocalEndpoint& local, const RemoteEndpoint& remote) {
    const EntityId own = local.data.guid.entity;
    const EntityId other = remote.guid.entity;
    return own.is_writer() == other.is_reader() && own.is_reader() == other.is_writer() &&
           own.is_builtin() == other.is_builtin() && local.data.topic_name == remote.topic_name &&
           local.data.type_name == remote.type_name;
}

std::string describe_keys(const EndpointData& local, const RemoteEndpoint& remote) {
    const auto kind = [](const Guid& guid) {
        return std::string(guid.entity.is_writer() ? "writer " : "reader ") + to_string(guid) +
               (guid.entity.has_key() ? " has a key" : " has none");
    };
    return "topic \"" + local.topic_name + "\", type \"" + local.type_name + "\": " + kind(remote.guid) +
           " and " + kind(local.guid) + "; they do not match";
}

bool hears_own_addresses_only(const RemoteParticipant& participant) {
    return quirks_of(*participant.data).has(kHearsOwnAddressesOnly);
}

/// Over UDP, whether or not it can be gone from here at present.
bool announces_way_to(const RemoteEndpoint& remote, const RemoteParticipant& participant) {
    if (announces_udp(*remote.unicast))
        return true;
    const bool has_other_addresses = !remote.unicast->empty() && hears_own_addresses_only(participant);
    return !has_other_addresses && announces_udp(participant.data->default_unicast);
}

bool announces_endpoints(const LocalEndpoint& local) {
    const EntityId id = local.data.guid.entity;
    return id == entity::publications_writer || id == entity::subscriptions_writer;
}

/// Participants are told reliably by discovery servers only, and these tell of the endpoints of all whom they
/// know.
bool speak_with_each_other(const LocalEndpoint& local, const RemoteParticipant& remote) {
    const EntityId id = local.data.guid.entity;
    if (id == entity::participant_writer || id == entity::participant_reader)
        return remote.is_server;
    return !remote.is_relayed || !(announces_endpoints(local) || id == entity::publications_reader ||
                                   id == entity::subscriptions_reader);
}

bool contains(const std::vector<LocalEndpoint*>& list, const LocalEndpoint& endpoint) {
    return std::find(list.begin(), list.end(), &endpoint) != list.end();
}

void find_only_reader(DiscoveredEndpoint& remote) {
    remote.only_reader = remote.matched.size() == 1 ? remote.matched.front()->reader.get() : nullptr;
}

void erase(std::vector<LocalEndpoint*>& list, const LocalEndpoint& endpoint) {
    list.erase(std::remove(list.begin(), list.end(), &endpoint), list.end());
}

void disconnect(LocalEndpoint& local, const Guid& remote) {
    if (local.reader)
        local.reader->remove_writer(remote);
    else
        local.writer->remove_reader(remote);
}

} // namespace

LocalEndpoints::LocalEndpoints(const Output& output, const ParticipantDiscovery& participants,
                               Liveliness& liveliness, const Events& events, WarnOnce& warnings)
    : output_(output),
      participants_(participants),
      liveliness_(liveliness),
      events_(events),
      warnings_(warnings) {}

LocalEndpoint& LocalEndpoints::add(std::unique_ptr<LocalEndpoint> endpoint) {
    LocalEndpoint& added = *endpoint;
    endpoints_[added.data.guid.entity.value] = std::move(endpoint);
    if (added.builtin_peer)
        builtin_.push_back(&added);
    else
        by_topic_[added.data.topic_name].push_back(&added);
    return added;
}

LocalEndpoint* LocalEndpoints::find(EntityId id) const {
    const auto at = endpoints_.find(id.value);
    return at != endpoints_.end() ? at->second.get() : nullptr;
}

void LocalEndpoints::remove(EntityId id) {
    const auto at = endpoints_.find(id.value);
    const LocalEndpoint& endpoint = *at->second;
    if (endpoint.builtin_peer) {
        erase(builtin_, endpoint);
    } else {
        const auto topic = by_topic_.find(endpoint.data.topic_name);
        erase(topic->second, endpoint);
        if (topic->second.empty())
            by_topic_.erase(topic);
    }
    endpoints_.erase(at);
}

Route LocalEndpoints::route_to(const DiscoveredEndpoint& remote, const RemoteParticipant& participant) const {
    Route route{participant.data->guid.prefix,
                choose_locators(*remote.record->unicast, participant.announced_from, output_),
                participant.credit};
    if (route.locators.empty() && announces_way_to(*remote.record, participant))
        route.locators = participant.user.locators;
    else if (route.locators.empty() && !hears_own_addresses_only(participant))
        route.locators = participant.metatraffic.locators;
    return route;
}

bool LocalEndpoints::is_answerable(const RemoteParticipant& participant) {
    return announces_udp(participant.data->default_unicast) || !hears_own_addresses_only(participant);
}

void LocalEndpoints::tell_of_detour(const RemoteEndpoint& remote, const Route& route) {
    warnings_.error_of_others(
        "detour " + to_string(remote.guid),
        "topic \"" + remote.topic_name + "\": writer " + to_string(remote.guid) +
            " announces no UDP address that leads to it, perhaps shared memory or TCP only; " +
            (route.locators.empty()
                 ? "it is not read reliably, since it would wait for answers"
                 : "it is answered at the address that its participant has for discovery"));
}

void LocalEndpoints::connect(LocalEndpoint& local, const Guid& remote, const RemoteParticipant& participant,
                             const EndpointQos& qos, const Route& route, MonotonicTime now) {
    if (local.reader) {
        local.reader->add_writer({remote, route, quirks_of(*participant.data)}, now);
        return;
    }
    RemoteReader reader;
    reader.guid = remote;
    reader.route = route;
    reader.reliable = qos.reliability == Reliability::reliable;
    reader.transient_local = qos.durability != Durability::volatile_;
    reader.answerable = is_answerable(participant);
    reader.quirks = quirks_of(*participant.data);
    reader.told_singly = reader.quirks.has(kHasLittleRoom) && announces_endpoints(local);
    local.writer->add_reader(reader, now);
}

// -- Builtin endpoints

void LocalEndpoints::match_participant(const RemoteParticipant& remote, MonotonicTime now) {
    for (LocalEndpoint* local : builtin_)
        match_participant(*local, remote, now);
}

void LocalEndpoints::match_participant(LocalEndpoint& local, const RemoteParticipant& remote,
                                       MonotonicTime now) {
    const Guid guid{remote.data->guid.prefix, local.builtin_peer->remote};
    // A writer of its that believed to be matched would wait for acknowledgements that never come.
    const bool is_told = !announces_endpoints(local) || events_.admits(guid.prefix);
    if ((remote.data->builtin_endpoints & local.builtin_peer->remote_bit) == 0 || !is_told ||
        !speak_with_each_other(local, remote))
        disconnect(local, guid);
    else // builtin counterparts have the QoS of ours
        connect(local, guid, remote, local.data.qos, remote.metatraffic, now);
}

void LocalEndpoints::unmatch_participant(const GuidPrefix& prefix) {
    for (LocalEndpoint* local : builtin_)
        disconnect(*local, {prefix, local->builtin_peer->remote});
}

// -- The others

void LocalEndpoints::unmatch(LocalEndpoint& local, DiscoveredEndpoint& remote) {
    if (!contains(remote.matched, local))
        return;
    const Guid& guid = remote.record->guid;
    erase(remote.matched, local);
    find_only_reader(remote);
    disconnect(local, guid);
    if (local.reader && remote.matched.empty())
        liveliness_.remove_remote(guid);
    local.sink->unmatched(guid);
}

void LocalEndpoints::match(LocalEndpoint& local, DiscoveredEndpoint& remote, MonotonicTime now, Cause cause) {
    const Guid& guid = remote.record->guid;
    const RemoteParticipant* participant = participants_.find(guid.prefix);
    if (participant == nullptr || !same_topic(local, *remote.record) || !events_.admits(guid.prefix)) {
        part(local, remote);
        return;
    }
    if (local.data.guid.entity.has_key() != guid.entity.has_key()) {
        part(local, remote);
        warnings_.warn(to_string(local.data.guid) + to_string(guid),
                       describe_keys(local.data, *remote.record));
        return;
    }
    const std::vector<uint32_t> policies = local.writer
                                               ? incompatible_policies(local.data.qos, *remote.record->qos)
                                               : incompatible_policies(*remote.record->qos, local.data.qos);
    if (!policies.empty()) {
        unmatch(local, remote);
        auto& told = refused_[{guid, local.data.guid.entity}];
        if (std::exchange(told, policies) != policies)
            local.sink->incompatible(*remote.record, policies);
        return;
    }
    refused_.erase({guid, local.data.guid.entity});
    if (local.reader_sink != nullptr && !local.reader_sink->accepts_type(*remote.record)) {
        unmatch(local, remote);
        return;
    }
    const Route route = route_to(remote, *participant);
    const bool acknowledges = local.data.qos.reliability == Reliability::reliable;
    const bool no_address_leads_to_it = local.reader && !announces_way_to(*remote.record, *participant);
    if (acknowledges && no_address_leads_to_it) {
        tell_of_detour(*remote.record, route);
        if (route.locators.empty()) {
            unmatch(local, remote);
            return;
        }
    }
    pair(local, remote, *participant, route, now, cause);
}

void LocalEndpoints::pair(LocalEndpoint& local, DiscoveredEndpoint& remote,
                          const RemoteParticipant& participant, const Route& route, MonotonicTime now,
                          Cause cause) {
    const Guid& guid = remote.record->guid;
    const bool is_new = !contains(remote.matched, local);
    if (is_new) {
        remote.matched.push_back(&local);
        find_only_reader(remote);
    }
    connect(local, guid, participant, *remote.record->qos, route, now);
    if (local.reader)
        liveliness_.add_remote(guid, remote.record->qos->liveliness,
                               to_duration(remote.record->qos->liveliness_lease), now);
    if (is_new)
        local.sink->matched(*remote.record);
    else if (cause == Cause::remote_changed)
        local.sink->match_changed(*remote.record);
}

void LocalEndpoints::match_all(DiscoveredEndpoint& remote, MonotonicTime now, Cause cause) {
    const std::vector<LocalEndpoint*> before = remote.matched;
    for (LocalEndpoint* local : before) {
        if (!same_topic(*local, *remote.record)) // it has moved to another topic
            part(*local, remote);
    }
    const auto topic = by_topic_.find(remote.record->topic_name);
    if (topic == by_topic_.end())
        return;
    for (LocalEndpoint* local : topic->second)
        match(*local, remote, now, cause);
}

void LocalEndpoints::part(LocalEndpoint& local, DiscoveredEndpoint& remote) {
    unmatch(local, remote);
    refused_.erase({remote.record->guid, local.data.guid.entity});
}

void LocalEndpoints::part_all(DiscoveredEndpoint& remote) {
    while (!remote.matched.empty())
        unmatch(*remote.matched.back(), remote);
    const auto first = refused_.lower_bound({remote.record->guid, EntityId{0}});
    auto last = first;
    while (last != refused_.end() && last->first.first == remote.record->guid)
        ++last;
    refused_.erase(first, last);
}

} // namespace meridian::rtps
