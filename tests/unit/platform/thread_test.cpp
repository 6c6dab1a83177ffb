#include "platform/thread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>

#include "support/no_threads.h"

namespace meridian {
namespace {

using testing::HasSubstr;

TEST(Thread, RunsUnderItsNameWithAllSignalsBlocked) {
    Thread thread;
    std::string error;
    char name[16] = "";
    sigset_t mask;
    sigemptyset(&mask);
    std::atomic<bool> is_current{true};
    EXPECT_FALSE(thread.is_started());
    EXPECT_FALSE(thread.is_current());
    ASSERT_TRUE(thread.start(
        "a name longer than the system takes",
        [&] {
            pthread_getname_np(pthread_self(), name, sizeof name);
            pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        },
        error))
        << error;
    EXPECT_TRUE(thread.is_started());
    is_current = thread.is_current();
    thread.join();
    EXPECT_FALSE(thread.is_started());
    EXPECT_FALSE(is_current);
    EXPECT_STREQ(name, "a name longer t");
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGUSR1, SIGPIPE, SIGALRM})
        EXPECT_EQ(sigismember(&mask, signal), 1) << signal;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGINT), 0) << "the caller's own mask has changed";
}

TEST(Thread, IsJoinedByItsDestructor) {
    std::atomic<bool> ended{false};
    std::string error;
    {
        Thread thread;
        ASSERT_TRUE(thread.start(
            "late", [&] { ended = true; }, error))
            << error;
    }
    EXPECT_TRUE(ended);
}

TEST(Thread, ThatCannotBeHadIsAnErrorAndCanBeTriedAgain) {
    Thread thread;
    std::string error;
    std::atomic<int> runs{0};
    {
        const NoThreads none;
        EXPECT_FALSE(thread.start(
            "none", [&] { ++runs; }, error));
        EXPECT_THAT(error, HasSubstr("cannot start a thread: "));
        EXPECT_FALSE(thread.is_started());
        thread.join();
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        EXPECT_EQ(sigismember(&mask, SIGINT), 0);
    }
    ASSERT_TRUE(thread.start(
        "second", [&] { ++runs; }, error))
        << error;
    thread.join();
    EXPECT_EQ(runs, 1);
}

} // namespace
} // namespace meridian
