#pragma once

// Values as text, for printers of contents.

#include <charconv>
#include <cmath>
#include <string>
#include <string_view>

#include "types/data/value_sink.h"

namespace meridian::types {

/// As std::to_chars has it.
template <typename... Number>
void append_chars(std::string& out, Number... value) {
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value...);
    out.append(buffer, result.ptr);
}

/// Shortest decimal form that reads back as the same number; "nan", "inf" and "-inf" otherwise.
template <typename Number>
void append_number(std::string& out, Number value) {
    // to_chars tells the sign of a NaN, which means nothing.
    if (std::isnan(value))
        out += "nan";
    else
        append_chars(out, value);
}

/// How text stands in quotes.
struct Quoting {
    // What a backslash and a letter stand for, and the letters.
    std::string_view characters;
    std::string_view letters;
    std::string_view control; // in front of the two digits of other control characters
    const char* digits;       // of those below U+0020
};
/// Appends valid UTF-8 as it stands in quotes: control characters, and those that end lines or turn the
/// direction of text, become escapes, since terminals obey them.
void append_escaped(std::string& out, std::string_view text, const Quoting& quoting);

/// A long double, as near as this machine's comes to it.
long double to_long_double(const Scalar& value);
/// Whether it is zero, no number, or a number of a size that occurs: octets of the other format mostly are
/// not.
bool is_plausible_long_double(const Scalar& value);

/// Any scalar as plain text without quotes: also the form of map keys in JSON. Of a bit mask the names of the
/// flags that are set, joined by " | "; unnamed bits in hexadecimal; "0" when none is set.
void append_scalar(std::string& out, const Type& type, const Scalar& value);

} // namespace meridian::types
