#include "dcps/entities/runtime_config.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "discovery/conversions.h"
#include "platform/log.h"
#include "platform/text.h"

namespace meridian::dcps {

using discovery::Properties;
using discovery::to_properties;
using discovery::to_text;

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
    return rtps::net::apply_properties(to_properties(qos.property, Properties::all), config, error);
}

} // namespace

Announcement announcement_of(const DDS_DomainParticipantQos& qos) {
    Announcement announcement;
    announcement.name = to_text(qos.participant_name.name);
    announcement.user_data = discovery::to_bytes(qos.user_data.value);
    const discovery::PartitionList partitions = partitions_of(qos);
    for (rtps::Property& property : to_properties(qos.property, Properties::propagated)) {
        if (property.name != discovery::kParticipantPartitionProperty)
            announcement.properties.push_back(std::move(property));
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
        participant.domain_tag = to_text(tag->value);
    participant.lease = discovery::to_wire(qos.discovery_config.participant_liveliness_lease_duration);
    participant.announce_period =
        rtps::to_duration(discovery::to_wire(qos.discovery_config.participant_liveliness_assert_period));
    participant.max_sample_size = kLargestSample;
    config.peers = discovery::to_strings(qos.discovery.initial_peers);
    config.own_participants = own;
    return config;
}

void warn_of_properties_without_effect(const DDS_PropertyQosPolicy& properties) {
    for (const rtps::Property& property : to_properties(properties, Properties::all)) {
        const std::string name = trimmed(property.name);
        const bool is_of_transport =
            name.compare(0, std::strlen(kTransportPropertyPrefix), kTransportPropertyPrefix) == 0;
        if (is_one_of(name, kIdleProperties))
            MERIDIAN_LOG_WARNING("dcps", "property \"%s\" has no effect with this engine", name.c_str());
        else if (is_of_transport && !is_one_of(name, kKnownTransportProperties))
            MERIDIAN_LOG_ERROR("dcps", "property \"%s\" is unknown and has no effect", name.c_str());
    }
}

} // namespace meridian::dcps
