#pragma once

// Bytes whose memory comes as they are written: growing clears nothing, and moves nothing where the system
// can avoid it, so pages that were never written cost nothing.

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <utility>

namespace meridian::rtps {

class GrowingBuffer {
  public:
    GrowingBuffer() = default;
    GrowingBuffer(GrowingBuffer&& other) noexcept
        : bytes_(std::move(other.bytes_)), capacity_(std::exchange(other.capacity_, 0)) {}
    GrowingBuffer& operator=(GrowingBuffer&& other) noexcept {
        bytes_ = std::move(other.bytes_);
        capacity_ = std::exchange(other.capacity_, 0);
        return *this;
    }

    uint8_t* data() { return bytes_.get(); }
    const uint8_t* data() const { return bytes_.get(); }
    size_t capacity() const { return capacity_; }
    /// Keeps what was written. False, with nothing changed, where there is no memory.
    bool grow(size_t capacity) {
        if (capacity <= capacity_)
            return true;
        auto* const bytes = static_cast<uint8_t*>(std::realloc(bytes_.get(), capacity));
        if (bytes == nullptr)
            return false;
        (void)bytes_.release(); // realloc has taken it
        bytes_.reset(bytes);
        capacity_ = capacity;
        return true;
    }

  private:
    struct Free {
        void operator()(uint8_t* bytes) const { std::free(bytes); }
    };
    std::unique_ptr<uint8_t[], Free> bytes_;
    size_t capacity_ = 0;
};

} // namespace meridian::rtps
