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

/// One that is no more than what its layout says.
template <typename T>
bool append_element(ByteBuffer& bytes, size_t max_size, uint8_t kind, uint8_t flags, const T& element) {
    return append(bytes, max_size, kind, flags, [&](ByteWriter& writer) { write_element(writer, element); });
}

/// Spares the copy of a payload that cannot fit.
bool hopeless(const ByteBuffer& bytes, size_t max_size, size_t more) {
    return more > max_size || bytes.size() > max_size - more;
}

/// DATA and DATA_FRAG; what their layout names is followed by inline QoS and payload.
template <typename Sample>
bool append_sample(ByteBuffer& bytes, size_t max_size, uint8_t kind, uint8_t flags, const Sample& sample,
                   uint16_t octets_to_inline_qos, ByteView payload) {
    if (hopeless(bytes, max_size, sample.inline_qos.size + payload.size))
        return false;
    return append(
        bytes, max_size, kind, flags,
        [&](ByteWriter& writer) {
            writer.write(uint16_t{0});
            writer.write(octets_to_inline_qos);
            write_element(writer, sample);
            writer.write_bytes(sample.inline_qos);
            writer.write_bytes(payload);
        },
        sample.endianness);
}

} // namespace

MessageWriter::MessageWriter(const GuidPrefix& source, size_t max_size, VendorId maker)
    : max_size_(max_size) {
    ByteWriter writer(bytes_);
    writer.write_bytes(std::array<uint8_t, 4>{'R', 'T', 'P', 'S'});
    write_element(writer, ProtocolVersion());
    write_element(writer, maker);
    write_element(writer, source);
}

void MessageWriter::clear() {
    bytes_.resize(kHeaderSize);
}

bool MessageWriter::add_info_destination(const GuidPrefix& destination) {
    return append_element(bytes_, max_size_, kInfoDestination, 0, destination);
}

bool MessageWriter::add_info_timestamp(WireTime timestamp) {
    return append_element(bytes_, max_size_, kInfoTimestamp, 0, timestamp);
}

bool MessageWriter::add_info_timestamp_invalid() {
    return append(bytes_, max_size_, kInfoTimestamp, kInfoTimestampFlagInvalid, [](ByteWriter&) {});
}

bool MessageWriter::add_data(const Data& data) {
    uint8_t flags = data.inline_qos.empty() ? 0 : kDataFlagInlineQos;
    if (data.has_payload)
        flags = static_cast<uint8_t>(flags | (data.payload_is_key ? kDataFlagKey : kDataFlagPayload));
    return append_sample(bytes_, max_size_, kData, flags, data, kDataOctetsToInlineQos,
                         data.has_payload ? data.payload : ByteView());
}

bool MessageWriter::add_data_frag(const DataFrag& fragment) {
    const auto flags = static_cast<uint8_t>((fragment.inline_qos.empty() ? 0 : kDataFragFlagInlineQos) |
                                            (fragment.payload_is_key ? kDataFragFlagKey : 0));
    return append_sample(bytes_, max_size_, kDataFrag, flags, fragment, kDataFragOctetsToInlineQos,
                         fragment.payload);
}

bool MessageWriter::add_heartbeat(const Heartbeat& heartbeat) {
    const auto flags = static_cast<uint8_t>((heartbeat.final ? kHeartbeatFlagFinal : 0) |
                                            (heartbeat.liveliness ? kHeartbeatFlagLiveliness : 0));
    return append_element(bytes_, max_size_, kHeartbeat, flags, heartbeat);
}

bool MessageWriter::add_acknack(const AckNack& acknack) {
    return append_element(bytes_, max_size_, kAckNack, acknack.final ? kAckNackFlagFinal : 0, acknack);
}

bool MessageWriter::add_nack_frag(const NackFrag& nack) {
    return append_element(bytes_, max_size_, kNackFrag, 0, nack);
}

bool MessageWriter::add_gap(const Gap& gap) {
    return append_element(bytes_, max_size_, kGap, 0, gap);
}

} // namespace meridian::rtps
