#pragma once

// Walks serialized data by its type: XCDR1 and XCDR2, both byte orders, final, appendable and mutable types
// (OMG DDS-XTypes 1.3, 7.4). All bytes are reached through ByteReader.

#include <string>
#include <vector>

#include "rtps/wire/byte_reader.h"
#include "rtps/wire/encapsulation.h"
#include "types/model/value_sink.h"

namespace meridian::types {

/// Values may nest this deep; recursive types would otherwise exhaust the stack. JSON parsers stop at 256
/// levels, of which one level here takes up to two.
constexpr unsigned kMaxValueDepth = 120;

/// Where serializers of the same version of CDR differ.
struct CdrDialect {
    enum class WideText : uint8_t {
        octets, // a wide string's length counts octets, as the standard has it
        units,  // it counts characters of two octets: Fast CDR 2
        quads,  // it counts characters of four octets, and a wide character takes four: Fast CDR 1
    };
    WideText wide_text = WideText::octets;
    /// XCDR2: which collections have a header. Collections of primitives have none, of structures and strings
    /// always.
    enum class Headers : uint8_t {
        standard, // also those of enumerators and bit masks, maps that are not of primitives only, and arrays
                  // of arrays
        flat,     // the same, but arrays of arrays count as one array: Cyclone DDS
        few, // arrays of arrays count as one, enumerators and bit masks as primitives, keys not at all: Fast
             // CDR 2
    };
    Headers headers = Headers::standard;
    /// XCDR1: whether alignment still counts from the start of an optional or mutable member after it ended.
    bool origin_stays = true;
    /// Optional members are sent as if they were not: dynamic types of Fast DDS 3.1.
    bool optional_headers = true;
    /// XCDR1: mutable types are sent as if they were final, by serializers that know no parameter lists: Fast
    /// CDR 1.
    bool lists = true;
    /// Payloads of keys alone are plain whatever the type says, and in order of the member ids: Cyclone DDS.
    bool flat_keys = false;
};

/// The members of a structure in the order of the wire: those of the outermost base first.
std::vector<const Member*> all_members(const Type& type);
/// Whether a structure, or one of its bases, has key members.
bool has_key_members(const Type& type);
/// The members of a structure that belong to a key, in order of their ids. A structure inside a key that has
/// no key members of its own belongs to it whole.
std::vector<const Member*> key_members(const Type& type, bool outermost);

/// One walk over one stream. Not thread-safe; cheap to make.
class CdrWalker {
  public:
    enum class Version : uint8_t { xcdr1, xcdr2 };

    CdrWalker(Version version, const CdrDialect& dialect, size_t payload_size)
        : version_(version), dialect_(dialect), budget_(16 * uint64_t{payload_size} + 4096) {}

    /// Reads one value; with a null sink it is only passed. False when the bytes do not make one, or the sink
    /// stopped.
    bool walk(rtps::ByteReader& reader, const Type& type, ValueSink* sink);

    /// A member that is present, and a reader of its value: exactly its bytes, or, where the encoding does
    /// not delimit members, whatever follows too.
    struct Located {
        const Member* member;
        rtps::ByteReader body;
    };
    /// Finds the members of a structure, its bases' included, in the order of the type, and passes the
    /// structure.
    bool locate_members(rtps::ByteReader& reader, const Type& type, std::vector<Located>& members);

    /// Tells that what is walked or located next is the value of a located member, until leave().
    void enter(const Member& member) { path_.push_back({&member, 0}); }
    void leave() { path_.pop_back(); }

    /// Takes only the members of structures that make the key: for payloads that consist of nothing else.
    /// Structures without key members count whole, except the outermost.
    void set_key_only() { key_only_ = true; }

    /// What the encapsulation of a payload says of its outermost structure or union, where that differs from
    /// its type.
    void set_outer_extensibility(DDS_ExtensibilityKind extensibility) {
        outer_ = extensibility;
        has_outer_ = true;
    }

    /// Refuses what no serializer writes, though it could be read: delimited values that do not fill their
    /// length, flags that are neither 0 nor 1.
    void set_strict() { strict_ = true; }
    /// Refuses wide strings with anything but zeros up to the next four octets as well: the rest of a text
    /// whose length was taken for octets, though it counts characters, looks like padding.
    void set_zeros_behind_wide_text() { zeros_behind_wide_text_ = true; }

