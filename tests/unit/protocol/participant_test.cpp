// One participant against hand-made messages of others.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "protocol/participant_fixture.h"
#include "protocol/silent_reader.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

TEST_F(ParticipantTest, AnnouncesInABurstThenPeriodically) {
    participant = std::make_unique<Participant>(config, output, recorder);
    EXPECT_EQ(participant->next_deadline(), kNever);
    const MonotonicTime begin = time;
    participant->start(now());
    std::vector<Duration> times;
    for (size_t seen = 0; times.size() < 12;) {
        for (; seen < output.messages.size(); ++seen)
            times.push_back(time - begin);
        time = participant->next_deadline();
        participant->on_timer(now());
    }
    for (size_t i = 0; i < 5; ++i)
        EXPECT_EQ(times[i], milliseconds(100) * static_cast<int>(i));
    for (size_t i = 5; i < times.size(); ++i) {
        EXPECT_LE(times[i] - times[i - 1], seconds(2));
        EXPECT_GE(times[i] - times[i - 1], milliseconds(1900));
    }
    EXPECT_EQ(destinations(), (std::set<Locator>{SimulatedNetwork::group()}));
}

TEST_F(ParticipantTest, TheAnnouncementSaysWhatTheStandardAsks) {
    config.domain_tag = "tag";
    config.name = "me";
    config.properties = {{"k", "v"}};
    config.user_data = {1, 2};
    config.additional_builtin_endpoints = kTypeLookupRequestWriter | kTypeLookupReplyReader;
    participant = std::make_unique<Participant>(config, output, recorder);
    participant->start(now());
    class Payload final : public MessageVisitor {
      public:
        ByteBuffer bytes;
        EntityId reader;
        std::optional<WireTime> timestamp;
        void on_data(const MessageContext& context, const Data& data) override {
            bytes.assign(data.payload.begin(), data.payload.end());
            reader = data.reader;
            timestamp = context.timestamp;
        }
    };
    Payload payload;
    ASSERT_EQ(read_message(output.messages.at(0).bytes, payload), ReadStatus::ok);
    EXPECT_EQ(payload.reader, entity::unknown);
    EXPECT_EQ(payload.timestamp, (WireTime{100, 0}));
    std::string error;
    const auto data = decode_participant(payload.bytes, error);
    ASSERT_TRUE(data) << error;
    EXPECT_EQ(data->guid, participant->guid());
    EXPECT_EQ(data->vendor, kOwnVendorId);
    EXPECT_EQ(data->domain_id, 3u);
    EXPECT_EQ(data->domain_tag, "tag");
    EXPECT_EQ(data->builtin_endpoints, 0x9c3fu);
    EXPECT_EQ(data->lease, (WireDuration{6, 0x80000000}));
    EXPECT_EQ(data->metatraffic_unicast, (LocatorList{udpv4(1)}));
    EXPECT_EQ(data->default_unicast, (LocatorList{udpv4(1, 7411)}));
    EXPECT_EQ(data->name, "me");
    EXPECT_EQ(data->properties, (std::vector<Property>{{"k", "v"}}));
    EXPECT_EQ(data->user_data, (ByteBuffer{1, 2}));
}

TEST_F(ParticipantTest, ANewParticipantIsAnsweredAtOnceAndAskedForItsEndpoints) {
    start();
    run_until(time + seconds(1)); // the burst is over
    output.messages.clear();
    announce(remote(2));
    EXPECT_EQ(recorder.participants.size(), 1u);
    EXPECT_EQ(sent_to(udpv4(2)), (Lines{"DATA 6", "HEARTBEAT 1..0", "HEARTBEAT 1..0", "HEARTBEAT 1..0",
                                        "ACKNACK 1 {}", "ACKNACK 1 {}", "ACKNACK 1 {}"}));
    EXPECT_EQ(output.messages.size(), 1u);
    output.messages.clear();
    run_until(time + milliseconds(60));
    EXPECT_EQ(destinations().count(SimulatedNetwork::group()), 1u);
    output.messages.clear();
    announce(remote(2)); // known: no answer
    EXPECT_TRUE(output.messages.empty());
}

TEST_F(ParticipantTest, OnlyTheBuiltinEndpointsThatItHasAreTalkedTo) {
    start();
    ParticipantData data = remote(2);
    data.builtin_endpoints = kParticipantAnnouncer | kParticipantDetector | kPublicationsAnnouncer;
    announce(data);
    EXPECT_EQ(sent_to(udpv4(2)), (Lines{"DATA 2", "ACKNACK 1 {}"}));
}

