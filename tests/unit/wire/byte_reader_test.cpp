// The cursor under everything: bounds, alignment, byte order, and that a failure is for good.

#include "rtps/wire/byte_reader.h"

#include "rtps/wire/byte_writer.h"
#include "wire_test.h"

namespace meridian::rtps {
namespace {

TEST(ByteReader, AlignsToTheOriginInBothByteOrders) {
    const ByteBuffer bytes = from_hex(R"(
        ff                       # before the origin
        01  00  02 03            # octet, padding, short
        04 05 06 07              # long
        00 00 00 00 00 00 00 00  # (the long long starts at 8 already: this is its value)
        40 09 21 fb 54 44 2d 18  # double
    )");
    for (const Endianness order : {Endianness::big, Endianness::little}) {
        ByteReader reader(bytes, order);
        ASSERT_TRUE(reader.skip(1));
        reader.set_origin();
        uint8_t octet = 0;
        uint16_t half = 0;
        uint32_t word = 0;
        int64_t long_word = -1;
        double real = 0;
        ASSERT_TRUE(reader.read(octet) && reader.read(half) && reader.read(word) && reader.read(long_word) &&
                    reader.read(real));
        EXPECT_EQ(octet, 1);
        EXPECT_EQ(half, order == Endianness::big ? 0x0203 : 0x0302);
        EXPECT_EQ(word, order == Endianness::big ? 0x04050607u : 0x07060504u);
        EXPECT_EQ(long_word, 0);
        if (order == Endianness::big) {
            EXPECT_DOUBLE_EQ(real, 3.141592653589793);
        }
        EXPECT_EQ(reader.remaining(), 0u);
    }
}

TEST(ByteReader, LongLongsAlignToFourInXcdr2) {
    const ByteBuffer bytes = from_hex("00000001 0000000000000002 00000003");
    uint32_t word = 0;
    uint64_t long_word = 0;
    ByteReader xcdr2(bytes, Endianness::big, kXcdr2MaxAlignment);
    ASSERT_TRUE(xcdr2.read(word) && xcdr2.read(long_word));
    EXPECT_EQ(long_word, 2u);
    EXPECT_EQ(xcdr2.position(), 12u);
    ByteReader xcdr1(bytes, Endianness::big, kXcdr1MaxAlignment);
    ASSERT_TRUE(xcdr1.read(word) && xcdr1.read(long_word));
    EXPECT_EQ(long_word, 0x0000000200000003u);
}

TEST(ByteReader, FailsForGoodAndLeavesTheOutputAlone) {
    const ByteBuffer bytes = from_hex("01 02 03");
    ByteReader reader(bytes, Endianness::big);
    uint32_t word = 77;
    uint8_t octet = 78;
    EXPECT_FALSE(reader.read(word));
    EXPECT_EQ(word, 77u);
    EXPECT_EQ(reader.position(), 0u);
    EXPECT_FALSE(reader.read(octet)) << "there would be one";
    EXPECT_EQ(octet, 78);
    EXPECT_FALSE(reader.ok());
    ByteView view;
    EXPECT_FALSE(reader.read_view(0, view));
    EXPECT_FALSE(reader.skip(0));
    EXPECT_FALSE(reader.take(0).ok());
}

TEST(ByteReader, RefusesPaddingBeyondTheEnd) {
    const ByteBuffer bytes = from_hex("01 02 03 04 05");
    ByteReader reader(bytes, Endianness::big);
    uint32_t word = 0;
    ASSERT_TRUE(reader.read(word));
    uint8_t octet = 0;
    ASSERT_TRUE(reader.read(octet));
    EXPECT_FALSE(reader.read(word));
    EXPECT_EQ(reader.position(), 5u);
}

TEST(ByteReader, LengthsThatLieAreRefusedBeforeTheyAreBelieved) {
    const ByteBuffer bytes = from_hex("00000003 aabbccddeeff");
    uint32_t length = 0;
    EXPECT_TRUE(ByteReader(bytes, Endianness::big).read_length(length, 2));
    EXPECT_EQ(length, 3u);
    EXPECT_FALSE(ByteReader(bytes, Endianness::big).read_length(length, 3));
    EXPECT_FALSE(ByteReader(bytes, Endianness::little).read_length(length, 1));
    std::array<uint64_t, 2> numbers{};
    EXPECT_FALSE(ByteReader(bytes, Endianness::big).read_array(numbers.data(), SIZE_MAX / 4));
    ByteView view;
    EXPECT_FALSE(ByteReader(bytes, Endianness::big).read_view(SIZE_MAX, view));
}

TEST(ByteReader, Strings) {
    const auto read = [](const char* hex, std::string& text) {
        const ByteBuffer bytes = from_hex(hex);
        return ByteReader(bytes, Endianness::big).read_string(text);
    };
    std::string text = "unchanged";
    EXPECT_FALSE(read("00000004 414200", text));
    EXPECT_FALSE(read("ffffffff 414200", text));
    EXPECT_FALSE(read("0000", text));
    EXPECT_EQ(text, "unchanged");
    EXPECT_TRUE(read("00000003 414200", text));
    EXPECT_EQ(text, "AB");
    EXPECT_TRUE(read("00000002 4142", text)) << "without its terminator";
    EXPECT_EQ(text, "AB");
    EXPECT_TRUE(read("00000004 41004200", text));
    EXPECT_EQ(text, "A");
    EXPECT_TRUE(read("00000000", text));
    EXPECT_EQ(text, "");
}

TEST(ByteReader, TakenPartsKeepTheOriginAndEndWhereTheyShould) {
    const ByteBuffer bytes = from_hex("00 0102 03 04050607 08");
    ByteReader reader(bytes, Endianness::big);
    ASSERT_TRUE(reader.skip(2));
    ByteReader part = reader.take(6);
    uint32_t word = 0;
    uint8_t octet = 0;
    EXPECT_TRUE(part.read(word));
    EXPECT_EQ(word, 0x04050607u) << "aligned as in the whole";
    EXPECT_FALSE(part.read(octet));
    EXPECT_TRUE(reader.read(octet));
    EXPECT_EQ(octet, 8);
    EXPECT_FALSE(reader.take(1).ok());
    EXPECT_FALSE(reader.ok());
}

TEST(ByteWriter, WritesWhatTheReaderReads) {
    for (const Endianness order : {Endianness::big, Endianness::little}) {
        for (const size_t alignment : {kXcdr1MaxAlignment, kXcdr2MaxAlignment}) {
            ByteBuffer bytes = {0xee, 0xee, 0xee}; // what stood there before shifts the origin
            ByteWriter writer(bytes, order, alignment);
            writer.write(uint8_t{1});
            writer.write(int16_t{-2});
            writer.write_string("text");
            writer.write(int64_t{-3});
            writer.write_bool(true);
            writer.write(1.5);
            writer.write_octets(ByteBuffer{4, 5});
            writer.write(2.5f);
            ByteReader reader(ByteView(bytes.data() + 3, bytes.size() - 3), order, alignment);
            uint8_t octet = 0;
            int16_t half = 0;
            std::string text;
            int64_t long_word = 0;
            bool flag = false;
            double real = 0;
            ByteBuffer octets;
            float short_real = 0;
            ASSERT_TRUE(reader.read(octet) && reader.read(half) && reader.read_string(text) &&
                        reader.read(long_word) && reader.read_bool(flag) && reader.read(real) &&
                        reader.read_octets(octets) && reader.read(short_real));
            EXPECT_EQ(octet, 1);
            EXPECT_EQ(half, -2);
            EXPECT_EQ(text, "text");
            EXPECT_EQ(long_word, -3);
            EXPECT_TRUE(flag);
            EXPECT_EQ(real, 1.5);
            EXPECT_EQ(octets, (ByteBuffer{4, 5}));
            EXPECT_EQ(short_real, 2.5f);
            EXPECT_EQ(reader.remaining(), 0u);
        }
    }
}

TEST(ByteWriter, PatchesOnlyWhatIsThere) {
    ByteBuffer bytes;
    ByteWriter writer(bytes, Endianness::big);
    writer.write(uint32_t{0});
    writer.patch(2, uint16_t{0x0102});
    EXPECT_EQ(bytes, from_hex("00000102"));
    writer.patch(3, uint16_t{0xffff});
    writer.patch(SIZE_MAX, uint16_t{0xffff});
    EXPECT_EQ(bytes, from_hex("00000102"));
}

} // namespace
} // namespace meridian::rtps
