#pragma once

// Wire values as values of the public API and back: times, GUIDs, handles, keys. Pure functions.

#include <optional>
#include <string>
#include <vector>

#include "meridian/guid.h"
#include "meridian/property.h"
#include "meridian/sequence.h"
#include "meridian/time.h"
#include "rtps/wire/discovery_data.h"

namespace meridian::discovery {

/// Everything with the wire's infinite seconds is infinite; fractions become whole nanoseconds.
DDS_Duration_t to_duration(rtps::WireDuration duration);
rtps::WireDuration to_wire(const DDS_Duration_t& duration);
/// kTimeInvalid becomes DDS_TIME_INVALID.
DDS_Time_t to_time(rtps::WireTime time);
/// nullopt for a time before 1970 or with too many nanoseconds.
std::optional<rtps::WireTime> to_wire_time(const DDS_Time_t& time);

/// The handle of the instance with that key; that of a remote entity has its GUID as the key.
DDS_InstanceHandle_t to_handle(const rtps::KeyHash& key);
DDS_InstanceHandle_t to_handle(const rtps::Guid& guid);
/// What the handle of an instance, a GUID or the hash of a plugin consists of.
rtps::KeyHash to_key_hash(const DDS_Octet (&octets)[16]);
/// nullopt for a handle that is not valid or is no GUID.
std::optional<rtps::Guid> to_guid(const DDS_InstanceHandle_t& handle);
DDS_BuiltinTopicKey_t to_key(const rtps::Guid& guid);

DDS_StringSeq to_string_seq(const std::vector<std::string>& strings);
/// Null elements become empty strings.
std::vector<std::string> to_strings(const DDS_StringSeq& strings);
DDS_OctetSeq to_octet_seq(const rtps::ByteBuffer& bytes);
rtps::ByteBuffer to_bytes(const DDS_OctetSeq& octets);

/// Null becomes empty.
std::string to_text(const char* text);
enum class Properties { all, propagated };
std::vector<rtps::Property> to_properties(const DDS_PropertyQosPolicy& policy, Properties which);

} // namespace meridian::discovery