TEST_F(ParticipantTest, OtherDomainsAndTagsAreNotSeen) {
    start();
    ParticipantData data = remote(2);
    data.domain_id = 4;
    announce(data);
    data = remote(3);
    data.domain_tag = "other";
    announce(data);
    data = remote(4);
    data.domain_id.reset();
    announce(data);
    EXPECT_EQ(known_participants(), (std::vector<GuidPrefix>{prefix(4)}));
}

TEST_F(ParticipantTest, ATagMustBeEqual) {
    config.domain_tag = "tag";
    start();
    announce(remote(2));
    ParticipantData data = remote(3);
    data.domain_tag = "tag";
    announce(data);
    EXPECT_EQ(known_participants(), (std::vector<GuidPrefix>{prefix(3)}));
}

TEST_F(ParticipantTest, OwnParticipantsAreNeverSeen) {
    start();
    announce(remote(1));
    announce(remote(100));
    EXPECT_TRUE(recorder.participants.empty());
    EXPECT_TRUE(output.messages.empty());
}

TEST_F(ParticipantTest, TheLeaseEndsUnlessAnythingIsHeard) {
    start();
    announce(remote(2));
    run_until(time + milliseconds(9900));
    EXPECT_EQ(recorder.participants.size(), 1u);
    receive(2, [](MessageWriter& writer) { writer.add_heartbeat(Heartbeat{}); }); // any traffic renews it
    run_until(time + milliseconds(9900));
    EXPECT_EQ(recorder.participants.size(), 1u);
    announce(remote(2));
    run_until(time + milliseconds(9900));
    EXPECT_EQ(recorder.participants.size(), 1u);
    run_until(time + milliseconds(200));
    ASSERT_EQ(recorder.gone.size(), 1u);
    EXPECT_EQ(recorder.gone[0].second, GoneReason::lease_expired);
}

TEST_F(ParticipantTest, AnInfiniteLeaseNeverEnds) {
    start();
    ParticipantData data = remote(2);
    data.lease = kDurationInfinite;
    announce(data);
    run_until(time + std::chrono::hours(1));
    EXPECT_EQ(recorder.participants.size(), 1u);
}

TEST_F(ParticipantTest, EndpointsComeAndChangeAndGo) {
    start();
    announce(remote(2));
    EndpointData data = publication(2);
    send_data(2, entity::publications_writer, 1, encode(data));
    EXPECT_EQ(recorder.endpoints.count(data.guid), 1u);
    send_data(2, entity::publications_writer, 2, encode(data)); // the same content: no event
    data.qos.partitions = {"A"};
    send_data(2, entity::publications_writer, 3, encode(data));
    EXPECT_EQ(recorder.endpoints.at(data.guid)->qos->partitions, (std::vector<std::string>{"A"}));
    // Only a key hash, no payload, as Fast DDS disposes.
    receive(2, [&](MessageWriter& writer) { add_end(writer, entity::publications_writer, 4, data.guid); });
    EXPECT_TRUE(recorder.endpoints.empty());
    EXPECT_TRUE(recorder.contradictions.empty());
}

TEST_F(ParticipantTest, EndpointsOfUnknownParticipantsAreAskedForOnceTheyAreKnown) {
    start();
    send_data(2, entity::publications_writer, 1, encode(publication(2)));
    EXPECT_TRUE(recorder.endpoints.empty());
    announce(remote(2));
    EXPECT_TRUE(recorder.endpoints.empty());
    output.messages.clear();
    receive(2, [](MessageWriter& writer) {
        writer.add_heartbeat(heartbeat_of(entity::publications_writer, 1, 1, 1));
    });
    EXPECT_EQ(output.take(), (Lines{"ACKNACK 1 {1}"}));
}

