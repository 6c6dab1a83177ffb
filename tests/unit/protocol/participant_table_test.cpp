// The tables of participants and endpoints when they are full.

#include <gtest/gtest.h>

#include "protocol/participant_fixture.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class ParticipantTableTest : public ParticipantTest {
  protected:
    ParticipantTableTest() { config.max_remote_participants = 4; }
    ParticipantData immortal(uint8_t id) {
        ParticipantData data = remote(id);
        data.lease = kDurationInfinite;
        return data;
    }
    void hear(uint8_t id, bool directed = false) {
        receive(
            id, [](MessageWriter& writer) { writer.add_heartbeat(Heartbeat{}); }, directed);
    }
    std::vector<GuidPrefix> prefixes(const std::vector<uint8_t>& ids) {
        std::vector<GuidPrefix> result;
        for (const uint8_t id : ids)
            result.push_back(prefix(id));
        return result;
    }
};

TEST_F(ParticipantTableTest, ThoseNeverHeardAgainMakeRoomTheOldestFirst) {
    start();
    for (uint8_t id = 2; id <= 5; ++id)
        announce(immortal(id));
    hear(2, true);
    time += seconds(1);
    hear(4);
    EXPECT_TRUE(recorder.errors.empty());
    announce(immortal(6));
    EXPECT_EQ(known_participants(), prefixes({2, 4, 5, 6}));
    announce(immortal(7));
    announce(immortal(8));
    announce(immortal(9));
    EXPECT_EQ(known_participants(), prefixes({2, 4, 8, 9}));
    ASSERT_EQ(recorder.errors.size(), 1u);
    EXPECT_NE(recorder.errors[0].find("more than 4 participants"), std::string::npos);
    ASSERT_EQ(recorder.gone.size(), 4u);
    EXPECT_EQ(recorder.gone[0], std::make_pair(prefix(3), GoneReason::forgotten));
}

TEST_F(ParticipantTableTest, ThenThoseThatAreSilentForLong) {
    start();
    for (uint8_t id = 2; id <= 5; ++id) {
        announce(immortal(id));
        hear(id, true);
    }
    announce(immortal(6));
    EXPECT_EQ(known_participants(), prefixes({2, 3, 4, 5}));
    for (int second = 0; second < 11; ++second) {
        time += seconds(1);
        for (const uint8_t id : std::vector<uint8_t>{2, 4, 5})
            hear(id);
    }
    announce(immortal(6));
    EXPECT_EQ(known_participants(), prefixes({2, 4, 5, 6}));
}

TEST_F(ParticipantTableTest, AnAnnouncementCostsTheSameHoweverManyThereAre) {
    config.max_remote_participants = 10000;
    start();
    run_until(time + seconds(1));
    const auto announce_strangers = [&](uint32_t from, uint32_t count) {
        output.messages.clear();
        for (uint32_t i = from; i < from + count; ++i) {
            ParticipantData data = immortal(2);
            data.metatraffic_multicast.clear();
            for (size_t byte = 0; byte < 4; ++byte)
                data.guid.prefix.bytes[byte + 4] = static_cast<uint8_t>(i >> (8 * byte));
            participant->receive(first_announcement(data), udpv4(2, 50000), now());
            run_until(time + milliseconds(10));
        }
        return output.messages.size();
    };
    const size_t first = announce_strangers(1, 200);
    announce_strangers(1000, 2000);
    EXPECT_LT(announce_strangers(5000, 200), 2 * first);
}

TEST_F(ParticipantTableTest, OneWithManyEndpointsTakesNoPlaceOfOthers) {
    config.max_remote_endpoints = 100;
    config.max_endpoints_of_participant = 20;
    start();
    announce(remote(2));
    announce(remote(3));
    const auto announce_writers = [&](uint8_t id, uint32_t count) {
        for (uint32_t i = 1; i <= count; ++i)
            send_data(id, entity::publications_writer, i, encode(publication(id, i << 8 | 2)));
    };
    announce_writers(2, 50);
    EXPECT_EQ(recorder.endpoints.size(), 20u);
    ASSERT_EQ(recorder.errors.size(), 1u);
    EXPECT_NE(recorder.errors[0].find(to_string(prefix(2))), std::string::npos);
    announce_writers(3, 10);
    EXPECT_EQ(recorder.endpoints.size(), 30u);
}

