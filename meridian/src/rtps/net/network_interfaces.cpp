#include "rtps/net/network_interfaces.h"

#include <fnmatch.h>
#include <ifaddrs.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>

#include "platform/text.h"

namespace meridian::rtps::net {

namespace {

unsigned leading_ones(const IpAddress& mask) {
    unsigned count = 0;
    for (size_t i = mask.family == Family::v4 ? 12 : 0; i < mask.bytes.size(); ++i) {
        for (unsigned bit = 0x80; bit != 0; bit >>= 1, ++count) {
            if ((mask.bytes[i] & bit) == 0)
                return count;
        }
    }
    return count;
}

std::optional<IpAddress> ip_of(const sockaddr* address) {
    return address != nullptr ? address_of(to_locator(address)) : std::nullopt;
}

bool any_matches(const std::vector<std::string>& patterns, const std::string& text) {
    return std::any_of(patterns.begin(), patterns.end(), [&text](const std::string& pattern) {
        return fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
    });
}

bool selected(const std::vector<std::string>& patterns, const Interface& interface,
              const IpAddress& address) {
    return any_matches(patterns, interface.name) || any_matches(patterns, to_string(address));
}

bool passes(const InterfaceFilter& filter, const Interface& interface, const IpAddress& address) {
    if (filter.loopback_only)
        return interface.loopback;
    if (interface.loopback && filter.ignore_loopback)
        return false;
    if (selected(filter.deny, interface, address))
        return false;
    return filter.allow.empty() || selected(filter.allow, interface, address);
}

std::vector<Interface> apply(const std::vector<Interface>& all, Family family,
                             const InterfaceFilter& filter) {
    std::vector<Interface> usable;
    for (const Interface& interface : all) {
        if (!interface.up)
            continue;
        Interface kept = interface;
        kept.addresses.clear();
        for (const InterfaceAddress& entry : interface.addresses) {
            if (entry.address.family == family && passes(filter, interface, entry.address))
                kept.addresses.push_back(entry);
        }
        if (!kept.addresses.empty())
            usable.push_back(std::move(kept));
    }
    return usable;
}

/// getifaddrs does not tell which addresses are temporary, deprecated or doubled.
void mark_passing(std::map<unsigned, Interface>& interfaces) {
    std::ifstream file("/proc/thread-self/net/if_inet6");
    std::string address;
    std::string name;
    unsigned index = 0;
    unsigned prefix_length = 0;
    unsigned scope = 0;
    unsigned flags = 0;
    while (file >> address >> std::hex >> index >> prefix_length >> scope >> flags >> name) {
        const auto at = interfaces.find(index);
        if ((flags & (IFA_F_TEMPORARY | IFA_F_DEPRECATED | IFA_F_DADFAILED)) == 0 || at == interfaces.end())
            continue;
        for (InterfaceAddress& entry : at->second.addresses) {
            std::string hex;
            for (const uint8_t byte : entry.address.bytes)
                append_hex(hex, byte);
            entry.is_passing = entry.is_passing || (entry.address.family == Family::v6 && hex == address);
        }
    }
}

} // namespace

std::vector<Interface> enumerate_interfaces(std::string& error) {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        error = describe_error("cannot list the network interfaces", errno);
        return {};
    }
    std::map<unsigned, Interface> by_index;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        const unsigned index = if_nametoindex(entry->ifa_name);
        if (index == 0)
            continue; // it has just gone
        Interface& interface = by_index[index];
        const std::string label = entry->ifa_name;
        interface.name = label.substr(0, label.find(':')); // "eth0:1" is a label of an address of eth0
        interface.index = index;
        interface.up = (entry->ifa_flags & IFF_UP) != 0;
        interface.loopback = (entry->ifa_flags & IFF_LOOPBACK) != 0;
        interface.multicast = (entry->ifa_flags & IFF_MULTICAST) != 0;
        if (const std::optional<IpAddress> address = ip_of(entry->ifa_addr)) {
            const std::optional<IpAddress> mask = ip_of(entry->ifa_netmask);
            interface.addresses.push_back({*address, mask ? leading_ones(*mask) : 0});
        }
    }
    freeifaddrs(list);
    mark_passing(by_index);
    std::vector<Interface> result;
    for (auto& [index, interface] : by_index)
        result.push_back(std::move(interface));
    return result;
}

std::vector<Interface> usable_interfaces(const std::vector<Interface>& all, Family family,
                                         const InterfaceFilter& filter) {
    std::vector<Interface> usable = apply(all, family, filter);
    if (usable.empty() && filter.loopback_as_last_resort) {
        InterfaceFilter loopback;
        loopback.loopback_only = true;
        usable = apply(all, family, loopback);
    }
    return usable;
}

std::vector<IpAddress> announced_addresses(const std::vector<Interface>& usable, Family family) {
    std::array<std::vector<IpAddress>, 4> preferred; // lasting, passing, link-local and loopback ones
    for (const Interface& interface : usable) {
        for (const InterfaceAddress& entry : interface.addresses) {
            const IpAddress& address = entry.address;
            const bool is_loopback = interface.loopback || address.is_loopback();
            if (address.family == family)
                preferred[is_loopback               ? 3
                          : address.is_link_local() ? 2
                          : entry.is_passing        ? 1
                                                    : 0]
                    .push_back(address);
        }
    }
    const auto first = std::find_if(preferred.begin(), std::prev(preferred.end()),
                                    [](const std::vector<IpAddress>& some) { return !some.empty(); });
    return *first;
}

bool InterfaceMonitor::open(std::string& error) {
    socket_ = FileDescriptor(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE));
    sockaddr_nl local{};
    local.nl_family = AF_NETLINK;
    local.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR;
    if (!socket_ || bind(socket_.get(), reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
        error = describe_error("cannot watch the network interfaces for changes", errno);
        socket_.reset();
        return false;
    }
    return true;
}

bool InterfaceMonitor::drain() {
    if (!socket_)
        return false;
    bool any = false;
    char buffer[8192];
    for (;;) {
        const ssize_t size = recv(socket_.get(), buffer, sizeof buffer, MSG_DONTWAIT);
        if (size >= 0) {
            any = true;
        } else if (errno == ENOBUFS) {
            any = true; // notices were lost, which says as much
        } else if (errno != EINTR) {
            return any;
        }
    }
}

} // namespace meridian::rtps::net
