// Text from the network: a line stays one line, and a terminal has nothing to obey.

#include "quixspy/quixSpyText.h"

#include <gtest/gtest.h>

namespace {

std::string shown(std::string_view text, size_t width = std::string_view::npos) {
    std::string line = ">";
    QUIXSpy_appendText(line, text, width);
    return line.substr(1);
}

} // namespace

TEST(Text, StaysAsItIs) {
    EXPECT_EQ(shown(""), "");
    EXPECT_EQ(shown("Circle/\\x1b \"quoted\" ~"), "Circle/\\x1b \"quoted\" ~");
    EXPECT_EQ(shown("äöü ∂ 😀 \u00a0"), "äöü ∂ 😀 \u00a0");
    EXPECT_EQ(shown("\xf4\x8f\xbf\xbf"), "\xf4\x8f\xbf\xbf") << "U+10FFFF";
    EXPECT_EQ(QUIXSpy_text(nullptr), "");
    EXPECT_EQ(QUIXSpy_text("a\nb"), "a\\x0ab");
}

TEST(Text, ShowsControlCharactersByTheirNumber) {
    for (unsigned octet = 0; octet < 0x80; ++octet) {
        const char character = static_cast<char>(octet);
        char number[8];
        std::snprintf(number, sizeof number, "\\x%02x", octet);
        EXPECT_EQ(shown({&character, 1}), octet < 0x20 || octet == 0x7f ? number : std::string(1, character));
    }
    EXPECT_EQ(shown("\u0080\u009b\u009f"), "\\x80\\x9b\\x9f");
    EXPECT_EQ(shown("\x1b[31mred\r\n"), "\\x1b[31mred\\x0d\\x0a");
}

TEST(Text, ShowsWhatEndsLinesOrTurnsTextByItsNumber) {
    EXPECT_EQ(shown("a\u202eb\u2066c\u2028\u2029\u202a\u2069"),
              "a\\u202eb\\u2066c\\u2028\\u2029\\u202a\\u2069");
    EXPECT_EQ(shown("\u2027\u202f\u2065\u206a"), "\u2027\u202f\u2065\u206a");
    EXPECT_EQ(shown("\u202e", 2), "");
}

TEST(Text, ShowsWhatIsNotUtf8ByItsOctets) {
    EXPECT_EQ(shown("a\xff"
                    "b"),
              "a\\xffb");
    EXPECT_EQ(shown("\x9b"
                    "31m"),
              "\\x9b31m");
    EXPECT_EQ(shown("\xc3"), "\\xc3") << "the rest is missing";
    EXPECT_EQ(shown("\xe2\x88x"), "\\xe2\\x88x");
    EXPECT_EQ(shown("\xc0\x8a"), "\\xc0\\x8a") << "a line end in too long a form";
    EXPECT_EQ(shown("\xe0\x82\x9b"), "\\xe0\\x82\\x9b");
    EXPECT_EQ(shown("\xf0\x80\x80\x8a"), "\\xf0\\x80\\x80\\x8a");
    EXPECT_EQ(shown("\xed\xa0\x80"), "\\xed\\xa0\\x80") << "a surrogate";
    EXPECT_EQ(shown("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80") << "beyond U+10FFFF";
    EXPECT_EQ(shown("\xf5\x80\x80\x80"), "\\xf5\\x80\\x80\\x80");
}

TEST(Text, IsCutBetweenCharacters) {
    EXPECT_EQ(shown("abc", 2), "ab");
    EXPECT_EQ(shown("abc", 3), "abc");
    EXPECT_EQ(shown("aäb", 1), "a");
    EXPECT_EQ(shown("aäb", 2), "a") << "no half character";
    EXPECT_EQ(shown("aäb", 3), "aä");
    EXPECT_EQ(shown("😀", 3), "");
    EXPECT_EQ(shown("a\nb", 2), "a\\x0a") << "the width counts what came";
    EXPECT_EQ(shown("\xff\xff", 1), "\\xff");
}
