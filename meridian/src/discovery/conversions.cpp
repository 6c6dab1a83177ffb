#include "discovery/conversions.h"

#include <algorithm>

namespace meridian::discovery {

namespace {
constexpr uint32_t kNanosecondsPerSecond = 1000000000;

uint32_t word_at(const rtps::GuidPrefix& prefix, size_t index) {
    const uint8_t* bytes = prefix.bytes.data() + index * 4;
    return static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
           static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
}
} // namespace

DDS_Duration_t to_duration(rtps::WireDuration duration) {
    if (duration.seconds == rtps::kDurationInfinite.seconds)
        return DDS_DURATION_INFINITE;
    return {duration.seconds, rtps::nanoseconds_from_fraction(duration.fraction)};
}

rtps::WireDuration to_wire(const DDS_Duration_t& duration) {
    if (DDS_Duration_is_infinite(duration))
        return rtps::kDurationInfinite;
    const uint32_t nanoseconds =
        duration.nanosec < kNanosecondsPerSecond ? duration.nanosec : kNanosecondsPerSecond - 1;
    return {duration.sec, rtps::fraction_from_nanoseconds(nanoseconds)};
}

DDS_Time_t to_time(rtps::WireTime time) {
    if (time == rtps::kTimeInvalid)
        return DDS_TIME_INVALID;
    return {time.seconds, rtps::nanoseconds_from_fraction(time.fraction)};
}

std::optional<rtps::WireTime> to_wire_time(const DDS_Time_t& time) {
    if (time.sec < 0 || time.nanosec >= kNanosecondsPerSecond)
        return std::nullopt;
    return rtps::WireTime{time.sec, rtps::fraction_from_nanoseconds(time.nanosec)};
}

DDS_InstanceHandle_t to_handle(const rtps::Guid& guid) {
    DDS_InstanceHandle_t handle{};
    std::copy(guid.prefix.bytes.begin(), guid.prefix.bytes.end(), handle.keyHash);
    for (int i = 0; i < 4; ++i)
        handle.keyHash[12 + i] = static_cast<uint8_t>(guid.entity.value >> (24 - 8 * i));
    handle.length = sizeof handle.keyHash;
    handle.isValid = true;
    return handle;
}

std::optional<rtps::Guid> to_guid(const DDS_InstanceHandle_t& handle) {
    if (!handle.isValid || handle.length != sizeof handle.keyHash)
        return std::nullopt;
    rtps::Guid guid;
    std::copy(handle.keyHash, handle.keyHash + guid.prefix.bytes.size(), guid.prefix.bytes.begin());
    for (size_t i = 12; i < sizeof handle.keyHash; ++i)
        guid.entity.value = guid.entity.value << 8 | handle.keyHash[i];
    return guid;
}

DDS_BuiltinTopicKey_t to_key(const rtps::Guid& guid) {
    return {{word_at(guid.prefix, 0), word_at(guid.prefix, 1), word_at(guid.prefix, 2), guid.entity.value}};
}

DDS_StringSeq to_string_seq(const std::vector<std::string>& strings) {
    DDS_StringSeq sequence(static_cast<DDS_Long>(strings.size()));
    for (const std::string& string : strings)
        DDS_StringSeq_append(sequence, string.c_str());
    return sequence;
}

std::vector<std::string> to_strings(const DDS_StringSeq& strings) {
    std::vector<std::string> result;
    for (DDS_Long i = 0; i < strings.length(); ++i)
        result.emplace_back(strings[i] != nullptr ? strings[i] : "");
    return result;
}

DDS_OctetSeq to_octet_seq(const rtps::ByteBuffer& bytes) {
    DDS_OctetSeq sequence;
    const auto size = static_cast<DDS_Long>(bytes.size());
    if (sequence.ensure_length(size, size)) {
        for (DDS_Long i = 0; i < size; ++i)
            sequence[i] = bytes[static_cast<size_t>(i)];
    }
    return sequence;
}

rtps::ByteBuffer to_bytes(const DDS_OctetSeq& octets) {
    rtps::ByteBuffer bytes;
    bytes.reserve(static_cast<size_t>(octets.length()));
    for (DDS_Long i = 0; i < octets.length(); ++i)
        bytes.push_back(octets[i]);
    return bytes;
}

} // namespace meridian::discovery
