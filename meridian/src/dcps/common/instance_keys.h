#pragma once

// Key hashes as instance handles of the public interface, and back.

#include <algorithm>
#include <iterator>

#include "meridian/guid.h"
#include "meridian/type_plugin.h"
#include "rtps/wire/types.h"

namespace meridian::dcps {

/// The handle of the instance with that key.
inline DDS_InstanceHandle_t instance_handle(const rtps::KeyHash& key) {
    DDS_InstanceHandle_t handle{};
    std::copy(key.begin(), key.end(), handle.keyHash);
    handle.length = sizeof handle.keyHash;
    handle.isValid = true;
    return handle;
}

/// The key in a handle.
inline rtps::KeyHash to_key(const DDS_InstanceHandle_t& handle) {
    rtps::KeyHash key{};
    std::copy(std::begin(handle.keyHash), std::end(handle.keyHash), key.begin());
    return key;
}

/// The key that a plugin computed.
inline rtps::KeyHash to_key(const PRESKeyHash& hash) {
    rtps::KeyHash key{};
    std::copy(std::begin(hash.value), std::end(hash.value), key.begin());
    return key;
}

} // namespace meridian::dcps
