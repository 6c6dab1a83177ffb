#include "meridian/cdr_stream.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

class CdrStream : public ::testing::Test {
  protected:
    std::vector<char> bytes;
    QUIXCdrStream stream{};

    void set(std::initializer_list<int> values, DDS_Octet endian = QUIX_CDR_ENDIAN_LITTLE) {
        bytes.clear();
        for (int value : values)
            bytes.push_back(static_cast<char>(value));
        QUIXCdrStream_set(&stream, bytes.data(), static_cast<DDS_UnsignedLong>(bytes.size()));
        QUIXCdrStream_setEndian(&stream, endian);
    }
    size_t position() const { return static_cast<size_t>(stream.currentPosition - stream.buffer); }
};

TEST_F(CdrStream, FreshObjectIsZeroWithNativeOrder) {
    QUIXCdrStream* made = QUIXCdrStream_new();
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->buffer, nullptr);
    EXPECT_EQ(made->endian, made->nativeEndian);
    EXPECT_FALSE(made->needByteSwap);
    EXPECT_EQ(QUIXCdrStream_remaining(made), 0u);
    DDS_Octet value = 0;
    EXPECT_FALSE(QUIXCdrStream_read1(made, &value));
    QUIXCdrStream_delete(made);
}

TEST_F(CdrStream, NumbersAlignAndSwap) {
    set({7, 0xff, 0x02, 0x01, 0x04, 0x03, 0x02, 0x01});
    DDS_Octet one = 0;
    DDS_UnsignedShort two = 0;
    DDS_UnsignedLong four = 0;
    ASSERT_TRUE(QUIXCdrStream_read1(&stream, &one));
    ASSERT_TRUE(QUIXCdrStream_read2(&stream, &two));
    ASSERT_TRUE(QUIXCdrStream_read4(&stream, &four));
    EXPECT_EQ(one, 7);
    EXPECT_EQ(two, 0x0102);
    EXPECT_EQ(four, 0x01020304u);
    EXPECT_EQ(QUIXCdrStream_remaining(&stream), 0u);

    set({1, 2, 0, 0, 1, 2, 3, 4}, QUIX_CDR_ENDIAN_BIG);
    ASSERT_TRUE(QUIXCdrStream_read2(&stream, &two));
    ASSERT_TRUE(QUIXCdrStream_read4(&stream, &four));
    EXPECT_EQ(two, 0x0102);
    EXPECT_EQ(four, 0x01020304u);
}

TEST_F(CdrStream, AlignmentCountsFromItsOrigin) {
    set({0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0});
    stream.alignmentOrigin = stream.buffer - 4;
    ASSERT_TRUE(QUIXCdrStream_align(&stream, 8));
    EXPECT_EQ(position(), 4u);
}

TEST_F(CdrStream, ReadThatDoesNotFitLeavesThePosition) {
    set({1, 2, 3, 4, 5});
    DDS_UnsignedLong four = 0;
    ASSERT_TRUE(QUIXCdrStream_read4(&stream, &four));
    EXPECT_FALSE(QUIXCdrStream_read4(&stream, &four));
    EXPECT_EQ(position(), 4u);
    EXPECT_FALSE(QUIXCdrStream_align(&stream, 8) && QUIXCdrStream_remaining(&stream) > 0);
    char taken[2];
    EXPECT_FALSE(QUIXCdrStream_readBytes(&stream, taken, 2));
    EXPECT_TRUE(QUIXCdrStream_readBytes(&stream, taken, 1));
    EXPECT_FALSE(QUIXCdrStream_readBytes(&stream, taken, 1));
}

TEST_F(CdrStream, StringsAreBoundedAndTerminated) {
    const char* text = nullptr;
    set({3, 0, 0, 0, 'a', 'b', 0});
    ASSERT_TRUE(QUIXCdrStream_readString(&stream, &text, 3));
    EXPECT_STREQ(text, "ab");

    set({3, 0, 0, 0, 'a', 'b', 0});
    EXPECT_FALSE(QUIXCdrStream_readString(&stream, &text, 2)) << "longer than its bound";
    EXPECT_EQ(position(), 0u);
    set({3, 0, 0, 0, 'a', 'b', 'c'});
    EXPECT_FALSE(QUIXCdrStream_readString(&stream, &text, 9)) << "not terminated";
    set({4, 0, 0, 0, 'a', 'b', 0});
    EXPECT_FALSE(QUIXCdrStream_readString(&stream, &text, 9)) << "bytes missing";
    set({0, 0, 0, 0});
    EXPECT_FALSE(QUIXCdrStream_readString(&stream, &text, 9)) << "not even a terminator";
    set({0xff, 0xff, 0xff, 0xff});
    EXPECT_FALSE(QUIXCdrStream_readString(&stream, &text, 0xffffffffu));
}

TEST_F(CdrStream, WideStringsCountOctets) {
    DDS_UnsignedLong count = 9;
    set({4, 0, 0, 0, 'a', 0, 'b', 0});
    ASSERT_TRUE(QUIXCdrStream_readWideStringLength(&stream, &count, 2));
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(position(), 4u);

    set({4, 0, 0, 0, 'a', 0, 'b', 0});
    EXPECT_FALSE(QUIXCdrStream_readWideStringLength(&stream, &count, 1)) << "longer than its bound";
    EXPECT_EQ(position(), 0u);
    set({0, 0, 0, 3, 0, 'a', 0}, QUIX_CDR_ENDIAN_BIG);
    EXPECT_FALSE(QUIXCdrStream_readWideStringLength(&stream, &count, 9)) << "half a character";
    set({4, 0, 0, 0, 'a', 0, 'b'});
    EXPECT_FALSE(QUIXCdrStream_readWideStringLength(&stream, &count, 9)) << "bytes missing";
    EXPECT_EQ(position(), 0u);
    set({0xfe, 0xff, 0xff, 0xff});
    EXPECT_FALSE(QUIXCdrStream_readWideStringLength(&stream, &count, 0xffffffffu));
    EXPECT_EQ(count, 2u) << "untouched by failures";
    set({0, 0, 0, 0});
    ASSERT_TRUE(QUIXCdrStream_readWideStringLength(&stream, &count, 0));
    EXPECT_EQ(count, 0u);
}

} // namespace