TEST_F(ParticipantTableTest, HoweverManyAnnounceTooMuchANewOneGetsSomething) {
    config.max_remote_endpoints = 100;
    config.max_endpoints_of_participant = 80;
    start();
    for (uint8_t id = 2; id <= 5; ++id) {
        announce(remote(id));
        for (uint32_t i = 1; i <= 100; ++i)
            send_data(id, entity::publications_writer, i, encode(publication(id, i << 8 | 2)));
        const auto of_it = std::count_if(recorder.endpoints.begin(), recorder.endpoints.end(),
                                         [&](const auto& entry) { return entry.first.prefix == prefix(id); });
        EXPECT_GE(of_it, 100 >> id);
    }
    EXPECT_LT(recorder.endpoints.size(), 100u);
    EXPECT_EQ(recorder.errors.size(), 4u) << "each is told of";
}

TEST_F(ParticipantTableTest, WhatEndpointsKeepComesOutOfTheBudgetForAsLongAsTheyAreKept) {
    const MemoryBudget& budget = MemoryBudget::of_process();
    start();
    announce(remote(2));
    announce(remote(3));
    const size_t before = budget.used();
    EndpointData wide = publication(2);
    wide.qos.user_data.assign(50000, 1);
    send_data(2, entity::publications_writer, 1, encode(wide));
    EXPECT_GE(budget.used(), before + 50000);
    wide.name = "changed";
    send_data(2, entity::publications_writer, 2, encode(wide));
    EXPECT_LT(budget.used(), before + 60000);
    RemoteEndpointRef kept = recorder.endpoints.at(wide.guid);
    receive(2, [&](MessageWriter& writer) { add_end(writer, entity::publications_writer, 3, wide.guid); });
    EXPECT_TRUE(recorder.endpoints.empty());
    EXPECT_GE(budget.used(), before + 50000);
    kept = nullptr;
    EXPECT_EQ(budget.used(), before);

    SequenceNumber number = 3;
    for (uint32_t i = 1; recorder.errors.empty() && i < 5000; ++i) {
        wide.guid.entity = EntityId{i << 8 | 2};
        send_data(2, entity::publications_writer, ++number, encode(wide));
    }
    EXPECT_GT(budget.used(), budget.limit() / 3);
    EXPECT_LE(budget.used(), budget.limit() / 2 + 1000000);
    ASSERT_EQ(recorder.errors.size(), 1u);
    EXPECT_NE(recorder.errors[0].find(to_string(prefix(2))), std::string::npos);
    const size_t seen = recorder.endpoints.size();
    send_data(3, entity::publications_writer, 1, encode(publication(3)));
    EXPECT_EQ(recorder.endpoints.size(), seen + 1);
}

TEST_F(ParticipantTableTest, ATypeObjectIsKeptUntilItsTypeWasAskedFor) {
    const MemoryBudget& budget = MemoryBudget::of_process();
    start();
    announce(remote(2));
    const size_t before = budget.used();
    for (const bool is_writer : {true, false}) {
        EndpointData wide = publication(2, is_writer ? 0x102 : 0x107);
        wide.announced_as_writer = is_writer;
        wide.type_object.assign(50000, 1);
        send_data(2, is_writer ? entity::publications_writer : entity::subscriptions_writer, 1, encode(wide));
        ASSERT_EQ(recorder.endpoints.count(wide.guid), 1u);
        EXPECT_TRUE(recorder.endpoints.at(wide.guid)->type_object.empty());
    }
    EXPECT_LT(budget.used(), before + 10000);
}

