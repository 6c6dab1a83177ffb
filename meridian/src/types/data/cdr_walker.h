#pragma once

// Walks serialized data by its type: XCDR1 and XCDR2, both byte orders, final, appendable and mutable types
// (OMG DDS-XTypes 1.3, 7.4). All bytes are reached through ByteReader.

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "rtps/wire/byte_reader.h"
#include "rtps/wire/xcdr2_headers.h"
#include "types/data/dialect.h"
#include "types/data/members.h"
#include "types/data/nesting.h"
#include "types/data/value_sink.h"

namespace meridian::types {

/// A member that is present, and a reader of its value: exactly its bytes, or, where the encoding does not
/// delimit members, whatever follows too.
struct LocatedMember {
    const Member* member = nullptr;
    rtps::ByteReader body;
    bool present = false;
};

/// Memory of a walk, for the next one to use again.
struct WalkBuffers {
    // Of each structure on the way down, behind those of the structure around it.
    std::vector<LocatedMember> located;
    std::vector<KeyMember> key_members;
    std::u16string wide_text;
};

/// The end of a list that grows on the way down and shrinks on the way up. An entry's address changes
/// whenever the list grows.
template <typename T>
class ListEnd {
  public:
    explicit ListEnd(std::vector<T>& list) : list_(list), first_(list.size()) {}
    ~ListEnd() { list_.erase(list_.begin() + static_cast<std::ptrdiff_t>(first_), list_.end()); }
    ListEnd(const ListEnd&) = delete;
    ListEnd& operator=(const ListEnd&) = delete;

    std::vector<T>& list() { return list_; }
    void add(const T& entry) { list_.push_back(entry); }
    /// Entries since this end was made; those of ends made later must be gone.
    size_t size() const { return list_.size() - first_; }
    T& operator[](size_t index) { return list_[first_ + index]; }

  private:
    std::vector<T>& list_;
    const size_t first_;
};

/// One walk over one stream. Not thread-safe; cheap to make.
class CdrWalker {
  public:
    /// `buffers` must outlive the walker and belong to it alone.
    CdrWalker(CdrVersion version, const CdrDialect& dialect, size_t payload_size, WalkBuffers& buffers)
        : version_(version),
          dialect_(dialect),
          budget_(4 * uint64_t{payload_size} + 4096),
          buffers_(buffers) {}

    /// Reads one value; with a null sink it is only passed. False when the bytes do not make one, or the sink
    /// stopped.
    bool walk(rtps::ByteReader& reader, const Type& type, ValueSink* sink);

    using Located = ListEnd<LocatedMember>;
    /// Finds the members of a structure, its bases' included, in the order of the type; of plain ones only
    /// those up to `last`. What is found counts even when what follows cannot be decoded.
    void locate_members(rtps::ByteReader& reader, const Type& type, const Member* last, Located& members);

    /// Tells that what is walked or located next is the value of a located member, until leave(). False when
    /// values nest too deeply; then there is nothing to leave.
    bool enter(const Member& member) { return descend(&member, 0); }
    void leave() { path_.pop(); }

    /// Takes only the members of structures that make the key: for payloads that consist of nothing else.
    /// Structures without key members count whole, except the outermost.
    void set_key_only() { key_only_ = true; }
    /// Tells a sink of no other members than those, of samples with data: of structures in collections that
    /// are key members.
    void set_only_keys_told() { only_keys_told_ = true; }

    /// What the encapsulation of a payload says of its outermost structure or union, where that differs from
    /// its type.
    void set_outer_extensibility(DDS_ExtensibilityKind extensibility) {
        outer_ = extensibility;
        has_outer_ = true;
    }

    /// Counts what speaks against the dialect, and tells no reason of a failure: for trials. judge_gaps: so
    /// does every gap in front of an aligned value that is not zero.
    void set_trial(bool judge_gaps) {
        trial_ = true;
        judge_gaps_ = judge_gaps;
    }
    /// Values that no serializer writes, though they could be read, count few; delimited values that do not
    /// fill their length, as only newer versions of a type have them, count many.
    uint32_t objections() const { return objections_; }

    /// Where and why the first failure happened: "member a.b[3]: reason".
    const std::string& failure() const { return failure_; }

  private:
    struct Step {
        const Member* member; // or, when null, the element of this index
        uint64_t index;
    };

    static constexpr uint32_t kManyObjections = 1000;

