// The sending half of message.h.

#include <limits>

#include "rtps/wire/elements.h"
#include "rtps/wire/message.h"
#include "rtps/wire/submessage.h"

namespace meridian::rtps {

namespace {

/// Appends one submessage in that byte order, or nothing when the message would exceed max_size.
/// body(ByteWriter&) writes what follows the submessage header.
template <typename Body>
bool append(ByteBuffer& bytes, size_t max_size, uint8_t kind, uint8_t flags, Body body,
            Endianness order = native_endianness()) {
    const size_t start = bytes.size();
    ByteWriter writer(bytes, order);
    writer.write(kind);
    writer.write(static_cast<uint8_t>(flags | (order == Endianness::little ? kFlagLittleEndian : 0)));
    writer.write(uint16_t{0});
    body(writer);
    writer.align(4); // submessages start at multiples of four (9.4.1)
    const size_t size = bytes.size() - start - kSubmessageHeaderSize;
    if (bytes.size() > max_size || size > std::numeric_limits<uint16_t>::max()) {
        bytes.resize(start);
        return false;
    }
    writer.patch(start + 2, static_cast<uint16_t>(size));
    return true;
}

/// Spares the copy of a payload that cannot fit.
bool hopeless(const ByteBuffer& bytes, size_t max_size, size_t more) {
    return more > max_size || bytes.size() > max_size - more;
}

void write_entities(ByteWriter& writer, EntityId reader, EntityId from) {
    write_entity_id(writer, reader);
    write_entity_id(writer, from);
}

} // namespace

MessageWriter::MessageWriter(const GuidPrefix& source, size_t max_size) : max_size_(max_size) {
    constexpr ProtocolVersion kVersion;
    ByteWriter writer(bytes_);
    writer.write_bytes(std::array<uint8_t, 4>{'R', 'T', 'P', 'S'});
    writer.write(kVersion.major);
    writer.write(kVersion.minor);
    writer.write_bytes(kOwnVendorId.bytes);
    writer.write_bytes(source.bytes);
}

void MessageWriter::clear() {
    bytes_.resize(kHeaderSize);
}

bool MessageWriter::add_info_destination(const GuidPrefix& destination) {
    return append(bytes_, max_size_, kInfoDestination, 0,
                  [&](ByteWriter& writer) { writer.write_bytes(destination.bytes); });
}

bool MessageWriter::add_info_timestamp(WireTime timestamp) {
    return append(bytes_, max_size_, kInfoTimestamp, 0,
                  [&](ByteWriter& writer) { write_time(writer, timestamp); });
}

bool MessageWriter::add_info_timestamp_invalid() {
    return append(bytes_, max_size_, kInfoTimestamp, kInfoTimestampFlagInvalid, [](ByteWriter&) {});
}

bool MessageWriter::add_data(const Data& data) {
    if (hopeless(bytes_, max_size_, data.inline_qos.size + data.payload.size))
        return false;
    uint8_t flags = data.inline_qos.empty() ? 0 : kDataFlagInlineQos;
    if (data.has_payload) {
        flags = static_cast<uint8_t>(flags | (data.payload_is_key ? kDataFlagKey : kDataFlagPayload) |
                                     (data.non_standard_payload ? kDataFlagNonStandard : 0));
    }
    return append(
        bytes_, max_size_, kData, flags,
        [&](ByteWriter& writer) {
            writer.write(uint16_t{0});
            writer.write(kDataOctetsToInlineQos);
            write_entities(writer, data.reader, data.writer);
            write_sequence_number(writer, data.sequence_number);
            writer.write_bytes(data.inline_qos);
            if (data.has_payload)
                writer.write_bytes(data.payload);
        },
        data.endianness);
}

bool MessageWriter::add_data_frag(const DataFrag& fragment) {
    if (hopeless(bytes_, max_size_, fragment.inline_qos.size + fragment.payload.size))
        return false;
    const auto flags = static_cast<uint8_t>((fragment.inline_qos.empty() ? 0 : kDataFragFlagInlineQos) |
                                            (fragment.payload_is_key ? kDataFragFlagKey : 0) |
                                            (fragment.non_standard_payload ? kDataFragFlagNonStandard : 0));
    return append(
        bytes_, max_size_, kDataFrag, flags,
        [&](ByteWriter& writer) {
            writer.write(uint16_t{0});
            writer.write(kDataFragOctetsToInlineQos);
            write_entities(writer, fragment.reader, fragment.writer);
            write_sequence_number(writer, fragment.sequence_number);
            writer.write(fragment.first_fragment);
            writer.write(fragment.fragment_count);
            writer.write(fragment.fragment_size);
            writer.write(fragment.sample_size);
            writer.write_bytes(fragment.inline_qos);
            writer.write_bytes(fragment.payload);
        },
        fragment.endianness);
}

bool MessageWriter::add_heartbeat(const Heartbeat& heartbeat) {
    const auto flags = static_cast<uint8_t>((heartbeat.final ? kHeartbeatFlagFinal : 0) |
                                            (heartbeat.liveliness ? kHeartbeatFlagLiveliness : 0));
    return append(bytes_, max_size_, kHeartbeat, flags, [&](ByteWriter& writer) {
        write_entities(writer, heartbeat.reader, heartbeat.writer);
        write_sequence_number(writer, heartbeat.first);
        write_sequence_number(writer, heartbeat.last);
        writer.write(heartbeat.count);
    });
}

bool MessageWriter::add_acknack(const AckNack& acknack) {
    return append(bytes_, max_size_, kAckNack, acknack.final ? kAckNackFlagFinal : 0,
                  [&](ByteWriter& writer) {
                      write_entities(writer, acknack.reader, acknack.writer);
                      write_sequence_number_set(writer, acknack.missing);
                      writer.write(acknack.count);
                  });
}

bool MessageWriter::add_nack_frag(const NackFrag& nack) {
    return append(bytes_, max_size_, kNackFrag, 0, [&](ByteWriter& writer) {
        write_entities(writer, nack.reader, nack.writer);
        write_sequence_number(writer, nack.sequence_number);
        write_fragment_number_set(writer, nack.missing);
        writer.write(nack.count);
    });
}

bool MessageWriter::add_gap(const Gap& gap) {
    return append(bytes_, max_size_, kGap, 0, [&](ByteWriter& writer) {
        write_entities(writer, gap.reader, gap.writer);
        write_sequence_number(writer, gap.start);
        write_sequence_number_set(writer, gap.list);
    });
}

} // namespace meridian::rtps
