#include "rtps/protocol/reliable_reader.h"

#include <gtest/gtest.h>

#include "protocol/captured_output.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr EntityId kReader{0x00000107};
constexpr EntityId kWriter{0x00000102};

class Sink final : public ReaderSink {
  public:
    std::vector<SequenceNumber> numbers;
    std::vector<size_t> sizes;
    std::vector<VendorId> vendors;
    uint64_t lost = 0;
    void on_sample(const Sample& sample) override {
        numbers.push_back(sample.sequence_number);
        sizes.push_back(sample.payload.size);
        vendors.push_back(sample.vendor);
    }
    void on_lost(const Guid&, uint64_t count) override { lost += count; }
};

class Observer final : public ReaderObserver {
  public:
    int restarts = 0;
    std::vector<size_t> oversized;
    void on_writer_restarted(const Guid&) override { ++restarts; }
    void on_oversized_sample(const Guid&, size_t size) override { oversized.push_back(size); }
};

class ReliableReaderTest : public ::testing::Test {
  protected:
    void make(bool is_volatile, ReliableReader::Limits limits = {}, VendorId vendor = {}) {
        reader = std::make_unique<ReliableReader>(kReader, is_volatile, ReaderConfig{}, limits, sink,
                                                  observer, batcher, timers);
        reader->add_writer(RemoteWriter{writer, Route{prefix(2), {udpv4(2)}}, vendor}, now);
    }
    void data(SequenceNumber number, size_t size = 8) {
        const ByteBuffer payload(size, 1);
        Data d;
        d.writer = kWriter;
        d.sequence_number = number;
        d.has_payload = true;
        d.payload = payload;
        reader->on_data(context, d, now);
    }
    void fragment(SequenceNumber number, FragmentNumber first, uint32_t sample_size = 25,
                  uint16_t size = 10) {
        const ByteBuffer payload(size, 1);
        DataFrag d;
        d.writer = kWriter;
        d.sequence_number = number;
        d.first_fragment = first;
        d.fragment_count = 1;
        d.fragment_size = size;
        d.sample_size = sample_size;
        d.payload = payload;
        reader->on_data_frag(context, d, now);
    }
    void heartbeat(SequenceNumber first, SequenceNumber last, bool final = false) {
        heartbeat_with_count(first, last, ++count, final);
    }
    void heartbeat_with_count(SequenceNumber first, SequenceNumber last, Count c, bool final = false) {
        Heartbeat h;
        h.writer = kWriter;
        h.first = first;
        h.last = last;
        h.count = c;
        h.final = final;
        reader->on_heartbeat(writer, h, now);
    }
    void gap(SequenceNumber start, SequenceNumber base, std::vector<SequenceNumber> more = {}) {
        Gap g;
        g.writer = kWriter;
        g.start = start;
        g.list.base = base;
        for (SequenceNumber number : more)
            g.list.insert(number);
        reader->on_gap(writer, g, now);
    }
    Lines sent() {
        timers.run(now);
        batcher.flush();
        return output.take();
    }
    Lines sent_after(Duration pause) {
        now += pause;
        return sent();
    }

    MonotonicTime now = seconds(1);
    Count count = 0;
    Guid writer{prefix(2), kWriter};
    MessageContext context = [] {
        MessageContext c;
        c.source = prefix(2);
        return c;
    }();
    CapturedOutput output;
    MessageBatcher batcher{prefix(1), 1400, output};
    TimerQueue timers;
    Sink sink;
    Observer observer;
    std::unique_ptr<ReliableReader> reader;
};

TEST_F(ReliableReaderTest, SamplesTellTheirVendor) {
    make(false);
    context.vendor = VendorId{{1, 15}};
    data(1);
    data(3); // kept until the second is whole
    for (FragmentNumber number = 1; number <= 3; ++number)
        fragment(2, number);
    EXPECT_EQ(sink.vendors, std::vector<VendorId>(3, VendorId{{1, 15}}));
}

