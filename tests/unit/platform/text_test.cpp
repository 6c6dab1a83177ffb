#include "platform/text.h"

#include <gtest/gtest.h>

#include "meridian/utf8.h"

namespace meridian {
namespace {

TEST(Text, IsTrimmed) {
    EXPECT_EQ(trimmed(" \t\r\n a b \n"), "a b");
    EXPECT_EQ(trimmed("a"), "a");
    EXPECT_EQ(trimmed(" \n"), "");
    EXPECT_EQ(trimmed(""), "");
}

std::string utf8(std::string_view text) {
    std::string out;
    append_utf8(out, text);
    return out;
}

TEST(Text, ValidUtf8StaysAsItIs) {
    const std::string text = "a\u00e9\u20ac\U0001f600";
    EXPECT_EQ(utf8(text), text);
}

TEST(Text, EachInvalidPartBecomesOneReplacement) {
    EXPECT_EQ(utf8("a\xff"), "a\ufffd");
    EXPECT_EQ(utf8("\xe2\x82"), "\ufffd") << "cut short";
    EXPECT_EQ(utf8("\xc0\xaf"), "\ufffd\ufffd") << "longer than needed";
    EXPECT_EQ(utf8("\xed\xa0\x80"), "\ufffd\ufffd\ufffd") << "half of a pair";
    EXPECT_EQ(utf8("\xf4\x90\x80\x80"), "\ufffd\ufffd\ufffd\ufffd") << "beyond Unicode";
}

TEST(Text, Utf16PairsBecomeOneCharacter) {
    std::string out;
    append_utf16(out, u"a\u20ac\U0001f600");
    EXPECT_EQ(out, "a\u20ac\U0001f600");
    out.clear();
    const char16_t half[] = {0xd83d, u'a'};
    append_utf16(out, {half, 2});
    EXPECT_EQ(out, "\ufffda");
}

TEST(Text, CharactersAreTakenOneByOne) {
    const auto length = [](std::string_view text) { return QUIXCharacter_first(text).length; };
    const auto number = [](std::string_view text) { return QUIXCharacter_first(text).number; };
    EXPECT_EQ(length("ab"), 1u);
    EXPECT_EQ(number("ab"), uint32_t{'a'});
    EXPECT_EQ(length("\u00e4b"), 2u);
    EXPECT_EQ(number("\u00e4b"), 0xe4u);
    EXPECT_EQ(length("\u20ac"), 3u);
    EXPECT_EQ(number("\u20ac"), 0x20acu);
    EXPECT_EQ(length("\U0001f600"), 4u);
    EXPECT_EQ(number("\U0001f600"), 0x1f600u);
    for (const char* bad : {"\x80", "\xc2", "\xc0\x8a", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xff"})
        EXPECT_EQ(length(bad), 0u);
}

TEST(Text, ControlCharactersOfBothRanges) {
    for (const char* control : {"\x1b", "\x7f", "\xc2\x80", "\xc2\x9b", "\xc2\x9f"})
        EXPECT_TRUE(QUIXCharacter_first(control).is_control());
    for (const char* other : {"\xc2\xa0", "\xc2", "a", "\x80"})
        EXPECT_FALSE(QUIXCharacter_first(other).is_control());
}

TEST(Text, CharactersThatEndLinesOrTurnText) {
    for (const char* format : {"\u2028", "\u2029", "\u202a", "\u202e", "\u2066", "\u2069"})
        EXPECT_TRUE(QUIXCharacter_first(format).is_format());
    for (const char* other : {"\u2027", "\u202f", "\u2065", "\u206a", "a"})
        EXPECT_FALSE(QUIXCharacter_first(other).is_format());
}

} // namespace
} // namespace meridian
