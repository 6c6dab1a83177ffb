// Participants: DCPSParticipant samples and ParticipantMessageData (discovery_data.h).

#include "rtps/wire/parameter_values.h"

namespace meridian::rtps {

namespace {

Verdict read_parameter(const Parameter& parameter, ParticipantData& data, std::optional<Guid>& key_hash) {
    switch (parameter.base_id()) {
        case pid::protocol_version: {
            ByteReader reader = parameter.reader();
            return required(reader.read(data.version.major) && reader.read(data.version.minor));
        }
        case pid::vendor_id:
            return required(parameter.reader().read_bytes(data.vendor.bytes));
        case pid::participant_guid:
            return required(read_value(parameter, data.guid, read_guid));
        case pid::key_hash: {
            Guid guid;
            if (read_value(parameter, guid, read_guid))
                key_hash = guid;
            return Verdict::taken;
        }
        case pid::builtin_endpoint_set:
            return required(read_number(parameter, data.builtin_endpoints));
        case pid::participant_builtin_endpoints: {
            uint32_t older = 0;
            if (!read_number(parameter, older))
                return Verdict::unused;
            if (data.builtin_endpoints == 0)
                data.builtin_endpoints = older;
            return Verdict::taken;
        }
        case pid::domain_id: {
            uint32_t id = 0;
            if (!read_number(parameter, id))
                return Verdict::refused; // it may be of another domain
            data.domain_id = id;
            return Verdict::taken;
        }
        case pid::domain_tag:
            return required(read_text(parameter, data.domain_tag));
        case pid::participant_lease_duration:
            // An impossible lease leaves the standard's default, so that the participant does not expire at
            // once.
            return if_possible(read_value(parameter, data.lease, read_duration));
        case pid::metatraffic_unicast_locator:
            return if_possible(read_locator_into(parameter, data.metatraffic_unicast));
        case pid::metatraffic_multicast_locator:
            return if_possible(read_locator_into(parameter, data.metatraffic_multicast));
        case pid::default_unicast_locator:
            return if_possible(read_locator_into(parameter, data.default_unicast));
        case pid::default_multicast_locator:
            return if_possible(read_locator_into(parameter, data.default_multicast));
        case pid::expects_inline_qos:
            return if_possible(read_flag(parameter, data.expects_inline_qos));
        case pid::manual_liveliness_count:
            return if_possible(read_number(parameter, data.manual_liveliness_count));
        case pid::entity_name:
            return if_possible(read_text(parameter, data.name));
        case pid::user_data:
            return if_possible(read_octets(parameter, data.user_data));
        case pid::property_list:
            return if_possible(read_properties(parameter, data.properties));
        case pid::identity_token:
        case pid::permissions_token:
            data.secured = true;
            return Verdict::unused;
        default:
            return Verdict::unused;
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
    if (data.guid == Guid() && key_hash)
        data.guid = *key_hash;
    if (data.guid.prefix == kUnknownPrefix || data.guid.entity != entity::participant) {
        error = "participant GUID is missing or not that of a participant: " + to_string(data.guid);
        return std::nullopt;
    }
    return data;
}

ByteBuffer encode(const ParticipantData& data) {
    return encode_payload([&](ParameterListWriter& list) {
        list.add(pid::protocol_version, [&](ByteWriter& writer) {
            writer.write(data.version.major);
            writer.write(data.version.minor);
        });
        list.add(pid::vendor_id, [&](ByteWriter& writer) { writer.write_bytes(data.vendor.bytes); });
        add_guid(list, pid::participant_guid, data.guid);
        list.add(pid::builtin_endpoint_set,
                 [&](ByteWriter& writer) { writer.write(data.builtin_endpoints); });
        if (data.domain_id)
            list.add(pid::domain_id, [&](ByteWriter& writer) { writer.write(*data.domain_id); });
        if (!data.domain_tag.empty())
            add_text(list, pid::domain_tag, data.domain_tag);
        add_duration(list, pid::participant_lease_duration, data.lease);
        add_locators(list, pid::metatraffic_unicast_locator, data.metatraffic_unicast);
        add_locators(list, pid::metatraffic_multicast_locator, data.metatraffic_multicast);
        add_locators(list, pid::default_unicast_locator, data.default_unicast);
        add_locators(list, pid::default_multicast_locator, data.default_multicast);
        if (data.expects_inline_qos)
            add_flag(list, pid::expects_inline_qos, true);
        if (data.manual_liveliness_count != 0) {
            list.add(pid::manual_liveliness_count,
                     [&](ByteWriter& writer) { writer.write(data.manual_liveliness_count); });
        }
        if (!data.name.empty())
            add_text(list, pid::entity_name, data.name);
        if (!data.user_data.empty())
            add_octets(list, pid::user_data, data.user_data);
        add_properties(list, data.properties);
        add_raw(list, data.raw, data.raw_endianness);
    });
}

ByteBuffer encode_participant_key(const Guid& guid) {
    return encode_payload([&](ParameterListWriter& list) { add_guid(list, pid::participant_guid, guid); });
}

ByteBuffer encode(const ParticipantMessage& message) {
    ByteBuffer bytes;
    write_encapsulation(bytes, Encoding::cdr, native_endianness());
    ByteWriter writer(bytes);
    writer.write_bytes(message.participant.bytes);
    // Four octets, not a number: the same in both byte orders.
    ByteWriter(bytes, Endianness::big).write(message.kind);
    writer.write_octets(message.data);
    writer.align(4);
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
    if (!reader.read_octets(message.data))
        return std::nullopt;
    return message;
}

} // namespace meridian::rtps
