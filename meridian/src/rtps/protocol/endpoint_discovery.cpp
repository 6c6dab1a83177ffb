#include "rtps/protocol/endpoint_discovery.h"

#include <algorithm>

#include "rtps/protocol/key_hash.h"

namespace meridian::rtps {

EndpointDiscovery::EndpointDiscovery(size_t max_endpoints, WarnOnce& warnings, Listener& listener)
    : max_endpoints_(max_endpoints), warnings_(warnings), listener_(listener) {}

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
    const Guid guid = decoded->guid;
    if (listener_.participant_excluded(guid.prefix))
        return;
    const auto known = endpoints_.find(guid);
    if (known != endpoints_.end()) {
        RemoteEndpoint& endpoint = known->second;
        const ByteBuffer& before = endpoint.announcement;
        const bool same_bytes = before.size() == sample.payload.size &&
                                std::equal(before.begin(), before.end(), sample.payload.begin());
        const bool same = same_bytes || encode(endpoint.data) == encode(*decoded);
        endpoint.announcer = sample.writer.prefix;
        if (same)
            return;
        endpoint.data = std::move(*decoded);
        endpoint.announcement.assign(sample.payload.begin(), sample.payload.end());
        endpoint.timestamp = sample.source_timestamp;
        if (endpoint.visible)
            listener_.on_endpoint_changed(endpoint);
        return;
    }
    if (endpoints_.size() >= max_endpoints_) {
        warnings_.warn("endpoint limit", "more than " + std::to_string(max_endpoints_) +
                                             " endpoints in the domain; the others are not seen");
        return;
    }
    RemoteEndpoint& endpoint = endpoints_[guid];
    endpoint.data = std::move(*decoded);
    endpoint.announcement.assign(sample.payload.begin(), sample.payload.end());
    endpoint.announcer = sample.writer.prefix;
    endpoint.timestamp = sample.source_timestamp;
    endpoint.visible = listener_.participant_known(guid.prefix);
    if (endpoint.visible)
        listener_.on_endpoint_discovered(endpoint);
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
    const auto at = endpoints_.find(guid);
    if (at == endpoints_.end())
        return;
    const RemoteEndpoint endpoint = std::move(at->second);
    endpoints_.erase(at);
    if (endpoint.visible)
        listener_.on_endpoint_gone(endpoint, reason, timestamp);
}

void EndpointDiscovery::participant_discovered(const GuidPrefix& prefix) {
    for (auto& entry : endpoints_) {
        if (entry.second.visible || entry.first.prefix != prefix)
            continue;
        entry.second.visible = true;
        listener_.on_endpoint_discovered(entry.second);
    }
}

void EndpointDiscovery::participant_gone(const GuidPrefix& prefix, GoneReason reason) {
    std::vector<Guid> gone;
    for (const auto& entry : endpoints_) {
        if (entry.first.prefix == prefix || entry.second.announcer == prefix)
            gone.push_back(entry.first);
    }
    std::sort(gone.begin(), gone.end());
    for (const Guid& guid : gone)
        remove(guid, reason, kTimeInvalid);
}

const RemoteEndpoint* EndpointDiscovery::find(const Guid& guid) const {
    const auto at = endpoints_.find(guid);
    return at != endpoints_.end() && at->second.visible ? &at->second : nullptr;
}

std::vector<Guid> EndpointDiscovery::endpoints() const {
    std::vector<Guid> result;
    for_each_visible([&result](const RemoteEndpoint& endpoint) { result.push_back(endpoint.data.guid); });
    std::sort(result.begin(), result.end());
    return result;
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
