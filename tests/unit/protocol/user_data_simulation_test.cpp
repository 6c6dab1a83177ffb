// Samples of user writers on a bad network: reliable readers get every one exactly once and in order, whole
// ones even when they come in fragments; best-effort readers get none twice and none out of order.

#include <gtest/gtest.h>

#include <algorithm>

#include "protocol/simulated_network.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// A payload whose every byte depends on its number.
ByteBuffer payload_of(uint64_t number, size_t size) {
    ByteBuffer payload(size);
    for (size_t i = 0; i < size; ++i)
        payload[i] = static_cast<uint8_t>(number * 31 + i * 7 + (i >> 8));
    return payload;
}

class Collector final : public ReaderSink {
  public:
    std::vector<SequenceNumber> numbers;
    std::vector<ByteBuffer> payloads;
    uint64_t lost = 0;

    void on_sample(const Sample& sample) override {
        numbers.push_back(sample.sequence_number);
        payloads.emplace_back(sample.payload.begin(), sample.payload.end());
    }
    void on_lost(const Guid&, uint64_t count) override { lost += count; }
    bool strictly_ascending() const {
        return std::adjacent_find(numbers.begin(), numbers.end(), std::greater_equal<>()) == numbers.end();
    }
    bool contiguous() const {
        return numbers.empty() || (strictly_ascending() && numbers.back() - numbers.front() + 1 ==
                                                               static_cast<int64_t>(numbers.size()));
    }
};

EndpointData endpoint(const Node& node, uint32_t entity, Reliability reliability, Durability durability) {
    EndpointData data;
    data.guid = {node.participant->guid().prefix, EntityId{entity}};
    data.topic_name = "Square";
    data.type_name = "Shape";
    data.qos.reliability = reliability;
    data.qos.durability = durability;
    data.qos.history = HistoryKind::keep_all;
    return data;
}

constexpr EntityId kWriter{0x00000103};
constexpr uint32_t kReader = 0x00000204;

struct Flow {
    explicit Flow(uint64_t seed, Reliability reliability = Reliability::reliable) : network(seed) {
        for (int i = 0; i < 4; ++i)
            network.add_node();
        for (auto& node : network.nodes) {
            ParticipantConfig config = network.config(*node, 1);
            config.max_message_size = 1400;
            config.lease = {100, 0};
            node->boot(config);
        }
        writer().add_writer(
            endpoint(*network.nodes[0], kWriter.value, reliability, Durability::transient_local), {}, untold,
            network.now());
    }
    Participant& writer() { return *network.nodes[0]->participant; }
    void add_reader(size_t node, Collector& sink, Reliability reliability, Durability durability,
                    uint32_t entity = kReader) {
        network.nodes[node]->participant->add_reader(
            endpoint(*network.nodes[node], entity, reliability, durability), {}, sink, network.now());
    }
    void write(size_t size) {
        written.push_back(payload_of(written.size() + 1, size));
        WriteRequest request;
        request.payload = written.back();
        ASSERT_TRUE(writer().write(kWriter, request, network.now()));
    }
    void make_bad() {
        network.conditions.loss_percent = network.random.below(40);
        network.conditions.duplication_percent = network.random.below(30);
        network.conditions.longest_delay = milliseconds(1 + network.random.below(30));
    }
    size_t any_size() {
        if (network.random.percent(30))
            return 2000 + static_cast<size_t>(network.random.below(20000));
        return 4 * static_cast<size_t>(1 + network.random.below(100)); // submessages end on multiples of 4
    }
    /// Every delivered payload is the one that was written under its number.
    bool intact(const Collector& collector) const {
        for (size_t i = 0; i < collector.numbers.size(); ++i) {
            const auto index = static_cast<size_t>(collector.numbers[i] - 1);
            if (index >= written.size() || collector.payloads[i] != written[index])
                return false;
        }
        return true;
    }

    EndpointSink untold; // of matches
    SimulatedNetwork network;
    std::vector<ByteBuffer> written;
};