TEST_F(ReliableReaderTest, SpeaksFirstAndRepeatsUntilTheFirstHeartbeat) {
    make(false);
    EXPECT_EQ(sent(), (Lines{"ACKNACK 1 {}"}));
    EXPECT_EQ(sent(), Lines{});
    EXPECT_EQ(sent_after(milliseconds(99)), Lines{});
    EXPECT_EQ(sent_after(milliseconds(1)), (Lines{"ACKNACK 1 {}"}));
    EXPECT_EQ(sent_after(milliseconds(200)), (Lines{"ACKNACK 1 {}"}));
    heartbeat(1, 0, true);
    EXPECT_EQ(sent_after(seconds(60)), Lines{});
    EXPECT_EQ(timers.next_deadline(), kNever);
}

TEST_F(ReliableReaderTest, UsesBaseZeroForFastDds) {
    make(false, {}, VendorId{{0x01, 0x0f}});
    EXPECT_EQ(sent(), (Lines{"ACKNACK 0 {}"}));
}

TEST_F(ReliableReaderTest, CountsGrowOverAllAcknowledgements) {
    make(false);
    timers.run(now);
    heartbeat(1, 3);
    timers.run(now);
    now += milliseconds(100);
    timers.run(now);
    batcher.flush();
    EXPECT_EQ(output.parse().counts, (std::vector<Count>{1, 2, 3}));
}

TEST_F(ReliableReaderTest, DeliversInOrderWhatComesInDisorder) {
    make(false);
    data(2);
    data(3);
    EXPECT_TRUE(sink.numbers.empty());
    data(1);
    data(2);
    data(5);
    data(5);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{1, 2, 3}));
    data(4);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{1, 2, 3, 4, 5}));
    EXPECT_EQ(sink.lost, 0u);
}

TEST_F(ReliableReaderTest, IgnoresWritersThatWereNotAdded) {
    make(false);
    context.source = prefix(9);
    data(1);
    EXPECT_TRUE(sink.numbers.empty());
}

TEST_F(ReliableReaderTest, AnswersAHeartbeatAtOnceAndAsksForWhatIsMissing) {
    make(false);
    sent();
    data(1);
    data(3);
    heartbeat(1, 5);
    EXPECT_EQ(sent(), (Lines{"ACKNACK 2 {2 4 5}"}));
    data(2);
    data(4);
    data(5);
    heartbeat(1, 5);
    EXPECT_EQ(sent_after(milliseconds(1)), (Lines{"ACKNACK 6 {} final"}));
    heartbeat(1, 5, true);
    EXPECT_EQ(sent_after(seconds(10)), Lines{});
}

TEST_F(ReliableReaderTest, AWriterNeverWaitsForAnAcknowledgementOfWhatHasCome) {
    make(false);
    sent();
    for (SequenceNumber number = 1; number <= 1000; ++number) {
        data(number);
        heartbeat(1, number);
        EXPECT_EQ(sent(), (Lines{"ACKNACK " + std::to_string(number + 1) + " {} final"}));
        now += std::chrono::microseconds(10);
    }
}

TEST_F(ReliableReaderTest, HeartbeatsThatNameNothingNewAreAnsweredFromABudget) {
    make(false);
    sent();
    data(1);
    size_t answers = 0;
    for (int i = 0; i < 10000; ++i) {
        heartbeat(1, 1);
        answers += sent_after(std::chrono::microseconds(10)).size();
    }
    EXPECT_GE(answers, 100u);
    EXPECT_LE(answers, 120u);
    heartbeat(1, 1);
    EXPECT_EQ(sent_after(milliseconds(1)).size(), 1u) << "none goes without an answer";
}

