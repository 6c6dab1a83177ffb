// Participants on a bad network: whatever was lost, repeated, delayed or restarted, once the network is well
// again all see the same participants and endpoints.

#include <gtest/gtest.h>

#include <memory>
#include <utility>

#include "protocol/silent_reader.h"
#include "protocol/simulated_network.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// Lets publications wait for their types as chance has it.
class LateTypes final : public TypeSettler {
  public:
    explicit LateTypes(Random& random) : random_(random) {}
    Answer type_of(const RemoteEndpoint& publication, const ParticipantData&) override {
        if (random_.percent(50))
            return {TypeState::none, nullptr};
        waiting.push_back(publication.guid);
        return {TypeState::waiting, nullptr};
    }
    void participant_gone(const GuidPrefix&) override {}

    std::vector<Guid> waiting;

  private:
    Random& random_;
};

/// A node and what it has told the network about itself.
struct Actor {
    Node* node = nullptr;
    std::shared_ptr<LateTypes> types;
    uint32_t life = 1;
    uint32_t next_entity = 1;
    std::map<EntityId, EndpointData> endpoints;
};

class Storm {
  public:
    explicit Storm(uint64_t seed, bool types_come_late = false) : network(seed) {
        const size_t count = 2 + network.random.below(3);
        for (size_t i = 0; i < count; ++i) {
            Actor actor;
            actor.node = &network.add_node();
            if (types_come_late) {
                actor.types = std::make_shared<LateTypes>(network.random);
                actor.node->settler = actor.types.get();
            }
            actors.push_back(actor);
        }
        network.conditions.loss_percent = network.random.below(50);
        network.conditions.duplication_percent = network.random.below(30);
        network.conditions.longest_delay = milliseconds(1 + network.random.below(100));
        for (Actor& actor : actors)
            restart(actor, network.random.percent(50));
    }

    void restart(Actor& actor, bool new_prefix) {
        if (new_prefix) {
            ++actor.life;
        } else {
            // Packets of the life before cannot be told from those of the new one; a process takes longer to
            // start than they live.
            actor.node->crash();
            network.run_for(milliseconds(200));
        }
        actor.node->boot(network.config(*actor.node, actor.life));
        actor.endpoints.clear();
        actor.next_entity = 1;
        const uint64_t initial = network.random.below(3);
        for (uint64_t i = 0; i < initial; ++i)
            create(actor);
    }

    void create(Actor& actor) {
        EndpointData data;
        const bool writer = network.random.percent(50);
        data.guid = {actor.node->participant->guid().prefix,
                     EntityId{actor.next_entity++ << 8 | (writer ? kUserWriterWithKey : kUserReaderWithKey)}};
        data.topic_name = "topic " + std::to_string(network.random.below(3));
        data.type_name = "type";
        data.name = std::to_string(network.random.next());
        if (network.random.percent(50))
            data.qos.reliability = Reliability::reliable;
        if (network.random.percent(10))
            data.qos.user_data.assign(network.random.below(30000), 0x55); // comes in fragments
        ReaderSink& sink = actor.node->recorder->sink_of(data.guid);
        const bool added = writer ? actor.node->participant->add_writer(data, {}, sink, network.now())
                                  : actor.node->participant->add_reader(data, {}, sink, network.now());
        EXPECT_TRUE(added);
        actor.endpoints[data.guid.entity] = data;
    }

    EndpointData* any(Actor& actor) {
        if (actor.endpoints.empty())
            return nullptr;
        return &std::next(actor.endpoints.begin(),
                          static_cast<std::ptrdiff_t>(network.random.below(actor.endpoints.size())))
                    ->second;
    }

    /// Tells some of the types that are waited for, or all.
    void settle_types(uint64_t percent) {
        for (Actor& actor : actors) {
            if (actor.types == nullptr)
                continue;
            for (const Guid& publication : std::exchange(actor.types->waiting, {})) {
                if (network.random.percent(percent))
                    actor.node->participant->settle_type(publication, nullptr, network.now());
                else
                    actor.types->waiting.push_back(publication);
            }
        }
    }