    bool fail(const char* reason);
    /// To a member or, when that is null, to the element of that index.
    bool descend(const Member* member, uint64_t index);
    bool enter_header(rtps::ByteReader& outer, rtps::ByteReader& inner);
    /// Hands `walk` what the header of a delimited value says belongs to it, or, without a header, all.
    template <typename Walk>
    bool walk_within(bool has_header, rtps::ByteReader& outer, Walk walk) {
        if (!has_header)
            return walk(outer);
        rtps::ByteReader inner;
        return enter_header(outer, inner) && walk(inner) && leave_delimited(inner, 0);
    }
    void object(bool objected, uint32_t weight = 1) { objections_ += objected ? weight : 0; }
    void judge_gap(const rtps::ByteReader& reader, size_t alignment) {
        if (judge_gaps_ && alignment != 0)
            object(!reader.zeros_follow(reader.padding(std::min<size_t>(alignment, 8))));
    }
    bool leave_delimited(const rtps::ByteReader& inner, size_t padding);
    bool leave_member(const rtps::ByteReader& body);
    bool leave_member_of(rtps::ByteReader& outer, const rtps::ByteReader& body);
    bool walk_value(rtps::ByteReader& reader, const Type* type, ValueSink* sink);
    bool walk_known(rtps::ByteReader& reader, const Type& type, ValueSink* sink);
    bool walk_scalar(rtps::ByteReader& reader, const Type& type, ValueSink* sink);
    bool read_scalar(rtps::ByteReader& reader, const Type& type, Scalar& value);
    bool read_integer(rtps::ByteReader& reader, size_t size, bool is_signed, uint64_t& bits);
    size_t wide_size() const; // of a wide character; 0: it has a length before it
    bool read_wide_character(rtps::ByteReader& reader, uint64_t& bits);
    bool read_wide_text(rtps::ByteReader& reader, Scalar& value);
    void object_to(const Type& type, const Scalar& value);
    /// Octets behind a text or bit set that only fill up to the next value are mostly zeros; in another
    /// dialect they are the rest of it.
    void object_to_padding(const rtps::ByteReader& reader, size_t size);
    bool read_long_double(rtps::ByteReader& reader, Scalar& value);
    bool walk_bitset(rtps::ByteReader& reader, const Type& type, ValueSink* sink);

    /// A structure or union.
    bool walk_aggregate(rtps::ByteReader& reader, const Type& type, ValueSink* sink);
    /// The sink, or null where it is not told of this member of a structure.
    ValueSink* told_of(const Type& type, const Member& member, ValueSink* sink) const {
        return only_keys_told_ && !member.key && has_key_members(type) ? nullptr : sink;
    }
    bool walk_mutable_structure(rtps::ByteReader& reader, const Type& type, ValueSink* sink);
    bool walk_plain_members(rtps::ByteReader& reader, const Type& type, bool may_end_early, ValueSink* sink,
                            Located* located);
    bool walk_plain_member(rtps::ByteReader& reader, const Member& member, ValueSink* sink, Located* located);
    struct MutableMember : rtps::Xcdr2Member {
        bool end = false;    // no member: the list ends here
        bool beyond = false; // its number reaches beyond the sample
    };
    /// Whether the number in the header of a mutable member tells nothing about where the member ends: Fast
    /// CDR 2 puts the count of a map there, counts wide characters as four octets, and has arrays of booleans
    /// of dynamic types begin there.
    bool has_open_end(const Member& member) const;
    /// Finds the end of such a member by walking it. `header` stands at its header. Null for an unknown one.
    bool find_end(MutableMember& found, const Member* member, const rtps::ByteReader& header,
                  rtps::ByteReader& reader);
    bool find_mutable_members(rtps::ByteReader& reader, const Type& type, Located& members);
    bool read_mutable_header(rtps::ByteReader& reader, MutableMember& member);
    /// Calls visit(member, a reader that stands before its header, the reader behind it) for each member of a
    /// mutable structure or union, until it returns false.
    template <typename Visit>
    bool visit_mutable_members(rtps::ByteReader& reader, Visit visit);
    /// The member that a discriminator of type `kind` selects, null when none is.
    const Member* branch_of(const Type& type, const Type& kind, int64_t discriminator) const;
    bool walk_union_parts(rtps::ByteReader& discriminator, rtps::ByteReader& branch, const Type& type,
                          ValueSink* sink);
    bool walk_mutable_union(rtps::ByteReader& reader, const Type& type, ValueSink* sink);
    bool walk_member(rtps::ByteReader& reader, const Member& member, ValueSink* sink);

    bool walk_collection(rtps::ByteReader& reader, const Type& type, ValueSink* sink);
    bool walk_elements(rtps::ByteReader& reader, const Type& type, uint64_t count, ValueSink* sink);
    bool skip_primitives(rtps::ByteReader& reader, size_t size, uint64_t count);
    bool walk_entries(rtps::ByteReader& reader, const Type& map, uint64_t count, ValueSink* sink);
    bool has_header(const Type& collection) const;
    bool has_flat_arrays() const {
        return dialect_.headers == CdrDialect::Headers::flat || dialect_.headers == CdrDialect::Headers::few;
    }
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

    CdrVersion version_;
    CdrDialect dialect_;
    /// Values that may still be visited: types whose values take few bytes or none must not make endless work
    /// of a short sample.
    uint64_t budget_;
    static constexpr unsigned kMostEmptyValues = 4096;
    unsigned empty_values_ = 0;
    WalkBuffers& buffers_;
    bool key_only_ = false;
    bool only_keys_told_ = false;
    bool trial_ = false;
    bool judge_gaps_ = false;
    bool within_array_ = false;    // the array that comes next is an element of one that has flat arrays
    bool behind_disputed_ = false; // the reader stands behind a wide text or bit set
    uint32_t objections_ = 0;
    bool has_outer_ = false;
    DDS_ExtensibilityKind outer_ = DDS_FINAL_EXTENSIBILITY;
    const Member* last_located_ = nullptr;
    NestingStack<Step> path_;
    std::string failure_;
};

} // namespace meridian::types
