#include "rtps/wire/types.h"

#include <cstdio>
#include <cstring>

#include "platform/seeded_hash.h"
#include "platform/text.h"

namespace meridian::rtps {

namespace {

std::string hex(const uint8_t* bytes, size_t count) {
    std::string text;
    for (size_t i = 0; i < count; ++i)
        append_hex(text, bytes[i]);
    return text;
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
    const uint8_t* const address = locator.address.data();
    if (locator.kind == kLocatorUdpV4)
        return "udpv4:" + ipv4_text(address + 12) + port;
    if (locator.kind == kLocatorUdpV6)
        return "udpv6:[" + ipv6_text(address) + ']' + port;
    return "kind " + std::to_string(locator.kind) + ':' + hex(address, locator.address.size()) + port;
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
    return meridian::seeded_hash(prefix.bytes.data(), prefix.bytes.size());
}

size_t std::hash<meridian::rtps::Guid>::operator()(const meridian::rtps::Guid& guid) const noexcept {
    std::array<uint8_t, 16> bytes{};
    std::memcpy(bytes.data(), guid.prefix.bytes.data(), 12);
    std::memcpy(bytes.data() + 12, &guid.entity.value, 4);
    return meridian::seeded_hash(bytes.data(), bytes.size());
}
