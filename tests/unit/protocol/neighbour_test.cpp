// What the tool sends in a plant where many applications have many writers.

#include <gtest/gtest.h>

#include "protocol/silent_reader.h"
#include "protocol/simulated_network.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr size_t kApplications = 30;
constexpr uint32_t kWriters = 10; // of each

class Plant : public ::testing::Test {
  protected:
    Plant() : network(1) {
        for (size_t i = 0; i <= kApplications; ++i)
            network.add_node();
        for (size_t i = 1; i <= kApplications; ++i) {
            boot(i);
            for (uint32_t writer = 1; writer <= kWriters; ++writer)
                network.nodes[i]->participant->add_writer(
                    data(i, writer << 8 | 0x03, std::to_string(i) + "/" + std::to_string(writer)), {}, untold,
                    network.now());
        }
        network.run_for(seconds(5));
        network.tap = [this](size_t from, ByteView message, const Locator&) {
            if (from == 0) {
                ++datagrams;
                bytes += message.size;
            }
        };
    }
    Participant& tool() { return *network.nodes[0]->participant; }
    void boot(size_t node) {
        ParticipantConfig config = network.config(*network.nodes[node], 1);
        config.max_message_size = 65000;
        network.nodes[node]->boot(config);
    }
    EndpointData data(size_t node, uint32_t entity, const std::string& topic) {
        EndpointData result;
        result.guid = {network.nodes[node]->participant->guid().prefix, EntityId{entity}};
        result.topic_name = topic;
        result.type_name = "plant::msg::Type";
        result.qos.reliability = Reliability::reliable;
        return result;
    }
    /// Time in which a reader is made for each new topic, as the tool does it.
    void read_all_for(Duration duration) {
        for (Duration passed{0}; passed < duration; passed += milliseconds(5)) {
            network.run_for(milliseconds(5));
            std::vector<std::string> topics;
            for (const auto& [guid, remote] : network.nodes[0]->recorder->endpoints) {
                if (guid.entity.is_writer() && topics_.insert(remote->topic_name).second)
                    topics.push_back(remote->topic_name);
            }
            for (const std::string& topic : topics) {
                const auto number = static_cast<uint32_t>(++readers);
                tool().add_reader(data(0, number << 8 | 0x04, topic), {}, sink, network.now());
            }
        }
    }
    void forget_what_was_sent() { datagrams = bytes = 0; }

    SimulatedNetwork network;
    size_t datagrams = 0;
    size_t bytes = 0;
    size_t readers = 0;
    EndpointSink untold;
    SilentReader sink;

  private:
    std::set<std::string> topics_;
};

// Each reader is told to each application. With 100 of them 54,000 datagrams at the start and 102,000 at the
// end were seen.
TEST_F(Plant, IsToldOfManyReadersInFewDatagrams) {
    boot(0);
    read_all_for(seconds(2));
    ASSERT_EQ(readers, kApplications * kWriters);
    EXPECT_LT(datagrams, 40 * kApplications);
    network.run_for(seconds(10));
    forget_what_was_sent();
    network.run_for(seconds(60));
    EXPECT_LT(datagrams, 60 * kApplications) << "an idle second";
    EXPECT_LT(bytes, 60 * 300 * kApplications);
    forget_what_was_sent();
    for (uint32_t number = 1; number <= readers; ++number)
        tool().remove_endpoint(EntityId{number << 8 | 0x04}, network.now());
    network.run_for(seconds(1));
    EXPECT_LT(datagrams, 10 * kApplications);
    for (size_t i = 1; i <= kApplications; ++i)
        EXPECT_EQ(network.nodes[i]->recorder->contradictions, std::vector<std::string>{});
    std::set<Guid> left;
    for (const auto& [guid, remote] : network.nodes[1]->recorder->endpoints) {
        if (guid.prefix == tool().guid().prefix)
            left.insert(guid);
    }
    EXPECT_TRUE(left.empty());
}

} // namespace
} // namespace meridian::rtps::test
