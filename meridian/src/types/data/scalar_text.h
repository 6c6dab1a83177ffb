#pragma once

// Values as text, for printers of contents.

#include <charconv>
#include <cmath>
#include <string>

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

/// A long double, as near as this machine's comes to it.
long double to_long_double(const Scalar& value);
/// Whether it is zero, no number, or a number of a size that occurs: octets of the other format mostly are
/// not.
bool is_plausible_long_double(const Scalar& value);

/// Any scalar as plain text without quotes: also the form of map keys in JSON. Of a bit mask the names of the
/// flags that are set, joined by " | "; unnamed bits in hexadecimal; "0" when none is set.
void append_scalar(std::string& out, const Type& type, const Scalar& value);

} // namespace meridian::types