TEST_F(ReliableReaderTest, TheSameSamplesAreAskedForAgainAfterAPause) {
    make(false);
    sent();
    heartbeat(1, 1);
    EXPECT_EQ(sent(), (Lines{"ACKNACK 1 {1}"}));
    heartbeat(1, 1);
    EXPECT_EQ(sent_after(milliseconds(9)), Lines{});
    EXPECT_EQ(sent_after(milliseconds(1)), (Lines{"ACKNACK 1 {1}"}));
    EXPECT_EQ(sent_after(milliseconds(99)),
              Lines{}); // the writer says nothing more: asked with growing pauses
    EXPECT_EQ(sent_after(milliseconds(1)), (Lines{"ACKNACK 1 {1}"}));
    EXPECT_EQ(sent_after(milliseconds(199)), Lines{});
    EXPECT_EQ(sent_after(milliseconds(1)), (Lines{"ACKNACK 1 {1}"}));
    data(1);
    EXPECT_EQ(sent_after(seconds(10)), Lines{});
}

TEST_F(ReliableReaderTest, AsksForAtMost256SamplesAtATime) {
    make(false);
    sent();
    heartbeat(1, 100000);
    const Lines lines = sent();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find(" 256}"), std::string::npos);
    EXPECT_EQ(lines[0].find(" 257"), std::string::npos);
}

TEST_F(ReliableReaderTest, OldHeartbeatsAreIgnored) {
    make(false);
    sent();
    heartbeat_with_count(1, 0, 10, true);
    heartbeat_with_count(1, 7, 9);
    heartbeat_with_count(1, 7, 10);
    EXPECT_EQ(sent(), Lines{});
}

TEST_F(ReliableReaderTest, HeartbeatCountsWrapAround) {
    make(false);
    sent();
    heartbeat_with_count(1, 0, 0x7fffffff, true);
    heartbeat_with_count(1, 1, static_cast<Count>(0x80000000u));
    EXPECT_EQ(sent(), (Lines{"ACKNACK 1 {1}"}));
    heartbeat_with_count(1, 2, -1);
    EXPECT_EQ(sent_after(milliseconds(10)), (Lines{"ACKNACK 1 {1 2}"}));
    heartbeat_with_count(1, 3, 0);
    EXPECT_EQ(sent_after(milliseconds(10)), (Lines{"ACKNACK 1 {1 2 3}"}));
}

TEST_F(ReliableReaderTest, WhatTheWriterNoLongerHasIsReportedAsLost) {
    make(false);
    heartbeat(1, 0);
    data(1);
    data(4);
    heartbeat(7, 8);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{1, 4}));
    EXPECT_EQ(sink.lost, 4u); // 2, 3, 5 and 6
    data(7);
    EXPECT_EQ(sink.numbers.back(), 7);
}

TEST_F(ReliableReaderTest, WhatWasGoneBeforeTheFirstContactIsNotLost) {
    make(false);
    heartbeat(100, 101);
    EXPECT_EQ(sink.lost, 0u);
    data(100);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{100}));
}

TEST_F(ReliableReaderTest, GapsMoveOnWithoutLoss) {
    make(false);
    sent();
    heartbeat(1, 8);
    gap(1, 3, {4, 6});
    data(3);
    data(5);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{3, 5}));
    data(7);
    gap(8, 9);
    heartbeat(1, 8);
    EXPECT_EQ(sent_after(milliseconds(1)), (Lines{"ACKNACK 9 {} final"}));
    EXPECT_EQ(sink.lost, 0u);
}

TEST_F(ReliableReaderTest, AGapAheadCountsWhenItsTurnComes) {
    make(false);
    gap(2, 4);
    data(4);
    EXPECT_TRUE(sink.numbers.empty());
    data(1);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{1, 4}));
}

TEST_F(ReliableReaderTest, AHugeGapFarAheadCostsLittle) {
    make(false);
    gap(2, SequenceNumber{1} << 40);
    data(1);
    heartbeat(1, SequenceNumber{1} << 40);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{1}));
}

