#include "meridian/logger.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "platform/log.h"
#include "platform/log_line.h"

namespace {

using meridian::log::Level;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

class Logger : public testing::Test {
  protected:
    void SetUp() override {
        logger().set_verbosity_by_mask(63);
        logger().set_print_format(0);
    }
    void TearDown() override { QUIXConfigLogger::finalize_instance(); }
    static QUIXConfigLogger& logger() { return *QUIXConfigLogger::get_instance(); }
};

void log_every_level() {
    MERIDIAN_LOG_FATAL("test", "fatal");
    MERIDIAN_LOG_ERROR("test", "error");
    MERIDIAN_LOG_WARNING("test", "warning");
    MERIDIAN_LOG_LOCAL("test", "local");
    MERIDIAN_LOG_REMOTE("test", "remote");
    MERIDIAN_LOG_ALL("test", "all");
}

TEST_F(Logger, MaskChoosesLevels) {
    const std::pair<DDS_Long, const char*> cases[] = {
        {0, ""},
        {3, "fatal\nerror\n"},
        {7, "fatal\nerror\nwarning\n"},
        {15, "fatal\nerror\nwarning\nlocal\n"},
        {31, "fatal\nerror\nwarning\nlocal\nremote\n"},
        {63, "fatal\nerror\nwarning\nlocal\nremote\nall\n"},
        {QUIX_LOG_WARNING, "warning\n"},
        {-1, "fatal\nerror\nwarning\nlocal\nremote\nall\n"},
    };
    for (const auto& [mask, expected] : cases) {
        logger().set_verbosity_by_mask(mask);
        EXPECT_EQ(logger().get_verbosity_mask(), mask);
        CaptureStderr();
        log_every_level();
        EXPECT_EQ(GetCapturedStderr(), expected) << mask;
    }
}

TEST_F(Logger, WhatIsOffIsNotEvaluated) {
    int evaluated = 0;
    logger().set_verbosity_by_mask(QUIX_LOG_ERROR);
    CaptureStderr();
    MERIDIAN_LOG_WARNING("test", "%d", ++evaluated);
    EXPECT_EQ(evaluated, 0);
    MERIDIAN_LOG_ERROR("test", "%d", ++evaluated);
    EXPECT_EQ(GetCapturedStderr(), "1\n");
}

TEST_F(Logger, FinalizeLeavesTheTearDownAsItWasSet) {
    logger().set_verbosity_by_mask(QUIX_LOG_WARNING);
    logger().set_print_format(meridian::log::kFormatLevel);
    EXPECT_EQ(QUIXConfigLogger::finalize_instance(), DDS_RETCODE_OK);
    CaptureStderr();
    log_every_level();
    EXPECT_EQ(GetCapturedStderr(), "warning: warning\n");
}

TEST_F(Logger, StartsAnewAfterFinalize) {
    logger().set_verbosity_by_mask(0);
    EXPECT_EQ(QUIXConfigLogger::finalize_instance(), DDS_RETCODE_OK);
    EXPECT_EQ(logger().get_verbosity_mask(), 3);
    EXPECT_EQ(logger().get_print_format(), 0x3412);
    CaptureStderr();
    log_every_level();
    const std::string text = GetCapturedStderr();
    EXPECT_NE(text.find("fatal test log_every_level: fatal\n"), std::string::npos) << text;
    EXPECT_NE(text.find("error test log_every_level: error\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("warning"), std::string::npos) << text;
}

TEST_F(Logger, ApiErrors) {
    logger().set_print_format(meridian::log::kFormatLevel | meridian::log::kFormatMethod);
    CaptureStderr();
    QUIXLog_badParameter("Reader::take", "max_samples");
    QUIXLog_creationFailure("Factory::create", "participant");
    QUIXLog_failure("Participant::enable", "socket");
    QUIXLog_failure(nullptr, nullptr);
    logger().set_verbosity_by_mask(0);
    QUIXLog_failure("Participant::enable", "socket");
    EXPECT_EQ(GetCapturedStderr(),
              "error Reader::take: bad parameter: max_samples\n"
              "error Factory::create: failed to create: participant\n"
              "error Participant::enable: failed: socket\n"
              "error: failed: (null)\n");
}

TEST_F(Logger, PrintGoesToStandardOutputWhateverTheMask) {
    logger().set_verbosity_by_mask(0);
    CaptureStdout();
    QUIXLog_print("%s: %d\n", "x", 5);
    EXPECT_EQ(GetCapturedStdout(), "x: 5\n");
}

TEST_F(Logger, LongMessagesAreWhole) {
    const std::string name(20000, 'n');
    CaptureStderr();
    MERIDIAN_LOG_ERROR("test", "name %s end", name.c_str());
    EXPECT_EQ(GetCapturedStderr(), "name " + name + " end\n");
    for (size_t length : {510u, 511u, 512u, 513u}) {
        const std::string text(length, 'x');
        CaptureStderr();
        MERIDIAN_LOG_ERROR("test", "%s", text.c_str());
        EXPECT_EQ(GetCapturedStderr(), text + "\n");
    }
}

TEST_F(Logger, NothingFromTheNetworkEndsTheLine) {
    CaptureStderr();
    MERIDIAN_LOG_ERROR("test", "%s",
                       "a\nb\tc\x1b[2Jd\x7f\xc2\x9b"
                       "e\u2028\u202e\u2066 \xc3\xa4 100%");
    EXPECT_EQ(GetCapturedStderr(), "a\\nb\\tc\\x1b[2Jd\\x7f\\x9be\\u2028\\u202e\\u2066 \xc3\xa4 100%\n");
}

TEST_F(Logger, LinesOfManyThreadsStayWhole) {
    CaptureStderr();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            for (int line = 0; line < 200; ++line)
                MERIDIAN_LOG_ERROR("test", "%s", std::string(100, static_cast<char>('a' + i)).c_str());
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    const std::string text = GetCapturedStderr();
    EXPECT_EQ(text.size(), 4u * 200u * 101u);
    for (size_t at = 0; at + 101 <= text.size(); at += 101)
        ASSERT_EQ(text.substr(at, 101), std::string(100, text[at]) + "\n");
}

TEST(LogLine, EachBitAddsItsField) {
    using namespace meridian::log;
    Message message;
    message.level = Level::warning;
    message.wall = std::chrono::seconds(1700000000) + std::chrono::milliseconds(42);
    message.monotonic = std::chrono::seconds(77) + std::chrono::microseconds(5);
    message.process = 12;
    message.thread = 34;
    message.module = "net";
    message.method = "open";
    message.text = "text";
    const std::pair<DDS_Long, const char*> cases[] = {
        {0, "text\n"},
        {0x0001, "2023-11-14 text\n"},
        {0x0002, "warning: text\n"},
        {0x0004, "[12] text\n"},
        {0x0008, "77.000005 text\n"},
        {0x0010, "net: text\n"},
        {0x0400, "22:13:20.042 text\n"},
        {0x1000, "open: text\n"},
        {0x2000, "[34] text\n"},
        {0x2004, "[12/34] text\n"},
        {0x3412, "22:13:20.042 [34] warning net open: text\n"},
        {0xc3e0, "text\n"}, // bits without a meaning
        {-1, "2023-11-14 22:13:20.042 77.000005 [12/34] warning net open: text\n"},
    };
    for (const auto& [format, expected] : cases)
        EXPECT_EQ(to_line(message, format), expected) << format;
    message.module = nullptr;
    message.method = nullptr;
    EXPECT_EQ(to_line(message, 0x1012), "warning: text\n");
    EXPECT_EQ(to_line(message, 0x1010), "text\n");
}

TEST(LogLine, LevelNames) {
    using namespace meridian::log;
    const std::pair<Level, const char*> cases[] = {
        {Level::fatal, "fatal: \n"}, {Level::error, "error: \n"},   {Level::warning, "warning: \n"},
        {Level::local, "local: \n"}, {Level::remote, "remote: \n"}, {Level::all, "all: \n"},
    };
    for (const auto& [level, expected] : cases) {
        Message message;
        message.level = level;
        EXPECT_EQ(to_line(message, kFormatLevel), expected);
    }
}

} // namespace
