// A participant whose host has other addresses than others know, and peers that can be reached in part or not
// at all.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "protocol/participant_fixture.h"
#include "protocol/silent_reader.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;

using JoinAgain = ParticipantTest;

/// The sources of messages and what they announce: participants and the endpoints with their keys.
class Announcements final : public MessageVisitor {
  public:
    explicit Announcements(const CapturedOutput& output) {
        for (const auto& message : output.messages)
            read_message(message.bytes, *this);
    }
    std::vector<std::pair<GuidPrefix, std::string>> all;

  private:
    void on_data(const MessageContext& context, const Data& data) override {
        std::string error;
        std::string what = data.payload_is_key || data.inline_qos.size != 0 ? "farewell" : "other";
        if (const auto endpoint = decode_endpoint(data.payload, false, error);
            endpoint && data.writer == entity::subscriptions_writer)
            what = "reader of " + std::to_string(endpoint->guid.prefix.bytes[11]);
        else if (const auto participant = decode_participant(data.payload, error);
                 participant && what == "other")
            what = "participant " + std::to_string(participant->guid.prefix.bytes[11]);
        if (all.empty() || all.back() != std::make_pair(context.source, what))
            all.emplace_back(context.source, what);
    }
};

TEST_F(JoinAgain, OthersSeeAnotherParticipantAndNothingIsToldHere) {
    start();
    announce(remote(2));
    send_data(2, entity::publications_writer, 1, encode(publication(2)));
    SilentReader sink;
    ASSERT_TRUE(participant->add_reader(publication(1, 0x107), {}, sink, now()));
    acknowledge(2, 2);
    run_until(time + seconds(1));
    const std::vector<std::string> history = recorder.history;
    ASSERT_EQ(recorder.endpoints.size(), 1u);
    output.messages.clear();

    OwnLocators elsewhere;
    elsewhere.metatraffic_unicast = {udpv4(101)};
    elsewhere.default_unicast = {udpv4(101, 7411)};
    participant->join_again(prefix(100), elsewhere, now());
    using Told = std::pair<GuidPrefix, std::string>;
    const Announcements told(output);
    EXPECT_EQ(told.all.front(), (Told{prefix(1), "farewell"}));
    EXPECT_EQ(told.all.at(1), (Told{prefix(100), "participant 100"}));
    EXPECT_EQ(told.all.back(), (Told{prefix(100), "reader of 100"}));
    EXPECT_EQ(participant->announced().default_unicast, elsewhere.default_unicast);
    EXPECT_EQ(recorder.history, history);
    EXPECT_TRUE(recorder.gone.empty());

    // Callers name their endpoints as before.
    EXPECT_TRUE(participant->update_endpoint(publication(1, 0x107), now()));
    EXPECT_TRUE(participant->add_reader(publication(1, 0x207), {}, sink, now()));
    output.messages.clear();
    EXPECT_TRUE(participant->remove_endpoint(EntityId{0x207}, now()));
    receive(2, [](MessageWriter& writer) {
        writer.add_info_destination(prefix(100));
        Heartbeat heartbeat;
        heartbeat.reader = EntityId{0x107};
        heartbeat.writer = EntityId{0x102};
        heartbeat.first = 1;
        heartbeat.last = 0;
        heartbeat.count = 1;
        writer.add_heartbeat(heartbeat);
    });
    run_until(time + seconds(1));
    const Lines answers = sent_to(udpv4(2, 7411));
    EXPECT_NE(std::find_if(answers.begin(), answers.end(),
                           [](const std::string& line) { return line.rfind("ACKNACK", 0) == 0; }),
              answers.end());
}

class WithoutRoute : public ParticipantTest {
  protected:
    static Locator shared_memory() {
        Locator locator = udpv4(2);
        locator.kind = 16;
        return locator;
    }
    void meet(VendorId vendor) {
        start();
        ParticipantData data = remote(2);
        data.vendor = vendor;
        data.default_unicast = {shared_memory()};
        announce(data);
        EndpointData writer = publication(2);
        writer.unicast = {shared_memory()};
        send_data(2, entity::publications_writer, 1, encode(writer));
        ASSERT_TRUE(participant->add_reader(publication(1, 0x107), {},
                                            recorder.sink_of({prefix(1), EntityId{0x107}}), now()));
        acknowledge(2, 1);
    }
    /// Of readers that were announced to it.
    Lines asked_for() {
        output.messages.clear();
        time += seconds(1);
        acknowledge(2, 1, {1, 2, 3});
        Lines lines = sent_to(udpv4(2));
        lines.erase(std::remove_if(lines.begin(), lines.end(),
                                   [](const std::string& line) {
                                       return line.rfind("HEARTBEAT", 0) == 0 ||
                                              line.rfind("ACKNACK", 0) == 0;
                                   }),
                    lines.end());
        return lines;
    }
};

