#pragma once

// Text of any origin: trimmed, and made valid UTF-8. What is not valid becomes U+FFFD.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace meridian {

/// Without blanks, tabs and line ends at both ends.
std::string trimmed(std::string_view text);
/// The parts between the separators, empty ones included; a text without separators is one part.
std::vector<std::string> split(std::string_view text, std::string_view separator);

/// Whether the text is among these.
template <size_t count>
bool is_one_of(std::string_view text, const char* const (&texts)[count]) {
    return std::find(std::begin(texts), std::end(texts), text) != std::end(texts);
}

/// Appends a character as UTF-8.
void append_code_point(std::string& out, char32_t point);
/// How many octets at the start of a text are valid UTF-8.
size_t valid_length(std::string_view text);
/// Copies valid UTF-8; each maximal invalid part becomes one U+FFFD.
void append_utf8(std::string& out, std::string_view text);
void append_utf16(std::string& out, std::u16string_view text);
/// Appends a character as one unit or two.
void append_utf16_of(std::u16string& out, char32_t point);
/// An address of four octets, and one of sixteen.
std::string ipv4_text(const uint8_t* address);
std::string ipv6_text(const uint8_t* address);
/// Two hexadecimal digits, in lower case.
void append_hex(std::string& out, uint8_t octet);

/// Whether an octet is a character of valid UTF-8 that needs no escape in any quoted text.
constexpr bool is_plain(char c) {
    return c >= 0x20 && c < 0x7f && c != '"' && c != '\'' && c != '\\';
}
/// How many octets at the start of a text are so.
size_t plain_length(std::string_view text);

} // namespace meridian
