#pragma once

// The headers of XCDR2: DHEADERs, which tell the length of what follows, and EMHEADERs, which tell id and
// length of a mutable type's member (OMG DDS-XTypes 1.3, 7.4.3.4).

#include "rtps/wire/byte_reader.h"

namespace meridian::rtps {

/// Reads a DHEADER and gives a reader of the bytes that it announces; `reader` passes them.
bool enter_delimited(ByteReader& reader, ByteReader& inner);

struct Xcdr2Member {
    uint32_t id = 0;
    bool must_understand = false;
    ByteReader body; // exactly the member's bytes, before the length that the value itself starts with
};

/// Whether a member header says that the number behind it is the start of the value, its own length.
constexpr bool shares_length(uint32_t header) {
    return (header >> 28 & 7) > 4;
}

/// Reads the header of the next member and passes its bytes. False when there is no room for it.
bool next_member(ByteReader& reader, Xcdr2Member& member);

} // namespace meridian::rtps
