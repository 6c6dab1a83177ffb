#pragma once

// Characters of text that may come from anyone. Any thread.

#include <cstddef>
#include <cstdint>
#include <string_view>

/// A character as it stands in a text. Without octets: there is none, as the text is not UTF-8 there (RFC
/// 3629: no surrogates, nothing beyond U+10FFFF, no longer form than needed).
struct QUIXCharacter {
    size_t length; // in octets
    uint32_t number;

    /// U+0000 to U+001F and U+007F to U+009F, which terminals obey.
    bool is_control() const { return length != 0 && (number < 0x20 || (number >= 0x7f && number < 0xa0)); }
    /// Ends lines, or turns the direction of what stands around it: U+2028 to U+202E, U+2066 to U+2069.
    bool is_format() const {
        return (number >= 0x2028 && number <= 0x202e) || (number >= 0x2066 && number <= 0x2069);
    }
};

/// The character at the start of a text, which is not empty.
QUIXCharacter QUIXCharacter_first(std::string_view text);