TEST_F(WithoutRoute, AWriterIsAnsweredAtTheDiscoveryAddressOfItsParticipant) {
    meet(VendorId{{0x01, 0x55}});
    EXPECT_EQ(recorder.matches.size(), 1u);
    EXPECT_EQ(asked_for(), (Lines{"DATA 1"}));
    EXPECT_THAT(recorder.errors, ElementsAre(HasSubstr("\"Square\"")));
    output.messages.clear();
    receive(2, [](MessageWriter& writer) { writer.add_heartbeat(heartbeat_of(EntityId{0x102}, 1, 0, 1)); });
    run_until(time + seconds(1));
    const Lines answers = sent_to(udpv4(2));
    EXPECT_NE(std::find_if(answers.begin(), answers.end(),
                           [](const std::string& line) { return line.rfind("ACKNACK 1", 0) == 0; }),
              answers.end());
}

TEST_F(WithoutRoute, OneThatWouldNotHearTheAnswerIsNotToldOfReliableReaders) {
    meet(VendorId{{0x01, 0x0f}});
    EXPECT_TRUE(recorder.matches.empty());
    EXPECT_THAT(recorder.errors, ElementsAre(HasSubstr("\"Square\"")));
    EndpointData modest = publication(1, 0x207);
    modest.qos.reliability = Reliability::best_effort;
    SilentReader sink;
    ASSERT_TRUE(participant->add_reader(modest, {}, sink, now()));
    run_until(time + MessageBatcher::kLongestWait);
    EXPECT_EQ(asked_for(), (Lines{"DATA 2", "GAP 1..1 {}"}));
}

TEST_F(WithoutRoute, AParticipantThatCannotBeReachedIsToldOfOnce) {
    start();
    ParticipantData data = remote(2);
    data.metatraffic_unicast = data.default_unicast = {shared_memory()};
    announce(data);
    announce(data);
    EXPECT_THAT(recorder.errors, ElementsAre(HasSubstr("seen but not reachable")));
}

TEST_F(ParticipantTest, AParticipantThatNeverAnswersIsAskedAndThenToldOnce) {
    start();
    ParticipantData secured = remote(4);
    RawParameter token;
    token.id = 0x1001;
    token.value.assign(4, 0);
    secured.raw.push_back(token);
    for (int second = 0; second < 30; second += 2) {
        announce(remote(2));
        announce(secured);
        output.messages.clear();
        announce(remote(3));
        // It has nothing to tell, and answers when it is asked.
        const Lines asked = sent_to(udpv4(3));
        if (second >= 10 && std::any_of(asked.begin(), asked.end(), [](const std::string& line) {
                return line.rfind("HEARTBEAT", 0) == 0;
            }))
            acknowledge(3, 1);
        EXPECT_EQ(recorder.errors.size(), second >= 20 ? 1u : 0u) << second;
        time += std::chrono::seconds(2);
    }
    EXPECT_THAT(recorder.errors,
                ElementsAre(testing::AllOf(HasSubstr("answers nothing"), HasSubstr(to_string(prefix(2))))));
}

TEST_F(ParticipantTest, AnAnnouncementLargerThanAMessageIsMadeToFitIt) {
    config.max_message_size = 1400;
    config.user_data = ByteBuffer(3000, 7);
    config.name = "large";
    participant = std::make_unique<Participant>(config, output, recorder);
    participant->start(now());
    EXPECT_EQ(Announcements(output).all.size(), 1u);
    EXPECT_LE(output.messages.at(0).bytes.size(), 1400u);
    EXPECT_EQ(participant->announced().user_data.size(), 3000u);
    EXPECT_THAT(recorder.errors, ElementsAre(HasSubstr("without its user data")));
}

} // namespace
} // namespace meridian::rtps::test
