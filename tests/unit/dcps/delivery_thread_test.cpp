#include "dcps/delivery/delivery_thread.h"

#include <gtest/gtest.h>

#include <functional>
#include <future>

#include "platform/clock.h"

namespace meridian::dcps::test {
namespace {

using std::chrono::milliseconds;

class Recipient final : public Deliverable {
  public:
    void deliver() override {
        ++calls;
        if (action)
            action();
    }
    /// True as soon as there were that many calls.
    bool called(int count) const {
        for (int i = 0; i < 5000 && calls < count; ++i)
            std::this_thread::sleep_for(milliseconds(1));
        return calls == count;
    }

    std::atomic<int> calls{0};
    std::function<void()> action;
};

TEST(DeliveryThreadTest, ANoticeBringsOneCallOnAnotherThread) {
    DeliveryThread thread;
    Recipient recipient;
    std::promise<std::thread::id> caller;
    recipient.action = [&] { caller.set_value(std::this_thread::get_id()); };
    thread.notify(recipient);
    EXPECT_NE(caller.get_future().get(), std::this_thread::get_id());
    thread.remove(recipient);
    EXPECT_EQ(recipient.calls, 1);
}

TEST(DeliveryThreadTest, NoticesDuringACallBringOneMore) {
    DeliveryThread thread;
    Recipient recipient;
    std::promise<void> entered;
    std::promise<void> go_on;
    recipient.action = [&] {
        if (recipient.calls == 1) {
            entered.set_value();
            go_on.get_future().wait();
        }
    };
    thread.notify(recipient);
    entered.get_future().wait();
    for (int i = 0; i < 10; ++i)
        thread.notify(recipient);
    go_on.set_value();
    EXPECT_TRUE(recipient.called(2));
    thread.remove(recipient);
}

TEST(DeliveryThreadTest, RemoveWaitsForTheCallAndDropsTheRest) {
    DeliveryThread thread;
    Recipient recipient;
    std::promise<void> entered;
    std::atomic<bool> running{false};
    recipient.action = [&] {
        running = true;
        entered.set_value();
        std::this_thread::sleep_for(milliseconds(30));
        running = false;
    };
    thread.notify(recipient);
    entered.get_future().wait();
    thread.notify(recipient);
    thread.wake_at(recipient, monotonic_now());
    thread.remove(recipient);
    EXPECT_FALSE(running);
    std::this_thread::sleep_for(milliseconds(20));
    EXPECT_EQ(recipient.calls, 1);
}

TEST(DeliveryThreadTest, ARecipientMayRemoveItselfAndComeBack) {
    DeliveryThread thread;
    Recipient recipient;
    recipient.action = [&] { thread.remove(recipient); };
    thread.notify(recipient);
    ASSERT_TRUE(recipient.called(1));
    thread.notify(recipient);
    EXPECT_TRUE(recipient.called(2));
    thread.remove(recipient);
}

TEST(DeliveryThreadTest, TimersCallInTheirOrderAndNotEarly) {
    DeliveryThread thread;
    Recipient late;
    Recipient soon;
    const auto start = monotonic_now();
    std::promise<std::chrono::nanoseconds> soon_at;
    std::promise<std::chrono::nanoseconds> late_at;
    late.action = [&] { late_at.set_value(monotonic_now()); };
    soon.action = [&] { soon_at.set_value(monotonic_now()); };
    thread.wake_at(late, start + milliseconds(40));
    thread.wake_at(soon, start + milliseconds(10));
    const auto first = soon_at.get_future().get();
    const auto second = late_at.get_future().get();
    EXPECT_GE(first, start + milliseconds(10));
    EXPECT_GE(second, start + milliseconds(40));
    EXPECT_LE(first, second);
    thread.remove(late);
    thread.remove(soon);
}

} // namespace
} // namespace meridian::dcps::test
