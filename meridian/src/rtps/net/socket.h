#pragma once

// Ownership of descriptors, and the socket options that UDP traffic needs. Failures come back as false with a
// text that names the call and the system's reason.

#include <cstddef>
#include <cstdint>
#include <string>

#include "rtps/net/address.h"

namespace meridian::rtps::net {

/// Owns a descriptor and closes it. Movable.
class FileDescriptor {
  public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept;
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    ~FileDescriptor() { reset(); }

    int get() const { return descriptor_; }
    explicit operator bool() const { return descriptor_ >= 0; }
    void reset();

  private:
    int descriptor_ = -1;
};

/// "text: reason" for an errno value.
std::string describe_error(const std::string& text, int error_number);

enum class PortSharing {
    exclusive, // unicast: a second process gets an error, which is how the participant index is found
    shared,    // multicast: all participants of a host listen on one port
};

/// A bound UDP socket; the first error number is kept so that callers can tell "in use" from "not possible".
struct BoundSocket {
    FileDescriptor socket;
    int error_number = 0;
    std::string error; // set where socket is not
};
/// Binds to address (the unspecified one: all interfaces). IPv6 sockets are IPv6 only.
BoundSocket bind_udp(const IpAddress& address, uint16_t port, PortSharing sharing);

/// Joins the group on one interface. Being a member already is success.
bool join_group(int socket, const IpAddress& group, unsigned interface_index, std::string& error);
/// To be called for interfaces that have gone too: the system does not forget that the socket joined there,
/// and lets it join so many times only.
void leave_group(int socket, const IpAddress& group, unsigned interface_index);
/// Only datagrams of groups joined by this very socket are received by it.
void receive_joined_groups_only(int socket, Family family);
/// Multicast sent from this socket reaches members on this host, and goes ttl hops far; 0: not out of it.
bool set_multicast_sending(int socket, Family family, int ttl, std::string& error);

/// Ask for buffers of so many bytes (0: the system's default stays) and return what the system really gives.
size_t set_receive_buffer(int socket, size_t bytes);
size_t set_send_buffer(int socket, size_t bytes);

} // namespace meridian::rtps::net
