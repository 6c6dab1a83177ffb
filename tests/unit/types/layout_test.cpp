// How contents read: many elements to a line, characters that terminals obey, and texts that do not end.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>

#include "corpus.h"
#include "meridian/dynamic_data.h"
#include "rtps/wire/byte_writer.h"
#include "rtps/wire/encapsulation.h"
#include "support/type_documents.h"
#include "types/data/dynamic_sample.h"
#include "types/data/json_printer.h"
#include "types/data/plain_printer.h"

using namespace meridian;
using namespace meridian::types;

namespace {

/// One sample of the type T of a document.
class Sample {
  public:
    explicit Sample(const std::string& members, const std::string& others = "") {
        std::string error;
        EXPECT_TRUE(documents_.load(
            "doc",
            "<types>" + others + "<struct name='T' extensibility='final'>" + members + "</struct></types>",
            error))
            << error;
    }
    rtps::ByteWriter& writer() { return writer_; }
    DDS_DynamicData data() {
        DDS_DynamicData data;
        if (context_ == nullptr)
            context_ = std::make_shared<DynamicContext>(documents_.find("T"), "topic");
        EXPECT_TRUE(data.impl().assign(context_, bytes_));
        return data;
    }
    size_t size() const { return bytes_.size(); }
    void forget() { context_.reset(); }

  private:
    static rtps::ByteBuffer header() {
        rtps::ByteBuffer bytes;
        rtps::write_encapsulation(bytes, rtps::Encoding::cdr, rtps::native_endianness());
        return bytes;
    }

    TypeDocuments documents_;
    rtps::ByteBuffer bytes_ = header();
    rtps::ByteWriter writer_{bytes_, rtps::native_endianness()};
    std::shared_ptr<DynamicContext> context_;
};

template <typename Format>
std::string printed(const DDS_DynamicData& data, const Format& format) {
    char* text = nullptr;
    size_t size = 0;
    FILE* file = open_memstream(&text, &size);
    data.print(file, format);
    std::fclose(file);
    const std::string out(text, size);
    std::free(text);
    return out;
}

std::string plain(const DDS_DynamicData& data) {
    return printed(data, 0);
}

std::string compact(const DDS_DynamicData& data) {
    const DDS_PrintFormatProperty format{DDS_JSON_PRINT_FORMAT, false, false};
    DDS_UnsignedLong size = 0;
    if (data.to_string(nullptr, size, format) != DDS_RETCODE_OK)
        return "failed";
    const std::string in_file = printed(data, format);
    EXPECT_EQ(in_file.size(), size - 1) << "after the length was asked for";
    EXPECT_TRUE(printed(data, format) == in_file) << "without that";
    EXPECT_EQ(data.to_string(nullptr, size, format), DDS_RETCODE_OK);
    std::string text(size, 'x');
    EXPECT_EQ(data.to_string(text.data(), size, format), DDS_RETCODE_OK);
    EXPECT_EQ(text.find('\0'), text.size() - 1);
    text.pop_back();
    EXPECT_TRUE(in_file == text) << "a file gets the same";
    return text;
}

template <typename Number>
void write_sequence(rtps::ByteWriter& writer, uint32_t count) {
    writer.write(count);
    for (uint32_t i = 0; i < count; ++i)
        writer.write(static_cast<Number>(i));
}

} // namespace

TEST(Layout, OctetsStandInRowsOfHexadecimalDigits) {
    for (const char* type : {"byte", "uint8"}) {
        Sample few(std::string("<member name='o' sequenceMaxLength='-1' type='") + type + "'/>");
        write_sequence<uint8_t>(few.writer(), 16);
        EXPECT_EQ(plain(few.data()).substr(0, 13), "o:\n   [0]: 0\n");
        Sample many(std::string("<member name='o' sequenceMaxLength='-1' type='") + type + "'/>");
        write_sequence<uint8_t>(many.writer(), 18);
        EXPECT_EQ(plain(many.data()),
                  "o:\n"
                  "   0000: 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f\n"
                  "   0010: 10 11\n");
    }
    Sample image("<member name='o' sequenceMaxLength='-1' type='byte'/><member name='n' type='byte'/>");
    write_sequence<uint8_t>(image.writer(), 0x10010);
    image.writer().write(uint8_t{7});
    const std::string text = plain(image.data());
    EXPECT_EQ(text.substr(0, 15), "o:\n   00000000:");
    EXPECT_NE(text.find("\n   00010000: 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f\nn: 7\n"),
              std::string::npos);
}