    void act() {
        Actor& actor = actors[network.random.below(actors.size())];
        const uint64_t dice = network.random.below(100);
        if (dice < 40) {
            create(actor);
        } else if (dice < 60) {
            if (EndpointData* data = any(actor)) {
                data->name = std::to_string(network.random.next());
                data->qos.partitions = {network.random.percent(50) ? "*" : "elsewhere"};
                EXPECT_TRUE(actor.node->participant->update_endpoint(*data, network.now()));
            }
        } else if (dice < 80) {
            if (const EndpointData* data = any(actor)) {
                const EntityId id = data->guid.entity;
                EXPECT_TRUE(actor.node->participant->remove_endpoint(id, network.now()));
                actor.endpoints.erase(id);
            }
        } else if (dice < 84) {
            restart(actor, true);
        } else if (dice < 88) {
            restart(actor, false);
        } else if (dice < 92) {
            actor.node->participant->stop(network.now());
            restart(actor, network.random.percent(50));
        } else if (network.island.empty()) {
            network.island = {actor.node->index()};
        } else {
            network.island.clear();
        }
    }

    void run() {
        const uint64_t actions = 5 + network.random.below(40);
        for (uint64_t i = 0; i < actions; ++i) {
            act();
            network.run_for(milliseconds(network.random.below(network.random.percent(5) ? 8000 : 300)));
            settle_types(30);
        }
        network.island.clear();
        network.conditions = Conditions{};
        network.conditions.loss_percent = network.random.percent(50) ? 5 : 0;
        for (int i = 0; i < 4; ++i) {
            network.run_for(seconds(5));
            settle_types(100);
        }
    }

    /// Empty when all see each other as they are.
    std::string disagreement() const {
        if (network.spinning)
            return "a participant spins";
        for (const Actor& a : actors) {
            const Recorder& recorder = *a.node->recorder;
            if (!recorder.contradictions.empty())
                return "node " + std::to_string(a.node->index()) + ": " + recorder.contradictions.front();
            if (!recorder.warnings.empty())
                return "node " + std::to_string(a.node->index()) + " warned: " + recorder.warnings.front();
            size_t endpoint_count = 0;
            for (const Actor& b : actors) {
                if (&a == &b)
                    continue;
                const std::string pair =
                    std::to_string(a.node->index()) + " sees " + std::to_string(b.node->index()) + ": ";
                if (recorder.participants.count(b.node->participant->guid().prefix) != 1)
                    return pair + "no participant";
                endpoint_count += b.endpoints.size();
                for (const auto& entry : b.endpoints) {
                    const auto seen = recorder.endpoints.find(entry.second.guid);
                    if (seen == recorder.endpoints.end())
                        return pair + "no endpoint " + to_string(entry.second.guid);
                    const RemoteEndpoint& record = *seen->second;
                    if (record.name != entry.second.name ||
                        record.qos->partitions != entry.second.qos.partitions ||
                        record.qos->user_data != entry.second.qos.user_data)
                        return pair + "an old state of " + to_string(entry.second.guid);
                }
            }
            if (recorder.participants.size() != actors.size() - 1)
                return "node " + std::to_string(a.node->index()) + " sees participants that are gone";
            if (recorder.endpoints.size() != endpoint_count)
                return "node " + std::to_string(a.node->index()) + " sees endpoints that are gone";
        }
        return one_sided_match();
    }

    SimulatedNetwork network;
    std::vector<Actor> actors;

  private:
    /// A writer is matched with a reader exactly when the reader is matched with the writer.
    std::string one_sided_match() const {
        std::set<std::pair<Guid, Guid>> all;
        for (const Actor& actor : actors)
            all.insert(actor.node->recorder->matches.begin(), actor.node->recorder->matches.end());
        for (const auto& match : all) {
            if (all.count({match.second, match.first}) == 0)
                return "only one side matched " + to_string(match.first) + " with " + to_string(match.second);
        }
        return {};
    }
};

TEST(DiscoverySimulation, AllAgreeAfterTheStorm) {
    for (uint64_t seed : seeds(1, 1000)) {
        Storm storm(seed);
        storm.run();
        ASSERT_EQ(storm.disagreement(), "") << "replay with FERRET_SIM_SEED=" << seed;
    }
}

TEST(DiscoverySimulation, AllAgreeThoughTypesComeLate) {
    for (uint64_t seed : seeds(1, 300)) {
        Storm storm(seed, true);
        storm.run();
        ASSERT_EQ(storm.disagreement(), "") << "replay with FERRET_SIM_SEED=" << seed;
    }
}

