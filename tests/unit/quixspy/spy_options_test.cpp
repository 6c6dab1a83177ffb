// The spy's options: what each stores, and the limits that no command line can reach.

#include <gtest/gtest.h>

#include <cmath>

#include "quixspy/quixSpyAgent.h"
#include "support/test_output.h"
#include "support/verbosity_guard.h"

namespace {

/// Parses a whole command line; the result of the option that ended it, or 1.
int parse(QuixSpyAgent& agent, std::vector<const char*> arguments, std::string* printed = nullptr) {
    arguments.insert(arguments.begin(), "title");
    int result = 1;
    const std::string text = printed_by([&] {
        for (int index = 1; index < static_cast<int>(arguments.size()) && result == 1; ++index)
            result = agent.parse_argument(&index, arguments.data(), static_cast<int>(arguments.size()));
    });
    if (printed != nullptr)
        *printed = text;
    return result;
}

} // namespace

TEST(SpyOptions, HaveTheirDefaults) {
    const QuixSpyAgent agent("Spy", test_output());
    EXPECT_EQ(agent.domainId, 0);
    EXPECT_EQ(agent._topicRegexCount, 0);
    EXPECT_EQ(agent._typeRegexCount, 0);
    EXPECT_EQ(agent._timeFilter, 0.0F);
    EXPECT_EQ(agent._deadline, -1.0F);
    EXPECT_EQ(agent._historyDepth, 8192);
    EXPECT_EQ(agent._maxSizeSerialized, 0xffffffffU);
    EXPECT_FALSE(agent._useFirstPublicationQos);
    EXPECT_FALSE(agent._discoveryPluginsSet);
    EXPECT_EQ(agent._discoveryPluginKind, 3);
    EXPECT_FALSE(agent._showHandle);
    EXPECT_EQ(agent._printSample, PRINT_SAMPLE_NONE);
    EXPECT_TRUE(agent._useDynamicData);
    EXPECT_EQ(agent._typeWidth, 50);
    EXPECT_EQ(agent._topicWidth, 50);
    EXPECT_EQ(agent._timeout, 0);
    EXPECT_TRUE(agent._printUserData);
    EXPECT_TRUE(agent._printDiscovery);
    EXPECT_FALSE(agent._showEntityName);
    EXPECT_FALSE(agent._showPartition);
    EXPECT_FALSE(agent._quietStart);
}

TEST(SpyOptions, StoreEverything) {
    QuixSpyAgent agent("Spy", test_output());
    EXPECT_EQ(parse(agent, {"-topicRegex",
                            "a*",
                            "-topicRegex",
                            "b",
                            "-typeRegex",
                            "c",
                            "-timeFilter",
                            "0.5",
                            "-deadline",
                            "2.5",
                            "-discoveryPlugins",
                            "sdp2",
                            "-history",
                            "0x20",
                            "-useFirstPublicationQos",
                            "-maxSizeSerialized",
                            "4294967295",
                            "-showHandle",
                            "-showSampleIdentity",
                            "-showSampleFlags",
                            "-typeWidth",
                            "20",
                            "-topicWidth",
                            "0x20"}),
              1);
    EXPECT_EQ(
        parse(agent, {"-use43LargeDataFormat", "-use510CompatibleLocatorKinds", "-noDynamicData", "-timeout",
                      "7", "-participantPartition", "P", "-subscriberPartition", "S", "-subscriberPartition",
                      "T", "-showEntityName", "-showPartition", "-domainId", "4"}),
        1);
    ASSERT_EQ(agent._topicRegexCount, 2);
    EXPECT_STREQ(agent._topicRegex[0], "a*");
    EXPECT_STREQ(agent._topicRegex[1], "b");
    ASSERT_EQ(agent._typeRegexCount, 1);
    EXPECT_STREQ(agent._typeRegex[0], "c");
    EXPECT_EQ(agent._timeFilter, 0.5F);
    EXPECT_EQ(agent._deadline, 2.5F);
    EXPECT_TRUE(agent._discoveryPluginsSet);
    EXPECT_EQ(agent._discoveryPluginKind, 18);
    EXPECT_EQ(agent._historyDepth, 32);
    EXPECT_TRUE(agent._useFirstPublicationQos);
    EXPECT_EQ(agent._maxSizeSerialized, 4294967295U);
    EXPECT_TRUE(agent._showHandle);
    EXPECT_TRUE(agent._showSampleIdentity);
    EXPECT_TRUE(agent._showSampleFlags);
    EXPECT_EQ(agent._typeWidth, 20);
    EXPECT_EQ(agent._topicWidth, 32);
    EXPECT_TRUE(agent.use43LargeDataFormat);
    EXPECT_TRUE(agent.use510CompatibleLocatorKinds);
    EXPECT_FALSE(agent._useDynamicData);
    EXPECT_EQ(agent._timeout, 7);
    ASSERT_EQ(agent._participantPartitionCount, 1);
    EXPECT_STREQ(agent._participantPartitions[0], "P");
    ASSERT_EQ(agent._subscriberPartitionCount, 2);
    EXPECT_STREQ(agent._subscriberPartitions[1], "T");
    EXPECT_TRUE(agent._showEntityName);
    EXPECT_TRUE(agent._showPartition);
    EXPECT_EQ(agent.domainId, 4) << "an option of the frame";
}

