#include <algorithm>

#include "dcps/entities/participant.h"
#include "meridian/transport.h"
#include "platform/log.h"

using meridian::dcps::ParticipantImpl;
using meridian::dcps::TransportProperties;

namespace {

/// The size that counts here is that of the loopback sockets; these must merely make sense.
bool is_possible(const QUIXTransport_Shmem_Property& shmem) {
    const DDS_Long smallest = std::min(shmem.receive_buffer_size, shmem.received_message_count_max);
    if (shmem.message_size_max > 0 && smallest > 0)
        return true;
    MERIDIAN_LOG_ERROR("dcps",
                       "transport property: message size %d, buffer size %d and message count %d of shared "
                       "memory must be above 0",
                       shmem.message_size_max, shmem.receive_buffer_size, shmem.received_message_count_max);
    return false;
}

} // namespace

DDS_ReturnCode_t QUIXTransportSupport::get_builtin_transport_property(DDSDomainParticipant* participant,
                                                                      QUIXTransport_Property& property) {
    auto* owner = dynamic_cast<ParticipantImpl*>(participant);
    if (owner == nullptr)
        return DDS_RETCODE_BAD_PARAMETER;
    const TransportProperties current = owner->transport_properties();
    switch (property.kind) {
        case DDS_TRANSPORT_KIND_UDPv4:
            property.udp = current.udpv4;
            return DDS_RETCODE_OK;
        case DDS_TRANSPORT_KIND_UDPv6:
            property.udp = current.udpv6;
            return DDS_RETCODE_OK;
        case DDS_TRANSPORT_KIND_SHMEM:
            property.shmem = current.shmem;
            return DDS_RETCODE_OK;
    }
    return DDS_RETCODE_BAD_PARAMETER;
}

DDS_ReturnCode_t QUIXTransportSupport::set_builtin_transport_property(
    DDSDomainParticipant* participant, const QUIXTransport_Property& property) {
    auto* owner = dynamic_cast<ParticipantImpl*>(participant);
    if (owner == nullptr)
        return DDS_RETCODE_BAD_PARAMETER;
    TransportProperties wanted = owner->transport_properties();
    switch (property.kind) {
        case DDS_TRANSPORT_KIND_UDPv4:
            wanted.udpv4 = property.udp;
            return owner->set_transport_properties(wanted);
        case DDS_TRANSPORT_KIND_UDPv6:
            wanted.udpv6 = property.udp;
            return owner->set_transport_properties(wanted);
        case DDS_TRANSPORT_KIND_SHMEM:
            wanted.shmem = property.shmem;
            return is_possible(property.shmem) ? owner->set_transport_properties(wanted)
                                               : DDS_RETCODE_BAD_PARAMETER;
    }
    return DDS_RETCODE_BAD_PARAMETER;
}
