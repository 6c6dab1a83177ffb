// What is said in the name of a known participant: from the address that it has, and from others.

#include <gtest/gtest.h>

#include "protocol/participant_fixture.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// Participant 2 is known, with a writer, and announced itself twice from its socket.
class SecondWordTest : public ParticipantTest {
  protected:
    static constexpr uint32_t kOtherPort = 50001;
    static constexpr Duration kLongest = milliseconds(700); // until a change from elsewhere is taken

    void meet(const ParticipantData& data) {
        start();
        run_until(time + seconds(1)); // the burst is over
        known = data;
        send_data(2, entity::participant_writer, 1, encode(data));
        send_data(2, entity::participant_writer, 1, encode(data));
        send_data(2, entity::publications_writer, 1, encode(publication(2)));
        run_until(time + seconds(3));
        output.messages.clear();
        recorder.history.clear();
    }
    /// From another socket.
    void say(const std::function<void()>& what) {
        source_port = kOtherPort;
        what();
        source_port = 50000;
    }
    void announce_from_elsewhere(const ParticipantData& data, SequenceNumber number = 1) {
        say([&] { send_data(2, entity::participant_writer, number, encode(data)); });
    }
    void answer() {
        receive(
            2,
            [&](MessageWriter& writer) {
                AckNack acknack;
                acknack.reader = entity::publications_reader;
                acknack.writer = entity::publications_writer;
                acknack.missing.base = 1;
                acknack.count = ++answers;
                acknack.final = true;
                writer.add_acknack(acknack);
            },
            true);
    }
    /// Lets time pass; participant 2 answers whatever it is sent, if it lives.
    void pass(Duration duration, bool lives) {
        for (const MonotonicTime end = time + duration; time < end;) {
            run_until(std::min(end, time + milliseconds(10)));
            const Lines heard = sent_to(udpv4(2));
            output.messages.clear();
            asked += static_cast<int>(std::count_if(heard.begin(), heard.end(), [](const std::string& line) {
                return line.find("HEARTBEAT") == 0;
            }));
            if (lives && !heard.empty())
                answer();
        }
    }
    void expect_nothing_happened() {
        EXPECT_EQ(recorder.history, Lines{});
        EXPECT_TRUE(recorder.gone.empty());
        ASSERT_EQ(recorder.participants.size(), 1u);
        EXPECT_EQ(encode(recorder.participants.at(prefix(2))), encode(known));
        EXPECT_TRUE(recorder.contradictions.empty());
    }
    void expect_another_life() {
        ASSERT_EQ(recorder.gone.size(), 1u);
        EXPECT_EQ(recorder.gone[0].second, GoneReason::replaced);
        EXPECT_EQ(recorder.history, (Lines{"-"}));
        EXPECT_EQ(recorder.participants.size(), 1u);
        EXPECT_TRUE(recorder.contradictions.empty());
    }

    ParticipantData known;
    Count answers = 0;
    int asked = 0; // heartbeats that participant 2 was sent
};

TEST_F(SecondWordTest, OtherSocketsUnderTheSamePrefixAreAnotherLife) {
    start();
    ParticipantData data = remote(2);
    announce(data);
    send_data(2, entity::publications_writer, 1, encode(publication(2)));
    data.metatraffic_unicast = {udpv4(2, 9999)};
    announce(data);
    ASSERT_EQ(recorder.gone.size(), 1u);
    EXPECT_EQ(recorder.gone[0].second, GoneReason::replaced);
    EXPECT_EQ(recorder.participants.size(), 1u);
    EXPECT_TRUE(recorder.endpoints.empty());
    EXPECT_TRUE(recorder.contradictions.empty());
}

TEST_F(SecondWordTest, ANewAddressOfTheSameSocketsIsAChange) {
    start();
    ParticipantData data = remote(2);
    announce(data);
    output.messages.clear();
    data.metatraffic_unicast = {udpv4(22)};
    announce(data);
    EXPECT_TRUE(recorder.gone.empty());
    run_until(time + milliseconds(150));
    EXPECT_EQ(sent_to(udpv4(2)), Lines{});
    EXPECT_FALSE(sent_to(udpv4(22)).empty()); // what repeats goes to the new address
}

