// The registry of endpoints: each operation, and all of them against a plain vector.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "quixspy/fixture.h"
#include "support/test_output.h"
#include "support/verbosity_guard.h"

namespace {

const RtpsGuid kGuid{1, 2, 3, 0x102};
const DDS_EntityNameQosPolicy kNoName;
const DDS_StringSeq kNone;

/// The list seen from its ends: forwards, backwards and by count.
void expect_sound(const QuixSpyEndpointInfoList& list, const std::vector<RtpsGuid>& expected) {
    std::vector<RtpsGuid> forwards;
    const QuixSpyListLink<QuixSpyEndpointInfoNode>* previous = &list.sentinel;
    for (const auto* node = list.head(); node != nullptr; node = QuixSpyEndpointInfoList::next(node)) {
        ASSERT_EQ(node->list, &list);
        ASSERT_EQ(node->previous, previous);
        previous = node;
        forwards.push_back(node->info.guid);
    }
    ASSERT_EQ(list.tail, list.head() == nullptr ? nullptr : previous);
    ASSERT_EQ(list.count, static_cast<int32_t>(expected.size()));
    ASSERT_TRUE(
        std::equal(forwards.begin(), forwards.end(), expected.begin(), expected.end(), RtpsGuid_equals));
}

} // namespace

TEST(EndpointInfo, NameIsMadeOfRoleAndName) {
    const auto name_of = [](const char* role, const char* name) {
        QuixSpyEndpointInfoList list(test_output());
        Record record;
        list.assert_node(record, kGuid, "1.2.3.4", "T", "Y", entity_name(role, name), kNone, kNone);
        return text(record.name);
    };
    EXPECT_EQ(name_of("pub", "Sensor"), "pub:Sensor");
    EXPECT_EQ(name_of("pub", nullptr), "pub");
    EXPECT_EQ(name_of(nullptr, "Sensor"), "Sensor");
    EXPECT_EQ(name_of(nullptr, nullptr), "(null)");
}

TEST(EndpointInfo, PartitionsAreJoined) {
    QuixSpyEndpointInfoList list(test_output());
    Record record;
    EXPECT_TRUE(list.assert_node(record, kGuid, "1.2.3.4", "T", "Y", kNoName, string_seq({"A", "B", ""}),
                                 string_seq({"A"})));
    EXPECT_EQ(text(record.endpointPartition), "A,B,");
    EXPECT_EQ(text(record.participantPartition), "A");
    record.finalize();
    EXPECT_TRUE(list.assert_node(record, kGuid, "1.2.3.4", "T", "Y", kNoName, string_seq({""}), kNone));
    EXPECT_EQ(text(record.endpointPartition), "");
    EXPECT_EQ(text(record.participantPartition), "(null)");
}

TEST(EndpointInfo, TopicAndTypeMayBeMissing) {
    QuixSpyEndpointInfoList list(test_output());
    Record record;
    EXPECT_TRUE(list.assert_node(record, kGuid, "1.2.3.4", nullptr, nullptr, kNoName, kNone, kNone));
    EXPECT_EQ(text(record.topicName), "(null)");
    EXPECT_EQ(text(record.typeName), "(null)");
    EXPECT_STREQ(record.ip, "1.2.3.4");
}

TEST(EndpointInfo, RefreshReplacesEverythingInPlace) {
    QuixSpyEndpointInfoList list(test_output());
    const RtpsGuid other{9, 9, 9, 9};
    {
        Record record;
        list.assert_node(record, kGuid, "1.2.3.4", "T", "Y", entity_name("r", "n"), string_seq({"E"}),
                         string_seq({"P"}));
    }
    {
        Record record;
        list.assert_node(record, other, "1.2.3.5", "T2", "Y2", kNoName, kNone, kNone);
    }
    Record record;
    EXPECT_TRUE(list.assert_node(record, kGuid, "5.6.7.8", "U", nullptr, kNoName, kNone, string_seq({"Q"})));
    expect_sound(list, {kGuid, other});
    const QuixSpyEndpointInfo& stored = list.find_node(kGuid)->info;
    for (const QuixSpyEndpointInfo* info : {&stored, static_cast<const QuixSpyEndpointInfo*>(&record)}) {
        EXPECT_STREQ(info->ip, "5.6.7.8");
        EXPECT_EQ(text(info->topicName), "U");
        EXPECT_EQ(text(info->typeName), "(null)");
        EXPECT_EQ(text(info->name), "(null)");
        EXPECT_EQ(text(info->endpointPartition), "(null)");
        EXPECT_EQ(text(info->participantPartition), "Q");
    }
    EXPECT_NE(stored.topicName, record.topicName) << "a deep copy";
}

TEST(EndpointInfo, TheUnknownGuidIsRefused) {
    QuixSpyEndpointInfoList list(test_output());
    Record record;
    bool stored = true;
    const auto refuse = [&] {
        stored =
            list.assert_node(record, RtpsGuid{}, "1.2.3.4", "T", "Y", entity_name("r", "n"), kNone, kNone);
    };
    EXPECT_EQ(printed_by(refuse), "ferret: Error initializing QuixSpyEndpointInfo\n");
    EXPECT_FALSE(stored);
    expect_sound(list, {});
    EXPECT_EQ(text(record.topicName), "(null)");
    const VerbosityGuard silent(0);
    EXPECT_EQ(printed_by(refuse), "");
}

