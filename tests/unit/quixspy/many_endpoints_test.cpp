// What is found by key among many: endpoints in the registry, topics of a participant.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "quixspy/fixture.h"
#include "quixspy/quixSpyDataListener.h"
#include "support/test_output.h"

TEST(Registry, HoldsManyEndpoints) {
    constexpr uint32_t kCount = 20000;
    QuixSpyEndpointInfoList list(test_output());
    const DDS_EntityNameQosPolicy unnamed;
    const DDS_StringSeq none;
    for (uint32_t round = 0; round < 2; ++round) {
        for (uint32_t i = 0; i < kCount; ++i) {
            Record out;
            ASSERT_TRUE(
                list.assert_node(out, {1, 2, 3, i << 8 | 2}, "10.0.0.1", "T", "Y", unnamed, none, none));
        }
    }
    EXPECT_EQ(list.count, static_cast<int32_t>(kCount));
    for (uint32_t i = 0; i < kCount; ++i) {
        QuixSpyEndpointInfoNode* const node = list.find_node({1, 2, 3, i << 8 | 2});
        ASSERT_NE(node, nullptr);
        ASSERT_EQ(node->info.guid.entityId, i << 8 | 2);
        list.remove_node(node);
    }
    EXPECT_EQ(list.count, 0);
    EXPECT_EQ(list.find_node({1, 2, 3, 2}), nullptr);
}

TEST(ParticipantNode, FindsTopicsByTheirNames) {
    QuixSpyDataListenerSettings settings;
    settings.output = &test_output();
    std::vector<std::unique_ptr<QuixSpyDataListener>> listeners;
    std::vector<QuixSpyDataListenerNode> topics(1000);
    QuixSpyParticipantListNode node{};
    for (size_t i = 0; i < topics.size(); ++i) {
        const std::string topic = "topic" + std::to_string(i);
        const std::string type = "Type" + std::to_string(i % 10);
        listeners.push_back(
            std::make_unique<QuixSpyDataListener>(topic.c_str(), type.c_str(), nullptr, settings));
        topics[i].listener = listeners.back().get();
        node.add_topic(&topics[i]);
    }
    EXPECT_EQ(node.dataListeners.count, 1000);
    for (size_t i = 0; i < topics.size(); ++i)
        EXPECT_EQ(node.find_topic(listeners[i]->topicName, listeners[i]->typeName), &topics[i]);
    EXPECT_EQ(node.find_topic("topic1", "Type2"), nullptr);
    EXPECT_EQ(node.find_topic("topic", "Type1"), nullptr);
    ASSERT_NE(node.find_type("Type7"), nullptr);
    EXPECT_STREQ(node.find_type("Type7")->listener->typeName, "Type7");
    EXPECT_EQ(node.find_type("Type"), nullptr);
    EXPECT_EQ(node.find_type("Type10"), nullptr);
    EXPECT_EQ(node.find_type("Typf"), nullptr);
}
