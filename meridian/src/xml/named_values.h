#pragma once

#include <cstddef>
#include <cstdint>

namespace meridian::xml {

/// A name that stands for a number. Names are understood with and without the prefix "DDS_".
struct NamedValue {
    const char* name;
    int64_t value;
};

/// The names of one kind of value; refers to an array that outlives it.
class Names {
  public:
    constexpr Names() = default;
    template <size_t count>
    constexpr Names(const NamedValue (&names)[count]) : first_(names), last_(names + count) {}
    constexpr const NamedValue* begin() const { return first_; }
    constexpr const NamedValue* end() const { return last_; }

  private:
    const NamedValue* first_ = nullptr;
    const NamedValue* last_ = nullptr;
};

} // namespace meridian::xml
