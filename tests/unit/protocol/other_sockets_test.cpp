// What is said in the name of a known participant about its endpoints: from its own sockets, and from others.

#include <gtest/gtest.h>

#include "protocol/participant_fixture.h"
#include "protocol/silent_reader.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// Participant 2 is known for a while, with a writer.
class OtherSocketsTest : public ParticipantTest {
  protected:
    static constexpr uint32_t kOtherPort = 50001;
    static constexpr SequenceNumber kSecret = 4711;

    OtherSocketsTest() {
        config.secret_begin = kSecret;
        second.name = "second";
        forged.name = "forged";
    }
    void meet() {
        start();
        ParticipantData data = remote(2);
        data.vendor = maker;
        announce(data);
        send_data(2, entity::publications_writer, 1, encode(publication(2)));
        run_until(time + seconds(3));
        recorder.history.clear();
        output.messages.clear();
    }
    void say_elsewhere(const std::function<void(MessageWriter&)>& what) {
        source_port = kOtherPort;
        receive(2, what);
        source_port = 50000;
    }
    void publish(const EndpointData& data, SequenceNumber number = 2) {
        send_data(2, entity::publications_writer, number, encode(data));
    }
    void publish_elsewhere(const EndpointData& data, SequenceNumber number = 2) {
        source_port = kOtherPort;
        publish(data, number);
        source_port = 50000;
    }
    void expect_only_the_real_one_is_seen() {
        EXPECT_EQ(recorder.history, Lines{});
        publish(second);
        EXPECT_EQ(recorder.history, (Lines{"+second"}));
        EXPECT_TRUE(recorder.contradictions.empty());
    }

    VendorId maker = remote(2).vendor;
    EndpointData second = publication(2, 0x202);
    EndpointData forged = publication(2, 0x302);
};

TEST_F(OtherSocketsTest, CannotEndAnEndpoint) {
    meet();
    say_elsewhere(
        [&](MessageWriter& writer) { add_end(writer, entity::publications_writer, 2, publication(2).guid); });
    expect_only_the_real_one_is_seen();
}

TEST_F(OtherSocketsTest, CannotAnnounceAnEndpointNorTakeItsNumber) {
    meet();
    publish_elsewhere(forged);
    expect_only_the_real_one_is_seen();
}

TEST_F(OtherSocketsTest, CannotTellThatAnAnnouncementIsIrrelevant) {
    meet();
    say_elsewhere([](MessageWriter& writer) {
        Gap gap;
        gap.writer = entity::publications_writer;
        gap.start = 2;
        gap.list.base = 100;
        writer.add_gap(gap);
        writer.add_heartbeat(heartbeat_of(entity::publications_writer, 100, 100, 50));
    });
    expect_only_the_real_one_is_seen();
}

TEST_F(OtherSocketsTest, CannotBeginAnAnnouncementInFragments) {
    meet();
    const ByteBuffer payload = encode(forged);
    say_elsewhere([&](MessageWriter& writer) {
        const auto size = static_cast<uint32_t>(payload.size());
        writer.add_data_frag(fragment_of(entity::publications_writer, 2, 1, size, payload));
    });
    expect_only_the_real_one_is_seen();
}

TEST_F(OtherSocketsTest, AreHeardFromTheStart) {
    start();
    announce(remote(2));
    publish_elsewhere(second, 1); // it has another socket for this
    EXPECT_EQ(recorder.history, (Lines{"+second"}));
    run_until(time + seconds(3));
    publish_elsewhere(forged);
    EXPECT_EQ(recorder.history, (Lines{"+second", "+forged"}));
}

TEST_F(OtherSocketsTest, AreHeardOnceTheyKnowWhatThisSideToldTheParticipant) {
    meet();
    publish_elsewhere(second);
    EXPECT_EQ(recorder.history, Lines{});
    run_until(time + milliseconds(10));
    EXPECT_FALSE(sent_to(udpv4(2)).empty()); // it is asked for an answer at once
    source_port = kOtherPort;
    acknowledge(2, kSecret + 1);
    publish(second);
    EXPECT_EQ(recorder.history, (Lines{"+second"}));
}

