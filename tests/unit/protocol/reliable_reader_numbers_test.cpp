// Where a reliable reader begins, and what it makes of numbers that jump or fall: what is forged must not
// last, a second life must be seen.

#include "protocol/reliable_reader_fixture.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

TEST_F(ReliableReaderTest, AVolatileReaderStartsAtTheFirstHeartbeat) {
    make(true);
    EXPECT_EQ(sent(), (Lines{"ACKNACK 1 {}"}));
    heartbeat(1, 50);
    EXPECT_EQ(sent_after(milliseconds(50)), (Lines{"ACKNACK 51 {} final"}));
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

// A writer that is told so would not send what its heartbeat overtook.
TEST_F(ReliableReaderTest, AVolatileReaderDoesNotAcknowledgeAtOnceWhatItNeverGot) {
    make(true);
    sent();
    heartbeat(1, 2);
    heartbeat(1, 2);
    EXPECT_EQ(sent_after(milliseconds(49)), Lines{});
    data(1);
    data(2);
    heartbeat(1, 2);
    EXPECT_EQ(sent(), (Lines{"ACKNACK 3 {} final"}));
    make(true);
    sent();
    heartbeat(1, 0);
    EXPECT_EQ(sent(), (Lines{"ACKNACK 1 {} final"})) << "there is nothing to wait for";
    heartbeat(1, 2);
    EXPECT_EQ(sent_after(milliseconds(1)), (Lines{"ACKNACK 1 {1 2}"}));
}

// OpenDDS up to 3.13 says "1 to 1" of a writer that has written nothing, and answers an outright request for
// number 1 with a gap.
TEST_F(ReliableReaderTest, OpenDdsIsNotBelievedThatItHasNumberOneAlone) {
    for (const bool is_volatile : {true, false}) {
        make(is_volatile, {}, kKnowsNoEmptyRange);
        sink = {};
        sent();
        heartbeat(1, 1);
        now += seconds(1);
        timers.run(now);
        batcher.flush();
        EXPECT_EQ(output.parse().acknack_bits, 1u) << "a question";
        EXPECT_EQ(sent(), (Lines{"ACKNACK 1 {}"}));
        heartbeat(1, 1);
        sent_after(seconds(1));
        data(1);
        heartbeat(1, 1);
        EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{1})) << is_volatile;
        EXPECT_EQ(sent(), (Lines{"ACKNACK 2 {} final"}));
        EXPECT_EQ(sink.lost, 0u);
    }
}

// It says so too when everything it wrote was acknowledged by others.
TEST_F(ReliableReaderTest, OpenDdsIsJoinedWhereItIs) {
    make(true, {}, kKnowsNoEmptyRange);
    sent();
    heartbeat(1, 1);
    sent_after(seconds(1));
    data(1'000'000);
    heartbeat(1'000'000, 1'000'000);
    data(1'000'001);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{1'000'000, 1'000'001}));
    for (int i = 0; i < 5; ++i) {
        heartbeat(1, 1); // for a reader that joins later, by multicast
        sent_after(seconds(1));
    }
    data(1'000'002);
    EXPECT_EQ(sink.numbers.size(), 3u);
    EXPECT_EQ(sink.lost, 0u);
    EXPECT_EQ(observer.restarts, 0);
}

TEST_F(ReliableReaderTest, OpenDdsIsAskedForTheFirstSampleOfABurst) {
    make(true, {}, kKnowsNoEmptyRange);
    sent();
    heartbeat(1, 1);
    sent_after(seconds(3));
    for (const SequenceNumber number : {2, 3, 4, 5})
        data(number);
    heartbeat(1, 5);
    EXPECT_EQ(sent(), (Lines{"ACKNACK 1 {1}"}));
    data(1);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{1, 2, 3, 4, 5}));
    EXPECT_EQ(sink.lost, 0u);
}

TEST_F(ReliableReaderTest, OpenDdsIsNotAskedAllTheTimeWhileItHasNothing) {
    make(false, {}, kKnowsNoEmptyRange);
    size_t questions = 0;
    for (int i = 0; i < 600; ++i) {
        if (i % 10 == 0)
            heartbeat(1, 1);
        questions += sent_after(milliseconds(100)).size();
    }
    EXPECT_GE(questions, 20u) << "what its heartbeats name may have been lost";
    EXPECT_LE(questions, 40u);
}

TEST_F(ReliableReaderTest, OpenDdsIsAskedForTheRestOfItsFirstSample) {
    make(false, {}, kKnowsNoEmptyRange);
    sent();
    fragment(1, 1);
    heartbeat(1, 1);
    EXPECT_EQ(sent(), (Lines{"ACKNACK 1 {}", "NACK_FRAG 1 {2 3}"}));
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

TEST_F(ReliableReaderTest, NumbersBeyondReasonAreNotBelieved) {
    constexpr SequenceNumber kLast = std::numeric_limits<SequenceNumber>::max();
    make(false);
    sent();
    heartbeat(1, kLast);
    heartbeat(kLast, kLast - 1);
    gap(1, kLast);
    data(kLast);
    fragment(kLast, 1);
    EXPECT_EQ(observer.too_high, 4) << "told";
    data(0);
    data(-5);
    EXPECT_EQ(sent_after(milliseconds(1)), Lines{});
    data(1);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{1}));
    EXPECT_EQ(observer.too_high, 4);
    heartbeat(1, 1);
    data(kLast);
    EXPECT_EQ(observer.too_high, 5) << "also once the writer is known";
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

} // namespace
} // namespace meridian::rtps::test
