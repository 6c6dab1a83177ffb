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

} // namespace
} // namespace meridian::rtps::test