// It answers to no heartbeat without a number.
TEST_F(OtherSocketsTest, OfAMakerThatKnowsNoEmptyRangeAreHeardToo) {
    maker = kOpenDds;
    meet();
    publish_elsewhere(second);
    EXPECT_EQ(recorder.history, Lines{});
    run_until(time + milliseconds(10));
    const Lines asked = sent_to(udpv4(2));
    EXPECT_EQ(std::count(asked.begin(), asked.end(), "HEARTBEAT 4711..4711"), 2); // of both writers
    output.messages.clear();
    source_port = kOtherPort;
    acknowledge(2, kSecret, {kSecret});
    run_until(time + milliseconds(10));
    EXPECT_EQ(sent_to(udpv4(2)), (Lines{"GAP 4711..4711 {}", "HEARTBEAT 4711..4711"}));
    publish(second);
    EXPECT_EQ(recorder.history, (Lines{"+second"}));
}

TEST_F(OtherSocketsTest, AreNotHeardAfterGuesses) {
    meet();
    source_port = kOtherPort;
    for (SequenceNumber guess = kSecret - 50; guess < kSecret + 50; ++guess)
        acknowledge(2, guess);
    publish(forged);
    source_port = 50000;
    expect_only_the_real_one_is_seen();
}

// With many readers there are many numbers that were told.
TEST_F(OtherSocketsTest, AreNotHeardAfterGuessesBesideManyReaders) {
    meet();
    SilentReader sink;
    for (uint32_t i = 1; i <= 600; ++i) {
        EndpointData own = publication(1, i << 8 | 0x07);
        own.topic_name = std::to_string(i);
        ASSERT_TRUE(participant->add_reader(own, {}, sink, now()));
    }
    acknowledge(2, kSecret + 601);
    source_port = kOtherPort;
    for (int i = 0; i < 200; ++i)
        acknowledge(2, kSecret + 2 + i); // 600 of 1,600 possible ones are right
    publish(forged);
    source_port = 50000;
    expect_only_the_real_one_is_seen();
}

TEST_F(OtherSocketsTest, OfItsHostAreHeardWhoeverGuessesElsewhere) {
    meet();
    source_host = 9;
    for (int i = 0; i < 500; ++i)
        acknowledge(2, kSecret + 100 + i);
    source_host = 0;
    source_port = kOtherPort;
    acknowledge(2, kSecret + 1);
    publish(second);
    EXPECT_EQ(recorder.history, (Lines{"+second"}));
}

TEST_F(OtherSocketsTest, MakeThisSideAskTheParticipantNowAndThen) {
    meet();
    for (int i = 0; i < 1000; ++i) {
        publish_elsewhere(forged);
        run_until(time + milliseconds(1));
    }
    EXPECT_LT(sent_to(udpv4(2)).size(), 40u);
}

// Clones of one machine, say, whose applications choose the same prefix.
TEST_F(OtherSocketsTest, TwoApplicationsWithOnePrefixAreToldOfAndTheFirstIsSeen) {
    meet();
    ParticipantData clone = remote(2);
    clone.metatraffic_unicast = {udpv4(3)};
    clone.default_unicast = {udpv4(3, 7411)};
    EndpointData other = publication(2);
    other.topic_name = "Circle";
    for (int round = 0; round < 20; ++round) {
        source_host = 3;
        send_data(2, entity::participant_writer, 1, encode(clone));
        publish(other, 1);
        publish(forged);
        say_elsewhere([](MessageWriter& writer) {
            writer.add_heartbeat(heartbeat_of(entity::publications_writer, 1, 2, 1));
        });
        source_host = 0;
        for (int answers = 0; answers < 10; ++answers) {
            acknowledge(2, kSecret + 1);
            run_until(time + milliseconds(100));
        }
    }
    expect_only_the_real_one_is_seen();
    EXPECT_TRUE(recorder.gone.empty());
    EXPECT_EQ(recorder.errors.size(), 1u);
}

} // namespace
} // namespace meridian::rtps::test
