#include "dcps/delivery/delivery_thread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <future>
#include <thread>

#include "platform/clock.h"
#include "support/no_threads.h"

namespace meridian::dcps::test {
namespace {

using std::chrono::milliseconds;

struct StartedThread : DeliveryThread {
    StartedThread() {
        std::string error;
        EXPECT_TRUE(start(error)) << error;
    }
};

void notify(DeliveryThread& thread, Deliverable& recipient) {
    thread.note(recipient);
    thread.wake();
}

class Recipient final : public Deliverable {
  public:
    void deliver(rtps::MonotonicTime) override {
        ++calls;
        if (action)
            action();
    }
    void on_deliveries_end() override {
        ++ends;
        if (at_end)
            at_end();
    }
    /// True as soon as there were that many calls.
    bool called(int count) const {
        for (int i = 0; i < 20000 && calls < count; ++i)
            std::this_thread::sleep_for(milliseconds(1));
        return calls == count;
    }

    std::atomic<int> calls{0};
    std::atomic<int> ends{0};
    std::function<void()> action;
    std::function<void()> at_end;
};

TEST(DeliveryThreadTest, ANoticeBringsOneCallOnAnotherThread) {
    StartedThread thread;
    Recipient recipient;
    std::promise<std::thread::id> caller;
    recipient.action = [&] { caller.set_value(std::this_thread::get_id()); };
    notify(thread, recipient);
    EXPECT_NE(caller.get_future().get(), std::this_thread::get_id());
    thread.remove(recipient);
    EXPECT_EQ(recipient.calls, 1);
}

TEST(DeliveryThreadTest, NoticesDuringACallBringOneMore) {
    StartedThread thread;
    Recipient recipient;
    std::promise<void> entered;
    std::promise<void> go_on;
    recipient.action = [&] {
        if (recipient.calls == 1) {
            entered.set_value();
            go_on.get_future().wait();
        }
    };
    notify(thread, recipient);
    entered.get_future().wait();
    for (int i = 0; i < 10; ++i)
        notify(thread, recipient);
    go_on.set_value();
    EXPECT_TRUE(recipient.called(2));
    thread.remove(recipient);
}

TEST(DeliveryThreadTest, TheEndOfAllThatIsReadyIsToldToTheLastOneOnly) {
    StartedThread thread;
    Recipient first;
    Recipient second;
    std::promise<void> ended;
    first.action = [&] { notify(thread, second); };
    second.at_end = [&] { ended.set_value(); };
    notify(thread, first);
    ended.get_future().wait();
    thread.remove(first);
    thread.remove(second);
    EXPECT_EQ(first.ends, 0);
    EXPECT_EQ(second.ends, 1);
    EXPECT_EQ(first.calls + second.calls, 2);
}

TEST(DeliveryThreadTest, NoEndIsToldToOneThatWasRemoved) {
    StartedThread thread;
    // What comes soon enough takes the place of the one that was removed: not every time.
    for (int i = 0; i < 50; ++i) {
        Recipient removed;
        Recipient other;
        removed.action = [&] { thread.remove(removed); };
        notify(thread, removed);
        EXPECT_TRUE(removed.called(1));
        std::promise<void> ended;
        other.at_end = [&] { ended.set_value(); };
        notify(thread, other);
        ended.get_future().wait();
        thread.remove(other);
        EXPECT_EQ(removed.ends, 0);
    }
}

TEST(DeliveryThreadTest, RemoveWaitsForTheCallAndDropsTheRest) {
    StartedThread thread;
    Recipient recipient;
    std::promise<void> entered;
    std::atomic<bool> running{false};
    recipient.action = [&] {
        running = true;
        entered.set_value();
        std::this_thread::sleep_for(milliseconds(30)); // time in which a remove that does not wait returns
        running = false;
    };
    notify(thread, recipient);
    entered.get_future().wait();
    notify(thread, recipient);
    thread.wake_at(recipient, monotonic_now());
    thread.remove(recipient);
    EXPECT_FALSE(running);
    // What comes later is called later: when these were, the dropped notice and timer would have been.
    Recipient noticed;
    Recipient timed;
    notify(thread, noticed);
    EXPECT_TRUE(noticed.called(1));
    thread.wake_at(timed, monotonic_now());
    EXPECT_TRUE(timed.called(1));
    EXPECT_EQ(recipient.calls, 1);
    thread.remove(noticed);
    thread.remove(timed);
}

TEST(DeliveryThreadTest, ARecipientMayRemoveItselfAndComeBack) {
    StartedThread thread;
    Recipient recipient;
    recipient.action = [&] { thread.remove(recipient); };
    notify(thread, recipient);
    ASSERT_TRUE(recipient.called(1));
    notify(thread, recipient);
    EXPECT_TRUE(recipient.called(2));
    thread.remove(recipient);
}

TEST(DeliveryThreadTest, TimersCallInTheirOrderAndNotEarly) {
    StartedThread thread;
    Recipient late;
    Recipient soon;
    // The thread is busy until both timers are there, however long that takes.
    Recipient busy;
    std::promise<void> entered;
    std::promise<void> go_on;
    busy.action = [&] {
        entered.set_value();
        go_on.get_future().wait();
    };
    notify(thread, busy);
    entered.get_future().wait();
    const auto start = monotonic_now();
    std::promise<std::chrono::nanoseconds> soon_at;
    std::promise<std::chrono::nanoseconds> late_at;
    late.action = [&] { late_at.set_value(monotonic_now()); };
    soon.action = [&] { soon_at.set_value(monotonic_now()); };
    thread.wake_at(late, start + milliseconds(40));
    thread.wake_at(soon, start + milliseconds(10));
    go_on.set_value();
    const auto first = soon_at.get_future().get();
    const auto second = late_at.get_future().get();
    EXPECT_GE(first, start + milliseconds(10));
    EXPECT_GE(second, start + milliseconds(40));
    EXPECT_LE(first, second);
    for (Recipient* recipient : {&late, &soon, &busy})
        thread.remove(*recipient);
}

constexpr int kNotices = 200;

/// How often the thread is woken for so many notices, each of which comes a moment after the call for the one
/// before.
uint64_t wakes_for_notices(Recipient& recipient, bool ends_rests = false) {
    StartedThread thread;
    for (int i = 1; i <= kNotices; ++i) {
        thread.note(recipient);
        if (ends_rests)
            thread.end_rest();
        thread.wake();
        while (recipient.calls < i)
            std::this_thread::yield();
        std::this_thread::sleep_for(DeliveryThread::kRest / 10);
    }
    thread.remove(recipient);
    return thread.wakes();
}

TEST(DeliveryThreadTest, IsSeldomWokenForWhatComesOften) {
    uint64_t fewest = kNotices;
    for (int round = 0; round < 50 && fewest > kNotices / 4;
         ++round) { // others may keep this thread from its processor
        Recipient recipient;
        fewest = std::min(fewest, wakes_for_notices(recipient));
    }
    EXPECT_LE(fewest, kNotices / 4);
}

TEST(DeliveryThreadTest, IsWokenWhereItsRestIsEnded) {
    Recipient recipient;
    EXPECT_GT(wakes_for_notices(recipient, true), kNotices / 2);
}

TEST(DeliveryThreadTest, WhatIsAskedForBeforeThereIsAThreadWaitsForIt) {
    DeliveryThread thread;
    Recipient recipient;
    std::string error;
    {
        const NoThreads none;
        EXPECT_FALSE(thread.start(error));
        EXPECT_NE(error, "");
        notify(thread, recipient);
        thread.wake_at(recipient, monotonic_now());
    }
    EXPECT_EQ(recipient.calls, 0);
    ASSERT_TRUE(thread.start(error)) << error;
    EXPECT_TRUE(thread.start(error)) << "a second start does nothing";
    EXPECT_TRUE(recipient.called(1)) << "one call serves both";
    thread.remove(recipient);
}

} // namespace
} // namespace meridian::dcps::test
