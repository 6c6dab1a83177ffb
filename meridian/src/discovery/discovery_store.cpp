#include "discovery/discovery_store.h"

#include <utility>

#include "discovery/builtin_data.h"
#include "discovery/conversions.h"
#include "platform/clock.h"
#include "platform/log.h"

namespace meridian::discovery {

namespace {

/// Where the remote sent no time stamp, the time of reception stands in.
DDS_Time_t time_of(rtps::WireTime source_timestamp) {
    return source_timestamp == rtps::kTimeInvalid ? wall_time() : to_time(source_timestamp);
}

DDS_SampleInfo sample_info(const rtps::Guid& endpoint, DDS_Time_t when) {
    DDS_SampleInfo info;
    info.source_timestamp = when;
    const rtps::EntityId announcer =
        endpoint.entity.is_writer() ? rtps::entity::publications_writer : rtps::entity::subscriptions_writer;
    info.publication_handle = to_handle({endpoint.prefix, announcer});
    return info;
}

const char* text_of(rtps::GoneReason reason) {
    switch (reason) {
        case rtps::GoneReason::disposed:
            return "it left";
        case rtps::GoneReason::lease_expired:
            return "its lease expired";
        case rtps::GoneReason::ignored:
            return "it is ignored";
        case rtps::GoneReason::replaced:
            return "it was replaced";
        case rtps::GoneReason::stopped:
            return "this participant stopped";
    }
    return "?";
}

} // namespace

DiscoveryStore::DiscoveryStore(uint32_t domain_id, PartitionList own_partitions)
    : domain_id_(domain_id), own_partitions_(std::move(own_partitions)) {}

void DiscoveryStore::set_own_partitions(PartitionList own_partitions) {
    MutexLock lock(mutex_);
    own_partitions_ = std::move(own_partitions);
    for (auto& entry : participants_)
        match(entry.second);
}

RemoteParticipant::Data DiscoveryStore::find_participant(const rtps::GuidPrefix& prefix) const {
    MutexLock lock(mutex_);
    const auto found = participants_.find(prefix);
    if (found != participants_.end())
        return found->second.participant->data();
    const auto departed = departed_.find(prefix);
    const std::shared_ptr<RemoteParticipant> participant =
        departed != departed_.end() ? departed->second.lock() : nullptr;
    return participant != nullptr ? participant->data() : nullptr;
}

bool DiscoveryStore::admits(const rtps::GuidPrefix& prefix) const {
    MutexLock lock(mutex_);
    const auto found = participants_.find(prefix);
    return found == participants_.end() || found->second.matches;
}

void DiscoveryStore::participant_discovered(const rtps::ParticipantData& data) {
    MutexLock lock(mutex_);
    put_participant(data);
    MERIDIAN_LOG_REMOTE("discovery", "discovered participant %s \"%s\"",
                        rtps::to_string(data.guid.prefix).c_str(), data.name.c_str());
}

void DiscoveryStore::participant_changed(const rtps::ParticipantData& data) {
    MutexLock lock(mutex_);
    put_participant(data);
}

void DiscoveryStore::participant_gone(const rtps::ParticipantData& data, rtps::GoneReason reason) {
    if (types_ != nullptr)
        types_->participant_gone(data.guid.prefix);
    MutexLock lock(mutex_);
    const auto found = participants_.find(data.guid.prefix);
    if (found == participants_.end())
        return;
    for (const auto& endpoint : found->second.endpoints)
        end(found->second, endpoint.first, endpoint.second, wall_time());
    for (auto held = held_.lower_bound({data.guid.prefix, {}});
         held != held_.end() && held->first.prefix == data.guid.prefix;) {
        const auto at = held++;
        if (!found->second.matches)
            held_.erase(at);
        else if (reason == rtps::GoneReason::stopped) // and nobody answers any more
            release(at, types::TypeRef());
    }
    for (auto departed = departed_.begin(); departed != departed_.end();)
        departed = departed->second.expired() ? departed_.erase(departed) : std::next(departed);
    departed_[data.guid.prefix] = found->second.participant;
    participants_.erase(found);
    MERIDIAN_LOG_REMOTE("discovery", "participant %s is gone: %s", rtps::to_string(data.guid.prefix).c_str(),
                        text_of(reason));
}

void DiscoveryStore::endpoint_discovered(const rtps::EndpointData& data, rtps::WireTime source_timestamp) {
    put_endpoint(data, source_timestamp);
}

void DiscoveryStore::endpoint_changed(const rtps::EndpointData& data, rtps::WireTime source_timestamp) {
    put_endpoint(data, source_timestamp);
}

void DiscoveryStore::endpoint_gone(const rtps::EndpointData& data, rtps::GoneReason /*reason*/,
                                   rtps::WireTime source_timestamp) {
    MutexLock lock(mutex_);
    const auto entry = participants_.find(data.participant);
    if (entry == participants_.end())
        return;
    const auto endpoint = entry->second.endpoints.find(data.guid);
    if (endpoint == entry->second.endpoints.end())
        return;
    end(entry->second, data.guid, endpoint->second, time_of(source_timestamp));
    entry->second.endpoints.erase(endpoint);
}

void DiscoveryStore::end(const Entry& entry, const rtps::Guid& guid, const Endpoint& endpoint,
                         DDS_Time_t when) {
    if (endpoint.waits_for_type)
        hold(guid, {entry.participant, nullptr, when});
    else
        report_gone(guid, when);
}

void DiscoveryStore::hold(const rtps::Guid& publication, Held::Event event) {
    std::vector<Held::Event>& events = held_[publication].events;
    if (events.size() == kMaxHeldEvents)
        events.erase(events.begin());
    events.push_back(std::move(event));
}

void DiscoveryStore::release(std::map<rtps::Guid, Held>::iterator held, const types::TypeRef& type) {
    const rtps::Guid guid = held->first;
    const std::vector<Held::Event> events = std::move(held->second.events);
    held_.erase(held);
    const auto entry = participants_.find(guid.prefix);
    if (entry != participants_.end()) {
        const auto endpoint = entry->second.endpoints.find(guid);
        if (endpoint != entry->second.endpoints.end())
            endpoint->second.waits_for_type = false;
    }
    for (const Held::Event& event : events) {
        const bool is_there = entry != participants_.end() && entry->second.participant == event.participant;
        if (event.publication != nullptr)
            event.publication->type_code = type.get();
        if (is_there && !entry->second.matches)
            continue; // and those that have left did match
        if (event.publication != nullptr)
            publications_.put(guid, event.participant, event.publication, sample_info(guid, event.when));
        else
            report_gone(guid, event.when);
    }
}

void DiscoveryStore::type_resolved(const rtps::Guid& publication, const types::TypeRef& type) {
    MutexLock lock(mutex_);
    const auto held = held_.find(publication);
    if (held != held_.end())
        release(held, type);
}

bool DiscoveryStore::find_type(const rtps::Guid& publication, const DDS_TypeCode*& type) const {
    type = nullptr;
    MutexLock lock(mutex_);
    const auto entry = participants_.find(publication.prefix);
    if (entry == participants_.end())
        return true;
    const auto endpoint = entry->second.endpoints.find(publication);
    if (endpoint == entry->second.endpoints.end() || endpoint->second.publication == nullptr)
        return true;
    type = endpoint->second.publication->type_code;
    return !endpoint->second.waits_for_type;
}

void DiscoveryStore::warning(const std::string& text) {
    MERIDIAN_LOG_WARNING("discovery", "%s", text.c_str());
}

void DiscoveryStore::put_participant(const rtps::ParticipantData& data) {
    DDS_ParticipantBuiltinTopicData converted = to_participant_data(data, domain_id_);
    Entry& entry = participants_[data.guid.prefix];
    if (entry.participant == nullptr)
        entry.participant = std::make_shared<RemoteParticipant>(data.guid.prefix, std::move(converted));
    else
        entry.participant->replace(std::move(converted));
    entry.answers_type_lookup = (data.builtin_endpoints & rtps::kTypeLookupRequestReader) != 0;
    match(entry);
}

void DiscoveryStore::put_endpoint(const rtps::EndpointData& data, rtps::WireTime source_timestamp) {
    Endpoint endpoint;
    endpoint.announced = time_of(source_timestamp);
    if (data.is_writer())
        endpoint.publication = std::make_shared<DDS_PublicationBuiltinTopicData>(to_publication_data(data));
    else
        endpoint.subscription =
            std::make_shared<DDS_SubscriptionBuiltinTopicData>(to_subscription_data(data));
    if (types_ != nullptr && endpoint.publication != nullptr) {
        const auto type = types_->type_of(data, answers_type_lookup(data.participant));
        endpoint.waits_for_type = !type;
        endpoint.publication->type_code = type ? type->get() : nullptr;
    }
    MutexLock lock(mutex_);
    Entry& entry = entry_of(data.participant);
    Endpoint& kept = entry.endpoints[data.guid];
    const auto held = held_.find(data.guid);
    if (held != held_.end() &&
        (!endpoint.waits_for_type || held->second.type_information != data.type_information))
        release(held, types::TypeRef());
    kept = std::move(endpoint);
    if (kept.waits_for_type) {
        held_[data.guid].type_information = data.type_information;
        hold(data.guid, {entry.participant, kept.publication, kept.announced});
    } else if (entry.matches) {
        report(entry, data.guid, kept);
    }
}

bool DiscoveryStore::answers_type_lookup(const rtps::GuidPrefix& participant) const {
    MutexLock lock(mutex_);
    const auto found = participants_.find(participant);
    return found != participants_.end() && found->second.answers_type_lookup;
}

/// The protocol tells of a participant before it tells of its endpoints; one that it did not tell of is known
/// by its key alone.
DiscoveryStore::Entry& DiscoveryStore::entry_of(const rtps::GuidPrefix& prefix) {
    const auto found = participants_.find(prefix);
    if (found != participants_.end())
        return found->second;
    rtps::ParticipantData unknown;
    unknown.guid = participant_guid(prefix);
    put_participant(unknown);
    return participants_[prefix];
}

void DiscoveryStore::match(Entry& entry) {
    const PartitionList partitions = to_strings(entry.participant->data()->partition.name);
    const bool matches = partitions_match(own_partitions_, partitions);
    if (matches == entry.matches)
        return;
    entry.matches = matches;
    for (const auto& endpoint : entry.endpoints) {
        if (!matches)
            report_gone(endpoint.first, wall_time());
        else if (!endpoint.second.waits_for_type)
            report(entry, endpoint.first, endpoint.second);
    }
}

void DiscoveryStore::report(const Entry& entry, const rtps::Guid& guid, const Endpoint& endpoint) {
    const DDS_SampleInfo info = sample_info(guid, endpoint.announced);
    if (endpoint.publication != nullptr)
        publications_.put(guid, entry.participant, endpoint.publication, info);
    else
        subscriptions_.put(guid, entry.participant, endpoint.subscription, info);
}

void DiscoveryStore::report_gone(const rtps::Guid& guid, DDS_Time_t when) {
    const DDS_SampleInfo info = sample_info(guid, when);
    if (guid.entity.is_writer())
        publications_.remove(guid, info);
    else
        subscriptions_.remove(guid, info);
}

} // namespace meridian::discovery