TEST(Layout, NumbersStandManyToALine) {
    Sample few("<member name='n' sequenceMaxLength='-1' type='int16'/>");
    write_sequence<int16_t>(few.writer(), 16);
    EXPECT_EQ(plain(few.data()).substr(0, 23), "n:\n   [0]: 0\n   [1]: 1\n");
    Sample many("<member name='n' sequenceMaxLength='-1' type='int16'/><member name='b' type='boolean'/>");
    write_sequence<int16_t>(many.writer(), 32);
    many.writer().write(uint8_t{1});
    EXPECT_EQ(plain(many.data()),
              "n:\n   [0]: 0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n"
              "   [16]: 16 17 18 19 20 21 22 23 24 25 26 27 28 29 30 31\nb: true\n");
    // A line does not go on in the next row of a matrix.
    Sample matrix("<member name='m' arrayDimensions='2,18' type='int16'/>");
    for (int16_t i = 0; i < 36; ++i)
        matrix.writer().write(i);
    EXPECT_EQ(plain(matrix.data()),
              "m:\n   [0][0]: 0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n   [0][16]: 16 17\n"
              "   [1][0]: 18 19 20 21 22 23 24 25 26 27 28 29 30 31 32 33\n"
              "   [1][16]: 34 35\n");
    Sample flags("<member name='f' arrayDimensions='17' type='boolean'/>");
    for (int i = 0; i < 17; ++i)
        flags.writer().write_bool(i % 2 != 0);
    EXPECT_EQ(plain(flags.data()),
              "f:\n   [0]: false true false true false true false true false true false true "
              "false true false true\n   [16]: false\n");
}

TEST(Layout, CharactersAreText) {
    Sample few("<member name='c' arrayDimensions='2' type='char8'/>");
    few.writer().write_bytes(std::array<uint8_t, 2>{'a', 0});
    EXPECT_EQ(plain(few.data()), "c:\n   [0]: 'a'\n   [1]: '\\x00'\n");
    Sample many("<member name='c' arrayDimensions='20' type='char8'/><member name='n' type='byte'/>");
    many.writer().write_bytes(std::array<uint8_t, 20>{'a', '"', 0, 0xc3, 0xa9, '\n', 'z'});
    many.writer().write(uint8_t{3});
    EXPECT_EQ(plain(many.data()), "c: \"a\\\"\\x00\xc3\xa9\\nz\"\nn: 3\n");
    // COMPACT tells them all, so no two may look the same
    Sample octets("<member name='c' arrayDimensions='18' type='char8'/>");
    octets.writer().write_bytes(
        std::array<uint8_t, 18>{'G', 'r', 0xfc, 0xdf, 0xc3, 0xa9, 0xc3, 'e', 0x80, 0xff});
    EXPECT_EQ(plain(octets.data()),
              "c: \"Gr\\xfc\\xdf\xc3\xa9\\xc3"
              "e\\x80\\xff\"\n");
    Sample wide("<member name='c' arrayDimensions='17' type='char16'/>");
    for (const char16_t unit : std::u16string(u"\u20ac\U0001f600") + std::u16string(14, u'\0'))
        wide.writer().write(static_cast<uint16_t>(unit));
    EXPECT_EQ(plain(wide.data()), "c: \"\xe2\x82\xac\xf0\x9f\x98\x80\"\n");
    // in pieces
    Sample large("<member name='c' sequenceMaxLength='-1' type='char8'/>");
    large.writer().write(uint32_t{300000});
    std::string expected = "c: \"";
    for (uint32_t i = 0; i < 150000; ++i) {
        large.writer().write_bytes(std::array<uint8_t, 2>{0xc3, 0xa9});
        expected += "\xc3\xa9";
    }
    EXPECT_EQ(plain(large.data()), expected + "\"\n");
}

