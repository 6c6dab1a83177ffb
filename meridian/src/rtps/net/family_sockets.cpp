#include "rtps/net/family_sockets.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

namespace meridian::rtps::net {

namespace {

InterfaceFilter make_filter(Family family, const UdpSettings& settings, const TransportConfig& config) {
    InterfaceFilter filter;
    filter.allow = settings.allow_interfaces;
    filter.deny = settings.deny_interfaces;
    filter.ignore_loopback = settings.ignore_loopback_interface;
    if (family == Family::v4) {
        filter.loopback_only = config.v4_is_loopback_only();
        filter.loopback_as_last_resort = (config.mask & kTransportThisHost) != 0;
    }
    return filter;
}

std::vector<IpAddress> groups_of(Family family) {
    if (family == Family::v4)
        return {multicast_group_v4()};
    const auto groups = multicast_groups_v6();
    return {groups.begin(), groups.end()};
}

/// The ancillary data that makes a datagram leave through one interface.
class InterfaceChoice {
  public:
    InterfaceChoice(msghdr& message, const Interface& interface, Family family) {
        message.msg_control = buffer_;
        const unsigned interface_index = interface.index;
        if (family == Family::v4) {
            in_pktinfo info{};
            info.ipi_ifindex = static_cast<int>(interface_index);
            // Left to itself, the system would send from 0.0.0.0 over loopback.
            if (!interface.addresses.empty())
                std::memcpy(&info.ipi_spec_dst, interface.addresses.front().address.bytes.data() + 12,
                            sizeof info.ipi_spec_dst);
            put(message, IPPROTO_IP, IP_PKTINFO, info);
        } else {
            in6_pktinfo info{};
            info.ipi6_ifindex = interface_index;
            put(message, IPPROTO_IPV6, IPV6_PKTINFO, info);
        }
    }

  private:
    template <typename Info>
    void put(msghdr& message, int level, int type, const Info& info) {
        message.msg_controllen = CMSG_SPACE(sizeof info);
        cmsghdr* header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = level;
        header->cmsg_type = type;
        header->cmsg_len = CMSG_LEN(sizeof info);
        std::memcpy(CMSG_DATA(header), &info, sizeof info);
    }

