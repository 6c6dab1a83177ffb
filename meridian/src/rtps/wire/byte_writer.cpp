#include "rtps/wire/byte_writer.h"

#include <limits>

namespace meridian::rtps {

void ByteWriter::write_octets(ByteView view) {
    constexpr size_t kMost = std::numeric_limits<uint32_t>::max();
    const size_t count = view.size < kMost ? view.size : kMost;
    write(static_cast<uint32_t>(count));
    write_bytes(ByteView(view.data, count));
}

void ByteWriter::write_string(std::string_view text) {
    const std::string_view body = text.substr(0, text.find('\0'));
    write(static_cast<uint32_t>(body.size() + 1));
    bytes_.insert(bytes_.end(), body.begin(), body.end());
    bytes_.push_back(0);
}

} // namespace meridian::rtps
