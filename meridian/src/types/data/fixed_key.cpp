#include "types/data/fixed_key.h"

#include <algorithm>

#include "rtps/wire/encapsulation.h"
#include "rtps/wire/xcdr2_headers.h"
#include "types/data/members.h"

namespace meridian::types {

using rtps::ByteReader;

namespace {

/// Of a member that all serializers write alike; else null.
const Type* primitive_of(const Member& member) {
    const Type* const type = resolve_alias(member.type);
    const bool alike = type != nullptr && !member.optional && type->kind != DDS_TK_WCHAR &&
                       type->kind != DDS_TK_LONGDOUBLE && primitive_size(type->kind) != 0;
    return alike ? type : nullptr;
}

/// The offset of a value of that size behind the others, of which `end` is the end.
size_t place(size_t& end, size_t size, size_t max_alignment) {
    const size_t offset = end + rtps::padding_to(end, std::min(size, max_alignment));
    end = offset + size;
    return offset;
}

} // namespace

FixedKey::FixedKey(const Type& type) {
    if (!type.is_aggregate())
        return;
    const std::vector<KeyMember> in_key = key_members(type, true);
    size_t xcdr1_end = 0;
    size_t xcdr2_end = 0;
    const bool walked = visit_members(type, [&](const Member& member) {
        if (values_.size() == in_key.size())
            return true; // what follows the key does not matter
        const Type* const primitive = primitive_of(member);
        if (primitive == nullptr ||
            (member.key && (!is_whole_number(primitive->kind) || primitive->kind == DDS_TK_BOOLEAN)))
            return false;
        const size_t size = primitive_size(primitive->kind);
        const size_t in_xcdr1 = place(xcdr1_end, size, rtps::kXcdr1MaxAlignment);
        const size_t in_xcdr2 = place(xcdr2_end, size, rtps::kXcdr2MaxAlignment);
        if (!member.key)
            return true;
        size_t key_end = 0;
        size_t in_key_at = 0;
        for (const KeyMember& entry : in_key) {
            const Type* const before = primitive_of(*entry.member);
            if (before == nullptr)
                return false;
            in_key_at = place(key_end, primitive_size(before->kind), rtps::kXcdr1MaxAlignment);
            if (entry.member == &member)
                break;
        }
        values_.push_back({size, in_xcdr1, in_xcdr2, in_key_at});
        return key_end <= rtps::KeyHash().size();
    });
    if (!walked)
        values_.clear();
}

bool FixedKey::read(rtps::ByteView payload, rtps::KeyHash& key) const {
    rtps::Encapsulation encapsulation;
    rtps::ByteView bytes;
    if (values_.empty() || !rtps::read_encapsulation(payload, encapsulation, bytes))
        return false;
    ByteReader reader(bytes, encapsulation.endianness());
    bool xcdr2 = true;
    switch (encapsulation.encoding()) {
        case rtps::Encoding::cdr:
            xcdr2 = false;
            break;
        case rtps::Encoding::cdr2:
            break;
        case rtps::Encoding::delimited_cdr2: {
            ByteReader inner;
            if (!rtps::enter_delimited(reader, inner))
                return false;
            reader = inner;
            break;
        }
        default:
            return false;
    }
    const size_t start = reader.position();
    rtps::KeyHash found{};
    for (const Value& value : values_) {
        const size_t offset = xcdr2 ? value.in_xcdr2 : value.in_xcdr1;
        rtps::ByteView octets;
        if (!reader.skip(start + offset - reader.position()) || !reader.read_view(value.size, octets))
            return false;
        uint8_t* const to = found.data() + value.in_key;
        if (reader.endianness() == rtps::Endianness::big)
            std::copy(octets.begin(), octets.end(), to);
        else
            std::reverse_copy(octets.begin(), octets.end(), to);
    }
    key = found;
    return true;
}

} // namespace meridian::types
