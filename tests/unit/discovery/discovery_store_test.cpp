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
std::vector<std::string> told(EndpointCache& cache) {
    std::vector<std::string> result;
    const auto changes = cache.take(1000);
    cache.give_back(changes);
    for (const auto& change : changes) {
        if (change.info.valid_data)
            result.push_back((change.info.view_state == DDS_NEW_VIEW_STATE ? "+" : "~") +
                             change.endpoint->topic_name);
        else
            result.emplace_back("-");
    }
    return result;
}
using Told = std::vector<std::string>;

TEST(DiscoveryStore, WritersAndReadersGoToTheirTopics) {
    DiscoveryStore store({"*"});
    store.participant_discovered(test::shared(test::make_participant(1)));
    store.endpoint_discovered(test::record(test::make_writer(1, 1), kSomeTime));
    store.endpoint_discovered(test::record(test::make_reader(1, 2), kSomeTime));
    store.endpoint_changed(test::record(test::make_writer(1, 1), kSomeTime));
    store.endpoint_gone(test::record(test::make_reader(1, 2)), GoneReason::disposed, kSomeTime);
    EXPECT_EQ(told(store.publications()), (Told{"+Topic1", "~Topic1"}));
    EXPECT_EQ(told(store.subscriptions()), (Told{"+Topic2", "-"}));
}

TEST(DiscoveryStore, TimeIsThatOfTheAnnouncementOrElseOfReception) {
    DiscoveryStore store({});
    store.participant_discovered(test::shared(test::make_participant(1)));
    const DDS_Time_t before = wall_time();
    store.endpoint_discovered(test::record(test::make_writer(1, 1), kSomeTime));
    store.endpoint_discovered(test::record(test::make_writer(1, 2), rtps::kTimeInvalid));
    const auto changes = store.publications().take(10);
    ASSERT_EQ(changes.size(), 2u);
    EXPECT_EQ(changes[0].info.source_timestamp.sec, 1000);
    EXPECT_EQ(changes[0].info.source_timestamp.nanosec, 500000000u);
    EXPECT_GE(changes[1].info.source_timestamp.sec, before.sec);
    EXPECT_LE(changes[1].info.source_timestamp.sec, before.sec + 10);
}

TEST(DiscoveryStore, HandlesAreGuids) {
    DiscoveryStore store({});
    store.participant_discovered(test::shared(test::make_participant(1)));
    const rtps::EndpointData writer = test::make_writer(1, 1);
    const rtps::EndpointData reader = test::make_reader(1, 1);
    store.endpoint_discovered(test::record(writer, kSomeTime));
    store.endpoint_discovered(test::record(reader, kSomeTime));
    const auto publication = store.publications().take(1);
    const auto subscription = store.subscriptions().take(1);
    EXPECT_EQ(publication[0].info.instance_handle, to_handle(writer.guid));
    EXPECT_EQ(publication[0].info.publication_handle,
              to_handle({writer.guid.prefix, rtps::entity::publications_writer}));
    EXPECT_EQ(subscription[0].info.publication_handle,
              to_handle({reader.guid.prefix, rtps::entity::subscriptions_writer}));
}

TEST(DiscoveryStore, AParticipantStaysKnownWhileItsEndpointsAreHeld) {
    DiscoveryStore store({});
    const auto prefix = test::make_prefix(1);
    EXPECT_EQ(store.find_participant(prefix), nullptr);
    store.participant_discovered(test::shared(test::make_participant(1)));
    store.endpoint_discovered(test::record(test::make_writer(1, 1), kSomeTime));
    ASSERT_NE(store.find_participant(prefix), nullptr);
    EXPECT_EQ(store.find_participant(prefix)->name, "participant 1");

    store.endpoint_gone(test::record(test::make_writer(1, 1)), GoneReason::lease_expired, rtps::kTimeInvalid);
    store.participant_gone(test::shared(test::make_participant(1)), GoneReason::lease_expired);
    EXPECT_NE(store.find_participant(prefix), nullptr);
    EXPECT_EQ(told(store.publications()), (Told{"+Topic1", "-"}));
    EXPECT_NE(store.publications().participant_of(test::make_writer(1, 1).guid), nullptr);
    EXPECT_NE(store.find_participant(prefix), nullptr);
    told(store.publications());
    EXPECT_EQ(store.find_participant(prefix), nullptr);
}

TEST(DiscoveryStore, AnAnnouncementWithAnotherContentReplaces) {
    DiscoveryStore store({});
    rtps::ParticipantData data = test::make_participant(1);
    store.participant_discovered(test::shared(data));
    data.name = "renamed";
    store.participant_changed(test::shared(data));
    EXPECT_EQ(store.find_participant(test::make_prefix(1))->name, "renamed");
}

