#include "rtps/wire/elements.h"

#include <algorithm>
#include <limits>

namespace meridian::rtps {

namespace {

template <typename Number>
bool read_bits(ByteReader& reader, NumberSet<Number>& set, Number lowest_base) {
    uint32_t num_bits = 0;
    std::array<uint32_t, 8> bitmap{};
    if (!reader.read(num_bits))
        return false;
    if (num_bits > NumberSet<Number>::kMaxBits || set.base < lowest_base ||
        set.base > std::numeric_limits<Number>::max() - static_cast<Number>(num_bits))
        return reader.fail();
    if (!reader.read_array(bitmap.data(), (num_bits + 31) / 32))
        return false;
    if (num_bits % 32 != 0)
        bitmap[num_bits / 32] &= ~(0xffffffffu >> num_bits % 32);
    set.num_bits = num_bits;
    set.bitmap = bitmap;
    return true;
}

template <typename Number>
void write_bits(ByteWriter& writer, const NumberSet<Number>& set) {
    const uint32_t num_bits = std::min(set.num_bits, NumberSet<Number>::kMaxBits);
    writer.write(num_bits);
    for (uint32_t i = 0; i < (num_bits + 31) / 32; ++i)
        writer.write(set.bitmap[i]);
}

} // namespace

bool read_entity_id(ByteReader& reader, EntityId& id) {
    // Three key octets and a kind octet: no number, so the byte order of the stream does not apply.
    std::array<uint8_t, 4> bytes{};
    if (!reader.read_bytes(bytes))
        return false;
    id.value = uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
    return true;
}

bool read_guid(ByteReader& reader, Guid& guid) {
    return reader.read_bytes(guid.prefix.bytes) && read_entity_id(reader, guid.entity);
}

bool read_sequence_number(ByteReader& reader, SequenceNumber& number) {
    int32_t high = 0;
    uint32_t low = 0;
    if (!reader.read(high) || !reader.read(low))
        return false;
    number = SequenceNumber{high} * (SequenceNumber{1} << 32) + SequenceNumber{low};
    return true;
}

bool read_time(ByteReader& reader, WireTime& time) {
    WireTime read;
    if (!reader.read(read.seconds) || !reader.read(read.fraction))
        return false;
    time = read;
    return true;
}

bool read_locator(ByteReader& reader, Locator& locator) {
    Locator read;
    if (!reader.read(read.kind) || !reader.read(read.port) || !reader.read_bytes(read.address))
        return false;
    locator = read;
    return true;
}

bool read_locator_list(ByteReader& reader, LocatorList& list) {
    constexpr size_t kLocatorSize = 24;
    uint32_t count = 0;
    if (!reader.read_length(count, kLocatorSize))
        return false;
    for (uint32_t i = 0; i < count; ++i) {
        Locator locator;
        if (!read_locator(reader, locator))
            return false;
        list.push_back(locator);
    }
    return true;
}

bool read_sequence_number_set(ByteReader& reader, SequenceNumberSet& set, SequenceNumber lowest_base) {
    SequenceNumberSet read;
    if (!read_sequence_number(reader, read.base) || !read_bits(reader, read, lowest_base))
        return false;
    set = read;
    return true;
}

bool read_fragment_number_set(ByteReader& reader, FragmentNumberSet& set) {
    FragmentNumberSet read;
    if (!reader.read(read.base) || !read_bits(reader, read, FragmentNumber{1}))
        return false;
    set = read;
    return true;
}

void write_entity_id(ByteWriter& writer, EntityId id) {
    writer.write_bytes(std::array<uint8_t, 4>{static_cast<uint8_t>(id.value >> 24),
                                              static_cast<uint8_t>(id.value >> 16 & 0xff),
                                              static_cast<uint8_t>(id.value >> 8 & 0xff), id.kind()});
}

void write_guid(ByteWriter& writer, const Guid& guid) {
    writer.write_bytes(guid.prefix.bytes);
    write_entity_id(writer, guid.entity);
}

void write_sequence_number(ByteWriter& writer, SequenceNumber number) {
    const auto bits = static_cast<uint64_t>(number);
    writer.write(static_cast<uint32_t>(bits >> 32));
    writer.write(static_cast<uint32_t>(bits & 0xffffffffu));
}

void write_time(ByteWriter& writer, WireTime time) {
    writer.write(time.seconds);
    writer.write(time.fraction);
}

void write_locator(ByteWriter& writer, const Locator& locator) {
    writer.write(locator.kind);
    writer.write(locator.port);
    writer.write_bytes(locator.address);
}

void write_sequence_number_set(ByteWriter& writer, const SequenceNumberSet& set) {
    write_sequence_number(writer, set.base);
    write_bits(writer, set);
}

void write_fragment_number_set(ByteWriter& writer, const FragmentNumberSet& set) {
    writer.write(set.base);
    write_bits(writer, set);
}

} // namespace meridian::rtps
