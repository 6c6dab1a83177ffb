#pragma once

// Type objects, minimal and complete, of every kind (OMG DDS-XTypes 1.3, 7.3.4.3 and annex B), decoded into
// one flat record. Applied annotations are passed over: none of them changes how data looks on the
// wire beyond what the flags already say.

#include <string>
#include <vector>

#include "rtps/wire/xcdr2_headers.h"
#include "types/network/type_identifier.h"

namespace meridian::types {

/// Bits of member flags that matter here.
constexpr uint16_t kMemberIsExternal = 0x0004;
constexpr uint16_t kMemberIsOptional = 0x0008;
constexpr uint16_t kMemberIsMustUnderstand = 0x0010;
constexpr uint16_t kMemberIsKey = 0x0020;
constexpr uint16_t kMemberIsDefault = 0x0040;
/// Bits of type flags.
constexpr uint16_t kTypeIsAppendable = 0x0002;
constexpr uint16_t kTypeIsMutable = 0x0004;
constexpr uint16_t kTypeIsNested = 0x0008;

struct TypeObjectMember {
    uint32_t id = 0;
    uint16_t flags = 0;
    TypeIdentifier type;                // structures, unions, annotations
    std::vector<int32_t> labels;        // unions
    int32_t value = 0;                  // enumerators: value; flags and bit fields: position
    uint8_t bit_count = 0;              // bit fields
    uint8_t holder = 0;                 // bit fields: primitive kind
    std::string name;                   // complete objects
    std::array<uint8_t, 4> name_hash{}; // minimal objects
};

struct TypeObject {
    bool complete = false;
    uint8_t kind = tk::kNone;
    uint16_t flags = 0;
    uint16_t discriminator_flags = 0;
    uint16_t bit_bound = 32;
    uint32_t bound = 0;
    std::string name;    // complete objects
    TypeIdentifier base; // structures; kind none when there is no base
    TypeIdentifier discriminator;
    TypeIdentifier element; // aliases, sequences, arrays, maps
    TypeIdentifier key;     // maps
    std::vector<uint32_t> dimensions;
    std::vector<TypeObjectMember> members;
};

enum class TypeObjectForm {
    xcdr2,
    plain // classic CDR without headers, optional members always there: as Fast DDS 2 announces them
};
/// What has a DHEADER in the form that knows them: appendable structures and sequences of constructed
/// elements. `content` gets a reader of what stands in it.
template <typename Content>
bool read_delimited(TypeObjectForm form, rtps::ByteReader& outer, Content content) {
    rtps::ByteReader inner;
    return form == TypeObjectForm::plain ? content(outer) : enter_delimited(outer, inner) && content(inner);
}
/// Reads one type object; what follows it is left. False when it is malformed.
bool read(rtps::ByteReader& reader, TypeObject& object, TypeObjectForm form = TypeObjectForm::xcdr2);

/// The bytes of the type object that `reader` stands before, header included; the reader passes them.
bool read_type_object_bytes(rtps::ByteReader& reader, rtps::ByteView& bytes);

/// A type object as it is stored and sent: beside its identifier.
struct TypeObjectPair {
    TypeIdentifier id;
    rtps::ByteView object; // header included, in the byte order of the stream; points into its bytes
};
/// Reads a sequence of them, as replies of the type lookup service hold one. False when it is malformed.
bool read_pairs(rtps::ByteReader& reader, std::vector<TypeObjectPair>& pairs);

/// A type object of the plain form beside its identifier. What it was read from is not kept: it cannot be
/// checked, since makers form the hashes of this form in ways of their own.
struct PlainTypeObject {
    TypeIdentifier id;
    TypeObject object;
    size_t size = 0; // serialized
};
/// Reads a sequence of them, as replies of Fast DDS 2 hold one. False when it is malformed.
bool read_plain_pairs(rtps::ByteReader& reader, std::vector<PlainTypeObject>& pairs);
/// Decodes a complete type object of the plain form as it is announced, behind its encapsulation header.
bool decode_plain(rtps::ByteView payload, TypeObject& object);

/// The form of a serialized type object that its hash is made of: little-endian, with zeros for padding,
/// where some peers send what was in their memory. Empty when it is malformed.
rtps::ByteBuffer canonical(rtps::ByteView bytes, rtps::Endianness order);
/// The hash of a serialized type object (7.3.4.5): what its identifier should be. `bytes` must be
/// canonical.
TypeHash hash_of(rtps::ByteView bytes, bool complete);

/// Bytes that it takes in memory, but for itself.
size_t memory_of(const TypeObject& object);

/// The identifiers that a type object refers to.
void collect_hashes(const TypeObject& object, std::vector<TypeHash>& hashes);

} // namespace meridian::types
