#include "rtps/wire/types.h"

#include <cstdio>
#include <cstring>

#include "platform/seeded_hash.h"

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

/// RFC 5952: lower case, the longest run of at least two zero groups (the first of equals) becomes "::".
std::string ipv6_text(const std::array<uint8_t, 16>& address) {
    std::array<unsigned, 8> groups{};
    for (size_t i = 0; i < 8; ++i)
        groups[i] = static_cast<unsigned>(address[2 * i] << 8 | address[2 * i + 1]);
    size_t best = 8;
    size_t best_length = 1;
    for (size_t i = 0; i < 8;) {
        size_t end = i;
        while (end < 8 && groups[end] == 0)
            ++end;
        if (end - i > best_length) {
            best = i;
            best_length = end - i;
        }
        i = end + 1;
    }
    std::string text;
    for (size_t i = 0; i < 8; ++i) {
        if (i == best) {
            text += "::";
            i += best_length - 1;
            continue;
        }
        if (!text.empty() && text.back() != ':')
            text += ':';
        char group[8];
        std::snprintf(group, sizeof group, "%x", groups[i]);
        text += group;
    }
    return text;
}

} // namespace

uint32_t word_of(const GuidPrefix& prefix, size_t index) {
    uint32_t word = 0;
    for (size_t i = 0; i < 4; ++i)
        word = word << 8 | prefix.bytes[index * 4 + i];
    return word;
}

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
    const auto& a = locator.address;
    if (locator.kind == kLocatorUdpV4) {
        return "udpv4:" + std::to_string(a[12]) + '.' + std::to_string(a[13]) + '.' + std::to_string(a[14]) +
               '.' + std::to_string(a[15]) + port;
    }
    if (locator.kind == kLocatorUdpV6)
        return "udpv6:[" + ipv6_text(a) + ']' + port;
    return "kind " + std::to_string(locator.kind) + ':' + hex(a.data(), a.size()) + port;
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
