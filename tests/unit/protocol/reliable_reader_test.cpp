#include "rtps/protocol/reliable_reader.h"

#include <gtest/gtest.h>

#include "protocol/captured_output.h"
#include "support/allocation_counter.h"

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
    std::vector<uint8_t> fast_cdrs;
    uint64_t lost = 0;
    void on_sample(const Sample& sample) override {
        numbers.push_back(sample.sequence_number);
        sizes.push_back(sample.payload.size);
        vendors.push_back(sample.vendor);
        fast_cdrs.push_back(sample.fast_cdr);
    }
    void on_lost(const Guid&, uint64_t count) override { lost += count; }
};

class Observer final : public ReaderObserver {
  public:
    int restarts = 0;
    std::vector<size_t> oversized;
    void on_writer_restarted(const Guid&) override { ++restarts; }
    void on_oversized_sample(const Guid&, size_t size, size_t) override { oversized.push_back(size); }
    void on_memory_used_up(const Guid&) override { ++memory_used_up; }
    int memory_used_up = 0;
};

class ReliableReaderTest : public ::testing::Test {
  protected:
    void make(bool is_volatile, ReliableReader::Limits limits = {}, VendorId vendor = {},
              const ReaderConfig& config = {}) {
        reader = std::make_unique<ReliableReader>(kReader, is_volatile, config, limits, sink, observer,
                                                  batcher, timers);
        reader->add_writer(RemoteWriter{writer, Route{prefix(2), {udpv4(2)}}, vendor, 2}, now);
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
    MemoryBudget memory{20000};
    std::unique_ptr<ReliableReader> reader;
};

TEST_F(ReliableReaderTest, SamplesTellTheirVendorAndSerializer) {
    make(false);
    context.vendor = VendorId{{1, 15}};
    data(1);
    data(3); // kept until the second is whole
    for (FragmentNumber number = 1; number <= 3; ++number)
        fragment(2, number);
    EXPECT_EQ(sink.vendors, std::vector<VendorId>(3, VendorId{{1, 15}}));
    EXPECT_EQ(sink.fast_cdrs, std::vector<uint8_t>(3, 2));
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
    make(false);
    sent();
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
    heartbeat(1, 4);
    gap(2, 4);
    data(4);
    EXPECT_TRUE(sink.numbers.empty());
    data(1);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{1, 4}));
}

TEST_F(ReliableReaderTest, GapsCostNothingForTheirNumbers) {
    make(false, ReliableReader::Limits{5000, &memory});
    heartbeat(1, SequenceNumber{1} << 40);
    sent();
    const uint64_t before = ::test::thread_allocations();
    for (SequenceNumber n = 2000; n > 0; --n)
        gap(10000 * n, 10000 * n + 4096, {10000 * n + 4098, 10000 * n + 4100});
    EXPECT_LE(::test::thread_allocations() - before, 2050u) << "2000 of them are the test's own";
    gap(2, SequenceNumber{1} << 40);
    data(1);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{1}));
    data(SequenceNumber{1} << 40);
    EXPECT_EQ(sink.numbers.size(), 2u) << "all between was a gap";
    EXPECT_EQ(memory.used(), 0u);
}

TEST_F(ReliableReaderTest, GapsThatWereForgottenAreAskedForAgain) {
    make(false);
    heartbeat(1, 2000);
    sent();
    for (SequenceNumber n = 1000; n > 0; --n)
        gap(2 * n, 2 * n + 1);
    for (SequenceNumber n = 1; n < 2000; n += 2)
        data(n);
    EXPECT_EQ(sink.numbers.back(), 2 * SequenceNumber{NumberIntervals::kMost} + 1);
    heartbeat(1, 2000);
    const Lines lines = sent_after(milliseconds(10));
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].rfind("ACKNACK 514 {514 516 ", 0), 0u) << lines[0];
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

// Some fragments of the first sample are lost, or the heartbeat overtakes them.
TEST_F(ReliableReaderTest, AVolatileReaderKeepsWhatItHasFragmentsOf) {
    make(true);
    sent();
    fragment(2, 1);
    fragment(1, 3);
    heartbeat(1, 2);
    EXPECT_EQ(sent(), (Lines{"ACKNACK 1 {}", "NACK_FRAG 1 {1 2}", "NACK_FRAG 2 {2 3}"}));
    for (const FragmentNumber number : {1u, 2u, 3u}) {
        fragment(1, number);
        fragment(2, number);
    }
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{1, 2}));

    make(true);
    sink = {};
    heartbeat(1, 2);
    for (const FragmentNumber number : {1u, 2u, 3u}) {
        fragment(2, number == 3 ? 1 : number);
        fragment(1, number);
    }
    fragment(2, 3);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{1, 2}));
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
    now += milliseconds(100);
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
    make(false, ReliableReader::Limits{100, &memory});
    fragment(1, 1, 101);
    EXPECT_EQ(observer.oversized, (std::vector<size_t>{101}));
    EXPECT_EQ(sink.lost, 1u);
    data(2);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{2}));
}

