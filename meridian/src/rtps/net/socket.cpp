#include "rtps/net/socket.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

namespace meridian::rtps::net {

namespace {

bool set_option(int socket, int level, int name, int value) {
    return setsockopt(socket, level, name, &value, sizeof value) == 0;
}

size_t buffer_size(int socket, int name) {
    int value = 0;
    socklen_t length = sizeof value;
    if (getsockopt(socket, SOL_SOCKET, name, &value, &length) != 0 || value < 0)
        return 0;
    return static_cast<size_t>(value) / 2; // the kernel doubles what it was asked for, for its own records
}

size_t set_buffer(int socket, size_t bytes, int name, int forced_name) {
    if (bytes == 0)
        return buffer_size(socket, name);
    const auto value = static_cast<int>(bytes);
    set_option(socket, SOL_SOCKET, name, value);
    // The limit of the system does not hold for a privileged process.
    if (buffer_size(socket, name) < bytes)
        set_option(socket, SOL_SOCKET, forced_name, value);
    return buffer_size(socket, name);
}

bool change_membership(int socket, const IpAddress& group, unsigned interface_index, int v4_name,
                       int v6_name) {
    if (group.family == Family::v4) {
        ip_mreqn request{};
        std::memcpy(&request.imr_multiaddr, group.bytes.data() + 12, sizeof request.imr_multiaddr);
        request.imr_ifindex = static_cast<int>(interface_index);
        return setsockopt(socket, IPPROTO_IP, v4_name, &request, sizeof request) == 0;
    }
    ipv6_mreq request{};
    std::memcpy(&request.ipv6mr_multiaddr, group.bytes.data(), sizeof request.ipv6mr_multiaddr);
    request.ipv6mr_interface = interface_index;
    return setsockopt(socket, IPPROTO_IPV6, v6_name, &request, sizeof request) == 0;
}

} // namespace

FileDescriptor::FileDescriptor(FileDescriptor&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)) {}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
        reset();
        descriptor_ = std::exchange(other.descriptor_, -1);
    }
    return *this;
}

void FileDescriptor::reset() {
    if (descriptor_ >= 0)
        close(descriptor_);
    descriptor_ = -1;
}

std::string describe_error(const std::string& text, int error_number) {
    return text + ": " + std::generic_category().message(error_number);
}

BoundSocket bind_udp(const IpAddress& address, uint16_t port, PortSharing sharing) {
    BoundSocket result;
    const auto fail = [&result](const std::string& what) {
        result.error_number = errno;
        result.error = describe_error(what, errno);
        result.socket.reset();
    };
    const int domain = address.family == Family::v4 ? AF_INET : AF_INET6;
    result.socket = FileDescriptor(::socket(domain, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!result.socket) {
        fail("cannot open a UDP socket");
        return result;
    }
    const int descriptor = result.socket.get();
    if (address.family == Family::v6 && !set_option(descriptor, IPPROTO_IPV6, IPV6_V6ONLY, 1)) {
        fail("cannot make a socket IPv6 only");
        return result;
    }
    // Both, because the others on this port may have set either of them.
    if (sharing == PortSharing::shared && (!set_option(descriptor, SOL_SOCKET, SO_REUSEADDR, 1) ||
                                           !set_option(descriptor, SOL_SOCKET, SO_REUSEPORT, 1))) {
        fail("cannot share a UDP port");
        return result;
    }
    const SocketAddress local = to_socket_address(address, port);
    if (bind(descriptor, local.get(), local.length) != 0)
        fail("cannot bind UDP port " + std::to_string(port) + " of " + to_string(address));
    return result;
}

bool join_group(int socket, const IpAddress& group, unsigned interface_index, std::string& error) {
    if (change_membership(socket, group, interface_index, IP_ADD_MEMBERSHIP, IPV6_JOIN_GROUP) ||
        errno == EADDRINUSE)
        return true;
    error = describe_error("cannot join " + to_string(group), errno);
    return false;
}

void leave_group(int socket, const IpAddress& group, unsigned interface_index) {
    change_membership(socket, group, interface_index, IP_DROP_MEMBERSHIP, IPV6_LEAVE_GROUP);
}

void receive_joined_groups_only(int socket, Family family) {
    // Where a kernel does not know the option, foreign groups on this port are received too, and harmless.
    if (family == Family::v4) {
        set_option(socket, IPPROTO_IP, IP_MULTICAST_ALL, 0);
    } else {
#ifdef IPV6_MULTICAST_ALL
        set_option(socket, IPPROTO_IPV6, IPV6_MULTICAST_ALL, 0);
#endif
    }
}

bool set_multicast_sending(int socket, Family family, int ttl, std::string& error) {
    const bool v4 = family == Family::v4;
    const int level = v4 ? IPPROTO_IP : IPPROTO_IPV6;
    if (!set_option(socket, level, v4 ? IP_MULTICAST_LOOP : IPV6_MULTICAST_LOOP, 1) ||
        !set_option(socket, level, v4 ? IP_MULTICAST_TTL : IPV6_MULTICAST_HOPS, ttl)) {
        error = describe_error("cannot set multicast sending with TTL " + std::to_string(ttl), errno);
        return false;
    }
    return true;
}

size_t set_receive_buffer(int socket, size_t bytes) {
    return set_buffer(socket, bytes, SO_RCVBUF, SO_RCVBUFFORCE);
}

size_t set_send_buffer(int socket, size_t bytes) {
    return set_buffer(socket, bytes, SO_SNDBUF, SO_SNDBUFFORCE);
}

} // namespace meridian::rtps::net
