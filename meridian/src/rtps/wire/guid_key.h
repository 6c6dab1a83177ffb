#pragma once

// Instances of the builtin topics are identified by a GUID: as a key hash it is the 16 bytes of it.

#include <algorithm>

#include "rtps/wire/types.h"

namespace meridian::rtps {

inline KeyHash key_hash_of(const Guid& guid) {
    KeyHash key{};
    std::copy(guid.prefix.bytes.begin(), guid.prefix.bytes.end(), key.begin());
    const auto entity = octets_of(guid.entity.value);
    std::copy(entity.begin(), entity.end(), key.begin() + 12);
    return key;
}

inline Guid guid_of(const KeyHash& key) {
    Guid guid;
    std::copy(key.begin(), key.begin() + 12, guid.prefix.bytes.begin());
    guid.entity.value = word_of(key.data() + 12);
    return guid;
}

} // namespace meridian::rtps
