#pragma once

// Values as text, for printers of contents.

#include <string>

#include "types/data/value_sink.h"

namespace meridian::types {

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
