#include "quixspy/quixSpyText.h"

namespace {

/// The character at the beginning of a text: how many octets it has, and its number. 0 octets: not UTF-8
/// (RFC 3629: no surrogates, nothing beyond U+10FFFF, no longer form than needed).
struct Character {
    size_t length;
    uint32_t number;
};

Character first_character(std::string_view text) {
    const auto octet = [text](size_t at) { return static_cast<uint8_t>(text[at]); };
    const uint8_t lead = octet(0);
    if (lead < 0x80)
        return {1, lead};
    const size_t length = lead < 0xc2 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : lead < 0xf5 ? 4 : 0;
    if (length == 0 || length > text.size())
        return {0, 0};
    uint32_t number = lead & (0x7fU >> length);
    for (size_t i = 1; i < length; ++i) {
        if ((octet(i) & 0xc0U) != 0x80)
            return {0, 0};
        number = number << 6 | (octet(i) & 0x3fU);
    }
    const bool is_too_long = (length == 3 && number < 0x800) || (length == 4 && number < 0x10000);
    const bool is_surrogate = number >= 0xd800 && number < 0xe000;
    return is_too_long || is_surrogate || number > 0x10ffff ? Character{0, 0} : Character{length, number};
}

bool is_control(uint32_t number) {
    return number < 0x20 || (number >= 0x7f && number < 0xa0);
}

/// Ends lines, or turns the direction of what stands around it.
bool is_format(uint32_t number) {
    return (number >= 0x2028 && number <= 0x202e) || (number >= 0x2066 && number <= 0x2069);
}

void append_number(std::string& line, uint32_t number) {
    line += number > 0xff ? "\\u" : "\\x";
    QUIXSpy_appendHex(line, number, number > 0xff ? 4 : 2);
}

} // namespace

void QUIXSpy_appendText(std::string& line, std::string_view text, size_t width, bool isContents) {
    for (size_t at = 0; at < text.size() && at < width;) {
        const Character character = first_character(text.substr(at));
        if (character.length > width - at)
            return;
        if (character.length == 0)
            append_number(line, static_cast<uint8_t>(text[at]));
        else if (is_control(character.number) || (isContents && is_format(character.number)))
            append_number(line, character.number);
        else
            line.append(text, at, character.length);
        at += character.length == 0 ? 1 : character.length;
    }
}

std::string QUIXSpy_text(const char* text) {
    std::string shown;
    if (text != nullptr)
        QUIXSpy_appendText(shown, text);
    return shown;
}
