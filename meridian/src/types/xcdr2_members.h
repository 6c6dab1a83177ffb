#pragma once

// The members of a mutable type in XCDR2: each preceded by an EMHEADER with its id and length
// (OMG DDS-XTypes 1.3, 7.4.3.4.2).

#include "rtps/wire/byte_reader.h"

namespace meridian::types {

struct Xcdr2Member {
    uint32_t id = 0;
    bool must_understand = false;
    rtps::ByteReader body; // exactly the member's bytes, before the length that the value itself starts with
};

/// Reads the header of the next member and passes its bytes. False when there is no room for it.
bool next_member(rtps::ByteReader& reader, Xcdr2Member& member);

} // namespace meridian::types
