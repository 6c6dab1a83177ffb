#include "platform/memory_budget.h"

#include <gtest/gtest.h>

using meridian::MemoryBudget;
using meridian::MemoryShare;

TEST(MemoryBudget, OneHolderGetsHalf) {
    MemoryBudget budget(1000);
    MemoryShare one(budget);
    EXPECT_TRUE(one.take(500));
    EXPECT_FALSE(one.take(1));
    EXPECT_EQ(budget.used(), 500U);
}

TEST(MemoryBudget, ALaterHolderStillGetsSomething) {
    MemoryBudget budget(1000);
    MemoryShare first(budget), second(budget), third(budget);
    EXPECT_TRUE(first.take(500));
    EXPECT_FALSE(second.take(251));
    EXPECT_TRUE(second.take(250));
    EXPECT_TRUE(third.take(125));
    EXPECT_FALSE(first.take(1));
}

TEST(MemoryBudget, WhatIsGivenBackCanBeTakenAgain) {
    MemoryBudget budget(1000);
    {
        MemoryShare share(budget);
        EXPECT_TRUE(share.take(400));
        share.give_back(100);
        EXPECT_EQ(share.held(), 300U);
        EXPECT_EQ(budget.used(), 300U);
    }
    EXPECT_EQ(budget.used(), 0U);
}

TEST(MemoryBudget, IsAmpleWhileThreeQuartersAreFree) {
    MemoryBudget budget(1000);
    MemoryShare share(budget);
    EXPECT_TRUE(share.take(249));
    EXPECT_TRUE(budget.is_ample());
    EXPECT_TRUE(share.take(1));
    EXPECT_FALSE(budget.is_ample());
}

TEST(MemoryBudget, SizesBeyondAllMemoryAreRefused) {
    MemoryBudget budget(1000);
    MemoryShare share(budget);
    EXPECT_TRUE(share.take(10));
    EXPECT_FALSE(share.take(~size_t{0}));
    EXPECT_FALSE(share.take(~size_t{0} - 5));
    EXPECT_EQ(share.held(), 10U);
}
