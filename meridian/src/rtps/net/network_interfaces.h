#pragma once

// The network interfaces of this host, which of them are used, and notice of their changes.

#include <string>
#include <vector>

#include "rtps/net/address.h"
#include "rtps/net/socket.h"

namespace meridian::rtps::net {

struct InterfaceAddress {
    IpAddress address;
    unsigned prefix_length = 0;
    bool is_passing = false; // an IPv6 address that the system gives up before long, for another one

    friend bool operator==(const InterfaceAddress& a, const InterfaceAddress& b) {
        return a.address == b.address && a.prefix_length == b.prefix_length && a.is_passing == b.is_passing;
    }
};

struct Interface {
    std::string name;
    unsigned index = 0;
    bool up = false;
    bool loopback = false;
    bool multicast = false;
    std::vector<InterfaceAddress> addresses; // both families, in the system's order

    friend bool operator==(const Interface& a, const Interface& b) {
        return a.name == b.name && a.index == b.index && a.up == b.up && a.loopback == b.loopback &&
               a.multicast == b.multicast && a.addresses == b.addresses;
    }
};

/// All interfaces that have an index, with their addresses, ordered by index. Empty with a text in error when
/// the system does not tell.
std::vector<Interface> enumerate_interfaces(std::string& error);

/// Which interfaces and addresses of one family are used.
struct InterfaceFilter {
    /// Interface names or addresses, with the wildcards * ? and []. Empty: all. An address selects only
    /// itself, a name all addresses of the interface.
    std::vector<std::string> allow;
    std::vector<std::string> deny; // wins over allow
    bool ignore_loopback = false;
    /// Loopback interfaces and nothing else; the lists and ignore_loopback do not count then.
    bool loopback_only = false;
    /// Where the rules above leave nothing, the loopback interface is used (so that at least peers on this
    /// host are reached).
    bool loopback_as_last_resort = false;
};

/// The interfaces that are up and pass the filter, each with the addresses of that family that pass.
std::vector<Interface> usable_interfaces(const std::vector<Interface>& all, Family family,
                                         const InterfaceFilter& filter);

/// The addresses of one family to announce to all participants: global ones that last, in order; passing
/// ones, and then link-local ones, only where there are no others; loopback ones only where there is nothing
/// else: some peers send to all addresses that they are told, also to what is their own loopback.
std::vector<IpAddress> announced_addresses(const std::vector<Interface>& usable, Family family);

/// Tells by a readable descriptor that links or addresses may have changed. One thread.
class InterfaceMonitor {
  public:
    /// False with a text in error when the system refuses; everything works then, but changes go unnoticed.
    bool open(std::string& error);
    /// -1 when not open. To be polled for reading.
    int descriptor() const { return socket_.get(); }
    /// Reads away all pending notices; true if there was any.
    bool drain();

  private:
    FileDescriptor socket_;
};

} // namespace meridian::rtps::net
