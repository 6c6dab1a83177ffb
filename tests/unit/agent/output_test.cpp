// The output: what is put arrives, in order, and nothing waits longer than it is told to.

#include "agent/QuixAgentOutput.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <thread>
#include <vector>

#include "support/verbosity_guard.h"

namespace {

class OutputPipe : public ::testing::Test {
  protected:
    OutputPipe() {
        EXPECT_EQ(pipe(ends), 0);
        std::signal(SIGPIPE, SIG_IGN);
    }
    ~OutputPipe() override {
        close_end(0);
        close_end(1);
    }
    void close_end(int end) {
        if (ends[end] >= 0)
            close(ends[end]);
        ends[end] = -1;
    }
    void never_block() { fcntl(ends[1], F_SETFL, O_NONBLOCK); }
    /// Everything that the pipe holds now.
    std::string held() {
        fcntl(ends[0], F_SETFL, O_NONBLOCK);
        std::string text;
        char chunk[4096];
        for (ssize_t count; (count = read(ends[0], chunk, sizeof chunk)) > 0;)
            text.append(chunk, static_cast<size_t>(count));
        return text;
    }

    int ends[2] = {-1, -1};
};

std::string lines(size_t from, size_t to) {
    std::string text;
    for (size_t i = from; i < to; ++i)
        text += "line " + std::to_string(i) + "\n";
    return text;
}

} // namespace

