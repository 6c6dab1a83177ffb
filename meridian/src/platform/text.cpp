#include "platform/text.h"

#include <arpa/inet.h>

#include <array>

#include "meridian/utf8.h"

namespace meridian {

namespace {

constexpr char32_t kReplacement = 0xfffd;

bool is_continuation(std::string_view text, size_t at) {
    return at < text.size() && (static_cast<uint8_t>(text[at]) & 0xc0) == 0x80;
}

/// Octets of the sequence at the start of `text`: `valid` tells whether they are a character.
size_t utf8_length(std::string_view text, bool& valid) {
    const auto lead = static_cast<uint8_t>(text[0]);
    valid = lead < 0x80;
    if (lead < 0xc2 || lead > 0xf4)
        return 1;
    // The second octet alone tells overlong forms, surrogates and numbers beyond Unicode.
    uint8_t low = 0x80;
    uint8_t high = 0xbf;
    if (lead == 0xe0)
        low = 0xa0;
    else if (lead == 0xed)
        high = 0x9f;
    else if (lead == 0xf0)
        low = 0x90;
    else if (lead == 0xf4)
        high = 0x8f;
    const size_t length = lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    if (text.size() < 2 || static_cast<uint8_t>(text[1]) < low || static_cast<uint8_t>(text[1]) > high)
        return 1;
    for (size_t i = 2; i < length; ++i) {
        if (!is_continuation(text, i))
            return i;
    }
    valid = true;
    return length;
}

} // namespace

std::string trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\n";
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos)
        return {};
    return std::string(text.substr(first, text.find_last_not_of(kBlanks) - first + 1));
}

std::vector<std::string> split(std::string_view text, std::string_view separator) {
    std::vector<std::string> parts;
    for (size_t start = 0; start <= text.size();) {
        const size_t end = std::min(text.find(separator, start), text.size());
        parts.emplace_back(text.substr(start, end - start));
        start = end + separator.size();
    }
    return parts;
}

void append_code_point(std::string& out, char32_t point) {
    const auto put = [&out](char32_t octet) { out += static_cast<char>(octet); };
    if (point > 0x10ffff || (point >= 0xd800 && point <= 0xdfff))
        point = kReplacement;
    if (point < 0x80) {
        put(point);
    } else if (point < 0x800) {
        put(0xc0 | point >> 6);
        put(0x80 | (point & 0x3f));
    } else if (point < 0x10000) {
        put(0xe0 | point >> 12);
        put(0x80 | (point >> 6 & 0x3f));
        put(0x80 | (point & 0x3f));
    } else {
        put(0xf0 | point >> 18);
        put(0x80 | (point >> 12 & 0x3f));
        put(0x80 | (point >> 6 & 0x3f));
        put(0x80 | (point & 0x3f));
    }
}

size_t plain_length(std::string_view text) {
    static constexpr std::array<bool, 256> kPlain = [] {
        std::array<bool, 256> table{};
        for (size_t i = 0; i < table.size(); ++i)
            table[i] = i < 0x80 && is_plain(static_cast<char>(i));
        return table;
    }();
    size_t length = 0;
    while (length < text.size() && kPlain[static_cast<uint8_t>(text[length])])
        ++length;
    return length;
}

size_t valid_length(std::string_view text) {
    size_t length = 0;
    bool valid = true;
    while (length < text.size()) {
        const size_t next = utf8_length(text.substr(length), valid);
        if (!valid)
            break;
        length += next;
    }
    return length;
}

void append_utf8(std::string& out, std::string_view text) {
    while (!text.empty()) {
        bool valid = false;
        const size_t length = utf8_length(text, valid);
        if (valid)
            out.append(text.data(), length);
        else
            append_code_point(out, kReplacement);
        text.remove_prefix(length);
    }
}

void append_utf16(std::string& out, std::u16string_view text) {
    for (size_t i = 0; i < text.size(); ++i) {
        const char32_t unit = text[i];
        const bool pair = unit >= 0xd800 && unit <= 0xdbff && i + 1 < text.size() && text[i + 1] >= 0xdc00 &&
                          text[i + 1] <= 0xdfff;
        append_code_point(out,
                          pair ? 0x10000 + ((unit - 0xd800) << 10) + (char32_t{text[i + 1]} - 0xdc00) : unit);
        if (pair)
            ++i;
    }
}

void append_utf16_of(std::u16string& out, char32_t point) {
    if (point > 0xffff) {
        out += static_cast<char16_t>(0xd7c0 + (point >> 10));
        out += static_cast<char16_t>(0xdc00 + (point & 0x3ff));
    } else {
        out += static_cast<char16_t>(point);
    }
}

std::string ipv4_text(const uint8_t* address) {
    char text[INET_ADDRSTRLEN] = "";
    return inet_ntop(AF_INET, address, text, sizeof text);
}

std::string ipv6_text(const uint8_t* address) {
    char text[INET6_ADDRSTRLEN] = "";
    return inet_ntop(AF_INET6, address, text, sizeof text);
}

void append_hex(std::string& out, uint8_t octet) {
    static constexpr char kDigits[] = "0123456789abcdef";
    out += kDigits[octet >> 4];
    out += kDigits[octet & 15];
}

} // namespace meridian

QUIXCharacter QUIXCharacter_first(std::string_view text) {
    bool valid = false;
    const size_t length = meridian::utf8_length(text, valid);
    if (!valid)
        return {0, 0};
    const auto octet = [text](size_t at) { return static_cast<uint8_t>(text[at]); };
    uint32_t number = length == 1 ? octet(0) : octet(0) & (0x7fU >> length);
    for (size_t i = 1; i < length; ++i)
        number = number << 6 | (octet(i) & 0x3fU);
    return {length, number};
}
