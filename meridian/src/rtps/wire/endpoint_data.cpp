// Writers and readers: DCPSPublication and DCPSSubscription samples (discovery_data.h).

#include "rtps/wire/parameter_values.h"

namespace meridian::rtps {

namespace {

/// Keys of the record while it is being read; which of them counts is known at the end of the list.
struct Keys {
    std::optional<Guid> endpoint;
    std::optional<Guid> participant;
    std::optional<Guid> key_hash;
};

template <typename Enum>
bool read_kind(const Parameter& parameter, Enum& value, Enum lowest, Enum highest) {
    ByteReader reader = parameter.reader();
    return read_enum(reader, value, lowest, highest);
}

bool read_liveliness(const Parameter& parameter, EndpointQos& qos) {
    ByteReader reader = parameter.reader();
    return read_enum(reader, qos.liveliness, LivelinessKind::automatic, LivelinessKind::manual_by_topic) &&
           read_duration(reader, qos.liveliness_lease);
}

bool read_reliability(const Parameter& parameter, EndpointQos& qos) {
    ByteReader reader = parameter.reader();
    if (!read_enum(reader, qos.reliability, Reliability::best_effort, Reliability::reliable))
        return false;
    // The blocking time is the writer's own business: without one the default stands.
    WireDuration blocking;
    if (read_duration(reader, blocking))
        qos.max_blocking_time = blocking;
    return true;
}

bool read_presentation(const Parameter& parameter, EndpointQos& qos) {
    ByteReader reader = parameter.reader();
    return read_enum(reader, qos.presentation, PresentationScope::instance, PresentationScope::group) &&
           reader.read_bool(qos.coherent_access) && reader.read_bool(qos.ordered_access);
}

bool read_history(const Parameter& parameter, EndpointQos& qos) {
    ByteReader reader = parameter.reader();
    HistoryKind kind = HistoryKind::keep_last;
    int32_t depth = 1;
    if (!read_enum(reader, kind, HistoryKind::keep_last, HistoryKind::keep_all) || !reader.read(depth))
        return false;
    qos.history = kind;
    qos.history_depth = depth;
    return true;
}

bool read_representations(ByteReader& reader, std::vector<int16_t>& representations) {
    uint32_t count = 0;
    if (!reader.read_length(count, sizeof(int16_t)))
        return false;
    representations.resize(count);
    return reader.read_array(representations.data(), count);
}

bool read_content_filter(ByteReader& reader, ContentFilter& filter) {
    return reader.read_string(filter.filter_name) && reader.read_string(filter.related_topic) &&
           reader.read_string(filter.filter_class) && reader.read_string(filter.expression) &&
           read_texts(reader, filter.parameters);
}

/// An enumeration that decides a match is required to be one that exists: a guess would report wrong
/// matches, or subscribe in a way that the peer refuses. Negative durations leave the default instead, so
/// that their writer stays visible.
Verdict read_policy(const Parameter& parameter, EndpointQos& qos) {
    switch (parameter.base_id()) {
        case pid::durability:
            return required(
                read_kind(parameter, qos.durability, Durability::volatile_, Durability::persistent));
        case pid::deadline:
            return if_possible(read_value(parameter, qos.deadline, read_duration));
        case pid::latency_budget:
            return if_possible(read_value(parameter, qos.latency_budget, read_duration));
        case pid::liveliness: {
            EndpointQos fresh;
            const bool read = read_liveliness(parameter, fresh);
            qos.liveliness = fresh.liveliness;
            qos.liveliness_lease = fresh.liveliness_lease;
            return required(read);
        }
        case pid::reliability:
            return required(read_reliability(parameter, qos));
        case pid::ownership:
            return required(read_kind(parameter, qos.ownership, Ownership::shared, Ownership::exclusive));
        case pid::ownership_strength:
            return if_possible(read_number(parameter, qos.ownership_strength));
        case pid::destination_order:
            return required(read_kind(parameter, qos.destination_order, DestinationOrder::by_reception,
                                      DestinationOrder::by_source));
        case pid::presentation:
            return required(read_presentation(parameter, qos));
        case pid::partition:
            return required(read_value(parameter, qos.partitions, read_texts));
        case pid::lifespan:
            return if_possible(read_value(parameter, qos.lifespan, read_duration));
        case pid::time_based_filter:
            return if_possible(read_value(parameter, qos.time_based_filter, read_duration));
        case pid::history:
            return if_possible(read_history(parameter, qos));
        case pid::data_representation:
            return required(read_value(parameter, qos.representations, read_representations));
        case pid::user_data:
            return if_possible(read_octets(parameter, qos.user_data));
        case pid::topic_data:
            return if_possible(read_octets(parameter, qos.topic_data));
        case pid::group_data:
            return if_possible(read_octets(parameter, qos.group_data));
        default:
            return Verdict::unused;
    }
}

Verdict read_key(const Parameter& parameter, std::optional<Guid>& key, bool needed) {
    Guid guid;
    const bool read = read_value(parameter, guid, read_guid);
    if (read)
        key = guid;
    return needed ? required(read) : if_possible(read);
}

Verdict read_parameter(const Parameter& parameter, bool is_writer, EndpointData& data, Keys& keys) {
    const pid::Info* info = pid::find(parameter.base_id());
    if (info == nullptr || (info->flags & (is_writer ? pid::of_readers : pid::of_writers)) != 0)
        return Verdict::unused;
    switch (parameter.base_id()) {
        case pid::endpoint_guid:
            return read_key(parameter, keys.endpoint, true);
        case pid::participant_guid:
            return read_key(parameter, keys.participant, true);
        case pid::key_hash:
            return read_key(parameter, keys.key_hash, false);
        case pid::topic_name:
            return required(read_text(parameter, data.topic_name));
        case pid::type_name:
            return required(read_text(parameter, data.type_name));
        case pid::unicast_locator:
            return if_possible(read_locator_into(parameter, data.unicast));
        case pid::multicast_locator:
            return if_possible(read_locator_into(parameter, data.multicast));
        case pid::expects_inline_qos:
            return if_possible(read_flag(parameter, data.expects_inline_qos));
        case pid::entity_name:
            return if_possible(read_text(parameter, data.name));
        case pid::type_information:
            data.type_information.assign(parameter.value.begin(), parameter.value.end());
            return Verdict::taken;
        case pid::type_object:
            data.type_object.assign(parameter.value.begin(), parameter.value.end());
            return Verdict::taken;
        case pid::content_filter: {
            ContentFilter filter;
            if (!read_value(parameter, filter, read_content_filter))
                return Verdict::unused;
            data.content_filter = std::move(filter);
            return Verdict::taken;
        }
        case pid::property_list:
            return if_possible(read_properties(parameter, data.properties));
        default:
            return read_policy(parameter, data.qos);
    }
}

void add_policies(ParameterListWriter& list, const EndpointQos& qos, bool is_writer) {
    const auto add_kind = [&](uint16_t id, auto kind) {
        list.add(id, [&](ByteWriter& writer) { writer.write(static_cast<uint32_t>(kind)); });
    };
    // Every policy that decides a match is written even at its default: the defaults of implementations
    // differ.
    add_kind(pid::durability, qos.durability);
    add_duration(list, pid::deadline, qos.deadline);
    add_duration(list, pid::latency_budget, qos.latency_budget);
    list.add(pid::liveliness, [&](ByteWriter& writer) {
        writer.write(static_cast<uint32_t>(qos.liveliness));
        write_time(writer, qos.liveliness_lease);
    });
    list.add(pid::reliability, [&](ByteWriter& writer) {
        writer.write(static_cast<uint32_t>(qos.reliability));
        write_time(writer, qos.max_blocking_time);
    });
    add_kind(pid::ownership, qos.ownership);
    add_kind(pid::destination_order, qos.destination_order);
    list.add(pid::presentation, [&](ByteWriter& writer) {
        writer.write(static_cast<uint32_t>(qos.presentation));
        writer.write_bool(qos.coherent_access);
        writer.write_bool(qos.ordered_access);
    });
    list.add(pid::history, [&](ByteWriter& writer) {
        writer.write(static_cast<uint32_t>(qos.history));
        writer.write(qos.history_depth);
    });
    if (is_writer) {
        list.add(pid::ownership_strength, [&](ByteWriter& writer) { writer.write(qos.ownership_strength); });
        add_duration(list, pid::lifespan, qos.lifespan);
    } else {
        add_duration(list, pid::time_based_filter, qos.time_based_filter);
    }
    if (!qos.partitions.empty())
        list.add(pid::partition, [&](ByteWriter& writer) { write_texts(writer, qos.partitions); });
    if (!qos.representations.empty()) {
        list.add(pid::data_representation, [&](ByteWriter& writer) {
            writer.write(static_cast<uint32_t>(qos.representations.size()));
            for (const int16_t representation : qos.representations)
                writer.write(representation);
        });
    }
    if (!qos.user_data.empty())
        add_octets(list, pid::user_data, qos.user_data);
    if (!qos.topic_data.empty())
        add_octets(list, pid::topic_data, qos.topic_data);
    if (!qos.group_data.empty())
        add_octets(list, pid::group_data, qos.group_data);
}

} // namespace

std::optional<EndpointData> decode_endpoint(ByteView payload, bool is_writer, std::string& error) {
    PayloadParameters list;
    if (!PayloadParameters::open(payload, list, error))
        return std::nullopt;
    EndpointData data;
    data.raw_endianness = list.endianness();
    data.qos.reliability = is_writer ? Reliability::reliable : Reliability::best_effort;
    Keys keys;
    if (!list.for_each(data.raw, error, [&](const Parameter& parameter) {
            return read_parameter(parameter, is_writer, data, keys);
        }))
        return std::nullopt;
    if (!keys.endpoint)
        keys.endpoint = keys.key_hash;
    if (keys.endpoint)
        data.guid = *keys.endpoint;
    data.participant = keys.participant ? keys.participant->prefix : data.guid.prefix;
    // A kind of entity that contradicts the topic it was announced on would be matched, and reported,
    // wrongly.
    const bool kind_fits = is_writer ? data.guid.entity.is_writer() : data.guid.entity.is_reader();
    if (data.guid.prefix == kUnknownPrefix || !kind_fits) {
        error = std::string("endpoint GUID is missing or not that of a ") +
                (is_writer ? "writer" : "reader") + ": " + to_string(data.guid);
        return std::nullopt;
    }
    if (data.topic_name.empty() || data.type_name.empty()) {
        error = std::string("endpoint without ") + (data.topic_name.empty() ? "topic" : "type") + " name";
        return std::nullopt;
    }
    return data;
}

ByteBuffer encode(const EndpointData& data) {
    return encode_payload([&](ParameterListWriter& list) {
        add_guid(list, pid::endpoint_guid, data.guid);
        add_guid(list, pid::participant_guid, Guid{data.participant, entity::participant});
        add_text(list, pid::topic_name, data.topic_name);
        add_text(list, pid::type_name, data.type_name);
        add_policies(list, data.qos, data.is_writer());
        add_locators(list, pid::unicast_locator, data.unicast);
        add_locators(list, pid::multicast_locator, data.multicast);
        if (data.expects_inline_qos)
            add_flag(list, pid::expects_inline_qos, true);
        if (!data.name.empty())
            add_text(list, pid::entity_name, data.name);
        if (data.content_filter) {
            list.add(pid::content_filter, [&](ByteWriter& writer) {
                writer.write_string(data.content_filter->filter_name);
                writer.write_string(data.content_filter->related_topic);
                writer.write_string(data.content_filter->filter_class);
                writer.write_string(data.content_filter->expression);
                write_texts(writer, data.content_filter->parameters);
            });
        }
        add_properties(list, data.properties);
        // Both are undecoded, and so in the byte order they came in.
        if (data.raw_endianness == native_endianness()) {
            if (!data.type_information.empty())
                list.add_bytes(pid::type_information, data.type_information);
            if (!data.type_object.empty())
                list.add_bytes(pid::type_object, data.type_object);
        }
        add_raw(list, data.raw, data.raw_endianness);
    });
}

ByteBuffer encode_endpoint_key(const Guid& guid) {
    return encode_payload([&](ParameterListWriter& list) { add_guid(list, pid::endpoint_guid, guid); });
}

std::optional<Guid> decode_key(ByteView payload, ByteView inline_qos, Endianness inline_endianness) {
    Keys keys;
    PayloadParameters list;
    std::string error;
    if (PayloadParameters::open(payload, list, error)) {
        std::vector<RawParameter> raw;
        list.for_each(raw, error, [&](const Parameter& parameter) {
            EndpointData ignored;
            const uint16_t id = parameter.base_id();
            return id == pid::endpoint_guid || id == pid::participant_guid || id == pid::key_hash
                       ? read_parameter(parameter, true, ignored, keys)
                       : Verdict::taken;
        });
    }
    // Some key payloads hold the participant's GUID beside the endpoint's; alone it is the key itself.
    if (keys.endpoint)
        return keys.endpoint;
    if (keys.participant)
        return keys.participant;
    if (keys.key_hash)
        return keys.key_hash;
    InlineQos qos;
    decode_inline_qos(inline_qos, inline_endianness, qos);
    if (!qos.key_hash)
        return std::nullopt;
    Guid guid;
    ByteReader reader(ByteView(qos.key_hash->data(), qos.key_hash->size()), Endianness::big);
    return read_guid(reader, guid) ? std::optional<Guid>(guid) : std::nullopt;
}

} // namespace meridian::rtps
