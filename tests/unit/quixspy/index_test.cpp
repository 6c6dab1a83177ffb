// The index of the spy's lists: finds what was inserted, and looks at few nodes for it.

#include "quixspy/quixSpyIndex.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "quixspy/fixture.h"
#include "support/test_output.h"

namespace {

struct Node {
    std::string name;
    QuixSpyIndexLink<Node> link{};
};

struct Index : QuixSpyIndex<Node, &Node::link> {
    Index() : QuixSpyIndex<Node, &Node::link>{} {}
    Index(const Index&) = delete;
    Index& operator=(const Index&) = delete;
    ~Index() { free(); }

    uint64_t hash_of(const std::string& name) { return hash(name, ""); }
    Node* look_for(const std::string& name) {
        return find(hash_of(name), [&name](const Node& node) { return node.name == name; });
    }
};

} // namespace

TEST(Index, FindsWhatItHolds) {
    Index index;
    EXPECT_EQ(index.look_for("a"), nullptr);
    Node a{"a"};
    Node b{"b"};
    ASSERT_TRUE(index.insert(&a, index.hash_of("a")));
    ASSERT_TRUE(index.insert(&b, index.hash_of("b")));
    EXPECT_EQ(index.look_for("a"), &a);
    EXPECT_EQ(index.look_for("b"), &b);
    EXPECT_EQ(index.look_for("c"), nullptr);
    index.remove(&a);
    EXPECT_EQ(index.look_for("a"), nullptr);
    EXPECT_EQ(index.look_for("b"), &b);
    index.remove(&a);
    EXPECT_EQ(index.nodeCount, 1U);
}

TEST(Index, TellsEqualHashesApart) {
    Index index;
    std::vector<Node> nodes(100);
    for (size_t i = 0; i < nodes.size(); ++i) {
        nodes[i].name = std::to_string(i);
        ASSERT_TRUE(index.insert(&nodes[i], 7));
    }
    for (const Node& node : nodes)
        EXPECT_EQ(index.find(7, [&node](const Node& one) { return one.name == node.name; }), &node);
    for (size_t i = 0; i < nodes.size(); i += 2)
        index.remove(&nodes[i]);
    EXPECT_EQ(index.nodeCount, 50U);
    EXPECT_EQ(index.find(7, [](const Node& one) { return one.name == "98"; }), nullptr);
    EXPECT_EQ(index.find(7, [](const Node& one) { return one.name == "99"; }), &nodes[99]);
}

TEST(Index, LooksAtFewNodesHoweverManyThereAre) {
    Index index;
    std::vector<Node> nodes(20000);
    for (size_t i = 0; i < nodes.size(); ++i) {
        nodes[i].name = "a/long/common/name/of/topic" + std::to_string(i);
        ASSERT_EQ(index.look_for(nodes[i].name), nullptr);
        ASSERT_TRUE(index.insert(&nodes[i], index.hash_of(nodes[i].name)));
    }
    for (Node& node : nodes)
        ASSERT_EQ(index.look_for(node.name), &node);
    EXPECT_LT(index.comparisons, 3 * nodes.size());
}

TEST(Index, HashesDependOnTheSeedAndOnEveryOctet) {
    EXPECT_NE(QUIXSpy_seed(), QUIXSpy_seed());
    EXPECT_NE(QUIXSpy_hash(1, "a", "b"), QUIXSpy_hash(2, "a", "b"));
    std::set<uint64_t> seen;
    for (const auto& [first, second] :
         std::vector<std::pair<std::string, std::string>>{{"", ""},
                                                          {"a", ""},
                                                          {"", "a"},
                                                          {"ab", "c"},
                                                          {"a", "bc"},
                                                          {"abc", ""},
                                                          {std::string(8, '\0'), ""},
                                                          {std::string(9, '\0'), ""},
                                                          {std::string(8, 'x'), ""},
                                                          {std::string(8, 'x'), std::string(8, 'x')},
                                                          {std::string(16, 'x'), ""}})
        EXPECT_TRUE(seen.insert(QUIXSpy_hash(1, first, second)).second) << first << "|" << second;
    for (size_t octet = 0; octet < 16; ++octet) {
        std::string key(16, 'k');
        key[octet] = 'K';
        EXPECT_TRUE(seen.insert(QUIXSpy_hash(1, key.data(), key.size())).second) << octet;
    }
}

TEST(Registry, LooksAtFewRecordsHoweverManyThereAre) {
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
    for (uint32_t i = 0; i < kCount; ++i)
        list.remove_node(list.find_node({1, 2, 3, i << 8 | 2}));
    EXPECT_EQ(list.count, 0);
    EXPECT_LT(list.comparisons(), 6 * kCount);
}
