// Encodings byte by byte, for what the recorded samples do not show.

#include "types/data/cdr_walker.h"

#include <gtest/gtest.h>

#include "corpus.h"
#include "support/type_documents.h"
#include "types/data/json_printer.h"
#include "types/data/sample_reader.h"

using namespace meridian;
using namespace meridian::types;

namespace {

class Walk {
  public:
    Walk(const SampleReader& reader, rtps::ByteView payload, std::string& failure)
        : reader_(reader), payload_(payload), failure_(failure) {}
    bool operator()(ValueSink& sink) const { return reader_.walk(payload_, &sink, failure_); }

  private:
    const SampleReader& reader_;
    rtps::ByteView payload_;
    std::string& failure_;
};

/// The JSON of a payload, given as hexadecimal digits with blanks, of the last type of a document; or what
/// failed.
std::string decode(const std::string& types, const std::string& payload) {
    TypeDocuments documents;
    std::string error;
    EXPECT_TRUE(documents.load("doc", "<types>" + types + "</types>", error)) << error;
    const SampleReader reader(documents.find("T"));
    std::string digits;
    for (char c : payload) {
        if (c != ' ')
            digits += c;
    }
    const rtps::ByteBuffer bytes = test::from_hex(digits);
    PrintBuffers json;
    return print_json(Walk(reader, bytes, error), JsonStyle(), json) ? json.text : "failed: " + error;
}

std::string structure(const std::string& extensibility, const std::string& members) {
    return "<struct name='T' extensibility='" + extensibility + "'>" + members + "</struct>";
}

} // namespace

TEST(CdrWalker, BigEndianMaps) {
    const std::string type = structure("final", "<member name='m' type='int16' mapKeyType='string'/>");
    // length; key length and "a" with its terminator, value; the second entry after padding
    EXPECT_EQ(decode(type, "00000000 00000002 00000002 6100 0102 00000002 6200 fffe"),
              R"({"m":{"a":258,"b":-2}})");
    // XCDR2: the same behind a DHEADER, then without it as Fast CDR 2 writes it
    EXPECT_EQ(decode(type, "00060000 00000010 00000002 00000002 6100 0102 00000002 6200 fffe"),
              "failed: member m[1]: a string longer than the sample");
    EXPECT_EQ(decode(type, "00060000 00000014 00000002 00000002 6100 0102 00000002 6200 fffe"),
              R"({"m":{"a":258,"b":-2}})");
    EXPECT_EQ(decode(type, "00060000 00000002 00000002 6100 0102 00000002 6200 fffe"),
              R"({"m":{"a":258,"b":-2}})");
}

TEST(CdrWalker, MapsWithKeysOfManyPartsAreArrays) {
    const std::string type =
        "<struct name='K' extensibility='final'><member name='x' type='byte'/></struct>" +
        structure("final", "<member name='m' type='byte' mapKeyType='nonBasic' mapKeyNonBasicTypeName='K'/>");
    EXPECT_EQ(decode(type, "00010000 02000000 0102 0304"),
              R"({"m":[{"key":{"x":1},"value":2},{"key":{"x":3},"value":4}]})");
    EXPECT_EQ(decode(type, "00010000 00000000"), R"({"m":[]})");
}

TEST(CdrWalker, ParameterListsOfXcdr1) {
    const std::string type = structure("mutable",
                                       "<member name='a' type='int32' id='1'/><member name='b' "
                                       "type='float64' id='0x12345'/><member name='c' type='byte' id='3'/>");
    // b in an extended header, aligned from its own start; c before a; an unknown member in between; the end
    const std::string members =
        "013f0800 45230100 08000000 000000000000f83f 03000100 07 000000 09000400 deadbeef 01000400 05000000 ";
    EXPECT_EQ(decode(type, "00030000" + members + "023f0000"), R"({"a":5,"b":1.5,"c":7})");
    // without an end; with an unknown member that must be understood
    EXPECT_EQ(decode(type, "00030000" + members).substr(0, 7), "failed:");
    EXPECT_EQ(decode(type, "00030000" + members + "09400400 deadbeef 023f0000"),
              "failed: the type lacks a member that must be understood");
    EXPECT_EQ(decode(type, "00030000 023f0000"), "{}");
    // a length beyond the sample
    EXPECT_EQ(decode(type, "00030000 0100ff00 05000000 023f0000"), "failed: a member longer than the sample");
}