    alignas(cmsghdr) char buffer_[CMSG_SPACE(sizeof(in6_pktinfo))] = {};
};

int send_once(int socket, const msghdr& message) {
    ssize_t result;
    do {
        result = sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (result < 0 && errno == EINTR);
    return result < 0 ? errno : 0;
}

} // namespace

const char* name_of(Family family) {
    return family == Family::v4 ? "UDPv4" : "UDPv6";
}

FamilySockets::FamilySockets(Family family, const TransportConfig& config)
    : family_(family),
      settings_(family == Family::v4 ? config.v4 : config.v6),
      filter_(make_filter(family, settings_, config)),
      groups_(groups_of(family)) {}

OpenResult FamilySockets::open_unicast(const PortPair& ports, std::string& error) {
    IpAddress local;
    local.family = family_;
    // Bound to loopback, nothing arrives from outside whatever the sender tries.
    if (filter_.loopback_only)
        local = loopback_address(family_);

    const std::pair<SocketRole, uint16_t> wanted[] = {{kMetatrafficUnicast, ports.metatraffic},
                                                      {kUserUnicast, ports.user}};
    for (const auto& [role, port] : wanted) {
        BoundSocket bound = bind_udp(local, port, PortSharing::exclusive);
        if (!bound.socket) {
            error = std::move(bound.error);
            close_unicast();
            if (bound.error_number == EADDRINUSE)
                return OpenResult::in_use;
            const bool missing = bound.error_number == EAFNOSUPPORT || bound.error_number == EADDRNOTAVAIL;
            return missing ? OpenResult::unavailable : OpenResult::failed;
        }
        sockets_[role] = std::move(bound.socket);
    }
    unicast_ports_ = ports;
    return OpenResult::ok;
}

void FamilySockets::close_unicast() {
    sockets_[kMetatrafficUnicast].reset();
    sockets_[kUserUnicast].reset();
}

bool FamilySockets::open_multicast(const PortPair& ports, std::string& error) {
    IpAddress local; // a group as local address would do for one group only
    local.family = family_;
    const std::pair<SocketRole, uint16_t> wanted[] = {{kMetatrafficMulticast, ports.metatraffic},
                                                      {kUserMulticast, ports.user}};
    for (const auto& [role, port] : wanted) {
        BoundSocket bound = bind_udp(local, port, PortSharing::shared);
        if (!bound.socket) {
            error = std::move(bound.error);
            return false;
        }
        receive_joined_groups_only(bound.socket.get(), family_);
        sockets_[role] = std::move(bound.socket);
    }
    return true;
}

void FamilySockets::configure(const Warn& warn) {
    const auto wanted_receive =
        static_cast<size_t>(std::max(settings_.receive_socket_buffer_size, kSmallestReceiveSocketBuffer));
    const auto wanted_send = static_cast<size_t>(settings_.send_socket_buffer_size);
    size_t receive = SIZE_MAX;
    for (const FileDescriptor& socket : sockets_)
        receive = std::min(receive, set_receive_buffer(socket.get(), wanted_receive));
    size_t send = SIZE_MAX;
    for (const int socket : {metatraffic_unicast(), user_unicast()})
        send = std::min(send, set_send_buffer(socket, wanted_send));

    const auto told = [&](const char* which, size_t wanted, size_t given, const char* limit) {
        if (given < wanted) {
            warn(std::string(name_of(family_)) + " " + which + " socket buffer is " + std::to_string(given) +
                 " bytes, not " + std::to_string(wanted) + ": the system's limit is net.core." + limit);
        }
    };
    told("receive", wanted_receive, receive, "rmem_max");
    told("send", wanted_send, send, "wmem_max");

    std::string error;
    if (!set_multicast_sending(metatraffic_unicast(), family_, settings_.multicast_ttl, error))
        warn(error);
}

bool FamilySockets::set_interfaces(const std::vector<Interface>& all, const Warn& warn) {
    std::vector<Interface> usable = usable_interfaces(all, family_, filter_);
    InterfaceFilter listed = filter_;
    listed.loopback_as_last_resort = false;
    allows_none_ = !filter_.allow.empty() && usable_interfaces(all, family_, listed).empty();
    const bool changed = usable != usable_;
    usable_ = std::move(usable);
    for (auto it = joined_.begin(); it != joined_.end();) {
        if (find_usable(*it) == nullptr) {
            for_memberships([&](int socket, const IpAddress& group) { leave_group(socket, group, *it); });
            it = joined_.erase(it);
        } else {
            ++it;
        }
    }
    for (const Interface& interface : usable_) {
        if (joined_.count(interface.index) == 0 && join(interface, warn))
            joined_.insert(interface.index);
    }
    return changed;
}

bool FamilySockets::join(const Interface& interface, const Warn& warn) {
    // Loopback carries multicast between processes of this host even where it does not say so.
    if (!interface.multicast && !interface.loopback)
        return false;
    bool joined = false;
    for_memberships([&](int socket, const IpAddress& group) {
        std::string error;
        if (join_group(socket, group, interface.index, error))
            joined = true;
        else if (errno != ENODEV) // it has just gone
            warn(error + " (interface " + interface.name + "); what comes there by multicast is not seen");
    });
    return joined;
}

bool FamilySockets::uses_loopback() const {
    return std::any_of(usable_.begin(), usable_.end(), [](const Interface& i) { return i.loopback; });
}

bool FamilySockets::leaves_host() const {
    return std::any_of(usable_.begin(), usable_.end(), [](const Interface& i) { return !i.loopback; });
}

const Interface* FamilySockets::find_usable(unsigned interface_index) const {
    const auto it = std::find_if(usable_.begin(), usable_.end(), [interface_index](const Interface& i) {
        return i.index == interface_index;
    });
    return it != usable_.end() ? &*it : nullptr;
}

int FamilySockets::send(ByteView message, const IpAddress& destination, uint16_t port,
                        const Interface* interface, SendThrough through) const {
    const unsigned scope = interface != nullptr ? interface->index : 0;
    SocketAddress address = to_socket_address(destination, port, scope);
    iovec part{};
    part.iov_base = const_cast<uint8_t*>(message.data); // sendmsg only reads it
    part.iov_len = message.size;
    msghdr header{};
    header.msg_name = address.get();
    header.msg_namelen = address.length;
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    std::optional<InterfaceChoice> choice;
    if (interface != nullptr)
        choice.emplace(header, *interface, family_);

    return send_once(through == SendThrough::first ? metatraffic_unicast() : user_unicast(), header);
}

} // namespace meridian::rtps::net
