#include "rtps/wire/parameter_ids.h"
#include "rtps/wire/xcdr2_headers.h"
#include "types/data/cdr_walker.h"

namespace meridian::types {

using rtps::ByteReader;

namespace {

constexpr uint16_t kPidExtended = 0x3f01;
constexpr uint16_t kPidListEnd = 0x3f02;
constexpr uint16_t kPidMask = 0x3fff;
constexpr uint16_t kPidMustUnderstand = 0x4000;

} // namespace

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
        return fail("its extended header is malformed");
    return true;
}

bool CdrWalker::take_xcdr1_body(ByteReader& reader, uint32_t size, ByteReader& body) {
    if (dialect_.one_origin)
        reader.set_origin();
    body = reader.take(size);
    body.set_origin(); // where take() left it, at the start of the member
    return body.ok() || fail("a member longer than the sample");
}

bool CdrWalker::walk_member(ByteReader& reader, const Member& member, ValueSink* sink) {
    if (!enter(member))
        return false;
    const bool done = (sink == nullptr || sink->member(member)) && walk_value(reader, member.type, sink);
    leave();
    return done;
}

bool CdrWalker::walk_plain_member(ByteReader& reader, const Member& member, ValueSink* sink,
                                  Located* located) {
    ByteReader body;
    ByteReader* source = &reader;
    const bool optional = member.optional && dialect_.optional_headers;
    if (optional && version_ == CdrVersion::xcdr2) {
        uint8_t present = 0;
        if (!reader.read(present))
            return fail("the sample ends before its presence flag");
        object(present > 1, kManyObjections);
        if (present == 0)
            return true;
    } else if (optional) {
        Xcdr1Header header;
        if (!read_xcdr1_header(reader, header))
            return false;
        if (header.end || (header.id != member.id && header.size != 0))
            return fail("the header names another member");
        object(header.id != member.id);
        if (!take_xcdr1_body(reader, header.size, body))
            return false;
        if (header.size == 0)
            return true;
        source = &body;
    }
    if (located != nullptr) {
        located->add({&member, *source, true});
        if (&member == last_located_)
            return false; // nothing behind it is wanted
    }
    return walk_member(*source, member, sink) && (source != &body || leave_member_of(reader, body));
}

bool CdrWalker::walk_plain_members(ByteReader& reader, const Type& type, bool may_end_early, ValueSink* sink,
                                   Located* located) {
    bool ended = false;
    const auto walk_one = [&](const Member& member) {
        // An appendable structure of an older version of the type has fewer members.
        ended = ended || (may_end_early && reader.remaining() == 0);
        return ended || walk_plain_member(reader, member, told_of(type, member, sink), located);
    };
    if (!key_only_)
        return visit_members(type, walk_one);
    const bool outermost = path_.empty();
    if (dialect_.flat_keys) {
        ListEnd<KeyMember> members(buffers_.key_members);
        append_key_members(type, outermost, members.list());
        for (size_t i = 0; i < members.size(); ++i) {
            if (!walk_one(*members[i].member))
                return false;
        }
        return true;
    }
    const bool whole = !outermost && !has_key_members(type);
    return visit_members(type,
                         [&](const Member& member) { return (!whole && !member.key) || walk_one(member); });
}

bool CdrWalker::read_mutable_header(ByteReader& reader, MutableMember& member) {
    if (version_ == CdrVersion::xcdr1) {
        Xcdr1Header header;
        if (!read_xcdr1_header(reader, header))
            return false;
        member.id = header.id;
        member.must_understand = header.must_understand;
        member.end =
            header.end || (dialect_.rtps_list_end && header.id == rtps::pid::sentinel && header.size == 0);
        return member.end || take_xcdr1_body(reader, header.size, member.body);
    }
    member.end = reader.remaining() < 4;
    if (member.end)
        return true;
    ByteReader value = reader;
    if (next_member(reader, member))
        return true;
    // A number that tells no length may reach beyond the sample.
    uint32_t bits = 0;
    if (!dialect_.has_few_headers() || !value.read(bits) || !rtps::shares_length(bits))
        return fail("a member longer than the sample");
    member.beyond = true;
    member.body = value.take(value.remaining());
    reader = value;
    return true;
}

template <typename Visit>
bool CdrWalker::visit_mutable_members(ByteReader& outer, Visit visit) {
    ByteReader inner;
    ByteReader* reader = &outer;
    if (version_ == CdrVersion::xcdr2) {
        if (!enter_header(outer, inner))
            return false;
        reader = &inner;
    }
    while (true) {
        MutableMember member;
        const ByteReader header = *reader;
        if (budget_ == 0)
            return fail("more members than a sample of this size can hold");
        --budget_;
        if (!read_mutable_header(*reader, member))
            return false;
        if (member.end)
            return true;
        if (!visit(member, header, *reader))
            return false;
    }
}

