#pragma once

// The bytes that a fuzzer makes up.

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "rtps/wire/byte_reader.h"

namespace fuzz {

/// Takes bytes from the front of the input; zeros when it is used up.
class Input {
  public:
    Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    uint8_t next() {
        if (size_ == 0)
            return 0;
        --size_;
        return *data_++;
    }
    /// The next bytes, so many or as many as there are.
    meridian::rtps::ByteView take(size_t count) {
        const meridian::rtps::ByteView taken(data_, std::min(count, size_));
        data_ += taken.size;
        size_ -= taken.size;
        return taken;
    }
    size_t size() const { return size_; }
    const uint8_t* data() const { return data_; }

  private:
    const uint8_t* data_;
    size_t size_;
};

} // namespace fuzz
