#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include "dcps/conditions/status_condition.h"
#include "meridian/condition.h"

namespace meridian::dcps {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr DDS_Duration_t kAtOnce{0, 0};
constexpr DDS_Duration_t kShort{0, 30000000};
constexpr DDS_Duration_t kLong{60, 0};
constexpr DDS_StatusMask kData = DDS_DATA_AVAILABLE_STATUS;

milliseconds since(steady_clock::time_point start) {
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
}

/// Waits like a program that shares the wait set with a probe of await_waiter.
DDS_ReturnCode_t wait_beside_probes(DDSWaitSet& wait_set, DDSConditionSeq& active) {
    DDS_ReturnCode_t result = DDS_RETCODE_PRECONDITION_NOT_MET;
    while (result == DDS_RETCODE_PRECONDITION_NOT_MET)
        result = wait_set.wait(active, kLong);
    return result;
}
/// Returns once another thread waits: only then a second wait is refused.
void await_waiter(DDSWaitSet& wait_set) {
    DDSConditionSeq active;
    while (wait_set.wait(active, kAtOnce) == DDS_RETCODE_TIMEOUT)
        std::this_thread::sleep_for(milliseconds(1));
}

TEST(StatusCondition, TriggersWhileAnEnabledStatusHasChanged) {
    StatusCondition condition(nullptr);
    EXPECT_FALSE(condition.get_trigger_value());
    condition.set_changed(kData);
    EXPECT_TRUE(condition.get_trigger_value());
    EXPECT_EQ(condition.changes(), kData);
    EXPECT_EQ(condition.set_enabled_statuses(DDS_SAMPLE_LOST_STATUS), DDS_RETCODE_OK);
    EXPECT_FALSE(condition.get_trigger_value());
    condition.set_enabled_statuses(kData);
    EXPECT_TRUE(condition.get_trigger_value());
    condition.set_read(kData);
    EXPECT_FALSE(condition.get_trigger_value());
    EXPECT_EQ(condition.changes(), DDS_STATUS_MASK_NONE);
}

TEST(WaitSet, TimesOutWithNothing) {
    DDSWaitSet wait_set;
    StatusCondition condition(nullptr);
    ASSERT_EQ(wait_set.attach_condition(&condition), DDS_RETCODE_OK);
    DDSConditionSeq active;
    const auto start = steady_clock::now();
    EXPECT_EQ(wait_set.wait(active, kShort), DDS_RETCODE_TIMEOUT);
    EXPECT_GE(since(start), milliseconds(29));
    EXPECT_LT(since(start), milliseconds(20000));
    EXPECT_EQ(active.length(), 0);
    EXPECT_EQ(wait_set.wait(active, kAtOnce), DDS_RETCODE_TIMEOUT);
}

TEST(WaitSet, ReturnsTheTriggeredOnesInOrderOfAttachment) {
    DDSWaitSet wait_set;
    StatusCondition first(nullptr);
    StatusCondition second(nullptr);
    StatusCondition third(nullptr);
    for (StatusCondition* condition : {&third, &second, &first})
        ASSERT_EQ(wait_set.attach_condition(condition), DDS_RETCODE_OK);
    ASSERT_EQ(wait_set.attach_condition(&third), DDS_RETCODE_OK);
    first.set_changed(kData);
    third.set_changed(kData);
    DDSConditionSeq active;
    EXPECT_EQ(wait_set.wait(active, kAtOnce), DDS_RETCODE_OK);
    ASSERT_EQ(active.length(), 2);
    EXPECT_EQ(active[0], &third);
    EXPECT_EQ(active[1], &first);
    third.set_read(kData);
    EXPECT_EQ(wait_set.wait(active, kAtOnce), DDS_RETCODE_OK);
    ASSERT_EQ(active.length(), 1);
    EXPECT_EQ(active[0], &first);
}

TEST(WaitSet, AConditionThatIsTriggeredAlreadyEndsTheWaitAtOnce) {
    DDSWaitSet wait_set;
    StatusCondition condition(nullptr);
    condition.set_changed(kData);
    wait_set.attach_condition(&condition);
    DDSConditionSeq active;
    EXPECT_EQ(wait_set.wait(active, DDS_DURATION_INFINITE), DDS_RETCODE_OK);
}

TEST(WaitSet, RefusesWhatItCannotUse) {
    DDSWaitSet wait_set;
    StatusCondition condition(nullptr);
    EXPECT_EQ(wait_set.attach_condition(nullptr), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(wait_set.detach_condition(nullptr), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(wait_set.detach_condition(&condition), DDS_RETCODE_PRECONDITION_NOT_MET);
    DDSCondition* element = &condition;
    DDSCondition** elements[] = {&element};
    DDSConditionSeq on_loan;
    on_loan.loan_discontiguous(elements, 1);
    EXPECT_EQ(wait_set.wait(on_loan, kAtOnce), DDS_RETCODE_BAD_PARAMETER);
    on_loan.unloan();
}

TEST(WaitSet, ADetachedConditionDoesNotWake) {
    DDSWaitSet wait_set;
    StatusCondition condition(nullptr);
    wait_set.attach_condition(&condition);
    EXPECT_EQ(wait_set.detach_condition(&condition), DDS_RETCODE_OK);
    EXPECT_EQ(wait_set.detach_condition(&condition), DDS_RETCODE_PRECONDITION_NOT_MET);
    condition.set_changed(kData);
    DDSConditionSeq active;
    EXPECT_EQ(wait_set.wait(active, kAtOnce), DDS_RETCODE_TIMEOUT);
}

TEST(WaitSet, IsWokenFromAnotherThread) {
    DDSWaitSet wait_set;
    StatusCondition condition(nullptr);
    wait_set.attach_condition(&condition);
    std::thread other([&] {
        await_waiter(wait_set);
        condition.set_changed(kData);
    });
    DDSConditionSeq active;
    EXPECT_EQ(wait_beside_probes(wait_set, active), DDS_RETCODE_OK);
    other.join();
}

TEST(WaitSet, IsWokenByWhatIsAttachedDuringTheWait) {
    DDSWaitSet wait_set;
    StatusCondition condition(nullptr);
    condition.set_changed(kData);
    std::thread other([&] {
        await_waiter(wait_set);
        wait_set.attach_condition(&condition);
    });
    DDSConditionSeq active;
    EXPECT_EQ(wait_beside_probes(wait_set, active), DDS_RETCODE_OK);
    other.join();
}

TEST(WaitSet, OneThreadWaitsAtATime) {
    DDSWaitSet wait_set;
    StatusCondition condition(nullptr);
    wait_set.attach_condition(&condition);
    // Either of the two may be first. The other one is refused, and lets the first one go.
    const auto wait = [&] {
        DDSConditionSeq active;
        const DDS_ReturnCode_t result = wait_set.wait(active, kLong);
        if (result == DDS_RETCODE_PRECONDITION_NOT_MET)
            condition.set_changed(kData);
        return result;
    };
    std::future<DDS_ReturnCode_t> other = std::async(std::launch::async, wait);
    const DDS_ReturnCode_t here = wait();
    const DDS_ReturnCode_t there = other.get();
    EXPECT_EQ(std::min(here, there), DDS_RETCODE_OK);
    EXPECT_EQ(std::max(here, there), DDS_RETCODE_PRECONDITION_NOT_MET);
}

TEST(WaitSet, AConditionDestroyedWhileAttachedIsForgotten) {
    DDSWaitSet wait_set;
    StatusCondition kept(nullptr);
    auto destroyed = std::make_unique<StatusCondition>(nullptr);
    DDSCondition* stale = destroyed.get();
    wait_set.attach_condition(destroyed.get());
    wait_set.attach_condition(&kept);
    destroyed->set_changed(kData);
    destroyed.reset();
    DDSConditionSeq active;
    EXPECT_EQ(wait_set.wait(active, kAtOnce), DDS_RETCODE_TIMEOUT);
    EXPECT_EQ(wait_set.detach_condition(stale), DDS_RETCODE_PRECONDITION_NOT_MET);
    kept.set_changed(kData);
    EXPECT_EQ(wait_set.wait(active, kAtOnce), DDS_RETCODE_OK);
    EXPECT_EQ(active.length(), 1);
}

TEST(WaitSet, AWaitSetDestroyedBeforeItsConditionsIsForgotten) {
    StatusCondition condition(nullptr);
    {
        DDSWaitSet wait_set;
        wait_set.attach_condition(&condition);
    }
    condition.set_changed(kData);
    DDSWaitSet other;
    other.attach_condition(&condition);
    DDSConditionSeq active;
    EXPECT_EQ(other.wait(active, kAtOnce), DDS_RETCODE_OK);
}

TEST(WaitSet, NoWakeUpIsLost) {
    DDSWaitSet wait_set;
    StatusCondition condition(nullptr);
    wait_set.attach_condition(&condition);
    constexpr int kRounds = 3000;
    std::atomic<int> produced{0};
    std::thread producer([&] {
        for (int i = 1; i <= kRounds; ++i) {
            produced.store(i);
            condition.set_changed(kData);
        }
    });
    int consumed = 0;
    DDSConditionSeq active;
    while (consumed < kRounds) {
        ASSERT_EQ(wait_set.wait(active, kLong), DDS_RETCODE_OK) << "after " << consumed;
        condition.set_read(kData); // before looking, as readers do
        consumed = produced.load();
    }
    producer.join();
}

TEST(WaitSet, SurvivesConditionsThatComeAndGoWhileItWaits) {
    DDSWaitSet wait_set;
    std::atomic<bool> done{false};
    std::vector<std::thread> churners;
    for (int i = 0; i < 3; ++i) {
        churners.emplace_back([&wait_set] {
            for (int round = 0; round < 300; ++round) {
                StatusCondition condition(nullptr);
                wait_set.attach_condition(&condition);
                condition.set_changed(kData);
                if (round % 2 == 0)
                    wait_set.detach_condition(&condition);
            }
        });
    }
    std::thread waiter([&] {
        DDSConditionSeq active;
        while (!done.load()) {
            const DDS_ReturnCode_t result = wait_set.wait(active, {0, 1000000});
            EXPECT_TRUE(result == DDS_RETCODE_OK || result == DDS_RETCODE_TIMEOUT);
        }
    });
    for (std::thread& churner : churners)
        churner.join();
    done.store(true);
    waiter.join();
    DDSConditionSeq active;
    EXPECT_EQ(wait_set.wait(active, kAtOnce), DDS_RETCODE_TIMEOUT);
}

} // namespace
} // namespace meridian::dcps
