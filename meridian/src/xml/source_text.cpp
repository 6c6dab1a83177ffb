#include "xml/source_text.h"

#include <cstdint>
#include <string_view>

#include "platform/text.h"

namespace meridian::xml {

namespace {

bool is_xml_character(uint32_t code) {
    if (code < 0x20)
        return code == '\t' || code == '\n' || code == '\r';
    if (code >= 0xd800 && code <= 0xdfff)
        return false;
    return code <= 0x10ffff && code != 0xfffe && code != 0xffff;
}

bool starts_with(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

bool utf16_to_utf8(std::string& source, bool big_endian, TextProblem& problem) {
    std::string converted;
    converted.reserve(source.size());
    const auto unit_at = [&](size_t at) -> uint32_t {
        const auto first = static_cast<unsigned char>(source[at]);
        const auto second = static_cast<unsigned char>(source[at + 1]);
        return big_endian ? uint32_t{first} << 8 | second : uint32_t{second} << 8 | first;
    };
    for (size_t at = 0; at < source.size(); at += 2) {
        bool valid = at + 1 < source.size();
        uint32_t code = valid ? unit_at(at) : 0;
        if (valid && code >= 0xd800 && code < 0xdc00) {
            const uint32_t low = at + 3 < source.size() ? unit_at(at + 2) : 0;
            valid = low >= 0xdc00 && low < 0xe000;
            code = 0x10000 + ((code - 0xd800) << 10) + (low - 0xdc00);
            at += 2;
        } else if (code >= 0xdc00 && code < 0xe000) {
            valid = false;
        }
        if (!valid) {
            problem = {converted.size(), "not valid UTF-16"};
            source = converted; // so that the line can be counted
            return false;
        }
        append_code_point(converted, code);
    }
    source = std::move(converted);
    return true;
}

/// The character that begins at `at`, and how many bytes it has; no bytes when they are not valid UTF-8.
struct Character {
    uint32_t code;
    size_t size;
};
Character character_at(const std::string& text, size_t at) {
    const auto lead = static_cast<unsigned char>(text[at]);
    if (lead < 0x80)
        return {lead, 1};
    const size_t size = lead >= 0xc2 && lead < 0xe0   ? 2u
                        : lead >= 0xe0 && lead < 0xf0 ? 3u
                        : lead >= 0xf0 && lead < 0xf5 ? 4u
                                                      : 0u;
    if (size == 0 || at + size > text.size())
        return {0, 0};
    uint32_t code = lead & (0xffu >> (size + 1));
    for (size_t i = 1; i < size; ++i) {
        const auto next = static_cast<unsigned char>(text[at + i]);
        if ((next & 0xc0) != 0x80)
            return {0, 0};
        code = code << 6 | (next & 0x3f);
    }
    // Longer forms than needed would let a character hide from the checks.
    const uint32_t smallest = size == 2 ? 0x80 : size == 3 ? 0x800 : 0x10000;
    return code < smallest ? Character{0, 0} : Character{code, size};
}

/// `name` is the text between "&" and ";".
bool is_known_reference(std::string_view name) {
    if (name.empty() || name[0] != '#')
        return name == "amp" || name == "lt" || name == "gt" || name == "quot" || name == "apos";
    const bool hexadecimal = name.size() > 1 && name[1] == 'x';
    const std::string_view digits = name.substr(hexadecimal ? 2 : 1);
    if (digits.empty() || digits.size() > 8)
        return false;
    const uint32_t base = hexadecimal ? 16 : 10;
    uint32_t code = 0;
    for (const char digit : digits) {
        uint32_t value = 99;
        if (digit >= '0' && digit <= '9')
            value = static_cast<uint32_t>(digit - '0');
        else if (digit >= 'a' && digit <= 'f')
            value = static_cast<uint32_t>(digit - 'a') + 10;
        else if (digit >= 'A' && digit <= 'F')
            value = static_cast<uint32_t>(digit - 'A') + 10;
        if (value >= base || code > 0x10ffff)
            return false;
        code = code * base + value;
    }
    return is_xml_character(code);
}

TextProblem check_reference(std::string_view text, size_t at) {
    constexpr size_t kLongestName = 64;
    const size_t end = text.substr(at, kLongestName).find_first_of("; \t\r\n<&\"'", 1);
    if (end == std::string_view::npos || text[at + end] != ';')
        return {at, "a bare \"&\" (write \"&amp;\")"};
    const std::string_view name = text.substr(at + 1, end - 1);
    if (!is_known_reference(name))
        return {at, "unknown entity \"&" + std::string(name) + ";\""};
    return {};
}

} // namespace

bool to_utf8(std::string& source, TextProblem& problem) {
    using namespace std::string_view_literals;
    const std::string_view text = source;
    if (starts_with(text, "\xff\xfe\0\0"sv) || starts_with(text, "\0\0\xfe\xff"sv) ||
        starts_with(text, "<\0\0\0"sv) || starts_with(text, "\0\0\0<"sv)) {
        problem = {0, "UTF-32 is not supported; use UTF-8"};
        return false;
    }
    if (starts_with(text, "\xef\xbb\xbf"sv)) {
        source.erase(0, 3);
        return true;
    }
    const bool marked_little = starts_with(text, "\xff\xfe"sv);
    const bool marked_big = starts_with(text, "\xfe\xff"sv);
    const bool big = marked_big || starts_with(text, "\0<"sv);
    if (!big && !marked_little && !starts_with(text, "<\0"sv))
        return true;
    if (marked_little || marked_big)
        source.erase(0, 2);
    return utf16_to_utf8(source, big, problem);
}

TextProblem check_characters(const std::string& source) {
    for (size_t at = 0; at < source.size();) {
        const Character character = character_at(source, at);
        if (character.size == 0)
            return {at, "not valid UTF-8"};
        if (!is_xml_character(character.code))
            return {at, "a character that XML does not allow (code " + std::to_string(character.code) + ")"};
        at += character.size;
    }
    return {};
}

TextProblem check_markup(const std::string& source) {
    struct Skipped {
        std::string_view start;
        std::string_view end;
    };
    static constexpr Skipped kSkipped[] = {
        {"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<?", "?>"}, {"<!DOCTYPE", ">"}};
    const std::string_view text = source;
    size_t at = text.find_first_of("<&");
    while (at != std::string_view::npos) {
        size_t next = at + 1;
        if (text[at] == '&') {
            TextProblem problem = check_reference(text, at);
            if (!problem.reason.empty())
                return problem;
        }
        for (const Skipped& skipped : kSkipped) {
            if (!starts_with(text.substr(at), skipped.start))
                continue;
            const size_t end = text.find(skipped.end, at + skipped.start.size());
            // Nothing that the document type could declare is understood here, and entities are a way to make
            // a small document large.
            if (skipped.end == ">" &&
                text.substr(at, end == std::string_view::npos ? end : end - at).find('[') !=
                    std::string_view::npos)
                return {at, "a document type with declarations is not supported"};
            next = end == std::string_view::npos ? text.size() : end + skipped.end.size();
            break;
        }
        at = text.find_first_of("<&", next);
    }
    return {};
}

} // namespace meridian::xml