    /// Where and why the first failure happened: "member a.b[3]: reason".
    const std::string& failure() const { return failure_; }

  private:
    struct Step {
        const Member* member; // or an element
        uint64_t index;
    };

    bool fail(const char* reason);
    bool enter_header(rtps::ByteReader& outer, rtps::ByteReader& inner);
    bool leave_header(const rtps::ByteReader& inner);
    bool leave_member(const rtps::ByteReader& body);
    bool walk_value(rtps::ByteReader& reader, const Type* type, ValueSink* sink);
    bool walk_scalar(rtps::ByteReader& reader, const Type& type, ValueSink* sink);
    bool read_scalar(rtps::ByteReader& reader, const Type& type, Scalar& value);
    bool read_integer(rtps::ByteReader& reader, size_t size, bool is_signed, uint64_t& bits);
    bool read_wide_text(rtps::ByteReader& reader, Scalar& value);
    bool stands_before_zeros(const rtps::ByteReader& reader);
    bool read_long_double(rtps::ByteReader& reader, Scalar& value);
    bool walk_bitset(rtps::ByteReader& reader, const Type& type, ValueSink* sink);

    bool walk_structure(rtps::ByteReader& reader, const Type& type, ValueSink* sink);
    bool walk_plain_members(rtps::ByteReader& reader, const Type& type, bool may_end_early, ValueSink* sink,
                            std::vector<Located>* located);
    bool walk_plain_member(rtps::ByteReader& reader, const Member& member, ValueSink* sink,
                           std::vector<Located>* located);
    /// Whether the number in the header of a mutable member tells nothing about where the member ends: Fast
    /// CDR 2 puts the count of a map there.
    bool has_open_end(const Member& member) const;
    /// Finds the end of such a member by walking it. `header` stands at its header.
    bool measure_map(const rtps::ByteReader& header, const Member& member, rtps::ByteReader& reader,
                     rtps::ByteReader& body);
    bool find_mutable_members(rtps::ByteReader& reader, const Type& type, std::vector<Located>& members);
    bool read_mutable_header(rtps::ByteReader& reader, uint32_t& id, bool& must_understand, bool& end,
                             rtps::ByteReader& body);
    bool walk_union(rtps::ByteReader& reader, const Type& type, ValueSink* sink);
    bool walk_union_parts(rtps::ByteReader& discriminator, rtps::ByteReader& branch, const Type& type,
                          ValueSink* sink);
    bool walk_mutable_union(rtps::ByteReader& reader, const Type& type, ValueSink* sink);
    bool walk_member(rtps::ByteReader& reader, const Member& member, ValueSink* sink);

    bool walk_collection(rtps::ByteReader& reader, const Type& type, ValueSink* sink);
    bool walk_elements(rtps::ByteReader& reader, const Type& type, uint64_t count, ValueSink* sink);
    bool skip_primitives(rtps::ByteReader& reader, size_t size, uint64_t count);
    bool walk_map(rtps::ByteReader& reader, const Type& type, ValueSink* sink);
    bool has_header(const Type& collection) const;
    bool is_primitive_like(const Type* type) const;

    /// The header of an optional or mutable XCDR1 member. Size 0 of an optional one means absent; `end` is
    /// set by the header that ends a list.
    struct Xcdr1Header {
        uint32_t id = 0;
        uint32_t size = 0;
        bool must_understand = false;
        bool end = false;
    };
    bool read_xcdr1_header(rtps::ByteReader& reader, Xcdr1Header& header);
    bool take_xcdr1_body(rtps::ByteReader& reader, uint32_t size, rtps::ByteReader& body);

    DDS_ExtensibilityKind extensibility_of(const Type& type) const;

    Version version_;
    CdrDialect dialect_;
    /// Values that may still be visited: types whose values take no bytes must not make endless work of a
    /// short sample.
    uint64_t budget_;
    bool key_only_ = false;
    bool strict_ = false;
    bool zeros_behind_wide_text_ = false;
    bool has_outer_ = false;
    DDS_ExtensibilityKind outer_ = DDS_FINAL_EXTENSIBILITY;
    std::vector<Step> path_;
    std::u16string wide_;
    std::string failure_;
};

} // namespace meridian::types
