// Publications whose types are found later than they are announced.

#include <gtest/gtest.h>

#include <memory>

#include "protocol/captured_output.h"
#include "protocol/simulated_network.h"

namespace meridian::rtps {

/// What the layers above know a type by.
class EndpointType {};

namespace test {
namespace {

using std::chrono::seconds;

/// Answers as the test says.
class Settler final : public TypeSettler {
  public:
    Answer type_of(const RemoteEndpoint& publication, const ParticipantData& participant) override {
        EXPECT_EQ(publication.guid.prefix, participant.guid.prefix);
        ++asked;
        return answer;
    }
    void participant_gone(const GuidPrefix&) override { ++gone; }

    Answer answer{TypeState::waiting, nullptr};
    int asked = 0;
    int gone = 0;
};

class Listener final : public ReaderSink {
  public:
    std::vector<SequenceNumber> samples;
    Lines lines;
    void on_sample(const Sample& sample) override { samples.push_back(sample.sequence_number); }
    void matched(const RemoteEndpoint& remote) override { lines.push_back("matched " + remote.name); }
    void unmatched(const Guid&) override { lines.emplace_back("unmatched"); }
};

/// A participant with a reader, and a remote writer whose type is looked up.
class TypeSettlingTest : public ::testing::Test {
  protected:
    TypeSettlingTest() {
        writer.guid = {prefix(2), EntityId{0x103}};
        writer.topic_name = "Square";
        writer.type_name = "Shape";
        writer.name = "a";
        EndpointData reader = writer;
        reader.guid = {prefix(1), EntityId{0x104}};
        participant.set_type_settler(settler);
        participant.start(now);
        participant.add_reader(reader, {}, sink, now);
        announce(2);
        announce(writer);
    }

    void receive(uint8_t from, EntityId writer_id, ByteView payload, uint32_t status = 0) {
        InlineQos qos;
        qos.status_info = status;
        const ByteBuffer inline_qos = encode(qos);
        Data data;
        data.writer = writer_id;
        data.sequence_number = ++numbers[writer_id];
        if (status != 0)
            data.inline_qos = inline_qos;
        data.has_payload = true;
        data.payload_is_key = status != 0;
        data.payload = payload;
        MessageWriter message(prefix(from), 60000);
        message.add_data(data);
        participant.receive(message.view(), udpv4(from), now);
    }
    void announce(uint8_t id) {
        ParticipantData data;
        data.guid = {prefix(id), entity::participant};
        data.builtin_endpoints = 0xc3f;
        receive(id, entity::participant_writer, encode(data));
    }
    void announce(const EndpointData& data) { receive(2, entity::publications_writer, encode(data)); }
    void dispose() { receive(2, entity::publications_writer, encode_endpoint_key(writer.guid), 3); }
    void write() {
        const ByteBuffer payload{0, 1, 0, 0, 1, 2, 3, 4};
        receive(2, writer.guid.entity, payload);
    }

    using History = std::vector<std::string>;
    const EndpointTypeRef type = std::make_shared<EndpointType>();
    Now now{seconds(1), {100, 0}};
    Settler settler;
    Listener sink;
    Recorder recorder{[](const GuidPrefix& p) { return p == prefix(1); }};
    CapturedOutput output;
    Participant participant{[] {
                                ParticipantConfig config;
                                config.prefix = prefix(1);
                                return config;
                            }(),
                            output, recorder};
    std::map<EntityId, SequenceNumber> numbers;
    EndpointData writer;
};

TEST_F(TypeSettlingTest, APublicationIsVisibleOnceItsTypeIsKnown) {
    EXPECT_EQ(settler.asked, 1);
    EXPECT_EQ(recorder.history, History{});
    EXPECT_EQ(sink.lines, Lines{});
    participant.settle_type(writer.guid, type, now);
    EXPECT_EQ(recorder.history, (History{"+a"}));
    EXPECT_EQ(recorder.endpoints.at(writer.guid)->type, type);
    EXPECT_EQ(sink.lines, (Lines{"matched a"}));
    participant.settle_type(writer.guid, nullptr, now); // nothing waits
    EXPECT_EQ(recorder.endpoints.at(writer.guid)->type, type);
    EXPECT_EQ(recorder.history, (History{"+a"}));
}

TEST_F(TypeSettlingTest, WithoutATypeItIsVisibleToo) {
    participant.settle_type(writer.guid, nullptr, now);
    EXPECT_EQ(recorder.history, (History{"+a"}));
    EXPECT_EQ(recorder.endpoints.at(writer.guid)->type_state, TypeState::none);
}

TEST_F(TypeSettlingTest, WhatIsAnnouncedMeanwhileReplacesWhatWaits) {
    writer.name = "b";
    announce(writer);
    announce(writer); // the same once more
    EXPECT_EQ(settler.asked, 2);
    participant.settle_type(writer.guid, type, now);
    EXPECT_EQ(recorder.history, (History{"+b"}));
    EXPECT_EQ(sink.lines, (Lines{"matched b"}));
}

TEST_F(TypeSettlingTest, AChangeOfWhatIsVisibleWaitsForItself) {
    participant.settle_type(writer.guid, type, now);
    writer.name = "b";
    announce(writer);
    EXPECT_EQ(recorder.history, (History{"+a"}));
    write();
    EXPECT_EQ(sink.samples.size(), 1u); // it stays matched
    dispose();
    EXPECT_EQ(recorder.history, (History{"+a", "~b", "-b"}));
    EXPECT_EQ(sink.lines, (Lines{"matched a", "unmatched"}));
}

TEST_F(TypeSettlingTest, NothingElseWaits) {
    settler.answer = {TypeState::known, type};
    EndpointData other = writer;
    other.guid.entity = EntityId{0x203};
    other.name = "other";
    announce(other);
    EXPECT_EQ(recorder.history, (History{"+other"}));
    EndpointData subscription = writer;
    subscription.guid.entity = EntityId{0x304};
    subscription.name = "reader";
    receive(2, entity::subscriptions_writer, encode(subscription));
    EXPECT_EQ(recorder.history, (History{"+other", "+reader"}));
    EXPECT_EQ(settler.asked, 2); // and not about subscriptions
}

TEST_F(TypeSettlingTest, WhatItWritesMeanwhileIsDelivered) {
    write();
    write();
    EXPECT_TRUE(sink.samples.empty());
    participant.settle_type(writer.guid, type, now);
    EXPECT_EQ(sink.samples, (std::vector<SequenceNumber>{1, 2}));
    write();
    EXPECT_EQ(sink.samples.size(), 3u);
}

TEST_F(TypeSettlingTest, OneThatGoesMeanwhileIsToldWithWhatItWrote) {
    write();
    dispose();
    EXPECT_EQ(recorder.history, (History{"+a", "-a"}));
    EXPECT_EQ(sink.lines, (Lines{"matched a", "unmatched"}));
    EXPECT_EQ(sink.samples, (std::vector<SequenceNumber>{1}));
    participant.settle_type(writer.guid, type, now); // too late
    EXPECT_EQ(recorder.history.size(), 2u);
}

TEST_F(TypeSettlingTest, OneWhoseParticipantGoesMeanwhileIsToldToo) {
    participant.ignore_participant(prefix(2), now);
    EXPECT_EQ(recorder.history, (History{"+a", "-a"}));
    EXPECT_EQ(settler.gone, 1);
    EXPECT_TRUE(recorder.contradictions.empty());
}

} // namespace
} // namespace test
} // namespace meridian::rtps
