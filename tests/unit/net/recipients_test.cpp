#include "rtps/net/recipients.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "rtps/wire/discovery_data.h"

namespace meridian::rtps::net {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct NoOutput : Output {
    void send(ByteView, const Locator&) override {}
    int preference(const Locator&, const Locator&) const override { return 1; }
};

struct Sink : ReaderSink {
    void on_sample(const Sample&) override { ++samples; }
    int samples = 0;
};

GuidPrefix prefix(uint8_t id) {
    GuidPrefix made;
    made.bytes.fill(id);
    return made;
}

constexpr uint8_t kStranger = 77;
constexpr EntityId kWriter{0x102};

/// Three participants behind one socket, each with one reader: of topics A, B and B.
class RecipientsTest : public testing::Test {
  protected:
    RecipientsTest() {
        const char* const topics[] = {"A", "B", "B"};
        for (uint8_t i = 0; i < 3; ++i) {
            ParticipantConfig config;
            config.prefix = prefix(static_cast<uint8_t>(i + 1));
            config.is_own = [](const GuidPrefix& candidate) { return candidate.bytes[0] < 10; };
            participants.push_back(std::make_unique<Participant>(config, output, events));
            participants.back()->start(now);
            recipients.add(*participants.back());
            EndpointData reader;
            reader.guid = {config.prefix, reader_of(i)};
            reader.topic_name = topics[i];
            reader.type_name = "T";
            EXPECT_TRUE(participants.back()->add_reader(reader, {}, sinks[i], now));
        }
    }

    static EntityId reader_of(size_t i) { return EntityId{static_cast<uint32_t>((i + 1) << 8 | 7)}; }

    /// The numbers of the participants that got the datagram.
    std::vector<size_t> recipients_of(ByteView datagram, ReadStatus expected = ReadStatus::ok) {
        std::vector<size_t> numbers;
        const ReadStatus status = recipients.deliver(datagram, [&](Participant& participant, bool is_first) {
            EXPECT_EQ(is_first, numbers.empty());
            for (size_t i = 0; i < participants.size(); ++i) {
                if (participants[i].get() == &participant)
                    numbers.push_back(i);
            }
            return participant.receive(datagram, Locator{}, now);
        });
        EXPECT_EQ(status, expected);
        return numbers;
    }

    static MessageWriter message() { return MessageWriter(prefix(kStranger), 1000); }
    static Data data(EntityId reader, EntityId writer = kWriter) {
        static const ByteBuffer payload{0, 1, 0, 0, 1, 2, 3, 4};
        Data made;
        made.reader = reader;
        made.writer = writer;
        made.sequence_number = 1;
        made.has_payload = true;
        made.payload = payload;
        return made;
    }

    /// A participant with a writer of topic B.
    void discover_stranger() {
        ParticipantData participant;
        participant.guid = {prefix(kStranger), entity::participant};
        participant.builtin_endpoints = kPublicationsAnnouncer;
        participant.metatraffic_unicast.push_back({kLocatorUdpV4, 7410, {}});
        participant.default_unicast.push_back({kLocatorUdpV4, 7411, {}});
        participant.lease = kDurationInfinite;
        announce(entity::unknown, entity::participant_writer, encode(participant));
        EndpointData writer;
        writer.guid = {prefix(kStranger), kWriter};
        writer.topic_name = "B";
        writer.type_name = "T";
        writer.qos.reliability = Reliability::best_effort;
        announce(entity::unknown, entity::publications_writer, encode(writer));
    }
    void announce(EntityId reader, EntityId writer, const ByteBuffer& payload) {
        Data announcement = data(reader, writer);
        announcement.payload = payload;
        MessageWriter made = message();
        made.add_data(announcement);
        EXPECT_THAT(recipients_of(made.view()), ElementsAre(0, 1, 2));
    }

