#pragma once

// The twin of ByteReader: appends CDR values to a buffer, with padding and byte order. The buffer stays the
// caller's; the writer only appends to it and patches what it wrote itself. It cannot fail except for lack of
// memory.

#include <string_view>

#include "rtps/wire/byte_reader.h"

namespace meridian::rtps {

class ByteWriter {
  public:
    /// Alignment counts from the present end of the buffer, until set_origin says otherwise.
    explicit ByteWriter(ByteBuffer& bytes, Endianness order = native_endianness(),
                        size_t max_alignment = kXcdr1MaxAlignment)
        : bytes_(bytes), origin_(bytes.size()), max_alignment_(max_alignment), order_(order) {}

    /// Offset of the next byte in the buffer.
    size_t position() const { return bytes_.size(); }
    Endianness endianness() const { return order_; }
    void set_origin() { origin_ = bytes_.size(); }

    /// Appends zero bytes up to the alignment; alignments above max_alignment count as that.
    void align(size_t alignment) {
        const size_t wanted = alignment < max_alignment_ ? alignment : max_alignment_;
        bytes_.resize(bytes_.size() + padding_to(bytes_.size() - origin_, wanted));
    }
    template <typename T>
    void write(T value) {
        static_assert(std::is_arithmetic_v<T> && !std::is_same_v<T, bool>, "integers and floats only");
        align(sizeof(T));
        bytes_.resize(bytes_.size() + sizeof(T));
        store(bytes_.size() - sizeof(T), value);
    }
    void write_bool(bool value) { write(static_cast<uint8_t>(value ? 1 : 0)); }
    void write_bytes(ByteView view) { bytes_.insert(bytes_.end(), view.begin(), view.end()); }
    template <size_t Size>
    void write_bytes(const std::array<uint8_t, Size>& bytes) {
        bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    }
    /// sequence<octet>; longer than 2^32 - 1 is cut.
    void write_octets(ByteView view);
    /// A CDR string with its terminator; a NUL inside ends it early.
    void write_string(std::string_view text);

    /// Overwrites a number that was written at that position before.
    template <typename T>
    void patch(size_t position, T value) {
        if (position <= bytes_.size() && sizeof(T) <= bytes_.size() - position)
            store(position, value);
    }

  private:
    template <typename T>
    void store(size_t position, T value) {
        if (order_ != native_endianness())
            value = detail::swap_bytes(value);
        std::memcpy(bytes_.data() + position, &value, sizeof value);
    }

    ByteBuffer& bytes_;
    size_t origin_;
    size_t max_alignment_;
    Endianness order_;
};

} // namespace meridian::rtps
