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

/// Hands the two records that the kind of `property` means to `use`.
template <typename Properties, typename Property, typename Use>
DDS_ReturnCode_t with_kind(Properties& properties, Property& property, Use use) {
    switch (property.kind) {
        case DDS_TRANSPORT_KIND_UDPv4:
            return use(properties.udpv4, property.udp);
        case DDS_TRANSPORT_KIND_UDPv6:
            return use(properties.udpv6, property.udp);
        case DDS_TRANSPORT_KIND_SHMEM:
            return use(properties.shmem, property.shmem);
    }
    return DDS_RETCODE_BAD_PARAMETER;
}

} // namespace

DDS_ReturnCode_t QUIXTransportSupport::get_builtin_transport_property(DDSDomainParticipant* participant,
                                                                      QUIXTransport_Property& property) {
    auto* owner = dynamic_cast<ParticipantImpl*>(participant);
    if (owner == nullptr)
        return DDS_RETCODE_BAD_PARAMETER;
    const TransportProperties current = owner->transport_properties();
    return with_kind(current, property, [](const auto& in_use, auto& out) {
        out = in_use;
        return DDS_RETCODE_OK;
    });
}

DDS_ReturnCode_t QUIXTransportSupport::set_builtin_transport_property(
    DDSDomainParticipant* participant, const QUIXTransport_Property& property) {
    auto* owner = dynamic_cast<ParticipantImpl*>(participant);
    if (owner == nullptr)
        return DDS_RETCODE_BAD_PARAMETER;
    TransportProperties wanted = owner->transport_properties();
    return with_kind(wanted, property, [owner, &wanted](auto& target, const auto& value) {
        target = value;
        return is_possible(wanted.shmem) ? owner->set_transport_properties(wanted)
                                         : DDS_RETCODE_BAD_PARAMETER;
    });
}