TEST(Output, AppendsToAStringAtOnce) {
    std::string text;
    QuixAgentOutput output(text);
    output.put("a");
    EXPECT_EQ(text, "a");
    output.print("%d %s", 5, "b");
    std::fputs("c", output.stream());
    EXPECT_EQ(text, "a5 bc");
    output.print("%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(text, "a5 bc" + std::string(5000, 'x'));
    EXPECT_FALSE(output.is_closed());
    EXPECT_FALSE(output.is_terminal());
}

TEST(Output, SaysWhatTheVerbosityAllows) {
    std::string text;
    QuixAgentOutput output(text);
    for (int32_t level = 0; level < 4; ++level) {
        const VerbosityGuard guard(level);
        EXPECT_FALSE(output.fail("fail %d ", level));
        output.progress("progress %d ", level);
    }
    EXPECT_EQ(text, "fail 1 fail 2 progress 2 fail 3 progress 3 ");
}

TEST_F(OutputPipe, WritesWhenItIsTold) {
    QuixAgentOutput output(ends[1]);
    output.put("one ");
    EXPECT_EQ(held(), "");
    EXPECT_TRUE(output.has_rest());
    output.put("two ");
    EXPECT_TRUE(output.flush());
    EXPECT_FALSE(output.has_rest());
    EXPECT_EQ(held(), "one two ");
    output.put(std::string(QuixAgentOutput::kMaxPending + 1, 'x'));
    EXPECT_GE(held().size(), QuixAgentOutput::kMaxPending) << "much goes by itself";
    EXPECT_TRUE(output.flush());
    held();
    const VerbosityGuard guard(2);
    output.progress("step");
    EXPECT_EQ(held(), "step") << "what the middleware logs next stands behind it";
}

TEST_F(OutputPipe, WritesTheRestWhenItEnds) {
    {
        QuixAgentOutput output(ends[1]);
        output.put("rest");
    }
    EXPECT_EQ(held(), "rest");
}

TEST_F(OutputPipe, LosesNothingWhileTheReaderIsSlow) {
    for (const bool blocks : {true, false}) {
        if (!blocks)
            never_block();
        QuixAgentOutput output(ends[1]);
        const std::string text = lines(0, 20000);
        std::string got;
        std::thread reader([&] {
            char chunk[1000];
            while (got.size() < text.size()) {
                const ssize_t count = read(ends[0], chunk, sizeof chunk);
                got.append(chunk, static_cast<size_t>(count));
            }
        });
        for (size_t i = 0; i < 20000; ++i)
            output.put(lines(i, i + 1));
        EXPECT_TRUE(output.flush());
        reader.join();
        EXPECT_EQ(got, text);
    }
}

TEST_F(OutputPipe, WaitsNoLongerThanItIsTold) {
    for (const bool blocks : {true, false}) {
        if (!blocks)
            never_block();
        QuixAgentOutput output(ends[1]);
        int asked = 0;
        output.wait_while([&asked] { return ++asked < 3; });
        const std::string text = lines(0, 10000); // more than a pipe holds
        for (size_t i = 0; i < 10000; ++i)
            output.put(lines(i, i + 1));
        EXPECT_GE(asked, 3);
        EXPECT_TRUE(output.has_waited());
        EXPECT_FALSE(output.has_waited());
        EXPECT_TRUE(output.has_rest());
        EXPECT_FALSE(output.flush());
        output.put("the end");
        std::string got;
        while (output.has_rest()) {
            got += held();
            output.flush();
        }
        EXPECT_EQ(got + held(), text + "the end") << "what could not be written waits for the next flush";
    }
}

TEST_F(OutputPipe, GivesUpTheRestOfALongTextButNotItsLineEnd) {
    never_block();
    QuixAgentOutput output(ends[1]);
    output.wait_while([] { return false; });
    output.put(std::string(1000000, 'x') + "\n");
    output.put("the end\n");
    std::string got;
    while (output.has_rest()) {
        got += held();
        output.flush();
    }
    got += held();
    EXPECT_LT(got.size(), 200000U) << "what a pipe holds, and what was pending";
    EXPECT_EQ(got, std::string(got.size() - 9, 'x') + "\nthe end\n");
}

TEST_F(OutputPipe, KeepsLongTextsTogether) {
    QuixAgentOutput output(ends[1]);
    constexpr size_t kLength = 200000;
    std::thread reader([this] {
        char chunk[4096];
        std::string got;
        while (got.size() < 4 * kLength) {
            const ssize_t count = read(ends[0], chunk, sizeof chunk);
            got.append(chunk, static_cast<size_t>(count));
        }
        for (size_t at = 0; at < got.size(); at += kLength)
            EXPECT_EQ(got.substr(at, kLength), std::string(kLength, got[at]));
    });
    std::thread other([&output] {
        for (int i = 0; i < 2; ++i)
            output.put(std::string(kLength, 'b'));
    });
    for (int i = 0; i < 2; ++i)
        output.put(std::string(kLength, 'a'));
    other.join();
    EXPECT_TRUE(output.flush());
    reader.join();
}

TEST_F(OutputPipe, KeepsPiecesTogetherThatAreToldTo) {
    std::string text;
    QuixAgentOutput output(text);
    std::thread other;
    {
        const QuixAgentOutput::Together together(output);
        output.put("a");
        other = std::thread([&output] { output.put("b"); });
        for (int i = 0; i < 1000; ++i) {
            const QuixAgentOutput::Together within(output);
            output.put("a");
            std::this_thread::yield();
        }
    }
    other.join();
    EXPECT_EQ(text, std::string(1001, 'a') + "b");
}

TEST_F(OutputPipe, GivesUpAllPiecesThatBelongTogetherButNotTheLineEnd) {
    never_block();
    QuixAgentOutput output(ends[1]);
    output.wait_while([] { return false; });
    {
        const QuixAgentOutput::Together together(output);
        for (int i = 0; i < 20; ++i)
            output.put(std::string(100000, 'x') + "\n");
        output.put("more\n");
    }
    output.put("the end\n");
    std::string got;
    while (output.has_rest()) {
        got += held();
        output.flush();
    }
    got += held();
    EXPECT_LT(got.size(), 200000U);
    EXPECT_EQ(got, std::string(got.size() - 9, 'x') + "\nthe end\n");
}

TEST_F(OutputPipe, FreesAllThreadsThatWait) {
    std::atomic<bool> waiting{true};
    QuixAgentOutput output(ends[1]);
    output.wait_while([&] { return waiting.load(); });
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back([&] { output.put(std::string(100000, 'x')); });
    while (!output.has_waited())
        std::this_thread::yield();
    waiting = false;
    for (std::thread& thread : threads)
        thread.join(); // a test that hangs here is ended
    EXPECT_TRUE(output.has_rest());
}

TEST_F(OutputPipe, KnowsThatTheReaderIsGone) {
    QuixAgentOutput output(ends[1]);
    output.put("text");
    EXPECT_FALSE(output.look_whether_closed());
    close_end(0);
    EXPECT_TRUE(output.look_whether_closed()) << "without a write";
    output.put("more");
    EXPECT_FALSE(output.flush());
    EXPECT_EQ(output.error(), 0) << "nothing is lost that anyone wanted";
}

TEST_F(OutputPipe, KnowsFromAWriteThatTheReaderIsGone) {
    QuixAgentOutput output(ends[1]);
    close_end(0);
    output.put("text");
    EXPECT_FALSE(output.flush());
    EXPECT_TRUE(output.is_closed());
}

TEST(Output, RemembersWhyTextWasLost) {
    const int full = open("/dev/full", O_WRONLY);
    ASSERT_GE(full, 0);
    {
        QuixAgentOutput output(full);
        output.put("text");
        output.flush();
        EXPECT_EQ(output.error(), ENOSPC);
        EXPECT_FALSE(output.is_closed()) << "there may be room again later";
        EXPECT_FALSE(output.has_rest());
    }
    close(full);
}