TEST(DiscoverySimulation, CorruptPacketsDoNoHarmBeyondTheirContent) {
    for (uint64_t seed : seeds(1, 150)) {
        SCOPED_TRACE("replay with FERRET_SIM_SEED=" + std::to_string(seed));
        Storm storm(seed);
        storm.network.conditions.corruption_percent = 30;
        for (int i = 0; i < 30; ++i) {
            storm.act();
            storm.network.run_for(milliseconds(storm.network.random.below(300)));
        }
        ASSERT_FALSE(storm.network.spinning);
        // What corrupt packets made believable stays believed; new lives of all see each other.
        for (Actor& actor : storm.actors) {
            ASSERT_EQ(actor.node->recorder->contradictions, std::vector<std::string>{});
            actor.node->crash();
        }
        storm.network.conditions = Conditions{};
        storm.network.island.clear();
        storm.network.run_for(seconds(1));
        for (Actor& actor : storm.actors)
            storm.restart(actor, true);
        storm.network.run_for(seconds(10));
        ASSERT_EQ(storm.disagreement(), "");
    }
}

TEST(DiscoverySimulation, TheSameSeedGivesTheSamePackets) {
    Storm first(42);
    Storm second(42);
    Storm other(43);
    first.run();
    second.run();
    other.run();
    EXPECT_GT(first.network.packets, 100u);
    EXPECT_EQ(first.network.fingerprint, second.network.fingerprint);
    EXPECT_NE(first.network.fingerprint, other.network.fingerprint);
}

TEST(DiscoverySimulation, TwoParticipantsOnAGoodNetworkMeetWithinMilliseconds) {
    SimulatedNetwork network(1);
    Node& a = network.add_node();
    Node& b = network.add_node();
    a.boot(network.config(a, 1));
    SilentReader sink;
    EndpointData data;
    data.guid = {a.participant->guid().prefix, EntityId{0x107}};
    data.topic_name = "t";
    data.type_name = "x";
    ASSERT_TRUE(a.participant->add_reader(data, {}, sink, network.now()));
    network.run_for(seconds(30));
    b.boot(network.config(b, 1));
    network.run_for(milliseconds(5));
    EXPECT_EQ(b.recorder->participants.size(), 1u);
    EXPECT_EQ(a.recorder->participants.size(), 1u);
    EXPECT_EQ(b.recorder->endpoints.size(), 1u);
}

TEST(DiscoverySimulation, FiveHundredEndpointsAreSeenSoonAndCheaply) {
    SimulatedNetwork network(1);
    Node& a = network.add_node();
    Node& b = network.add_node();
    a.boot(network.config(a, 1));
    SilentReader sink;
    for (uint32_t i = 1; i <= 500; ++i) {
        EndpointData data;
        data.guid = {a.participant->guid().prefix, EntityId{i << 8 | kUserReaderWithKey}};
        data.topic_name = "topic " + std::to_string(i);
        data.type_name = "type";
        ASSERT_TRUE(a.participant->add_reader(data, {}, sink, network.now()));
    }
    network.run_for(seconds(30));
    const size_t before = network.packets;
    b.boot(network.config(b, 1));
    network.run_for(milliseconds(50));
    EXPECT_EQ(b.recorder->endpoints.size(), 500u);
    EXPECT_LT(network.packets - before, 60u);
}

TEST(DiscoverySimulation, AnIdleNetworkIsQuiet) {
    SimulatedNetwork network(1);
    for (int i = 0; i < 3; ++i) {
        Node& node = network.add_node();
        node.boot(network.config(node, 1));
    }
    network.run_for(seconds(10));
    const size_t before = network.packets;
    network.run_for(seconds(20));
    // Each of three announces every 2 s: once to the group and once to each of the two others.
    EXPECT_GE(network.packets - before, 3u * 3u * 9u);
    EXPECT_LE(network.packets - before, 3u * 3u * 12u);
}

TEST(DiscoverySimulation, AFarewellIsHeardAtOnceAndACrashWithinTheLease) {
    SimulatedNetwork network(1);
    Node& a = network.add_node();
    Node& b = network.add_node();
    a.boot(network.config(a, 1));
    b.boot(network.config(b, 1));
    network.run_for(seconds(1));
    b.participant->stop(network.now());
    network.run_for(milliseconds(1));
    ASSERT_EQ(a.recorder->gone.size(), 1u);
    EXPECT_EQ(a.recorder->gone[0].second, GoneReason::disposed);
    b.boot(network.config(b, 2));
    network.run_for(seconds(1));
    EXPECT_EQ(a.recorder->participants.size(), 1u);
    b.crash();
    network.run_for(milliseconds(4000));
    EXPECT_EQ(a.recorder->participants.size(), 1u);
    network.run_for(milliseconds(2600));
    ASSERT_EQ(a.recorder->gone.size(), 2u);
    EXPECT_EQ(a.recorder->gone[1].second, GoneReason::lease_expired);
}

} // namespace
} // namespace meridian::rtps::test