TEST(SpyOptions, ClampWidthsWithoutAWord) {
    for (const auto& [value, expected] :
         std::vector<std::pair<const char*, int>>{{"0", 1},
                                                  {"-5", 1},
                                                  {"wide", 1},
                                                  {"1", 1},
                                                  {"255", 255},
                                                  {"256", 255},
                                                  {"300", 255},
                                                  {"99999999999999999999", 255}}) {
        QuixSpyAgent agent("Spy", test_output());
        std::string printed;
        EXPECT_EQ(parse(agent, {"-typeWidth", value, "-topicWidth", value}, &printed), 1);
        EXPECT_EQ(agent._typeWidth, expected) << value;
        EXPECT_EQ(agent._topicWidth, expected) << value;
        EXPECT_EQ(printed, "");
    }
}

TEST(SpyOptions, PrintSampleTakesOnlyItsOwnWords) {
    for (const char* const word : {"compact", "COMPACT", "Compact"}) {
        QuixSpyAgent agent("Spy", test_output());
        EXPECT_EQ(parse(agent, {"-printSample", word, "-showHandle"}), 1);
        EXPECT_EQ(agent._printSample, PRINT_SAMPLE_COMPACT);
        EXPECT_TRUE(agent._showHandle);
    }
    {
        QuixSpyAgent agent("Spy", test_output());
        EXPECT_EQ(parse(agent, {"-printSample", "-showHandle"}), 1);
        EXPECT_EQ(agent._printSample, PRINT_SAMPLE_PLAIN);
        EXPECT_TRUE(agent._showHandle) << "parsed as an option of its own";
    }
    {
        QuixSpyAgent agent("Spy", test_output());
        EXPECT_EQ(parse(agent, {"-showHandle", "-printSample"}), 1);
        EXPECT_EQ(agent._printSample, PRINT_SAMPLE_PLAIN);
    }
    {
        QuixSpyAgent agent("Spy", test_output());
        EXPECT_EQ(parse(agent, {"-printSample", "json"}), 2);
        EXPECT_EQ(agent._printSample, PRINT_SAMPLE_PLAIN);
    }
}

TEST(SpyOptions, ModesSwitchSeveralSettings) {
    QuixSpyAgent agent("Spy", test_output());
    EXPECT_EQ(parse(agent, {"-mode", "disc"}), 1);
    EXPECT_TRUE(agent._printDiscovery);
    EXPECT_FALSE(agent._printUserData);
    EXPECT_TRUE(agent._showHandle);
    EXPECT_TRUE(agent._showEntityName);
    EXPECT_TRUE(agent._showPartition);
    EXPECT_EQ(agent._printSample, PRINT_SAMPLE_NONE);

    EXPECT_EQ(parse(agent, {"-mode", "USER"}), 1);
    EXPECT_FALSE(agent._printDiscovery);
    EXPECT_TRUE(agent._printUserData);
    EXPECT_EQ(agent._printSample, PRINT_SAMPLE_PLAIN);
    EXPECT_TRUE(agent._showHandle);
    EXPECT_TRUE(agent._showEntityName);
    EXPECT_TRUE(agent._showPartition);
}

