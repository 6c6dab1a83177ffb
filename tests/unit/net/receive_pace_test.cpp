#include "rtps/net/receive_pace.h"

#include <gtest/gtest.h>

namespace meridian::rtps::net::test {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr MonotonicTime kBegin = std::chrono::seconds(1);
constexpr Duration kShort = microseconds(50);

/// Datagrams that come one by one, and are not answered.
ReceivePace steady(size_t socket_buffer = ReceivePace::kRoomyBuffer) {
    ReceivePace pace(socket_buffer);
    pace.note(1, false, kBegin);
    return pace;
}

TEST(ReceivePace, RestsWhereDatagramsComeOneByOneAndOften) {
    EXPECT_TRUE(steady().is_time_to_rest(kBegin, kBegin + kShort));
}

TEST(ReceivePace, FetchesAtOnceWhatComesSeldom) {
    EXPECT_FALSE(steady().is_time_to_rest(kBegin, kBegin + milliseconds(1)));
}

TEST(ReceivePace, NeverRestsWithSmallBuffers) {
    EXPECT_FALSE(steady(ReceivePace::kRoomyBuffer - 1).is_time_to_rest(kBegin, kBegin + kShort));
}

TEST(ReceivePace, FetchesAtOnceWhileDatagramsComeInMasses) {
    ReceivePace pace = steady();
    pace.note(32, false, kBegin);
    EXPECT_FALSE(pace.is_time_to_rest(kBegin, kBegin + kShort));
    pace.note(1, false, kBegin); // from another socket
    EXPECT_FALSE(pace.is_time_to_rest(kBegin, kBegin + kShort));
    pace.begin();
    pace.note(10, false, kBegin);
    EXPECT_TRUE(pace.is_time_to_rest(kBegin, kBegin + kShort));
}

TEST(ReceivePace, FetchesAtOnceWhileAnswersAreWaitedFor) {
    ReceivePace pace = steady();
    pace.note(1, true, kBegin);
    EXPECT_FALSE(pace.is_time_to_rest(kBegin, kBegin + kShort));
    pace.note(1, false, kBegin + milliseconds(9));
    EXPECT_FALSE(pace.is_time_to_rest(kBegin + milliseconds(9), kBegin + milliseconds(9) + kShort));
    EXPECT_TRUE(pace.is_time_to_rest(kBegin + milliseconds(11), kBegin + milliseconds(11) + kShort));
}

} // namespace
} // namespace meridian::rtps::net::test
