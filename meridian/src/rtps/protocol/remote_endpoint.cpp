#include "rtps/protocol/remote_endpoint.h"

#include <utility>

namespace meridian::rtps {

namespace {

ByteBuffer encoded_qos(const EndpointData& data) {
    EndpointData qos_alone;
    qos_alone.guid.entity = data.is_writer() ? EntityId{kUserWriterNoKey} : EntityId{kUserReaderNoKey};
    qos_alone.qos = data.qos;
    return encode(qos_alone);
}

/// The same object as before where the value is the same.
template <typename T>
std::shared_ptr<const T> shared(std::shared_ptr<const T>& last, T&& value) {
    if (last == nullptr || *last != value)
        last = std::make_shared<const T>(std::move(value));
    return last;
}

// The tables that an endpoint stands in.
constexpr size_t kPlacesOfRecord = 512;

size_t memory_of(const std::string& text) {
    return sizeof text + text.size();
}

size_t memory_of(const RemoteEndpoint& record) {
    size_t memory = kPlacesOfRecord + sizeof record + sizeof *record.qos + memory_of(record.topic_name) +
                    memory_of(record.type_name) + memory_of(record.name) +
                    record.unicast->size() * sizeof(Locator) + record.type_information->size() +
                    record.type_object.size() + record.qos->user_data.size() + record.qos->topic_data.size() +
                    record.qos->group_data.size() + record.qos->representations.size() * sizeof(int16_t);
    for (const std::string& name : record.qos->partitions)
        memory += memory_of(name);
    for (const Property& property : record.properties)
        memory += memory_of(property.name) + memory_of(property.value);
    return memory;
}

} // namespace

uint64_t hash_of(const EndpointData& data) {
    EndpointData comparable = data;
    comparable.raw_endianness = native_endianness(); // else what is undecoded would be left out
    uint64_t hash = 14695981039346656037u;           // FNV-1a
    for (const uint8_t byte : encode(comparable))
        hash = (hash ^ byte) * 1099511628211u;
    return hash;
}

std::shared_ptr<RemoteEndpoint> RecordMaker::make(EndpointData&& data, WireTime timestamp) {
    Last& last = data.is_writer() ? writers_ : readers_;
    auto record = std::make_shared<RemoteEndpoint>();
    record->announcement = hash_of(data);
    record->timestamp = timestamp;
    record->type_state = TypeState::none;
    ByteBuffer qos = encoded_qos(data);
    if (last.qos == nullptr || qos != last.encoded_qos) {
        last.encoded_qos = std::move(qos);
        last.qos = std::make_shared<const EndpointQos>(std::move(data.qos));
    }
    record->qos = last.qos;
    record->unicast = shared(last.unicast, std::move(data.unicast));
    record->type_information = shared(last.type_information, std::move(data.type_information));
    record->is_writer = data.is_writer();
    static_cast<EndpointIdentity&>(*record) = std::move(data); // that part of it
    record->topic_name.shrink_to_fit();
    record->type_name.shrink_to_fit();
    record->memory = memory_of(*record);
    return record;
}

} // namespace meridian::rtps
