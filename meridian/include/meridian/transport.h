#pragma once

// Properties of the builtin transports. They can be changed between the creation and the enabling of a
// participant.

#include "meridian/base.h"

class DDSDomainParticipant;

enum DDS_TransportBuiltinKind : DDS_Long {
    DDS_TRANSPORT_KIND_UDPv4 = 1,
    DDS_TRANSPORT_KIND_SHMEM = 2, // peers on this host, reached over the loopback interface
    DDS_TRANSPORT_KIND_UDPv6 = 8,
};

/// Sizes are in bytes. The defaults are the values in use when nothing is changed.
struct QUIXTransport_UDP_Property {
    DDS_Long message_size_max = 65507;
    DDS_Long send_socket_buffer_size = 131072;
    DDS_Long recv_socket_buffer_size = 4194304;
    DDS_Long multicast_ttl = 1;
};

struct QUIXTransport_Shmem_Property {
    DDS_Long message_size_max = 65507;
    DDS_Long receive_buffer_size = 4194304;
    DDS_Long received_message_count_max = 64;
};

/// The property of any kind; which member counts says `kind`. A record default-constructed for a kind holds
/// the defaults of that kind.
struct QUIXTransport_Property {
    explicit QUIXTransport_Property(DDS_TransportBuiltinKind transport_kind) : kind(transport_kind) {}

    DDS_TransportBuiltinKind kind;
    QUIXTransport_UDP_Property udp; // UDPv4 and UDPv6
    QUIXTransport_Shmem_Property shmem;
};

class QUIXTransportSupport {
  public:
    /// Reads the property of property.kind. DDS_RETCODE_BAD_PARAMETER for an unknown kind or a null
    /// participant.
    static DDS_ReturnCode_t get_builtin_transport_property(DDSDomainParticipant* participant,
                                                           QUIXTransport_Property& property);
    /// Takes effect when the participant is enabled; DDS_RETCODE_ILLEGAL_OPERATION after that,
    /// DDS_RETCODE_BAD_PARAMETER for values that no transport can have (the logger says which).
    static DDS_ReturnCode_t set_builtin_transport_property(DDSDomainParticipant* participant,
                                                           const QUIXTransport_Property& property);
};
