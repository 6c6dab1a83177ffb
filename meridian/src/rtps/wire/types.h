#pragma once

// The value types that RTPS messages are made of (OMG DDSI-RTPS 2.5, clause 8.2 and 9.3). Plain values:
// copyable, comparable, without invariants beyond those stated. Nothing here allocates except ByteBuffer.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace meridian::rtps {

/// Bytes with another owner, who says how long they are valid.
struct ByteView {
    const uint8_t* data = nullptr;
    size_t size = 0;

    ByteView() = default;
    ByteView(const uint8_t* bytes, size_t count) : data(bytes), size(count) {}
    ByteView(const std::vector<uint8_t>& bytes) : data(bytes.data()), size(bytes.size()) {}

    bool empty() const { return size == 0; }
    const uint8_t* begin() const { return data; }
    const uint8_t* end() const { return data + size; }
};

using ByteBuffer = std::vector<uint8_t>;

enum class Endianness : uint8_t { big = 0, little = 1 };

/// Byte order of this machine.
constexpr Endianness native_endianness() {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    return Endianness::little;
#else
    return Endianness::big;
#endif
}

/// Four octets as a number, whatever the byte order of a message, the highest octet first.
constexpr uint32_t word_of(const uint8_t* octets) {
    return uint32_t{octets[0]} << 24 | uint32_t{octets[1]} << 16 | uint32_t{octets[2]} << 8 | octets[3];
}
constexpr std::array<uint8_t, 4> octets_of(uint32_t word) {
    return {static_cast<uint8_t>(word >> 24), static_cast<uint8_t>(word >> 16),
            static_cast<uint8_t>(word >> 8), static_cast<uint8_t>(word)};
}

struct ProtocolVersion {
    uint8_t major = 2;
    uint8_t minor = 3;
    friend bool operator==(ProtocolVersion a, ProtocolVersion b) {
        return a.major == b.major && a.minor == b.minor;
    }
};

struct VendorId {
    std::array<uint8_t, 2> bytes{};
    friend bool operator==(VendorId a, VendorId b) { return a.bytes == b.bytes; }
};

constexpr VendorId kOpenSplice{{0x01, 0x02}};
constexpr VendorId kOpenDds{{0x01, 0x03}};
constexpr VendorId kFastDds{{0x01, 0x0f}};
constexpr VendorId kCycloneDds{{0x01, 0x10}};
constexpr VendorId kDustDds{{0x01, 0x14}};
constexpr VendorId kEmbeddedRtps{{0x0d, 0x25}}; // which its makers were not assigned

/// The vendor id that this library announces: one that no maker was assigned.
constexpr VendorId kOwnVendorId{{0x01, 0x7e}};

struct GuidPrefix {
    std::array<uint8_t, 12> bytes{};
    /// Several times for each sample, so without the call of memcmp that arrays of this size cost.
    friend bool operator==(const GuidPrefix& a, const GuidPrefix& b) {
        return word<uint64_t>(a, 0) == word<uint64_t>(b, 0) && word<uint32_t>(a, 8) == word<uint32_t>(b, 8);
    }
    friend bool operator!=(const GuidPrefix& a, const GuidPrefix& b) { return !(a == b); }
    friend bool operator<(const GuidPrefix& a, const GuidPrefix& b) { return a.bytes < b.bytes; }

  private:
    template <typename Word>
    static Word word(const GuidPrefix& prefix, size_t offset) {
        Word value;
        std::memcpy(&value, prefix.bytes.data() + offset, sizeof value);
        return value;
    }
};
constexpr GuidPrefix kUnknownPrefix{};

/// Three key bytes and the entity kind, held as one number with the kind in the low byte.
struct EntityId {
    uint32_t value = 0;

    constexpr uint8_t kind() const { return static_cast<uint8_t>(value & 0xff); }
    constexpr bool is_builtin() const { return (value & 0xc0) == 0xc0; }
    constexpr bool is_writer() const { return (value & 0x3f) == 0x02 || (value & 0x3f) == 0x03; }
    constexpr bool is_reader() const { return (value & 0x3f) == 0x04 || (value & 0x3f) == 0x07; }
    constexpr bool has_key() const { return (value & 0x3f) == 0x02 || (value & 0x3f) == 0x07; }

    friend constexpr bool operator==(EntityId a, EntityId b) { return a.value == b.value; }
    friend constexpr bool operator!=(EntityId a, EntityId b) { return a.value != b.value; }
    friend constexpr bool operator<(EntityId a, EntityId b) { return a.value < b.value; }
};

namespace entity {
constexpr EntityId unknown{0x00000000};
constexpr EntityId participant{0x000001c1};
constexpr EntityId publications_writer{0x000003c2};
constexpr EntityId publications_reader{0x000003c7};
constexpr EntityId subscriptions_writer{0x000004c2};
constexpr EntityId subscriptions_reader{0x000004c7};
constexpr EntityId participant_writer{0x000100c2};
constexpr EntityId participant_reader{0x000100c7};
constexpr EntityId participant_message_writer{0x000200c2};
constexpr EntityId participant_message_reader{0x000200c7};
constexpr EntityId type_lookup_request_writer{0x000300c3};
constexpr EntityId type_lookup_request_reader{0x000300c4};
constexpr EntityId type_lookup_reply_writer{0x000301c3};
constexpr EntityId type_lookup_reply_reader{0x000301c4};
} // namespace entity