TEST(DiscoveryStore, EndpointsOfOtherPartitionsAreHeldBack) {
    DiscoveryStore store({"A"});
    store.participant_discovered(test::shared(test::make_participant(1, "B")));
    store.participant_discovered(test::shared(test::make_participant(2, "A,C")));
    store.participant_discovered(test::shared(test::make_participant(3)));
    for (uint8_t participant = 1; participant <= 3; ++participant)
        store.endpoint_discovered(test::record(test::make_writer(participant, participant), kSomeTime));
    EXPECT_EQ(told(store.publications()), Told{"+Topic2"});
    EXPECT_NE(store.find_participant(test::make_prefix(1)), nullptr);
    store.endpoint_gone(test::record(test::make_writer(1, 1)), GoneReason::disposed, kSomeTime);
    EXPECT_EQ(told(store.publications()), Told{});
}

TEST(DiscoveryStore, WhatHasNoPartitionsIsSeenByTheStar) {
    DiscoveryStore store({"*"});
    store.participant_discovered(test::shared(test::make_participant(1)));
    store.participant_discovered(test::shared(test::make_participant(2, "A")));
    store.participant_discovered(test::shared(test::make_participant(3, "*")));
    for (uint8_t participant = 1; participant <= 3; ++participant)
        store.endpoint_discovered(test::record(test::make_writer(participant, participant), kSomeTime));
    EXPECT_EQ(told(store.publications()), (Told{"+Topic1", "+Topic2", "+Topic3"}));
}

TEST(DiscoveryStore, ARemoteThatMovesIntoAnotherPartitionComesAndGoes) {
    DiscoveryStore store({"A"});
    store.participant_discovered(test::shared(test::make_participant(1, "B")));
    store.endpoint_discovered(test::record(test::make_writer(1, 1), kSomeTime));
    store.endpoint_discovered(test::record(test::make_reader(1, 2), kSomeTime));
    EXPECT_EQ(told(store.publications()), Told{});
    store.participant_changed(test::shared(test::make_participant(1, "A")));
    EXPECT_EQ(told(store.publications()), Told{"+Topic1"});
    EXPECT_EQ(told(store.subscriptions()), Told{"+Topic2"});
    store.participant_changed(test::shared(test::make_participant(1, "A,X")));
    EXPECT_EQ(told(store.publications()), Told{"~Topic1"}) << "they are shown with its partitions";
    EXPECT_EQ(told(store.subscriptions()), Told{"~Topic2"});
    rtps::ParticipantData renamed = test::make_participant(1, "A,X");
    renamed.name = "renamed";
    store.participant_changed(test::shared(renamed));
    EXPECT_EQ(told(store.publications()), Told{});
    store.participant_changed(test::shared(test::make_participant(1, "B")));
    EXPECT_EQ(told(store.publications()), Told{"-"});
    EXPECT_EQ(told(store.subscriptions()), Told{"-"});
}

TEST(DiscoveryStore, TheTimeOfAMoveIsNotThatOfTheEndpoints) {
    DiscoveryStore store({"A"});
    store.participant_discovered(test::shared(test::make_participant(1, "B")));
    store.endpoint_discovered(test::record(test::make_writer(1, 1), kSomeTime));
    const DDS_Time_t before = wall_time();
    for (const char* const partitions : {"A", "A,X", "B"}) {
        store.participant_changed(test::shared(test::make_participant(1, partitions)));
        const auto changes = store.publications().take(10);
        ASSERT_EQ(changes.size(), 1u) << partitions;
        EXPECT_GE(changes[0].info.source_timestamp.sec, before.sec) << partitions;
    }
}

TEST(DiscoveryStore, OwnPartitionsCanChange) {
    DiscoveryStore store({"A"});
    store.participant_discovered(test::shared(test::make_participant(1, "B")));
    store.participant_discovered(test::shared(test::make_participant(2, "A")));
    store.endpoint_discovered(test::record(test::make_writer(1, 1), kSomeTime));
    store.endpoint_discovered(test::record(test::make_writer(2, 2), kSomeTime));
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
    DiscoveryStore store({});
    store.endpoint_discovered(test::record(test::make_writer(1, 1), kSomeTime));
    EXPECT_EQ(told(store.publications()), Told{"+Topic1"});
    EXPECT_NE(store.publications().participant_of(test::make_writer(1, 1).guid), nullptr);
    store.endpoint_gone(test::record(test::make_writer(9, 1)), GoneReason::disposed, kSomeTime);
    EXPECT_EQ(told(store.publications()), Told{});
}

TEST(DiscoveryStore, AParticipantThatGoesTakesItsEndpointsAlong) {
    DiscoveryStore store({});
    store.participant_discovered(test::shared(test::make_participant(1)));
    store.endpoint_discovered(test::record(test::make_writer(1, 1), kSomeTime));
    store.participant_gone(test::shared(test::make_participant(1)), GoneReason::disposed);
    EXPECT_EQ(told(store.publications()), (Told{"+Topic1", "-"}));
    store.participant_gone(test::shared(test::make_participant(1)), GoneReason::disposed);
    EXPECT_EQ(told(store.publications()), Told{});
}

} // namespace
} // namespace meridian::discovery
