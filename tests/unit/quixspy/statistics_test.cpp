// The statistics, and the flag that stops the loop.

#include <gtest/gtest.h>

#include <csignal>

#include "quixspy/fixture.h"
#include "quixspy/quixSpyDataListener.h"
#include "support/test_output.h"

namespace {

/// An agent whose nodes live on the test's stack: they leave the list before the agent would free them.
class StatisticsAgent : public QuixSpyAgent {
  public:
    StatisticsAgent() : QuixSpyAgent("Spy", test_output()) {}
    ~StatisticsAgent() override { _participantList = {}; }

    std::string statistics() {
        return printed_by([&] { print_statistics(); });
    }
};

} // namespace

TEST(Statistics, WithoutAnything) {
    StatisticsAgent agent;
    EXPECT_EQ(agent.statistics(), "\n\n---- Statistics ----\n\n\n");
}

TEST(Statistics, WithDiscoveryOnly) {
    StatisticsAgent agent;
    agent._discoveryListener = new QuixSpyDiscoveryListener(&agent, nullptr, nullptr, false, false, false, 50,
                                                            50, PRINT_SAMPLE_NONE, false);
    agent._discoveryListener->discoveredWriters = 3;
    agent._discoveryListener->discoveredReaders = 4294967295U;
    QuixSpyParticipantListNode participant{};
    agent._participantList.append(&participant);
    EXPECT_EQ(agent.statistics(),
              "\n\n---- Statistics ----\nDiscovered 3 DataWriters and 4294967295 DataReaders\n\n\n");
}

TEST(Statistics, WithTopics) {
    StatisticsAgent agent;
    QuixSpyParticipantListNode first{};
    QuixSpyParticipantListNode empty{};
    QuixSpyParticipantListNode last{};
    for (QuixSpyParticipantListNode* const node : {&first, &empty, &last})
        agent._participantList.append(node);
    QuixSpyDataListenerSettings settings;
    settings.output = &test_output();
    QuixSpyDataListener circle("Circle", "ShapeType", nullptr, settings);
    circle.dataSampleCount = 18446744073709551615U;
    circle.disposeSampleCount = 2;
    circle.noWritersSampleCount = 1;
    QuixSpyDataListener square("Square", "ShapeType", nullptr, settings);
    QuixSpyDataListenerNode nodes[3]{};
    nodes[0].listener = &circle;
    nodes[2].listener = &square;
    first.dataListeners.append(&nodes[0]);
    first.dataListeners.append(&nodes[1]); // one whose listener could not be made
    last.dataListeners.append(&nodes[2]);
    EXPECT_EQ(agent.statistics(),
              "\n\n---- Statistics ----\n"
              "Received samples (Data, Dispose, NoWriters):\n"
              "\t18446744073709551615, 2, 1 \t(Topic=\"Circle\"  Type=\"ShapeType\")\n"
              "Received samples (Data, Dispose, NoWriters):\n"
              "\t0, 0, 0 \t(Topic=\"Square\"  Type=\"ShapeType\")\n"
              "\n\n");
}

TEST(Interrupt, IsOnlyAFlag) {
    QUIXSPY_INTERRUPTED = false;
    void (*const before)(int) = std::signal(SIGINT, stopHandler);
    std::raise(SIGINT);
    std::signal(SIGINT, before);
    EXPECT_TRUE(QUIXSPY_INTERRUPTED);
    QUIXSPY_INTERRUPTED = false;
}
