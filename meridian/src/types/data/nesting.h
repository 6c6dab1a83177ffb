#pragma once

// How deep values may nest, and the stacks that follow them down: of fixed size, so that nothing is
// allocated.

#include <array>
#include <cstddef>

namespace meridian::types {

/// Values may nest this deep; recursive types would otherwise exhaust the stack. JSON parsers stop at 256
/// levels, of which one level here takes up to two.
constexpr unsigned kMaxValueDepth = 120;

/// One entry for each value around the present one.
template <typename T>
class NestingStack {
  public:
    NestingStack() {} // leaves the entries as they are: clearing them would cost more than most walks

    /// False, and nothing pushed, beyond the depth that a walk reaches.
    bool push(const T& entry) {
        if (size_ == entries_.size())
            return false;
        entries_[size_++] = entry;
        return true;
    }
    void pop() { --size_; }

    const T& back() const { return entries_[size_ - 1]; }
    T& back() { return entries_[size_ - 1]; }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    const T* begin() const { return entries_.data(); }
    const T* end() const { return entries_.data() + size_; }

  private:
    size_t size_ = 0;
    std::array<T, kMaxValueDepth + 2> entries_;
};

} // namespace meridian::types
