#pragma once

// Text from the network in lines of output. Any application can choose names; a terminal would obey control
// characters in them, and a line end would make one line look like two.

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Appends a text, or as much of it as `width` octets hold; a character that is not whole there is left out.
/// Control characters (U+0000 to U+001F, U+007F to U+009F) and octets that are not UTF-8 become \xNN, with
/// the number of the character or the octet. Those that end lines or turn the direction of text (U+2028 to
/// U+202E, U+2066 to U+2069) become \uNNNN. A backslash stays as it is.
void QUIXSpy_appendText(std::string& line, std::string_view text, size_t width = std::string_view::npos);

/// The same as a text of its own; empty for null.
std::string QUIXSpy_text(const char* text);

/// Appends a number.
template <typename Integer>
void QUIXSpy_appendDecimal(std::string& line, Integer number) {
    char text[24];
    line.append(text, std::to_chars(text, text + sizeof text, number).ptr);
}
/// Appends the lowest `count` hexadecimal digits of a number, at most eight.
inline void QUIXSpy_appendHex(std::string& line, uint32_t number, unsigned count,
                              const char* digits = "0123456789abcdef") {
    char text[8];
    for (unsigned i = 0; i < count; ++i)
        text[i] = digits[number >> 4 * (count - 1 - i) & 15];
    line.append(text, count);
}
