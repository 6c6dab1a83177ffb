#include "types/documents/constant_expression.h"

#include <algorithm>
#include <charconv>
#include <iterator>

namespace meridian::types {

namespace {

/// Parentheses and signs may nest this deep.
constexpr unsigned kMaxDepth = 64;

bool is_word(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == ':';
}

std::optional<int64_t> number_of(std::string_view text) {
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    } else if (text.size() > 1 && text[0] == '0') {
        base = 8; // as in IDL
        text.remove_prefix(1);
    }
    int64_t value = 0;
    const char* last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, value, base);
    return error == std::errc() && end == last ? std::optional<int64_t>(value) : std::nullopt;
}

std::optional<int64_t> apply(std::string_view operation, int64_t left, int64_t right) {
    int64_t result = 0;
    bool fits = true;
    switch (operation[0]) {
        case '|':
            return left | right;
        case '^':
            return left ^ right;
        case '&':
            return left & right;
        case '<':
            // Multiplied, so that what is lost is seen.
            fits = right >= 0 && right < 63 && !__builtin_mul_overflow(left, int64_t{1} << right, &result);
            break;
        case '>':
            fits = right >= 0 && right < 64;
            result = fits ? left >> right : 0;
            break;
        case '+':
            fits = !__builtin_add_overflow(left, right, &result);
            break;
        case '-':
            fits = !__builtin_sub_overflow(left, right, &result);
            break;
        case '*':
            fits = !__builtin_mul_overflow(left, right, &result);
            break;
        default:
            fits = right != 0 && !(left == INT64_MIN && right == -1);
            if (fits)
                result = operation[0] == '/' ? left / right : left % right;
            break;
    }
    return fits ? std::optional<int64_t>(result) : std::nullopt;
}

/// Parses by descent, one level for each precedence.
class Parser {
  public:
    Parser(std::string_view text, const std::function<std::optional<int64_t>(std::string_view)>& value_of)
        : rest_(text), value_of_(value_of) {}

    std::optional<int64_t> all() {
        const std::optional<int64_t> value = binary(0);
        skip_blanks();
        return rest_.empty() ? value : std::nullopt;
    }

  private:
    void skip_blanks() { rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\r\n"), rest_.size())); }

    bool take(std::string_view token) {
        skip_blanks();
        if (rest_.substr(0, token.size()) != token)
            return false;
        rest_.remove_prefix(token.size());
        return true;
    }

    /// The operator of that precedence which comes next, or nothing.
    std::string_view take_operator(size_t level) {
        for (const std::string_view operation : kOperators[level]) {
            if (!operation.empty() && take(operation))
                return operation;
        }
        return {};
    }

    std::optional<int64_t> binary(size_t level) {
        if (level == std::size(kOperators))
            return unary();
        std::optional<int64_t> left = binary(level + 1);
        while (left) {
            const std::string_view operation = take_operator(level);
            if (operation.empty())
                return left;
            const std::optional<int64_t> right = binary(level + 1);
            left = right ? apply(operation, *left, *right) : std::nullopt;
        }
        return std::nullopt;
    }

    std::optional<int64_t> unary() {
        if (++depth_ > kMaxDepth)
            return std::nullopt;
        std::optional<int64_t> value;
        if (take("-")) {
            value = unary();
            value = value ? apply("-", 0, *value) : std::nullopt;
        } else if (take("+")) {
            value = unary();
        } else if (take("~")) {
            value = unary();
            value = value ? std::optional<int64_t>(~*value) : std::nullopt;
        } else if (take("(")) {
            value = binary(0);
            value = take(")") ? value : std::nullopt;
        } else {
            value = literal();
        }
        --depth_;
        return value;
    }

    std::optional<int64_t> literal() {
        skip_blanks();
        if (rest_.size() >= 3 && rest_[0] == '\'' && rest_[2] == '\'') {
            const auto character = static_cast<unsigned char>(rest_[1]);
            rest_.remove_prefix(3);
            return character;
        }
        size_t length = 0;
        while (length < rest_.size() && is_word(rest_[length]))
            ++length;
        const std::string_view word = rest_.substr(0, length);
        rest_.remove_prefix(length);
        if (word.empty())
            return std::nullopt;
        return word[0] >= '0' && word[0] <= '9' ? number_of(word) : value_of_(word);
    }

    static constexpr std::string_view kOperators[][3] = {{"|"},        {"^"},      {"&"},
                                                         {"<<", ">>"}, {"+", "-"}, {"*", "/", "%"}};

    std::string_view rest_;
    const std::function<std::optional<int64_t>(std::string_view)>& value_of_;
    unsigned depth_ = 0;
};

} // namespace

std::optional<int64_t> evaluate_constant(
    std::string_view text, const std::function<std::optional<int64_t>(std::string_view name)>& value_of) {
    return Parser(text, value_of).all();
}

} // namespace meridian::types