std::vector<ParticipantData> forgeries(const ParticipantData& known) {
    std::vector<ParticipantData> result(6, known);
    result[0].domain_id = 77;
    result[1].vendor = VendorId{{0x01, 0x56}};
    result[2].metatraffic_unicast = {udpv4(9, 9)};
    result[3].default_unicast = {udpv4(9, 7411)};
    result[4].lease = {0, 1};
    result[5].properties = {{"fastdds.physical_data.process", "4711"}};
    return result;
}

TEST_F(SecondWordTest, AForgedChangeDoesNothingWhileTheAddressThatIsKnownLives) {
    meet(remote(2));
    for (const ParticipantData& forged : forgeries(known)) {
        announce_from_elsewhere(forged, 2);
        pass(seconds(3), true);
        expect_nothing_happened();
    }
    EXPECT_GT(asked, 0);
}

TEST_F(SecondWordTest, AForgedFarewellDoesNothingWhileTheAddressThatIsKnownLives) {
    meet(remote(2));
    const Guid guid{prefix(2), entity::participant};
    const auto leave = [&] {
        receive(2, [&](MessageWriter& writer) { add_end(writer, entity::participant_writer, 9, guid); });
    };
    say(leave);
    pass(seconds(3), true);
    expect_nothing_happened();
    leave();
    ASSERT_EQ(recorder.gone.size(), 1u);
    EXPECT_EQ(recorder.gone[0].second, GoneReason::disposed);
}

TEST_F(SecondWordTest, AChangeIsTakenOnceTheAddressThatIsKnownIsSilent) {
    meet(remote(2));
    ParticipantData moved = known;
    moved.metatraffic_unicast = {udpv4(22)};
    announce_from_elsewhere(moved, 2);
    EXPECT_EQ(encode(recorder.participants.at(prefix(2))), encode(known));
    pass(kLongest, false);
    EXPECT_EQ(recorder.participants.at(prefix(2)).metatraffic_unicast, moved.metatraffic_unicast);
}

TEST_F(SecondWordTest, AChangeIsTakenAtOnceWhenItComesFromTheAddressThatIsKnownToo) {
    meet(remote(2));
    ParticipantData renamed = known;
    renamed.name = "renamed";
    announce_from_elsewhere(renamed, 2);
    EXPECT_EQ(recorder.participants.at(prefix(2)).name, "");
    send_data(2, entity::participant_writer, 2, encode(renamed));
    EXPECT_EQ(recorder.participants.at(prefix(2)).name, "renamed");
    pass(seconds(3), true);
    EXPECT_TRUE(recorder.gone.empty());
}

TEST_F(SecondWordTest, AForgeryThatWasTakenDoesNotLast) {
    meet(remote(2));
    ParticipantData forged = known;
    forged.default_unicast = {udpv4(9, 7411)};
    announce_from_elsewhere(forged, 2);
    pass(kLongest, false); // it was stopped, say
    EXPECT_EQ(recorder.participants.at(prefix(2)).default_unicast, forged.default_unicast);
    send_data(2, entity::participant_writer, 1, encode(known));
    pass(kLongest, false);
    EXPECT_EQ(recorder.participants.at(prefix(2)).default_unicast, known.default_unicast);
}

TEST_F(SecondWordTest, AProcessThatComesBackWithItsPrefixIsAnotherLife) {
    ParticipantData data = remote(2);
    data.properties = {{"fastdds.physical_data.process", "1"}};
    meet(data);
    data.properties[0].value = "2";
    announce_from_elsewhere(data);
    EXPECT_FALSE(sent_to(udpv4(2)).empty()); // it learns of this side at once
    expect_nothing_happened();
    pass(kLongest, false);
    expect_another_life();
    EXPECT_EQ(recorder.participants.at(prefix(2)).properties, data.properties);
    // Delayed packets of the life before are not taken for a third one.
    send_data(2, entity::participant_writer, 1, encode(known));
    say([&] { pass(seconds(3), true); });
    expect_another_life();
    EXPECT_EQ(recorder.participants.at(prefix(2)).properties, data.properties);
}

