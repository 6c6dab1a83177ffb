// What a datagram and an announcement touch: the endpoints that they are for, however many others there are.

#include "rtps/protocol/message_router.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "protocol/participant_fixture.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::seconds;

constexpr uint32_t kReaders = 1000;
constexpr EntityId kWriter{0x00000103};

/// A reader that counts what is asked of it and of its owner.
class CountingReader final : public Reader, public ReaderSink {
  public:
    CountingReader() : Reader(static_cast<ReaderSink&>(*this)) {}
    void add_writer(const RemoteWriter& writer, MonotonicTime) override {
        ++touched;
        writers.push_back(writer.guid);
    }
    void remove_writer(const Guid& writer) override {
        ++touched;
        writers.erase(std::remove(writers.begin(), writers.end(), writer), writers.end());
    }
    bool on_data(const MessageContext& context, const Data& data, MonotonicTime) override {
        ++touched;
        return std::count(writers.begin(), writers.end(), Guid{context.source, data.writer}) != 0;
    }
    bool on_data_frag(const MessageContext&, const DataFrag&, MonotonicTime) override {
        ++touched;
        return true;
    }
    void on_heartbeat(const Guid&, const Heartbeat&, MonotonicTime) override { ++touched; }
    void on_gap(const Guid&, const Gap&, MonotonicTime) override { ++touched; }

    void on_sample(const Sample&) override {}
    void matched(const RemoteEndpoint&) override { ++touched; }
    void unmatched(const Guid&) override { ++touched; }
    void match_changed(const RemoteEndpoint&) override { ++touched; }
    bool accepts_type(const RemoteEndpoint&) override {
        ++touched;
        return true;
    }

    int touched = 0;
    std::vector<Guid> writers;
};

/// The parts of a participant, with one reader per topic.
class MessageRouterTest : public ::testing::Test,
                          protected ParticipantDiscovery::Listener,
                          protected EndpointDiscovery::Listener {
  protected:
    MessageRouterTest() {
        participants.start(now());
        announce_participant(2);
        for (uint32_t i = 0; i < kReaders; ++i) {
            auto local = std::make_unique<LocalEndpoint>();
            auto reader = std::make_unique<CountingReader>();
            local->data = endpoint_data({prefix(1), reader_id(i)}, i);
            local->sink = local->reader_sink = reader.get();
            readers.push_back(reader.get());
            local->reader = std::move(reader);
            locals.add(std::move(local));
        }
    }

    static EntityId reader_id(uint32_t i) { return EntityId{(i + 1) << 8 | kUserReaderNoKey}; }
    static EndpointData endpoint_data(const Guid& guid, uint32_t topic) {
        EndpointData data;
        data.guid = guid;
        data.topic_name = "topic " + std::to_string(topic);
        data.type_name = "type";
        return data;
    }
    Now now() const { return {seconds(1), {100, 0}}; }

    void receive(uint8_t from, const Data& data) {
        MessageWriter writer(prefix(from), 60000);
        writer.add_data(data);
        router.receive(writer.view(), udpv4(from), now());
    }
    void announce_participant(uint8_t id) {
        ParticipantData data;
        data.guid = {prefix(id), entity::participant};
        data.lease = {10, 0};
        data.default_unicast = {udpv4(id, 7411)};
        router.receive(first_announcement(data), udpv4(id), now());
    }
    void announce_writer(const EndpointData& data) {
        const ByteBuffer payload = encode(data);
        Sample sample;
        sample.writer = {data.guid.prefix, entity::publications_writer};
        sample.has_payload = true;
        sample.payload = payload;
        endpoints.on_sample(sample, true);
    }
    void write(EntityId reader) {
        const ByteBuffer payload{0, 1, 0, 0, 1, 2, 3, 4};
        Data message;
        message.reader = reader;
        message.writer = kWriter;
        message.sequence_number = ++written;
        message.has_payload = true;
        message.payload = payload;
        receive(2, message);
    }
    /// How often each reader was touched since the last call: the one in question, and all others together.
    std::pair<int, int> touched(uint32_t one) {
        int others = 0;
        for (CountingReader* reader : readers)
            others += reader->touched;
        const std::pair<int, int> result{readers[one]->touched, others - readers[one]->touched};
        for (CountingReader* reader : readers)
            reader->touched = 0;
        return result;
    }

    void on_participant_discovered(RemoteParticipant& remote, Now) override {
        locals.match_participant(remote, now().monotonic);
    }
    void on_participant_changed(RemoteParticipant&, Now) override {}
    void on_participant_to_match(RemoteParticipant&, Now) override {}
    void on_participant_gone(RemoteParticipant&, GoneReason, Now) override {}
    void on_participant_doubted(RemoteParticipant&) override {}
    void on_endpoint_discovered(DiscoveredEndpoint& endpoint) override {
        locals.match_all(endpoint, now().monotonic);
    }
    void on_endpoint_changed(DiscoveredEndpoint& endpoint) override {
        locals.match_all(endpoint, now().monotonic, LocalEndpoints::Cause::remote_changed);
    }
    void on_endpoint_gone(DiscoveredEndpoint& endpoint, GoneReason, WireTime) override {
        locals.part_all(endpoint);
    }

    ParticipantConfig config = [] {
        ParticipantConfig result;
        result.prefix = prefix(1);
        return result;
    }();
    CapturedOutput output;
    Events events;
    MessageBatcher batcher{prefix(1), 1400, output};
    WarnOnce warnings{events};
    ParticipantDiscovery participants{config, output, batcher, warnings, *this};
    EndpointDiscovery endpoints{config, participants, warnings, *this};
    Liveliness liveliness{[](const Guid&, bool) {}};
    LocalEndpoints locals{output, participants, liveliness, events, warnings};
    const GuidPrefix own_prefix = prefix(1);
    MessageRouter router{own_prefix, participants, endpoints, locals, liveliness, warnings};
    std::vector<CountingReader*> readers;
    SequenceNumber written = 0;
};

