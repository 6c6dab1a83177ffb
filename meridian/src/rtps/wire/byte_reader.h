#pragma once

// The only access to received bytes: a cursor over a ByteView that checks every access,
// converts byte order and pads as CDR does (OMG DDS-XTypes 1.3, 7.4.1). No other code dereferences payload
// pointers.
//
// The first access that does not fit makes the reader fail for good: it and all later ones return false,
// leave their output untouched and do not move the cursor. So a caller may read a group of fields and check
// ok() once. The reader does not own the bytes. One reader belongs to one thread; copies are independent
// cursors.

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

#include "rtps/wire/types.h"

namespace meridian::rtps {

/// The most that a primitive is aligned to: 8 in classic CDR (XCDR1), 4 in XCDR2.
constexpr size_t kXcdr1MaxAlignment = 8;
constexpr size_t kXcdr2MaxAlignment = 4;

/// Bytes to add to offset so that it becomes a multiple of alignment (a power of two).
constexpr size_t padding_to(size_t offset, size_t alignment) {
    return (alignment - (offset & (alignment - 1))) & (alignment - 1);
}

namespace detail {

/// The number with its bytes in the other order.
template <typename T>
T swap_bytes(T value) {
    std::array<uint8_t, sizeof(T)> bytes;
    std::memcpy(bytes.data(), &value, sizeof value);
    std::reverse(bytes.begin(), bytes.end());
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

} // namespace detail

class ByteReader {
  public:
    ByteReader() = default;
    /// Alignment counts from the first byte until set_origin says otherwise.
    ByteReader(ByteView bytes, Endianness order, size_t max_alignment = kXcdr1MaxAlignment)
        : data_(bytes.data), end_(bytes.size), max_alignment_(max_alignment), order_(order) {}

    bool ok() const { return !failed_; }
    /// Makes the reader fail, for a caller that found an impossible value.
    bool fail() {
        failed_ = true;
        return false;
    }
    /// Bytes read so far, counted from the first byte of the view (not from the origin of alignment).
    size_t position() const { return position_; }
    size_t remaining() const { return end_ - position_; }
    Endianness endianness() const { return order_; }
    void set_endianness(Endianness order) { order_ = order; }
    /// Alignment counts from the present position from now on, or from so many bytes before it.
    void set_origin(size_t before = 0) { origin_ = position_ - before; }
    /// Alignment counts from where it counts in another reader of the same bytes.
    void set_origin_of(const ByteReader& other) { origin_ = other.origin_; }
    bool has_origin_of(const ByteReader& other) const { return origin_ == other.origin_; }
    /// A copy of the bytes, which reading makes canonical from here on: numbers become little-endian, padding
    /// becomes zero. What is not read, or only skipped, stays as it is.
    void set_canonical_copy(uint8_t* copy) { canonical_ = copy; }

    /// Skips the padding before a value of that natural alignment; alignments above max_alignment count as
    /// that.
    bool align(size_t alignment) {
        const size_t count = padding(alignment);
        if (canonical_ != nullptr && count <= remaining())
            std::fill_n(canonical_ + position_, count, uint8_t{0});
        return skip(count);
    }
    /// How much that is.
    size_t padding(size_t alignment) const {
        return padding_to(position_ - origin_, alignment < max_alignment_ ? alignment : max_alignment_);
    }
    /// Whether the next count bytes are zeros, as far as they are there.
    bool zeros_follow(size_t count) const {
        const uint8_t* const next = data_ + position_;
        return std::all_of(next, next + std::min(count, remaining()),
                           [](uint8_t octet) { return octet == 0; });
    }
    bool skip(size_t count) {
        if (failed_ || count > remaining())
            return fail();
        position_ += count;
        return true;
    }

    /// One integer or floating-point number of 1, 2, 4 or 8 bytes, after its padding.
    template <typename T>
    bool read(T& value) {
        static_assert(std::is_arithmetic_v<T> && !std::is_same_v<T, bool>, "integers and floats only");
        return read_array(&value, 1);
    }
    /// count numbers that stand one after the other, checked as a whole. Nothing is aligned when count is 0.
    template <typename T>
    bool read_array(T* values, size_t count) {
        static_assert(std::is_arithmetic_v<T> && !std::is_same_v<T, bool>, "integers and floats only");
        if (failed_)
            return false;
        if (count == 0)
            return true;
        const size_t start = position_;
        if (!align(sizeof(T)) || count > remaining() / sizeof(T)) {
            position_ = start;
            return fail();
        }
        std::memcpy(values, data_ + position_, count * sizeof(T));
        if (canonical_ != nullptr && order_ == Endianness::big)
            reverse_into_copy(sizeof(T), count);
        position_ += count * sizeof(T);
        if (sizeof(T) > 1 && order_ != native_endianness()) {
            for (size_t i = 0; i < count; ++i)
                values[i] = detail::swap_bytes(values[i]);
        }
        return true;
    }
    /// An octet that holds 0 or 1; any other value counts as true, as all known implementations take it.
    bool read_bool(bool& value) {
        uint8_t octet = 0;
        if (!read(octet))
            return false;
        value = octet != 0;
        return true;
    }
    template <size_t Size>
    bool read_bytes(std::array<uint8_t, Size>& bytes) {
        return read_array(bytes.data(), Size);
    }
    /// A view of the next count bytes, which the reader passes.
    bool read_view(size_t count, ByteView& view) {
        if (failed_ || count > remaining())
            return fail();
        view = ByteView(data_ + position_, count);
        position_ += count;
        return true;
    }
    /// sequence<octet>: a length and that many bytes.
    bool read_octets(ByteView& view) {
        uint32_t length = 0;
        return read(length) && read_view(length, view);
    }
    bool read_octets(ByteBuffer& bytes) {
        ByteView view;
        if (!read_octets(view))
            return false;
        bytes.assign(view.begin(), view.end());
        return true;
    }
    /// A CDR string; the text points into the bytes. It ends at the first NUL; a missing terminator and a
    /// length of 0 (an empty string without one) are accepted, since some peers send them.
    bool read_string(std::string_view& text);
    bool read_string(std::string& text);
    /// The number of elements of a sequence, refused when so many elements of at least element_size bytes
    /// cannot follow, so that a wrong length reserves no memory. element_size is not 0.
    bool read_length(uint32_t& length, size_t element_size) {
        const size_t start = position_;
        if (!read(length))
            return false;
        if (length > remaining() / element_size) {
            position_ = start;
            return fail();
        }
        return true;
    }

    /// A reader of the next count bytes only, with the same origin, byte order and position; this reader
    /// passes them. A failed reader when they are not there.
    ByteReader take(size_t count) {
        ByteReader part = *this;
        if (skip(count))
            part.end_ = position_;
        else
            part.fail();
        return part;
    }

  private:
    void reverse_into_copy(size_t size, size_t count);

    const uint8_t* data_ = nullptr;
    uint8_t* canonical_ = nullptr;
    size_t position_ = 0;
    size_t end_ = 0;
    size_t origin_ = 0;
    size_t max_alignment_ = kXcdr1MaxAlignment;
    Endianness order_ = native_endianness();
    bool failed_ = false;
};

} // namespace meridian::rtps