TEST_F(ParticipantTest, EachParticipantSpeaksForItselfAlone) {
    start();
    announce(remote(2));
    announce(remote(3));
    const EndpointData theirs = publication(3);
    send_data(3, entity::publications_writer, 1, encode(theirs));
    ASSERT_EQ(recorder.history, (Lines{"+"}));

    EndpointData changed = theirs;
    changed.name = "changed";
    send_data(2, entity::publications_writer, 1, encode(changed));
    send_data(2, entity::publications_writer, 2, encode(publication(3, 0x202)));
    for (const uint8_t other : {uint8_t{3}, uint8_t{77}}) {
        ByteBuffer moved = encode(publication(2, 0x302));
        constexpr size_t kParticipantGuid = 4 + 20 + 4; // behind the encapsulation and the endpoint's GUID
        std::copy_n(prefix(other).bytes.begin(), 12, moved.begin() + kParticipantGuid);
        send_data(2, entity::publications_writer, other == 3 ? 3 : 4, moved);
    }
    receive(2, [&](MessageWriter& writer) { add_end(writer, entity::publications_writer, 5, theirs.guid); });
    receive(2, [&](MessageWriter& writer) {
        add_end(writer, entity::participant_writer, 6, {prefix(3), entity::participant});
    });
    ParticipantData renamed = remote(3);
    renamed.name = "renamed";
    send_data(2, entity::participant_writer, 7, encode(renamed));
    send_data(2, entity::participant_writer, 8, encode(remote(4)));
    EXPECT_EQ(recorder.history, (Lines{"+"}));
    EXPECT_EQ(known_participants(), (std::vector<GuidPrefix>{prefix(2), prefix(3)}));
    EXPECT_EQ(recorder.participants.at(prefix(3)).name, "");
    EXPECT_EQ(recorder.warnings.size(), 1u); // of announcements of endpoints

    send_data(3, entity::publications_writer, 2, encode(changed));
    receive(3, [&](MessageWriter& writer) { add_end(writer, entity::publications_writer, 3, theirs.guid); });
    EXPECT_EQ(recorder.history, (Lines{"+", "~changed", "-changed"}));
}

TEST_F(ParticipantTest, MalformedEndpointDataIsToldOncePerCauseAndTheNextOneCounts) {
    start();
    announce(remote(2));
    const ByteBuffer junk{0, 3, 0, 0, 0x5a, 0, 0x10, 0};
    for (SequenceNumber n = 1; n <= 20; ++n)
        send_data(2, entity::publications_writer, n, junk);
    ASSERT_EQ(recorder.warnings.size(), 1u);
    EXPECT_NE(recorder.warnings[0].find(to_string(prefix(2))), std::string::npos);
    send_data(2, entity::publications_writer, 21, encode(publication(2)));
    EXPECT_EQ(recorder.endpoints.size(), 1u);
}

TEST_F(ParticipantTest, ManyCausesOfWarningsDoNotFlood) {
    start();
    announce(remote(2));
    for (uint32_t i = 0; i < 3000; ++i) {
        ByteBuffer junk{
            0, 3, 0, 0, static_cast<uint8_t>(i), static_cast<uint8_t>(0x40 + (i >> 8)), 4, 0, 0, 0, 0, 0,
            1, 0, 0, 0};
        send_data(2, entity::publications_writer, static_cast<SequenceNumber>(i) + 1, junk);
    }
    EXPECT_GE(recorder.warnings.size(), 2u);
    EXPECT_LE(recorder.warnings.size(), 502u);
}

TEST_F(ParticipantTest, AReaderAnnouncedAsAWriterIsRefused) {
    start();
    announce(remote(2));
    send_data(2, entity::publications_writer, 1, encode(publication(2, 0x107)));
    EXPECT_TRUE(recorder.endpoints.empty());
    EXPECT_EQ(recorder.warnings.size(), 1u);
}

TEST_F(ParticipantTest, EntitiesOfOtherKindsAreToldOfAndNeverMatched) {
    SilentReader sink;
    start();
    EndpointData reader = publication(1, 0x107);
    ASSERT_TRUE(participant->add_reader(reader, {}, recorder.sink_of(reader.guid), now()));
    announce(remote(2));
    SequenceNumber number = 0;
    for (const uint32_t kind : {0x01u, 0x0bu, 0x0cu, 0x0du, 0x0eu, 0x3cu, 0x3du}) {
        const EndpointData data = publication(2, 0x900 | kind);
        send_data(2, entity::publications_writer, ++number, encode(data));
        ASSERT_EQ(recorder.endpoints.count(data.guid), 1u);
        EXPECT_TRUE(recorder.endpoints.at(data.guid)->is_writer);
    }
    const EndpointData data = publication(2, 0x901);
    send_data(2, entity::subscriptions_writer, 1, encode(data)); // the same as a reader
    EXPECT_TRUE(recorder.endpoints.at(data.guid)->is_writer);
    EXPECT_TRUE(recorder.matches.empty());
    EXPECT_TRUE(recorder.contradictions.empty());
    receive(
        2, [&](MessageWriter& writer) { add_end(writer, entity::publications_writer, ++number, data.guid); });
    EXPECT_EQ(recorder.endpoints.size(), 6u);
}