enum EntityKind : uint8_t {
    kUserWriterWithKey = 0x02,
    kUserWriterNoKey = 0x03,
    kUserReaderNoKey = 0x04,
    kUserReaderWithKey = 0x07,
};

struct Guid {
    GuidPrefix prefix;
    EntityId entity;
    friend bool operator==(const Guid& a, const Guid& b) {
        return a.entity == b.entity && a.prefix == b.prefix;
    }
    friend bool operator!=(const Guid& a, const Guid& b) { return !(a == b); }
    friend bool operator<(const Guid& a, const Guid& b) {
        return a.prefix != b.prefix ? a.prefix < b.prefix : a.entity < b.entity;
    }
};

/// One of the three words of a prefix: by convention those of the host, the process and the participant.
inline uint32_t word_of(const GuidPrefix& prefix, size_t index) {
    return word_of(prefix.bytes.data() + 4 * index);
}

/// "01020304.05060708.090a0b0c:000003c2", for logs and tests.
std::string to_string(const Guid& guid);
std::string to_string(const GuidPrefix& prefix);

using SequenceNumber = int64_t;
constexpr SequenceNumber kSequenceNumberUnknown = -(SequenceNumber{1} << 32); // high word -1, low word 0

using FragmentNumber = uint32_t; // counts from 1
using Count = int32_t;           // of heartbeats and acknowledgements; compared modulo 2^32

/// A base and up to 256 bits; bit i stands for base + i (9.4.2.6). num_bits <= 256.
template <typename Number>
struct NumberSet {
    static constexpr uint32_t kMaxBits = 256;

    Number base{};
    uint32_t num_bits = 0;
    std::array<uint32_t, 8> bitmap{};

    bool empty() const {
        for (uint32_t word : bitmap) {
            if (word != 0)
                return false;
        }
        return true;
    }
    bool contains(Number n) const {
        if (n < base || static_cast<uint64_t>(n - base) >= num_bits)
            return false;
        const auto bit = static_cast<uint32_t>(n - base);
        return (bitmap[bit / 32] >> (31 - bit % 32) & 1u) != 0;
    }
    /// Adds n; false (and no change) when n is not within 256 of the base.
    bool insert(Number n) {
        if (n < base || static_cast<uint64_t>(n - base) >= kMaxBits)
            return false;
        const auto bit = static_cast<uint32_t>(n - base);
        bitmap[bit / 32] |= 1u << (31 - bit % 32);
        if (bit + 1 > num_bits)
            num_bits = bit + 1;
        return true;
    }
    friend bool operator==(const NumberSet& a, const NumberSet& b) {
        return a.base == b.base && a.num_bits == b.num_bits && a.bitmap == b.bitmap;
    }
};
using SequenceNumberSet = NumberSet<SequenceNumber>;
using FragmentNumberSet = NumberSet<FragmentNumber>;

enum LocatorKind : int32_t {
    kLocatorInvalid = -1,
    kLocatorReserved = 0,
    kLocatorUdpV4 = 1,
    kLocatorUdpV6 = 2,
};

struct Locator {
    int32_t kind = kLocatorInvalid;
    uint32_t port = 0;
    std::array<uint8_t, 16> address{}; // IPv4 in the last four bytes

    friend bool operator==(const Locator& a, const Locator& b) {
        return a.kind == b.kind && a.port == b.port && a.address == b.address;
    }
    friend bool operator!=(const Locator& a, const Locator& b) { return !(a == b); }
    friend bool operator<(const Locator& a, const Locator& b) {
        if (a.kind != b.kind)
            return a.kind < b.kind;
        return a.port != b.port ? a.port < b.port : a.address < b.address;
    }
};
using LocatorList = std::vector<Locator>;

/// "udpv4:127.0.0.1:7400", "udpv6:[::1]:7400", or "kind 16:..." for others.
std::string to_string(const Locator& locator);

/// Seconds and 2^-32 fractions, as Time_t and Duration_t stand on the wire (9.3.2.1).
struct WireTime {
    int32_t seconds = 0;
    uint32_t fraction = 0;
    friend bool operator==(WireTime a, WireTime b) {
        return a.seconds == b.seconds && a.fraction == b.fraction;
    }
    friend bool operator!=(WireTime a, WireTime b) { return !(a == b); }
    friend bool operator<(WireTime a, WireTime b) {
        return a.seconds != b.seconds ? a.seconds < b.seconds : a.fraction < b.fraction;
    }
};
using WireDuration = WireTime;
constexpr WireTime kTimeInvalid{-1, 0xffffffff};
constexpr WireDuration kDurationInfinite{0x7fffffff, 0xffffffff};

/// Conversions between 2^-32 fractions and nanoseconds; rounding to nearest, so that a round trip of whole
/// nanoseconds is exact. fraction_from_nanoseconds takes 0..999,999,999.
uint32_t fraction_from_nanoseconds(uint32_t nanoseconds);
uint32_t nanoseconds_from_fraction(uint32_t fraction);

/// 16 bytes that identify an instance of a keyed topic.
using KeyHash = std::array<uint8_t, 16>;

} // namespace meridian::rtps

template <>
struct std::hash<meridian::rtps::GuidPrefix> {
    size_t operator()(const meridian::rtps::GuidPrefix& prefix) const noexcept;
};
template <>
struct std::hash<meridian::rtps::Guid> {
    size_t operator()(const meridian::rtps::Guid& guid) const noexcept;
};
