#pragma once

// GUIDs, instance handles, sequence numbers and keys.

#include <cstring>

#include "meridian/base.h"
#include "meridian/sequence.h"

/// A GUID as 16 bytes in network order: 12 of prefix, 4 of entity id.
struct DDS_GUID_t {
    DDS_Octet value[16];
};
constexpr DDS_GUID_t DDS_GUID_UNKNOWN{};
inline bool operator==(const DDS_GUID_t& a, const DDS_GUID_t& b) {
    return std::memcmp(a.value, b.value, 16) == 0;
}
inline bool operator!=(const DDS_GUID_t& a, const DDS_GUID_t& b) {
    return !(a == b);
}

/// A GUID as four numbers of host byte order.
struct PRESGuid {
    DDS_UnsignedLong hostId;
    DDS_UnsignedLong appId;
    DDS_UnsignedLong instanceId;
    DDS_UnsignedLong entityId;
};
void DDS_GUID_copy_to_pres_guid(const DDS_GUID_t& guid, PRESGuid* out);

/// Identifies an instance or an entity: a key hash of `length` bytes (16, or 0 while invalid).
struct DDS_InstanceHandle_t {
    DDS_Octet keyHash[16];
    DDS_UnsignedLong length;
    DDS_Boolean isValid;
};
constexpr DDS_InstanceHandle_t DDS_HANDLE_NIL{};
inline bool operator==(const DDS_InstanceHandle_t& a, const DDS_InstanceHandle_t& b) {
    return a.isValid == b.isValid && (!a.isValid || std::memcmp(a.keyHash, b.keyHash, 16) == 0);
}

using DDS_InstanceHandleSeq = DDS_Sequence<DDS_InstanceHandle_t>;

struct DDS_SequenceNumber_t {
    DDS_Long high;
    DDS_UnsignedLong low;
};
constexpr DDS_SequenceNumber_t DDS_SEQUENCE_NUMBER_UNKNOWN{-1, 0xffffffffu};
inline bool operator==(const DDS_SequenceNumber_t& a, const DDS_SequenceNumber_t& b) {
    return a.high == b.high && a.low == b.low;
}

/// The key of a builtin topic: the entity's GUID as four numbers of host byte order.
struct DDS_BuiltinTopicKey_t {
    DDS_UnsignedLong value[4];
};
