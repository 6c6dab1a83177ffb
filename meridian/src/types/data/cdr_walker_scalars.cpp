#include <algorithm>

#include "platform/text.h"
#include "types/data/cdr_walker.h"
#include "types/data/scalar_text.h"

namespace meridian::types {

using rtps::ByteReader;

bool CdrWalker::walk_scalar(ByteReader& reader, const Type& type, ValueSink* sink) {
    Scalar value;
    if (!read_scalar(reader, type, value))
        return false;
    if (trial_)
        object_to(type, value);
    return sink == nullptr || sink->scalar(type, value);
}

void CdrWalker::object_to(const Type& type, const Scalar& value) {
    switch (type.kind) {
        case DDS_TK_BOOLEAN:
            object(value.bits > 1);
            break;
        case DDS_TK_ENUM:
            object(find_enumerator(type, value.integer()) == nullptr);
            break;
        case DDS_TK_LONGDOUBLE:
            object(!is_plausible_long_double(value));
            break;
        default:
            break;
    }
}

void CdrWalker::object_to_padding(const ByteReader& reader, size_t size) {
    if (size != 0)
        object(!reader.zeros_follow(reader.padding(std::min<size_t>(size, 8))));
    behind_disputed_ = false;
}

bool CdrWalker::read_integer(ByteReader& reader, size_t size, bool is_signed, uint64_t& bits) {
    const auto read_as = [&](auto value) {
        if (!reader.read(value))
            return fail("the sample ends within it");
        using Signed = std::make_signed_t<decltype(value)>;
        bits = is_signed ? static_cast<uint64_t>(int64_t{static_cast<Signed>(value)}) : value;
        return true;
    };
    switch (size) {
        case 1:
            return read_as(uint8_t{});
        case 2:
            return read_as(uint16_t{});
        case 4:
            return read_as(uint32_t{});
        default:
            return read_as(uint64_t{});
    }
}

size_t CdrWalker::wide_size() const {
    using Wide = CdrDialect::WideText;
    return dialect_.wide_text == Wide::quads ? 4 : dialect_.wide_text == Wide::big ? 0 : 2;
}

bool CdrWalker::read_wide_character(ByteReader& reader, uint64_t& bits) {
    if (wide_size() != 0)
        return read_integer(reader, wide_size(), false, bits);
    std::array<uint8_t, 3> octets{};
    if (!reader.read_bytes(octets) || octets[0] != 2)
        return fail("a wide character of another length");
    bits = uint64_t{octets[1]} << 8 | octets[2];
    return true;
}

bool CdrWalker::read_wide_text(ByteReader& reader, Scalar& value) {
    const bool quads = dialect_.wide_text == CdrDialect::WideText::quads;
    uint32_t length = 0;
    if (!reader.read(length))
        return fail("the sample ends within it");
    const bool big = dialect_.wide_text == CdrDialect::WideText::big;
    if (big || dialect_.wide_text == CdrDialect::WideText::octets) {
        if (length % 2 != 0)
            return fail("a wide string of an odd number of octets");
        length /= 2;
    }
    if (length > reader.remaining() / (quads ? 4 : 2))
        return fail("a wide string longer than the sample");
    std::u16string& wide = buffers_.wide_text;
    wide.clear();
    wide.reserve(length);
    const rtps::Endianness order = reader.endianness();
    if (big)
        reader.set_endianness(rtps::Endianness::big);
    for (uint32_t i = 0; i < length; ++i) {
        uint32_t point = 0;
        uint16_t unit = 0;
        if (quads ? !reader.read(point) : !reader.read(unit))
            return fail("the sample ends within it");
        if (point > 0x10ffff)
            return fail("a wide character beyond Unicode");
        append_utf16_of(wide, quads ? point : char32_t{unit});
    }
    reader.set_endianness(order);
    const size_t end = wide.find(u'\0');
    value.wide_text = std::u16string_view(wide).substr(0, end);
    if (trial_) {
        object(end != std::u16string::npos && wide.size() - end > 1); // more than a terminator
        object(!reader.zeros_follow(reader.padding(4)));
        behind_disputed_ = true;
    }
    return true;
}

bool CdrWalker::read_long_double(ByteReader& reader, Scalar& value) {
    if (!reader.align(8) || !reader.read_bytes(value.octets))
        return fail("the sample ends within it");
    if (reader.endianness() == rtps::Endianness::big)
        std::reverse(value.octets.begin(), value.octets.end());
    value.x86 = dialect_.x86_long_double;
    object(value.x86 && reader.endianness() == rtps::Endianness::big);
    return true;
}

bool CdrWalker::read_scalar(ByteReader& reader, const Type& type, Scalar& value) {
    if (behind_disputed_)
        object_to_padding(reader, type.kind == DDS_TK_WCHAR ? wide_size() : primitive_size(type.kind));
    if (judge_gaps_) {
        const bool is_text = type.kind == DDS_TK_STRING || type.kind == DDS_TK_WSTRING;
        judge_gap(reader, is_text ? 4 : number_size(type));
    }
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
        case DDS_TK_STRING: {
            ByteReader whole = reader;
            rtps::ByteView octets;
            if (!reader.read_string(value.text))
                return fail("a string longer than the sample");
            // A header that is taken for its length has the real one, and so a NUL, right behind it.
            object(trial_ && whole.read_octets(octets) && value.text.size() + 1 < octets.size);
            return true;
        }
        case DDS_TK_WSTRING:
            return read_wide_text(reader, value);
        case DDS_TK_ENUM: {
            const size_t size = number_size(type);
            if (!read_integer(reader, size, true, value.bits))
                return false;
            // Some count the values of a narrow enumeration without a sign.
            const int64_t natural = value.integer() + (int64_t{1} << 8 * size);
            if (value.integer() < 0 && find_enumerator(type, value.integer()) == nullptr &&
                find_enumerator(type, natural) != nullptr)
                value.bits = static_cast<uint64_t>(natural);
            return true;
        }
        case DDS_TK_BITMASK:
            return read_integer(reader, number_size(type), false, value.bits);
        case DDS_TK_BITSET: {
            const size_t size = std::max<size_t>(number_size(type), dialect_.bitset_octets);
            if (!read_integer(reader, size, false, value.bits))
                return false;
            behind_disputed_ = trial_;
            return true;
        }
        case DDS_TK_WCHAR:
            return read_wide_character(reader, value.bits);
        default: {
            const size_t size = primitive_size(type.kind);
            return size == 0 ? fail("its type has no values")
                             : read_integer(reader, size, is_signed(type.kind), value.bits);
        }
    }
}

bool CdrWalker::walk_bitset(ByteReader& reader, const Type& type, ValueSink* sink) {
    Scalar whole;
    if (!read_scalar(reader, type, whole))
        return false;
    if (sink == nullptr)
        return true;
    if (!sink->begin(type, 0))
        return false;
    const bool told = visit_members(type, [&](const Member& field) {
        Scalar part;
        part.bits = whole.bits >> field.value;
        if (field.bits < 64) {
            part.bits &= (uint64_t{1} << field.bits) - 1;
            // A signed field carries its sign in its highest bit.
            if (is_signed(field.type->kind) && (part.bits >> (field.bits - 1) & 1) != 0)
                part.bits |= ~uint64_t{0} << field.bits;
        }
        return sink->member(field) && sink->scalar(*field.type, part);
    });
    return told && sink->end(type);
}

} // namespace meridian::types