TEST(UserDataSimulation, ReliableReadersGetEverySampleOnceAndInOrder) {
    for (uint64_t seed : seeds(1, 300)) {
        SCOPED_TRACE("replay with FERRET_SIM_SEED=" + std::to_string(seed));
        Flow flow(seed);
        Collector everything;
        Collector twin;
        Collector late;
        Collector from_now_on;
        flow.make_bad();
        flow.add_reader(1, everything, Reliability::reliable, Durability::transient_local);
        flow.add_reader(1, twin, Reliability::reliable, Durability::transient_local, 0x304);
        flow.add_reader(2, from_now_on, Reliability::reliable, Durability::volatile_);
        const size_t count = 20 + flow.network.random.below(60);
        for (size_t i = 0; i < count; ++i) {
            flow.write(flow.any_size());
            if (flow.network.random.percent(40))
                flow.network.run_for(milliseconds(flow.network.random.below(200)));
            if (i == count / 2)
                flow.add_reader(3, late, Reliability::reliable, Durability::transient_local);
        }
        flow.network.run_for(seconds(10));
        flow.network.conditions = Conditions{};
        flow.network.run_for(seconds(10));

        ASSERT_FALSE(flow.network.spinning);
        for (const Collector* full : {&everything, &twin, &late}) {
            ASSERT_EQ(full->numbers.size(), flow.written.size());
            ASSERT_TRUE(full->contiguous());
            ASSERT_EQ(full->lost, 0u);
            ASSERT_TRUE(flow.intact(*full));
        }
        ASSERT_TRUE(from_now_on.contiguous());
        ASSERT_TRUE(flow.intact(from_now_on));
        if (!from_now_on.numbers.empty()) {
            ASSERT_EQ(from_now_on.numbers.back(), static_cast<SequenceNumber>(flow.written.size()));
        }
        ASSERT_TRUE(flow.writer().all_acknowledged(kWriter));
        for (const auto& node : flow.network.nodes)
            ASSERT_TRUE(node->recorder->contradictions.empty()) << node->recorder->contradictions.front();
    }
}

TEST(UserDataSimulation, BestEffortReadersGetNoSampleTwiceNorOutOfOrder) {
    size_t delivered = 0;
    uint64_t lost = 0;
    for (uint64_t seed : seeds(1, 200)) {
        SCOPED_TRACE("replay with FERRET_SIM_SEED=" + std::to_string(seed));
        Flow flow(seed, seed % 2 == 0 ? Reliability::reliable : Reliability::best_effort);
        Collector sink;
        flow.add_reader(1, sink, Reliability::best_effort, Durability::volatile_);
        flow.network.run_for(seconds(1));
        flow.make_bad();
        for (size_t i = 0; i < 60; ++i) {
            flow.write(flow.any_size());
            flow.network.run_for(milliseconds(flow.network.random.below(60)));
        }
        flow.network.run_for(seconds(10));
        ASSERT_TRUE(sink.strictly_ascending());
        ASSERT_TRUE(flow.intact(sink));
        ASSERT_FALSE(sink.numbers.empty());
        // Between the first and the last delivered one, each is delivered or counted as lost.
        ASSERT_EQ(static_cast<uint64_t>(sink.numbers.back() - sink.numbers.front() + 1),
                  sink.numbers.size() + sink.lost);
        delivered += sink.numbers.size();
        lost += sink.lost;
    }
    EXPECT_GT(delivered, lost); // fragments make large samples likely to be lost, but most come
    EXPECT_GT(lost, 0u);
}

// Timers decide when what is sent: nothing but the seed may decide about them.
TEST(UserDataSimulation, TheSameSeedGivesTheSamePackets) {
    const auto fingerprint = [](uint64_t seed) {
        Flow flow(seed);
        Collector first;
        Collector second;
        flow.make_bad();
        for (uint32_t i = 1; i <= 20; ++i) {
            flow.add_reader(1 + i % 3, first, Reliability::reliable, Durability::transient_local,
                            0x1004 + (i << 8));
            flow.add_reader(1 + i % 3, second, Reliability::best_effort, Durability::volatile_,
                            0x8004 + (i << 8));
        }
        for (int i = 0; i < 20; ++i) {
            flow.write(flow.any_size());
            flow.network.run_for(milliseconds(flow.network.random.below(100)));
        }
        flow.network.run_for(seconds(5));
        EXPECT_GT(first.numbers.size(), 0u);
        return flow.network.fingerprint;
    };
    EXPECT_EQ(fingerprint(42), fingerprint(42));
    EXPECT_NE(fingerprint(42), fingerprint(43));
}

