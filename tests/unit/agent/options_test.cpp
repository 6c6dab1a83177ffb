// The options of the frame: what each stores, and the limits that no command line can reach.

#include <gtest/gtest.h>

#include "agent/fake_agent.h"
#include "support/test_output.h"

namespace {

struct Parsed {
    int result;
    int index;
    std::string printed;
};

Parsed parse(QuixAgent& agent, std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "title");
    Parsed parsed{-1, 1, ""};
    parsed.printed = printed_by([&] {
        parsed.result = agent.QuixAgent::parse_argument(&parsed.index, arguments.data(),
                                                        static_cast<int>(arguments.size()));
    });
    return parsed;
}

} // namespace

TEST(TryParse, ComparesOverTheLengthOfTheArgument) {
    const auto matches = [](const char* argument) {
        int index = 0;
        return QuixAgent::tryParseArgument(test_output(), &index, &argument, 1, "-domainId", nullptr, nullptr,
                                           false) == 1;
    };
    EXPECT_TRUE(matches("-domainId"));
    EXPECT_TRUE(matches("-DOMAINID"));
    EXPECT_TRUE(matches("-d"));
    EXPECT_TRUE(matches("-"));
    EXPECT_TRUE(matches(""));
    EXPECT_FALSE(matches("-domainIds"));
    EXPECT_FALSE(matches("domainId"));
    EXPECT_FALSE(matches("-domaimId"));
}

TEST(TryParse, KeepsTheTextItself) {
    const char* const argv[] = {"-x", "value"};
    int index = 0;
    const char* text = nullptr;
    EXPECT_EQ(QuixAgent::tryParseArgument(test_output(), &index, const_cast<const char**>(argv), 2, "-x",
                                          &text, nullptr, false),
              1);
    EXPECT_EQ(text, argv[1]);
    EXPECT_EQ(index, 1);
}

TEST(TryParse, LeavesTheOutputOfAnOptionalValueThatIsMissing) {
    const char* argv[] = {"-x"};
    int index = 0;
    const char* text = "before";
    EXPECT_EQ(QuixAgent::tryParseArgument(test_output(), &index, argv, 1, "-xyz", &text, nullptr, true), 1);
    EXPECT_STREQ(text, "before");
    int result = -1;
    EXPECT_EQ(printed_by([&] {
                  result = QuixAgent::tryParseArgument(test_output(), &index, argv, 1, "-xyz", &text, nullptr,
                                                       false);
              }),
              "Missing value for argument '-xyz'\n");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(index, 0);
}

TEST(TryParse, StoresNumbersAsTheyAreRead) {
    const auto number = [](const char* text, int& value) {
        const char* argv[] = {"-x", text};
        int index = 0;
        int result = -1;
        printed_by([&] {
            result =
                QuixAgent::tryParseArgument(test_output(), &index, argv, 2, "-x", nullptr, &value, false);
        });
        return result;
    };
    int value = 5;
    EXPECT_EQ(number("12", value), 1);
    EXPECT_EQ(value, 12);
    EXPECT_EQ(number("-7", value), 1);
    EXPECT_EQ(value, -7);
    EXPECT_EQ(number("", value), 1);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(number("34x", value), 0);
    EXPECT_EQ(value, 34);
    EXPECT_EQ(number("0x10", value), 0) << "decimal only";
    EXPECT_EQ(value, 0);
    EXPECT_EQ(number("4294967301", value), 1) << "cut to 32 bits";
    EXPECT_EQ(value, 5);
    EXPECT_EQ(number("99999999999999999999", value), 1) << "the largest long, cut to 32 bits";
    EXPECT_EQ(value, -1);
}

TEST(ParseArgument, RefusesAnIndexBeyondTheEnd) {
    FakeAgent agent;
    const char* argv[] = {"title"};
    int index = 1;
    EXPECT_EQ(agent.QuixAgent::parse_argument(&index, argv, 1), 0);
}