TEST_F(ParticipantTest, AddressesThatCannotBeReachedAreShownAndNotUsed) {
    start();
    ParticipantData data = remote(2);
    data.metatraffic_unicast = {udpv4(7, 0), udpv4(8, 65536), udpv4(2)};
    announce(data);
    EXPECT_EQ(recorder.participants.at(prefix(2)).metatraffic_unicast, data.metatraffic_unicast);
    EXPECT_EQ(destinations(), (std::set<Locator>{udpv4(2)}));
    output.messages.clear();
    SilentReader sink;
    ASSERT_TRUE(participant->add_reader(publication(1, 0x107), {}, sink, now()));
    output.messages.clear();
    EndpointData writer = publication(2);
    writer.unicast = {udpv4(7, 0), udpv4(8, 65536), udpv4(2, 5555)};
    send_data(2, entity::publications_writer, 1, encode(writer));
    EXPECT_EQ(*recorder.endpoints.at(writer.guid)->unicast, writer.unicast);
    EXPECT_EQ(destinations(), (std::set<Locator>{udpv4(2, 5555)}));
}

TEST_F(ParticipantTest, AnIgnoredParticipantIsGoneForGood) {
    start();
    announce(remote(2));
    send_data(2, entity::publications_writer, 1, encode(publication(2)));
    participant->ignore_participant(prefix(2), now());
    ASSERT_EQ(recorder.gone.size(), 1u);
    EXPECT_EQ(recorder.gone[0].second, GoneReason::ignored);
    output.messages.clear();
    announce(remote(2));
    EXPECT_TRUE(recorder.participants.empty());
    EXPECT_TRUE(output.messages.empty());
}

TEST_F(ParticipantTest, MessagesForOthersAreNotTaken) {
    start();
    receive(2, [&](MessageWriter& writer) {
        const ByteBuffer payload = encode(remote(2));
        Data data;
        data.writer = entity::participant_writer;
        data.sequence_number = 1;
        data.has_payload = true;
        data.payload = payload;
        writer.add_info_destination(prefix(9));
        writer.add_data(data);
    });
    EXPECT_TRUE(recorder.participants.empty());
}

TEST_F(ParticipantTest, AChangedAnnouncementIsAnEventAndARepeatedOneIsNot) {
    start();
    ParticipantData data = remote(2);
    announce(data);
    data.manual_liveliness_count = 5;
    announce(data);
    data.name = "new name";
    announce(data);
    EXPECT_EQ(recorder.participants.at(prefix(2)).name, "new name");
    EXPECT_TRUE(recorder.gone.empty());
}

TEST_F(ParticipantTest, NewOwnAddressesAreAnnouncedAtOnce) {
    start();
    OwnLocators locators;
    locators.metatraffic_unicast = {udpv4(50)};
    participant->set_locators(locators, now());
    ASSERT_EQ(output.messages.size(), 1u);
    EXPECT_EQ(output.messages[0].destination, SimulatedNetwork::group());
    EXPECT_EQ(participant->announced().metatraffic_unicast, (LocatorList{udpv4(50)}));
}

TEST_F(ParticipantTest, AFarewellDisposesEverything) {
    config.initial_announcements = 1;
    start();
    announce(remote(2));
    acknowledge(2, 1);
    SilentReader sink;
    EndpointData data = publication(1, 0x107);
    ASSERT_TRUE(participant->add_reader(data, {}, sink, now()));
    EXPECT_FALSE(participant->add_reader(data, {}, sink, now())); // in use
    output.messages.clear();
    participant->stop(now());
    const Lines lines = sent_to(udpv4(2));
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "DATA 2 key"), 1); // the subscription
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& l) { return l.find(" key") != l.npos; }),
              2); // and the participant
    EXPECT_EQ(sent_to(SimulatedNetwork::group()).size(), 1u);
    ASSERT_EQ(recorder.gone.size(), 1u);
    EXPECT_EQ(recorder.gone[0].second, GoneReason::stopped);
    EXPECT_EQ(participant->next_deadline(), kNever);
    output.messages.clear();
    announce(remote(3));
    EXPECT_TRUE(recorder.participants.empty());
    EXPECT_TRUE(output.messages.empty());
}