TEST_F(ReliableReaderTest, AVolatileReaderStartsAtTheFirstHeartbeat) {
    make(true);
    EXPECT_EQ(sent(), (Lines{"ACKNACK 1 {}"}));
    heartbeat(1, 50);
    EXPECT_EQ(sent(), (Lines{"ACKNACK 51 {} final"}));
    data(51);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{51}));
    EXPECT_EQ(sink.lost, 0u);
}

TEST_F(ReliableReaderTest, AVolatileReaderKeepsWhatCameBeforeTheFirstHeartbeat) {
    make(true);
    sent();
    gap(1, 49);
    data(49);
    data(51);
    EXPECT_TRUE(sink.numbers.empty());
    heartbeat(1, 51);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{49}));
    EXPECT_EQ(sent(), (Lines{"ACKNACK 50 {50}"}));
    data(50);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{49, 50, 51}));
}

TEST_F(ReliableReaderTest, AVolatileReaderTakesWhatTheFirstHeartbeatOvertook) {
    make(true);
    sent();
    heartbeat(1, 2);
    data(1);
    data(2);
    data(3);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{1, 2, 3}));
    EXPECT_EQ(sink.lost, 0u);
}

TEST_F(ReliableReaderTest, AVolatileReaderTakesNothingOlderLater) {
    make(true);
    sent();
    heartbeat(1, 2);
    data(3);
    data(2);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{3})) << "out of order";
    make(true);
    heartbeat(1, 2);
    now += milliseconds(201);
    data(2);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{3})) << "sent again for others";
}

TEST_F(ReliableReaderTest, AWriterThatBeganAnewShowsByFreshHeartbeatsWithALowerEnd) {
    make(false);
    for (SequenceNumber n = 1; n <= 5; ++n)
        data(n);
    heartbeat(1, 5);
    heartbeat(1, 2);
    EXPECT_EQ(observer.restarts, 0);
    heartbeat(1, 2);
    EXPECT_EQ(observer.restarts, 1);
    EXPECT_EQ(sent_after(milliseconds(1)), (Lines{"ACKNACK 1 {1 2}"}));
    data(1);
    EXPECT_EQ(sink.numbers.back(), 1);
}

TEST_F(ReliableReaderTest, AWriterThatBeganAnewShowsByPersistingOldCounts) {
    make(false);
    for (SequenceNumber n = 1; n <= 5; ++n)
        data(n);
    heartbeat_with_count(1, 5, 100);
    sent();
    now += seconds(1);
    heartbeat_with_count(1, 2, 1);
    now += milliseconds(300);
    heartbeat_with_count(1, 2, 2);
    heartbeat_with_count(1, 2, 2);
    now += milliseconds(100);
    heartbeat_with_count(1, 2, 3);
    EXPECT_EQ(observer.restarts, 0);
    now += milliseconds(100);
    heartbeat_with_count(1, 2, 4);
    EXPECT_EQ(observer.restarts, 1);
    EXPECT_EQ(sent(), (Lines{"ACKNACK 1 {1 2}"}));
}

TEST_F(ReliableReaderTest, DelayedHeartbeatsBetweenFreshOnesAreNoRestart) {
    make(false);
    data(1);
    for (Count c = 100; c < 120; ++c) {
        heartbeat_with_count(1, 1, c, true);
        now += milliseconds(100);
        heartbeat_with_count(1, 0, c - 50, true);
        now += milliseconds(100);
    }
    EXPECT_EQ(observer.restarts, 0);
}

TEST_F(ReliableReaderTest, FragmentsBecomeASample) {
    make(false);
    fragment(1, 3);
    fragment(1, 1);
    EXPECT_TRUE(sink.numbers.empty());
    fragment(1, 2);
    fragment(1, 2);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{1}));
    EXPECT_EQ(sink.sizes, (std::vector<size_t>{25}));
}

TEST_F(ReliableReaderTest, MissingFragmentsAreAskedForOneByOne) {
    make(false);
    sent();
    fragment(1, 2);
    heartbeat(1, 2);
    EXPECT_EQ(sent(), (Lines{"ACKNACK 1 {2}", "NACK_FRAG 1 {1 3}"}));
}

