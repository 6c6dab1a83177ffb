#include "meridian/string.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "meridian/heap.h"
#include "meridian/logger.h"
#include "meridian/sequence.h"
#include "meridian/wildcard.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define UNDER_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define UNDER_SANITIZER 1
#endif
#endif

namespace {

TEST(String, AllocGivesZeroedRoomAndTerminator) {
    char* string = DDS_String_alloc(3);
    ASSERT_NE(string, nullptr);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(string[i], '\0');
    DDS_String_free(string);
    char* empty = DDS_String_alloc(0);
    ASSERT_NE(empty, nullptr);
    EXPECT_STREQ(empty, "");
    DDS_String_free(empty);
    DDS_String_free(nullptr);
}

TEST(String, DupCopies) {
    EXPECT_EQ(DDS_String_dup(nullptr), nullptr);
    char source[] = "partition";
    char* copy = DDS_String_dup(source);
    source[0] = 'X';
    EXPECT_STREQ(copy, "partition");
    DDS_String_free(copy);
}

TEST(StringSequence, FromArrayReplaces) {
    DDS_StringSeq sequence;
    const char* first[] = {"a", "b", "c"};
    ASSERT_TRUE(DDS_StringSeq_from_array(sequence, first, 3));
    const char* second[] = {"x", nullptr};
    ASSERT_TRUE(DDS_StringSeq_from_array(sequence, second, 2));
    ASSERT_EQ(sequence.length(), 2);
    EXPECT_STREQ(sequence[0], "x");
    EXPECT_EQ(sequence[1], nullptr);
    EXPECT_TRUE(DDS_StringSeq_from_array(sequence, nullptr, 0));
    EXPECT_EQ(sequence.length(), 0);
    EXPECT_FALSE(DDS_StringSeq_from_array(sequence, nullptr, 1));
    EXPECT_FALSE(DDS_StringSeq_from_array(sequence, first, -1));
}

TEST(StringSequence, FromArrayRefusesALoan) {
    char text[] = "lent";
    char* element = text;
    char** elements[] = {&element};
    DDS_StringSeq sequence;
    ASSERT_TRUE(sequence.loan_discontiguous(elements, 1));
    const char* strings[] = {"a"};
    EXPECT_FALSE(DDS_StringSeq_from_array(sequence, strings, 1));
    EXPECT_STREQ(text, "lent");
    EXPECT_TRUE(sequence.unloan());
}

TEST(Sequence, CopiesAreDeepAndAssignmentsShrink) {
    DDS_StringSeq original;
    EXPECT_TRUE(DDS_StringSeq_append(original, "one"));
    EXPECT_TRUE(DDS_StringSeq_append(original, "two"));
    DDS_StringSeq copy(original);
    original[0][0] = 'X';
    EXPECT_STREQ(copy[0], "one");
    DDS_StringSeq small;
    EXPECT_TRUE(DDS_StringSeq_append(small, "three"));
    copy = small;
    ASSERT_EQ(copy.length(), 1);
    EXPECT_STREQ(copy[0], "three");
    EXPECT_FALSE(copy.length(100));
    EXPECT_FALSE(copy.maximum(-1));
    EXPECT_TRUE(copy.maximum(0));
    EXPECT_EQ(copy.length(), 0);
}

struct Record {
    int number;
    void* pointer;
    char text[10];
};

TEST(Heap, StructuresAreZeroedAndAligned) {
    auto* record = QUIXHeap_allocateStructure<Record>("struct Record");
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->number, 0);
    EXPECT_EQ(record->pointer, nullptr);
    EXPECT_EQ(record->text[9], '\0');
    EXPECT_EQ(reinterpret_cast<uintptr_t>(record) % alignof(max_align_t), 0u);
    QUIXHeap_free(record);
    QUIXHeap_free(nullptr);
    void* nothing = QUIXHeap_allocate(0, "nothing");
    EXPECT_NE(nothing, nullptr);
    QUIXHeap_free(nothing);
}

#ifndef UNDER_SANITIZER // which end the program where memory runs short
TEST(Heap, ShortageIsLoggedWithTheNameOfTheStructure) {
    QUIXConfigLogger::get_instance()->set_print_format(0);
    testing::internal::CaptureStderr();
    volatile size_t too_much = SIZE_MAX / 2;
    EXPECT_EQ(QUIXHeap_allocate(too_much, "struct Record"), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "out of memory: 9223372036854775807 bytes for struct Record\n");
    testing::internal::CaptureStderr();
    too_much = SIZE_MAX;
    EXPECT_EQ(DDS_String_alloc(too_much), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "out of memory: 18446744073709551615 bytes for string\n");
    QUIXConfigLogger::finalize_instance();
}
#endif

TEST(Wildcard, MatchesWholeNamesAsShellsDo) {
    struct Case {
        const char* pattern;
        const char* name;
        bool matches;
    };
    const Case cases[] = {
        {"Square", "Square", true},
        {"Square", "Squares", false},
        {"Square*", "Square", true},
        {"Square*", "SquareXY", true},
        {"*", "", true},
        {"", "", true},
        {"", "a", false},
        {"?", "", false},
        {"S?uare", "Square", true},
        {"Sq.*", "Square", false},
        {"Sq.*", "Sq.x", true},
        {"[SC]*", "Circle", true},
        {"[!SC]*", "Circle", false},
        {"[a-c]x", "bx", true},
        {"[a-c]x", "dx", false},
        {"[", "[", true},
        {"\\*", "*", true},
        {"\\*", "a", false},
        {"*", "/path/.hidden", true},
        {"square", "Square", false},
    };
    for (const Case& test : cases)
        EXPECT_EQ(QUIXString_matchesWildcard(test.pattern, test.name), test.matches)
            << test.pattern << " against " << test.name;
    EXPECT_FALSE(QUIXString_matchesWildcard(nullptr, "a"));
    EXPECT_FALSE(QUIXString_matchesWildcard("a", nullptr));
}

TEST(Wildcard, ManyStarsStayFast) {
    std::string pattern;
    for (int i = 0; i < 40; ++i)
        pattern += "*a";
    pattern += "b";
    EXPECT_FALSE(QUIXString_matchesWildcard(pattern.c_str(), std::string(2000, 'a').c_str()));
}

} // namespace