TEST(CdrWalker, MemberHeadersOfXcdr2) {
    const std::string type =
        structure("mutable",
                  "<member name='a' type='int32' id='1'/><member name='s' type='string' id='2'/><member "
                  "name='l' type='int64' id='3' sequenceMaxLength='-1'/>");
    // lengths by code 2 (four octets), 4 (a length of its own), 7 (the sequence's length in units of eight)
    EXPECT_EQ(decode(type,
                     "000b0000 28000000 01000020 05000000 02000040 07000000 03000000 6869 00 00 03000070 "
                     "01000000 0900000000000000"),
              R"({"a":5,"s":"hi","l":[9]})");
    // code 5: the string's own length
    EXPECT_EQ(decode(type, "000b0000 0c000000 02000050 03000000 686900 00"), R"({"s":"hi"})");
    // must-understand bit on an unknown member; an inner length beyond the outer one
    EXPECT_EQ(decode(type, "000b0000 08000000 090000a0 05000000"),
              "failed: the type lacks a member that must be understood");
    EXPECT_EQ(decode(type, "000b0000 0c000000 02000040 ff000000 00000000"),
              "failed: a member longer than the sample");
}

// As Fast CDR 1.0.26 wrote it on x86: wide characters of four octets, the 80 bits of a long double.
TEST(CdrWalker, WideTextOfFastCdr1) {
    const std::string type =
        structure("final",
                  "<member name='o' type='byte'/><member name='w' type='wstring'/><member name='c' "
                  "type='char16'/><member name='s' type='int16'/>");
    EXPECT_EQ(decode(type, "00010000 07000000 03000000 61000000 ac200000 00f60100 e9000000 0500"),
              "{\"o\":7,\"w\":\"a\xe2\x82\xac\xf0\x9f\x98\x80\",\"c\":\"\xc3\xa9\",\"s\":5}");
    EXPECT_EQ(decode(type, "00000000 07000000 00000003 00000061 000020ac 0001f600 000000e9 0005"),
              "{\"o\":7,\"w\":\"a\xe2\x82\xac\xf0\x9f\x98\x80\",\"c\":\"\xc3\xa9\",\"s\":5}");
}

TEST(CdrWalker, WideTextOfTheStandard) {
    const std::string type =
        structure("final", "<member name='w' type='wstring'/><member name='s' type='int16'/>");
    // 6 octets: a high and a low surrogate, then a low one alone
    EXPECT_EQ(decode(type, "00010000 06000000 3dd800de 00dc 0500"),
              "{\"w\":\"\xf0\x9f\x98\x80\xef\xbf\xbd\",\"s\":5}");
    EXPECT_EQ(decode(type, "00010000 00000000 0500"), R"({"w":"","s":5})");
}

// What could be padding after a short text in one form is text in another.
TEST(CdrWalker, ShortWideText) {
    const std::string type = structure("final", "<member name='w' type='wstring'/>");
    EXPECT_EQ(decode(type, "00010000 02000000 61006200"), R"({"w":"ab"})"); // two units: Fast CDR 2
    EXPECT_EQ(decode(type, "00010000 02000000 61000000"), R"({"w":"a"})");  // two octets and padding
    EXPECT_EQ(decode(type, "00010000 01000000 61000000"),
              R"({"w":"a"})"); // one unit and padding, or one quad
    EXPECT_EQ(decode(type, "00010000 04000000 61006200"), R"({"w":"ab"})");
}

TEST(CdrWalker, LongDoubles) {
    const std::string type = structure("final", "<member name='l' type='float128'/>");
    EXPECT_EQ(decode(type, "00010000 00000000000000000000000000c0ff3f"), R"({"l":1.75})");
    EXPECT_EQ(decode(type, "00000000 bffe0000000000000000000000000000"), R"({"l":-0.5})");
    EXPECT_EQ(decode(type, "00000000 3fffb999999999999999999999999999"), R"({"l":1.725})");
    EXPECT_EQ(decode(type, "00010000 00000000000000c0ff3f000000000000"), R"({"l":1.5})"); // x86
    EXPECT_EQ(decode(type, "00010000 00000000000000000000000000000000"), R"({"l":0})");
    EXPECT_EQ(decode(type, "00000000 7fff0000000000000000000000000000"), R"({"l":"inf"})");
    EXPECT_EQ(decode(type, "00000000 7fff8000000000000000000000000000"), R"({"l":"nan"})");
    EXPECT_EQ(decode(type, "00000000 7ffe0000000000000000000000000000").substr(0, 7), R"({"l":"5)");
}