TEST_F(ReliableReaderTest, MemoryIsBoundedAndNothingIsLostByIt) {
    make(false, ReliableReader::Limits{5000, &memory});
    sent();
    data(2, 1000);
    EXPECT_EQ(observer.memory_used_up, 0);
    for (SequenceNumber n = 3; n <= 100; ++n)
        data(n, 1000);
    EXPECT_EQ(observer.memory_used_up, 1) << "told once";
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

TEST_F(ReliableReaderTest, UnfinishedSamplesAreGivenUpAndAskedForAgain) {
    make(false, ReliableReader::Limits{5000, &memory});
    fragment(1, 1);
    heartbeat(1, 1);
    EXPECT_EQ(sent_after(seconds(2)), (Lines{"ACKNACK 1 {}", "NACK_FRAG 1 {2 3}"}));
    fragment(1, 1, 26);
    EXPECT_EQ(sent_after(seconds(1)), (Lines{"ACKNACK 1 {1}"})) << "all of it";
    EXPECT_LE(memory.used(), 1000u);
    for (FragmentNumber n = 1; n <= 3; ++n)
        fragment(1, n, 26);
    EXPECT_EQ(sink.sizes, (std::vector<size_t>{26}));
}

TEST_F(ReliableReaderTest, SamplesOutOfOrderAreMovedAndNotCopied) {
    make(false);
    for (FragmentNumber number = 1; number <= 3; ++number)
        fragment(2, number, 150000, 50000);
    data(1);
    EXPECT_EQ(sink.sizes, (std::vector<size_t>{8, 150000}));
}

TEST_F(ReliableReaderTest, ABuiltinReaderHoldsLittle) {
    ReaderConfig config;
    config.builtin_peer = BuiltinPeer{};
    make(false, {}, {}, config);
    const size_t before = MemoryBudget::of_process().used();
    const size_t heap = ::test::heap_bytes();
    for (SequenceNumber n = 2; n < 3000; ++n)
        data(n, 1000);
    EXPECT_EQ(observer.memory_used_up, 0) << "announcements have little of their own";
    EXPECT_LE(::test::heap_bytes() - heap, ReliableReader::kBuiltinMemory);
    EXPECT_EQ(MemoryBudget::of_process().used(), before);
    fragment(1, 1, ReliableReader::kLargestAnnouncement + 1, 50000);
    EXPECT_EQ(observer.oversized.size(), 1u) << "nothing waits for it";
    EXPECT_GT(sink.numbers.size(), 100u);
}

TEST_F(ReliableReaderTest, TheLargestAnnouncementFindsRoom) {
    ReaderConfig config;
    config.builtin_peer = BuiltinPeer{};
    make(false, {}, {}, config);
    for (SequenceNumber n = 2; n < 3000; ++n)
        data(n, 1000);
    for (FragmentNumber n = 1; n * 50000 < ReliableReader::kLargestAnnouncement + 50000; ++n)
        fragment(1, n, ReliableReader::kLargestAnnouncement, 50000);
    ASSERT_FALSE(sink.sizes.empty());
    EXPECT_EQ(sink.sizes[0], ReliableReader::kLargestAnnouncement);
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

constexpr SequenceNumber kFar = SequenceNumber{1} << 40;

TEST_F(ReliableReaderTest, OneMessageFarAheadHidesNothing) {
    for (const bool is_volatile : {false, true}) {
        make(is_volatile);
        sink = {};
        count = 0;
        heartbeat(1, 0);
        data(1);
        heartbeat(1, 1);
        sent_after(milliseconds(100));
        data(kFar);
        fragment(kFar, 1, 10);
        gap(1, kFar);
        gap(2, kFar, {kFar + 1});
        heartbeat_with_count(kFar, kFar, 1 << 30);
        for (const std::string& line : sent_after(milliseconds(100)))
            EXPECT_EQ(line, "ACKNACK 1 {}") << "asks, and acknowledges nothing that it has not got";
        for (SequenceNumber n = 2; n <= 10; ++n) {
            data(n);
            heartbeat(1, n);
            EXPECT_EQ(sent_after(milliseconds(100)),
                      (Lines{"ACKNACK " + std::to_string(n + 1) + " {} final"}));
        }
        EXPECT_EQ(sink.numbers.size(), 10u);
        EXPECT_EQ(sink.lost, 0u);
        EXPECT_EQ(sent_after(seconds(10)), Lines{});
    }
    EXPECT_EQ(observer.restarts, 0);
}

TEST_F(ReliableReaderTest, TheWriterIsAskedWhenAHeartbeatIsInDoubt) {
    make(false);
    heartbeat(1, 1);
    data(1);
    sent_after(milliseconds(1));
    heartbeat_with_count(kFar, kFar, 1 << 30);
    EXPECT_EQ(sent_after(milliseconds(100)), (Lines{"ACKNACK 1 {}"}));
    heartbeat_with_count(kFar, kFar, 1 << 30);
    EXPECT_EQ(sent_after(milliseconds(1)), Lines{}) << "not more often than it is sensible";
    EXPECT_EQ(sent_after(milliseconds(100)), (Lines{"ACKNACK 1 {}"}));
    heartbeat(1, 1, true);
    EXPECT_EQ(sent_after(seconds(10)), Lines{}) << "answered";
    heartbeat_with_count(kFar, kFar, 1 << 30);
    size_t asked = 0;
    for (int i = 0; i < 100; ++i)
        asked += sent_after(milliseconds(100)).size();
    EXPECT_GE(asked, 5u);
    EXPECT_LE(asked, 11u) << "not for ever";
    EXPECT_EQ(timers.next_deadline(), kNever);
}

TEST_F(ReliableReaderTest, WhatIsKnownCanFallAgain) {
    make(false);
    heartbeat(1, 0);
    heartbeat(1, 5000);
    EXPECT_EQ(sent().size(), 1u);
    heartbeat(1, 0);
    EXPECT_LE(sent_after(milliseconds(100)).size(), 2u);
    heartbeat(1, 0, true);
    EXPECT_EQ(observer.restarts, 1);
    sent_after(milliseconds(100));
    EXPECT_EQ(sent_after(seconds(10)), Lines{});
}

TEST_F(ReliableReaderTest, AReaderThatWasLedAstrayReturns) {
    for (const bool is_volatile : {false, true}) {
        make(is_volatile);
        sink = {};
        count = 0;
        heartbeat(1, 0);
        data(1);
        heartbeat(1, 1);
        // Numbers that a writer may well reach.
        heartbeat_with_count(1000, 1000, count + 3);
        sent_after(milliseconds(1));
        for (SequenceNumber n = 2; n <= 40; ++n) {
            data(n);
            heartbeat(1, n);
            sent_after(milliseconds(100));
        }
        // The reader asks for what it did not take.
        for (SequenceNumber n = 2; n <= 40; ++n)
            data(n);
        ASSERT_EQ(sink.numbers.size(), 40u);
        EXPECT_TRUE(std::is_sorted(sink.numbers.begin(), sink.numbers.end()));
    }
    EXPECT_EQ(observer.restarts, 0);
}

TEST_F(ReliableReaderTest, AnIdleWriterIsAskedWhetherItJumped) {
    make(false);
    heartbeat(1, 0);
    data(1);
    heartbeat(1, 1, true);
    sent_after(milliseconds(100));
    heartbeat_with_count(1000, 1000, 500);
    // The writer says something only when it is asked.
    for (int i = 0; i < 20; ++i) {
        for (const std::string& line : sent_after(milliseconds(50))) {
            if (line == "ACKNACK 1 {}")
                heartbeat(1, 1);
        }
    }
    data(2);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{1, 2}));
    EXPECT_EQ(observer.restarts, 0);
}

