// A participant that knows others through a discovery server, and what it tells that server of itself.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "protocol/participant_fixture.h"
#include "protocol/silent_reader.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint8_t kServer = 9;
constexpr uint8_t kClient = 5;
const Locator kServerAddress = udpv4(kServer, 11811);

/// Under which prefixes samples came, and which they name in their inline QoS.
class Identities final : public MessageVisitor {
  public:
    explicit Identities(const CapturedOutput& output) {
        for (const auto& message : output.messages) {
            if (message.destination == kServerAddress)
                read_message(message.bytes, *this);
        }
    }
    std::vector<EntityId> writers;
    std::vector<VendorId> announced_as; // makers of the messages that announce the participant
    std::vector<Guid> sources;
    std::vector<Guid> named;

    void forget_first() {
        for (std::vector<Guid>* list : {&sources, &named})
            list->erase(list->begin());
    }

  private:
    void on_data(const MessageContext& context, const Data& data) override {
        InlineQos qos;
        decode_inline_qos(data.inline_qos, data.endianness, qos);
        writers.push_back(data.writer);
        if (data.writer == entity::participant_writer)
            announced_as.push_back(context.vendor);
        sources.push_back(Guid{context.source, data.writer});
        named.push_back(qos.related_writer.value_or(Guid{}));
        EXPECT_EQ(qos.related_sequence_number, data.sequence_number);
    }
};

class DiscoveryServerTest : public ParticipantTest {
  protected:
    DiscoveryServerTest() { config.servers = {kServerAddress}; }

    ParticipantData server() {
        ParticipantData data = remote(kServer);
        data.vendor = VendorId{{0x01, 0x0f}};
        data.metatraffic_unicast = {kServerAddress};
        data.metatraffic_multicast.clear();
        data.properties = {{"PARTICIPANT_TYPE", "SERVER"}};
        return data;
    }
    /// A sample of the server's, with a heartbeat of that count behind it.
    void server_tells(EntityId writer_id, SequenceNumber number, const ByteBuffer& payload, Count count) {
        receive(
            kServer,
            [&](MessageWriter& writer) {
                Data data;
                data.writer = writer_id;
                data.sequence_number = number;
                data.has_payload = true;
                data.payload = payload;
                writer.add_data(data);
                Heartbeat heartbeat;
                heartbeat.writer = writer_id;
                heartbeat.first = 1;
                heartbeat.last = number;
                heartbeat.count = count;
                writer.add_heartbeat(heartbeat);
            },
            true);
    }
    void client_answers() {
        source_port = 50007;
        acknowledge(kClient, 1);
        source_port = 50000;
    }
    void meet() {
        start();
        server_tells(entity::participant_writer, 1, encode(server()), 1);
        output.messages.clear();
    }
};

// Servers of Fast DDS 3 believe the message and not the parameter.
TEST_F(DiscoveryServerTest, TheMessageSaysTheMakerThatServersSpeakWith) {
    start();
    run_until(time + seconds(4));
    const Identities identities(output);
    EXPECT_FALSE(identities.announced_as.empty());
    EXPECT_THAT(identities.announced_as, Each(VendorId{{0x01, 0x0f}}));
    EXPECT_THAT(identities.sources, Each(testing::Field(&Guid::prefix, prefix(1))));
}

TEST_F(DiscoveryServerTest, ItsSamplesNameWhoItIs) {
    meet();
    SilentReader sink;
    ASSERT_TRUE(participant->add_reader(publication(1, 0x107), {}, sink, now()));
    const Identities before(output);
    EXPECT_THAT(before.sources, Each(testing::Field(&Guid::prefix, prefix(1))));
    EXPECT_EQ(before.named, before.sources);
    output.messages.clear();

    participant->join_again(prefix(100), config.locators, now());
    Identities after(output);
    EXPECT_EQ(after.sources.at(0).prefix, prefix(1)) << "the farewell";
    EXPECT_EQ(after.named.at(0).prefix, prefix(1));
    after.forget_first();
    EXPECT_THAT(after.writers, testing::Contains(entity::participant_writer));
    EXPECT_THAT(after.writers, testing::Contains(entity::subscriptions_writer));
    EXPECT_THAT(after.sources, Each(testing::Field(&Guid::prefix, prefix(100))));
    EXPECT_EQ(after.named, after.sources);
}

