#pragma once

// Contents of opaque samples, as indented lines: walks the serialized bytes in step with a type code.
//
// What it reads: XCDR1 (encapsulations CDR_BE, CDR_LE) and plain XCDR2 (CDR2_BE, CDR2_LE, where values of 8
// and 16 bytes align to 4), in the byte order of the sample's stream. A value whose bytes the classic kinds
// of types do not determine makes the walk fail in front of that value, because whatever was printed from
// there on would be wrong without looking wrong:
// - parameter lists and delimited encapsulations: nothing is printed;
// - optional members, bit fields, enumerations narrower than 32 bits, kinds beyond DDS_TK_VALUE (8-bit
//   integers, bit masks, bit sets, maps);
// - mutable types inside others; in XCDR2 also appendable ones, and collections of anything but primitives,
//   which have a header there. What the outermost type says of itself does not count: the encapsulation tells
//   how it was written.
// Wide strings are read as the standard has them, with a length in octets, unless the writer's vendor is
// known to count characters instead. Where that vendor has two forms, the one that uses up the sample is
// taken; where none does, the walk fails in front of the first wide text.

#include <cstdint>
#include <string>

#include "meridian/type_code.h"
#include "quixspy/DynamicTypePlugin.h"

class QuixAgentOutput;

/// Structures, unions, collections and aliases may nest this deep; recursive types would otherwise exhaust
/// the stack. The same limit as for dynamic data.
constexpr unsigned QUIXSPY_RAW_PRINTER_MAX_DEPTH = 120;
/// A sample may hold as many values as its size makes plausible: this many for each byte, and some for none.
/// Otherwise a length of four bytes could ask for thousands of millions of empty structures.
constexpr uint64_t QUIXSPY_RAW_PRINTER_VALUES_PER_BYTE = 16;
constexpr uint64_t QUIXSPY_RAW_PRINTER_VALUES_PER_SAMPLE = 4096;
/// Arrays of more dimensions cannot be printed.
constexpr uint32_t QUIXSPY_RAW_PRINTER_MAX_DIMENSIONS = 10;

/// Prints to one place, one sample at a time. Reading advances the stream of a sample and nothing sets it
/// back, so that a sample can be printed once. Failures are reported by false and end the walk at once; what
/// was printed until then stays. Not thread-safe, cheap to make.
class QuixSpyRawPrinter {
  public:
    /// Appends to `text`. With an `output`, the text is put there and emptied whenever it has become long, so
    /// that large samples need no large memory; what is left in it at the end is for the caller to put.
    /// Neither is owned.
    explicit QuixSpyRawPrinter(std::string& text, QuixAgentOutput* output = nullptr)
        : text_(text), output_(output) {}

    /// Three blanks per level; nothing for a level below 1.
    void print_indent(int32_t level);
    /// The value that the type code describes, at the position of the sample's stream. No line end behind it.
    /// `indent` is the level of its parts, 0 for a whole sample.
    bool print_sample(const DynamicType& sample, const DDS_TypeCode* typeCode, int32_t indent);
    /// The same for a primitive, an enumerator or a string, or an alias of one; fails for what has parts.
    bool print_primitive_sample(const DynamicType& sample, const DDS_TypeCode* typeCode);
    /// Reads the discriminator of a union without advancing the stream. Fails for types that cannot be one.
    bool get_discriminator_value(const DynamicType& sample, const DDS_TypeCode* typeCode, int32_t& value);

  private:
    std::string& text_;
    QuixAgentOutput* output_;
};