TEST_F(MessageRouterTest, AnAnnouncementTouchesTheReadersOfItsTopic) {
    touched(0);
    EndpointData writer = endpoint_data({prefix(2), kWriter}, 700);
    announce_writer(writer);
    EXPECT_EQ(touched(700), (std::pair<int, int>{3, 0})); // asked for its type, given the writer, told of it
    writer.name = "renamed";
    announce_writer(writer);
    EXPECT_EQ(touched(700).second, 0);
    writer.topic_name = "topic 5";
    announce_writer(writer);
    EXPECT_EQ(readers[700]->writers.size(), 0u);
    EXPECT_EQ(readers[5]->writers.size(), 1u);
    touched(5);
    endpoints.participant_gone(prefix(2), GoneReason::disposed);
    EXPECT_EQ(touched(5), (std::pair<int, int>{2, 0}));
}

TEST_F(MessageRouterTest, ADatagramTouchesTheReadersThatItIsFor) {
    announce_writer(endpoint_data({prefix(2), kWriter}, 700));
    touched(0);
    write(entity::unknown);
    EXPECT_EQ(touched(700), (std::pair<int, int>{1, 0}));
    write(reader_id(700));
    EXPECT_EQ(touched(700), (std::pair<int, int>{1, 0}));
    write(reader_id(3)); // which is not matched with it
    EXPECT_EQ(touched(3), (std::pair<int, int>{1, 0}));
}

TEST_F(MessageRouterTest, ADatagramOfManyUnknownWritersIsTakenAgainAFewTimes) {
    constexpr uint32_t kWriters = 500;
    const auto guid = [](uint32_t i) { return Guid{prefix(2), EntityId{(i + 1) << 8 | kUserWriterNoKey}}; };
    MessageWriter datagram(prefix(2), 60000);
    for (uint32_t i = 0; i < kWriters; ++i) {
        Data data;
        data.writer = guid(i).entity;
        data.sequence_number = 1;
        datagram.add_data(data);
    }
    router.receive(datagram.view(), udpv4(2), now());
    for (uint32_t i = 0; i < kWriters; ++i) {
        announce_writer(endpoint_data(guid(i), 0));
        router.writer_known(guid(i));
        router.replay(now());
    }
    EXPECT_LT(touched(0).first, 10 * static_cast<int>(kWriters));
}

} // namespace
} // namespace meridian::rtps::test
