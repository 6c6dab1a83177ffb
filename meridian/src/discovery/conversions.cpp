#include "discovery/conversions.h"

#include <algorithm>
#include <iterator>

#include "rtps/wire/guid_key.h"

namespace meridian::discovery {

namespace {
constexpr uint32_t kNanosecondsPerSecond = 1000000000;
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

DDS_InstanceHandle_t to_handle(const rtps::KeyHash& key) {
    DDS_InstanceHandle_t handle{};
    std::copy(key.begin(), key.end(), handle.keyHash);
    handle.length = sizeof handle.keyHash;
    handle.isValid = true;
    return handle;
}

DDS_InstanceHandle_t to_handle(const rtps::Guid& guid) {
    return to_handle(rtps::key_hash_of(guid));
}

rtps::KeyHash to_key_hash(const DDS_Octet (&octets)[16]) {
    rtps::KeyHash key;
    std::copy(std::begin(octets), std::end(octets), key.begin());
    return key;
}

std::optional<rtps::Guid> to_guid(const DDS_InstanceHandle_t& handle) {
    if (!handle.isValid || handle.length != sizeof handle.keyHash)
        return std::nullopt;
    return rtps::guid_of(to_key_hash(handle.keyHash));
}

DDS_BuiltinTopicKey_t to_key(const rtps::Guid& guid) {
    return {{word_of(guid.prefix, 0), word_of(guid.prefix, 1), word_of(guid.prefix, 2), guid.entity.value}};
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
        result.push_back(to_text(strings[i]));
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

std::string to_text(const char* text) {
    return text != nullptr ? text : "";
}

std::vector<rtps::Property> to_properties(const DDS_PropertyQosPolicy& policy, Properties which) {
    std::vector<rtps::Property> properties;
    for (DDS_Long i = 0; i < policy.value.length(); ++i) {
        const DDS_Property_t& property = policy.value[i];
        if (which == Properties::all || property.propagate)
            properties.push_back({to_text(property.name), to_text(property.value)});
    }
    return properties;
}

} // namespace meridian::discovery