TEST(UserDataSimulation, AGoodNetworkCarriesNoSampleTwice) {
    Flow flow(7);
    Collector sink;
    flow.add_reader(1, sink, Reliability::reliable, Durability::volatile_);
    flow.network.run_for(seconds(5));
    size_t data_bytes = 0;
    flow.network.tap = [&](size_t from, ByteView bytes, const Locator&) {
        if (from == 0)
            data_bytes += bytes.size;
    };
    for (int i = 0; i < 200; ++i) {
        flow.write(1000);
        flow.network.run_for(milliseconds(1));
    }
    EXPECT_EQ(sink.numbers.size(), 200u);
    EXPECT_LT(data_bytes, 200u * 1200u);
}

TEST(UserDataSimulation, ManyWritersThatWriteSeldomAreAcknowledgedInFewDatagrams) {
    constexpr uint32_t kWriters = 50;
    constexpr uint32_t kFirst = 0x00001003;
    Flow flow(1);
    std::vector<Collector> collectors(kWriters);
    const auto of_pair = [&](size_t node, uint32_t entity, uint32_t pair) {
        EndpointData data = endpoint(*flow.network.nodes[node], entity + (pair << 16), Reliability::reliable,
                                     Durability::transient_local);
        data.topic_name = "T" + std::to_string(pair);
        return data;
    };
    for (uint32_t i = 0; i < kWriters; ++i) {
        flow.writer().add_writer(of_pair(0, kFirst, i), {}, flow.untold, flow.network.now());
        flow.network.nodes[1]->participant->add_reader(of_pair(1, kReader, i), {}, collectors[i],
                                                       flow.network.now());
    }
    flow.network.run_for(seconds(2));
    const ByteBuffer payload(8);
    const auto write_in_turn = [&](int samples) {
        for (int sample = 0; sample < samples; ++sample) {
            WriteRequest request;
            request.payload = payload;
            flow.writer().write(EntityId{kFirst + (static_cast<uint32_t>(sample) % kWriters << 16)}, request,
                                flow.network.now());
            flow.network.run_for(milliseconds(2)); // each writer ten times a second
        }
    };
    write_in_turn(kWriters);
    size_t answers = 0;
    flow.network.tap = [&](size_t from, ByteView, const Locator& to) {
        if (from == 1 && to == flow.network.nodes[0]->user())
            ++answers;
    };
    write_in_turn(500);
    flow.network.run_for(2 * MessageBatcher::kLongestWait);
    EXPECT_LE(answers, 110u) << "a datagram in ten milliseconds, for a second";
    EXPECT_GE(answers, 90u);
    for (uint32_t i = 0; i < kWriters; ++i) {
        EXPECT_EQ(collectors[i].numbers.size(), 11u);
        EXPECT_TRUE(flow.writer().all_acknowledged(EntityId{kFirst + (i << 16)}));
    }
}

TEST(UserDataSimulation, AWriterWithoutRoomRefusesAndContinuesAfterAcknowledgement) {
    EndpointSink untold;
    SimulatedNetwork network(3);
    Node& a = network.add_node();
    Node& b = network.add_node();
    a.boot(network.config(a, 1));
    b.boot(network.config(b, 1));
    EndpointData data = endpoint(a, kWriter.value, Reliability::reliable, Durability::volatile_);
    WriterConfig limited;
    limited.max_samples = 3;
    Collector sink;
    ASSERT_TRUE(a.participant->add_writer(data, limited, untold, network.now()));
    ASSERT_TRUE(b.participant->add_reader(endpoint(b, kReader, Reliability::reliable, Durability::volatile_),
                                          {}, sink, network.now()));
    network.run_for(seconds(3));
    const ByteBuffer payload = payload_of(1, 8);
    WriteRequest request;
    request.payload = payload;
    network.conditions.loss_percent = 100;
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(a.participant->write(kWriter, request, network.now()));
    EXPECT_FALSE(a.participant->write(kWriter, request, network.now()));
    EXPECT_FALSE(a.participant->all_acknowledged(kWriter));
    network.conditions.loss_percent = 0;
    network.run_for(seconds(3));
    EXPECT_TRUE(a.participant->all_acknowledged(kWriter));
    EXPECT_TRUE(a.participant->write(kWriter, request, network.now()));
    network.run_for(seconds(1));
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{1, 2, 3, 4}));
}