/// The server, a client and its writer are known.
class ServerThatComesBack : public DiscoveryServerTest {
  protected:
    ServerThatComesBack() {
        meet();
        server_tells(entity::participant_writer, 2, encode(remote(kClient)), 69);
        server_tells(entity::publications_writer, 1, encode(writer_of(kClient, "early")), 49);
        EXPECT_EQ(recorder.history, (Lines{"+early"}));
        run_until(time + seconds(3));
        output.messages.clear();
    }
    EndpointData writer_of(uint8_t id, const std::string& name) {
        EndpointData data = publication(id);
        data.name = name;
        return data;
    }
    /// What a writer of the server asks or tells before it was asked itself.
    void knock(Count count) {
        receive(
            kServer,
            [&](MessageWriter& writer) {
                AckNack acknack;
                acknack.reader = entity::participant_reader;
                acknack.writer = entity::participant_writer;
                acknack.missing.base = 0;
                acknack.count = count;
                writer.add_acknack(acknack);
            },
            true);
    }
    /// Everything from the beginning, as a server does that began anew, with this client besides.
    void tell_all(uint8_t client, const std::string& name, Count count) {
        server_tells(entity::participant_writer, 1, encode(server()), count);
        server_tells(entity::participant_writer, 2, encode(remote(kClient)), count + 1);
        server_tells(entity::participant_writer, 3, encode(remote(client)), count + 2);
        server_tells(entity::publications_writer, 1, encode(writer_of(kClient, "early")), count);
        server_tells(entity::publications_writer, 2, encode(writer_of(client, name)), count + 1);
    }
    /// Acknowledgements to the server.
    Lines acknowledged() {
        Lines lines = sent_to(kServerAddress);
        lines.erase(std::remove_if(lines.begin(), lines.end(),
                                   [](const std::string& line) { return line.rfind("ACKNACK", 0) != 0; }),
                    lines.end());
        return lines;
    }
};

TEST_F(ServerThatComesBack, NothingIsAcknowledgedThatItsFirstLifeTold) {
    source_port = 50001;
    knock(1);
    tell_all(6, "late", 70); // its counts have come as far as those of its first life
    tell_all(6, "late", 80);
    EXPECT_THAT(acknowledged(), IsEmpty()) << "they would be acknowledgements of what was not heard";
    run_until(time + seconds(1));
    EXPECT_THAT(acknowledged(), Each(testing::StartsWith("ACKNACK 0 {}"))) << "it is asked for everything";
    EXPECT_FALSE(acknowledged().empty());
    tell_all(6, "late", 90);
    for (int i = 0; i < 60; ++i) {
        run_until(time + seconds(1));
        knock(10 + i);
    }
    EXPECT_EQ(recorder.history, (Lines{"+early", "+late"}));
    EXPECT_TRUE(recorder.contradictions.empty());
}

TEST_F(ServerThatComesBack, WhatItDoesNotNameAgainStaysAsLongAsItAnswers) {
    // As one with a state file does, which takes its clients for told.
    source_port = 50001;
    server_tells(entity::participant_writer, 1, encode(server()), 1);
    for (int i = 0; i < 60; ++i) {
        run_until(time + seconds(1));
        if (!sent_to(udpv4(kClient)).empty())
            client_answers();
        output.messages.clear();
        server_tells(entity::participant_writer, 1, encode(server()), 1);
    }
    EXPECT_EQ(recorder.history, (Lines{"+early"}));
    for (int i = 0; i < 30; ++i) {
        run_until(time + seconds(1));
        server_tells(entity::participant_writer, 1, encode(server()), 1);
    }
    EXPECT_EQ(recorder.history, (Lines{"+early", "-early"}));
}

TEST_F(DiscoveryServerTest, ClientsOfALostServerLeaveWhenTheyNoLongerAnswer) {
    meet();
    server_tells(entity::participant_writer, 2, encode(remote(kClient)), 2);
    receive(kServer, [&](MessageWriter& writer) {
        add_end(writer, entity::participant_writer, 3, {prefix(kServer), entity::participant});
    });
    for (int i = 0; i < 60; ++i) {
        run_until(time + seconds(1));
        if (!sent_to(udpv4(kClient)).empty())
            client_answers();
        output.messages.clear();
    }
    EXPECT_EQ(known_participants(), (std::vector<GuidPrefix>{prefix(kClient)}));
    run_until(time + seconds(30));
    EXPECT_THAT(known_participants(), IsEmpty());
}

} // namespace
} // namespace meridian::rtps::test
