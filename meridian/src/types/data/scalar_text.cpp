#include "types/data/scalar_text.h"

#include <algorithm>
#include <cmath>

#include "meridian/utf8.h"
#include "platform/text.h"

namespace meridian::types {

namespace {

/// The number in some octets of a long double.
uint64_t number(const Scalar& value, size_t first, size_t count) {
    uint64_t result = 0;
    for (size_t i = count; i-- > 0;)
        result = result << 8 | value.octets[first + i];
    return result;
}

uint64_t sign_and_exponent(const Scalar& value) {
    return number(value, value.x86 ? 8 : 14, 2);
}

} // namespace

bool is_plausible_long_double(const Scalar& value) {
    const uint64_t exponent = sign_and_exponent(value) & 0x7fff;
    // The 80-bit format shows the leading one of every number but zero.
    const bool leading = !value.x86 || (value.octets[7] & 0x80) != 0;
    if (exponent == 0)
        return number(value, 0, 8) == 0 && (value.x86 || number(value, 8, 6) == 0);
    return leading && (exponent == 0x7fff || (exponent > 16383 - 4096 && exponent < 16383 + 4096));
}

long double to_long_double(const Scalar& value) {
    const bool extended = value.x86;
    const uint64_t head = sign_and_exponent(value);
    const int exponent = static_cast<int>(head & 0x7fff);
    const long double sign = (head & 0x8000) != 0 ? -1.0L : 1.0L;
    if (exponent == 0x7fff) {
        // An 80-bit number shows its leading one, a 128-bit one does not.
        const bool is_nan =
            extended ? (number(value, 0, 8) << 1) != 0 : number(value, 0, 8) != 0 || number(value, 8, 6) != 0;
        return is_nan ? std::nanl("") : sign * HUGE_VALL;
    }
    const int scale = (exponent == 0 ? 1 : exponent) - 16383;
    if (extended)
        return sign * std::ldexp(static_cast<long double>(number(value, 0, 8)), scale - 63);
    const uint64_t leading = exponent == 0 ? 0 : uint64_t{1} << 48;
    const long double high = std::ldexp(static_cast<long double>(number(value, 8, 6) | leading), scale - 48);
    return sign * (high + std::ldexp(static_cast<long double>(number(value, 0, 8)), scale - 112));
}

namespace {

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
        out += separator;
        if (bits != 0)
            out += "0x";
        append_chars(out, bits, 16);
    }
}

/// The first character of a text; how many octets it has.
size_t append_special(std::string& out, std::string_view text, const Quoting& quoting) {
    const size_t escape = quoting.characters.find(text[0]);
    if (escape != std::string_view::npos) {
        out += '\\';
        out += quoting.letters[escape];
        return 1;
    }
    const QUIXCharacter character = QUIXCharacter_first(text);
    const size_t length = std::max<size_t>(character.length, 1);
    const auto low = static_cast<uint8_t>(character.number & 0xff);
    if (character.is_format()) {
        out += "\\u";
        append_hex(out, static_cast<uint8_t>(character.number >> 8));
        append_hex(out, low);
    } else if (!character.is_control()) {
        out += text.substr(0, length);
    } else if (low < 0x20) {
        out += quoting.control;
        out += quoting.digits[low >> 4];
        out += quoting.digits[low & 15];
    } else {
        out += quoting.control;
        append_hex(out, low);
    }
    return length;
}

} // namespace

void append_escaped(std::string& out, std::string_view text, const Quoting& quoting) {
    while (!text.empty()) {
        const size_t plain = plain_length(text);
        out.append(text.data(), plain);
        text.remove_prefix(plain);
        if (!text.empty())
            text.remove_prefix(append_special(out, text, quoting));
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
            append_number(out, to_long_double(value));
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
        default:
            if (is_signed(type.kind))
                append_number(out, value.integer());
            else
                append_number(out, value.bits);
            break;
    }
}

} // namespace meridian::types