TEST(Layout, CharactersThatTurnTextAreEscaped) {
    Sample sample("<member name='s' type='string'/>");
    sample.writer().write_string("a\u202eb\u2066c\u2028d\u2029\u202a\u2069\u2027\u202f\u2065\u206a");
    EXPECT_EQ(plain(sample.data()),
              "s: \"a\\u202eb\\u2066c\\u2028d\\u2029\\u202a\\u2069\u2027\u202f\u2065\u206a\"\n");
    EXPECT_EQ(compact(sample.data()),
              "{\"s\":\"a\\u202eb\\u2066c\\u2028d\\u2029\\u202a\\u2069\u2027\u202f\u2065\u206a\"}");
}

TEST(Layout, NumbersOfArraysInCompactForm) {
    Sample sample(
        "<member name='f' sequenceMaxLength='-1' type='float64'/>"
        "<member name='i' sequenceMaxLength='-1' type='int64'/>"
        "<member name='o' sequenceMaxLength='-1' type='byte'/><member name='e' sequenceMaxLength='-1' "
        "type='uint16'/>");
    sample.writer().write(uint32_t{4});
    for (const double value : {0.1, -HUGE_VAL, -1.7976931348623157e308, -2.2250738585072014e-308})
        sample.writer().write(value);
    sample.writer().write(uint32_t{2});
    sample.writer().write(INT64_MIN);
    sample.writer().write(INT64_MAX);
    write_sequence<uint8_t>(sample.writer(), 256);
    sample.writer().write(uint32_t{0});
    std::string octets;
    for (int i = 0; i < 256; ++i)
        octets += (i == 0 ? "" : ",") + std::to_string(i);
    EXPECT_EQ(compact(sample.data()),
              "{\"f\":[0.1,\"-inf\",-1.7976931348623157e+308,-2.2250738585072014e-308],"
              "\"i\":[-9223372036854775808,9223372036854775807],\"o\":[" +
                  octets + "],\"e\":[]}");
}

// What goes out in pieces is what would stand in memory.
TEST(Layout, LargeSamplesAreWhole) {
    Sample sample(
        "<member name='o' sequenceMaxLength='-1' type='byte'/><member name='f' sequenceMaxLength='-1' "
        "type='float32'/><member name='s' sequenceMaxLength='-1' type='string'/>");
    write_sequence<uint8_t>(sample.writer(), 300000);
    write_sequence<float>(sample.writer(), 100000);
    sample.writer().write(uint32_t{20000});
    for (int i = 0; i < 20000; ++i)
        sample.writer().write_string("text " + std::to_string(i));
    class Whole {
      public:
        explicit Whole(const DDS_DynamicData& data) : data_(data) {}
        bool operator()(ValueSink& sink) const {
            std::string failure;
            return data_.impl().context()->reader.walk(data_.impl().payload(), &sink, failure);
        }

      private:
        const DDS_DynamicData& data_;
    };
    const DDS_DynamicData data = sample.data();
    PrintBuffers json;
    ASSERT_TRUE(print_json(Whole(data), JsonStyle(), json));
    EXPECT_GT(json.text.size(), 1000000u);
    EXPECT_TRUE(compact(data) == json.text);
    PrintBuffers lines;
    PlainPrinter printer(lines, 0);
    EXPECT_TRUE(Whole(data)(printer));
    EXPECT_TRUE(plain(data) == lines.text);
}

// Of a large sample, only pieces of the text are in memory at one time.
TEST(Layout, LargeSamplesNeedLittleMemory) {
    class Pieces final : public TextSpill {
      public:
        void take(std::string_view text) override {
            largest = std::max(largest, text.size());
            total += text.size();
        }
        size_t largest = 0;
        size_t total = 0;
    };
    Sample sample(
        "<member name='o' sequenceMaxLength='-1' type='byte'/><member name='f' sequenceMaxLength='-1' "
        "type='float64'/><member name='s' sequenceMaxLength='-1' type='string'/>");
    write_sequence<uint8_t>(sample.writer(), 600000);
    write_sequence<double>(sample.writer(), 20000);
    sample.writer().write(uint32_t{20000});
    for (int i = 0; i < 20000; ++i)
        sample.writer().write_string("text");
    const DDS_DynamicData data = sample.data();
    Pieces pieces;
    TextTarget target;
    target.spill = &pieces;
    PrintBuffers lines;
    PlainPrinter printer(lines, 0, target);
    std::string failure;
    ASSERT_TRUE(data.impl().context()->reader.walk(data.impl().payload(), &printer, failure)) << failure;
    EXPECT_GT(pieces.total, 2000000u);
    EXPECT_LT(pieces.largest, 2 * target.piece);
    EXPECT_LT(lines.text.capacity() + lines.value.capacity() + lines.characters.capacity(), 4 * target.piece);
}

