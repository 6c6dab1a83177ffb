// Time stamps and name patterns.

#include <gtest/gtest.h>

#include <vector>

#include "quixspy/quixSpyHelpers.h"

namespace {

std::string timestamp(DDS_Long sec, DDS_UnsignedLong nanosec) {
    std::string line = ">";
    QUIXSpy_printTimestamp(line, {sec, nanosec});
    return line.substr(1);
}

int matches(const char* name, std::vector<const char*> patterns) {
    return QUIXSpy_matchesPattern(name, patterns.data(), static_cast<int32_t>(patterns.size()));
}

} // namespace

TEST(Timestamp, IsTheTimeOfDayInUtc) {
    EXPECT_EQ(timestamp(0, 0), "00:00:00");
    EXPECT_EQ(timestamp(1709251199, 999999999), "23:59:59");
    EXPECT_EQ(timestamp(1709251200, 0), "00:00:00");
    EXPECT_EQ(timestamp(2147483647, 999999999), "03:14:07");
}

TEST(Timestamp, IsCrossedOutForATimeThatIsNone) {
    EXPECT_EQ(timestamp(-1, 0xffffffffU), "xx:xx:xx");
    EXPECT_EQ(timestamp(-1, 0), "xx:xx:xx");
    EXPECT_EQ(timestamp(INT32_MIN, 0), "xx:xx:xx");
}

TEST(Timestamp, BearsAnyNanoseconds) {
    EXPECT_EQ(timestamp(59, 0xffffffffU), "00:00:59");
}

TEST(Pattern, NoPatternMatchesEverything) {
    EXPECT_EQ(QUIXSpy_matchesPattern("anything", nullptr, 0), 1);
    EXPECT_EQ(QUIXSpy_matchesPattern("", nullptr, 0), 1);
}

TEST(Pattern, ANegativeCountMatchesNothing) {
    const char* const patterns[] = {"*"};
    EXPECT_EQ(QUIXSpy_matchesPattern("anything", patterns, -1), 0);
}

TEST(Pattern, IsAShellPatternForTheWholeName) {
    EXPECT_EQ(matches("SquareRoot", {"Square*"}), 1);
    EXPECT_EQ(matches("Square", {"Square"}), 1);
    EXPECT_EQ(matches("Square", {"quar"}), 0);
    EXPECT_EQ(matches("Square", {"Sq.*"}), 0);
    EXPECT_EQ(matches("Sq.uare", {"Sq.*"}), 1);
    EXPECT_EQ(matches("Square", {"S?uare"}), 1);
    EXPECT_EQ(matches("Square", {"[A-Z]quar[!x]"}), 1);
    EXPECT_EQ(matches("a/b/.c", {"*"}), 1) << "no character is special";
}

TEST(Pattern, OneOfSeveralIsEnough) {
    EXPECT_EQ(matches("Circle", {"Square", "Triangle"}), 0);
    EXPECT_EQ(matches("Circle", {"Square", "Circle", "Triangle"}), 1);
}
