#include "rtps/protocol/endpoint_discovery.h"

#include <algorithm>
#include <map>

#include "rtps/wire/guid_key.h"

namespace meridian::rtps {

EndpointDiscovery::EndpointDiscovery(size_t max_endpoints, const ParticipantDiscovery& participants,
                                     WarnOnce& warnings, Listener& listener)
    : max_endpoints_(max_endpoints), participants_(participants), warnings_(warnings), listener_(listener) {}

void EndpointDiscovery::on_sample(const Sample& sample, bool writers) {
    if ((sample.inline_qos.status_info & (kDisposed | kUnregistered)) != 0) {
        on_dispose(sample);
        return;
    }
    if (!sample.has_payload || sample.payload_is_key)
        return;
    std::string error;
    std::optional<EndpointData> decoded = decode_endpoint(sample.payload, writers, error);
    if (decoded && decoded->is_writer() != writers) {
        error = "the entity id " + to_string(decoded->guid) + " is of another kind";
        decoded.reset();
    }
    if (!decoded) {
        const char* what = writers ? "publication" : "subscription";
        warnings_.warn("endpoint " + to_string(sample.writer) + error,
                       std::string("a ") + what + " of participant " + to_string(sample.writer.prefix) +
                           " not understood (sample " + std::to_string(sample.sequence_number) +
                           "): " + error);
        return;
    }
    if (participants_.excludes(decoded->guid.prefix))
        return;
    take(std::move(*decoded), sample);
}

void EndpointDiscovery::note_announcer(const Guid& endpoint, const GuidPrefix& announcer) {
    if (announcer != endpoint.prefix)
        announced_by_others_[endpoint] = announcer;
    else if (!announced_by_others_.empty())
        announced_by_others_.erase(endpoint);
}

void EndpointDiscovery::take(EndpointData&& data, const Sample& sample) {
    const Guid guid = data.guid;
    const DiscoveredEndpoint* known = find(guid);
    if (known == nullptr && count_ >= max_endpoints_) {
        warnings_.warn("endpoint limit", "more than " + std::to_string(max_endpoints_) +
                                             " endpoints in the domain; the others are not seen");
        return;
    }
    note_announcer(guid, sample.writer.prefix);
    if (known != nullptr) {
        const RemoteEndpoint& newest = known->waiting != nullptr ? *known->waiting : *known->record;
        if (newest.announcement == hash_of(data))
            return;
    }
    EndpointsOfParticipant& siblings = by_participant_[guid.prefix];
    std::unique_ptr<DiscoveredEndpoint>& endpoint = siblings.by_entity[guid.entity.value];
    if (endpoint == nullptr) {
        endpoint = std::make_unique<DiscoveredEndpoint>();
        ++count_;
    }
    endpoint->waiting = siblings.records.make(std::move(data), sample.source_timestamp);
    settle(*endpoint);
}

void EndpointDiscovery::settle(DiscoveredEndpoint& endpoint) {
    RemoteEndpoint& waiting = *endpoint.waiting;
    const RemoteParticipant* participant = participants_.find(waiting.guid.prefix);
    if (participant == nullptr)
        return;
    if (settler_ != nullptr && waiting.guid.entity.is_writer()) {
        TypeSettler::Answer answer = settler_->type_of(announced_data(waiting), *participant->data);
        waiting.type_state = answer.state;
        waiting.type = std::move(answer.type);
    }
    endpoint.is_settling = waiting.type_state == TypeState::waiting;
    if (!endpoint.is_settling)
        make_visible(endpoint);
}

void EndpointDiscovery::settle_type(const Guid& publication, const EndpointTypeRef& type) {
    DiscoveredEndpoint* endpoint = find(publication);
    if (endpoint == nullptr || !endpoint->is_settling)
        return;
    endpoint->waiting->type_state = type != nullptr ? TypeState::known : TypeState::none;
    endpoint->waiting->type = type;
    make_visible(*endpoint);
}

void EndpointDiscovery::make_visible(DiscoveredEndpoint& endpoint) {
    const bool is_new = endpoint.record == nullptr;
    if (!is_new)
        by_topic_.erase(&endpoint);
    endpoint.record = std::move(endpoint.waiting);
    endpoint.waiting = nullptr;
    endpoint.is_settling = false;
    by_topic_.insert(&endpoint);
    if (is_new)
        listener_.on_endpoint_discovered(endpoint);
    else
        listener_.on_endpoint_changed(endpoint);
}

void EndpointDiscovery::on_dispose(const Sample& sample) {
    std::optional<Guid> key;
    if (sample.inline_qos.key_hash)
        key = guid_of(*sample.inline_qos.key_hash);
    else
        key = decode_key(sample.payload, {}, native_endianness());
    if (key)
        remove(*key, GoneReason::disposed, sample.source_timestamp);
}

void EndpointDiscovery::remove(const Guid& guid, GoneReason reason, WireTime timestamp) {
    DiscoveredEndpoint* endpoint = find(guid);
    if (endpoint == nullptr)
        return;
    if (endpoint->is_settling) {
        endpoint->waiting->type_state = TypeState::none;
        make_visible(*endpoint);
    }
    if (endpoint->record != nullptr) {
        listener_.on_endpoint_gone(*endpoint, reason, timestamp);
        by_topic_.erase(endpoint);
    }
    announced_by_others_.erase(guid);
    const auto siblings = by_participant_.find(guid.prefix);
    siblings->second.by_entity.erase(guid.entity.value);
    if (siblings->second.by_entity.empty())
        by_participant_.erase(siblings);
    --count_;
}

void EndpointDiscovery::clear() {
    by_topic_.clear();
    by_participant_.clear();
    announced_by_others_.clear();
    count_ = 0;
}

void EndpointDiscovery::participant_discovered(const GuidPrefix& prefix) {
    const auto endpoints = by_participant_.find(prefix);
    if (endpoints == by_participant_.end())
        return;
    // In an order that is the same in every run.
    std::map<uint32_t, DiscoveredEndpoint*> waiting;
    for (const auto& entry : endpoints->second.by_entity) {
        if (entry.second->waiting != nullptr && !entry.second->is_settling)
            waiting.emplace(entry.first, entry.second.get());
    }
    for (const auto& entry : waiting)
        settle(*entry.second);
}

void EndpointDiscovery::participant_gone(const GuidPrefix& prefix, GoneReason reason) {
    std::vector<Guid> gone;
    const auto endpoints = by_participant_.find(prefix);
    if (endpoints != by_participant_.end()) {
        for (const auto& entry : endpoints->second.by_entity)
            gone.push_back({prefix, EntityId{entry.first}});
    }
    for (const auto& entry : announced_by_others_) {
        if (entry.second == prefix && entry.first.prefix != prefix)
            gone.push_back(entry.first);
    }
    std::sort(gone.begin(), gone.end());
    for (const Guid& guid : gone)
        remove(guid, reason, kTimeInvalid);
    if (settler_ != nullptr)
        settler_->participant_gone(prefix);
}

DiscoveredEndpoint* EndpointDiscovery::find(const Guid& guid) const {
    const auto endpoints = by_participant_.find(guid.prefix);
    if (endpoints == by_participant_.end())
        return nullptr;
    const auto at = endpoints->second.by_entity.find(guid.entity.value);
    return at != endpoints->second.by_entity.end() ? at->second.get() : nullptr;
}

void EndpointDiscovery::announce(ReliableWriter& builtin_writer, const EndpointData& data, Now now) {
    const ByteBuffer payload = encode(data);
    WriteRequest request;
    request.payload = payload;
    request.instance = key_hash_of(data.guid);
    builtin_writer.write(request, now);
}

void EndpointDiscovery::dispose(ReliableWriter& builtin_writer, const Guid& guid, Now now) {
    const ByteBuffer key = encode_endpoint_key(guid);
    WriteRequest request;
    request.payload = key;
    request.payload_is_key = true;
    request.instance = key_hash_of(guid);
    request.inline_qos.key_hash = request.instance;
    request.inline_qos.status_info = kDisposed | kUnregistered;
    builtin_writer.write(request, now);
}

} // namespace meridian::rtps
