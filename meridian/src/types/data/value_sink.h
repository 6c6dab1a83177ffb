#pragma once

// How a walk hands over the values of a sample, one after the other, to a printer or collector.

#include <array>
#include <cstdint>
#include <string_view>

#include "rtps/wire/byte_reader.h"
#include "types/model/type.h"

namespace meridian::types {

/// One value that has no parts. Which field counts follows from the kind of its type.
struct Scalar {
    uint64_t bits = 0;     // integers (sign-extended), booleans, characters, enumerators, bit masks, bit sets
    double real = 0;       // float and double
    std::string_view text; // string, as it was sent: not necessarily UTF-8
    std::u16string_view wide_text;
    std::array<uint8_t, 16> octets{}; // long double, least significant octet first
    bool x86 = false;                 // of which ten count, as an x86 processor has it; else IEEE binary128

    int64_t integer() const { return static_cast<int64_t>(bits); }
};

/// Receives values in the order of the type. Types are told behind their aliases. Each operation returns
/// false to stop the walk.
class ValueSink {
  public:
    virtual ~ValueSink() = default;

    virtual bool scalar(const Type& type, const Scalar& value) = 0;

    /// A value with parts, until end(): a structure (the members of its bases come first), union or bit set,
    /// of which absent members are not told; a sequence, or an array of any number of dimensions, of `count`
    /// elements in the order of memory; a map of `count` entries.
    virtual bool begin(const Type& type, uint64_t count) = 0;
    virtual bool end(const Type& type) = 0;

    // What the next value is: the discriminator of a union, a member, the element of that number, the key of
    // the map's entry of that number, the value that belongs to it.
    virtual bool discriminator() { return true; }
    virtual bool member(const Member&) { return true; }
    virtual bool element(uint64_t) { return true; }
    virtual bool key(uint64_t) { return true; }
    virtual bool mapped() { return true; }

    /// Whether the elements of the sequence or array that begin() was just told of, which are of that
    /// primitive type, are to be told by primitives() alone. `reader` stands before all of them.
    virtual bool takes_primitives(const Type&, uint64_t /*count*/) const { return false; }
    virtual bool primitives(const Type&, rtps::ByteReader& /*reader*/, uint64_t /*count*/) { return true; }

    /// What was told is not what was sent.
    virtual void retract() {}
};

} // namespace meridian::types
