#include "steady_traffic/remote_peer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "protocol/captured_output.h"

namespace meridian::test {

using namespace rtps;
using rtps::test::data_of;

namespace {

constexpr size_t kMaxMessage = 65000;
// Well-known ports of the first participant of domain 0.
constexpr uint16_t kDiscoveryPort = 7410;
constexpr uint16_t kDataPort = 7411;
constexpr uint16_t kOwnPort = 7499;
// Of a maker whose writers send no key hash with samples.
constexpr VendorId kVendor{{0x01, 0x0f}};

// What a writer announces of its type, of which this participant gives no more: it offers no type lookup.
const ByteBuffer kTypeInformation{
    0x60, 0x00, 0x00, 0x00, 0x01, 0x10, 0x00, 0x40, 0x28, 0x00, 0x00, 0x00, 0x24, 0x00, 0x00, 0x00, 0x14,
    0x00, 0x00, 0x00, 0xf1, 0x2c, 0x2c, 0x3a, 0x56, 0xd5, 0x90, 0x4c, 0x16, 0xbd, 0xd0, 0x67, 0x8a, 0xe1,
    0x16, 0x00, 0x97, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x00, 0x02, 0x10, 0x00, 0x40, 0x28, 0x00, 0x00, 0x00, 0x24, 0x00, 0x00, 0x00, 0x14, 0x00, 0x00, 0x00,
    0xf2, 0x0c, 0x95, 0x37, 0xc5, 0xfa, 0x65, 0xf0, 0x54, 0x59, 0x97, 0xac, 0xb1, 0x15, 0x33, 0x00, 0xee,
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};

sockaddr_in address_of(const char* host, uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    inet_pton(AF_INET, host, &address.sin_addr);
    return address;
}

Locator own_locator() {
    Locator locator;
    locator.kind = kLocatorUdpV4;
    locator.port = kOwnPort;
    locator.address[12] = 127;
    locator.address[15] = 1;
    return locator;
}

} // namespace

RemotePeer::RemotePeer() : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    prefix_.bytes = {0x01, 0x0f, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    const sockaddr_in own = address_of("127.0.0.1", kOwnPort);
    EXPECT_EQ(bind(socket_, reinterpret_cast<const sockaddr*>(&own), sizeof own), 0);
}

RemotePeer::~RemotePeer() {
    close(socket_);
}

void RemotePeer::send(const MessageWriter& message, bool discovery) {
    const sockaddr_in to = address_of("127.0.0.1", discovery ? kDiscoveryPort : kDataPort);
    const ByteView bytes = message.view();
    EXPECT_EQ(sendto(socket_, bytes.data, bytes.size, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to),
              static_cast<ssize_t>(bytes.size));
}

void RemotePeer::announce() {
    ParticipantData participant;
    participant.vendor = kVendor;
    participant.guid = {prefix_, entity::participant};
    participant.builtin_endpoints = kParticipantAnnouncer | kPublicationsAnnouncer;
    participant.domain_id = 0;
    participant.lease = kDurationInfinite;
    participant.metatraffic_unicast = participant.default_unicast = {own_locator()};
    const ByteBuffer payload = encode(participant);
    MessageWriter message(prefix_, kMaxMessage);
    message.add_data(data_of(entity::participant_writer, 1, payload));
    send(message, true);
}

void RemotePeer::announce_writer(EntityId entity, const std::string& topic, const std::string& type) {
    EndpointData writer;
    writer.guid = {prefix_, entity};
    writer.topic_name = topic;
    writer.type_name = type;
    writer.name = "writer of " + topic;
    writer.qos.reliability = Reliability::reliable;
    writer.unicast = {own_locator()};
    writer.type_information = kTypeInformation;
    const ByteBuffer payload = encode(writer);
    MessageWriter message(prefix_, kMaxMessage);
    message.add_data(data_of(entity::publications_writer, ++publications_, payload));
    send(message, true);
}

void RemotePeer::heartbeat(EntityId entity, SequenceNumber first, SequenceNumber last) {
    MessageWriter message(prefix_, kMaxMessage);
    message.add_heartbeat({entity::unknown, entity, first, last, ++heartbeats_, false, false});
    send(message, false);
}

void RemotePeer::write(EntityId entity, SequenceNumber number, ByteView payload, ByteView inline_qos) {
    Data data = data_of(entity, number, payload);
    data.inline_qos = inline_qos;
    MessageWriter message(prefix_, kMaxMessage);
    message.add_info_timestamp({1700000000, static_cast<uint32_t>(number)});
    message.add_data(data);
    send(message, false);
}

} // namespace meridian::test
