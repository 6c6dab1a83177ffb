#include "types/data/cdr_walker.h"

#include <algorithm>
#include <cstring>

#include "rtps/wire/xcdr2_headers.h"

namespace meridian::types {

using rtps::ByteReader;
using rtps::ByteView;

namespace {

constexpr uint16_t kPidExtended = 0x3f01;
constexpr uint16_t kPidListEnd = 0x3f02;
constexpr uint16_t kPidMask = 0x3fff;
constexpr uint16_t kPidMustUnderstand = 0x4000;

bool is_signed_kind(DDS_TCKind kind) {
    return kind == DDS_TK_SHORT || kind == DDS_TK_LONG || kind == DDS_TK_LONGLONG || kind == DDS_TK_INT8;
}

/// Calls visit(member) for each member, bases first, until it returns false.
template <typename Visit>
bool visit_members(const Type& type, Visit visit) {
    if (type.base != nullptr && !visit_members(*type.base, visit))
        return false;
    return std::all_of(type.members.begin(), type.members.end(), visit);
}

} // namespace

std::vector<const Member*> all_members(const Type& type) {
    std::vector<const Member*> members;
    visit_members(type, [&members](const Member& member) {
        members.push_back(&member);
        return true;
    });
    return members;
}

bool has_key_members(const Type& type) {
    return !visit_members(type, [](const Member& member) { return !member.key; });
}

std::vector<const Member*> key_members(const Type& type, bool outermost) {
    std::vector<const Member*> members = all_members(type);
    if (outermost || has_key_members(type)) {
        members.erase(
            std::remove_if(members.begin(), members.end(), [](const Member* member) { return !member->key; }),
            members.end());
    }
    std::stable_sort(members.begin(), members.end(),
                     [](const Member* a, const Member* b) { return a->id < b->id; });
    return members;
}

bool CdrWalker::fail(const char* reason) {
    if (!failure_.empty())
        return false;
    std::string path;
    for (const Step& step : path_) {
        if (step.member == nullptr)
            path += "[" + std::to_string(step.index) + "]";
        else
            path += (path.empty() ? "" : ".") + step.member->name;
    }
    failure_ = (path.empty() ? "" : "member " + path + ": ") + reason;
    return false;
}

bool CdrWalker::enter_header(ByteReader& outer, ByteReader& inner) {
    return enter_delimited(outer, inner) || fail("longer than the sample");
}

bool CdrWalker::leave_header(const ByteReader& inner) {
    return !strict_ || inner.remaining() == 0 || fail("more than belongs to it");
}

bool CdrWalker::leave_member(const ByteReader& body) {
    // XCDR1 allows the length of a member to include the padding behind it.
    const size_t padding = version_ == Version::xcdr1 ? 3 : 0;
    return !strict_ || body.remaining() <= padding || fail("more than belongs to it");
}

DDS_ExtensibilityKind CdrWalker::extensibility_of(const Type& type) const {
    if (key_only_ && dialect_.flat_keys)
        return DDS_FINAL_EXTENSIBILITY;
    const DDS_ExtensibilityKind kind = has_outer_ && path_.empty() ? outer_ : type.extensibility;
    const bool without_lists = version_ == Version::xcdr1 && !dialect_.lists;
    return without_lists && kind == DDS_MUTABLE_EXTENSIBILITY ? DDS_FINAL_EXTENSIBILITY : kind;
}

bool CdrWalker::walk(ByteReader& reader, const Type& type, ValueSink* sink) {
    return walk_value(reader, &type, sink);
}

bool CdrWalker::walk_value(ByteReader& reader, const Type* type, ValueSink* sink) {
    type = resolve_alias(type);
    if (type == nullptr)
        return fail("its type is an alias without an end");
    if (path_.size() > kMaxValueDepth)
        return fail("values nest too deeply");
    if (budget_ == 0)
        return fail("more values than a sample of this size can hold");
    --budget_;
    switch (type->kind) {
        case DDS_TK_STRUCT:
        case DDS_TK_VALUE:
            return walk_structure(reader, *type, sink);
        case DDS_TK_UNION:
            return walk_union(reader, *type, sink);
        case DDS_TK_SEQUENCE:
        case DDS_TK_ARRAY:
            return walk_collection(reader, *type, sink);
        case DDS_TK_MAP:
            return walk_map(reader, *type, sink);
        case DDS_TK_BITSET:
            return walk_bitset(reader, *type, sink);
        default:
            return walk_scalar(reader, *type, sink);
    }
}

// Scalars
// -------------------------------------------------------------------------------------------------------------

bool CdrWalker::walk_scalar(ByteReader& reader, const Type& type, ValueSink* sink) {
    Scalar value;
    return read_scalar(reader, type, value) && (sink == nullptr || sink->scalar(type, value));
}

bool CdrWalker::read_integer(ByteReader& reader, size_t size, bool is_signed, uint64_t& bits) {
    const auto read_as = [&](auto unsigned_value, auto signed_value) {
        if (is_signed) {
            if (!reader.read(signed_value))
                return fail("the sample ends within it");
            bits = static_cast<uint64_t>(int64_t{signed_value});
            return true;
        }
        if (!reader.read(unsigned_value))
            return fail("the sample ends within it");
        bits = unsigned_value;
        return true;
    };
    switch (size) {
        case 1:
            return read_as(uint8_t{}, int8_t{});
        case 2:
            return read_as(uint16_t{}, int16_t{});
        case 4:
            return read_as(uint32_t{}, int32_t{});
        default:
            return read_as(uint64_t{}, int64_t{});
    }
}

bool CdrWalker::read_wide_text(ByteReader& reader, Scalar& value) {
    const bool quads = dialect_.wide_text == CdrDialect::WideText::quads;
    uint32_t length = 0;
    if (!reader.read(length))
        return fail("the sample ends within it");
    if (dialect_.wide_text == CdrDialect::WideText::octets) {
        if (length % 2 != 0)
            return fail("a wide string of an odd number of octets");
        length /= 2;
    }
    if (length > reader.remaining() / (quads ? 4 : 2))
        return fail("a wide string longer than the sample");
    wide_.clear();
    wide_.reserve(length);
    for (uint32_t i = 0; i < length; ++i) {
        uint32_t point = 0;
        uint16_t unit = 0;
        if (quads ? !reader.read(point) : !reader.read(unit))
            return fail("the sample ends within it");
        if (!quads) {
            wide_ += static_cast<char16_t>(unit);
        } else if (point > 0x10ffff) {
            return fail("a wide character beyond Unicode");
        } else if (point > 0xffff) {
            wide_ += static_cast<char16_t>(0xd7c0 + (point >> 10));
            wide_ += static_cast<char16_t>(0xdc00 + (point & 0x3ff));
        } else {
            wide_ += static_cast<char16_t>(point);
        }
    }
    if (zeros_behind_wide_text_ && !stands_before_zeros(reader))
        return false;
    const size_t end = wide_.find(u'\0');
    value.wide_text = std::u16string_view(wide_).substr(0, end);
    return true;
}

bool CdrWalker::stands_before_zeros(const ByteReader& reader) {
    ByteReader padded = reader;
    if (!padded.align(4))
        return true; // the sample ends here
    ByteReader probe = reader;
    for (uint8_t octet = 0; probe.position() < padded.position();) {
        if (!probe.read(octet) || octet != 0)
            return fail("a wide string before padding that is none");
    }
    return true;
}

bool CdrWalker::read_long_double(ByteReader& reader, Scalar& value) {
    if (!reader.align(8) || !reader.read_bytes(value.octets))
        return fail("the sample ends within it");
    if (reader.endianness() == rtps::Endianness::big)
        std::reverse(value.octets.begin(), value.octets.end());
    return true;
}

bool CdrWalker::read_scalar(ByteReader& reader, const Type& type, Scalar& value) {
    switch (type.kind) {
        case DDS_TK_FLOAT: {
            float narrow = 0;
            if (!reader.read(narrow))
                return fail("the sample ends within it");
            value.real = static_cast<double>(narrow);
            return true;
        }
        case DDS_TK_DOUBLE:
            return reader.read(value.real) || fail("the sample ends within it");
        case DDS_TK_LONGDOUBLE:
            return read_long_double(reader, value);
        case DDS_TK_STRING:
            return reader.read_string(value.text) || fail("a string longer than the sample");
        case DDS_TK_WSTRING:
            return read_wide_text(reader, value);
        case DDS_TK_ENUM:
            return read_integer(reader, size_of_bits(type.bit_bound), true, value.bits);
        case DDS_TK_BITMASK:
        case DDS_TK_BITSET:
            return read_integer(reader, size_of_bits(type.bit_bound), false, value.bits);
        case DDS_TK_WCHAR:
            return read_integer(reader, dialect_.wide_text == CdrDialect::WideText::quads ? 4 : 2, false,
                                value.bits);
        default: {
            const size_t size = primitive_size(type.kind);
            return size == 0 ? fail("its type has no values")
                             : read_integer(reader, size, is_signed_kind(type.kind), value.bits);
        }
    }
}

bool CdrWalker::walk_bitset(ByteReader& reader, const Type& type, ValueSink* sink) {
    Scalar whole;
    if (!read_scalar(reader, type, whole))
        return false;
    if (sink == nullptr)
        return true;
    if (!sink->begin_aggregate(type))
        return false;
    const bool told = visit_members(type, [&](const Member& field) {
        Scalar part;
        part.bits = whole.bits >> field.value;
        if (field.bits < 64) {
            part.bits &= (uint64_t{1} << field.bits) - 1;
            // A signed field carries its sign in its highest bit.
            if (is_signed_kind(field.type->kind) && (part.bits >> (field.bits - 1) & 1) != 0)
                part.bits |= ~uint64_t{0} << field.bits;
        }
        return sink->member(field) && sink->scalar(*field.type, part);
    });
    return told && sink->end_aggregate(type);
}

// Structures
// ----------------------------------------------------------------------------------------------------------

bool CdrWalker::read_xcdr1_header(ByteReader& reader, Xcdr1Header& header) {
    uint16_t flags = 0;
    uint16_t size = 0;
    if (!reader.align(4) || !reader.read(flags) || !reader.read(size))
        return fail("the sample ends before its header");
    header.must_understand = (flags & kPidMustUnderstand) != 0;
    header.id = flags & kPidMask;
    header.size = size;
    header.end = header.id == kPidListEnd;
    if (header.id == kPidExtended && (size != 8 || !reader.read(header.id) || !reader.read(header.size)))
        return fail("an extended header that is none");
    return true;
}

bool CdrWalker::take_xcdr1_body(ByteReader& reader, uint32_t size, ByteReader& body) {
    if (dialect_.origin_stays) {
        reader.set_origin();
        body = reader.take(size);
    } else {
        body = reader.take(size);
        body.set_origin();
    }
    return body.ok() || fail("a member longer than the sample");
}

bool CdrWalker::walk_member(ByteReader& reader, const Member& member, ValueSink* sink) {
    path_.push_back({&member, 0});
    const bool done = (sink == nullptr || sink->member(member)) && walk_value(reader, member.type, sink);
    path_.pop_back();
    return done;
}

bool CdrWalker::walk_plain_member(ByteReader& reader, const Member& member, ValueSink* sink,
                                  std::vector<Located>* located) {
    ByteReader body;
    ByteReader* source = &reader;
    const bool optional = member.optional && dialect_.optional_headers;
    if (optional && version_ == Version::xcdr2) {
        uint8_t present = 0;
        if (!reader.read(present) || (strict_ && present > 1))
            return fail("no flag tells whether it is there");
        if (present == 0)
            return true;
    } else if (optional) {
        Xcdr1Header header;
        if (!read_xcdr1_header(reader, header))
            return false;
        if (header.size == 0 && !header.end)
            return true;
        if (header.end || header.id != member.id)
            return fail("a header of another member");
        if (!take_xcdr1_body(reader, header.size, body))
            return false;
        source = &body;
    }
    if (located != nullptr)
        located->push_back({&member, *source});
    return walk_member(*source, member, sink) && (source != &body || leave_member(body));
}

bool CdrWalker::walk_plain_members(ByteReader& reader, const Type& type, bool may_end_early, ValueSink* sink,
                                   std::vector<Located>* located) {
    bool ended = false;
    const auto walk_one = [&](const Member& member) {
        // An appendable structure of an older version of the type has fewer members.
        ended = ended || (may_end_early && reader.remaining() == 0);
        return ended || walk_plain_member(reader, member, sink, located);
    };
    if (!key_only_)
        return visit_members(type, walk_one);
    const bool outermost = path_.empty();
    if (dialect_.flat_keys) {
        const std::vector<const Member*> members = key_members(type, outermost);
        return std::all_of(members.begin(), members.end(),
                           [&walk_one](const Member* member) { return walk_one(*member); });
    }
    const bool whole = !outermost && !has_key_members(type);
    return visit_members(type,
                         [&](const Member& member) { return (!whole && !member.key) || walk_one(member); });
}

bool CdrWalker::read_mutable_header(ByteReader& reader, uint32_t& id, bool& must_understand, bool& end,
                                    ByteReader& body) {
    if (version_ == Version::xcdr1) {
        Xcdr1Header header;
        if (!read_xcdr1_header(reader, header))
            return false;
        id = header.id;
        must_understand = header.must_understand;
        end = header.end;
        return end || take_xcdr1_body(reader, header.size, body);
    }
    end = reader.remaining() < 4;
    if (end)
        return true;
    rtps::Xcdr2Member member;
    if (!next_member(reader, member))
        return fail("a member longer than the sample");
    id = member.id;
    must_understand = member.must_understand;
    body = member.body;
    return true;
}

bool CdrWalker::has_open_end(const Member& member) const {
    const Type* type = resolve_alias(member.type);
    return version_ == Version::xcdr2 && dialect_.headers == CdrDialect::Headers::few && type != nullptr &&
           type->kind == DDS_TK_MAP && !has_header(*type);
}

bool CdrWalker::measure_map(const ByteReader& header, const Member& member, ByteReader& reader,
                            ByteReader& body) {
    ByteReader start = header;
    uint32_t bits = 0;
    if (!start.read(bits))
        return fail("the sample ends before its header");
    if (!rtps::shares_length(bits))
        return true; // with a length of its own, which is right
    ByteReader end = start;
    if (!walk_member(end, member, nullptr))
        return false;
    body = start.take(start.remaining() - end.remaining());
    reader = end;
    return true;
}

bool CdrWalker::find_mutable_members(ByteReader& outer, const Type& type, std::vector<Located>& members) {
    ByteReader inner;
    ByteReader* reader = &outer;
    if (version_ == Version::xcdr2) {
        if (!enter_header(outer, inner))
            return false;
        reader = &inner;
    }
    const std::vector<const Member*> known = all_members(type);
    std::vector<ByteReader> bodies(known.size());
    std::vector<bool> present(known.size());
    size_t expected = 0;
    while (true) {
        uint32_t id = 0;
        bool must_understand = false;
        bool end = false;
        ByteReader body;
        const ByteReader header = *reader;
        if (budget_ == 0)
            return fail("more members than a sample of this size can hold");
        --budget_;
        if (!read_mutable_header(*reader, id, must_understand, end, body))
            return false;
        if (end)
            break;
        // Members mostly come in the order of the type.
        size_t index = expected;
        if (index >= known.size() || known[index]->id != id) {
            const auto found = std::find_if(known.begin(), known.end(),
                                            [id](const Member* member) { return member->id == id; });
            index = static_cast<size_t>(found - known.begin());
        }
        if (index < known.size() && has_open_end(*known[index])) {
            if (!measure_map(header, *known[index], *reader, body))
                return false;
        }
        // As among plain members, size 0 of an optional one means absent.
        if (version_ == Version::xcdr1 && index < known.size() && known[index]->optional &&
            body.remaining() == 0)
            continue;
        if (index < known.size() && !present[index]) {
            bodies[index] = body;
            present[index] = true;
            expected = index + 1;
        } else if (index >= known.size() && must_understand) {
            return fail("a member that must be understood and is not in the type");
        }
    }
    for (size_t i = 0; i < known.size(); ++i) {
        if (present[i])
            members.push_back({known[i], bodies[i]});
    }
    return true;
}

bool CdrWalker::locate_members(ByteReader& reader, const Type& type, std::vector<Located>& members) {
    switch (extensibility_of(type)) {
        case DDS_MUTABLE_EXTENSIBILITY:
            return find_mutable_members(reader, type, members);
        case DDS_EXTENSIBLE_EXTENSIBILITY:
            if (version_ == Version::xcdr2) {
                ByteReader inner;
                if (!enter_header(reader, inner))
                    return false;
                return walk_plain_members(inner, type, true, nullptr, &members);
            }
            [[fallthrough]];
        default:
            return walk_plain_members(reader, type, false, nullptr, &members);
    }
}

bool CdrWalker::walk_structure(ByteReader& reader, const Type& type, ValueSink* sink) {
    if (sink != nullptr && !sink->begin_aggregate(type))
        return false;
    const DDS_ExtensibilityKind extensibility = extensibility_of(type);
    bool done = false;
    if (extensibility == DDS_MUTABLE_EXTENSIBILITY) {
        std::vector<Located> members;
        done = find_mutable_members(reader, type, members) &&
               std::all_of(members.begin(), members.end(), [this, sink](Located& located) {
                   return walk_member(located.body, *located.member, sink) && leave_member(located.body);
               });
    } else if (extensibility == DDS_EXTENSIBLE_EXTENSIBILITY && version_ == Version::xcdr2) {
        ByteReader inner;
        if (!enter_header(reader, inner))
            return false;
        done = walk_plain_members(inner, type, true, sink, nullptr) && leave_header(inner);
    } else {
        done = walk_plain_members(reader, type, false, sink, nullptr);
    }
    return done && (sink == nullptr || sink->end_aggregate(type));
}

// Unions
// --------------------------------------------------------------------------------------------------------------

bool CdrWalker::walk_union_parts(ByteReader& discriminator, ByteReader& branch, const Type& type,
                                 ValueSink* sink) {
    const Type* kind = resolve_alias(type.discriminator);
    Scalar value;
    if (kind == nullptr || !read_scalar(discriminator, *kind, value))
        return fail("a discriminator that cannot be read");
    if (sink != nullptr && !(sink->discriminator() && sink->scalar(*kind, value)))
        return false;
    if (key_only_ && type.discriminator_key)
        return true;
    const Member* selected = select_union_member(type, value.integer());
    return selected == nullptr || walk_member(branch, *selected, sink);
}

bool CdrWalker::walk_mutable_union(ByteReader& outer, const Type& type, ValueSink* sink) {
    ByteReader inner;
    ByteReader* reader = &outer;
    if (version_ == Version::xcdr2) {
        if (!enter_header(outer, inner))
            return false;
        reader = &inner;
    }
    // The discriminator comes first, whatever id a peer gives it.
    ByteReader parts[2];
    size_t count = 0;
    while (true) {
        uint32_t id = 0;
        bool must_understand = false;
        bool end = false;
        ByteReader body;
        if (!read_mutable_header(*reader, id, must_understand, end, body))
            return false;
        if (end)
            break;
        if (count < 2)
            parts[count++] = body;
        else
            return fail("a union of more than two parts");
    }
    if (count == 0)
        return fail("a union without a discriminator");
    return walk_union_parts(parts[0], parts[1], type, sink) && leave_member(parts[1]);
}

bool CdrWalker::walk_union(ByteReader& reader, const Type& type, ValueSink* sink) {
    if (sink != nullptr && !sink->begin_aggregate(type))
        return false;
    const DDS_ExtensibilityKind extensibility = extensibility_of(type);
    bool done = false;
    if (extensibility == DDS_MUTABLE_EXTENSIBILITY) {
        done = walk_mutable_union(reader, type, sink);
    } else if (extensibility == DDS_EXTENSIBLE_EXTENSIBILITY && version_ == Version::xcdr2) {
        ByteReader inner;
        if (!enter_header(reader, inner))
            return false;
        done = walk_union_parts(inner, inner, type, sink) && leave_header(inner);
    } else {
        done = walk_union_parts(reader, reader, type, sink);
    }
    return done && (sink == nullptr || sink->end_aggregate(type));
}

// Collections
// ---------------------------------------------------------------------------------------------------------

bool CdrWalker::is_primitive_like(const Type* type) const {
    if (type == nullptr)
        return false;
    const bool enumerated = type->kind == DDS_TK_ENUM || type->kind == DDS_TK_BITMASK;
    return primitive_size(type->kind) != 0 || (enumerated && dialect_.headers == CdrDialect::Headers::few);
}

bool CdrWalker::has_header(const Type& collection) const {
    if (version_ == Version::xcdr1)
        return false;
    const bool keys_count = dialect_.headers != CdrDialect::Headers::few;
    if (collection.kind == DDS_TK_MAP && keys_count && !is_primitive_like(resolve_alias(collection.key)))
        return true;
    const Type* content = resolve_alias(collection.content);
    if (collection.kind == DDS_TK_ARRAY && dialect_.headers != CdrDialect::Headers::standard) {
        for (unsigned depth = 0; content != nullptr && content->kind == DDS_TK_ARRAY && depth < kMaxTypeDepth;
             ++depth)
            content = resolve_alias(content->content);
    }
    return !is_primitive_like(content);
}

bool CdrWalker::skip_primitives(ByteReader& reader, size_t size, uint64_t count) {
    if (count == 0)
        return true;
    if (!reader.align(size) || count > reader.remaining() / size ||
        !reader.skip(static_cast<size_t>(count) * size))
        return fail("more elements than the sample holds");
    return true;
}

bool CdrWalker::walk_elements(ByteReader& reader, const Type& type, uint64_t count, ValueSink* sink) {
    const Type* content = resolve_alias(type.content);
    if (content == nullptr)
        return fail("its type is an alias without an end");
    size_t size = primitive_size(content->kind);
    if (content->kind == DDS_TK_WCHAR && dialect_.wide_text == CdrDialect::WideText::quads)
        size = 4;
    if (size != 0 && sink == nullptr)
        return skip_primitives(reader, size, count);
    if (size != 0 && count > reader.remaining() / size)
        return fail("more elements than the sample holds");
    for (uint64_t i = 0; i < count; ++i) {
        if (sink != nullptr && !sink->element(i))
            return false;
        if (size != 0) { // cannot fail: their bytes were counted
            if (!walk_scalar(reader, *content, sink))
                return false;
            continue;
        }
        path_.push_back({nullptr, i});
        const bool done = walk_value(reader, content, sink);
        path_.pop_back();
        if (!done)
            return false;
    }
    return true;
}

bool CdrWalker::walk_collection(ByteReader& outer, const Type& type, ValueSink* sink) {
    ByteReader inner;
    ByteReader* reader = &outer;
    if (has_header(type)) {
        if (!enter_header(outer, inner))
            return false;
        reader = &inner;
    }
    uint64_t count = 1;
    if (type.kind == DDS_TK_SEQUENCE) {
        uint32_t length = 0;
        if (!reader->read(length))
            return fail("the sample ends before its length");
        count = length;
    } else {
        for (uint32_t dimension : type.dimensions) {
            if (dimension != 0 && count > UINT64_MAX / dimension)
                return fail("an array of more elements than can be counted");
            count *= dimension;
        }
    }
    return (sink == nullptr || sink->begin_collection(type, count)) &&
           walk_elements(*reader, type, count, sink) && (reader != &inner || leave_header(inner)) &&
           (sink == nullptr || sink->end_collection(type));
}

bool CdrWalker::walk_map(ByteReader& outer, const Type& type, ValueSink* sink) {
    ByteReader inner;
    ByteReader* reader = &outer;
    uint32_t count = 0;
    if (has_header(type)) {
        if (!enter_header(outer, inner))
            return false;
        reader = &inner;
    }
    if (!reader->read(count))
        return fail("the sample ends before its length");
    if (sink != nullptr && !sink->begin_map(type, count))
        return false;
    for (uint32_t i = 0; i < count; ++i) {
        path_.push_back({nullptr, i});
        const bool done = (sink == nullptr || sink->key(i)) && walk_value(*reader, type.key, sink) &&
                          (sink == nullptr || sink->mapped()) && walk_value(*reader, type.content, sink);
        path_.pop_back();
        if (!done)
            return false;
    }
    return (reader != &inner || leave_header(inner)) && (sink == nullptr || sink->end_map(type));
}

} // namespace meridian::types
