#pragma once

// The sockets of one address family, and the interfaces they are used on.

#include <array>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "rtps/net/network_interfaces.h"
#include "rtps/net/ports.h"
#include "rtps/net/socket.h"
#include "rtps/net/transport_config.h"

namespace meridian::rtps::net {

enum class OpenResult {
    ok,
    in_use,      // another process has one of the unicast ports
    unavailable, // this host does not have the family
    failed,
};

/// Which socket a datagram leaves through. Those to hosts that may not exist wait for the answer to that in
/// the buffer of their socket, and must not take the room of the others.
enum class SendThrough { first, second };

const char* name_of(Family family);

/// Not thread-safe.
class FamilySockets {
  public:
    FamilySockets(Family family, const TransportConfig& config);

    Family family() const { return family_; }
    const UdpSettings& settings() const { return settings_; }
    const std::vector<Interface>& usable() const { return usable_; }

    /// Opens the two unicast sockets. error is set unless ok.
    OpenResult open_unicast(const PortPair& ports, std::string& error);
    void close_unicast();
    /// Opens the two multicast sockets, which belong to no interface yet.
    bool open_multicast(const PortPair& ports, std::string& error);
    /// Told what is not as it was asked for.
    using Warn = std::function<void(const std::string& text)>;
    /// Sets buffers and multicast options of all sockets.
    void configure(const Warn& warn);

    /// Takes the present interfaces: selects the usable ones and joins the groups on the new ones. True when
    /// the usable ones are others than before.
    bool set_interfaces(const std::vector<Interface>& all, const Warn& warn);

    /// True when multicast works on at least one interface.
    bool has_multicast() const { return !joined_.empty(); }
    /// There is a list of allowed interfaces, and none that is up is in it.
    bool allows_none() const { return allows_none_; }
    bool uses_loopback() const;
    /// True when some usable interface is not loopback.
    bool leaves_host() const;
    const std::vector<IpAddress>& groups() const { return groups_; }

    int metatraffic_unicast() const { return sockets_[kMetatrafficUnicast].get(); }
    int metatraffic_multicast() const { return sockets_[kMetatrafficMulticast].get(); }
    int user_unicast() const { return sockets_[kUserUnicast].get(); }
    int user_multicast() const { return sockets_[kUserMulticast].get(); }
    uint16_t metatraffic_unicast_port() const { return unicast_ports_.metatraffic; }
    uint16_t user_unicast_port() const { return unicast_ports_.user; }

    /// Sends one datagram through a usable interface (null: as the routes say), without waiting. 0, or an
    /// errno value: EAGAIN where the socket's buffer is full.
    int send(ByteView message, const IpAddress& destination, uint16_t port, const Interface* interface,
             SendThrough through = SendThrough::first) const;
    /// nullptr: not usable.
    const Interface* find_usable(unsigned interface_index) const;

  private:
    enum SocketRole {
        kMetatrafficUnicast,
        kMetatrafficMulticast,
        kUserUnicast,
        kUserMulticast,
        kSocketCount
    };

    bool join(const Interface& interface, const Warn& warn);
    /// Calls function(int socket, const IpAddress& group) for all that are joined on each interface.
    template <typename Function>
    void for_memberships(Function function) const {
        for (const IpAddress& group : groups_) {
            for (const int socket : {metatraffic_multicast(), user_multicast()})
                function(socket, group);
        }
    }

    Family family_;
    UdpSettings settings_;
    InterfaceFilter filter_;
    std::vector<IpAddress> groups_;
    PortPair unicast_ports_;
    std::array<FileDescriptor, kSocketCount> sockets_;
    std::vector<Interface> usable_;
    bool allows_none_ = false;
    std::set<unsigned> joined_; // interface indexes
};

} // namespace meridian::rtps::net
