#pragma once

// Type identifiers (OMG DDS-XTypes 1.3, 7.3.4.2 and annex B): what endpoints announce and what type objects
// refer to each other by. Always XCDR2.

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "rtps/wire/byte_reader.h"
#include "rtps/wire/byte_writer.h"

namespace meridian::types {

/// Discriminators of identifiers and kinds of type objects, as they stand on the wire.
namespace tk {
constexpr uint8_t kNone = 0x00;
constexpr uint8_t kBoolean = 0x01;
constexpr uint8_t kByte = 0x02;
constexpr uint8_t kInt16 = 0x03;
constexpr uint8_t kInt32 = 0x04;
constexpr uint8_t kInt64 = 0x05;
constexpr uint8_t kUint16 = 0x06;
constexpr uint8_t kUint32 = 0x07;
constexpr uint8_t kUint64 = 0x08;
constexpr uint8_t kFloat32 = 0x09;
constexpr uint8_t kFloat64 = 0x0a;
constexpr uint8_t kFloat128 = 0x0b;
constexpr uint8_t kInt8 = 0x0c;
constexpr uint8_t kUint8 = 0x0d;
constexpr uint8_t kChar8 = 0x10;
constexpr uint8_t kChar16 = 0x11;
constexpr uint8_t kString8 = 0x20;
constexpr uint8_t kString16 = 0x21;
constexpr uint8_t kAlias = 0x30;
constexpr uint8_t kEnum = 0x40;
constexpr uint8_t kBitmask = 0x41;
constexpr uint8_t kAnnotation = 0x50;
constexpr uint8_t kStructure = 0x51;
constexpr uint8_t kUnion = 0x52;
constexpr uint8_t kBitset = 0x53;
constexpr uint8_t kSequence = 0x60;
constexpr uint8_t kArray = 0x61;
constexpr uint8_t kMap = 0x62;
constexpr uint8_t kString8Small = 0x70;
constexpr uint8_t kString8Large = 0x71;
constexpr uint8_t kString16Small = 0x72;
constexpr uint8_t kString16Large = 0x73;
constexpr uint8_t kPlainSequenceSmall = 0x80;
constexpr uint8_t kPlainSequenceLarge = 0x81;
constexpr uint8_t kPlainArraySmall = 0x90;
constexpr uint8_t kPlainArrayLarge = 0x91;
constexpr uint8_t kPlainMapSmall = 0xa0;
constexpr uint8_t kPlainMapLarge = 0xa1;
constexpr uint8_t kStronglyConnected = 0xb0;
constexpr uint8_t kMinimal = 0xf1;
constexpr uint8_t kComplete = 0xf2;
} // namespace tk

/// What stands for a type object: its hash, or its place in a set of types that refer to each other in
/// cycles.
struct TypeHash {
    uint8_t kind = 0; // tk::kMinimal or tk::kComplete
    std::array<uint8_t, 14> bytes{};
    int32_t component_length = 0; // 0: not in a cycle
    int32_t component_index = 0;  // counts from 1

    friend bool operator==(const TypeHash& a, const TypeHash& b) {
        return a.kind == b.kind && a.bytes == b.bytes && a.component_length == b.component_length &&
               a.component_index == b.component_index;
    }
    friend bool operator<(const TypeHash& a, const TypeHash& b);
};

struct TypeIdentifier {
    /// Deeper nesting of anonymous collections is refused.
    static constexpr unsigned kMaxDepth = 32;

    uint8_t kind = tk::kNone;
    uint8_t equivalence = 0;                       // collections
    uint16_t element_flags = 0;                    // collections
    uint16_t key_flags = 0;                        // maps
    uint32_t bound = 0;                            // strings, sequences, maps; 0: unbounded
    std::vector<uint32_t> dimensions;              // arrays
    std::shared_ptr<const TypeIdentifier> element; // collections, never null there
    std::shared_ptr<const TypeIdentifier> key;     // maps, likewise
    TypeHash hash;                                 // hashed and strongly connected ones

    bool is_none() const { return kind == tk::kNone; }
    bool is_hashed() const {
        return kind == tk::kMinimal || kind == tk::kComplete || kind == tk::kStronglyConnected;
    }
    static TypeIdentifier of(const TypeHash& hash);
};

/// False when it is malformed; the reader has then failed. The reader must be set to XCDR2's
/// alignment.
bool read(rtps::ByteReader& reader, TypeIdentifier& id);
void write(rtps::ByteWriter& writer, const TypeIdentifier& id);

/// The hashes that an identifier rests on: its own, or those of its elements and keys.
void collect_hashes(const TypeIdentifier& id, std::vector<TypeHash>& hashes);

/// "complete 0123..." and the like, for messages.
std::string to_string(const TypeHash& hash);

} // namespace meridian::types