TEST(CdrWalker, BitFieldsKeepTheirSigns) {
    const std::string type =
        "<bitset name='B'><bitfield name='a' type='int8' bit_bound='3'/><bitfield name='b' "
        "bit_bound='5'/></bitset>" +
        structure("final", "<member name='x' type='nonBasic' nonBasicTypeName='B'/>");
    EXPECT_EQ(decode(type, "00010000 fe"), R"({"x":{"a":-2,"b":31}})");
}

// The octet or two of a narrow enumeration count with a sign, unless the enumeration says otherwise.
TEST(CdrWalker, NarrowEnumerators) {
    const std::string type =
        "<enum name='E' bitBound='8'><enumerator name='LOW' value='-128'/><enumerator name='MINUS' "
        "value='-1'/>"
        "<enumerator name='HIGH' value='200'/></enum>"
        "<enum name='F' bitBound='16'><enumerator name='TOP' value='65535'/></enum>"
        "<union name='U'><discriminator type='nonBasic' nonBasicTypeName='E'/><case><caseDiscriminator "
        "value='HIGH'/><member name='h' type='byte'/></case></union>" +
        structure("final",
                  "<member name='e' type='nonBasic' nonBasicTypeName='E' arrayDimensions='4'/>"
                  "<member name='f' type='nonBasic' nonBasicTypeName='F' arrayDimensions='2'/>"
                  "<member name='u' type='nonBasic' nonBasicTypeName='U'/>");
    EXPECT_EQ(decode(type, "00010000 80ffc8c7 fffffeff c807"),
              R"({"e":["LOW","MINUS","HIGH",-57],"f":["TOP",-2],"u":{"_d":"HIGH","h":7}})");
}

TEST(CdrWalker, EndlessValuesEnd) {
    // A sequence of four thousand million structures that take no octets
    const std::string empty =
        "<struct name='E' extensibility='final'/>" +
        structure("final", "<member name='s' type='nonBasic' nonBasicTypeName='E' sequenceMaxLength='-1'/>");
    EXPECT_NE(decode(empty, "00010000 ffffffff").find("more values than a sample of this size can hold"),
              std::string::npos);
    // However long the sample is
    EXPECT_EQ(decode(empty, "00010000 a0bb0d00" + std::string(120000, '0')),
              "failed: member s[4096]: more values than a sample of this size can hold");
    // A union that holds itself
    const std::string self =
        "<union name='T' extensibility='final'><discriminator type='byte'/><case>"
        "<caseDiscriminator value='0'/><member name='t' type='nonBasic' "
        "nonBasicTypeName='T'/></case></union>";
    EXPECT_NE(
        decode(self, "00010000" + std::string(2 * (kMaxValueDepth + 1), '0')).find("values nest too deeply"),
        std::string::npos);
    // Sequences in sequences, each of one element
    const std::string tree =
        structure("final", "<member name='t' type='nonBasic' nonBasicTypeName='T' sequenceMaxLength='-1'/>");
    std::string deep = "00010000";
    for (unsigned i = 0; i < kMaxValueDepth; ++i)
        deep += "01000000";
    EXPECT_NE(decode(tree, deep + "00000000").find("values nest too deeply"), std::string::npos);
    EXPECT_EQ(decode(tree, "00010000 01000000 02000000 00000000 00000000"),
              R"({"t":[{"t":[{"t":[]},{"t":[]}]}]})");
    // More elements than octets
    const std::string octets = structure("final", "<member name='o' type='byte' sequenceMaxLength='-1'/>");
    EXPECT_EQ(decode(octets, "00010000 ffffffff 00"),
              "failed: member o: more elements than the sample holds");
    const std::string array = structure(
        "final", "<member name='o' type='int64' arrayDimensions='2000000000,2000000000,2000000000'/>");
    EXPECT_EQ(decode(array, "00010000 00").substr(0, 7), "failed:");
}

TEST(CdrWalker, OlderVersionsOfAppendableTypesHaveFewerMembers) {
    const std::string type =
        structure("appendable", "<member name='a' type='int32'/><member name='b' type='int32'/>");
    EXPECT_EQ(decode(type, "00090000 04000000 05000000"), R"({"a":5})");
    EXPECT_EQ(decode(type, "00090000 0c000000 05000000 06000000 07000000"), R"({"a":5,"b":6})");
    EXPECT_EQ(decode(type, "00090000 06000000 05000000 0600"), "failed: member b: the sample ends within it");
}

