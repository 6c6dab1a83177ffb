// How many topics are read, and for whom.

#include "quixspy/quixSpyTopicRoom.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr size_t kMost = QuixSpyTopicRoom::kMost;

size_t take_all(QuixSpyTopicRoom& room, DDS_UnsignedLong participant) {
    size_t taken = 0;
    while (room.take({1, 2, participant, static_cast<DDS_UnsignedLong>(++taken)}, 1)) {
    }
    return taken - 1;
}

TEST(TopicRoom, NoParticipantGetsMoreThanIsLeftForAllOthers) {
    QuixSpyTopicRoom room;
    EXPECT_EQ(take_all(room, 1), kMost / 2);
    EXPECT_EQ(take_all(room, 2), kMost / 4);
    EXPECT_GT(take_all(room, 3), 1000U);
    EXPECT_TRUE(room.take({1, 2, 4, 1}, 1));
}

TEST(TopicRoom, WhatIsGivenBackCanBeTakenAgain) {
    QuixSpyTopicRoom room;
    const size_t all = take_all(room, 1);
    EXPECT_FALSE(room.take({1, 2, 1, 7}, 1));
    for (size_t i = 0; i < all; ++i)
        room.give_back({1, 2, 1, 9}, 1);
    EXPECT_EQ(take_all(room, 1), all);
}

TEST(TopicRoom, TwentyThousandTopicsFitHoweverTheyAreSharedOut) {
    for (const DDS_UnsignedLong participants : {2U, 20U, 200U}) {
        QuixSpyTopicRoom room;
        for (DDS_UnsignedLong i = 0; i < 20000; ++i)
            ASSERT_TRUE(room.take({1, 2, i / (20000 / participants), i}, 1))
                << participants << ", topic " << i;
        EXPECT_FALSE(room.is_crowded());
        EXPECT_GE(take_all(room, 999), QuixSpyTopicRoom::kMany - 20000);
        EXPECT_TRUE(room.is_crowded());
    }
}

TEST(TopicRoom, LongNamesTakeMorePlaces) {
    EXPECT_EQ(QuixSpyTopicRoom::places("topic", "type"), 1U);
    EXPECT_EQ(QuixSpyTopicRoom::places(std::string(30000, 'a').c_str(), std::string(30000, 'b').c_str()),
              59U);
}

} // namespace