// A writer that knows our reader already may write before its announcement is taken here: it comes through
// another socket.
TEST_F(ParticipantTest, WhatAWriterSentJustBeforeItsAnnouncementIsHeard) {
    struct Sink : ReaderSink {
        std::vector<SequenceNumber> numbers;
        void on_sample(const Sample& sample) override { numbers.push_back(sample.sequence_number); }
    };
    for (const Reliability reliability : {Reliability::best_effort, Reliability::reliable}) {
        Sink sink;
        start();
        EndpointData reader = publication(1, 0x107);
        reader.qos.reliability = reliability;
        ASSERT_TRUE(participant->add_reader(reader, {}, sink, now()));
        announce(remote(2));
        const ByteBuffer payload{0, 1, 0, 0, 1, 2, 3, 4};
        time += seconds(5);
        send_data(2, EntityId{0x102}, 1, payload); // too early: forgotten by the time of the announcement
        time += milliseconds(3000);
        send_data(2, EntityId{0x102}, 2, payload);
        send_data(2, EntityId{0x102}, 3, payload);
        EXPECT_TRUE(sink.numbers.empty());
        send_data(2, entity::publications_writer, 1, encode(publication(2)));
        receive(2, [](MessageWriter& writer) {
            writer.add_heartbeat(heartbeat_of(entity::publications_writer, 1, 1, 1));
        });
        receive(2,
                [](MessageWriter& writer) { writer.add_heartbeat(heartbeat_of(EntityId{0x102}, 1, 3, 1)); });
        EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{2, 3}));
        send_data(2, EntityId{0x102}, 4, payload);
        EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{2, 3, 4}));
        participant->stop(now());
    }
}

// A writer begins to count for a reader when it matches it, which may be before its announcement is taken
// here. What it writes from then on is new, though a heartbeat may name it before it comes.
TEST_F(ParticipantTest, WhatAWriterToldAReaderJustBeforeItsAnnouncementIsHeard) {
    struct Sink : ReaderSink {
        std::vector<SequenceNumber> numbers;
        void on_sample(const Sample& sample) override { numbers.push_back(sample.sequence_number); }
    };
    const auto say_what_is_there = [this](EntityId reader, SequenceNumber last, Count count) {
        receive(
            2,
            [&](MessageWriter& writer) {
                Heartbeat heartbeat;
                heartbeat.reader = reader;
                heartbeat.writer = EntityId{0x102};
                heartbeat.last = last;
                heartbeat.count = count;
                writer.add_heartbeat(heartbeat);
            },
            true);
    };
    const ByteBuffer payload{0, 1, 0, 0, 1, 2, 3, 4};
    for (const EntityId told : {EntityId{0x107}, entity::unknown}) {
        Sink sink;
        start();
        ASSERT_TRUE(participant->add_reader(publication(1, 0x107), {}, sink, now()));
        announce(remote(2));
        say_what_is_there(told, 0, 1);
        send_data(2, entity::publications_writer, 1, encode(publication(2)));
        output.messages.clear();
        say_what_is_there(EntityId{0x107}, 2, 2);
        run_until(time + milliseconds(50));
        const bool is_for_reader = told != entity::unknown; // else it may be for others
        EXPECT_EQ(sent_to(udpv4(2, 7411)).back(), is_for_reader ? "ACKNACK 1 {1 2}" : "ACKNACK 3 {} final");
        time += seconds(1); // what comes right behind a first heartbeat is taken anyway
        send_data(2, EntityId{0x102}, 1, payload);
        send_data(2, EntityId{0x102}, 2, payload);
        EXPECT_EQ(sink.numbers,
                  is_for_reader ? (std::vector<SequenceNumber>{1, 2}) : std::vector<SequenceNumber>{});
        participant->stop(now());
    }
}

TEST_F(ParticipantTest, SamplesTellTheSerializerOfTheParticipant) {
    struct Sink : ReaderSink {
        std::vector<uint8_t> fast_cdrs;
        void on_sample(const Sample& sample) override { fast_cdrs.push_back(sample.fast_cdr); }
    } sink;
    start();
    EndpointData reader = publication(1, 0x107);
    reader.qos.reliability = Reliability::best_effort;
    ASSERT_TRUE(participant->add_reader(reader, {}, sink, now()));
    ParticipantData data = remote(2);
    data.vendor = kFastDds;
    announce(data);
    data = remote(3);
    data.vendor = kFastDds;
    data.raw = {{0x8000, {3, 1, 2, 0}}};
    announce(data);
    announce(remote(4));
    for (const uint8_t id : {uint8_t{2}, uint8_t{3}, uint8_t{4}}) {
        send_data(id, entity::publications_writer, 1, encode(publication(id)));
        send_data(id, EntityId{0x102}, 1, {0, 1, 0, 0});
    }
    EXPECT_EQ(sink.fast_cdrs, (std::vector<uint8_t>{1, 2, 0}));
    participant->stop(now());
}

