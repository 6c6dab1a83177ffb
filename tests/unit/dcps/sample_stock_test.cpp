#include "dcps/reader/sample_stock.h"

#include <gtest/gtest.h>

#include <deque>

namespace meridian::dcps {
namespace {

constexpr size_t kBytes = size_t{100} << 10; // of each sample
int alive = 0;

void* make(PRESTypePluginEndpointData) {
    ++alive;
    return new int;
}

void drop(PRESTypePluginEndpointData, void* sample) {
    --alive;
    delete static_cast<int*>(sample);
}

class SampleStockTest : public ::testing::Test {
  protected:
    SampleStockTest() {
        plugin.getSample = make;
        plugin.returnSample = plugin.deleteSample = drop;
        plugin.getSampleMemory = [](const void*) { return kBytes; };
    }
    ~SampleStockTest() override {
        stocks.clear();
        EXPECT_EQ(alive, 0);
        shares.clear();
        EXPECT_EQ(budget.used(), 0u);
    }
    SampleStock& add_stock() {
        shares.emplace_back(budget);
        return stocks.emplace_back(plugin, nullptr, shares.back());
    }
    /// So many samples are there at one time, and then none is needed any more.
    static void have_peak(SampleStock& stock, size_t count) {
        std::vector<void*> samples;
        for (size_t i = 0; i < count; ++i)
            samples.push_back(stock.get());
        stock.collect();
        for (void* sample : samples)
            stock.release_sample(sample);
        stock.collect();
    }

    PRESTypePlugin plugin{};
    MemoryBudget budget{size_t{256} << 20};
    std::deque<MemoryShare> shares;
    std::deque<SampleStock> stocks;
};

TEST_F(SampleStockTest, KeepsWhatSteadyTrafficNeeds) {
    SampleStock& stock = add_stock();
    have_peak(stock, 10);
    EXPECT_EQ(alive, 10);
    have_peak(stock, 10);
    EXPECT_EQ(alive, 10);
    have_peak(stock, 1000);
    EXPECT_EQ(static_cast<size_t>(alive), (size_t{4} << 20) / kBytes);
}

TEST_F(SampleStockTest, ManyTogetherLeaveMostOfTheBudget) {
    for (int i = 0; i < 500; ++i)
        have_peak(add_stock(), 200);
    EXPECT_LE(budget.used(), budget.limit() / 4 + kBytes);
    EXPECT_GT(alive, 500);
}

} // namespace
} // namespace meridian::dcps