TEST_F(ReliableReaderTest, ARealJumpIsFollowed) {
    make(true);
    heartbeat(1, 1000000000);
    data(1000000001);
    now += seconds(10);
    count += 100000;
    heartbeat(1003000000, 1003000010);
    heartbeat(1003000000, 1003000010);
    sent_after(milliseconds(100));
    heartbeat(1003000000, 1003000010);
    for (SequenceNumber n = 1003000000; n <= 1003000010; ++n)
        data(n);
    EXPECT_EQ(sink.numbers.size(), 12u);
    EXPECT_EQ(sink.lost, 2999998u);
}

TEST_F(ReliableReaderTest, EverySampleOfASecondLifeIsTaken) {
    for (const bool is_volatile : {false, true}) {
        make(is_volatile);
        sink = {};
        count = 0;
        heartbeat(1, 0);
        for (SequenceNumber n = 1; n <= 500; ++n) {
            data(n);
            heartbeat(1, n, true);
        }
        const MonotonicTime begun = now += seconds(3);
        observer.restarts = 0;
        Count second = 0;
        for (SequenceNumber n = 1; observer.restarts == 0; ++n) {
            data(n);
            heartbeat_with_count(1, n, ++second);
            sent_after(milliseconds(100));
            ASSERT_LT(now, begun + seconds(1));
        }
        const SequenceNumber written = second;
        for (SequenceNumber n = 1; n <= written; ++n)
            data(n);
        EXPECT_EQ(static_cast<SequenceNumber>(sink.numbers.size()), 500 + written);
    }
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
