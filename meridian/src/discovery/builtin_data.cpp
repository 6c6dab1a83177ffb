#include "discovery/builtin_data.h"

#include "discovery/announced_qos.h"
#include "discovery/partitions.h"
#include "types/lookup/endpoint_type.h"

#include <algorithm>
#include <map>
#include <string_view>

namespace meridian::qos {

constexpr auto fields_of(Of<DDS_EndpointBuiltinTopicData>) {
    using Data = DDS_EndpointBuiltinTopicData;
    return std::tuple_cat(
        endpoint_policies<Data>(), group_policies<Data>(),
        std::tuple(field("user_data", &Data::user_data), field("topic_data", &Data::topic_data)));
}
constexpr auto fields_of(Of<DDS_PublicationBuiltinTopicData>) {
    using Data = DDS_PublicationBuiltinTopicData;
    return std::tuple_cat(
        fields_of(Of<DDS_EndpointBuiltinTopicData>()),
        std::tuple(field("lifespan", &Data::lifespan),
                   field("ownership_strength", &Data::ownership_strength).as(&Wire::ownership_strength)));
}
constexpr auto fields_of(Of<DDS_SubscriptionBuiltinTopicData>) {
    using Data = DDS_SubscriptionBuiltinTopicData;
    return std::tuple_cat(fields_of(Of<DDS_EndpointBuiltinTopicData>()),
                          std::tuple(field("time_based_filter", &Data::time_based_filter)));
}

} // namespace meridian::qos

namespace meridian::discovery {

namespace {

DDS_LocatorSeq to_locator_seq(const rtps::LocatorList& locators) {
    DDS_LocatorSeq sequence(static_cast<DDS_Long>(locators.size()));
    for (const rtps::Locator& locator : locators) {
        DDS_Locator_t out;
        out.kind = locator.kind;
        out.port = locator.port;
        std::copy(locator.address.begin(), locator.address.end(), out.address);
        sequence.append(out);
    }
    return sequence;
}

/// Everything that comes from a peer was announced, so it is marked as propagated.
DDS_PropertyQosPolicy to_properties(const std::vector<rtps::Property>& properties) {
    DDS_PropertyQosPolicy policy;
    std::map<std::string_view, DDS_Long> places; // of what may be thousands
    for (const rtps::Property& property : properties) {
        const auto [place, is_new] = places.emplace(property.name, policy.value.length());
        DDS_Property_t announced;
        announced.name = DDS_String_dup(property.name.c_str());
        announced.value = DDS_String_dup(property.value.c_str());
        announced.propagate = true;
        if (is_new)
            policy.value.append(announced);
        else
            policy.value[place->second] = announced;
    }
    return policy;
}

char* name_or_null(const std::string& name) {
    return name.empty() ? nullptr : DDS_String_dup(name.c_str());
}

void fill_endpoint(const rtps::RemoteEndpoint& endpoint, DDS_EndpointBuiltinTopicData& out) {
    fill_keys(endpoint, out);
    out.topic_name = DDS_String_dup(endpoint.topic_name.c_str());
    out.type_name = DDS_String_dup(endpoint.type_name.c_str());
    out.unicast_locators = to_locator_seq(*endpoint.unicast);
    out.entity_name.name = name_or_null(endpoint.name);
    out.property = to_properties(endpoint.properties);
    out.type_code = rtps::type_of(endpoint);
    if (endpoint.type != nullptr)
        out.type_code_absence = endpoint.type->why_none();
    out.type_information = to_octet_seq(*endpoint.type_information);
}

} // namespace

rtps::Guid participant_guid(const rtps::GuidPrefix& prefix) {
    return {prefix, rtps::entity::participant};
}

DDS_ParticipantBuiltinTopicData to_participant_data(const rtps::ParticipantData& data, uint32_t domain_id) {
    DDS_ParticipantBuiltinTopicData out;
    out.key = to_key(data.guid);
    out.user_data.value = to_octet_seq(data.user_data);
    out.property = to_properties(data.properties);
    out.participant_name.name = name_or_null(data.name);
    out.partition.name = to_string_seq(participant_partitions(data.properties));
    out.default_unicast_locators = to_locator_seq(data.default_unicast);
    out.metatraffic_unicast_locators = to_locator_seq(data.metatraffic_unicast);
    out.domain_id = data.domain_id.value_or(domain_id);
    out.protocol_version[0] = data.version.major;
    out.protocol_version[1] = data.version.minor;
    out.vendor_id[0] = data.vendor.bytes[0];
    out.vendor_id[1] = data.vendor.bytes[1];
    out.lease_duration = to_duration(data.lease);
    return out;
}

void fill_keys(const rtps::RemoteEndpoint& endpoint, DDS_EndpointBuiltinTopicData& out) {
    out.key = to_key(endpoint.guid);
    out.participant_key = to_key(participant_guid(endpoint.guid.prefix));
}

void fill(const rtps::RemoteEndpoint& endpoint, DDS_PublicationBuiltinTopicData& out) {
    fill_endpoint(endpoint, out);
    read_announced(*endpoint.qos, out);
}

void fill(const rtps::RemoteEndpoint& endpoint, DDS_SubscriptionBuiltinTopicData& out) {
    fill_endpoint(endpoint, out);
    read_announced(*endpoint.qos, out);
}

} // namespace meridian::discovery
