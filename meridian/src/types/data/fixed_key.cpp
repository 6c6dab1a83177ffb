#include "types/data/fixed_key.h"

#include <algorithm>

#include "rtps/wire/encapsulation.h"
#include "types/data/cdr_walker.h"

namespace meridian::types {

using rtps::ByteReader;
using rtps::ByteView;
using rtps::ByteWriter;
using rtps::Encoding;

namespace {

/// Octets of a number, 0 for other types and for those that serializers write differently.
size_t size_of_number(const Member& member) {
    const Type* type = resolve_alias(member.type);
    if (type == nullptr || member.optional)
        return 0;
    switch (type->kind) {
        case DDS_TK_WCHAR:
        case DDS_TK_LONGDOUBLE:
            return 0;
        case DDS_TK_ENUM:
        case DDS_TK_BITMASK:
            return size_of_bits(type->bit_bound);
        default:
            return primitive_size(type->kind);
    }
}

template <typename Number>
bool copy_number(ByteReader& reader, ByteWriter& writer) {
    Number number{};
    if (!reader.read(number))
        return false;
    writer.write(number);
    return true;
}

bool copy_number(ByteReader& reader, size_t size, ByteWriter& writer) {
    switch (size) {
        case 1:
            return copy_number<uint8_t>(reader, writer);
        case 2:
            return copy_number<uint16_t>(reader, writer);
        case 4:
            return copy_number<uint32_t>(reader, writer);
        default:
            return copy_number<uint64_t>(reader, writer);
    }
}

/// The place of the next number, which `end` then is behind.
size_t place(size_t& end, size_t size, size_t max_alignment) {
    const size_t start = end + rtps::padding_to(end, std::min(size, max_alignment));
    end = start + size;
    return start;
}

/// What follows the encapsulation header, and the header of a delimited structure. A failed reader for
/// encodings that are not plain.
ByteReader members_of(ByteView payload, bool& xcdr1) {
    rtps::Encapsulation encapsulation;
    ByteView body;
    ByteReader none;
    none.fail();
    if (!rtps::read_encapsulation(payload, encapsulation, body))
        return none;
    const Encoding encoding = encapsulation.encoding();
    xcdr1 = encoding == Encoding::cdr;
    ByteReader reader(body, encapsulation.endianness(),
                      xcdr1 ? rtps::kXcdr1MaxAlignment : rtps::kXcdr2MaxAlignment);
    if (encoding == Encoding::delimited_cdr2) {
        uint32_t size = 0;
        return reader.read(size) ? reader.take(size) : none;
    }
    return xcdr1 || encoding == Encoding::cdr2 ? reader : none;
}

} // namespace

std::optional<FixedKey> FixedKey::of(const Type& type) {
    if (!type.is_aggregate())
        return std::nullopt;
    const size_t wanted = key_members(type, true).size();
    FixedKey key;
    size_t end_xcdr1 = 0;
    size_t end_xcdr2 = 0;
    for (const Member* member : all_members(type)) {
        if (key.fields_.size() == wanted)
            break;
        const size_t size = size_of_number(*member);
        if (size == 0)
            return std::nullopt;
        const Field field{member->id, size, place(end_xcdr1, size, rtps::kXcdr1MaxAlignment),
                          place(end_xcdr2, size, rtps::kXcdr2MaxAlignment)};
        if (member->key)
            key.fields_.push_back(field);
    }
    if (key.fields_.empty())
        return std::nullopt;
    std::stable_sort(key.fields_.begin(), key.fields_.end(),
                     [](const Field& a, const Field& b) { return a.id < b.id; });
    return key;
}

bool FixedKey::write(ByteView payload, ByteWriter& writer) const {
    bool xcdr1 = false;
    const ByteReader members = members_of(payload, xcdr1);
    return std::all_of(fields_.begin(), fields_.end(), [&](const Field& field) {
        ByteReader reader = members;
        return reader.skip(xcdr1 ? field.offset_xcdr1 : field.offset_xcdr2) &&
               copy_number(reader, field.size, writer);
    });
}

} // namespace meridian::types
