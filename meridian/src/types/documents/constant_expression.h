#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

namespace meridian::types {

/// The value of a constant expression of IDL (OMG IDL 4.2, 7.4.1.4.3): numbers, characters, names,
/// parentheses, and the operators | ^ & << >> + - * / % ~. `value_of` tells what a name ("a::b") stands for.
/// Nothing when the text is not such an expression, or when a result does not fit into 64 bits.
std::optional<int64_t> evaluate_constant(
    std::string_view text, const std::function<std::optional<int64_t>(std::string_view name)>& value_of);

} // namespace meridian::types
