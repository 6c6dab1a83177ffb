#include "qos/octets.h"

#include <algorithm>
#include <charconv>

#include "platform/text.h"

namespace meridian::qos {

namespace {

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

bool to_octet(std::string number, DDS_Octet& octet) {
    number.erase(std::remove_if(number.begin(), number.end(), is_blank), number.end());
    const bool hexadecimal = number.size() > 2 && number[0] == '0' && (number[1] == 'x' || number[1] == 'X');
    const char* last = number.data() + number.size();
    unsigned value = 0;
    const auto [end, error] =
        std::from_chars(number.data() + (hexadecimal ? 2 : 0), last, value, hexadecimal ? 16 : 10);
    if (error != std::errc() || end != last || value > 255)
        return false;
    octet = static_cast<DDS_Octet>(value);
    return true;
}

std::string decode_list(const std::string& text, std::vector<DDS_Octet>& octets) {
    for (const std::string& number : split(text, ",")) {
        DDS_Octet octet = 0;
        if (!to_octet(number, octet))
            return "octet " + std::to_string(octets.size() + 1) + " is not a number from 0 to 255";
        octets.push_back(octet);
    }
    return {};
}

/// The six bits of a character, or -1.
int sextet(char c) {
    if (c >= 'A' && c <= 'Z')
        return c - 'A';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 26;
    if (is_digit(c))
        return c - '0' + 52;
    return c == '+' ? 62 : c == '/' ? 63 : -1;
}

std::string decode_base64(std::string text, std::vector<DDS_Octet>& octets) {
    text.erase(std::remove_if(text.begin(), text.end(), is_blank), text.end());
    static const std::string kProblem = "neither base64 nor octets separated by commas";
    if (text.size() % 4 != 0)
        return kProblem;
    const size_t padding = text.empty() ? 0 : text.size() - 1 - text.find_last_not_of('=');
    if (padding > 2)
        return kProblem;
    text.resize(text.size() - padding);
    unsigned bits = 0;
    unsigned count = 0;
    for (const char c : text) {
        const int value = sextet(c);
        if (value < 0)
            return kProblem;
        bits = (bits << 6 | static_cast<unsigned>(value)) & 0xffff;
        count += 6;
        if (count >= 8) {
            count -= 8;
            octets.push_back(static_cast<DDS_Octet>(bits >> count & 0xff));
        }
    }
    return {};
}

} // namespace

std::string decode_octets(const std::string& text, std::vector<DDS_Octet>& octets) {
    octets.clear();
    const auto only_digits_and_blanks = [&text] {
        return std::all_of(text.begin(), text.end(), [](char c) { return is_digit(c) || is_blank(c); });
    };
    const bool is_hexadecimal = text.size() > 1 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    if (text.find(',') != std::string::npos || (is_hexadecimal && text.size() <= 4))
        return decode_list(text, octets);
    if (!text.empty() && only_digits_and_blanks()) {
        // "10 20 30 40" would be base64 too, but is a list that lacks its commas.
        if (text.find_first_of(" \t\r\n") != std::string::npos)
            return "octets must be separated by commas";
        if (text.size() <= 3)
            return decode_list(text, octets);
    }
    return decode_base64(text, octets);
}

} // namespace meridian::qos
