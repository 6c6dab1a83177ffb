#include "rtps/wire/byte_reader.h"

namespace meridian::rtps {

bool ByteReader::read_string(std::string_view& text) {
    ByteView view;
    if (!read_octets(view))
        return false;
    if (view.empty()) {
        text = std::string_view();
        return true;
    }
    const std::string_view whole(reinterpret_cast<const char*>(view.data), view.size);
    text = whole.substr(0, whole.find('\0'));
    return true;
}

bool ByteReader::read_string(std::string& text) {
    std::string_view view;
    if (!read_string(view))
        return false;
    text.assign(view);
    return true;
}

void ByteReader::reverse_into_copy(size_t size, size_t count) {
    for (size_t at = position_; count > 0; --count, at += size)
        std::reverse_copy(data_ + at, data_ + at + size, canonical_ + at);
}

} // namespace meridian::rtps
