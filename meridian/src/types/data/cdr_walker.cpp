#include "types/data/cdr_walker.h"

#include <utility>

#include "rtps/wire/xcdr2_headers.h"

namespace meridian::types {

using rtps::ByteReader;

bool CdrWalker::fail(const char* reason) {
    if (trial_ || !failure_.empty())
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

bool CdrWalker::descend(const Member* member, uint64_t index) {
    return path_.push({member, index}) || fail("values nest too deeply");
}

bool CdrWalker::enter_header(ByteReader& outer, ByteReader& inner) {
    judge_gap(outer, 4);
    return enter_delimited(outer, inner) || fail("its length exceeds the sample");
}

bool CdrWalker::leave_delimited(const ByteReader& inner, size_t padding) {
    object(inner.remaining() > padding, kManyObjections);
    return true;
}

bool CdrWalker::leave_member(const ByteReader& body) {
    // XCDR1 allows the length of a member to include the padding behind it.
    return leave_delimited(body, version_ == CdrVersion::xcdr1 ? 3 : 0);
}

bool CdrWalker::leave_member_of(ByteReader& outer, const ByteReader& body) {
    if (version_ == CdrVersion::xcdr1 && dialect_.one_origin)
        outer.set_origin_of(body);
    return leave_member(body);
}

DDS_ExtensibilityKind CdrWalker::extensibility_of(const Type& type) const {
    if (key_only_ && dialect_.flat_keys)
        return DDS_FINAL_EXTENSIBILITY;
    const DDS_ExtensibilityKind kind = has_outer_ && path_.empty() ? outer_ : type.extensibility;
    const bool without_lists = version_ == CdrVersion::xcdr1 && !dialect_.lists;
    return without_lists && kind == DDS_MUTABLE_EXTENSIBILITY ? DDS_FINAL_EXTENSIBILITY : kind;
}

bool CdrWalker::walk(ByteReader& reader, const Type& type, ValueSink* sink) {
    return walk_value(reader, &type, sink);
}

bool CdrWalker::walk_value(ByteReader& reader, const Type* type, ValueSink* sink) {
    type = resolve_alias(type);
    if (type == nullptr)
        return fail("its type is an alias that refers to itself");
    if (path_.size() > kMaxValueDepth)
        return fail("values nest too deeply");
    if (budget_ == 0)
        return fail("more values than a sample of this size can hold");
    --budget_;
    const size_t before = reader.remaining();
    if (!walk_known(reader, *type, sink))
        return false;
    const bool is_empty = reader.remaining() == before;
    return !is_empty || empty_values_++ < kMostEmptyValues ||
           fail("more values than a sample of this size can hold");
}

bool CdrWalker::walk_known(ByteReader& reader, const Type& type, ValueSink* sink) {
    switch (type.kind) {
        case DDS_TK_STRUCT:
        case DDS_TK_VALUE:
        case DDS_TK_UNION:
            return walk_aggregate(reader, type, sink);
        case DDS_TK_SEQUENCE:
        case DDS_TK_ARRAY:
        case DDS_TK_MAP:
            return walk_collection(reader, type, sink);
        case DDS_TK_BITSET:
            return walk_bitset(reader, type, sink);
        default:
            return walk_scalar(reader, type, sink);
    }
}

const Member* CdrWalker::branch_of(const Type& type, const Type& kind, int64_t discriminator) const {
    if (dialect_.unsigned_discriminators && discriminator < 0 && number_size(kind) < 4)
        discriminator += int64_t{1} << (8 * number_size(kind));
    return select_union_member(type, discriminator);
}

bool CdrWalker::walk_union_parts(ByteReader& discriminator, ByteReader& branch, const Type& type,
                                 ValueSink* sink) {
    const Type* kind = resolve_alias(type.discriminator);
    Scalar value;
    if (kind == nullptr || !read_scalar(discriminator, *kind, value))
        return fail("the discriminator cannot be read");
    if (sink != nullptr && !(sink->discriminator() && sink->scalar(*kind, value)))
        return false;
    if (key_only_ && type.discriminator_key)
        return true;
    const Member* selected = branch_of(type, *kind, value.integer());
    object(selected == nullptr);
    return selected == nullptr || walk_member(branch, *selected, sink);
}

bool CdrWalker::walk_aggregate(ByteReader& reader, const Type& type, ValueSink* sink) {
    if (sink != nullptr && !sink->begin(type, 0))
        return false;
    const DDS_ExtensibilityKind extensibility = extensibility_of(type);
    const bool is_union = type.kind == DDS_TK_UNION;
    bool done = false;
    if (extensibility == DDS_MUTABLE_EXTENSIBILITY) {
        done = is_union ? walk_mutable_union(reader, type, sink) : walk_mutable_structure(reader, type, sink);
    } else {
        const bool delimited = extensibility == DDS_EXTENSIBLE_EXTENSIBILITY && version_ == CdrVersion::xcdr2;
        done = walk_within(delimited, reader, [&](ByteReader& body) {
            return is_union ? walk_union_parts(body, body, type, sink)
                            : walk_plain_members(body, type, delimited, sink, nullptr);
        });
    }
    return done && (sink == nullptr || sink->end(type));
}

bool CdrWalker::is_primitive_like(const Type* type) const {
    if (type == nullptr)
        return false;
    const bool enumerated = type->kind == DDS_TK_ENUM || type->kind == DDS_TK_BITMASK;
    return primitive_size(type->kind) != 0 || (enumerated && dialect_.has_few_headers());
}

bool CdrWalker::has_header(const Type& collection) const {
    if (version_ == CdrVersion::xcdr1)
        return false;
    const bool keys_count = !dialect_.has_few_headers();
    if (collection.kind == DDS_TK_MAP && keys_count && !is_primitive_like(resolve_alias(collection.key)))
        return true;
    const Type* content = resolve_alias(collection.content);
    if (collection.kind == DDS_TK_ARRAY && has_flat_arrays()) {
        for (unsigned depth = 0; content != nullptr && content->kind == DDS_TK_ARRAY && depth < kMaxTypeDepth;
             ++depth)
            content = resolve_alias(content->content);
    }
    return !is_primitive_like(content);
}

bool CdrWalker::skip_primitives(ByteReader& reader, size_t size, uint64_t count) {
    if (count == 0)
        return true;
    if (behind_disputed_)
        object_to_padding(reader, size);
    judge_gap(reader, size);
    if (!reader.align(size) || count > reader.remaining() / size ||
        !reader.skip(static_cast<size_t>(count) * size))
        return fail("more elements than the sample holds");
    return true;
}

bool CdrWalker::walk_elements(ByteReader& reader, const Type& type, uint64_t count, ValueSink* sink) {
    const Type* content = resolve_alias(type.content);
    if (content == nullptr)
        return fail("its type is an alias that refers to itself");
    size_t size = primitive_size(content->kind);
    if (content->kind == DDS_TK_WCHAR)
        size = wide_size();
    if (size != 0 && sink == nullptr && content->kind != DDS_TK_LONGDOUBLE)
        return skip_primitives(reader, size, count);
    if (size != 0 && count > reader.remaining() / size)
        return fail("more elements than the sample holds");
    const bool as_usual = size == primitive_size(content->kind); // not four octets for a wide character
    if (size != 0 && as_usual && count != 0 && sink != nullptr && sink->takes_primitives(*content, count)) {
        if (!reader.align(size) || count > reader.remaining() / size)
            return fail("more elements than the sample holds");
        return sink->primitives(*content, reader, count);
    }
    const bool is_outer = type.kind == DDS_TK_ARRAY && content->kind == DDS_TK_ARRAY && has_flat_arrays();
    for (uint64_t i = 0; i < count; ++i) {
        if (sink != nullptr && !sink->element(i))
            return false;
        if (size != 0) { // cannot fail: their bytes were counted
            if (!walk_scalar(reader, *content, sink))
                return false;
            continue;
        }
        if (!descend(nullptr, i))
            return false;
        within_array_ = is_outer;
        const bool done = walk_value(reader, content, sink);
        leave();
        if (!done)
            return false;
    }
    return true;
}

bool CdrWalker::walk_collection(ByteReader& outer, const Type& type, ValueSink* sink) {
    const bool is_part = std::exchange(within_array_, false);
    return walk_within(!is_part && has_header(type), outer,
                       [&](ByteReader& reader) {
                           uint64_t count = 1;
                           if (type.kind == DDS_TK_ARRAY) {
                               for (uint32_t dimension : type.dimensions) {
                                   if (dimension != 0 && count > UINT64_MAX / dimension)
                                       return fail("an array of more elements than can be counted");
                                   count *= dimension;
                               }
                           } else {
                               uint32_t length = 0;
                               judge_gap(reader, sizeof length);
                               if (!reader.read(length))
                                   return fail("the sample ends before its length");
                               count = length;
                           }
                           return (sink == nullptr || sink->begin(type, count)) &&
                                  (type.kind == DDS_TK_MAP ? walk_entries(reader, type, count, sink)
                                                           : walk_elements(reader, type, count, sink));
                       }) &&
           (sink == nullptr || sink->end(type));
}

bool CdrWalker::walk_entries(ByteReader& reader, const Type& type, uint64_t count, ValueSink* sink) {
    for (uint64_t i = 0; i < count; ++i) {
        if (!descend(nullptr, i))
            return false;
        const bool done = (sink == nullptr || sink->key(i)) && walk_value(reader, type.key, sink) &&
                          (sink == nullptr || sink->mapped()) && walk_value(reader, type.content, sink);
        leave();
        if (!done)
            return false;
    }
    return true;
}

} // namespace meridian::types
