#include "rtps/wire/elements.h"

#include <algorithm>
#include <limits>

namespace meridian::rtps {

namespace {

template <typename Number>
bool read_set(ByteReader& reader, NumberSet<Number>& set) {
    std::array<uint32_t, 8> bitmap{};
    if (!read_element(reader, set.base) || !reader.read(set.num_bits))
        return false;
    if (set.num_bits > NumberSet<Number>::kMaxBits ||
        set.base > std::numeric_limits<Number>::max() - static_cast<Number>(set.num_bits))
        return reader.fail();
    if (!reader.read_array(bitmap.data(), (set.num_bits + 31) / 32))
        return false;
    if (set.num_bits % 32 != 0)
        bitmap[set.num_bits / 32] &= ~(0xffffffffu >> set.num_bits % 32);
    set.bitmap = bitmap;
    return true;
}

template <typename Number>
void write_set(ByteWriter& writer, const NumberSet<Number>& set) {
    const uint32_t num_bits = std::min(set.num_bits, NumberSet<Number>::kMaxBits);
    write_element(writer, set.base);
    writer.write(num_bits);
    for (uint32_t i = 0; i < (num_bits + 31) / 32; ++i)
        writer.write(set.bitmap[i]);
}

} // namespace

bool read_element(ByteReader& reader, EntityId& id) {
    // Three key octets and a kind octet: no number, so the byte order of the stream does not apply.
    std::array<uint8_t, 4> bytes{};
    if (!reader.read_bytes(bytes))
        return false;
    id.value = word_of(bytes.data());
    return true;
}

bool read_element(ByteReader& reader, SequenceNumber& number) {
    int32_t high = 0;
    uint32_t low = 0;
    if (!reader.read(high) || !reader.read(low))
        return false;
    number = SequenceNumber{high} * (SequenceNumber{1} << 32) + SequenceNumber{low};
    return true;
}

bool read_element(ByteReader& reader, SequenceNumberSet& set) {
    return read_set(reader, set);
}

bool read_element(ByteReader& reader, FragmentNumberSet& set) {
    return read_set(reader, set);
}

void write_element(ByteWriter& writer, EntityId id) {
    writer.write_bytes(octets_of(id.value));
}

void write_element(ByteWriter& writer, SequenceNumber number) {
    const auto bits = static_cast<uint64_t>(number);
    writer.write(static_cast<uint32_t>(bits >> 32));
    writer.write(static_cast<uint32_t>(bits & 0xffffffffu));
}

void write_element(ByteWriter& writer, const SequenceNumberSet& set) {
    write_set(writer, set);
}

void write_element(ByteWriter& writer, const FragmentNumberSet& set) {
    write_set(writer, set);
}

} // namespace meridian::rtps
