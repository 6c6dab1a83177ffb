#include "rtps/protocol/best_effort_reader.h"

#include <gtest/gtest.h>

#include "protocol/captured_output.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::seconds;

class BestEffortReaderTest : public ::testing::Test, protected ReaderSink, protected ReaderObserver {
  protected:
    BestEffortReaderTest() {
        context.source = prefix(2);
        reader.add_writer(RemoteWriter{{prefix(2), kWriter}, {}, {}}, now);
    }
    void on_sample(const Sample& sample) override {
        numbers.push_back(sample.sequence_number);
        vendors.push_back(sample.vendor);
    }
    void on_lost(const Guid&, uint64_t count) override { lost += count; }
    void on_writer_restarted(const Guid&) override {}
    void on_oversized_sample(const Guid&, size_t) override { ++oversized; }

    void data(SequenceNumber number) {
        Data d;
        d.writer = kWriter;
        d.sequence_number = number;
        d.has_payload = true;
        reader.on_data(context, d, now);
    }
    void fragment(SequenceNumber number, FragmentNumber first, uint32_t sample_size = 20) {
        const ByteBuffer payload(10);
        DataFrag d;
        d.writer = kWriter;
        d.sequence_number = number;
        d.first_fragment = first;
        d.fragment_size = 10;
        d.sample_size = sample_size;
        d.payload = payload;
        reader.on_data_frag(context, d, now);
    }

    static constexpr EntityId kWriter{0x102};
    MonotonicTime now = seconds(10);
    MessageContext context;
    std::vector<SequenceNumber> numbers;
    std::vector<VendorId> vendors;
    uint64_t lost = 0;
    int oversized = 0;
    TimerQueue timers;
    BestEffortReader reader{100, 45, *this, *this, timers};
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
    fragment(1, 1);
    fragment(2, 1);
    fragment(3, 1); // 3 times 20 bytes do not fit in 45
    fragment(1, 2);
    EXPECT_TRUE(numbers.empty());
    fragment(3, 2);
    EXPECT_EQ(numbers, (std::vector<SequenceNumber>{3}));
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

TEST_F(BestEffortReaderTest, OversizedSamplesAreToldAndSkipped) {
    fragment(1, 1, 101);
    EXPECT_EQ(oversized, 1);
    data(2);
    EXPECT_EQ(numbers, (std::vector<SequenceNumber>{2}));
}

TEST_F(BestEffortReaderTest, SamplesTellTheirVendor) {
    context.vendor = VendorId{{1, 15}};
    data(1);
    fragment(2, 1);
    fragment(2, 2);
    EXPECT_EQ(vendors, std::vector<VendorId>(2, VendorId{{1, 15}}));
}

} // namespace
} // namespace meridian::rtps::test
