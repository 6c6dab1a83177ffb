#pragma once

// IP addresses of both families as values, and their ways into locators and socket addresses. Any thread.

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "rtps/wire/types.h"

namespace meridian::rtps::net {

enum class Family : uint8_t { v4 = 0, v6 = 1 };

/// An IPv4 address stands in the last four bytes, as in a Locator.
struct IpAddress {
    Family family = Family::v4;
    std::array<uint8_t, 16> bytes{};

    bool is_loopback() const;
    bool is_multicast() const;
    bool is_unspecified() const;
    bool is_link_local() const; // 169.254/16, fe80::/10

    friend bool operator==(const IpAddress& a, const IpAddress& b) {
        return a.family == b.family && a.bytes == b.bytes;
    }
    friend bool operator!=(const IpAddress& a, const IpAddress& b) { return !(a == b); }
    friend bool operator<(const IpAddress& a, const IpAddress& b) {
        return a.family != b.family ? a.family < b.family : a.bytes < b.bytes;
    }
};

IpAddress make_v4(uint8_t a, uint8_t b, uint8_t c, uint8_t d);
IpAddress loopback_address(Family family);

/// The group of the standard, 239.255.0.1.
IpAddress multicast_group_v4();
/// The standard names no IPv6 group, and peers differ: some use ff02::ffff:239.255.0.1, others
/// ff1e::ffff:efff:1. Both are joined and announced to; the first is the one announced as an own locator.
std::array<IpAddress, 2> multicast_groups_v6();

/// Plain numbers only ("10.0.0.1", "fe80::1"), without brackets or scope. nullopt: not an address.
std::optional<IpAddress> parse_address(const std::string& text);
std::string to_string(const IpAddress& address);

/// True when the first prefix_length bits agree; false for different families.
bool same_network(const IpAddress& a, const IpAddress& b, unsigned prefix_length);

Locator to_locator(const IpAddress& address, uint32_t port);
/// nullopt: not a UDP locator.
std::optional<IpAddress> address_of(const Locator& locator);

/// Destination of a multicast group that is to be sent over the loopback interface only; never announced.
/// Where the other destination, the plain group, goes over loopback (since there is nothing else) this one is
/// silent, so that both together reach every interface once.
Locator to_host_locator(const IpAddress& group, uint32_t port);
/// The group's plain locator; nullopt for locators that are not of to_host_locator.
std::optional<Locator> plain_locator(const Locator& host_locator);

/// A socket address with its length, as the socket calls take it.
struct SocketAddress {
    sockaddr_storage storage{};
    socklen_t length = 0;

    sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }
    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
};
/// scope: interface index for link-local IPv6 addresses, otherwise unused.
SocketAddress to_socket_address(const IpAddress& address, uint16_t port, unsigned scope = 0);
/// Kind kLocatorInvalid for other address families.
Locator to_locator(const sockaddr* address);

} // namespace meridian::rtps::net