TEST(ParseArgument, StoresEverything) {
    FakeAgent agent;
    for (const auto& arguments : std::vector<std::vector<const char*>>{{"-qosFile", "f.xml"},
                                                                       {"-qosProfile", "My.Lib::My_Profile1"},
                                                                       {"-domainId", "5"},
                                                                       {"-domainTag", "tag"},
                                                                       {"-index", "50"},
                                                                       {"-appId", "77"},
                                                                       {"-verbosity", "3"},
                                                                       {"-LogFormat", "99999"},
                                                                       {"-discoveryTTL", "255"},
                                                                       {"-peer", "host"},
                                                                       {"-transport", "9"},
                                                                       {"-msgMaxSize", "0"},
                                                                       {"-shmRcvSize", "1000"},
                                                                       {"-tcMaxSize", "1"}}) {
        const Parsed parsed = parse(agent, arguments);
        EXPECT_EQ(parsed.result, 1) << arguments[0];
        EXPECT_EQ(parsed.index, 2) << arguments[0];
        EXPECT_EQ(parsed.printed, "") << arguments[0];
    }
    EXPECT_STREQ(agent.qosFile, "f.xml");
    EXPECT_STREQ(agent.qosProfile, "My.Lib::My_Profile1");
    EXPECT_STREQ(agent.qosLibraryName, "My.Lib");
    EXPECT_STREQ(agent.qosProfileName, "My_Profile1");
    EXPECT_EQ(agent.domainId, 5);
    EXPECT_STREQ(agent.domainTag, "tag");
    EXPECT_EQ(agent.participantIndex, 50);
    EXPECT_EQ(agent.appId, 77U);
    EXPECT_EQ(agent.verbosity, 3);
    EXPECT_EQ(agent.logFormat, 99999);
    EXPECT_EQ(agent.discoveryTTL, 255);
    ASSERT_EQ(agent.peerCount, 1);
    EXPECT_STREQ(agent.peerList[0], "host");
    EXPECT_EQ(agent.transportMask, 9);
    EXPECT_EQ(agent.msgMaxSize, 0);
    EXPECT_EQ(agent.shmRcvSize, 1000);
    EXPECT_EQ(agent.tcMaxSize, 1);
}

TEST(ParseArgument, LetsTheLastOneWin) {
    FakeAgent agent;
    parse(agent, {"-qosFile", "a"});
    parse(agent, {"-qosFile", "b"});
    parse(agent, {"-domainTag", "a"});
    parse(agent, {"-domainTag", "b"});
    parse(agent, {"-qosProfile", "A::B"});
    parse(agent, {"-qosProfile", "C::D"});
    EXPECT_STREQ(agent.qosFile, "b");
    EXPECT_STREQ(agent.domainTag, "b");
    EXPECT_STREQ(agent.qosProfile, "C::D");
    EXPECT_STREQ(agent.qosLibraryName, "C");
    EXPECT_STREQ(agent.qosProfileName, "D");
}

TEST(ParseArgument, KeepsWhatWasStoredBeforeARejection) {
    FakeAgent agent;
    EXPECT_EQ(parse(agent, {"-domainId", "9z"}).result, 0);
    EXPECT_EQ(agent.domainId, 9);
    EXPECT_EQ(parse(agent, {"-qosProfile", "A::B"}).result, 1);
    EXPECT_EQ(parse(agent, {"-qosProfile", "A-::B"}).result, 0);
    EXPECT_STREQ(agent.qosProfile, "A::B");
}

TEST(ParseArgument, ClampsTheVerbosity) {
    FakeAgent agent;
    const Parsed parsed = parse(agent, {"-verbosity", "9"});
    EXPECT_EQ(parsed.result, 1);
    EXPECT_EQ(parsed.printed, "Verbosity value: 9 exceeds maximum of 5. Using the maximum value\n");
    EXPECT_EQ(agent.verbosity, 5);
}