TEST_F(ParticipantTest, AnEndpointWithoutAddressesUsesThoseOfItsParticipant) {
    start();
    announce(remote(2));
    SilentReader sink;
    EndpointData reader = publication(1, 0x107);
    ASSERT_TRUE(participant->add_reader(reader, {}, sink, now()));
    output.messages.clear();
    send_data(2, entity::publications_writer, 1, encode(publication(2)));
    EXPECT_EQ(sent_to(udpv4(2, 7411)), (Lines{"ACKNACK 1 {}"}));
    EndpointData other = publication(2, 0x202);
    other.unicast = {udpv4(2, 5555)};
    output.messages.clear();
    send_data(2, entity::publications_writer, 2, encode(other));
    EXPECT_EQ(sent_to(udpv4(2, 5555)), (Lines{"ACKNACK 1 {}"}));
}

TEST_F(ParticipantTest, QosDecidesAboutMatchesAndChangesOfIt) {
    class Told final : public ReaderSink {
      public:
        Lines lines;
        void on_sample(const Sample&) override {}
        void matched(const RemoteEndpoint&) override { lines.emplace_back("matched"); }
        void unmatched(const Guid&) override { lines.emplace_back("unmatched"); }
        void match_changed(const RemoteEndpoint& remote) override {
            lines.push_back("strength " + std::to_string(remote.qos->ownership_strength));
        }
        void incompatible(const RemoteEndpoint&, const std::vector<uint32_t>& policies) override {
            lines.push_back("incompatible " + std::to_string(policies.at(0)));
        }
    };
    Told told;
    start();
    announce(remote(2));
    EndpointData reader = publication(1, 0x107);
    ASSERT_TRUE(participant->add_reader(reader, {}, told, now()));
    EndpointData writer = publication(2);
    writer.qos.reliability = Reliability::best_effort;
    send_data(2, entity::publications_writer, 1, encode(writer));
    EXPECT_EQ(told.lines, (Lines{"incompatible 11"}));
    writer.name = "renamed";
    send_data(2, entity::publications_writer, 2, encode(writer));
    EXPECT_EQ(told.lines, (Lines{"incompatible 11"})); // told once
    writer.qos.reliability = Reliability::reliable;
    send_data(2, entity::publications_writer, 3, encode(writer));
    EXPECT_EQ(told.lines, (Lines{"incompatible 11", "matched"}));
    announce(remote(2)); // no news of the writer
    writer.qos.ownership_strength = 7;
    send_data(2, entity::publications_writer, 4, encode(writer));
    EXPECT_EQ(told.lines, (Lines{"incompatible 11", "matched", "strength 7"}));
    told.lines.pop_back();
    reader.qos.partitions = {"elsewhere"};
    ASSERT_TRUE(participant->update_endpoint(reader, now()));
    EXPECT_EQ(told.lines, (Lines{"incompatible 11", "matched", "unmatched", "incompatible 10"}));
    EndpointData keyless = publication(2, 0x303); // a writer without key never fits a reader with one
    send_data(2, entity::publications_writer, 5, encode(keyless));
    EXPECT_EQ(told.lines.size(), 4u);
}

TEST_F(ParticipantTest, AReaderMatchesNoWriterWhoseTypeItRefuses) {
    class Doorkeeper final : public ReaderSink {
      public:
        bool answer = false;
        Lines lines;
        int samples = 0;
        bool accepts_type(const RemoteEndpoint&) override { return answer; }
        void matched(const RemoteEndpoint&) override { lines.emplace_back("matched"); }
        void unmatched(const Guid&) override { lines.emplace_back("unmatched"); }
        void on_sample(const Sample&) override { ++samples; }
    };
    Doorkeeper sink;
    start();
    announce(remote(2));
    EndpointData reader = publication(1, 0x107);
    reader.qos.reliability = Reliability::best_effort;
    ASSERT_TRUE(participant->add_reader(reader, {}, sink, now()));
    EndpointData writer = publication(2);
    const ByteBuffer sample{0, 1, 0, 0, 1, 2, 3, 4};
    send_data(2, entity::publications_writer, 1, encode(writer));
    send_data(2, writer.guid.entity, 1, sample);
    EXPECT_EQ(sink.lines, Lines{});
    EXPECT_EQ(sink.samples, 0);
    sink.answer = true;
    writer.name = "of another type";
    send_data(2, entity::publications_writer, 2, encode(writer));
    EXPECT_EQ(sink.lines, (Lines{"matched"}));
    send_data(2, writer.guid.entity, 2, sample);
    EXPECT_EQ(sink.samples, 1);
    sink.answer = false;
    writer.name = "of a third one";
    send_data(2, entity::publications_writer, 3, encode(writer));
    EXPECT_EQ(sink.lines, (Lines{"matched", "unmatched"}));
    send_data(2, writer.guid.entity, 3, sample);
    EXPECT_EQ(sink.samples, 1);
}