/// A node that admits only participants whose "side" property has one of some values, and announces its own.
void boot_on_side(SimulatedNetwork& network, Node& node, const std::string& side,
                  const std::set<std::string>& others) {
    ParticipantConfig config = network.config(node, 1);
    config.properties = {{"side", side}};
    node.boot(std::move(config));
    node.recorder->admit = [&others](const ParticipantData& remote) {
        return std::any_of(remote.properties.begin(), remote.properties.end(),
                           [&others](const Property& property) {
                               return property.name == "side" && others.count(property.value) != 0;
                           });
    };
}

TEST(UserDataSimulation, ParticipantsThatAreNotAdmittedAreSeenButNotHeard) {
    EndpointSink untold;
    SimulatedNetwork network(4);
    Node& a = network.add_node();
    Node& b = network.add_node();
    std::set<std::string> seen_by_a{"left"};
    const std::set<std::string> seen_by_b{"left", "right"};
    boot_on_side(network, a, "left", seen_by_a);
    boot_on_side(network, b, "right", seen_by_b);
    const EndpointData writer = endpoint(b, kWriter.value, Reliability::reliable, Durability::volatile_);
    const EndpointData reader = endpoint(a, kReader, Reliability::reliable, Durability::volatile_);
    Collector sink;
    ASSERT_TRUE(
        a.participant->add_reader(reader, {}, a.recorder->sink_of(reader.guid, &sink), network.now()));
    ASSERT_TRUE(b.participant->add_writer(writer, {}, untold, network.now()));
    const ByteBuffer payload = payload_of(1, 8);
    WriteRequest request;
    request.payload = payload;
    const auto write = [&] {
        EXPECT_TRUE(b.participant->write(kWriter, request, network.now()));
        network.run_for(seconds(1));
        return sink.numbers;
    };
    using Numbers = std::vector<SequenceNumber>;
    const auto matched = [&] { return a.recorder->matches.count({reader.guid, writer.guid}) == 1; };

    network.run_for(seconds(3));
    EXPECT_EQ(a.recorder->endpoints.count(writer.guid), 1u); // announcements are heard whatever is asked
    EXPECT_EQ(b.recorder->endpoints.count(reader.guid), 0u); // and not made: its writer would wait for us
    EXPECT_FALSE(matched());
    EXPECT_EQ(write(), Numbers{});

    // Our side changes.
    seen_by_a = {"right"};
    a.participant->set_announcement("a", {{"side", "left"}}, {}, network.now());
    network.run_for(seconds(1));
    EXPECT_TRUE(matched());
    EXPECT_EQ(write(), Numbers{2});

    // The other side changes, away and back.
    b.participant->set_announcement("b", {{"side", "elsewhere"}}, {}, network.now());
    network.run_for(seconds(3));
    EXPECT_FALSE(matched());
    EXPECT_EQ(write(), Numbers{2});
    b.participant->set_announcement("b", {{"side", "right"}}, {}, network.now());
    network.run_for(seconds(3));
    EXPECT_TRUE(matched());
    EXPECT_EQ(write(), (Numbers{2, 4}));

    // Our side changes back: what was matched no longer is.
    seen_by_a.clear();
    a.participant->set_announcement("a", {{"side", "left"}}, {}, network.now());
    EXPECT_FALSE(matched());
    EXPECT_EQ(write(), (Numbers{2, 4}));
    EXPECT_TRUE(a.recorder->contradictions.empty());
    EXPECT_TRUE(b.recorder->contradictions.empty());
}

} // namespace
} // namespace meridian::rtps::test
