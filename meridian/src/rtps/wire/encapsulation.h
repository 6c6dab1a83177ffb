#pragma once

// The four bytes before every serialized payload (OMG DDSI-RTPS 2.5, 10; DDS-XTypes 1.3, 7.6.3.1.2): what
// encoding and byte order follow. They are big-endian whatever they announce.

#include "rtps/wire/byte_reader.h"
#include "rtps/wire/byte_writer.h"

namespace meridian::rtps {

constexpr size_t kEncapsulationSize = 4;

/// Representation identifiers without their lowest bit, which tells the byte order.
enum class Encoding : uint16_t {
    cdr = 0x0000,    // XCDR1, final and appendable types
    pl_cdr = 0x0002, // XCDR1, mutable types and parameter lists
    xml = 0x0004,
    cdr2 = 0x0006,           // XCDR2, final types
    delimited_cdr2 = 0x0008, // XCDR2, appendable types
    pl_cdr2 = 0x000a,        // XCDR2, mutable types
};

struct Encapsulation {
    uint16_t identifier = 0;
    uint16_t options = 0;

    Endianness endianness() const { return (identifier & 1) != 0 ? Endianness::little : Endianness::big; }
    /// Any value can come from the wire; one that is not an enumerator is an unknown encoding.
    Encoding encoding() const { return static_cast<Encoding>(identifier & 0xfffe); }
    /// Bytes at the end that only pad the payload to a multiple of four, as far as its writer says so.
    size_t padding() const { return options & 3u; }
};

/// Splits a payload into its encapsulation and what follows; false when it is shorter than four bytes.
bool read_encapsulation(ByteView payload, Encapsulation& encapsulation, ByteView& body);
void write_encapsulation(ByteBuffer& bytes, Encoding encoding, Endianness order);

} // namespace meridian::rtps