TEST_F(ParticipantTest, ALostLivelinessIsToldToTheReadersOfTheWriter) {
    class Told final : public ReaderSink {
      public:
        Lines lines;
        void on_sample(const Sample&) override {}
        void liveliness_changed(const Guid& remote, bool alive) override {
            lines.push_back(std::to_string(remote.entity.value) + (alive ? " alive" : " lost"));
        }
    };
    Told matched;
    Told of_other_topic;
    start();
    announce(remote(2));
    EndpointData reader = publication(1, 0x107);
    ASSERT_TRUE(participant->add_reader(reader, {}, matched, now()));
    reader = publication(1, 0x207);
    reader.topic_name = "Circle";
    ASSERT_TRUE(participant->add_reader(reader, {}, of_other_topic, now()));
    EndpointData writer = publication(2);
    writer.qos.liveliness_lease = {1, 0};
    send_data(2, entity::publications_writer, 1, encode(writer));
    run_until(time + milliseconds(1100));
    EXPECT_EQ(matched.lines, (Lines{"258 lost"}));
    send_data(2, writer.guid.entity, 1, ByteBuffer{0, 1, 0, 0, 1, 2, 3, 4});
    EXPECT_EQ(matched.lines, (Lines{"258 lost", "258 alive"}));
    EXPECT_EQ(of_other_topic.lines, Lines{});
}

TEST_F(ParticipantTest, EndpointsThatOnlyDifferInTheirKeyAreToldOf) {
    SilentReader sink;
    start();
    announce(remote(2));
    EndpointData reader = publication(1, 0x107);
    ASSERT_TRUE(participant->add_reader(reader, {}, sink, now()));
    EndpointData writer = publication(2, 0x103);
    writer.topic_name = "Other";
    send_data(2, entity::publications_writer, 1, encode(writer));
    EXPECT_EQ(recorder.warnings.size(), 0u);
    writer.topic_name = reader.topic_name;
    send_data(2, entity::publications_writer, 2, encode(writer));
    writer.qos.ownership_strength = 5;
    send_data(2, entity::publications_writer, 3, encode(writer)); // told already
    ASSERT_EQ(recorder.warnings.size(), 1u);
    for (const std::string& part :
         {to_string(reader.guid) + " has a key", to_string(writer.guid) + " has none",
          std::string("topic \"Square\", type \"Shape\"")})
        EXPECT_NE(recorder.warnings[0].find(part), std::string::npos) << recorder.warnings[0];
    send_data(2, entity::publications_writer, 4, encode(publication(2)));
    EXPECT_EQ(recorder.warnings.size(), 1u);
}

TEST_F(ParticipantTest, JunkIsHarmlessAndCalledWhatItIs) {
    start();
    const ByteBuffer junk{1, 2, 3};
    EXPECT_EQ(participant->receive(junk, udpv4(2), now()), ReadStatus::not_rtps);
    MessageWriter writer(prefix(2), 1000);
    writer.add_heartbeat(Heartbeat{});
    ByteBuffer cut(writer.view().begin(), writer.view().end());
    cut.resize(cut.size() - 4);
    EXPECT_EQ(participant->receive(cut, udpv4(2), now()), ReadStatus::malformed);
}

TEST_F(ParticipantTest, SecuredParticipantsAreReportedAndTheirMessagesCounted) {
    start();
    announce(remote(2));
    MessageWriter writer(prefix(2), 1000);
    writer.add_heartbeat(Heartbeat{});
    ByteBuffer bytes(writer.view().begin(), writer.view().end());
    bytes[kHeaderSize] = 0x31; // the kind of a secured submessage
    participant->receive(bytes, udpv4(2), now());
    participant->receive(bytes, udpv4(2), now());
    EXPECT_EQ(participant->secured_submessages(), 2u);
    EXPECT_EQ(recorder.warnings.size(), 1u);
}

TEST_F(ParticipantTest, ABuiltinPeerIsMatchedByItsBit) {
    SilentReader sink;
    start();
    announce(remote(2));
    ParticipantData with_lookup = remote(3);
    with_lookup.builtin_endpoints |= kTypeLookupReplyWriter;
    announce(with_lookup);
    EndpointData data;
    data.guid = {prefix(1), entity::type_lookup_reply_reader};
    data.qos.reliability = Reliability::reliable;
    ReaderConfig reader;
    reader.builtin_peer = BuiltinPeer{entity::type_lookup_reply_writer, kTypeLookupReplyWriter};
    output.messages.clear();
    ASSERT_TRUE(participant->add_reader(data, reader, sink, now()));
    EXPECT_EQ(sent_to(udpv4(3)), (Lines{"ACKNACK 1 {}"})); // nothing about it is announced
    EXPECT_EQ(destinations().size(), 1u);
}

