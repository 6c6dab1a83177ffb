// The main sequence: header, parse loop, logger, summary, run.

#include <gtest/gtest.h>

#include <climits>

#include "agent/fake_agent.h"
#include "meridian/logger.h"
#include "meridian/version.h"
#include "support/output_file.h"
#include "support/test_output.h"
#include "support/verbosity_guard.h"

namespace {

using Calls = std::vector<std::string>;

std::string header(const std::string& title) {
    const QUIXConfigProductVersion version = QUIXConfigVersion::get_instance().get_product_version();
    std::string text = "\n" + title + " built with DDS version: " + std::to_string(version.major) + "." +
                       std::to_string(version.minor) + "." + std::to_string(version.release);
    if (version.revision != 0)
        text += "." + std::to_string(version.revision);
    return text + "\n" + std::string(42, '~') + "\n";
}

/// What is printed after the header.
std::string execute(FakeAgent& agent, std::vector<const char*> arguments, bool& result) {
    arguments.insert(arguments.begin(), "program");
    const std::string text =
        printed_by([&] { result = agent.execute(static_cast<int>(arguments.size()), arguments.data()); });
    const std::string expected = header(agent.title);
    EXPECT_EQ(text.substr(0, expected.size()), expected);
    return text.size() > expected.size() ? text.substr(expected.size()) : "";
}

} // namespace

TEST(Frame, StartsWithItsDefaults) {
    const FakeAgent agent("Fake", 3);
    EXPECT_STREQ(agent.title, "Fake");
    EXPECT_EQ(agent.verbosity, 1);
    EXPECT_EQ(agent.logFormat, 0x3412);
    EXPECT_EQ(agent.domainId, 3);
    EXPECT_EQ(agent.domainTag, nullptr);
    EXPECT_EQ(agent.participantIndex, -1);
    EXPECT_EQ(agent.appId, 0U);
    EXPECT_EQ(agent.peerCount, 0);
    EXPECT_EQ(agent.discoveryTTL, -1);
    EXPECT_EQ(agent.transportMask, 3);
    EXPECT_EQ(agent.msgMaxSize, -1);
    EXPECT_EQ(agent.shmRcvSize, -1);
    EXPECT_EQ(agent.tcMaxSize, 4096);
    EXPECT_FALSE(agent.use43LargeDataFormat);
    EXPECT_FALSE(agent.use510CompatibleLocatorKinds);
    EXPECT_EQ(agent.qosFile, nullptr);
    EXPECT_EQ(agent.qosProfile, nullptr);
    EXPECT_EQ(agent.lastRetcode, 0);
    EXPECT_EQ(theVerbosity, 1);
}

TEST(Frame, CutsItsTitle) {
    const FakeAgent agent(std::string(100, 't').c_str());
    EXPECT_EQ(std::string(agent.title), std::string(63, 't'));
}

TEST(Frame, RunsWithoutOptions) {
    const VerbosityGuard guard(1);
    FakeAgent agent;
    bool result = false;
    EXPECT_EQ(execute(agent, {}, result), "");
    EXPECT_TRUE(result);
    EXPECT_EQ(agent.calls, Calls{"run"});
    EXPECT_TRUE(agent.seen.empty());
}

TEST(Frame, GivesTheResultOfTheRun) {
    const VerbosityGuard guard(1);
    FakeAgent agent;
    agent.run_result = false;
    bool result = true;
    execute(agent, {}, result);
    EXPECT_FALSE(result);
}

TEST(Frame, StopsAtAnUnknownArgument) {
    FakeAgent agent;
    agent.results = {{"good", 1}, {"bad", 2}};
    bool result = true;
    EXPECT_EQ(execute(agent, {"good", "bad", "good"}, result), "Fake: Unrecognized parameter 'bad'\n");
    EXPECT_FALSE(result);
    EXPECT_TRUE(agent.calls.empty());
    EXPECT_EQ(agent.seen, (Calls{"good", "bad"}));
}

TEST(Frame, NamesTheArgumentAtWhichTheParserStopped) {
    FakeAgent agent;
    agent.results = {{"takes-value", 0}};
    bool result = true;
    EXPECT_EQ(execute(agent, {"takes-value", "7"}, result), "Fake: Error in parameter '7'\n");
    EXPECT_FALSE(result);
}

TEST(Frame, IsSilentBelowVerbosityOne) {
    const VerbosityGuard guard(0);
    FakeAgent agent;
    agent.results = {{"error", 0}, {"unknown", 2}};
    bool result = true;
    EXPECT_EQ(execute(agent, {"error"}, result), "");
    EXPECT_EQ(execute(agent, {"unknown"}, result), "");
    EXPECT_FALSE(result);
}

TEST(Frame, StopsWithoutRunning) {
    FakeAgent agent;
    agent.results = {{"stop", 3}};
    bool result = true;
    EXPECT_EQ(execute(agent, {"stop", "never-seen"}, result), "");
    EXPECT_FALSE(result);
    EXPECT_TRUE(agent.calls.empty());
    EXPECT_EQ(agent.seen, Calls{"stop"});
}

TEST(Frame, GoesOnAfterAnyOtherResult) {
    const VerbosityGuard guard(1);
    FakeAgent agent;
    agent.results = {{"odd", 17}, {"negative", -4}, {"takes-value", 1}};
    bool result = false;
    EXPECT_EQ(execute(agent, {"odd", "takes-value", "skipped", "negative"}, result), "");
    EXPECT_TRUE(result);
    EXPECT_EQ(agent.seen, (Calls{"odd", "takes-value", "negative"}));
}