TEST_F(ParticipantTableTest, AParticipantThatChangesAllTheTimeIsMatchedOnceASecond) {
    struct CountingSink : ReaderSink {
        bool accepts_type(const RemoteEndpoint&) override {
            ++asked;
            return true;
        }
        void on_sample(const Sample&) override {}
        int asked = 0;
    } sink;
    start();
    participant->add_reader(publication(1, 0x107), {}, sink, now());
    announce(remote(2));
    send_data(2, entity::publications_writer, 1, encode(publication(2)));
    const auto change = [&](uint8_t address) {
        ParticipantData data = remote(2);
        data.default_unicast = {udpv4(address, 7411)};
        announce(data);
    };
    const auto told = [&] { return recorder.participants.at(prefix(2)).default_unicast; };
    sink.asked = 0;
    change(3);
    EXPECT_EQ(sink.asked, 1);
    for (int i = 0; i < 100; ++i)
        change(static_cast<uint8_t>(4 + i % 2));
    EXPECT_EQ(sink.asked, 1);
    EXPECT_EQ(told(), (LocatorList{udpv4(3, 7411)}));
    change(6);
    run_until(time + seconds(1));
    EXPECT_EQ(sink.asked, 2);
    EXPECT_EQ(told(), (LocatorList{udpv4(6, 7411)}));
    output.messages.clear();
    receive(2, [](MessageWriter& writer) { writer.add_heartbeat(heartbeat_of(EntityId{0x102}, 1, 0, 1)); });
    run_until(time + milliseconds(10));
    EXPECT_EQ(destinations(), (std::set<Locator>{udpv4(6, 7411)})); // as it was announced last
}

TEST_F(ParticipantTableTest, AFurtherParticipantLeavesTheMemoryToTheFirst) {
    EndpointData of_topic = publication(2, 0x102);
    EndpointData other = publication(2, 0x202);
    other.topic_name = "other";
    for (const bool is_further : {false, true}) {
        recorder.participants.clear();
        recorder.endpoints.clear();
        recorder.errors.clear();
        config.is_further = is_further;
        start();
        announce(remote(2));
        MemoryShare taken(MemoryBudget::of_process());
        ASSERT_TRUE(taken.take(MemoryBudget::of_process().limit() / 4));
        EndpointData reader = of_topic;
        reader.guid = {prefix(1), EntityId{0x107}};
        ASSERT_TRUE(participant->add_reader(reader, ReaderConfig{}, recorder.sink_of(reader.guid), now()));
        announce(remote(3));
        EXPECT_EQ(recorder.participants.count(prefix(3)), is_further ? 0u : 1u);
        EXPECT_EQ(recorder.errors.size(), is_further ? 1u : 0u);
        send_data(2, entity::publications_writer, 1, encode(of_topic));
        send_data(2, entity::publications_writer, 2, encode(other));
        EXPECT_EQ(recorder.endpoints.count(of_topic.guid), 1u);
        EXPECT_EQ(recorder.endpoints.count(other.guid), is_further ? 0u : 1u);
        taken.give_back(taken.held());
        announce(remote(3));
        EXPECT_EQ(recorder.participants.count(prefix(3)), 1u);
    }
}

TEST_F(ParticipantTableTest, ParticipantsThatShareSocketsTellTheSameErrorOnce) {
    config.max_endpoints_of_participant = 1;
    config.told_errors = std::make_shared<ToldErrors>();
    for (int i = 0; i < 2; ++i) {
        start();
        announce(remote(2));
        for (uint32_t number = 1; number <= 2; ++number)
            send_data(2, entity::publications_writer, number, encode(publication(2, number << 8 | 2)));
    }
    EXPECT_EQ(recorder.errors.size(), 1u);
}

TEST_F(ParticipantTableTest, WideAnnouncementsOfStrangersMakeRoomForOthers) {
    config.max_remote_participants = 10000;
    start();
    for (uint32_t i = 0; i < 1500; ++i) {
        ParticipantData data = immortal(2);
        data.guid.prefix.bytes[4] = static_cast<uint8_t>(i >> 8);
        data.guid.prefix.bytes[5] = static_cast<uint8_t>(i);
        data.user_data.assign(60000, 1);
        participant->receive(first_announcement(data), udpv4(2, 50000), now());
    }
    EXPECT_LE(MemoryBudget::of_process().used(), MemoryBudget::of_process().limit() / 2 + 1000000);
    EXPECT_EQ(recorder.errors.size(), 1u);
    announce(remote(3));
    EXPECT_EQ(recorder.participants.count(prefix(3)), 1u);
    EndpointData wide = publication(3);
    wide.qos.user_data.assign(50000, 1);
    send_data(3, entity::publications_writer, 1, encode(wide));
    EXPECT_EQ(recorder.endpoints.count(wide.guid), 1u);
}

} // namespace
} // namespace meridian::rtps::test