/// Notes samples and the ends of batches: "sample sample end".
struct BatchSink : ReaderSink {
    void on_sample(const Sample&) override { told += "sample "; }
    void on_batch_end() override { told += "end "; }
    std::string taken() { return std::exchange(told, {}); }
    std::string told;
};

TEST_F(ParticipantTest, ReadersAreToldTheEndOfEachBatchOnce) {
    start();
    BatchSink sink;
    BatchSink idle;
    EndpointData reader = publication(1, 0x107);
    reader.qos.reliability = Reliability::best_effort;
    ASSERT_TRUE(participant->add_reader(reader, {}, sink, now()));
    reader.guid.entity = EntityId{0x207};
    reader.topic_name = "another";
    ASSERT_TRUE(participant->add_reader(reader, {}, idle, now()));
    announce(remote(2));
    send_data(2, entity::publications_writer, 1, encode(publication(2)));
    sink.taken();
    const EntityId writer = publication(2).guid.entity;
    const ByteBuffer payload{0, 1, 0, 0, 1, 2, 3, 4};
    send_data(2, writer, 1, payload);
    EXPECT_EQ(sink.taken(), "sample end ") << "every datagram is a batch";

    participant->begin_batch();
    send_data(2, writer, 2, payload);
    send_data(2, writer, 3, payload);
    EXPECT_EQ(sink.taken(), "sample sample ");
    participant->end_batch(now());
    EXPECT_EQ(sink.taken(), "end ");
    participant->begin_batch();
    participant->end_batch(now());
    EXPECT_EQ(sink.taken(), "");
    EXPECT_EQ(idle.taken(), "");

    participant->begin_batch();
    send_data(2, writer, 4, payload);
    participant->remove_endpoint(EntityId{0x107}, now());
    EXPECT_EQ(sink.taken(), "sample end ");
    participant->end_batch(now());
    EXPECT_EQ(sink.taken(), "");
}

TEST_F(ParticipantTest, TellsWhenItDidNotRunForLongerThanItsLease) {
    start();
    announce(remote(2));
    run_until(time + seconds(10));
    time += seconds(4); // the last announcement was at most 2 s before
    participant->on_timer(now());
    EXPECT_EQ(recorder.errors, std::vector<std::string>());
    run_until(time + seconds(10));
    time += seconds(16);
    announce(remote(2)); // what waited in the sockets is read first
    participant->on_timer(now());
    ASSERT_EQ(recorder.errors.size(), 1u);
    EXPECT_NE(recorder.errors[0].find("did not run for more than 1"), std::string::npos)
        << recorder.errors[0];
    run_until(time + seconds(30));
    EXPECT_EQ(recorder.errors.size(), 1u);
}

TEST_F(ParticipantTest, TellsWhenItsLeaseRanOutHoweverShortlyBeforeItAnnouncedItself) {
    start();
    run_until(time + seconds(10));
    for (int stop = 0; stop < 20; ++stop) { // at 20 times between two announcements
        recorder.errors.clear();
        time += milliseconds(6600);
        participant->on_timer(now());
        EXPECT_EQ(recorder.errors.size(), 1u) << stop;
        run_until(time + seconds(10) + stop * milliseconds(100));
        EXPECT_LE(recorder.errors.size(), 1u) << stop;
    }
}

TEST_F(ParticipantTest, TellsOfWhatOthersCauseForItsWholeLifeButOfFew) {
    start();
    run_until(time + seconds(1));
    uint8_t id = 1;
    const auto errors_of_strangers = [&](int count) {
        recorder.errors.clear();
        while (count-- > 0) {
            ParticipantData data = remote(++id);
            data.metatraffic_unicast.clear(); // "seen but not reachable"
            announce(data);
        }
        return recorder.errors.size();
    };
    EXPECT_EQ(errors_of_strangers(30), 21u);
    run_until(time + seconds(30));
    EXPECT_EQ(errors_of_strangers(5), 0u);
    run_until(time + seconds(300));
    EXPECT_THAT(errors_of_strangers(30), ::testing::AllOf(::testing::Ge(5u), ::testing::Le(6u)));
    run_until(time + seconds(3600));
    EXPECT_EQ(errors_of_strangers(30), 21u);
}

} // namespace
} // namespace meridian::rtps::test