TEST(SpyOptions, StoreWhatTheyReject) {
    QuixSpyAgent agent("Spy", test_output());
    EXPECT_EQ(parse(agent, {"-timeFilter", "-2"}), 0);
    EXPECT_EQ(agent._timeFilter, -2.0F);
    EXPECT_EQ(parse(agent, {"-deadline", "3x"}), 0);
    EXPECT_EQ(agent._deadline, 3.0F);
    EXPECT_EQ(parse(agent, {"-deadline", "nan"}), 0);
    EXPECT_EQ(parse(agent, {"-history", "-9"}), 0);
    EXPECT_EQ(agent._historyDepth, -9);
    EXPECT_EQ(parse(agent, {"-timeout", "-1"}), 0);
    EXPECT_EQ(agent._timeout, -1);
    EXPECT_EQ(parse(agent, {"-discoveryPlugins", "SPDP2"}), 0);
    EXPECT_TRUE(agent._discoveryPluginsSet);
    EXPECT_EQ(agent._discoveryPluginKind, 3);
}

TEST(SpyOptions, HoldFiveHundredAndTwelvePatternsEach) {
    for (const char* const option : {"-topicRegex", "-typeRegex"}) {
        QuixSpyAgent agent("Spy", test_output());
        for (int i = 0; i < 512; ++i)
            ASSERT_EQ(parse(agent, {option, std::to_string(i).c_str()}), 1) << i;
        std::string printed;
        EXPECT_EQ(parse(agent, {option, "x"}, &printed), 0);
        EXPECT_EQ(printed, "Number of topics exceeded. Maximum is 512\n");
        EXPECT_EQ(agent._topicRegexCount + agent._typeRegexCount, 512);
        const VerbosityGuard silent(0);
        EXPECT_EQ(parse(agent, {option, "x"}, &printed), 0);
        EXPECT_EQ(printed, "");
    }
}

TEST(SpyOptions, HoldTwoHundredAndFiftySixPartitionsEach) {
    for (const char* const option : {"-participantPartition", "-subscriberPartition"}) {
        QuixSpyAgent agent("Spy", test_output());
        for (int i = 0; i < 256; ++i)
            ASSERT_EQ(parse(agent, {option, std::to_string(i).c_str()}), 1) << i;
        std::string printed;
        EXPECT_EQ(parse(agent, {option, "x"}, &printed), 0);
        EXPECT_EQ(printed, "Number of partitions exceeded. Maximum is 1024\n");
        EXPECT_EQ(agent._participantPartitionCount + agent._subscriberPartitionCount, 256);
    }
}

TEST(SpyOptions, TakeADashForAForgottenPartition) {
    QuixSpyAgent agent("Spy", test_output());
    const char* arguments[] = {"title", "-participantPartition", "-showHandle"};
    int index = 1;
    int result = -1;
    EXPECT_EQ(printed_by([&] { result = agent.parse_argument(&index, arguments, 3); }),
              "Missing or invalid partition '-showHandle' following the -participantPartition option\n");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(index, 1);
}

TEST(SpyOptions, StopForTheHelpOnOutput) {
    struct HelpAgent : QuixSpyAgent {
        HelpAgent() : QuixSpyAgent("Spy", test_output()) {}
        void print_help_output() override { asked = true; }
        bool asked = false;
    };
    HelpAgent agent;
    EXPECT_EQ(parse(agent, {"-hOutput"}), 3);
    EXPECT_TRUE(agent.asked);
}

TEST(Consistency, CompactNeedsDynamicData) {
    QuixSpyAgent agent("Spy", test_output());
    bool consistent = false;
    const auto check = [&] { consistent = agent.check_arguments_consistency(); };
    for (const PrintSample kind : {PRINT_SAMPLE_NONE, PRINT_SAMPLE_PLAIN, PRINT_SAMPLE_COMPACT}) {
        for (const bool dynamic : {true, false}) {
            agent._printSample = kind;
            agent._useDynamicData = dynamic;
            const bool expected = kind != PRINT_SAMPLE_COMPACT || dynamic;
            EXPECT_EQ(printed_by(check),
                      expected ? ""
                               : "Cannot use '-printSample COMPACT' and '-noDynamicData' at the same time.\n"
                                 "'-printSample COMPACT' is only available with dynamic data.\n");
            EXPECT_EQ(consistent, expected);
        }
    }
    const VerbosityGuard silent(0);
    EXPECT_EQ(printed_by(check), "");
    EXPECT_FALSE(consistent);
}
