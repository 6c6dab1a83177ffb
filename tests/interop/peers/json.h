// Just enough JSON to say what a sample holds. It shares nothing with the tool, whose JSON it is compared
// with.
#pragma once

#include <charconv>
#include <cstddef>
#include <cstdio>
#include <string>
#include <type_traits>

namespace peers {

inline std::string json(bool value) {
    return value ? "true" : "false";
}

// Numbers in the shortest form that reads back as the same value.
template <typename T, typename = std::enable_if_t<std::is_arithmetic_v<T>>>
std::string json(T value) {
    char text[64];
    return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

inline std::string json(const std::string& value) {
    std::string text = "\"";
    for (const char c : value) {
        if (c == '"' || c == '\\') {
            text += '\\';
            text += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
            text += escape;
        } else {
            text += c;
        }
    }
    return text + '"';
}

inline std::string json(const char* value) {
    return json(std::string(value));
}

inline std::string json(const std::wstring& value) {
    std::string text;
    for (const wchar_t letter : value) {
        char escape[16];
        std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(letter));
        text += escape;
    }
    return '"' + text + '"';
}

template <typename T>
std::string json_array(const T* values, size_t count) {
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        text += (i == 0 ? "" : ",") + json(values[i]);
    }
    return "[" + text + "]";
}

class JsonObject {
  public:
    template <typename T>
    JsonObject& add(const char* name, const T& value) {
        return add_json(name, json(value));
    }

    // A value that is JSON already.
    JsonObject& add_json(const char* name, const std::string& value) {
        members_ += (members_.empty() ? "" : ",") + json(name) + ":" + value;
        return *this;
    }

    std::string text() const { return "{" + members_ + "}"; }

  private:
    std::string members_;
};

} // namespace peers