// A short sample may claim elements that take no octets.
TEST(Layout, TextWithoutOctetsEnds) {
    const std::string empty = "<struct name='E' extensibility='final'/>";
    Sample sample(
        "<member name='e' nonBasicTypeName='E' type='nonBasic' sequenceMaxLength='-1'/>"
        "<member name='o' type='byte' arrayDimensions='60000'/>",
        empty);
    sample.writer().write(uint32_t{900000});
    for (int i = 0; i < 60000; ++i)
        sample.writer().write(uint8_t{0});
    const std::string lines = plain(sample.data());
    EXPECT_LT(lines.size(), 100000u);
    EXPECT_EQ(lines.substr(lines.size() - 6), "]: {}\n");
    EXPECT_EQ(compact(sample.data()), "failed");
}

TEST(Layout, CutJsonIsJson) {
    const std::string inner =
        "<struct name='E' extensibility='final'/>"
        "<struct name='K' extensibility='final'><member name='x' type='byte'/></struct>";
    for (const char* member :
         {"<member name='m' type='nonBasic' nonBasicTypeName='E' mapKeyType='byte'/>",
          "<member name='m' type='nonBasic' nonBasicTypeName='E' mapKeyType='nonBasic' "
          "mapKeyNonBasicTypeName='K'/>",
          "<member name='m' type='nonBasic' nonBasicTypeName='K' arrayDimensions='3,3'/>",
          "<member name='m' type='byte' arrayDimensions='100,100'/>",
          "<member name='m' type='byte' sequenceMaxLength='-1'/>"}) {
        Sample sample(member, inner);
        sample.writer().write(uint32_t{200});
        for (int i = 0; i < 40000; ++i)
            sample.writer().write(uint8_t{1});
        class Some {
          public:
            explicit Some(const DDS_DynamicData& data) : data_(data) {}
            bool operator()(ValueSink& sink) const {
                WalkBuffers buffers;
                std::string failure;
                auto start =
                    data_.impl().context()->reader.start(data_.impl().payload(), false, {}, buffers, failure);
                return start &&
                       start->walker.walk(start->reader, data_.impl().context()->reader.type(), &sink);
            }

          private:
            const DDS_DynamicData& data_;
        };
        for (uint64_t limit = 1; limit < 300; ++limit) {
            PrintBuffers json;
            ASSERT_TRUE(
                print_json(Some(sample.data()), JsonStyle{limit % 2 == 0, false}, json, {nullptr, limit}));
            // Brackets agree, and so does what stands in front of them.
            std::string open;
            bool quoted = false;
            char last = ' ';
            for (const char c : json.text) {
                if (c == '"')
                    quoted = !quoted;
                if (quoted || c == ' ' || c == '\n')
                    continue;
                if (c == '{' || c == '[')
                    open += c;
                if (c == '}' || c == ']') {
                    ASSERT_FALSE(open.empty()) << json.text;
                    ASSERT_EQ(open.back(), c == '}' ? '{' : '[') << json.text;
                    open.pop_back();
                    ASSERT_TRUE(last != ',' && last != ':') << json.text;
                }
                ASSERT_FALSE(c == ',' && (last == ',' || last == ':' || last == '[' || last == '{'))
                    << json.text;
                last = c;
            }
            ASSERT_EQ(open, "") << json.text;
        }
    }
}

TEST(Layout, SamplesThatCannotBeDecodedAreToldOnceAndCounted) {
    Sample sample("<member name='n' type='int32'/>");
    sample.writer().write(int64_t{1});
    testing::internal::CaptureStderr();
    {
        DDS_DynamicData data = sample.data();
        sample.forget();
        for (int i = 0; i < 1000; ++i) {
            EXPECT_EQ(plain(data), "");
            EXPECT_EQ(compact(data), "failed");
        }
    }
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 2) << log.substr(0, 1000);
    EXPECT_NE(
        log.find(
            "topic \"topic\": a sample cannot be decoded: 4 octets are left: the type is not what was sent"),
        std::string::npos)
        << log;
    EXPECT_NE(log.find("topic \"topic\": 2000 samples could not be decoded"), std::string::npos) << log;
}
