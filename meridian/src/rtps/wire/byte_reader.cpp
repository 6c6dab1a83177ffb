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

} // namespace meridian::rtps
