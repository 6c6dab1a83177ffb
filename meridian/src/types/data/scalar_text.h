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

/// A long double as it was sent, as near as this machine's long double comes to it. The standard's IEEE
/// binary128 and the 80 bits that peers on x86 send instead are told apart by which of them makes a number of
/// a plausible size.
long double to_long_double(const std::array<uint8_t, 16>& octets);

/// Any scalar as plain text without quotes: also the form of map keys in JSON. Of a bit mask the names of the
/// flags that are set, joined by " | "; unnamed bits in hexadecimal; "0" when none is set.
void append_scalar(std::string& out, const Type& type, const Scalar& value);

} // namespace meridian::types