TEST(CdrWalker, UnknownEncapsulations) {
    const std::string type = structure("final", "<member name='a' type='byte'/>");
    EXPECT_EQ(decode(type, ""), "failed: a payload without an encapsulation header");
    EXPECT_EQ(decode(type, "000100"), "failed: a payload without an encapsulation header");
    EXPECT_EQ(decode(type, "00050000 01"), "failed: an encapsulation of unknown kind 5");
    EXPECT_EQ(decode(type, "000c0000 01"), "failed: an encapsulation of unknown kind 12");
    EXPECT_EQ(decode(type, "00010000 01"), R"({"a":1})");
}

TEST(CdrWalker, MutableMapsWhoseHeaderCountsEntries) {
    const std::string type =
        structure("mutable",
                  "<member name='m' type='int32' mapKeyType='string' id='0x2c'/><member name='n' "
                  "type='int32' mapKeyType='int32' id='0x2d'/><member name='o' type='byte' id='3'/>");
    // As Fast CDR 2 writes them: codes 5 and 6 with the number of entries, no DHEADER.
    EXPECT_EQ(decode(type,
                     "000b0000 2c000000 2c000050 01000000 02000000 6b00 0000 09000000"
                     "2d000060 01000000 07000000 08000000 03000000 05 000000"),
              R"({"m":{"k":9},"n":{"7":8},"o":5})");
    // As the standard has it: the first map's DHEADER is its length, the second one has none and code 4.
    EXPECT_EQ(decode(type,
                     "000b0000 34000000 2c000050 10000000 01000000 02000000 6b00 0000 09000000"
                     "2d000040 0c000000 01000000 07000000 08000000 03000000 05 000000"),
              R"({"m":{"k":9},"n":{"7":8},"o":5})");
    // more entries than there are bytes
    EXPECT_EQ(decode(type, "000b0000 14000000 2c000050 09000000 02000000 6b00 0000 09000000").substr(0, 7),
              "failed:");
}

TEST(CdrWalker, WideStringsWhoseEndLooksLikePadding) {
    const std::string type =
        structure("final", "<member name='w' type='wstring'/><member name='n' type='int32'/>");
    // Two characters, counted as such: taken for two octets, the second one would fill up to the number.
    EXPECT_EQ(decode(type, "00010000 02000000 7700 ac20 05000000"), "{\"w\":\"w\xe2\x82\xac\",\"n\":5}");
    // One character, counted in octets.
    EXPECT_EQ(decode(type, "00010000 02000000 7700 0000 05000000"), R"({"w":"w","n":5})");
    const std::string tight =
        structure("final", "<member name='w' type='wstring'/><member name='n' type='int16'/>");
    // One character in octets; what follows is a value and no padding.
    EXPECT_EQ(decode(tight, "00010000 02000000 7700 0500"), R"({"w":"w","n":5})");
}

TEST(CdrWalker, LabelsOfUnsignedDiscriminators) {
    const std::string type =
        "<union name='T' extensibility='final'><discriminator type='uint32'/>"
        "<case><caseDiscriminator value='0x80000001'/><member name='a' type='byte'/></case>"
        "<case><caseDiscriminator value='4294967295'/><member name='b' type='byte'/></case>"
        "<case><caseDiscriminator value='1'/><member name='c' type='byte'/></case></union>";
    EXPECT_EQ(decode(type, "00010000 01000080 05"), R"({"_d":2147483649,"a":5})");
    EXPECT_EQ(decode(type, "00010000 ffffffff 05"), R"({"_d":4294967295,"b":5})");
    EXPECT_EQ(decode(type, "00010000 01000000 05"), R"({"_d":1,"c":5})");
}

TEST(CdrWalker, EmptyParametersOfXcdr1AreAbsent) {
    const std::string type =
        structure("mutable",
                  "<member name='a' type='int32' id='1' optional='true'/><member name='b' "
                  "type='string' id='2' optional='true'/><member name='c' type='byte' id='3'/>");
    EXPECT_EQ(decode(type, "00030000 01000000 02000000 03000400 05000000 023f0000"), R"({"c":5})");
    EXPECT_EQ(decode(type, "00030000 03000000 023f0000").substr(0, 7), "failed:") << "not optional";
}

TEST(CdrWalker, JsonEscapesWhatTerminalsObey) {
    const std::string type = structure("final", "<member name='s' type='string'/>");
    EXPECT_EQ(decode(type, "00010000 09000000 7f c29b c2a9 c280 61 00"),
              "{\"s\":\"\\u007f\\u009b\xc2\xa9\\u0080a\"}");
}
