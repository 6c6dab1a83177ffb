#include "rtps/net/address.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>

#include "platform/text.h"

namespace meridian::rtps::net {

namespace {

constexpr size_t kV4Offset = 12;
/// Above all kinds that are assigned or that makers use for themselves.
constexpr int32_t kHostKindOffset = 0x7ffe0000;

size_t first_byte(Family family) {
    return family == Family::v4 ? kV4Offset : 0;
}

} // namespace

bool IpAddress::is_loopback() const {
    if (family == Family::v4)
        return bytes[kV4Offset] == 127;
    return *this == loopback_address(Family::v6);
}

bool IpAddress::is_multicast() const {
    return family == Family::v4 ? (bytes[kV4Offset] & 0xf0) == 0xe0 : bytes[0] == 0xff;
}

bool IpAddress::is_unspecified() const {
    return std::all_of(bytes.begin() + first_byte(family), bytes.end(), [](uint8_t b) { return b == 0; });
}

bool IpAddress::is_link_local() const {
    if (family == Family::v4)
        return bytes[kV4Offset] == 169 && bytes[kV4Offset + 1] == 254;
    return bytes[0] == 0xfe && (bytes[1] & 0xc0) == 0x80;
}

IpAddress make_v4(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
    IpAddress address;
    address.bytes[12] = a;
    address.bytes[13] = b;
    address.bytes[14] = c;
    address.bytes[15] = d;
    return address;
}

IpAddress loopback_address(Family family) {
    if (family == Family::v4)
        return make_v4(127, 0, 0, 1);
    IpAddress address;
    address.family = Family::v6;
    address.bytes[15] = 1;
    return address;
}

IpAddress multicast_group_v4() {
    return make_v4(239, 255, 0, 1);
}

std::array<IpAddress, 2> multicast_groups_v6() {
    IpAddress link_scope;
    link_scope.family = Family::v6;
    link_scope.bytes = {0xff, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 239, 255, 0, 1};
    IpAddress global_scope;
    global_scope.family = Family::v6;
    global_scope.bytes = {0xff, 0x1e, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 239, 255, 0, 1};
    return {link_scope, global_scope};
}

std::optional<IpAddress> parse_address(const std::string& text) {
    IpAddress address;
    if (inet_pton(AF_INET, text.c_str(), address.bytes.data() + kV4Offset) == 1)
        return address;
    address.family = Family::v6;
    if (inet_pton(AF_INET6, text.c_str(), address.bytes.data()) == 1)
        return address;
    return std::nullopt;
}

std::string to_string(const IpAddress& address) {
    const uint8_t* const bytes = address.bytes.data() + first_byte(address.family);
    return address.family == Family::v4 ? ipv4_text(bytes) : ipv6_text(bytes);
}

bool same_network(const IpAddress& a, const IpAddress& b, unsigned prefix_length) {
    if (a.family != b.family)
        return false;
    const size_t start = first_byte(a.family);
    const unsigned available = static_cast<unsigned>(a.bytes.size() - start) * 8;
    const unsigned bits = std::min(prefix_length, available);
    const size_t whole = start + bits / 8;
    for (size_t i = start; i < whole; ++i) {
        if (a.bytes[i] != b.bytes[i])
            return false;
    }
    if (bits % 8 == 0)
        return true;
    const unsigned mask = 0xffu << (8 - bits % 8);
    return ((a.bytes[whole] ^ b.bytes[whole]) & mask & 0xffu) == 0;
}

Locator to_locator(const IpAddress& address, uint32_t port) {
    Locator locator;
    locator.kind = address.family == Family::v4 ? kLocatorUdpV4 : kLocatorUdpV6;
    locator.port = port;
    locator.address = address.bytes;
    return locator;
}

std::optional<IpAddress> address_of(const Locator& locator) {
    IpAddress address;
    if (locator.kind == kLocatorUdpV6) {
        address.family = Family::v6;
        address.bytes = locator.address;
        return address;
    }
    if (locator.kind != kLocatorUdpV4)
        return std::nullopt;
    // The upper bytes of an IPv4 locator mean nothing; some senders do not clear them.
    std::copy(locator.address.begin() + kV4Offset, locator.address.end(), address.bytes.begin() + kV4Offset);
    return address;
}

Locator to_host_locator(const IpAddress& group, uint32_t port) {
    Locator locator = to_locator(group, port);
    locator.kind += kHostKindOffset;
    return locator;
}

std::optional<Locator> plain_locator(const Locator& host_locator) {
    Locator locator = host_locator;
    if (locator.kind < kHostKindOffset)
        return std::nullopt;
    locator.kind -= kHostKindOffset;
    if (locator.kind != kLocatorUdpV4 && locator.kind != kLocatorUdpV6)
        return std::nullopt;
    return locator;
}

SocketAddress to_socket_address(const IpAddress& address, uint16_t port, unsigned scope) {
    SocketAddress result;
    if (address.family == Family::v4) {
        sockaddr_in in{};
        in.sin_family = AF_INET;
        in.sin_port = htons(port);
        std::memcpy(&in.sin_addr, address.bytes.data() + kV4Offset, sizeof in.sin_addr);
        std::memcpy(&result.storage, &in, sizeof in);
        result.length = sizeof in;
    } else {
        sockaddr_in6 in{};
        in.sin6_family = AF_INET6;
        in.sin6_port = htons(port);
        in.sin6_scope_id = scope;
        std::memcpy(&in.sin6_addr, address.bytes.data(), sizeof in.sin6_addr);
        std::memcpy(&result.storage, &in, sizeof in);
        result.length = sizeof in;
    }
    return result;
}

Locator to_locator(const sockaddr* address) {
    IpAddress ip;
    if (address->sa_family == AF_INET) {
        sockaddr_in in{};
        std::memcpy(&in, address, sizeof in);
        std::memcpy(ip.bytes.data() + kV4Offset, &in.sin_addr, sizeof in.sin_addr);
        return to_locator(ip, ntohs(in.sin_port));
    }
    if (address->sa_family == AF_INET6) {
        sockaddr_in6 in{};
        std::memcpy(&in, address, sizeof in);
        ip.family = Family::v6;
        std::memcpy(ip.bytes.data(), &in.sin6_addr, sizeof in.sin6_addr);
        return to_locator(ip, ntohs(in.sin6_port));
    }
    return {};
}

} // namespace meridian::rtps::net
