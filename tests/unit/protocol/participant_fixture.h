#pragma once

// One participant against hand-made messages of others.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <set>
#include <vector>

#include "protocol/captured_output.h"
#include "protocol/simulated_network.h"
#include "rtps/protocol/participant.h"
#include "rtps/wire/guid_key.h"

namespace meridian::rtps::test {

/// The datagram with which a participant announces itself.
inline ByteBuffer first_announcement(const ParticipantData& data) {
    const ByteBuffer payload = encode(data);
    MessageWriter writer(data.guid.prefix, 65000);
    writer.add_data(data_of(entity::participant_writer, 1, payload));
    return ByteBuffer(writer.view().begin(), writer.view().end());
}

class ParticipantTest : public ::testing::Test {
  protected:
    ParticipantTest() {
        config.prefix = prefix(1);
        config.domain_id = 3;
        config.is_own = [](const GuidPrefix& p) { return p == prefix(1) || p == prefix(100); };
        config.initial_peers = {SimulatedNetwork::group()};
        config.locators.metatraffic_unicast = {udpv4(1)};
        config.locators.default_unicast = {udpv4(1, 7411)};
    }
    void start() {
        participant = std::make_unique<Participant>(config, output, recorder);
        participant->start(now());
        output.messages.clear();
    }
    Now now() const { return {time, {100, 0}}; }

    ParticipantData remote(uint8_t id) {
        ParticipantData data;
        data.vendor = VendorId{{0x01, 0x10}};
        data.guid = {prefix(id), entity::participant};
        data.builtin_endpoints = 0xc3f;
        data.domain_id = 3;
        data.lease = {10, 0};
        data.metatraffic_unicast = {udpv4(id)};
        data.default_unicast = {udpv4(id, 7411)};
        data.metatraffic_multicast = {SimulatedNetwork::group()};
        return data;
    }
    void receive(uint8_t from, const std::function<void(MessageWriter&)>& fill, bool directed = false) {
        MessageWriter writer(prefix(from), 60000);
        if (directed)
            writer.add_info_destination(prefix(1));
        fill(writer);
        received_bytes += writer.size();
        participant->receive(writer.view(), udpv4(source_host != 0 ? source_host : from, source_port), now());
    }
    void send_data(uint8_t from, EntityId writer_id, SequenceNumber number, const ByteBuffer& payload) {
        receive(from, [&](MessageWriter& writer) {
            writer.add_info_timestamp({77, 0});
            writer.add_data(data_of(writer_id, number, payload));
        });
    }
    /// The end of what has this key.
    static void add_end(MessageWriter& writer, EntityId writer_id, SequenceNumber number, const Guid& key) {
        InlineQos qos;
        qos.key_hash = key_hash_of(key);
        qos.status_info = kDisposed | kUnregistered;
        const ByteBuffer inline_qos = encode(qos);
        Data data;
        data.writer = writer_id;
        data.sequence_number = number;
        data.inline_qos = inline_qos;
        writer.add_data(data);
    }
    void announce(const ParticipantData& data) {
        send_data(data.guid.prefix.bytes[11], entity::participant_writer, ++announcements, encode(data));
    }
    /// All subscriptions below this number, or asks again for some of them.
    void acknowledge(uint8_t from, SequenceNumber base, const std::vector<SequenceNumber>& missing = {},
                     int times = 1) {
        receive(from, [&](MessageWriter& writer) {
            AckNack acknack;
            acknack.reader = entity::subscriptions_reader;
            acknack.writer = entity::subscriptions_writer;
            acknack.missing.base = base;
            for (const SequenceNumber number : missing)
                acknack.missing.insert(number);
            acknack.final = missing.empty();
            for (int i = 0; i < times; ++i) {
                acknack.count = ++acknowledgements;
                writer.add_acknack(acknack);
            }
        });
    }
    size_t bytes_sent_to(const Locator& locator) const {
        size_t bytes = 0;
        for (const auto& message : output.messages)
            bytes += message.destination == locator ? message.bytes.size() : 0;
        return bytes;
    }
    EndpointData publication(uint8_t participant_id, uint32_t entity = 0x102) {
        EndpointData data;
        data.guid = {prefix(participant_id), EntityId{entity}};
        data.topic_name = "Square";
        data.type_name = "Shape";
        data.qos.reliability = Reliability::reliable;
        return data;
    }
    /// Locators of what was sent since the messages were last cleared.
    std::set<Locator> destinations() const {
        std::set<Locator> result;
        for (const auto& message : output.messages)
            result.insert(message.destination);
        return result;
    }
    Lines sent_to(const Locator& locator) const {
        CapturedOutput part;
        for (const auto& message : output.messages) {
            if (message.destination == locator)
                part.messages.push_back(message);
        }
        return part.take();
    }
    std::vector<GuidPrefix> known_participants() const {
        std::vector<GuidPrefix> result;
        for (const auto& entry : recorder.participants)
            result.push_back(entry.first);
        return result;
    }
    void run_until(MonotonicTime end) {
        while (participant->next_deadline() <= end) {
            time = std::max(time, participant->next_deadline());
            participant->on_timer(now());
        }
        time = end;
    }

    MonotonicTime time = std::chrono::seconds(1);
    SequenceNumber announcements = 0;
    Count acknowledgements = 0;
    size_t received_bytes = 0;
    uint32_t source_port = 50000; // that others send from
    uint8_t source_host = 0;      // 0: each from its own
    ParticipantConfig config;
    CapturedOutput output;
    Recorder recorder{[this](const GuidPrefix& p) { return config.is_own(p); }};
    std::unique_ptr<Participant> participant;
};

} // namespace meridian::rtps::test
