#pragma once

// Instances of the builtin topics are identified by a GUID: as a key hash it is the 16 bytes of it.

#include <algorithm>

#include "rtps/wire/types.h"

namespace meridian::rtps {

inline KeyHash key_hash_of(const Guid& guid) {
    KeyHash key{};
    std::copy(guid.prefix.bytes.begin(), guid.prefix.bytes.end(), key.begin());
    for (size_t i = 0; i < 4; ++i)
        key[12 + i] = static_cast<uint8_t>(guid.entity.value >> (24 - 8 * i));
    return key;
}

inline Guid guid_of(const KeyHash& key) {
    Guid guid;
    std::copy(key.begin(), key.begin() + 12, guid.prefix.bytes.begin());
    for (size_t i = 12; i < 16; ++i)
        guid.entity.value = guid.entity.value << 8 | key[i];
    return guid;
}

} // namespace meridian::rtps
