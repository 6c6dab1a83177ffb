#pragma once

// What the QoS of a participant and its transport properties ask of the layers below.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "discovery/partitions.h"
#include "meridian/qos.h"
#include "meridian/transport.h"
#include "rtps/net/runtime.h"

namespace meridian::dcps {

/// The properties of all builtin transports of one participant.
struct TransportProperties {
    QUIXTransport_UDP_Property udpv4;
    QUIXTransport_Shmem_Property shmem;
    QUIXTransport_UDP_Property udpv6;
};

/// What a participant tells others about itself besides its addresses.
struct Announcement {
    std::string name;
    std::vector<rtps::Property> properties; // the propagated ones, and the partitions
    rtps::ByteBuffer user_data;
};
Announcement announcement_of(const DDS_DomainParticipantQos& qos);

discovery::PartitionList partitions_of(const DDS_DomainParticipantQos& qos);

/// Largest type that is used, as the summed size of its type objects.
uint64_t max_type_size(const DDS_DomainParticipantQos& qos);

/// nullopt with a text in `error` where the middleware does not do what the QoS asks.
std::optional<rtps::net::RuntimeConfig> runtime_config(DDS_DomainId_t domain_id,
                                                       const DDS_DomainParticipantQos& qos,
                                                       const TransportProperties& transports,
                                                       const rtps::GuidPrefix& prefix,
                                                       const std::shared_ptr<rtps::net::OwnParticipants>& own,
                                                       std::string& error);

/// Warns of unknown properties of transports, and of known ones that ask for what this engine does not do.
void warn_of_properties_without_effect(const DDS_PropertyQosPolicy& properties);

} // namespace meridian::dcps