TEST(ParseArgument, HoldsAThousandAndTwentyFourPeers) {
    FakeAgent agent;
    for (int i = 0; i < 1024; ++i)
        ASSERT_EQ(parse(agent, {"-peer", std::to_string(i).c_str()}).result, 1) << i;
    EXPECT_STREQ(agent.peerList[1023], "1023");
    const Parsed parsed = parse(agent, {"-peer", "one more"});
    EXPECT_EQ(parsed.result, 0);
    EXPECT_EQ(parsed.printed, "Number of peers exceeded. Maximum is 1024\n");
    EXPECT_EQ(parsed.index, 2);
    EXPECT_EQ(agent.peerCount, 1024);
}

TEST(ParseArgument, TakesADashForAForgottenPeer) {
    FakeAgent agent;
    const Parsed parsed = parse(agent, {"-PEER", "-x"});
    EXPECT_EQ(parsed.result, 0);
    EXPECT_EQ(parsed.index, 1);
    EXPECT_EQ(parsed.printed, "Missing or invalid peer '-x' following the -PEER option\n");
    EXPECT_EQ(agent.peerCount, 0);
}

TEST(ParseArgument, LimitsTheProfileNameTo512Characters) {
    FakeAgent agent;
    const std::string longest = "L::" + std::string(509, 'p');
    EXPECT_EQ(parse(agent, {"-qosProfile", longest.c_str()}).result, 1);
    const std::string longer = longest + "p";
    const Parsed parsed = parse(agent, {"-qosProfile", longer.c_str()});
    EXPECT_EQ(parsed.result, 0);
    EXPECT_EQ(parsed.printed, "The QoS Profile name cannot be longer than 512 characters. " + longer +
                                  " is 513 characters.\n");
    EXPECT_EQ(agent.qosProfile, longest);
}

TEST(CheckRegex, AllowsLettersDigitsDotsAndUnderscores) {
    EXPECT_TRUE(checkRegex("aZ09._"));
    EXPECT_FALSE(checkRegex(""));
    for (int character = 1; character < 256; ++character) {
        const char c = static_cast<char>(character);
        const bool allowed = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                             c == '.' || c == '_';
        EXPECT_EQ(checkRegex(std::string("a") + c), allowed) << character;
    }
}

TEST(ConvertFromFloat, SplitsSecondsAndNanoseconds) {
    DDS_Duration_t duration{};
    QuixAgent::convertFromFloat(duration, 2.5F);
    EXPECT_EQ(duration.sec, 2);
    EXPECT_EQ(duration.nanosec, 500000000U);
    QuixAgent::convertFromFloat(duration, 0.0F);
    EXPECT_TRUE(duration == DDS_DURATION_ZERO);
    QuixAgent::convertFromFloat(duration, 3e9F);
    EXPECT_TRUE(duration == DDS_DURATION_INFINITE);
    QuixAgent::convertFromFloat(duration, -1.0F);
    EXPECT_TRUE(duration == DDS_DURATION_ZERO);
}

TEST(Usage, CutsWhatDoesNotFit) {
    FakeAgent agent;
    EXPECT_EQ(printed_by([&] { agent.printOption("name", "what", "value", "default 1"); }),
              "    -name  <value>                  - what (default 1)\n");
    EXPECT_EQ(printed_by([&] { agent.printOption("name", "what", nullptr, nullptr); }),
              "    -name                           - what    \n");
    EXPECT_EQ(printed_by([&] {
                  agent.printOption(std::string(40, 'n').c_str(), "what", std::string(40, 'v').c_str(),
                                    nullptr);
              }),
              "    -" + std::string(27, 'n') + "    - what    \n");
    EXPECT_EQ(printed_by([&] { agent.printOption("n", "what", std::string(40, 'v').c_str(), nullptr); }),
              "    -n  <" + std::string(16, 'v') + ">          - what    \n");
    EXPECT_EQ(printed_by([&] { agent.addToOption("more"); }), std::string(38, ' ') + "more\n");
}

TEST(Summary, CallsAVerbosityThatDoesNotExistUnknown) {
    FakeAgent agent;
    const int32_t saved = theVerbosity;
    theVerbosity = 6;
    const std::string text = printed_by([&] { agent.QuixAgent::print_command_summary(); });
    theVerbosity = saved;
    EXPECT_NE(text.find("    Verbosity..............: Unknown\n"), std::string::npos);
}
