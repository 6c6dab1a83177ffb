#include "platform/text.h"

#include <gtest/gtest.h>

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

TEST(Text, ControlCharactersOfBothRanges) {
    EXPECT_EQ(control_at("\x1b", 0), 1u);
    EXPECT_EQ(control_at("\x7f", 0), 1u);
    EXPECT_EQ(control_at("a\xc2\x9b", 1), 2u);
    EXPECT_EQ(control_at("\xc2\xa0", 0), 0u);
    EXPECT_EQ(control_at("\xc2", 0), 0u);
    EXPECT_EQ(control_at("a", 0), 0u);
}

} // namespace
} // namespace meridian
