#pragma once

// Text from the network, made printable: valid UTF-8 whatever came in. What is no text becomes U+FFFD.

#include <string>
#include <string_view>

#include "types/model/value_sink.h"

namespace meridian::types {

void append_code_point(std::string& out, char32_t point);
/// Copies valid UTF-8; each maximal invalid part becomes one U+FFFD.
void append_utf8(std::string& out, std::string_view text);
/// How many octets the control character at a place of valid UTF-8 has: U+0000 to U+001F, U+007F, and those
/// up to U+009F, which terminals obey too. 0: it is none.
size_t control_at(std::string_view text, size_t at);
void append_utf16(std::string& out, std::u16string_view text);

/// Shortest decimal form that reads back as the same number; "nan", "inf" and "-inf" for what is none.
void append_number(std::string& out, float value);
void append_number(std::string& out, double value);
void append_number(std::string& out, long double value);
void append_number(std::string& out, int64_t value);
void append_number(std::string& out, uint64_t value);

/// A long double as it was sent, as near as this machine's long double comes to it. The standard's IEEE
/// binary128 and the 80 bits that peers on x86 send instead are told apart by which of them makes a number of
/// a plausible size.
long double to_long_double(const std::array<uint8_t, 16>& octets);

/// The names of the flags that are set, joined by " | "; unnamed bits in hexadecimal; "0" when none is set.
void append_bitmask(std::string& out, const Type& type, uint64_t bits);

/// Any scalar as plain text without quotes: also the form of map keys in JSON.
void append_scalar(std::string& out, const Type& type, const Scalar& value);

} // namespace meridian::types
