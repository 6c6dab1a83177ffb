#include "rtps/protocol/heartbeat_judge.h"

#include <gtest/gtest.h>

namespace meridian::rtps::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Verdict = HeartbeatJudge::Verdict;

constexpr SequenceNumber kFar = SequenceNumber{1} << 40;

class HeartbeatJudgeTest : public ::testing::Test {
  protected:
    Verdict after(Duration pause, SequenceNumber last, Count count) {
        now += pause;
        Heartbeat heartbeat;
        heartbeat.last = last;
        heartbeat.count = count;
        return judge.judge(heartbeat, known, now);
    }

    HeartbeatJudge judge;
    SequenceNumber known = 100;
    MonotonicTime now = seconds(1);
};

TEST_F(HeartbeatJudgeTest, TheFirstOneIsBelievedWhateverItSays) {
    EXPECT_FALSE(judge.heard());
    EXPECT_EQ(after(seconds(0), kFar, 1 << 30), Verdict::believed);
    EXPECT_TRUE(judge.heard());
}

TEST_F(HeartbeatJudgeTest, OneFromFarAheadChangesNothing) {
    after(seconds(0), 100, 10);
    EXPECT_EQ(after(milliseconds(1), kFar, 1 << 30), Verdict::doubtful);
    EXPECT_EQ(after(milliseconds(1), kFar, 1 << 30), Verdict::doubtful) << "repeated";
    EXPECT_EQ(after(milliseconds(1), 101, 11), Verdict::believed);
    EXPECT_EQ(after(seconds(1), kFar, (1 << 30) + 1), Verdict::doubtful) << "the writer spoke against it";
    EXPECT_EQ(after(milliseconds(1), 102, 12), Verdict::believed);
}

TEST_F(HeartbeatJudgeTest, ACountFromFarAheadChangesNothing) {
    after(seconds(0), 100, 10);
    EXPECT_EQ(after(milliseconds(1), 100, 1 << 30), Verdict::doubtful);
    EXPECT_EQ(after(milliseconds(1), 101, 11), Verdict::believed);
}

TEST_F(HeartbeatJudgeTest, ACountThatIsSomewhatAheadIsNoNewLife) {
    after(seconds(0), 100, 10);
    EXPECT_EQ(after(milliseconds(1), 100, 1000), Verdict::believed);
    Verdict verdict = Verdict::ignored;
    for (Count count = 11; count < 20 && verdict != Verdict::believed; ++count) {
        verdict = after(milliseconds(100), 100 + count, count);
        EXPECT_NE(verdict, Verdict::began_anew);
    }
    EXPECT_EQ(verdict, Verdict::believed);
}

TEST_F(HeartbeatJudgeTest, AJumpThatTheWriterStandsByIsBelieved) {
    after(seconds(0), 100, 10);
    EXPECT_EQ(after(seconds(10), 5000000, 200000), Verdict::doubtful);
    EXPECT_EQ(after(milliseconds(99), 5000001, 200001), Verdict::doubtful);
    EXPECT_EQ(after(milliseconds(1), 5000002, 200002), Verdict::believed);
    EXPECT_EQ(after(milliseconds(1), 5000002, 200002), Verdict::ignored);
}

TEST_F(HeartbeatJudgeTest, AWriterThatBeganAnewIsNoticedWithinASecond) {
    after(seconds(0), 100, 1000);
    EXPECT_EQ(after(seconds(5), 1, 1), Verdict::doubtful);
    for (Count count = 2; count <= 5; ++count)
        EXPECT_EQ(after(milliseconds(100), 1, count), Verdict::doubtful);
    EXPECT_EQ(after(milliseconds(100), 2, 6), Verdict::began_anew);
    EXPECT_EQ(after(milliseconds(100), 3, 7), Verdict::believed);
}

TEST_F(HeartbeatJudgeTest, DelayedOnesAreNotTakenForANewLife) {
    after(seconds(0), 100, 1000);
    now += seconds(5);
    for (Count count = 1; count <= 200; ++count) {
        EXPECT_NE(after(milliseconds(100), 5, count), Verdict::began_anew);
        // Asked, the writer answers.
        if (count % 4 == 0) {
            EXPECT_EQ(after(milliseconds(1), 100, 1000 + count), Verdict::believed);
        }
    }
}

TEST_F(HeartbeatJudgeTest, RepeatedOnesAreNoReasonToAsk) {
    after(seconds(0), 100, 10);
    EXPECT_EQ(after(milliseconds(1), 100, 10), Verdict::ignored);
    EXPECT_EQ(after(seconds(5), 101, 11), Verdict::believed);
    EXPECT_EQ(after(milliseconds(50), 100, 10), Verdict::ignored);
}

TEST_F(HeartbeatJudgeTest, LowerEndsWithNewerCountsAreANewLifeWhenNothingSpeaksAgainst) {
    after(seconds(0), 100, 10);
    for (Count count = 11; count < 30; ++count)
        EXPECT_EQ(after(milliseconds(1), 3, count), Verdict::doubtful);
    EXPECT_EQ(after(milliseconds(1), 100, 11), Verdict::believed) << "whatever the others' counts were";
    EXPECT_EQ(after(milliseconds(200), 3, 12), Verdict::doubtful);
    EXPECT_EQ(after(milliseconds(100), 4, 13), Verdict::began_anew);
    EXPECT_EQ(after(milliseconds(1), 5, 14), Verdict::believed);
}

} // namespace
} // namespace meridian::rtps::test
