// Participants: DCPSParticipant samples and ParticipantMessageData (discovery_data.h).

#include <algorithm>

#include "rtps/wire/parameter_values.h"

namespace meridian::rtps {

namespace {

/// Record is ParticipantData, constant where it is written.
template <typename Codec, typename Record>
void describe(Codec& codec, Record& data) {
    codec(pid::protocol_version, Rule::always, data.version);
    codec(pid::vendor_id, Rule::always, data.vendor);
    codec(pid::participant_guid, Rule::always, data.guid);
    codec(pid::builtin_endpoint_set, Rule::always, data.builtin_endpoints);
    codec(pid::domain_id, Rule::when_set, data.domain_id); // unreadable: it may be of another domain
    codec(pid::domain_tag, Rule::when_set, data.domain_tag);
    // An impossible lease leaves the standard's default, so that the participant does not expire at once.
    codec(pid::participant_lease_duration, Rule::lenient, data.lease);
    codec.locators(pid::metatraffic_unicast_locator, data.metatraffic_unicast);
    codec.locators(pid::metatraffic_multicast_locator, data.metatraffic_multicast);
    codec.locators(pid::default_unicast_locator, data.default_unicast);
    codec.locators(pid::default_multicast_locator, data.default_multicast);
    codec(pid::manual_liveliness_count, Rule::lenient_when_set, data.manual_liveliness_count);
    codec(pid::entity_name, Rule::lenient_when_set, data.name);
    codec(pid::user_data, Rule::lenient_when_set, data.user_data);
    codec(pid::property_list, Rule::lenient_when_set, data.properties);
}

Verdict read_parameter(const Parameter& parameter, ParticipantData& data, std::optional<Guid>& key_hash) {
    switch (parameter.base_id()) {
        case pid::key_hash:
            read_members(parameter, key_hash);
            return Verdict::taken;
        case pid::participant_builtin_endpoints: {
            uint32_t older = 0;
            if (!read_members(parameter, older))
                return Verdict::unused;
            if (data.builtin_endpoints == 0)
                data.builtin_endpoints = older;
            return Verdict::taken;
        }
        case pid::identity_token:
        case pid::permissions_token:
            data.secured = true;
            return Verdict::unused;
        default: {
            ParameterDecoder codec(parameter);
            describe(codec, data);
            return codec.verdict();
        }
    }
}

} // namespace

std::optional<ParticipantData> decode_participant(ByteView payload, std::string& error) {
    PayloadParameters list;
    if (!PayloadParameters::open(payload, list, error))
        return std::nullopt;
    ParticipantData data;
    data.raw_endianness = list.endianness();
    std::optional<Guid> key_hash;
    if (!list.for_each(data.raw, error,
                       [&](const Parameter& parameter) { return read_parameter(parameter, data, key_hash); }))
        return std::nullopt;
    drop_useless(data.properties);
    if (data.guid == Guid() && key_hash)
        data.guid = *key_hash;
    if (data.guid.prefix == kUnknownPrefix || data.guid.entity != entity::participant) {
        error = "participant GUID is missing or not that of a participant: " + to_string(data.guid);
        return std::nullopt;
    }
    return data;
}

const std::string* find_property(const std::vector<Property>& properties, std::string_view name) {
    const auto at = std::find_if(properties.begin(), properties.end(),
                                 [name](const Property& property) { return property.name == name; });
    return at != properties.end() ? &at->value : nullptr;
}

const ByteBuffer* find_raw(const std::vector<RawParameter>& parameters, uint16_t id) {
    const auto at = std::find_if(parameters.begin(), parameters.end(),
                                 [id](const RawParameter& parameter) { return parameter.id == id; });
    return at != parameters.end() ? &at->value : nullptr;
}

ByteBuffer encode(const ParticipantData& data) {
    return encode_payload([&](ParameterListWriter& list) {
        ParameterEncoder codec(list, data.raw_endianness);
        describe(codec, data);
        codec.raw(data.raw);
    });
}

ByteBuffer encode_participant_key(const Guid& guid) {
    return encode_payload([&](ParameterListWriter& list) { add_members(list, pid::participant_guid, guid); });
}

ByteBuffer encode(const ParticipantMessage& message) {
    ByteBuffer bytes;
    write_encapsulation(bytes, Encoding::cdr, native_endianness());
    ByteWriter writer(bytes);
    writer.write_bytes(message.participant.bytes);
    // Four octets, not a number: the same in both byte orders.
    ByteWriter(bytes, Endianness::big).write(message.kind);
    writer.write_octets({}); // application data
    return bytes;
}

std::optional<ParticipantMessage> decode_participant_message(ByteView payload) {
    Encapsulation encapsulation;
    ByteView body;
    if (!read_encapsulation(payload, encapsulation, body) || encapsulation.encoding() != Encoding::cdr)
        return std::nullopt;
    ParticipantMessage message;
    ByteReader reader(body, Endianness::big);
    if (!reader.read_bytes(message.participant.bytes) || !reader.read(message.kind))
        return std::nullopt;
    reader.set_endianness(encapsulation.endianness());
    ByteView application_data;
    return reader.read_octets(application_data) ? std::optional(message) : std::nullopt;
}

} // namespace meridian::rtps
