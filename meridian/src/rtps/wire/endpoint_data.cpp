// Writers and readers: DCPSPublication and DCPSSubscription samples (discovery_data.h).

#include <set>

#include "rtps/wire/parameter_values.h"

namespace meridian::rtps {

namespace {

/// Keys of the record while it is being read; which of them counts is known at the end of the list.
struct Keys {
    std::optional<Guid> endpoint;
    std::optional<Guid> participant;
    std::optional<Guid> key_hash;
};

/// An enumeration that decides a match is required to be one that exists: a guess would report wrong
/// matches, or subscribe in a way that the peer refuses. Negative durations leave the default instead, so
/// that their writer stays visible. Every policy that decides a match is written even at its default: the
/// defaults of implementations differ.
template <typename Codec, typename Qos>
void describe_policies(Codec& codec, Qos& qos, bool is_writer) {
    codec(pid::durability, Rule::always, qos.durability);
    codec(pid::deadline, Rule::lenient, qos.deadline);
    codec(pid::latency_budget, Rule::lenient, qos.latency_budget);
    codec(pid::liveliness, Rule::always, qos.liveliness, qos.liveliness_lease);
    codec(pid::reliability, Rule::always, qos.reliability, qos.max_blocking_time);
    codec(pid::ownership, Rule::always, qos.ownership);
    codec(pid::destination_order, Rule::always, qos.destination_order);
    codec(pid::presentation, Rule::always, qos.presentation, qos.coherent_access, qos.ordered_access);
    codec(pid::history, Rule::lenient, qos.history, qos.history_depth);
    if (is_writer) {
        codec(pid::ownership_strength, Rule::lenient, qos.ownership_strength);
        codec(pid::lifespan, Rule::lenient, qos.lifespan);
    } else {
        codec(pid::time_based_filter, Rule::lenient, qos.time_based_filter);
    }
    codec(pid::partition, Rule::when_set, qos.partitions);
    codec(pid::data_representation, Rule::when_set, qos.representations);
    codec(pid::user_data, Rule::lenient_when_set, qos.user_data);
    codec(pid::topic_data, Rule::lenient_when_set, qos.topic_data);
    codec(pid::group_data, Rule::lenient_when_set, qos.group_data);
}

/// All but the keys. Record is EndpointData, constant where it is written.
template <typename Codec, typename Record>
void describe(Codec& codec, Record& data, bool is_writer) {
    codec(pid::topic_name, Rule::always, data.topic_name);
    codec(pid::type_name, Rule::always, data.type_name);
    describe_policies(codec, data.qos, is_writer);
    codec.locators(pid::unicast_locator, data.unicast);
    codec(pid::entity_name, Rule::lenient_when_set, data.name);
    codec(pid::property_list, Rule::lenient_when_set, data.properties);
    codec.undecoded(pid::type_information, data.type_information);
    codec.undecoded(pid::type_object, data.type_object);
}

// So many names are kept as they stand. Beyond them those that were there already are left out: they mean
// nothing, and a name takes many times the bytes that announce an empty one.
constexpr size_t kFewPartitions = 64;

void keep_distinct(std::vector<std::string>& names) {
    std::set<std::string> seen;
    std::vector<std::string> distinct;
    for (std::string& name : names) {
        if (seen.insert(name).second)
            distinct.push_back(std::move(name));
    }
    distinct.shrink_to_fit();
    names = std::move(distinct);
}

bool read_reliability(const Parameter& parameter, EndpointQos& qos) {
    if (!read_members(parameter, qos.reliability))
        return false;
    // The blocking time is the writer's own business: without one the default stands.
    read_members(parameter, qos.reliability, qos.max_blocking_time);
    return true;
}

Verdict read_key(const Parameter& parameter, Keys& keys) {
    switch (parameter.base_id()) {
        case pid::endpoint_guid:
            return required(read_members(parameter, keys.endpoint));
        case pid::participant_guid:
            return required(read_members(parameter, keys.participant));
        case pid::key_hash:
            return if_possible(read_members(parameter, keys.key_hash));
        default:
            return Verdict::unused;
    }
}

Verdict read_parameter(const Parameter& parameter, bool is_writer, EndpointData& data, Keys& keys) {
    const pid::Info* info = pid::find(parameter.base_id());
    if (info == nullptr || (info->flags & (is_writer ? pid::of_readers : pid::of_writers)) != 0)
        return Verdict::unused;
    const Verdict key = read_key(parameter, keys);
    if (key != Verdict::unused)
        return key;
    if (parameter.base_id() == pid::reliability)
        return required(read_reliability(parameter, data.qos));
    ParameterDecoder codec(parameter);
    describe(codec, data, is_writer);
    return codec.verdict();
}

} // namespace

void convert_nanoseconds(EndpointQos& qos) {
    // Not the blocking time: where it is not announced its default is a fraction.
    for (WireDuration* duration :
         {&qos.deadline, &qos.latency_budget, &qos.liveliness_lease, &qos.lifespan, &qos.time_based_filter}) {
        if (duration->fraction < 1'000'000'000)
            duration->fraction = fraction_from_nanoseconds(duration->fraction);
    }
}

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
    // A kind of entity that contradicts the topic it was announced on would be matched, and reported,
    // wrongly. Kinds that say neither are reported, and never matched.
    const EntityId id = data.guid.entity;
    const bool is_of_other_kind = is_writer ? id.is_reader() : id.is_writer();
    const bool says_what_it_is = id.is_writer() || id.is_reader();
    const bool kind_fits = !is_of_other_kind && (says_what_it_is || !id.is_builtin());
    data.announced_as_writer = is_writer;
    drop_useless(data.properties);
    if (data.qos.partitions.size() > kFewPartitions)
        keep_distinct(data.qos.partitions);
    if (data.guid.prefix == kUnknownPrefix || !kind_fits) {
        error = std::string("endpoint GUID is missing or not that of a ") +
                (is_writer ? "writer" : "reader") + ": " + to_string(data.guid);
        return std::nullopt;
    }
    if (keys.participant && keys.participant->prefix != data.guid.prefix) {
        error = "it is said to be of another participant";
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
        add_members(list, pid::endpoint_guid, data.guid);
        add_members(list, pid::participant_guid, Guid{data.guid.prefix, entity::participant});
        ParameterEncoder codec(list, data.raw_endianness);
        describe(codec, data, data.is_writer());
        codec.raw(data.raw);
    });
}

ByteBuffer encode_endpoint_key(const Guid& guid) {
    return encode_payload([&](ParameterListWriter& list) { add_members(list, pid::endpoint_guid, guid); });
}

std::optional<Guid> decode_key(ByteView payload) {
    Keys keys;
    PayloadParameters list;
    std::string error;
    if (PayloadParameters::open(payload, list, error)) {
        std::vector<RawParameter> raw;
        list.for_each(raw, error, [&](const Parameter& parameter) {
            const Verdict verdict = read_key(parameter, keys);
            return verdict == Verdict::unused ? Verdict::taken : verdict;
        });
    }
    // Some key payloads hold the participant's GUID beside the endpoint's; alone it is the key itself.
    if (keys.endpoint)
        return keys.endpoint;
    return keys.participant ? keys.participant : keys.key_hash;
}

} // namespace meridian::rtps