TEST_F(ReliableReaderTest, AHeartbeatFragIsAnsweredForWhatWasSent) {
    make(false);
    sent();
    HeartbeatFrag h;
    h.writer = kWriter;
    h.sequence_number = 1;
    h.last_fragment = 2;
    h.count = 1;
    reader->on_heartbeat_frag(writer, h, now);
    EXPECT_EQ(sent(), (Lines{"NACK_FRAG 1 {1 2}"}));
    fragment(1, 1);
    fragment(1, 2);
    now += milliseconds(20);
    h.count = 2;
    reader->on_heartbeat_frag(writer, h, now);
    EXPECT_EQ(sent(), Lines{});
    h.last_fragment = 3;
    reader->on_heartbeat_frag(writer, h, now); // an old count
    EXPECT_EQ(sent(), Lines{});
    h.count = 3;
    reader->on_heartbeat_frag(writer, h, now);
    EXPECT_EQ(sent(), (Lines{"NACK_FRAG 1 {3}"}));
}

TEST_F(ReliableReaderTest, AnOversizedSampleIsLostAndTheNextOneComes) {
    make(false, ReliableReader::Limits{100, 1000});
    fragment(1, 1, 101);
    EXPECT_EQ(observer.oversized, (std::vector<size_t>{101}));
    EXPECT_EQ(sink.lost, 1u);
    data(2);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{2}));
}

TEST_F(ReliableReaderTest, MemoryIsBoundedAndNothingIsLostByIt) {
    make(false, ReliableReader::Limits{5000, 10000});
    sent();
    for (SequenceNumber n = 2; n <= 100; ++n)
        data(n, 1000);
    heartbeat(1, 100);
    const Lines lines = sent();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("{1 "), std::string::npos);
    fragment(1, 1, 4000, 2000); // needs room that the samples ahead must give
    fragment(1, 2, 4000, 2000);
    ASSERT_FALSE(sink.numbers.empty());
    EXPECT_EQ(sink.numbers.front(), 1);
    for (SequenceNumber n = sink.numbers.back() + 1; n <= 100; ++n)
        data(n, 1000);
    EXPECT_EQ(sink.numbers.size(), 100u);
    EXPECT_EQ(sink.lost, 0u);
}

TEST_F(ReliableReaderTest, ASampleThatMustNotBeReadIsLost) {
    make(false);
    const ByteBuffer qos{0x77, 0x77, 0x04, 0x00, 0,    0,
                         0,    0,    0x01, 0x00, 0x00, 0x00}; // unknown, must-understand
    Data d;
    d.writer = kWriter;
    d.sequence_number = 1;
    d.endianness = Endianness::little;
    d.inline_qos = qos;
    d.has_payload = true;
    reader->on_data(context, d, now);
    EXPECT_TRUE(sink.numbers.empty());
    EXPECT_EQ(sink.lost, 1u);
    data(2);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{2}));
}

TEST_F(ReliableReaderTest, NumbersBeyondReasonAreNotBelieved) {
    constexpr SequenceNumber kLast = std::numeric_limits<SequenceNumber>::max();
    make(false);
    sent();
    heartbeat(1, kLast);
    heartbeat(kLast, kLast - 1);
    gap(1, kLast);
    data(kLast);
    fragment(kLast, 1);
    data(0);
    data(-5);
    EXPECT_EQ(sent_after(milliseconds(1)), Lines{});
    data(1);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{1}));
}

TEST_F(ReliableReaderTest, ARemovedWriterIsForgotten) {
    make(false);
    data(2);
    reader->remove_writer(writer);
    data(1);
    EXPECT_TRUE(sink.numbers.empty());
    EXPECT_EQ(sent_after(seconds(10)), Lines{});
}

} // namespace
} // namespace meridian::rtps::test
