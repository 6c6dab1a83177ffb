#include "xml/source_text.h"

#include <algorithm>
#include <charconv>
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

/// `name` is the text between "&" and ";".
bool is_known_reference(std::string_view name) {
    if (name.empty() || name[0] != '#')
        return name == "amp" || name == "lt" || name == "gt" || name == "quot" || name == "apos";
    const bool hexadecimal = name.size() > 1 && name[1] == 'x';
    const std::string_view digits = name.substr(hexadecimal ? 2 : 1);
    uint32_t code = 0;
    const char* last = digits.data() + digits.size();
    const auto [end, error] = std::from_chars(digits.data(), last, code, hexadecimal ? 16 : 10);
    return error == std::errc() && end == last && is_xml_character(code);
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
    std::string valid;
    append_utf8(valid, source);
    if (valid != source) {
        const auto differing = std::mismatch(source.begin(), source.end(), valid.begin(), valid.end()).first;
        return {static_cast<size_t>(differing - source.begin()), "not valid UTF-8"};
    }
    for (size_t at = 0; at < source.size(); ++at) {
        uint32_t code = static_cast<unsigned char>(source[at]);
        if (source.compare(at, 2, "\xef\xbf") == 0) // U+FFC0 to U+FFFF
            code = 0xffc0u | (static_cast<unsigned char>(source[at + 2]) & 0x3fu);
        if (!is_xml_character(code))
            return {at, "a character that XML does not allow (code " + std::to_string(code) + ")"};
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