bool CdrWalker::walk_mutable_union(ByteReader& reader, const Type& type, ValueSink* sink) {
    // The discriminator comes first; peers give it different ids.
    ByteReader parts[2];
    size_t count = 0;
    const auto branch = [&]() -> const Member* {
        ByteReader discriminator = parts[0];
        const Type* kind = resolve_alias(type.discriminator);
        Scalar value;
        const bool known = count == 1 && kind != nullptr && read_scalar(discriminator, *kind, value);
        return known ? branch_of(type, *kind, value.integer()) : nullptr;
    };
    const auto keep = [&](MutableMember& member, const ByteReader& header, ByteReader& rest) {
        if (count == 2)
            return fail("a union with more than two members");
        if (!find_end(member, branch(), header, rest))
            return false;
        parts[count++] = member.body;
        return true;
    };
    if (!visit_mutable_members(reader, keep))
        return false;
    if (count == 0)
        return fail("a union without a discriminator");
    return walk_union_parts(parts[0], parts[1], type, sink) && leave_member_of(reader, parts[count - 1]);
}

bool CdrWalker::has_open_end(const Member& member) const {
    const Type* type = resolve_alias(member.type);
    if (version_ == CdrVersion::xcdr1 || type == nullptr)
        return false;
    const Type* content = resolve_alias(type->content);
    const DDS_TCKind element = content != nullptr ? content->kind : DDS_TK_NULL;
    if (dialect_.counts_as_lengths)
        return type->kind == DDS_TK_SEQUENCE && primitive_size(element) > 1;
    if (!dialect_.has_few_headers())
        return false;
    if (type->kind == DDS_TK_MAP)
        return !has_header(*type);
    return (type->kind == DDS_TK_SEQUENCE && element == DDS_TK_WCHAR) ||
           (type->kind == DDS_TK_ARRAY && element == DDS_TK_BOOLEAN);
}

bool CdrWalker::find_end(MutableMember& found, const Member* member, const ByteReader& header,
                         ByteReader& reader) {
    if (member == nullptr || !has_open_end(*member))
        return !found.beyond || fail("a member longer than the sample");
    ByteReader start = header;
    uint32_t bits = 0;
    if (!start.read(bits))
        return fail("the sample ends before its header");
    if (!rtps::shares_length(bits))
        return true; // with a length of its own, which is right
    ByteReader end = start;
    if (!walk_member(end, *member, nullptr))
        return false;
    found.body = start.take(start.remaining() - end.remaining());
    reader = end;
    return true;
}

bool CdrWalker::find_mutable_members(ByteReader& outer, const Type& type, Located& members) {
    visit_members(type, [&members](const Member& member) {
        members.add({&member, {}, false});
        return true;
    });
    const size_t known = members.size();
    size_t expected = 0;
    return visit_mutable_members(outer, [&](MutableMember& found, const ByteReader& header,
                                            ByteReader& reader) {
        // Members mostly come in the order of the type.
        size_t index = expected;
        if (index >= known || members[index].member->id != found.id) {
            for (index = 0; index < known && members[index].member->id != found.id;)
                ++index;
        }
        if (!find_end(found, index < known ? members[index].member : nullptr, header, reader))
            return false;
        if (index >= known)
            return !found.must_understand || fail("the type lacks a member that must be understood");
        const Member& member = *members[index].member;
        // As among plain members, size 0 of an optional one means absent.
        const bool absent = version_ == CdrVersion::xcdr1 && member.optional && found.body.remaining() == 0;
        if (!absent && !members[index].present) {
            members[index] = {&member, found.body, true};
            expected = index + 1;
        }
        return true;
    });
}

void CdrWalker::locate_members(ByteReader& reader, const Type& type, const Member* last, Located& members) {
    const DDS_ExtensibilityKind extensibility = extensibility_of(type);
    if (extensibility == DDS_MUTABLE_EXTENSIBILITY) {
        find_mutable_members(reader, type, members);
        return;
    }
    last_located_ = key_only_ ? nullptr : last; // keys alone may be in another order
    const bool delimited = extensibility == DDS_EXTENSIBLE_EXTENSIBILITY && version_ == CdrVersion::xcdr2;
    walk_within(delimited, reader, [&](ByteReader& body) {
        return walk_plain_members(body, type, delimited, nullptr, &members);
    });
}

bool CdrWalker::walk_mutable_structure(ByteReader& reader, const Type& type, ValueSink* sink) {
    Located members(buffers_.located);
    if (!find_mutable_members(reader, type, members))
        return false;
    for (size_t i = 0, count = members.size(); i < count; ++i) {
        LocatedMember located = members[i];
        if (!located.present)
            continue;
        // The last one on the wire leaves the origin to what follows.
        const bool is_last = reader.has_origin_of(located.body);
        if (!walk_member(located.body, *located.member, told_of(type, *located.member, sink)) ||
            !(is_last ? leave_member_of(reader, located.body) : leave_member(located.body)))
            return false;
    }
    return true;
}

} // namespace meridian::types
