#pragma once

// Remote participants and endpoints as the protocol would report them.

#include <memory>
#include <string>
#include <utility>

#include "rtps/protocol/events.h"
#include "rtps/wire/discovery_data.h"

namespace meridian::test {

inline rtps::GuidPrefix make_prefix(uint8_t number) {
    rtps::GuidPrefix prefix;
    for (size_t i = 0; i < prefix.bytes.size(); ++i)
        prefix.bytes[i] = static_cast<uint8_t>(number + i);
    return prefix;
}

inline rtps::ParticipantData make_participant(uint8_t number, const std::string& partitions = "") {
    rtps::ParticipantData data;
    data.guid = {make_prefix(number), rtps::entity::participant};
    data.name = "participant " + std::to_string(number);
    if (!partitions.empty())
        data.properties.push_back({"dds.domain_participant.partition", partitions});
    return data;
}

inline rtps::EndpointData make_endpoint(uint8_t participant, uint32_t key, uint8_t kind) {
    rtps::EndpointData data;
    data.guid = {make_prefix(participant), rtps::EntityId{key << 8 | kind}};
    data.topic_name = "Topic" + std::to_string(key);
    data.type_name = "Type";
    return data;
}
inline rtps::EndpointData make_writer(uint8_t participant, uint32_t key) {
    return make_endpoint(participant, key, rtps::kUserWriterWithKey);
}
inline rtps::EndpointData make_reader(uint8_t participant, uint32_t key) {
    return make_endpoint(participant, key, rtps::kUserReaderNoKey);
}

inline rtps::ParticipantRef shared(rtps::ParticipantData data) {
    return std::make_shared<const rtps::ParticipantData>(std::move(data));
}
inline rtps::RemoteEndpointRef record(rtps::EndpointData data, rtps::WireTime announced = {1000, 0}) {
    return rtps::RecordMaker().make(std::move(data), announced);
}

} // namespace meridian::test