TEST(Frame, HandsItsVerbosityOnAfterParsing) {
    const VerbosityGuard guard(1);
    FakeAgent agent;
    bool result = false;
    EXPECT_EQ(execute(agent, {"-verbosity", "0"}, result), "");
    EXPECT_TRUE(result);
    EXPECT_EQ(agent.verbosity_in_run, 0);
    EXPECT_EQ(agent.calls, Calls{"run"});

    theVerbosity = 1;
    FakeAgent failing;
    EXPECT_EQ(execute(failing, {"-verbosity", "0", "what"}, result), "Fake: Unrecognized parameter 'what'\n");
    EXPECT_EQ(theVerbosity, 1);
}

TEST(Frame, PrintsTheSummaryAboveVerbosityOne) {
    const VerbosityGuard guard(1);
    for (const char* const level : {"0", "1", "2", "5"}) {
        FakeAgent agent;
        bool result = false;
        execute(agent, {"-verbosity", level}, result);
        EXPECT_EQ(agent.calls, level[0] >= '2' ? (Calls{"summary", "run"}) : Calls{"run"}) << level;
        EXPECT_EQ(agent.verbosity_in_run, level[0] - '0');
    }
}

TEST(Frame, ConfiguresTheLoggerForTheRunOnly) {
    struct LoggerAgent : FakeAgent {
        bool run() override {
            mask = QUIXConfigLogger::get_instance()->get_verbosity_mask();
            format = QUIXConfigLogger::get_instance()->get_print_format();
            return true;
        }
        DDS_Long mask = -1;
        DDS_Long format = -1;
    };
    const VerbosityGuard guard(1);
    const DDS_Long before = QUIXConfigLogger::get_instance()->get_verbosity_mask();
    LoggerAgent agent;
    bool result = false;
    execute(agent, {"-verbosity", "4", "-LogFormat", "7"}, result);
    EXPECT_EQ(agent.mask, 31);
    EXPECT_EQ(agent.format, 7);
    EXPECT_EQ(QUIXConfigLogger::get_instance()->get_verbosity_mask(), before);
}

TEST(Frame, LogsAsChosenUntilTheAgentIsGone) {
    struct LateAgent : FakeAgent {
        ~LateAgent() override { QUIXLog_failure("tear_down", "reader"); }
    };
    const VerbosityGuard guard(1);
    const auto logged_at_the_end = [](const char* level) {
        testing::internal::CaptureStderr();
        {
            LateAgent agent;
            bool result = false;
            execute(agent, {"-verbosity", level, "-LogFormat", "2"}, result);
        }
        return testing::internal::GetCapturedStderr();
    };
    EXPECT_EQ(logged_at_the_end("0"), "");
    EXPECT_EQ(logged_at_the_end("1"), "error: failed: reader\n");
}

TEST(Frame, IsPrintedBeforeWhatTheRunLogs) {
    struct LoggingAgent : FakeAgent {
        explicit LoggingAgent(OutputFile& both) : FakeAgent("Fake", 0, both.output), file(both) {}
        void print_command_summary() override { output().put("summary\n"); }
        bool run() override { return file.log("logged\n"); }
        OutputFile& file;
    };
    const VerbosityGuard guard(1);
    OutputFile file;
    LoggingAgent agent(file);
    const char* arguments[] = {"program", "-verbosity", "2"};
    EXPECT_TRUE(agent.execute(3, arguments));
    EXPECT_EQ(file.text(), header("Fake") + "summary\nlogged\n");
}

TEST(Frame, MapsVerbosityToTheLogger) {
    const int expected[] = {0, 3, 7, 15, 31, 63};
    for (int level = 0; level <= 5; ++level)
        EXPECT_EQ(KvoUtil_getQuixVerbosityFromUtilVerbosity(level), expected[level]);
    EXPECT_EQ(KvoUtil_getQuixVerbosityFromUtilVerbosity(6), 63);
    EXPECT_EQ(KvoUtil_getQuixVerbosityFromUtilVerbosity(-1), 63);
}

TEST(Frame, PrintsTheUsageWithoutAnyArgument) {
    FakeAgent agent;
    bool result = true;
    EXPECT_EQ(printed_by([&] { result = agent.initialize(0, nullptr); }), header("Fake"));
    EXPECT_FALSE(result);
    EXPECT_EQ(agent.calls, Calls{"usage"});
}

TEST(Frame, RefusesMoreArgumentsThanItCanCount) {
    FakeAgent agent;
    bool result = true;
    EXPECT_EQ(printed_by([&] { result = agent.initialize(INT_MAX, nullptr); }),
              header("Fake") + "Fake: Too many parameters (2147483647)\n");
    EXPECT_FALSE(result);
}

TEST(Frame, EndsWithoutAWordWhenThereAreTooManyArguments) {
    FakeAgent agent;
    std::vector<const char*> arguments(33, "x");
    bool result = true;
    EXPECT_EQ(printed_by([&] { result = agent.execute(33, arguments.data()); }), "");
    EXPECT_FALSE(result);
}

TEST(Frame, TakesACommandLineAsOneText) {
    const VerbosityGuard guard(1);
    FakeAgent agent;
    bool result = false;
    EXPECT_EQ(printed_by([&] {
                  result = agent.execute(
                      "\x02-domainId\x02"
                      "9");
              }),
              header("Fake"));
    EXPECT_TRUE(result);
    EXPECT_EQ(agent.domainId, 9);
}
