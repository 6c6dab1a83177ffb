#include "rtps/protocol/endpoint_discovery.h"

#include <algorithm>

#include "rtps/protocol/makers.h"
#include "rtps/wire/guid_key.h"

namespace meridian::rtps {

namespace {

/// A participant is told of so long after its endpoints at most: a service repeats it every 30 s.
constexpr Duration kUnseenPatience = std::chrono::seconds(60);
/// Endpoints of unknown participants that one participant, but for a discovery server, tells of in that time.
constexpr size_t kMostUnseen = 1000;

constexpr size_t kRecent = 4096;

size_t recent_place(const Guid& guid) {
    return std::hash<Guid>()(guid) % kRecent;
}

} // namespace

EndpointDiscovery::EndpointDiscovery(const ParticipantConfig& config,
                                     const ParticipantDiscovery& participants, WarnOnce& warnings,
                                     Listener& listener)
    : config_(config), participants_(participants), warnings_(warnings), listener_(listener) {}

void EndpointDiscovery::on_sample(const Sample& sample, bool writers) {
    if ((sample.inline_qos.status_info & (kDisposed | kUnregistered)) != 0) {
        on_dispose(sample);
        return;
    }
    if (!sample.has_payload || sample.payload_is_key)
        return;
    std::string error;
    std::optional<EndpointData> decoded = decode_endpoint(sample.payload, writers, error);
    if (!decoded || !is_acceptable(*decoded, sample, writers, error)) {
        const char* what = writers ? "publication" : "subscription";
        warnings_.warn("endpoint " + to_string(sample.writer) + error,
                       std::string("a ") + what + " of participant " + to_string(sample.writer.prefix) +
                           " not understood (sample " + std::to_string(sample.sequence_number) +
                           "): " + error);
        return;
    }
    if (participants_.excludes(decoded->guid.prefix))
        return; // a discovery server may tell of those here too
    const RemoteParticipant* participant = participants_.find(decoded->guid.prefix);
    if (participant != nullptr && quirks_of(*participant->data).has(kCountsNanoseconds))
        convert_nanoseconds(decoded->qos);
    take(std::move(*decoded), sample);
}

bool EndpointDiscovery::is_acceptable(const EndpointData& data, const Sample& sample, bool writers,
                                      std::string& error) {
    const DiscoveredEndpoint* known = find(data.guid);
    if (known != nullptr && known->newest().is_writer != writers)
        error = "the entity id " + to_string(data.guid) + " is that of the other kind already";
    else if (!participants_.speaks_for(sample.writer.prefix, data.guid.prefix))
        error = "it is said to be of another participant";
    return error.empty();
}

void EndpointDiscovery::take(EndpointData&& data, const Sample& sample) {
    const Guid guid = data.guid;
    forget_unseen(sample.received);
    const DiscoveredEndpoint* known = find(guid);
    if (known != nullptr ? known->newest().announcement == hash_of(data) : !listener_.wants(data.topic_name))
        return;
    EndpointsOfParticipant& siblings = by_participant_[guid.prefix];
    const GuidPrefix& told_by = sample.writer.prefix;
    const bool is_unseen = known == nullptr && participants_.find(guid.prefix) == nullptr;
    const size_t part = std::min(config_.max_endpoints_of_participant, config_.max_remote_endpoints - count_);
    std::shared_ptr<RemoteEndpoint> record;
    if (is_unseen && told_too_many_unseen(told_by))
        warnings_.error_of_others(
            "unseen endpoints " + to_string(told_by),
            "participant " + to_string(told_by) + " tells of more than " + std::to_string(kMostUnseen) +
                " endpoints of participants that are not known; the others are not seen");
    else if (known == nullptr && siblings.by_entity.size() >= part)
        warnings_.error_of_others("endpoint limit " + to_string(guid.prefix),
                                  "participant " + to_string(guid.prefix) + " has more than " +
                                      std::to_string(siblings.by_entity.size()) +
                                      " endpoints; the others are not seen");
    else if (record = siblings.records.make(std::move(data), sample.source_timestamp);
             !charge(siblings, *record))
        warnings_.error_of_others("endpoint memory " + to_string(guid.prefix),
                                  "endpoints of participant " + to_string(guid.prefix) +
                                      " take too much memory; some are not seen");
    else {
        if (is_unseen) {
            if (siblings.by_entity.empty())
                siblings.unseen_since = sample.received;
            unseen_.push_back({siblings.unseen_since, sample.received, guid.prefix, told_by});
            ++unseen_told_[told_by];
        }
        put(siblings, std::move(record));
    }
    if (siblings.by_entity.empty())
        by_participant_.erase(guid.prefix);
}

bool EndpointDiscovery::told_too_many_unseen(const GuidPrefix& prefix) const {
    const auto told = unseen_told_.find(prefix);
    const RemoteParticipant* participant = participants_.find(prefix);
    return told != unseen_told_.end() && told->second >= kMostUnseen &&
           !(participant != nullptr && participant->is_server);
}

bool EndpointDiscovery::charge(const EndpointsOfParticipant& siblings, RemoteEndpoint& record) {
    // As fair as a share: no participant gets more than is left for all others afterwards.
    const MemoryBudget& budget = record.charge.budget();
    const size_t used = budget.used() + record.memory;
    return used <= budget.limit() && siblings.memory + record.memory <= budget.limit() - used &&
           record.charge.take(record.memory);
}

void EndpointDiscovery::put(EndpointsOfParticipant& siblings, std::shared_ptr<RemoteEndpoint> record) {
    const auto [at, is_new] = siblings.by_entity.try_emplace(record->guid.entity.value);
    DiscoveredEndpoint& endpoint = at->second;
    endpoint.guid = record->guid;
    if (is_new)
        ++count_;
    if (endpoint.waiting != nullptr)
        siblings.memory -= endpoint.waiting->memory;
    siblings.memory += record->memory;
    endpoint.waiting = std::move(record);
    settle(endpoint);
}

void EndpointDiscovery::settle(DiscoveredEndpoint& endpoint) {
    RemoteEndpoint& waiting = *endpoint.waiting;
    const RemoteParticipant* participant = participants_.find(waiting.guid.prefix);
    if (participant == nullptr)
        return; // others told of the endpoint first
    if (settler_ != nullptr && waiting.is_writer) {
        TypeSettler::Answer answer = settler_->type_of(waiting, *participant->data);
        waiting.type_state = answer.state;
        waiting.type = std::move(answer.type);
    }
    drop_type_object(waiting);
    if (waiting.type_state != TypeState::waiting)
        make_visible(endpoint);
}

/// It may be larger than all the rest, and is not asked for any more.
void EndpointDiscovery::drop_type_object(RemoteEndpoint& record) {
    const size_t size = record.type_object.size();
    record.type_object = ByteBuffer();
    record.memory -= size;
    record.charge.give_back(size);
    by_participant_.find(record.guid.prefix)->second.memory -= size;
}

void EndpointDiscovery::participant_known(const GuidPrefix& prefix) {
    const auto endpoints = by_participant_.find(prefix);
    if (endpoints == by_participant_.end())
        return;
    if (!participants_.is_told_of(prefix)) {
        forget(endpoints);
        return;
    }
    for (auto& [entity, endpoint] : endpoints->second.by_entity) {
        if (endpoint.waiting != nullptr)
            settle(endpoint);
    }
}

void EndpointDiscovery::settle_type(const Guid& publication, const EndpointTypeRef& type) {
    DiscoveredEndpoint* endpoint = find(publication);
    if (endpoint == nullptr || endpoint->waiting == nullptr)
        return;
    endpoint->waiting->type_state = type != nullptr ? TypeState::known : TypeState::none;
    endpoint->waiting->type = type;
    make_visible(*endpoint);
}

void EndpointDiscovery::make_visible(DiscoveredEndpoint& endpoint) {
    const bool is_new = endpoint.record == nullptr;
    if (!is_new) {
        by_participant_.find(endpoint.record->guid.prefix)->second.memory -= endpoint.record->memory;
        by_topic_.erase(&endpoint);
    }
    endpoint.record = std::move(endpoint.waiting);
    endpoint.waiting = nullptr;
    by_topic_.insert(&endpoint);
    if (is_new)
        listener_.on_endpoint_discovered(endpoint);
    else
        listener_.on_endpoint_changed(endpoint);
}

void EndpointDiscovery::on_dispose(const Sample& sample) {
    const std::optional<Guid> key = subject_of(sample);
    if (!key || !participants_.speaks_for(sample.writer.prefix, key->prefix))
        return;
    if (participants_.find(key->prefix) == nullptr)
        erase(*key);
    else
        remove(*key, GoneReason::disposed, sample.source_timestamp);
}

void EndpointDiscovery::forget_unseen(MonotonicTime now) {
    for (; !unseen_.empty() && now - unseen_.front().told > kUnseenPatience; unseen_.pop_front()) {
        const Unseen& unseen = unseen_.front();
        if (const auto told = unseen_told_.find(unseen.told_by); --told->second == 0)
            unseen_told_.erase(told);
        const auto endpoints = by_participant_.find(unseen.participant);
        if (endpoints != by_participant_.end() && endpoints->second.unseen_since == unseen.since &&
            participants_.find(endpoints->first) == nullptr)
            forget(endpoints);
    }
}

void EndpointDiscovery::forget(EndpointsByParticipant::iterator endpoints) {
    count_ -= endpoints->second.by_entity.size();
    recent_.clear();
    by_participant_.erase(endpoints);
}

void EndpointDiscovery::remove(const Guid& guid, GoneReason reason, WireTime timestamp) {
    DiscoveredEndpoint* endpoint = find(guid);
    if (endpoint == nullptr)
        return;
    if (endpoint->waiting != nullptr) {
        endpoint->waiting->type_state = TypeState::none;
        make_visible(*endpoint);
    }
    listener_.on_endpoint_gone(*endpoint, reason, timestamp);
    by_topic_.erase(endpoint);
    erase(guid);
}

void EndpointDiscovery::erase(const Guid& guid) {
    const DiscoveredEndpoint* endpoint = find(guid);
    if (endpoint == nullptr)
        return;
    recent_[recent_place(guid)] = nullptr; // where it was found
    const auto siblings = by_participant_.find(guid.prefix);
    siblings->second.memory -= endpoint->newest().memory;
    siblings->second.by_entity.erase(guid.entity.value);
    if (siblings->second.by_entity.empty())
        by_participant_.erase(siblings);
    --count_;
}

void EndpointDiscovery::clear() {
    recent_.clear();
    by_topic_.clear();
    by_participant_.clear();
    unseen_.clear();
    unseen_told_.clear();
    count_ = 0;
}

void EndpointDiscovery::participant_gone(const GuidPrefix& prefix, GoneReason reason) {
    std::vector<Guid> gone;
    const auto endpoints = by_participant_.find(prefix);
    if (endpoints != by_participant_.end()) {
        for (const auto& entry : endpoints->second.by_entity)
            gone.push_back({prefix, EntityId{entry.first}});
    }
    std::sort(gone.begin(), gone.end());
    for (const Guid& guid : gone)
        remove(guid, reason, kTimeInvalid);
    if (settler_ != nullptr)
        settler_->participant_gone(prefix);
}

DiscoveredEndpoint* EndpointDiscovery::find(const Guid& guid) {
    const size_t place = recent_place(guid);
    if (!recent_.empty() && recent_[place] != nullptr && recent_[place]->guid == guid)
        return recent_[place];
    const auto endpoints = by_participant_.find(guid.prefix);
    if (endpoints == by_participant_.end())
        return nullptr;
    const auto at = endpoints->second.by_entity.find(guid.entity.value);
    if (at == endpoints->second.by_entity.end())
        return nullptr;
    recent_.resize(kRecent);
    return recent_[place] = &at->second;
}

} // namespace meridian::rtps
