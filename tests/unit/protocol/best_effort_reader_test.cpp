#include "rtps/protocol/best_effort_reader.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "protocol/captured_output.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::seconds;

class BestEffortReaderTest : public ::testing::Test, protected ReaderSink, protected ReaderObserver {
  protected:
    BestEffortReaderTest() {
        context.source = prefix(2);
        reader.add_writer(RemoteWriter{{prefix(2), kWriter}, {}, {0, 2}}, now);
    }
    void on_sample(const Sample& sample) override {
        numbers.push_back(sample.sequence_number);
        vendors.push_back(sample.vendor);
        fast_cdrs.push_back(sample.fast_cdr);
    }
    void on_lost(const Guid&, uint64_t count) override { lost += count; }
    void on_not_taken(const Guid&, NotTaken reason, uint64_t count) override {
        not_taken[static_cast<size_t>(reason)] += count;
    }
    void on_writer_restarted(const Guid&) override {}
    void on_oversized_sample(const Guid&, size_t, size_t) override { ++oversized; }
    void on_memory_used_up(const Guid&) override {}
    void on_number_too_high(const Guid&) override { ++too_high; }

    void data(SequenceNumber number) { reader.on_data(context, data_of(kWriter, number, {}), now); }
    void fragment(SequenceNumber number, FragmentNumber first, uint32_t sample_size = 20) {
        const ByteBuffer payload(10);
        reader.on_data_frag(context, fragment_of(kWriter, number, first, sample_size, payload), now);
    }

    uint64_t told(NotTaken reason) const { return not_taken[static_cast<size_t>(reason)]; }

    static constexpr EntityId kWriter{0x102};
    MonotonicTime now = seconds(10);
    MessageContext context;
    std::vector<SequenceNumber> numbers;
    std::vector<VendorId> vendors;
    std::vector<uint8_t> fast_cdrs;
    uint64_t lost = 0;
    int oversized = 0;
    int too_high = 0;
    std::array<uint64_t, static_cast<size_t>(NotTaken::count)> not_taken{};
    TimerQueue timers;
    MemoryBudget memory{50000};
    BestEffortReader reader{50000, memory, *this, *this, timers};
};

TEST_F(BestEffortReaderTest, DeliversWhatComesAndCountsWhatDoesNot) {
    data(7);
    data(8);
    data(11);
    EXPECT_EQ(numbers, (std::vector<SequenceNumber>{7, 8, 11}));
    EXPECT_EQ(lost, 2u);
}

TEST_F(BestEffortReaderTest, NothingTwiceAndNothingLate) {
    data(2);
    data(2);
    data(1);
    data(4);
    data(3);
    EXPECT_EQ(numbers, (std::vector<SequenceNumber>{2, 4}));
}

TEST_F(BestEffortReaderTest, NumbersBeyondReasonAreNotBelieved) {
    data(std::numeric_limits<SequenceNumber>::max());
    data(0);
    data(1);
    EXPECT_EQ(numbers, (std::vector<SequenceNumber>{1}));
    EXPECT_EQ(too_high, 1) << "told";
    fragment(kHighestSequenceNumber + 1, 1);
    EXPECT_EQ(too_high, 2);
}

TEST_F(BestEffortReaderTest, UnknownWritersAreNotHeard) {
    context.source = prefix(3);
    data(1);
    fragment(1, 1);
    EXPECT_TRUE(numbers.empty());
}

TEST_F(BestEffortReaderTest, FragmentsThatComeTooLateAreDropped) {
    fragment(1, 1);
    data(2);
    fragment(1, 2);
    EXPECT_EQ(numbers, (std::vector<SequenceNumber>{2}));
}

TEST_F(BestEffortReaderTest, WithoutMemoryTheOldestUnfinishedSampleGivesWay) {
    MemoryShare others(memory);
    ASSERT_TRUE(others.take(10000));
    fragment(1, 1, 15000);
    fragment(2, 1, 15000);
    EXPECT_EQ(told(NotTaken::incomplete), 1u);
    MemoryShare more(memory);
    ASSERT_TRUE(more.take(10000));
    fragment(3, 1, 20000);
    EXPECT_EQ(told(NotTaken::incomplete), 2u);
    EXPECT_EQ(told(NotTaken::no_memory), 1u);
    fragment(3, 2, 20000);
    EXPECT_EQ(told(NotTaken::no_memory), 1u) << "once a sample";
    fragment(4, 1);
    fragment(4, 2);
    EXPECT_EQ(numbers, (std::vector<SequenceNumber>{4}));
}

