#include "discovery/discovery_store.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "discovery/conversions.h"
#include "platform/clock.h"
#include "samples.h"

namespace meridian::discovery {
namespace {

using rtps::GoneReason;
constexpr rtps::WireTime kSomeTime{1000, 0x80000000};

/// "+Topic1" new, "~Topic1" changed, "-" gone; of one cache, in order.
template <typename Data>
std::vector<std::string> told(EndpointCache<Data>& cache) {
    std::vector<std::string> result;
    for (const auto& change : cache.take(1000, {}, false)) {
        if (change.info.valid_data)
            result.push_back((change.info.view_state == DDS_NEW_VIEW_STATE ? "+" : "~") +
                             std::string(change.data->topic_name));
        else
            result.emplace_back("-");
    }
    return result;
}
using Told = std::vector<std::string>;

TEST(DiscoveryStore, WritersAndReadersGoToTheirTopics) {
    DiscoveryStore store(0, {"*"});
    store.participant_discovered(test::make_participant(1));
    store.endpoint_discovered(test::make_writer(1, 1), kSomeTime);
    store.endpoint_discovered(test::make_reader(1, 2), kSomeTime);
    store.endpoint_changed(test::make_writer(1, 1), kSomeTime);
    store.endpoint_gone(test::make_reader(1, 2), GoneReason::disposed, kSomeTime);
    EXPECT_EQ(told(store.publications()), (Told{"+Topic1", "~Topic1"}));
    EXPECT_EQ(told(store.subscriptions()), (Told{"+Topic2", "-"}));
}

TEST(DiscoveryStore, TimeIsThatOfTheAnnouncementOrElseOfReception) {
    DiscoveryStore store(0, {});
    store.participant_discovered(test::make_participant(1));
    const DDS_Time_t before = wall_time();
    store.endpoint_discovered(test::make_writer(1, 1), kSomeTime);
    store.endpoint_discovered(test::make_writer(1, 2), rtps::kTimeInvalid);
    const auto changes = store.publications().take(10, {}, false);
    ASSERT_EQ(changes.size(), 2u);
    EXPECT_EQ(changes[0].info.source_timestamp.sec, 1000);
    EXPECT_EQ(changes[0].info.source_timestamp.nanosec, 500000000u);
    EXPECT_GE(changes[1].info.source_timestamp.sec, before.sec);
    EXPECT_LE(changes[1].info.source_timestamp.sec, before.sec + 10);
}

TEST(DiscoveryStore, HandlesAreGuids) {
    DiscoveryStore store(0, {});
    store.participant_discovered(test::make_participant(1));
    const rtps::EndpointData writer = test::make_writer(1, 1);
    const rtps::EndpointData reader = test::make_reader(1, 1);
    store.endpoint_discovered(writer, kSomeTime);
    store.endpoint_discovered(reader, kSomeTime);
    const auto publication = store.publications().take(1, {}, false);
    const auto subscription = store.subscriptions().take(1, {}, false);
    EXPECT_EQ(publication[0].info.instance_handle, to_handle(writer.guid));
    EXPECT_EQ(publication[0].info.publication_handle,
              to_handle({writer.guid.prefix, rtps::entity::publications_writer}));
    EXPECT_EQ(subscription[0].info.publication_handle,
              to_handle({reader.guid.prefix, rtps::entity::subscriptions_writer}));
}

TEST(DiscoveryStore, AParticipantStaysKnownWhileItsEndpointsAreHeld) {
    DiscoveryStore store(5, {});
    const auto prefix = test::make_prefix(1);
    EXPECT_EQ(store.find_participant(prefix), nullptr);
    store.participant_discovered(test::make_participant(1));
    store.endpoint_discovered(test::make_writer(1, 1), kSomeTime);
    ASSERT_NE(store.find_participant(prefix), nullptr);
    EXPECT_EQ(store.find_participant(prefix)->domain_id, 5u);
    EXPECT_STREQ(store.find_participant(prefix)->participant_name.name, "participant 1");

    store.endpoint_gone(test::make_writer(1, 1), GoneReason::lease_expired, rtps::kTimeInvalid);
    store.participant_gone(test::make_participant(1), GoneReason::lease_expired);
    EXPECT_NE(store.find_participant(prefix), nullptr);
    EXPECT_EQ(told(store.publications()), (Told{"+Topic1", "-"}));
    EXPECT_NE(store.publications().participant_of(test::make_writer(1, 1).guid), nullptr);
    EXPECT_NE(store.find_participant(prefix), nullptr);
    told(store.publications());
    EXPECT_EQ(store.find_participant(prefix), nullptr);
}

TEST(DiscoveryStore, AnAnnouncementWithAnotherContentReplaces) {
    DiscoveryStore store(0, {});
    rtps::ParticipantData data = test::make_participant(1);
    store.participant_discovered(data);
    data.name = "renamed";
    store.participant_changed(data);
    EXPECT_STREQ(store.find_participant(test::make_prefix(1))->participant_name.name, "renamed");
}

TEST(DiscoveryStore, EndpointsOfOtherPartitionsAreHeldBack) {
    DiscoveryStore store(0, {"A"});
    store.participant_discovered(test::make_participant(1, "B"));
    store.participant_discovered(test::make_participant(2, "A,C"));
    store.participant_discovered(test::make_participant(3));
    for (uint8_t participant = 1; participant <= 3; ++participant)
        store.endpoint_discovered(test::make_writer(participant, participant), kSomeTime);
    EXPECT_EQ(told(store.publications()), Told{"+Topic2"});
    EXPECT_NE(store.find_participant(test::make_prefix(1)), nullptr);
    store.endpoint_gone(test::make_writer(1, 1), GoneReason::disposed, kSomeTime);
    EXPECT_EQ(told(store.publications()), Told{});
}

TEST(DiscoveryStore, EverybodyWithoutPartitionsIsSeenByTheStar) {
    DiscoveryStore store(0, {"*"});
    store.participant_discovered(test::make_participant(1));
    store.participant_discovered(test::make_participant(2, "A"));
    store.participant_discovered(test::make_participant(3, "*"));
    for (uint8_t participant = 1; participant <= 3; ++participant)
        store.endpoint_discovered(test::make_writer(participant, participant), kSomeTime);
    EXPECT_EQ(told(store.publications()), (Told{"+Topic1", "+Topic2", "+Topic3"}));
}

TEST(DiscoveryStore, ARemoteThatMovesIntoAnotherPartitionComesAndGoes) {
    DiscoveryStore store(0, {"A"});
    store.participant_discovered(test::make_participant(1, "B"));
    store.endpoint_discovered(test::make_writer(1, 1), kSomeTime);
    store.endpoint_discovered(test::make_reader(1, 2), kSomeTime);
    EXPECT_EQ(told(store.publications()), Told{});
    store.participant_changed(test::make_participant(1, "A"));
    EXPECT_EQ(told(store.publications()), Told{"+Topic1"});
    EXPECT_EQ(told(store.subscriptions()), Told{"+Topic2"});
    store.participant_changed(test::make_participant(1, "A,X"));
    EXPECT_EQ(told(store.publications()), Told{});
    store.participant_changed(test::make_participant(1, "B"));
    EXPECT_EQ(told(store.publications()), Told{"-"});
    EXPECT_EQ(told(store.subscriptions()), Told{"-"});
}

TEST(DiscoveryStore, OwnPartitionsCanChange) {
    DiscoveryStore store(0, {"A"});
    store.participant_discovered(test::make_participant(1, "B"));
    store.participant_discovered(test::make_participant(2, "A"));
    store.endpoint_discovered(test::make_writer(1, 1), kSomeTime);
    store.endpoint_discovered(test::make_writer(2, 2), kSomeTime);
    EXPECT_EQ(told(store.publications()), Told{"+Topic2"});
    const auto admitted = [&store] {
        return std::make_pair(store.admits(test::make_participant(1).guid.prefix),
                              store.admits(test::make_participant(2).guid.prefix));
    };
    EXPECT_EQ(admitted(), std::make_pair(false, true));
    store.set_own_partitions({"B"});
    EXPECT_EQ(admitted(), std::make_pair(true, false));
    const Told changed = told(store.publications());
    EXPECT_EQ(changed.size(), 2u);
    EXPECT_EQ(std::count(changed.begin(), changed.end(), "+Topic1"), 1);
    EXPECT_EQ(std::count(changed.begin(), changed.end(), "-"), 1);
}

TEST(DiscoveryStore, AnEndpointOfAnUnknownParticipantIsTold) {
    DiscoveryStore store(0, {});
    store.endpoint_discovered(test::make_writer(1, 1), kSomeTime);
    EXPECT_EQ(told(store.publications()), Told{"+Topic1"});
    EXPECT_NE(store.publications().participant_of(test::make_writer(1, 1).guid), nullptr);
    store.endpoint_gone(test::make_writer(9, 1), GoneReason::disposed, kSomeTime);
    EXPECT_EQ(told(store.publications()), Told{});
}

TEST(DiscoveryStore, AParticipantThatGoesTakesItsEndpointsAlong) {
    DiscoveryStore store(0, {});
    store.participant_discovered(test::make_participant(1));
    store.endpoint_discovered(test::make_writer(1, 1), kSomeTime);
    store.participant_gone(test::make_participant(1), GoneReason::disposed);
    EXPECT_EQ(told(store.publications()), (Told{"+Topic1", "-"}));
    store.participant_gone(test::make_participant(1), GoneReason::disposed);
    EXPECT_EQ(told(store.publications()), Told{});
}

/// Types of publications that are told when the test says so.
class SlowTypes final : public types::PublicationTypes {
  public:
    std::optional<types::TypeRef> type_of(const rtps::EndpointData&, bool) override { return answer; }
    void participant_gone(const rtps::GuidPrefix&) override {}

