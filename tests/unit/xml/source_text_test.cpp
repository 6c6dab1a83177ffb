#include "xml/source_text.h"

#include <gtest/gtest.h>

using namespace meridian::xml;

TEST(SourceText, OnlyWellFormedUtf8) {
    for (const char* text : {"a", "\xc3\xa4", "\xe2\x82\xac", "\xf0\x9f\x98\x80", "\xef\xbf\xbd"})
        EXPECT_EQ(check_characters(text).reason, "") << text;
    for (const char* text :
         {"\x80", "\xc3", "\xc0\x80", "\xc1\xbf", "\xe0\x80\x80", "\xed\xa0\x80", "\xf0\x80\x80\x80",
          "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xff", "\xe2\x82", "\xef\xbf\xbf", "\x1b"})
        EXPECT_NE(check_characters(text).reason, "") << text;
    EXPECT_EQ(check_characters("ab\n\xff").offset, 3u);
}
