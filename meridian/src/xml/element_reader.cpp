#include "xml/element_reader.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>
#include <set>
#include <utility>

#include "platform/text.h"

namespace meridian::xml {

namespace {

/// A value as a message shows it: long ones are cut.
std::string quoted(const std::string& value) {
    constexpr size_t kLongest = 60;
    return value.size() <= kLongest ? "\"" + value + "\"" : "\"" + value.substr(0, kLongest) + "...\"";
}

bool is_name_of(const std::string& text, const char* name) {
    const char* start = text.c_str();
    if (text.compare(0, 4, "DDS_") == 0)
        start += 4;
    return std::strcmp(start, name) == 0;
}

std::optional<int64_t> value_of_name(const std::string& text, Names names) {
    for (const NamedValue& candidate : names) {
        if (is_name_of(text, candidate.name))
            return candidate.value;
    }
    return std::nullopt;
}

std::string joined(Names names) {
    std::string text;
    for (const NamedValue& name : names) {
        if (!text.empty())
            text += ", ";
        text += name.name;
    }
    return text;
}

enum class NumberKind { valid, too_large, not_a_number };

NumberKind to_number(const std::string& text, int64_t& value) {
    const bool negative = !text.empty() && text[0] == '-';
    const char* first = text.c_str() + (negative ? 1 : 0);
    const char* last = text.c_str() + text.size();
    int base = 10;
    if (last - first > 2 && first[0] == '0' && (first[1] == 'x' || first[1] == 'X')) {
        first += 2;
        base = 16;
    }
    uint64_t magnitude = 0;
    const auto [end, error] = std::from_chars(first, last, magnitude, base);
    if (end != last || error == std::errc::invalid_argument)
        return NumberKind::not_a_number;
    if (error == std::errc::result_out_of_range || magnitude > static_cast<uint64_t>(INT64_MAX))
        return NumberKind::too_large;
    value = negative ? -static_cast<int64_t>(magnitude) : static_cast<int64_t>(magnitude);
    return NumberKind::valid;
}

constexpr const char* kNoBoolean = " is not one of true, false, 1, 0";

bool to_boolean(std::string word, bool& value) {
    std::transform(word.begin(), word.end(), word.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    if (word != "true" && word != "1" && word != "false" && word != "0")
        return false;
    value = word == "true" || word == "1";
    return true;
}

bool is_namespace_attribute(const char* name) {
    return std::strncmp(name, "xml", 3) == 0 || std::strncmp(name, "xsi:", 4) == 0;
}

} // namespace

void ElementReader::fail(pugi::xml_node element, const std::string& reason) {
    if (error_.empty())
        error_ = document_->message(element, reason);
}

void ElementReader::fail_unknown(pugi::xml_node element, const std::string& place) {
    is_unknown_ = ok();
    fail(element, "unknown element in " + place);
}

std::string ElementReader::forgive_unknown() {
    return std::exchange(is_unknown_, false) ? std::exchange(error_, {}) : std::string();
}

void ElementReader::check_attributes(pugi::xml_node element, std::initializer_list<const char*> known,
                                     std::initializer_list<const char*> also_known) {
    std::set<std::string> seen;
    for (const pugi::xml_attribute attribute : element.attributes()) {
        const char* name = attribute.name();
        const auto is_in = [name](std::initializer_list<const char*> list) {
            return std::any_of(list.begin(), list.end(),
                               [name](const char* candidate) { return std::strcmp(candidate, name) == 0; });
        };
        if (!is_in(known) && !is_in(also_known) && !is_namespace_attribute(name))
            return fail(element, std::string("unknown attribute ") + quoted(name));
        if (!seen.insert(name).second)
            return fail(element, std::string("attribute ") + quoted(name) + " appears twice");
    }
}

std::vector<pugi::xml_node> ElementReader::children(pugi::xml_node element, Attributes attributes) {
    std::vector<pugi::xml_node> found;
    for (const pugi::xml_node child : element.children()) {
        if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) {
            fail(element,
                 "holds the text " + quoted(trimmed(child.value())) + " where elements are expected");
        } else if (child.type() == pugi::node_element) {
            if (attributes == Attributes::none)
                check_attributes(child, {});
            found.push_back(child);
        }
        if (!ok())
            return {};
    }
    return found;
}

std::vector<pugi::xml_node> ElementReader::list(pugi::xml_node element) {
    std::vector<pugi::xml_node> found = children(element);
    for (const pugi::xml_node child : found) {
        if (std::strcmp(child.name(), "element") != 0)
            fail_unknown(child, std::string("the list <") + element.name() + ">");
    }
    return ok() ? found : std::vector<pugi::xml_node>();
}

std::string ElementReader::text(pugi::xml_node element) {
    std::string joined_text;
    for (const pugi::xml_node child : element.children()) {
        if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata)
            joined_text += child.value();
        else if (child.type() == pugi::node_element)
            fail_unknown(child, std::string("<") + element.name() + ">, which holds a plain value");
    }
    return trimmed(joined_text);
}

void ElementReader::boolean(pugi::xml_node element, bool& value) {
    const std::string word = text(element);
    if (!to_boolean(word, value))
        fail(element, quoted(word) + kNoBoolean);
}

void ElementReader::boolean_attribute(pugi::xml_node element, const char* name, bool& value) {
    const pugi::xml_attribute attribute = element.attribute(name);
    const std::string word = trimmed(attribute.value());
    if (attribute && !to_boolean(word, value))
        fail(element, std::string("attribute \"") + name + "\": " + quoted(word) + kNoBoolean);
}

int64_t ElementReader::parse_number(pugi::xml_node element, int64_t old, int64_t min, int64_t max,
                                    Names names) {
    const std::string word = text(element);
    if (const std::optional<int64_t> named = value_of_name(word, names))
        return *named;
    const std::string range = std::to_string(min) + " to " + std::to_string(max) +
                              (names.begin() == names.end() ? std::string() : ", or " + joined(names));
    int64_t value = old;
    switch (to_number(word, value)) {
        case NumberKind::not_a_number:
            fail(element, quoted(word) + " is not a number (" + range + ")");
            return old;
        case NumberKind::too_large:
            fail(element, quoted(word) + " is out of range (" + range + ")");
            return old;
        case NumberKind::valid:
            break;
    }
    // The number behind a name is as good as the name, whatever the range.
    const bool is_named = std::any_of(names.begin(), names.end(), [value](const NamedValue& candidate) {
        return candidate.value == value;
    });
    if (!is_named && (value < min || value > max)) {
        fail(element, quoted(word) + " is out of range (" + range + ")");
        return old;
    }
    return value;
}

int64_t ElementReader::parse_name(pugi::xml_node element, const std::string& name, int64_t old, Names names) {
    if (const std::optional<int64_t> value = value_of_name(name, names))
        return *value;
    fail(element, quoted(name) + " is not one of " + joined(names));
    return old;
}

void ElementReader::mask(pugi::xml_node element, int32_t& value, Names names) {
    const std::string all = text(element);
    int64_t bits = 0;
    if (to_number(all, bits) == NumberKind::valid) {
        number(element, value, 0, INT32_MAX);
        return;
    }
    bits = 0;
    for (const std::string& name : split(all, "|"))
        bits |= parse_name(element, trimmed(name), 0, names);
    value = static_cast<int32_t>(bits);
}

} // namespace meridian::xml