    std::optional<types::TypeRef> answer;
};

/// A writer whose type is being looked up; told() has nothing of it yet.
class WaitingPublication : public ::testing::Test {
  protected:
    WaitingPublication() {
        types::TypeGraph* graph = types::TypeGraph::create();
        type = types::TypeRef::adopt(graph->primitive(DDS_TK_LONG));
        writer.type_information = {1};
        store.set_types(&lookup);
        store.participant_discovered(test::make_participant(1, "A"));
        store.endpoint_discovered(writer, kSomeTime);
    }

    /// As told(), with a "?" behind what has no type.
    Told told_with_types() {
        Told result;
        for (const auto& change : store.publications().take(1000, {}, false)) {
            if (change.info.valid_data)
                result.push_back((change.info.view_state == DDS_NEW_VIEW_STATE ? "+" : "~") +
                                 std::string(change.data->topic_name) +
                                 (change.data->type_code == type.get() ? "" : "?"));
            else
                result.emplace_back("-");
        }
        return result;
    }
    /// Whether readers still have to wait for it.
    bool waits() const {
        const DDS_TypeCode* found = nullptr;
        return !store.find_type(writer.guid, found);
    }

    types::TypeRef type;
    SlowTypes lookup;
    DiscoveryStore store{0, {"A"}};
    rtps::EndpointData writer = test::make_writer(1, 1);
};

TEST_F(WaitingPublication, AnnouncementsAreReportedInOrderOnceTheTypeIsKnown) {
    store.endpoint_changed(writer, kSomeTime);
    EXPECT_EQ(told_with_types(), Told{});
    EXPECT_TRUE(waits());
    store.type_resolved(writer.guid, type);
    EXPECT_EQ(told_with_types(), (Told{"+Topic1", "~Topic1"}));
    EXPECT_FALSE(waits());
    store.type_resolved(writer.guid, type);
    EXPECT_EQ(told_with_types(), Told{});
}

TEST_F(WaitingPublication, ItsEndIsReportedOnceTheTypeIsKnown) {
    store.endpoint_gone(writer, GoneReason::disposed, kSomeTime);
    EXPECT_EQ(told_with_types(), Told{});
    EXPECT_FALSE(waits()) << "nobody matches what is gone";
    store.type_resolved(writer.guid, type);
    EXPECT_EQ(told_with_types(), (Told{"+Topic1", "-"}));
}

TEST_F(WaitingPublication, ItMayComeBackBefore) {
    store.endpoint_gone(writer, GoneReason::disposed, kSomeTime);
    store.endpoint_discovered(writer, kSomeTime);
    EXPECT_TRUE(waits());
    store.type_resolved(writer.guid, type);
    EXPECT_EQ(told_with_types(), (Told{"+Topic1", "-", "+Topic1"}));
}

TEST_F(WaitingPublication, TheEndOfItsParticipantIsReportedOnceTheTypeIsKnown) {
    store.participant_gone(test::make_participant(1, "A"), GoneReason::disposed);
    EXPECT_EQ(told_with_types(), Told{});
    EXPECT_NE(store.find_participant(writer.participant), nullptr);
    // Another life of the same participant, in a partition of no interest.
    store.participant_discovered(test::make_participant(1, "B"));
    store.type_resolved(writer.guid, type);
    EXPECT_EQ(told_with_types(), (Told{"+Topic1", "-"}));
}

TEST_F(WaitingPublication, WithoutATypeAllIsReportedToo) {
    store.endpoint_changed(writer, kSomeTime);
    store.endpoint_gone(writer, GoneReason::disposed, kSomeTime);
    store.type_resolved(writer.guid, {});
    EXPECT_EQ(told_with_types(), (Told{"+Topic1?", "~Topic1?", "-"}));
}

TEST_F(WaitingPublication, AnotherTypeEndsTheWait) {
    writer.type_information = {2};
    store.endpoint_changed(writer, kSomeTime);
    EXPECT_EQ(told_with_types(), Told{"+Topic1?"});
    EXPECT_TRUE(waits());
    lookup.answer = type;
    writer.type_information = {3};
    store.endpoint_changed(writer, kSomeTime);
    EXPECT_EQ(told_with_types(), (Told{"~Topic1?", "~Topic1"}));
    EXPECT_FALSE(waits());
}

TEST_F(WaitingPublication, NobodyWaitsForTypesWhenTheOwnParticipantStops) {
    store.participant_gone(test::make_participant(1, "A"), GoneReason::stopped);
    EXPECT_EQ(told_with_types(), (Told{"+Topic1?", "-"}));
}

TEST_F(WaitingPublication, NothingIsReportedOfOtherPartitions) {
    store.participant_changed(test::make_participant(1, "B"));
    store.endpoint_changed(writer, kSomeTime);
    store.endpoint_gone(writer, GoneReason::disposed, kSomeTime);
    store.type_resolved(writer.guid, type);
    store.endpoint_discovered(writer, kSomeTime);
    store.participant_gone(test::make_participant(1, "B"), GoneReason::disposed);
    store.type_resolved(writer.guid, type);
    EXPECT_EQ(told_with_types(), Told{});
}

TEST_F(WaitingPublication, WhatIsHeldIsLimited) {
    for (int i = 0; i < 1000; ++i)
        store.endpoint_changed(writer, kSomeTime);
    store.endpoint_gone(writer, GoneReason::disposed, kSomeTime);
    store.type_resolved(writer.guid, type);
    const Told events = told_with_types();
    EXPECT_LE(events.size() + store.publications().lost(), 100u);
    EXPECT_EQ(events.back(), "-");
}

} // namespace
} // namespace meridian::discovery
