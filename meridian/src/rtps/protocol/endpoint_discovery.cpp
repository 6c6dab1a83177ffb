#include "rtps/protocol/endpoint_discovery.h"

#include <algorithm>

#include "rtps/protocol/guid_key.h"

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
    if (RemoteEndpoint* known = find_any(decoded->guid))
        change(*known, std::move(*decoded), sample);
    else
        add(std::move(*decoded), sample);
}

void EndpointDiscovery::note_announcer(const Guid& endpoint, const GuidPrefix& announcer) {
    if (announcer != endpoint.prefix)
        announced_by_others_[endpoint] = announcer;
    else if (!announced_by_others_.empty())
        announced_by_others_.erase(endpoint);
}

void EndpointDiscovery::add(EndpointData&& data, const Sample& sample) {
    if (by_topic_.size() >= max_endpoints_) {
        warnings_.warn("endpoint limit", "more than " + std::to_string(max_endpoints_) +
                                             " endpoints in the domain; the others are not seen");
        return;
    }
    const Guid guid = data.guid;
    auto added = std::make_unique<RemoteEndpoint>();
    RemoteEndpoint& endpoint = *added;
    endpoint.data = std::move(data);
    endpoint.announcement.assign(sample.payload.begin(), sample.payload.end());
    endpoint.timestamp = sample.source_timestamp;
    endpoint.visible = participants_.find(guid.prefix) != nullptr;
    by_participant_[guid.prefix][guid.entity.value] = std::move(added);
    by_topic_.insert(&endpoint);
    note_announcer(guid, sample.writer.prefix);
    if (endpoint.visible)
        listener_.on_endpoint_discovered(endpoint);
}

void EndpointDiscovery::change(RemoteEndpoint& endpoint, EndpointData&& data, const Sample& sample) {
    const ByteBuffer& before = endpoint.announcement;
    const bool same_bytes = before.size() == sample.payload.size &&
                            std::equal(before.begin(), before.end(), sample.payload.begin());
    const bool same = same_bytes || encode(endpoint.data) == encode(data);
    note_announcer(data.guid, sample.writer.prefix);
    if (same)
        return;
    by_topic_.erase(&endpoint);
    endpoint.data = std::move(data);
    by_topic_.insert(&endpoint);
    endpoint.announcement.assign(sample.payload.begin(), sample.payload.end());
    endpoint.timestamp = sample.source_timestamp;
    if (endpoint.visible)
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
    RemoteEndpoint* endpoint = find_any(guid);
    if (endpoint == nullptr)
        return;
    if (endpoint->visible)
        listener_.on_endpoint_gone(*endpoint, reason, timestamp);
    announced_by_others_.erase(guid);
    by_topic_.erase(endpoint);
    const auto siblings = by_participant_.find(guid.prefix);
    siblings->second.erase(guid.entity.value);
    if (siblings->second.empty())
        by_participant_.erase(siblings);
}

void EndpointDiscovery::clear() {
    by_topic_.clear();
    by_participant_.clear();
    announced_by_others_.clear();
}

void EndpointDiscovery::participant_discovered(const GuidPrefix& prefix) {
    const auto endpoints = by_participant_.find(prefix);
    if (endpoints == by_participant_.end())
        return;
    for (const auto& entry : endpoints->second) {
        if (entry.second->visible)
            continue;
        entry.second->visible = true;
        listener_.on_endpoint_discovered(*entry.second);
    }
}

void EndpointDiscovery::participant_gone(const GuidPrefix& prefix, GoneReason reason) {
    std::vector<Guid> gone;
    const auto endpoints = by_participant_.find(prefix);
    if (endpoints != by_participant_.end()) {
        for (const auto& entry : endpoints->second)
            gone.push_back(entry.second->data.guid);
    }
    for (const auto& entry : announced_by_others_) {
        if (entry.second == prefix && entry.first.prefix != prefix)
            gone.push_back(entry.first);
    }
    std::sort(gone.begin(), gone.end());
    for (const Guid& guid : gone)
        remove(guid, reason, kTimeInvalid);
}

RemoteEndpoint* EndpointDiscovery::find_any(const Guid& guid) const {
    const auto endpoints = by_participant_.find(guid.prefix);
    if (endpoints == by_participant_.end())
        return nullptr;
    const auto at = endpoints->second.find(guid.entity.value);
    return at != endpoints->second.end() ? at->second.get() : nullptr;
}

RemoteEndpoint* EndpointDiscovery::find(const Guid& guid) const {
    RemoteEndpoint* endpoint = find_any(guid);
    return endpoint != nullptr && endpoint->visible ? endpoint : nullptr;
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
