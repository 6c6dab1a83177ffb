#include "rtps/wire/encapsulation.h"

namespace meridian::rtps {

bool read_encapsulation(ByteView payload, Encapsulation& encapsulation, ByteView& body) {
    ByteReader reader(payload, Endianness::big);
    return reader.read(encapsulation.identifier) && reader.read(encapsulation.options) &&
           reader.read_view(reader.remaining(), body);
}

void write_encapsulation(ByteBuffer& bytes, Encoding encoding, Endianness order) {
    ByteWriter writer(bytes, Endianness::big);
    writer.write(
        static_cast<uint16_t>(static_cast<uint16_t>(encoding) | (order == Endianness::little ? 1 : 0)));
    writer.write(uint16_t{0});
}

} // namespace meridian::rtps
