#include "rtps/protocol/timer_queue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "protocol/simulated_network.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// Notes its name when it is called.
class Sleeper final : public TimerQueue::Client {
  public:
    Sleeper(TimerQueue& queue, std::string name, std::vector<std::string>& calls)
        : timer(queue, *this), name_(std::move(name)), calls_(calls) {}
    void on_timer(MonotonicTime now) override {
        EXPECT_EQ(timer.due(), kNever);
        calls_.push_back(name_);
        if (again > Duration(0))
            timer.wake_at(now + again);
    }

    TimerQueue::Timer timer;
    Duration again{0};

  private:
    std::string name_;
    std::vector<std::string>& calls_;
};

class TimerQueueTest : public ::testing::Test {
  protected:
    using Calls = std::vector<std::string>;
    Calls run(MonotonicTime now) {
        calls.clear();
        queue.run(now);
        return calls;
    }

    TimerQueue queue;
    Calls calls;
    Sleeper a{queue, "a", calls};
    Sleeper b{queue, "b", calls};
    Sleeper c{queue, "c", calls};
};

TEST_F(TimerQueueTest, CallsWhatIsDueInTheOrderOfTime) {
    EXPECT_EQ(queue.next_deadline(), kNever);
    a.timer.wake_at(seconds(3));
    b.timer.wake_at(seconds(1));
    c.timer.wake_at(seconds(2));
    EXPECT_EQ(queue.next_deadline(), seconds(1));
    EXPECT_EQ(run(milliseconds(999)), Calls{});
    EXPECT_EQ(run(seconds(2)), (Calls{"b", "c"}));
    EXPECT_EQ(queue.next_deadline(), seconds(3));
    EXPECT_EQ(run(seconds(3)), (Calls{"a"}));
    EXPECT_EQ(run(seconds(9)), Calls{});
    EXPECT_EQ(queue.next_deadline(), kNever);
}

TEST_F(TimerQueueTest, EqualTimesGoInTheOrderOfSetting) {
    c.timer.wake_at(seconds(1));
    a.timer.wake_at(seconds(1));
    b.timer.wake_at(seconds(1));
    EXPECT_EQ(run(seconds(1)), (Calls{"c", "a", "b"}));
}

TEST_F(TimerQueueTest, TheEarlierOfTwoTimesCounts) {
    a.timer.wake_at(seconds(2));
    a.timer.wake_at(seconds(3));
    EXPECT_EQ(a.timer.due(), seconds(2));
    a.timer.wake_at(seconds(1));
    a.timer.wake_at(kNever);
    EXPECT_EQ(a.timer.due(), seconds(1));
    EXPECT_EQ(run(seconds(5)), (Calls{"a"}));
}

TEST_F(TimerQueueTest, CancelledTimersAndThoseOfTheDeadAreNotCalled) {
    a.timer.wake_at(seconds(1));
    b.timer.wake_at(seconds(1));
    {
        Sleeper gone(queue, "gone", calls);
        gone.timer.wake_at(seconds(1));
    }
    a.timer.cancel();
    a.timer.cancel();
    EXPECT_EQ(a.timer.due(), kNever);
    EXPECT_EQ(run(seconds(1)), (Calls{"b"}));
}

TEST_F(TimerQueueTest, WhatIsSetDuringARunWaitsForTheNext) {
    a.again = Duration(0);
    b.again = Duration(1);
    b.timer.wake_at(seconds(1));
    EXPECT_EQ(run(seconds(2)), (Calls{"b"}));
    EXPECT_EQ(queue.next_deadline(), seconds(2) + Duration(1));
}

TEST_F(TimerQueueTest, ManyThatWaitCostNothing) {
    std::vector<std::unique_ptr<Sleeper>> idle;
    for (int i = 0; i < 10000; ++i)
        idle.push_back(std::make_unique<Sleeper>(queue, "idle", calls));
    const uint64_t before = queue.operations();
    for (int i = 1; i <= 100; ++i) {
        a.timer.wake_at(seconds(i));
        EXPECT_EQ(run(seconds(i)), (Calls{"a"}));
    }
    EXPECT_LE(queue.operations() - before, 300u);
}

// Against a plain list of the same times, whatever is set, cancelled and due.
TEST(TimerQueueSimulation, EverySeedGivesTheCallsOfASortedList) {
    for (uint64_t seed : seeds(1, 200)) {
        SCOPED_TRACE("replay with FERRET_SIM_SEED=" + std::to_string(seed));
        struct Expected {
            MonotonicTime due = kNever;
            uint64_t order = 0;
        };
        Random random(seed);
        TimerQueue queue;
        std::vector<std::string> calls;
        std::vector<std::unique_ptr<Sleeper>> sleepers;
        std::vector<Expected> expected(1 + random.below(40));
        for (size_t i = 0; i < expected.size(); ++i)
            sleepers.push_back(std::make_unique<Sleeper>(queue, std::to_string(i), calls));
        MonotonicTime now{0};
        for (uint64_t step = 1; step <= 300; ++step) {
            const size_t i = random.below(expected.size());
            if (random.percent(20)) {
                sleepers[i]->timer.cancel();
                expected[i].due = kNever;
            } else {
                const MonotonicTime when = now + Duration(static_cast<int64_t>(random.below(50)));
                sleepers[i]->timer.wake_at(when);
                if (when < expected[i].due)
                    expected[i] = {when, step};
            }
            if (!random.percent(30))
                continue;
            now += Duration(static_cast<int64_t>(random.below(20)));
            std::vector<size_t> due;
            for (size_t k = 0; k < expected.size(); ++k) {
                if (expected[k].due <= now)
                    due.push_back(k);
            }
            std::sort(due.begin(), due.end(), [&expected](size_t x, size_t y) {
                return expected[x].due != expected[y].due ? expected[x].due < expected[y].due
                                                          : expected[x].order < expected[y].order;
            });
            std::vector<std::string> names;
            for (const size_t k : due) {
                names.push_back(std::to_string(k));
                expected[k].due = kNever;
            }
            calls.clear();
            queue.run(now);
            ASSERT_EQ(calls, names);
            MonotonicTime next = kNever;
            for (const Expected& timer : expected)
                next = std::min(next, timer.due);
            ASSERT_EQ(queue.next_deadline(), next);
        }
    }
}

} // namespace
} // namespace meridian::rtps::test
