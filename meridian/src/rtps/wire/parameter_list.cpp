#include "rtps/wire/parameter_list.h"

namespace meridian::rtps {

bool ParameterListReader::next(Parameter& parameter) {
    for (;;) {
        uint16_t id = 0;
        uint16_t length = 0;
        if (complete_ || !reader_.read(id) || !reader_.read(length))
            return false;
        if (id == pid::sentinel) {
            complete_ = true; // its length means nothing
            return false;
        }
        if (length % 4 != 0)
            return reader_.fail();
        ByteView value;
        if (!reader_.read_view(length, value))
            return false;
        if (id == pid::pad)
            continue;
        parameter.id = id;
        parameter.value = value;
        parameter.endianness = reader_.endianness();
        return true;
    }
}

void ParameterListWriter::add_sentinel() {
    ByteWriter writer(bytes_, order_);
    writer.write(pid::sentinel);
    writer.write(uint16_t{0});
}

bool ParameterListWriter::close(size_t start) {
    const size_t value = start + 4;
    const size_t size = bytes_.size() - value;
    if (size > kMaxValueSize) {
        bytes_.resize(start);
        return false;
    }
    const size_t padded = size + padding_to(size, 4);
    bytes_.resize(value + padded);
    ByteWriter(bytes_, order_).patch(start + 2, static_cast<uint16_t>(padded));
    return true;
}

} // namespace meridian::rtps
