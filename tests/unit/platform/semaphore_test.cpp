#include "meridian/semaphore.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "platform/clock.h"
#include "platform/mutex.h"

namespace {

using Guard = std::unique_ptr<QUIXSemaphore, void (*)(QUIXSemaphore*)>;

Guard make_semaphore() {
    return {QUIXSemaphore::create(), &QUIXSemaphore::destroy};
}

constexpr DDS_Duration_t kShort{0, 30000000};

TEST(Semaphore, CountsWhatIsGiven) {
    const Guard semaphore = make_semaphore();
    ASSERT_TRUE(semaphore);
    EXPECT_FALSE(semaphore->take(DDS_DURATION_ZERO));
    EXPECT_TRUE(semaphore->give());
    EXPECT_TRUE(semaphore->give());
    EXPECT_TRUE(semaphore->take(DDS_DURATION_ZERO));
    EXPECT_TRUE(semaphore->take(DDS_DURATION_INFINITE));
    EXPECT_FALSE(semaphore->take(DDS_DURATION_ZERO));
}

TEST(Semaphore, TimedTakeWaitsItsTime) {
    const Guard semaphore = make_semaphore();
    const auto start = meridian::monotonic_now();
    EXPECT_FALSE(semaphore->take(kShort));
    EXPECT_GE(meridian::monotonic_now() - start, std::chrono::milliseconds(30));
    EXPECT_FALSE(semaphore->take({-1, 0}));
}

TEST(Semaphore, GiveWakesAWaiter) {
    // Each unit is given only once the taker has asked for it, so the taker mostly waits already.
    const Guard asked = make_semaphore();
    const Guard semaphore = make_semaphore();
    constexpr int kRounds = 200;
    std::thread giver([&] {
        for (int round = 0; round < kRounds && asked->take({20, 0}); ++round)
            EXPECT_TRUE(semaphore->give());
    });
    for (int round = 0; round < kRounds; ++round) {
        EXPECT_TRUE(asked->give());
        ASSERT_TRUE(semaphore->take({20, 0})) << round;
    }
    giver.join();
}

TEST(Semaphore, NoUnitIsLostOrTakenTwice) {
    const Guard semaphore = make_semaphore();
    constexpr int kThreads = 4;
    constexpr int kUnits = 2000;
    std::atomic<int> taken{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int unit = 0; unit < kUnits; ++unit)
                semaphore->give();
        });
        threads.emplace_back([&] {
            for (int unit = 0; unit < kUnits; ++unit)
                taken += semaphore->take({20, 0}) ? 1 : 0;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(taken, kThreads * kUnits);
    EXPECT_FALSE(semaphore->take(DDS_DURATION_ZERO));
}

/// Used as a mutex, as printing does.
TEST(Semaphore, ExcludesWhenGivenOnce) {
    const Guard semaphore = make_semaphore();
    semaphore->give();
    int counter = 0; // plain on purpose: the semaphore is what protects it
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 500; ++round) {
                ASSERT_TRUE(semaphore->take({20, 0}));
                ++counter;
                semaphore->give();
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(counter, 2000);
}

TEST(Mutex, ExcludesAndCanLetGoEarly) {
    meridian::Mutex mutex;
    int counter = 0; // plain on purpose: the mutex is what protects it
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 50; ++round) {
                meridian::MutexLock lock(mutex);
                ++counter;
                lock.unlock();
                std::this_thread::yield();
                lock.lock();
                ++counter;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(counter, 400);
}

TEST(Mutex, LetsOthersInBetweenUnlockAndLock) {
    meridian::Mutex mutex;
    meridian::MutexLock lock(mutex);
    lock.unlock();
    std::thread([&] { const meridian::MutexLock other(mutex); }).join();
    lock.lock();
}

TEST(ConditionVariable, DeadlinesInThePastAndTheFuture) {
    meridian::Mutex mutex;
    meridian::ConditionVariable condition;
    const meridian::MutexLock lock(mutex);
    EXPECT_FALSE(condition.wait_until(mutex, std::chrono::nanoseconds(-5)));
    EXPECT_FALSE(condition.wait_until(mutex, std::chrono::nanoseconds(1)));
    const auto deadline = meridian::monotonic_now() + std::chrono::milliseconds(10);
    while (condition.wait_until(mutex, deadline)) {
    }
    EXPECT_GE(meridian::monotonic_now(), deadline);
}

} // namespace