TEST_F(BestEffortReaderTest, IncompleteSamplesAreCountedWhateverEndsThem) {
    fragment(1, 1);
    fragment(2, 1);
    fragment(3, 1);
    fragment(2, 2);
    EXPECT_EQ(told(NotTaken::incomplete), 1u) << "passed by a later one";
    now += seconds(4);
    timers.run(now);
    EXPECT_EQ(told(NotTaken::incomplete), 2u) << "given up";
    fragment(4, 1);
    reader.remove_writer({prefix(2), kWriter});
    EXPECT_EQ(told(NotTaken::incomplete), 3u) << "parted from";
}

TEST_F(BestEffortReaderTest, UnfinishedSamplesAreGivenUpAfterAWhile) {
    fragment(1, 1);
    ASSERT_NE(timers.next_deadline(), kNever);
    now += seconds(4);
    timers.run(now);
    EXPECT_EQ(timers.next_deadline(), kNever);
    fragment(1, 2);
    EXPECT_TRUE(numbers.empty());
}

constexpr SequenceNumber kFar = SequenceNumber{1} << 40;

TEST_F(BestEffortReaderTest, OneNumberFarAheadHidesNothing) {
    data(1);
    data(kFar);
    data(kFar);
    fragment(kFar, 1, 10);
    data(2);
    data(kFar + 6);
    data(3);
    EXPECT_EQ(numbers, (std::vector<SequenceNumber>{1, 2, 3}));
    EXPECT_EQ(lost, 0u);
}

TEST_F(BestEffortReaderTest, ARealJumpIsFollowed) {
    data(1000000000);
    data(1003000000);
    data(1003000001);
    fragment(1013000000, 1);
    fragment(1013000000, 2);
    fragment(1013000001, 1);
    fragment(1013000001, 2);
    EXPECT_EQ(numbers, (std::vector<SequenceNumber>{1000000000, 1003000001, 1013000001}));
}

TEST_F(BestEffortReaderTest, AReaderThatWasLedAstrayReturns) {
    data(1);
    data(kFar);
    data(kFar + 1);
    ASSERT_EQ(numbers.back(), kFar + 1);
    for (SequenceNumber n = 2; n <= 6; ++n) {
        now += std::chrono::milliseconds(200);
        data(n);
        data(1); // was delivered
    }
    EXPECT_EQ(numbers, (std::vector<SequenceNumber>{1, kFar + 1, 4, 5, 6}));
}

TEST_F(BestEffortReaderTest, AFirstNumberFarAheadDoesNotStay) {
    data(kFar);
    for (SequenceNumber n = 7; n <= 10; ++n) {
        now += std::chrono::milliseconds(200);
        data(n);
    }
    EXPECT_EQ(numbers, (std::vector<SequenceNumber>{kFar, 9, 10}));
}

TEST_F(BestEffortReaderTest, AShortJumpDoesNotStayEither) {
    data(1);
    data(500);
    data(1000);
    for (SequenceNumber n = 2; n <= 1005; ++n) {
        now += std::chrono::milliseconds(100);
        data(n);
    }
    EXPECT_EQ(numbers.size(), 3u + (1005 - 4) - 1);
    EXPECT_EQ(std::count(numbers.begin(), numbers.end(), 1000), 1) << "nothing twice";
}

TEST_F(BestEffortReaderTest, RepeatedPacketsDoNotBringItBack) {
    for (SequenceNumber n = 1; n <= 10; ++n)
        data(n);
    for (SequenceNumber n = 3000000; n <= 3000010; ++n)
        data(n);
    const std::vector<SequenceNumber> before = numbers;
    for (SequenceNumber n = 1; n <= 10; ++n) {
        now += std::chrono::milliseconds(200);
        data(n);
        data(3000000 + n);
    }
    EXPECT_EQ(numbers, before);
}

TEST_F(BestEffortReaderTest, OversizedSamplesAreToldAndSkipped) {
    fragment(1, 1, 50001);
    fragment(1, 2, 50001);
    EXPECT_GE(oversized, 1);
    EXPECT_EQ(told(NotTaken::too_large), 1u);
    data(2);
    EXPECT_EQ(numbers, (std::vector<SequenceNumber>{2}));
}

TEST_F(BestEffortReaderTest, SamplesTellTheirVendorAndSerializer) {
    context.vendor = VendorId{{1, 15}};
    data(1);
    fragment(2, 1);
    fragment(2, 2);
    EXPECT_EQ(vendors, std::vector<VendorId>(2, VendorId{{1, 15}}));
    EXPECT_EQ(fast_cdrs, std::vector<uint8_t>(2, 2));
}

} // namespace
} // namespace meridian::rtps::test
