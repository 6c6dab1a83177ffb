#include "types/model/text.h"

#include <charconv>
#include <cmath>

namespace meridian::types {

namespace {

constexpr char32_t kReplacement = 0xfffd;

template <typename Number>
void append_chars(std::string& out, Number value) {
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    out.append(buffer, result.ptr);
}

/// to_chars tells the sign of a NaN, which means nothing.
template <typename Number>
void append_real(std::string& out, Number value) {
    if (std::isnan(value))
        out += "nan";
    else
        append_chars(out, value);
}

bool is_continuation(std::string_view text, size_t at) {
    return at < text.size() && (static_cast<uint8_t>(text[at]) & 0xc0) == 0x80;
}

/// Octets of the sequence at the start of `text`: `valid` tells whether they are a character.
size_t utf8_length(std::string_view text, bool& valid) {
    const auto lead = static_cast<uint8_t>(text[0]);
    valid = lead < 0x80;
    if (lead < 0xc2 || lead > 0xf4)
        return 1;
    // The second octet alone tells overlong forms, surrogates and numbers beyond Unicode.
    uint8_t low = 0x80;
    uint8_t high = 0xbf;
    if (lead == 0xe0)
        low = 0xa0;
    else if (lead == 0xed)
        high = 0x9f;
    else if (lead == 0xf0)
        low = 0x90;
    else if (lead == 0xf4)
        high = 0x8f;
    const size_t length = lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    if (text.size() < 2 || static_cast<uint8_t>(text[1]) < low || static_cast<uint8_t>(text[1]) > high)
        return 1;
    for (size_t i = 2; i < length; ++i) {
        if (!is_continuation(text, i))
            return i;
    }
    valid = true;
    return length;
}

} // namespace

void append_code_point(std::string& out, char32_t point) {
    const auto put = [&out](char32_t octet) { out += static_cast<char>(octet); };
    if (point > 0x10ffff || (point >= 0xd800 && point <= 0xdfff))
        point = kReplacement;
    if (point < 0x80) {
        put(point);
    } else if (point < 0x800) {
        put(0xc0 | point >> 6);
        put(0x80 | (point & 0x3f));
    } else if (point < 0x10000) {
        put(0xe0 | point >> 12);
        put(0x80 | (point >> 6 & 0x3f));
        put(0x80 | (point & 0x3f));
    } else {
        put(0xf0 | point >> 18);
        put(0x80 | (point >> 12 & 0x3f));
        put(0x80 | (point >> 6 & 0x3f));
        put(0x80 | (point & 0x3f));
    }
}

size_t control_at(std::string_view text, size_t at) {
    const auto octet = static_cast<uint8_t>(text[at]);
    if (octet < 0x20 || octet == 0x7f)
        return 1;
    const auto next = static_cast<uint8_t>(at + 1 < text.size() ? text[at + 1] : 0);
    return octet == 0xc2 && next >= 0x80 && next <= 0x9f ? 2 : 0;
}

void append_utf8(std::string& out, std::string_view text) {
    while (!text.empty()) {
        bool valid = false;
        const size_t length = utf8_length(text, valid);
        if (valid)
            out.append(text.data(), length);
        else
            append_code_point(out, kReplacement);
        text.remove_prefix(length);
    }
}

void append_utf16(std::string& out, std::u16string_view text) {
    for (size_t i = 0; i < text.size(); ++i) {
        const char32_t unit = text[i];
        const bool pair = unit >= 0xd800 && unit <= 0xdbff && i + 1 < text.size() && text[i + 1] >= 0xdc00 &&
                          text[i + 1] <= 0xdfff;
        append_code_point(out,
                          pair ? 0x10000 + ((unit - 0xd800) << 10) + (char32_t{text[i + 1]} - 0xdc00) : unit);
        if (pair)
            ++i;
    }
}

void append_number(std::string& out, float value) {
    append_real(out, value);
}
void append_number(std::string& out, double value) {
    append_real(out, value);
}
void append_number(std::string& out, long double value) {
    append_real(out, value);
}
void append_number(std::string& out, int64_t value) {
    append_chars(out, value);
}
void append_number(std::string& out, uint64_t value) {
    append_chars(out, value);
}

long double to_long_double(const std::array<uint8_t, 16>& octets) {
    const auto number = [&octets](size_t first, size_t count) {
        uint64_t value = 0;
        for (size_t i = count; i-- > 0;)
            value = value << 8 | octets[first + i];
        return value;
    };
    // Peers on x86 send the 80 bits of their processor and whatever stood in the six octets behind. Such a
    // number shows its leading one, and read as a binary128 it is mostly out of all proportion.
    const auto is_plausible = [](uint64_t sign_and_exponent) {
        const uint64_t exponent = sign_and_exponent & 0x7fff;
        return exponent > 16383 - 4096 && exponent < 16383 + 4096;
    };
    const bool extended =
        is_plausible(number(8, 2)) && (octets[7] & 0x80) != 0 && !is_plausible(number(14, 2));
    const uint64_t head = extended ? number(8, 2) : number(14, 2);
    const int exponent = static_cast<int>(head & 0x7fff);
    const long double sign = (head & 0x8000) != 0 ? -1.0L : 1.0L;
    if (exponent == 0x7fff) {
        // An 80-bit number shows its leading one, a 128-bit one does not.
        const bool is_nan = extended ? (number(0, 8) << 1) != 0 : number(0, 8) != 0 || number(8, 6) != 0;
        return is_nan ? std::nanl("") : sign * HUGE_VALL;
    }
    const int scale = (exponent == 0 ? 1 : exponent) - 16383;
    if (extended)
        return sign * std::ldexp(static_cast<long double>(number(0, 8)), scale - 63);
    const uint64_t leading = exponent == 0 ? 0 : uint64_t{1} << 48;
    const long double high = std::ldexp(static_cast<long double>(number(8, 6) | leading), scale - 48);
    return sign * (high + std::ldexp(static_cast<long double>(number(0, 8)), scale - 112));
}

void append_bitmask(std::string& out, const Type& type, uint64_t bits) {
    const char* separator = "";
    for (const Member& flag : type.members) {
        const uint64_t bit = uint64_t{1} << (flag.value & 63);
        if ((bits & bit) == 0)
            continue;
        bits &= ~bit;
        out += separator;
        append_utf8(out, flag.name);
        separator = " | ";
    }
    if (bits != 0 || *separator == '\0') {
        char buffer[20];
        const auto result = std::to_chars(buffer, buffer + sizeof buffer, bits, 16);
        out += separator;
        if (bits != 0)
            out += "0x";
        out.append(buffer, result.ptr);
    }
}

void append_scalar(std::string& out, const Type& type, const Scalar& value) {
    switch (type.kind) {
        case DDS_TK_BOOLEAN:
            out += value.bits != 0 ? "true" : "false";
            break;
        case DDS_TK_CHAR:
        case DDS_TK_WCHAR:
            append_code_point(out, static_cast<char32_t>(value.bits));
            break;
        case DDS_TK_STRING:
            append_utf8(out, value.text);
            break;
        case DDS_TK_WSTRING:
            append_utf16(out, value.wide_text);
            break;
        case DDS_TK_FLOAT:
            append_number(out, static_cast<float>(value.real));
            break;
        case DDS_TK_DOUBLE:
            append_number(out, value.real);
            break;
        case DDS_TK_LONGDOUBLE:
            append_number(out, to_long_double(value.octets));
            break;
        case DDS_TK_ENUM:
            if (const Member* enumerator = find_enumerator(type, value.integer()))
                append_utf8(out, enumerator->name);
            else
                append_number(out, value.integer());
            break;
        case DDS_TK_BITMASK:
            append_bitmask(out, type, value.bits);
            break;
        case DDS_TK_USHORT:
        case DDS_TK_ULONG:
        case DDS_TK_ULONGLONG:
        case DDS_TK_OCTET:
        case DDS_TK_UINT8:
            append_number(out, value.bits);
            break;
        default:
            append_number(out, value.integer());
            break;
    }
}

} // namespace meridian::types
