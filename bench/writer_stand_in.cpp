#include "writer_stand_in.h"

#include <utility>

#include "rtps/wire/encapsulation.h"

namespace ferret::bench {

using namespace meridian::rtps;

namespace {

constexpr size_t kMaxMessage = 65000;

ByteBuffer message(const GuidPrefix& source, EntityId writer, SequenceNumber number, ByteView payload) {
    MessageWriter message(source, kMaxMessage);
    Data data;
    data.writer = writer;
    data.sequence_number = number;
    data.has_payload = true;
    data.payload = payload;
    message.add_data(data);
    return ByteBuffer(message.view().begin(), message.view().end());
}

} // namespace

Locator stand_in_locator() {
    Locator locator;
    locator.kind = kLocatorUdpV4;
    locator.port = 7411;
    locator.address[12] = 127;
    locator.address[15] = 1;
    return locator;
}

ByteBuffer small_sample() {
    ByteBuffer bytes;
    write_encapsulation(bytes, Encoding::cdr, native_endianness());
    ByteWriter writer(bytes, native_endianness());
    writer.write(uint32_t{4711});
    writer.write(uint32_t{3});
    for (uint8_t i = 0; i < 24; ++i)
        writer.write(i);
    return bytes;
}

WriterStandIn::WriterStandIn(std::string topic, std::string type, bool keyed, uint32_t number)
    : number_(number),
      writer_{(number << 8) | (keyed ? kUserWriterWithKey : kUserWriterNoKey)},
      topic_(std::move(topic)),
      type_(std::move(type)) {
    prefix_.bytes = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
}

std::vector<ByteBuffer> WriterStandIn::announcements() const {
    ParticipantData participant;
    participant.vendor = kOwnVendorId;
    participant.guid = {prefix_, entity::participant};
    participant.builtin_endpoints = kParticipantAnnouncer | kPublicationsAnnouncer;
    participant.domain_id = 0;
    participant.lease = kDurationInfinite;
    participant.metatraffic_unicast = participant.default_unicast = {stand_in_locator()};

    EndpointData writer;
    writer.guid = {prefix_, writer_};
    writer.topic_name = topic_;
    writer.type_name = type_;
    writer.qos.reliability = Reliability::reliable;
    writer.qos.durability = Durability::transient_local;
    return {message(prefix_, entity::participant_writer, 1, encode(participant)),
            message(prefix_, entity::publications_writer, number_, encode(writer))};
}

std::vector<ByteBuffer> WriterStandIn::samples(size_t packets, size_t per_packet, ByteView payload,
                                               bool key_hash) {
    InlineQos qos;
    if (key_hash)
        qos.key_hash = KeyHash{0, 0, 0, 3};
    const ByteBuffer inline_qos = key_hash ? encode(qos) : ByteBuffer();
    MessageWriter message(prefix_, kMaxMessage);
    std::vector<ByteBuffer> made;
    for (size_t i = 0; i < packets; ++i) {
        message.clear();
        for (size_t j = 0; j < per_packet; ++j) {
            Data data;
            data.writer = writer_;
            data.sequence_number = next_++;
            data.inline_qos = inline_qos;
            data.has_payload = true;
            data.payload = payload;
            message.add_info_timestamp({1700000000, static_cast<uint32_t>(next_)});
            message.add_data(data);
        }
        made.emplace_back(message.view().begin(), message.view().end());
    }
    return made;
}

} // namespace ferret::bench
