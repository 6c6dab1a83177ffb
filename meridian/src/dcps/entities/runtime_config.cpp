#include "dcps/entities/runtime_config.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "discovery/conversions.h"
#include "platform/log.h"
#include "platform/text.h"

namespace meridian::dcps {

namespace {

/// User samples of tens of megabytes (images, point clouds) are common enough; a few of them may be on their
/// way to one reader at the same time.
constexpr size_t kLargestSample = size_t{64} << 20;

constexpr const char* kDomainTagProperty = "dds.domain_participant.domain_tag";
constexpr const char* kTransportPropertyPrefix = "dds.transport.";
constexpr const char* kKnownTransportProperties[] = {
    "dds.transport.UDPv4.builtin.ignore_loopback_interface",
    "dds.transport.UDPv4.builtin.parent.allow_interfaces_list",
    "dds.transport.UDPv4.builtin.parent.deny_interfaces_list",
    "dds.transport.UDPv6.builtin.ignore_loopback_interface",
    "dds.transport.UDPv6.builtin.parent.allow_interfaces_list",
    "dds.transport.UDPv6.builtin.parent.deny_interfaces_list",
};
/// They ask for formats of older versions, which this engine does not write.
constexpr const char* kIdleProperties[] = {
    "dds.data_writer.protocol.use_43_large_data_format",
    "dds.data_reader.protocol.use_43_large_data_format",
    "dds.transport.use_510_compatible_locator_kinds",
};

template <size_t count>
bool is_one_of(const std::string& name, const char* const (&names)[count]) {
    return std::any_of(std::begin(names), std::end(names),
                       [&name](const char* candidate) { return name == candidate; });
}

std::string text_or_empty(const char* text) {
    return text != nullptr ? text : "";
}

std::vector<rtps::Property> all_properties(const DDS_PropertyQosPolicy& policy) {
    std::vector<rtps::Property> properties;
    for (DDS_Long i = 0; i < policy.value.length(); ++i)
        properties.push_back({text_or_empty(policy.value[i].name), text_or_empty(policy.value[i].value)});
    return properties;
}

void apply(const QUIXTransport_UDP_Property& property, rtps::net::UdpSettings& settings) {
    settings.message_size_max = property.message_size_max;
    settings.send_socket_buffer_size = property.send_socket_buffer_size;
    settings.receive_socket_buffer_size = property.recv_socket_buffer_size;
    settings.multicast_ttl = property.multicast_ttl;
}

bool make_transport_config(DDS_DomainId_t domain_id, const DDS_DomainParticipantQos& qos,
                           const TransportProperties& transports, rtps::net::TransportConfig& config,
                           std::string& error) {
    if (domain_id < 0) {
        error = "domain id " + std::to_string(domain_id) + " is negative";
        return false;
    }
    config.domain_id = static_cast<uint32_t>(domain_id);
    config.participant_index = qos.wire_protocol.participant_id;
    config.mask = static_cast<uint32_t>(qos.transport_builtin.mask);
    apply(transports.udpv4, config.v4);
    apply(transports.udpv6, config.v6);
    // No datagram is larger: a larger buffer reads the same.
    config.receive_buffer_size = std::min(qos.receiver_pool.buffer_size, rtps::net::kLargestReceiveBuffer);
    return rtps::net::apply_properties(all_properties(qos.property), config, error);
}

} // namespace

Announcement announcement_of(const DDS_DomainParticipantQos& qos) {
    Announcement announcement;
    announcement.name = text_or_empty(qos.participant_name.name);
    announcement.user_data = discovery::to_bytes(qos.user_data.value);
    const discovery::PartitionList partitions = partitions_of(qos);
    for (DDS_Long i = 0; i < qos.property.value.length(); ++i) {
        const DDS_Property_t& property = qos.property.value[i];
        const std::string name = text_or_empty(property.name);
        if (property.propagate && name != discovery::kParticipantPartitionProperty)
            announcement.properties.push_back({name, text_or_empty(property.value)});
    }
    if (!partitions.empty())
        announcement.properties.push_back(
            {discovery::kParticipantPartitionProperty, discovery::join_partitions(partitions)});
    return announcement;
}

discovery::PartitionList partitions_of(const DDS_DomainParticipantQos& qos) {
    return discovery::to_strings(qos.partition.name);
}

uint64_t max_type_size(const DDS_DomainParticipantQos& qos) {
    const DDS_Long limit = qos.resource_limits.type_code_max_serialized_length;
    if (limit == DDS_LENGTH_UNLIMITED)
        return std::numeric_limits<uint64_t>::max();
    return static_cast<uint64_t>(std::max(limit, 0));
}

std::optional<rtps::net::RuntimeConfig> runtime_config(DDS_DomainId_t domain_id,
                                                       const DDS_DomainParticipantQos& qos,
                                                       const TransportProperties& transports,
                                                       const rtps::GuidPrefix& prefix,
                                                       const std::shared_ptr<rtps::net::OwnParticipants>& own,
                                                       std::string& error) {
    rtps::net::RuntimeConfig config;
    if (!make_transport_config(domain_id, qos, transports, config.transport, error))
        return std::nullopt;

    Announcement announcement = announcement_of(qos);
    rtps::ParticipantConfig& participant = config.participant;
    participant.prefix = prefix;
    participant.name = std::move(announcement.name);
    participant.properties = std::move(announcement.properties);
    participant.user_data = std::move(announcement.user_data);
    const DDS_Property_t* tag = DDS_PropertyQosPolicyHelper_lookup_property(qos.property, kDomainTagProperty);
    if (tag != nullptr)
        participant.domain_tag = text_or_empty(tag->value);
    participant.lease = discovery::to_wire(qos.discovery_config.participant_liveliness_lease_duration);
    participant.announce_period =
        rtps::to_duration(discovery::to_wire(qos.discovery_config.participant_liveliness_assert_period));
    participant.max_sample_size = kLargestSample;
    config.peers = discovery::to_strings(qos.discovery.initial_peers);
    config.own_participants = own;
    return config;
}

void warn_of_properties_without_effect(const DDS_PropertyQosPolicy& properties) {
    for (const rtps::Property& property : all_properties(properties)) {
        const std::string name = trimmed(property.name);
        const bool is_of_transport =
            name.compare(0, std::strlen(kTransportPropertyPrefix), kTransportPropertyPrefix) == 0;
        if (is_one_of(name, kIdleProperties))
            MERIDIAN_LOG_WARNING("dcps", "property \"%s\" has no effect with this engine", name.c_str());
        else if (is_of_transport && !is_one_of(name, kKnownTransportProperties))
            MERIDIAN_LOG_WARNING("dcps", "property \"%s\" is unknown and has no effect", name.c_str());
    }
}

} // namespace meridian::dcps
