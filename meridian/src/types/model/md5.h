#pragma once

// MD5 (RFC 1321), which the standards use to shorten keys, member names and type objects. Not for security.

#include <array>
#include <cstdint>
#include <string_view>

#include "rtps/wire/types.h"

namespace meridian::types {

std::array<uint8_t, 16> md5(rtps::ByteView bytes);

/// The first four bytes of the MD5 of a member's name: its name hash in minimal type objects
/// (OMG DDS-XTypes 1.3, 7.3.4.5).
std::array<uint8_t, 4> name_hash(std::string_view name);
/// The member id that follows from a name for automatic hashed ids and for @hashid (7.3.1.2.1.1).
uint32_t hashed_member_id(std::string_view name);

} // namespace meridian::types