TEST_F(SecondWordTest, AnotherPersistenceGuidIsAnotherProcess) {
    ParticipantData data = remote(2);
    data.properties = {{"PID_PERSISTENCE_GUID", "01.0f.7f.01.31.02.d8.09.00.00.00.00|0.0.1.c1"}};
    meet(data);
    data.properties[0].value = "01.0f.7f.01.ad.02.dc.7d.00.00.00.00|0.0.1.c1";
    send_data(2, entity::participant_writer, 1, encode(data));
    expect_another_life();
}

// Every life of a process begins with number 1.
TEST_F(SecondWordTest, WhatChangedUnderTheSameNumberInAnotherSocketOfTheHostIsAnotherLife) {
    meet(remote(2));
    ParticipantData data = known;
    data.user_data = {1, 2, 3};
    announce_from_elsewhere(data);
    pass(kLongest, false);
    expect_another_life();
}

TEST_F(SecondWordTest, WhatDiffersUnderTheSameNumberFromAnotherInterfaceIsNoChange) {
    meet(remote(2));
    ParticipantData data = known;
    data.metatraffic_unicast.push_back(udpv4(22));
    source_host = 22;
    send_data(2, entity::participant_writer, 1, encode(data));
    pass(seconds(1), false);
    expect_nothing_happened();
}

TEST_F(SecondWordTest, ADelayedPacketOfTheLifeBeforeMakesNoDifference) {
    ParticipantData data = remote(2);
    data.properties = {{"fastdds.physical_data.process", "1"}};
    meet(data);
    data.properties[0].value = "2";
    announce_from_elsewhere(data);
    pass(milliseconds(100), false);
    answer();
    pass(milliseconds(800), false);
    expect_another_life();
}

TEST_F(SecondWordTest, AnotherSocketOfTheSameHostIsAnotherLifeIfTheFirstIsSilent) {
    meet(remote(2)); // it announces nothing of its process
    announce_from_elsewhere(known);
    pass(kLongest, false);
    expect_another_life();
}

TEST_F(SecondWordTest, AParticipantMayHaveSeveralSockets) {
    meet(remote(2));
    for (int i = 0; i < 5; ++i) {
        announce_from_elsewhere(known);
        pass(seconds(1), true);
    }
    expect_nothing_happened();
    EXPECT_LT(asked, 15); // one look is enough

    // Answers may come from a third one that never announces it.
    source_port = 50002;
    answer();
    say([&] { send_data(2, entity::participant_writer, 1, encode(known)); });
    expect_nothing_happened();
}

TEST_F(SecondWordTest, ParticipantsThatNeverUseASocketTwiceAreLeftInPeace) {
    start();
    known = remote(2);
    for (uint32_t port = 40000; port < 40010; ++port) {
        source_port = port;
        send_data(2, entity::participant_writer, 1, encode(known));
        pass(seconds(1), false);
    }
    expect_nothing_happened();
}

TEST_F(SecondWordTest, WhatIsInDoubtIsNotMixedWithWhatIsKnown) {
    ParticipantData data = remote(2);
    data.properties = {{"fastdds.physical_data.process", "1"}};
    meet(data);
    data.properties[0].value = "2";
    EndpointData second = publication(2, 0x202);
    second.name = "second";
    announce_from_elsewhere(data);
    say([&] { send_data(2, entity::publications_writer, 2, encode(second)); });
    EXPECT_EQ(recorder.history, Lines{});
    pass(kLongest, false);
    EXPECT_EQ(recorder.history, (Lines{"-"}));
    say([&] { send_data(2, entity::publications_writer, 1, encode(second)); });
    EXPECT_EQ(recorder.history, (Lines{"-", "+second"}));
}

} // namespace
} // namespace meridian::rtps::test
