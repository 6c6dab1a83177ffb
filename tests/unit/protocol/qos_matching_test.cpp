#include "rtps/protocol/qos_matching.h"

#include <gtest/gtest.h>

#include <functional>

namespace meridian::rtps::test {
namespace {

using Policies = std::vector<uint32_t>;
using Change = std::function<void(EndpointQos& writer, EndpointQos& reader)>;

struct Case {
    const char* name;
    Change change;
    Policies expected;
};

const Case kCases[] = {
    {"defaults", [](EndpointQos&, EndpointQos&) {}, {}},
    {"reliability: best effort offered, reliable requested",
     [](EndpointQos& w, EndpointQos& r) {
         w.reliability = Reliability::best_effort;
         r.reliability = Reliability::reliable;
     },
     {kReliabilityPolicy}},
    {"reliability: reliable offered, best effort requested",
     [](EndpointQos& w, EndpointQos& r) {
         w.reliability = Reliability::reliable;
         r.reliability = Reliability::best_effort;
     },
     {}},
    {"durability: volatile offered, transient local requested",
     [](EndpointQos&, EndpointQos& r) { r.durability = Durability::transient_local; },
     {kDurabilityPolicy}},
    {"durability: transient offered, transient local requested",
     [](EndpointQos& w, EndpointQos& r) {
         w.durability = Durability::transient;
         r.durability = Durability::transient_local;
     },
     {}},
    {"durability: transient offered, persistent requested",
     [](EndpointQos& w, EndpointQos& r) {
         w.durability = Durability::transient;
         r.durability = Durability::persistent;
     },
     {kDurabilityPolicy}},
    {"deadline: longer offered than requested",
     [](EndpointQos& w, EndpointQos& r) {
         w.deadline = {2, 0};
         r.deadline = {1, 0xffffffff};
     },
     {kDeadlinePolicy}},
    {"deadline: infinite offered, finite requested",
     [](EndpointQos&, EndpointQos& r) {
         r.deadline = {100, 0};
     },
     {kDeadlinePolicy}},
    {"deadline: equal",
     [](EndpointQos& w, EndpointQos& r) {
         w.deadline = r.deadline = {1, 5};
     },
     {}},
    {"deadline: shorter offered",
     [](EndpointQos& w, EndpointQos&) {
         w.deadline = {1, 0};
     },
     {}},
    {"latency budget: longer offered",
     [](EndpointQos& w, EndpointQos& r) {
         w.latency_budget = {0, 2};
         r.latency_budget = {0, 1};
     },
     {kLatencyBudgetPolicy}},
    {"latency budget: infinite requested",
     [](EndpointQos& w, EndpointQos& r) {
         w.latency_budget = {1000, 0};
         r.latency_budget = kDurationInfinite;
     },
     {}},
    {"ownership: exclusive offered, shared requested",
     [](EndpointQos& w, EndpointQos&) { w.ownership = Ownership::exclusive; },
     {kOwnershipPolicy}},
    {"ownership: shared offered, exclusive requested",
     [](EndpointQos&, EndpointQos& r) { r.ownership = Ownership::exclusive; },
     {kOwnershipPolicy}},
    {"ownership: both exclusive",
     [](EndpointQos& w, EndpointQos& r) { w.ownership = r.ownership = Ownership::exclusive; },
     {}},
    {"liveliness: automatic offered, manual by topic requested",
     [](EndpointQos&, EndpointQos& r) { r.liveliness = LivelinessKind::manual_by_topic; },
     {kLivelinessPolicy}},
    {"liveliness: manual by topic offered, by participant requested",
     [](EndpointQos& w, EndpointQos& r) {
         w.liveliness = LivelinessKind::manual_by_topic;
         r.liveliness = LivelinessKind::manual_by_participant;
     },
     {}},
    {"liveliness: longer lease offered",
     [](EndpointQos& w, EndpointQos& r) {
         w.liveliness_lease = {3, 0};
         r.liveliness_lease = {2, 0};
     },
     {kLivelinessPolicy}},
    {"liveliness: shorter lease offered",
     [](EndpointQos& w, EndpointQos&) {
         w.liveliness_lease = {3, 0};
     },
     {}},
    {"destination order: by reception offered, by source requested",
     [](EndpointQos&, EndpointQos& r) { r.destination_order = DestinationOrder::by_source; },
     {kDestinationOrderPolicy}},
    {"destination order: by source offered",
     [](EndpointQos& w, EndpointQos&) { w.destination_order = DestinationOrder::by_source; },
     {}},
    {"presentation: instance offered, topic requested",
     [](EndpointQos&, EndpointQos& r) { r.presentation = PresentationScope::topic; },
     {kPresentationPolicy}},
    {"presentation: group offered, topic requested",
     [](EndpointQos& w, EndpointQos& r) {
         w.presentation = PresentationScope::group;
         r.presentation = PresentationScope::topic;
     },
     {}},
    {"presentation: coherent requested, not offered",
     [](EndpointQos&, EndpointQos& r) { r.coherent_access = true; },
     {kPresentationPolicy}},
    {"presentation: ordered requested, not offered",
     [](EndpointQos&, EndpointQos& r) { r.ordered_access = true; },
     {kPresentationPolicy}},
    {"presentation: coherent and ordered offered",
     [](EndpointQos& w, EndpointQos&) { w.coherent_access = w.ordered_access = true; },
     {}},
    {"partition: named against default",
     [](EndpointQos& w, EndpointQos&) { w.partitions = {"A"}; },
     {kPartitionPolicy}},
    {"partition: pattern against default", [](EndpointQos&, EndpointQos& r) { r.partitions = {"*"}; }, {}},
    {"representation: nothing said means XCDR1",
     [](EndpointQos&, EndpointQos& r) { r.representations = {kXcdr2}; },
     {kDataRepresentationPolicy}},
    {"representation: XCDR2 offered, nothing said by the reader",
     [](EndpointQos& w, EndpointQos&) { w.representations = {kXcdr2}; },
     {kDataRepresentationPolicy}},
    {"representation: both requested",
     [](EndpointQos& w, EndpointQos& r) {
         w.representations = {kXcdr2};
         r.representations = {kXcdr1, kXcdr2};
     },
     {}},
    {"representation: the writer's first choice counts",
     [](EndpointQos& w, EndpointQos& r) {
         w.representations = {kXcdr2, kXcdr1};
         r.representations = {kXcdr1};
     },
     {kDataRepresentationPolicy}},
    {"what does not take part in matching",
     [](EndpointQos& w, EndpointQos& r) {
         w.history = HistoryKind::keep_all;
         w.lifespan = {1, 0};
         w.ownership_strength = 7;
         w.user_data = {1};
         w.max_blocking_time = {9, 0};
         r.time_based_filter = {1, 0};
         r.history_depth = 10;
         r.topic_data = {2};
     },
     {}},
    {"several at once, in ascending order",
     [](EndpointQos& w, EndpointQos& r) {
         w.partitions = {"x"};
         r.reliability = Reliability::reliable;
         r.durability = Durability::persistent;
         r.deadline = {1, 0};
     },
     {kDurabilityPolicy, kDeadlinePolicy, kPartitionPolicy, kReliabilityPolicy}},
};

TEST(QosMatching, Table) {
    for (const Case& c : kCases) {
        EndpointQos writer;
        EndpointQos reader;
        c.change(writer, reader);
        EXPECT_EQ(incompatible_policies(writer, reader), c.expected) << c.name;
    }
}

struct PartitionCase {
    std::vector<std::string> a;
    std::vector<std::string> b;
    bool match;
};

TEST(QosMatching, Partitions) {
    const PartitionCase cases[] = {
        {{}, {}, true},
        {{""}, {}, true},
        {{"A"}, {"A"}, true},
        {{"A"}, {"B"}, false},
        {{"A"}, {"a"}, false},
        {{"A"}, {""}, false},
        {{"A", "B"}, {"C", "B"}, true},
        {{"*"}, {"A"}, true},
        {{"A"}, {"*"}, true},
        {{"*"}, {}, true},
        {{"?*"}, {}, false},
        {{"*"}, {"*"}, false}, // patterns never match patterns
        {{"A*"}, {"A*"}, false},
        {{"A*", "A1"}, {"A*"}, true}, // but a name among them does
        {{"A[1-3]"}, {"A2"}, true},
        {{"A[1-3]"}, {"A4"}, false},
        {{"sensor/?"
          "?/raw"},
         {"sensor/07/raw"},
         true},
    };
    for (const PartitionCase& c : cases) {
        EXPECT_EQ(partitions_match(c.a, c.b), c.match)
            << ::testing::PrintToString(c.a) << ::testing::PrintToString(c.b);
        EXPECT_EQ(partitions_match(c.b, c.a), c.match)
            << ::testing::PrintToString(c.b) << ::testing::PrintToString(c.a);
    }
}

struct PatternCase {
    const char* pattern;
    const char* name;
    bool match;
};

TEST(QosMatching, Patterns) {
    const PatternCase cases[] = {
        {"", "", true},
        {"", "a", false},
        {"a", "", false},
        {"abc", "abc", true},
        {"abc", "abcd", false},
        {"*", "", true},
        {"*", "anything", true},
        {"a*", "a", true},
        {"a*c", "abbbc", true},
        {"a*c", "abbbd", false},
        {"*a*b*", "xxaxxbxx", true},
        {"*a*b*", "xxbxxaxx", false},
        {"?", "", false},
        {"?", "x", true},
        {"?", "xy", false},
        {"a?c", "abc", true},
        {"[abc]", "b", true},
        {"[abc]", "d", false},
        {"[a-c]x", "bx", true},
        {"[a-c]x", "dx", false},
        {"[!a-c]", "d", true},
        {"[!a-c]", "b", false},
        {"[^a]", "b", true},
        {"[^a]", "a", false},
        {"[]a]", "]", true},
        {"[]a]", "b", false},
        {"[!]]", "a", true},
        {"[!]]", "]", false},
        {"[a-]", "-", true},
        {"[a-]", "b", false},
        {"[a", "[a", true},
        {"[a", "a", false},
        {"[", "[", true},
        {"\\*", "*", true},
        {"\\*", "x", false},
        {"\\?x", "?x", true},
        {"[\\]]", "]", true},
        {"a\\", "a\\", true},
        {"*.*", "a.b", true},
        {"*.*", "ab", false},
        {"[\x80-\xff]", "\xc3", true},
    };
    for (const PatternCase& c : cases)
        EXPECT_EQ(pattern_matches(c.pattern, c.name), c.match)
            << "'" << c.pattern << "' and '" << c.name << "'";
}

TEST(QosMatching, APatternOfManyStarsEndsSoon) {
    std::string pattern;
    for (int i = 0; i < 100; ++i)
        pattern += "*a";
    EXPECT_FALSE(pattern_matches(pattern + "b", std::string(20000, 'a')));
}

} // namespace
} // namespace meridian::rtps::test
