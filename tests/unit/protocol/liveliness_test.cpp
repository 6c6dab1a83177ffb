#include "rtps/protocol/liveliness.h"

#include <gtest/gtest.h>

#include "protocol/captured_output.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class LivelinessTest : public ::testing::Test {
  protected:
    Guid writer(uint32_t entity) { return {prefix(2), EntityId{entity}}; }
    Lines at(Duration time) {
        liveliness.on_timer(time);
        Lines result;
        result.swap(changes);
        return result;
    }

    Lines changes;
    Liveliness liveliness{[this](const Guid& writer, bool alive) {
        changes.push_back(std::to_string(writer.entity.value) + (alive ? " alive" : " lost"));
    }};
};

TEST_F(LivelinessTest, OwnAutomaticWritersAreAssertedThreeTimesPerLease) {
    liveliness.add_own(EntityId{1}, LivelinessKind::automatic, kNever, seconds(0));
    liveliness.add_own(EntityId{2}, LivelinessKind::manual_by_topic, seconds(1), seconds(0));
    EXPECT_EQ(liveliness.next_deadline(), kNever);
    liveliness.add_own(EntityId{3}, LivelinessKind::automatic, seconds(9), seconds(0));
    liveliness.add_own(EntityId{4}, LivelinessKind::automatic, seconds(6), seconds(0));
    EXPECT_TRUE(liveliness.assertion_due(seconds(0)));
    EXPECT_FALSE(liveliness.assertion_due(milliseconds(1999)));
    EXPECT_TRUE(liveliness.assertion_due(seconds(2)));
    liveliness.remove_own(EntityId{4});
    EXPECT_TRUE(liveliness.assertion_due(seconds(4)));
    EXPECT_FALSE(liveliness.assertion_due(seconds(6)));
    EXPECT_TRUE(liveliness.assertion_due(seconds(7)));
    liveliness.remove_own(EntityId{3});
    EXPECT_EQ(liveliness.next_deadline(), kNever);
}

TEST_F(LivelinessTest, ARemoteWriterIsLostOnceAndComesBackOnce) {
    liveliness.add_remote(writer(1), LivelinessKind::automatic, seconds(2), seconds(0));
    EXPECT_EQ(liveliness.next_deadline(), seconds(2));
    EXPECT_EQ(at(milliseconds(1999)), Lines{});
    EXPECT_EQ(at(seconds(2)), (Lines{"1 lost"}));
    EXPECT_EQ(at(seconds(9)), Lines{});
    liveliness.on_participant_asserted(prefix(2), ParticipantMessage::automatic, seconds(10));
    EXPECT_EQ(at(seconds(10)), (Lines{"1 alive"}));
    EXPECT_EQ(at(seconds(12)), (Lines{"1 lost"}));
}

TEST_F(LivelinessTest, ManyWritersWithTinyLeasesAreNotLostAndRevivedByEachPacket) {
    constexpr uint32_t kWriters = 1000;
    for (uint32_t entity = 1; entity <= kWriters; ++entity)
        liveliness.add_remote(writer(entity), LivelinessKind::automatic, std::chrono::microseconds(1),
                              seconds(0));
    size_t count = 0;
    for (Duration time = seconds(0); time < seconds(1); time += milliseconds(1)) {
        count += at(time).size();
        liveliness.on_participant_asserted(prefix(2), ParticipantMessage::automatic, time);
    }
    EXPECT_GE(count, kWriters);
    EXPECT_LE(count, 22 * kWriters);
}

TEST_F(LivelinessTest, EachKindNeedsItsOwnAssertion) {
    liveliness.add_remote(writer(1), LivelinessKind::automatic, seconds(2), seconds(0));
    liveliness.add_remote(writer(2), LivelinessKind::manual_by_participant, seconds(2), seconds(0));
    liveliness.add_remote(writer(3), LivelinessKind::manual_by_topic, seconds(2), seconds(0));
    liveliness.add_remote(Guid{prefix(3), EntityId{4}}, LivelinessKind::manual_by_participant, seconds(2),
                          seconds(0));
    liveliness.on_participant_asserted(prefix(2), ParticipantMessage::manual, seconds(1));
    EXPECT_EQ(at(seconds(2)), (Lines{"1 lost", "3 lost", "4 lost"}));
    liveliness.on_writer_asserted(writer(3), milliseconds(2500));
    EXPECT_EQ(at(milliseconds(2600)), (Lines{"3 alive"}));
    EXPECT_EQ(at(seconds(3)), (Lines{"2 lost"}));
}

TEST_F(LivelinessTest, ASampleAssertsTheManualWritersOfItsParticipant) {
    liveliness.add_remote(writer(1), LivelinessKind::manual_by_participant, seconds(2), seconds(0));
    liveliness.add_remote(writer(2), LivelinessKind::manual_by_participant, seconds(2), seconds(0));
    liveliness.on_writer_asserted(writer(1), seconds(1));
    EXPECT_EQ(at(seconds(2)), Lines{});
    EXPECT_EQ(at(seconds(3)), (Lines{"1 lost", "2 lost"}));
}

TEST_F(LivelinessTest, InfiniteLeasesAndRemovedWritersAreNotWatched) {
    liveliness.add_remote(writer(1), LivelinessKind::automatic, kNever, seconds(0));
    EXPECT_FALSE(liveliness.watches_any());
    liveliness.add_remote(writer(2), LivelinessKind::automatic, seconds(1), seconds(0));
    EXPECT_TRUE(liveliness.watches_any());
    liveliness.remove_remote(writer(2));
    EXPECT_EQ(at(seconds(5)), Lines{});
}

} // namespace
} // namespace meridian::rtps::test
