// The end of a run: what is waited for, and what becomes of samples that were taken.

#include "quixspy/quixSpyEnding.h"

#include <gtest/gtest.h>

#include <thread>

TEST(Ending, LetsARunGoOn) {
    bool is_over = false;
    QuixSpyEnding ending([&] { return is_over; });
    EXPECT_TRUE(ending.takes_samples());
    EXPECT_TRUE(ending.keeps_waiting());
    EXPECT_FALSE(ending.drops_samples(false));
    EXPECT_FALSE(ending.drops_samples(true)) << "a slow output is waited for";
    is_over = true;
    EXPECT_FALSE(ending.keeps_waiting());
    EXPECT_FALSE(ending.drops_samples(false));
    EXPECT_TRUE(ending.drops_samples(true)) << "before the main thread knows that it is over";
}

TEST(Ending, PrintsWhatIsQuick) {
    QuixSpyEnding ending([] { return false; });
    ending.begin();
    EXPECT_FALSE(ending.takes_samples());
    EXPECT_FALSE(ending.keeps_waiting());
    EXPECT_FALSE(ending.drops_samples(false));
    EXPECT_TRUE(ending.drops_samples(true));
    const auto end = std::chrono::steady_clock::now() + QuixSpyEnding::kLinesTime;
    while (std::chrono::steady_clock::now() <= end)
        std::this_thread::yield();
    EXPECT_TRUE(ending.drops_samples(false));
}

TEST(Ending, WaitsForTheStatisticsUnlessItIsInterruptedAgain) {
    bool is_interrupted = false;
    QuixSpyEnding ending([&] { return is_interrupted; });
    ending.begin();
    ending.begin_statistics();
    EXPECT_TRUE(ending.keeps_waiting());
    is_interrupted = true;
    EXPECT_FALSE(ending.keeps_waiting());
}

TEST(Ending, CountsWhatIsDropped) {
    QuixSpyEnding ending([] { return false; });
    EXPECT_EQ(ending.dropped(), 0U);
    ending.count_dropped(3);
    ending.count_dropped(4);
    EXPECT_EQ(ending.dropped(), 7U);
}
