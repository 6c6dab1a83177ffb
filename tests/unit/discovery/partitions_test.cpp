#include "discovery/partitions.h"

#include <gtest/gtest.h>

namespace meridian::discovery {
namespace {

TEST(Partitions, TheEmptyNameStandsBesideAPatternThatMatchesIt) {
    EXPECT_EQ(announced_partitions({"*"}), (PartitionList{"", "*"}));
    EXPECT_EQ(announced_partitions({"A", "**"}), (PartitionList{"", "A", "**"}));
    EXPECT_EQ(announced_partitions({"*", ""}), (PartitionList{"*", ""}));
    EXPECT_EQ(announced_partitions({"A*", "?", "[ab]*"}), (PartitionList{"A*", "?", "[ab]*"}));
    EXPECT_EQ(announced_partitions({}), PartitionList{});
    EXPECT_EQ(announced_partitions({"A"}), PartitionList{"A"});
}

TEST(Partitions, AnEmptyListIsTheDefaultPartition) {
    EXPECT_TRUE(partitions_match({}, {}));
    EXPECT_TRUE(partitions_match({}, {""}));
    EXPECT_FALSE(partitions_match({}, {"A"}));
    EXPECT_TRUE(partitions_match({"*"}, {}));
    EXPECT_TRUE(partitions_match({}, {"*"}));
    EXPECT_FALSE(partitions_match({"?"}, {}));
}

TEST(Partitions, NamesMatchByEqualityOrByAPatternOnEitherSide) {
    EXPECT_TRUE(partitions_match({"A"}, {"B", "A"}));
    EXPECT_FALSE(partitions_match({"A"}, {"B"}));
    EXPECT_FALSE(partitions_match({"A"}, {"a"}));
    EXPECT_TRUE(partitions_match({"A*"}, {"Alpha"}));
    EXPECT_TRUE(partitions_match({"Alpha"}, {"x", "A?pha"}));
    EXPECT_TRUE(partitions_match({"[AB]"}, {"B"}));
    EXPECT_FALSE(partitions_match({"[AB]"}, {"C"}));
}

TEST(Partitions, PatternsDoNotMatchEachOtherUnlessBothMatchTheDefaultPartition) {
    EXPECT_FALSE(partitions_match({"A*"}, {"A?"}));
    EXPECT_FALSE(partitions_match({"A*"}, {"A*"}));
    EXPECT_TRUE(partitions_match({"*"}, {"**"}));
    EXPECT_TRUE(partitions_match({"*"}, {"*"}));
}

TEST(Partitions, JoinedNamesSplitAgain) {
    for (const PartitionList& names : {PartitionList{}, PartitionList{"A"}, PartitionList{"A", "B"},
                                       PartitionList{"", "*"}, PartitionList{"A", ""}})
        EXPECT_EQ(split_partitions(join_partitions(names)), names);
    EXPECT_EQ(join_partitions({"A", "B*"}), "A,B*");
}

TEST(Partitions, AParticipantAnnouncesThemAsAProperty) {
    EXPECT_EQ(participant_partitions({{"x", "y"}}), PartitionList{});
    EXPECT_EQ(participant_partitions({{"x", "y"}, {"dds.domain_participant.partition", "A,B"}}),
              (PartitionList{"A", "B"}));
}

TEST(Partitions, OfAParticipantAreTakenUpToALimit) {
    const auto taken = [](const std::string& text) {
        return participant_partitions({{"dds.domain_participant.partition", text}});
    };
    std::string many = "A";
    for (size_t i = 1; i < kMostParticipantPartitions; ++i)
        many += ",A";
    EXPECT_EQ(taken(many).size(), kMostParticipantPartitions);
    EXPECT_EQ(taken(many + ",A").size(), kMostParticipantPartitions);
    const std::string long_name(kMostPartitionOctets - 2, 'a');
    EXPECT_EQ(taken("A," + long_name), (PartitionList{"A", long_name}));
    EXPECT_EQ(taken("A," + long_name + ",B"), (PartitionList{"A", long_name}));
    EXPECT_EQ(taken("A," + long_name + "a"), PartitionList{"A"});
    EXPECT_EQ(taken(long_name + long_name), PartitionList());
}

} // namespace
} // namespace meridian::discovery
