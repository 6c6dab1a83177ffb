#pragma once

// What a participant can be asked for about its transports.

#include <cstdint>
#include <string>
#include <vector>

#include "rtps/wire/discovery_data.h"

namespace meridian::rtps::net {

/// Bits of the transport mask.
enum TransportKind : uint32_t {
    kTransportUdpV4 = 1,
    /// Peers on this host, reached over IPv4 on the loopback interface. Alone: nothing else is reached.
    /// Beside UDPv4 it adds nothing, except that loopback is used where the interface lists leave no
    /// interface. Beside UDPv6 only, IPv4 is used on loopback.
    kTransportThisHost = 2,
    kTransportUdpV6 = 8,
};

constexpr int kLargestDatagram = 65507; // what fits an IPv4 packet
constexpr int kSmallestDatagram = 576;  // what every host must take
constexpr int kLargestReceiveBuffer = 65536;
/// A socket gets a receive buffer of at least this size: one that holds few messages loses them in bursts,
/// and makes writers send again what they need not.
constexpr int kSmallestReceiveSocketBuffer = 1 << 20;

/// Sizes in bytes. The defaults are those of meridian/transport.h.
struct UdpSettings {
    int message_size_max = kLargestDatagram; // larger datagrams are not sent; values above are held at it
    int send_socket_buffer_size = 131072;
    int receive_socket_buffer_size = 4194304;
    int multicast_ttl = 1; // 0: multicast does not leave this host
    bool ignore_loopback_interface = false;
    std::vector<std::string> allow_interfaces; // names or addresses with wildcards; empty: all
    std::vector<std::string> deny_interfaces;

    friend bool operator==(const UdpSettings& a, const UdpSettings& b);
};

struct TransportConfig {
    uint32_t domain_id = 0;
    int participant_index = -1; // -1: the first free one
    uint32_t mask = kTransportUdpV4 | kTransportThisHost;
    UdpSettings v4;
    UdpSettings v6;
    /// Largest datagram that is received whole; 0: what the transports can carry.
    int receive_buffer_size = kLargestReceiveBuffer;

    bool uses_v4() const { return (mask & (kTransportUdpV4 | kTransportThisHost)) != 0; }
    bool uses_v6() const { return (mask & kTransportUdpV6) != 0; }
    bool v4_is_loopback_only() const { return (mask & kTransportUdpV4) == 0; }

    friend bool operator==(const TransportConfig& a, const TransportConfig& b);
};

/// Takes the transport properties of a participant: "dds.transport.UDPv4.builtin." followed by
/// "ignore_loopback_interface" (0 or 1), "parent.allow_interfaces_list", "parent.deny_interfaces_list" (comma
/// separated), and the same for UDPv6. Blanks around names and values do not count; other properties are left
/// alone. False with a text in error for a value that cannot be.
bool apply_properties(const std::vector<Property>& properties, TransportConfig& config, std::string& error);

/// False with a text in error where no transport could be opened like this: no domain of that number, no such
/// index, an empty or unknown mask, sizes out of range.
bool check(const TransportConfig& config, std::string& error);

} // namespace meridian::rtps::net
