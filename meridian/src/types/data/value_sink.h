#pragma once

// How the values of a sample are told, one after the other, to whoever prints or collects them.

#include <array>
#include <cstdint>
#include <string_view>

#include "types/model/type.h"

namespace meridian::types {

/// One value that has no parts. Which field counts follows from the kind of its type.
struct Scalar {
    uint64_t bits = 0;     // integers (sign-extended), booleans, characters, enumerators, bit masks, bit sets
    double real = 0;       // float and double
    std::string_view text; // string, as it was sent: not necessarily UTF-8
    std::u16string_view wide_text;
    std::array<uint8_t, 16> octets{}; // long double, least significant octet first

    int64_t integer() const { return static_cast<int64_t>(bits); }
};

/// Receives values in the order of the type. Types are told behind their aliases. Each operation returns
/// false to stop the walk.
class ValueSink {
  public:
    virtual ~ValueSink() = default;

    virtual bool scalar(const Type& type, const Scalar& value) = 0;

    /// A structure (with the members of its bases first), union or bit set. Absent members are not told.
    virtual bool begin_aggregate(const Type& type) = 0;
    /// The next value is the union's discriminator.
    virtual bool discriminator() = 0;
    /// The next value is this member.
    virtual bool member(const Member& member) = 0;
    virtual bool end_aggregate(const Type& type) = 0;

    /// A sequence, or an array of any number of dimensions, whose elements follow in the order of memory.
    virtual bool begin_collection(const Type& type, uint64_t count) = 0;
    /// The next value is the element of that number.
    virtual bool element(uint64_t index) = 0;
    virtual bool end_collection(const Type& type) = 0;

    /// A map: for each entry key() and its value, then mapped() and its value.
    virtual bool begin_map(const Type& type, uint64_t count) = 0;
    virtual bool key(uint64_t index) = 0;
    virtual bool mapped() = 0;
    virtual bool end_map(const Type& type) = 0;
};

} // namespace meridian::types
