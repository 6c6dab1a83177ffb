#include "rtps/wire/types.h"

#include <arpa/inet.h>

#include <cstdio>
#include <cstring>

namespace meridian::rtps {

namespace {

std::string hex(const uint8_t* bytes, size_t count) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 0xf];
    }
    return text;
}

/// bytes: as many as the family's addresses have.
std::string ip_text(int family, const uint8_t* bytes) {
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(family, bytes, text, sizeof text);
    return text;
}

size_t mix(size_t hash, uint64_t word) {
    const uint64_t mixed = (hash ^ word) * 0x9e3779b97f4a7c15u;
    return static_cast<size_t>(mixed ^ mixed >> 32);
}

} // namespace

std::string to_string(const GuidPrefix& prefix) {
    const uint8_t* bytes = prefix.bytes.data();
    return hex(bytes, 4) + '.' + hex(bytes + 4, 4) + '.' + hex(bytes + 8, 4);
}

std::string to_string(const Guid& guid) {
    char entity_text[16];
    std::snprintf(entity_text, sizeof entity_text, ":%08x", static_cast<unsigned>(guid.entity.value));
    return to_string(guid.prefix) + entity_text;
}

std::string to_string(const Locator& locator) {
    const std::string port = ':' + std::to_string(locator.port);
    const uint8_t* bytes = locator.address.data();
    if (locator.kind == kLocatorUdpV4)
        return "udpv4:" + ip_text(AF_INET, bytes + 12) + port;
    if (locator.kind == kLocatorUdpV6)
        return "udpv6:[" + ip_text(AF_INET6, bytes) + ']' + port;
    return "kind " + std::to_string(locator.kind) + ':' + hex(bytes, locator.address.size()) + port;
}

uint32_t fraction_from_nanoseconds(uint32_t nanoseconds) {
    constexpr uint64_t kBillion = 1'000'000'000;
    return static_cast<uint32_t>(((uint64_t{nanoseconds} << 32) + kBillion / 2) / kBillion);
}

uint32_t nanoseconds_from_fraction(uint32_t fraction) {
    constexpr uint64_t kBillion = 1'000'000'000;
    const uint64_t rounded = (fraction * kBillion + (uint64_t{1} << 31)) >> 32;
    // The topmost fractions would round up to a whole second, which is not a count of nanoseconds.
    return static_cast<uint32_t>(rounded < kBillion ? rounded : kBillion - 1);
}

} // namespace meridian::rtps

size_t std::hash<meridian::rtps::GuidPrefix>::operator()(
    const meridian::rtps::GuidPrefix& prefix) const noexcept {
    uint64_t first = 0;
    uint32_t last = 0;
    std::memcpy(&first, prefix.bytes.data(), sizeof first);
    std::memcpy(&last, prefix.bytes.data() + sizeof first, sizeof last);
    return meridian::rtps::mix(meridian::rtps::mix(0, first), last);
}

size_t std::hash<meridian::rtps::Guid>::operator()(const meridian::rtps::Guid& guid) const noexcept {
    return meridian::rtps::mix(std::hash<meridian::rtps::GuidPrefix>()(guid.prefix), guid.entity.value);
}