TEST(EndpointInfo, AnOverlongAddressCostsTheRestOfTheRecord) {
    QuixSpyEndpointInfoList list(test_output());
    Record record;
    bool stored = false;
    EXPECT_EQ(printed_by([&] {
                  stored = list.assert_node(record, kGuid, "1234567890123456", "T", "Y",
                                            entity_name("r", "n"), string_seq({"E"}), string_seq({"P"}));
              }),
              "ferret: Failed to copy IP '1234567890123456'\n");
    EXPECT_TRUE(stored);
    expect_sound(list, {kGuid});
    EXPECT_STREQ(record.ip, "");
    for (const char* const member : {record.topicName, record.typeName, record.name,
                                     record.participantPartition, record.endpointPartition})
        EXPECT_EQ(member, nullptr);
    EXPECT_EQ(printed_by([&] {
                  list.assert_node(record, kGuid, "123456789012345", "T", "Y", kNoName, kNone, kNone);
              }),
              "");
    EXPECT_STREQ(record.ip, "123456789012345");
}

TEST(EndpointInfo, CopyStopsAtAnAddressWithoutEnd) {
    QuixSpyEndpointInfo source{};
    source.guid = kGuid;
    std::memset(source.ip, '7', sizeof source.ip);
    source.topicName = DDS_String_dup("T");
    Record target;
    bool copied = true;
    EXPECT_EQ(printed_by([&] { copied = target.copy_from(source, test_output()); }),
              "ferret: Failed to copy IP '7777777777777777'\n");
    EXPECT_FALSE(copied);
    EXPECT_TRUE(RtpsGuid_equals(target.guid, kGuid));
    EXPECT_EQ(target.topicName, nullptr);
    source.finalize();
}

TEST(EndpointInfo, FinalizeKeepsTheGuidAndCanBeRepeated) {
    QuixSpyEndpointInfoList list(test_output());
    Record record;
    list.assert_node(record, kGuid, "1.2.3.4", "T", "Y", entity_name("r", "n"), string_seq({"E"}),
                     string_seq({"P"}));
    for (int i = 0; i < 2; ++i) {
        record.finalize();
        EXPECT_TRUE(RtpsGuid_equals(record.guid, kGuid));
        EXPECT_EQ(record.topicName, nullptr);
        EXPECT_EQ(record.name, nullptr);
        EXPECT_EQ(std::string(record.ip, sizeof record.ip), std::string(sizeof record.ip, '\0'));
    }
}

TEST(EndpointInfo, RemovalMovesTheTail) {
    QuixSpyEndpointInfoList list(test_output());
    std::vector<RtpsGuid> guids;
    for (uint32_t i = 1; i <= 3; ++i) {
        guids.push_back({0, 0, 0, i});
        Record record;
        list.assert_node(record, guids.back(), "1.2.3.4", "T", "Y", kNoName, kNone, kNone);
    }
    list.remove_node(list.find_node(guids[2]));
    expect_sound(list, {guids[0], guids[1]});
    list.remove_node(list.find_node(guids[0]));
    expect_sound(list, {guids[1]});
    list.remove_node(list.find_node(guids[1]));
    expect_sound(list, {});
    EXPECT_EQ(list.head(), nullptr);
    EXPECT_EQ(list.tail, nullptr);
}

TEST(EndpointInfo, GuidsAreComparedWordByWord) {
    QuixSpyEndpointInfoList list(test_output());
    Record record;
    list.assert_node(record, kGuid, "1.2.3.4", "T", "Y", kNoName, kNone, kNone);
    for (const RtpsGuid& other : {RtpsGuid{0, 2, 3, 0x102}, RtpsGuid{1, 0, 3, 0x102},
                                  RtpsGuid{1, 2, 0, 0x102}, RtpsGuid{1, 2, 3, 0x103}})
        EXPECT_EQ(list.find_node(other), nullptr);
    EXPECT_NE(list.find_node(kGuid), nullptr);
}

TEST(EndpointInfo, BehavesLikeAVector) {
    struct Known {
        RtpsGuid guid;
        std::string topic;
        std::string partition;
    };
    for (unsigned seed = 1; seed <= 50; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        QuixSpyEndpointInfoList list(test_output());
        std::vector<Known> model;
        for (int step = 0; step < 300; ++step) {
            // Few GUIDs, so that refreshes, removals and misses are all common.
            const auto word = [&](uint32_t limit) { return static_cast<uint32_t>(random()) % limit; };
            const RtpsGuid guid{word(2), word(2), word(2), word(3)};
            const bool is_unknown = RtpsGuid_isUnknown(guid);
            const auto known = std::find_if(model.begin(), model.end(), [&](const Known& one) {
                return RtpsGuid_equals(one.guid, guid);
            });
            QuixSpyEndpointInfoNode* const node = list.find_node(guid);
            ASSERT_EQ(node != nullptr, known != model.end());
            if (node != nullptr) {
                ASSERT_EQ(text(node->info.topicName), known->topic);
                ASSERT_EQ(text(node->info.endpointPartition), known->partition);
            }
            if (random() % 3 == 0) {
                if (node != nullptr) {
                    list.remove_node(node);
                    model.erase(known);
                }
            } else {
                const Known next{guid, "topic" + std::to_string(random() % 100),
                                 std::to_string(random() % 100)};
                Record record;
                bool stored = false;
                const std::string printed = printed_by([&] {
                    stored = list.assert_node(record, guid, "1.2.3.4", next.topic.c_str(), "Y", kNoName,
                                              string_seq({next.partition.c_str()}), kNone);
                });
                ASSERT_EQ(stored, !is_unknown);
                ASSERT_EQ(printed.empty(), !is_unknown);
                if (stored) {
                    ASSERT_EQ(text(record.topicName), next.topic);
                    if (known != model.end())
                        *known = next;
                    else
                        model.push_back(next);
                }
            }
            std::vector<RtpsGuid> guids;
            for (const Known& one : model)
                guids.push_back(one.guid);
            ASSERT_NO_FATAL_FAILURE(expect_sound(list, guids));
        }
    }
}