    NoOutput output;
    Events events;
    Sink sinks[3];
    Now now;
    std::vector<std::unique_ptr<Participant>> participants;
    Recipients recipients;
};

TEST_F(RecipientsTest, ADestinationDecides) {
    for (uint8_t i = 0; i < 3; ++i) {
        MessageWriter writer = message();
        writer.add_info_destination(prefix(static_cast<uint8_t>(i + 1)));
        writer.add_heartbeat(Heartbeat{});
        EXPECT_THAT(recipients_of(writer.view()), ElementsAre(i));
    }
    MessageWriter writer = message();
    writer.add_info_destination(prefix(9));
    writer.add_data(data(entity::unknown, entity::publications_writer));
    EXPECT_THAT(recipients_of(writer.view()), IsEmpty());
    // One message may go to several.
    writer.add_info_destination(prefix(3));
    writer.add_heartbeat(Heartbeat{});
    writer.add_info_destination(prefix(1));
    writer.add_heartbeat(Heartbeat{});
    EXPECT_THAT(recipients_of(writer.view()), ElementsAre(0, 2));
}

TEST_F(RecipientsTest, DiscoveryIsForAll) {
    for (const EntityId reader : {entity::unknown, EntityId{0x000100c7}, entity::publications_reader}) {
        MessageWriter writer = message();
        writer.add_data(data(reader, entity::participant_writer));
        EXPECT_THAT(recipients_of(writer.view()), ElementsAre(0, 1, 2)) << reader.value;
    }
}

TEST_F(RecipientsTest, ANamedEndpointIsOfOneParticipant) {
    for (size_t i = 0; i < 3; ++i) {
        MessageWriter writer = message();
        writer.add_data(data(reader_of(i)));
        EXPECT_THAT(recipients_of(writer.view()), ElementsAre(i));
        writer.clear();
        Gap gap;
        gap.reader = reader_of(i);
        gap.writer = kWriter;
        gap.list.base = 2;
        writer.add_gap(gap);
        EXPECT_THAT(recipients_of(writer.view()), ElementsAre(i));
    }
    MessageWriter writer = message();
    writer.add_data(data(EntityId{0x1107}));
    AckNack acknack; // to a writer that none of them has
    acknack.reader = EntityId{0x107};
    acknack.writer = EntityId{0x102};
    acknack.missing.base = 1;
    writer.add_acknack(acknack);
    EXPECT_THAT(recipients_of(writer.view()), IsEmpty());
}

TEST_F(RecipientsTest, UnnamedReadersAreThoseThatMatch) {
    MessageWriter writer = message();
    writer.add_data(data(entity::unknown));
    EXPECT_THAT(recipients_of(writer.view()), ElementsAre(0, 1, 2)) << "they may match soon";
    discover_stranger();
    EXPECT_THAT(recipients_of(writer.view()), ElementsAre(1, 2));
    EXPECT_EQ(sinks[0].samples, 0);
    EXPECT_EQ(sinks[1].samples, 1);
    EXPECT_EQ(sinks[2].samples, 1);
}

TEST_F(RecipientsTest, WhatCannotBeReadIsForNoParticipant) {
    EXPECT_THAT(recipients_of(ByteBuffer{1, 2, 3}, ReadStatus::not_rtps), IsEmpty());
    MessageWriter writer = message();
    writer.add_data(data(reader_of(1)));
    ByteBuffer cut(writer.view().begin(), writer.view().end());
    const ByteBuffer fault{0x15, 1, 100, 0};
    cut.insert(cut.end(), fault.begin(), fault.end());
    EXPECT_THAT(recipients_of(cut, ReadStatus::malformed), ElementsAre(1))
        << "the part before the fault stands";
}

TEST_F(RecipientsTest, ASingleParticipantIsAskedNothing) {
    recipients.remove(*participants[0]);
    recipients.remove(*participants[2]);
    EXPECT_THAT(recipients_of(ByteBuffer{1, 2, 3}, ReadStatus::not_rtps), ElementsAre(1));
}

} // namespace
} // namespace meridian::rtps::net
