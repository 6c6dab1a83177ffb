#include "protocol/reliable_reader_fixture.h"
#include "support/allocation_counter.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

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
    make(false, {}, kPreemptedByZero);
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

TEST_F(ReliableReaderTest, AWriterThatWritesSeldomIsAcknowledgedTogetherWithOthers) {
    make(false);
    sent();
    const auto sent_at_once = [this] {
        timers.run(now);
        batcher.flush_due(now);
        return output.take();
    };
    data(1);
    heartbeat(1, 1);
    EXPECT_EQ(sent_at_once(), (Lines{"ACKNACK 2 {} final"}));
    now += milliseconds(100);
    batcher.add(Route{prefix(2), {udpv4(2)}}, Heartbeat{}); // another one was answered just before
    EXPECT_EQ(sent_at_once(), (Lines{"HEARTBEAT 1..0"}));
    data(2);
    heartbeat(1, 2);
    EXPECT_EQ(sent_at_once(), Lines{});
    now += MessageBatcher::kLongestWait;
    EXPECT_EQ(batcher.next_deadline(), now);
    EXPECT_EQ(sent_at_once(), (Lines{"ACKNACK 3 {} final"}));
    data(3); // it goes on: it may be waiting
    heartbeat(1, 3);
    EXPECT_EQ(sent_at_once(), (Lines{"ACKNACK 4 {} final"}));
    now += milliseconds(100);
    data(4); // two at a time: likewise
    data(5);
    heartbeat(1, 5);
    EXPECT_EQ(sent_at_once(), (Lines{"ACKNACK 6 {} final"}));
    now += milliseconds(100);
    batcher.add(Route{prefix(2), {udpv4(2)}}, Heartbeat{});
    EXPECT_EQ(sent_at_once(), (Lines{"HEARTBEAT 1..0"}));
    heartbeat(1, 6); // asks for what is missing
    EXPECT_EQ(sent_at_once(), (Lines{"ACKNACK 6 {6}"}));
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
    EXPECT_GE(answers, 16u);
    EXPECT_LE(answers, 22u);
    heartbeat(1, 1);
    EXPECT_EQ(sent_after(milliseconds(20)).size(), 1u) << "none goes without an answer";
}

// A writer that keeps all would stand still.
TEST_F(ReliableReaderTest, RequestsDoNotUseUpTheBudgetOfRepeatedAnswers) {
    make(false);
    sent();
    for (int i = 0; i < 300; ++i) { // 3 s
        heartbeat(1, 1);
        sent_after(milliseconds(10));
    }
    data(1);
    heartbeat(1, 1);
    EXPECT_EQ(sent(), (Lines{"ACKNACK 2 {} final"})); // which is lost
    heartbeat(1, 1);
    EXPECT_EQ(sent_after(milliseconds(1)), (Lines{"ACKNACK 2 {} final"}));
}

TEST_F(ReliableReaderTest, AnEmptyWriterThatAnswersEachAnswerMakesNoStorm) {
    make(false);
    sent();
    size_t answers = 0;
    for (int i = 0; i < 10000; ++i) { // a second
        if (i == 0 || !sent_after(std::chrono::microseconds(100)).empty()) {
            ++answers;
            heartbeat(1, 0);
        }
    }
    EXPECT_GE(answers, 17u);
    EXPECT_LE(answers, 70u);
    data(1);
    heartbeat(1, 1);
    EXPECT_EQ(sent(), (Lines{"ACKNACK 2 {} final"})) << "what is new is acknowledged at once";
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
