// Serializers differ, and a sample does not always tell them apart: what its writer did before does.

#include "types/data/dialect.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "corpus.h"
#include "support/type_documents.h"
#include "types/data/json_printer.h"
#include "types/data/key_hasher.h"
#include "types/data/plain_printer.h"
#include "types/data/sample_reader.h"

using namespace meridian;
using namespace meridian::types;

namespace {

const SampleSource kFirst{{rtps::GuidPrefix{{1}}, rtps::EntityId{0x102}}, rtps::VendorId{{1, 15}}};
const SampleSource kSecond{{rtps::GuidPrefix{{2}}, rtps::EntityId{0x102}}, rtps::VendorId{{1, 15}}};
const SampleSource kOtherVendor{{rtps::GuidPrefix{{3}}, rtps::EntityId{0x102}}, rtps::VendorId{{1, 16}}};
const SampleSource& kCyclone = kOtherVendor;

/// "ab" and 7 in the dialects that count octets and characters of two or four octets.
const rtps::ByteBuffer kOctets{0,   1, 0,   0, // CDR, little-endian
                               4,   0, 0,   0, //
                               'a', 0, 'b', 0, //
                               7,   0, 0,   0, 0, 0, 0, 0};
const rtps::ByteBuffer kUnits{0,   1, 0,   0, //
                              2,   0, 0,   0, //
                              'a', 0, 'b', 0, //
                              7,   0, 0,   0, 0, 0, 0, 0};
const rtps::ByteBuffer kQuads{0,   1, 0, 0,               //
                              2,   0, 0, 0,               //
                              'a', 0, 0, 0, 'b', 0, 0, 0, //
                              0,   0, 0, 0,               // padding
                              7,   0, 0, 0, 0,   0, 0, 0};

class DialectTest : public ::testing::Test {
  protected:
    static TypeRef type() {
        TypeDocuments documents;
        std::string error;
        EXPECT_TRUE(documents.load("doc", R"(<types><struct name="T">
            <member name="text" type="wstring"/><member name="number" type="int64"/></struct></types>)",
                                   error))
            << error;
        return documents.find("T");
    }
    /// The values that a payload is told as, up to where it cannot be decoded.
    std::string values(const rtps::ByteBuffer& payload, const SampleSource& source) {
        PrintBuffers buffers;
        PlainPrinter printer(buffers, 0);
        std::string failure;
        reader.walk(payload, &printer, failure, source);
        printer.close();
        return buffers.text;
    }
    /// How a damaged sample, which fits none of them, is told.
    std::string damaged(const SampleSource& source) {
        return values({kQuads.begin(), kQuads.end() - 1}, source);
    }
    const SampleReader reader{type()};
};

constexpr const char* kWhole = "text: \"ab\"\nnumber: 7\n";
constexpr const char* kNothing = ""; // of a form that is not known, nothing is told that may be wrong
constexpr const char* kAsQuads = "text: \"ab\"\nnumber:\n";

TEST_F(DialectTest, EachIsFoundOut) {
    for (const rtps::ByteBuffer& payload : {kOctets, kUnits, kQuads})
        EXPECT_EQ(values(payload, {}), kWhole);
    EXPECT_EQ(damaged({}), kNothing);
}

TEST_F(DialectTest, AWriterIsExpectedToDoAsBefore) {
    EXPECT_EQ(values(kQuads, kFirst), kWhole);
    EXPECT_EQ(damaged(kFirst), kAsQuads);
    EXPECT_EQ(damaged(kOtherVendor), kNothing);
    EXPECT_EQ(damaged({}), kNothing);
}

TEST_F(DialectTest, ANewWriterIsExpectedToDoAsItsVendor) {
    EXPECT_EQ(values(kQuads, kFirst), kWhole);
    EXPECT_EQ(damaged(kSecond), kAsQuads);
}

TEST_F(DialectTest, AnExpectationThatFailsIsCorrected) {
    EXPECT_EQ(values(kQuads, kFirst), kWhole);
    EXPECT_EQ(values(kOctets, kSecond), kWhole);
    EXPECT_EQ(damaged(kSecond), kNothing);
    EXPECT_EQ(damaged(kFirst), kAsQuads);
    EXPECT_EQ(values(kUnits, kFirst), kWhole);
    EXPECT_EQ(values(kQuads, kFirst), kWhole);
}

// -- Fast CDR 2 in XCDR1: each header of a member, of an absent one too, moves the origin of alignment for
// all that follows.

/// Samples of a type of a document.
class FormTest : public ::testing::Test {
  protected:
    static TypeRef type(const std::string& types, const std::string& name = "T") {
        TypeDocuments documents;
        std::string error;
        EXPECT_TRUE(documents.load("doc", "<types>" + types + "</types>", error)) << error;
        return documents.find(name);
    }
    /// Of hexadecimal digits with blanks.
    static rtps::ByteBuffer bytes_of(const std::string& payload) {
        std::string digits;
        std::copy_if(payload.begin(), payload.end(), std::back_inserter(digits),
                     [](char c) { return c != ' '; });
        return test::from_hex(digits);
    }
    /// The values that a payload is told as, in one line.
    static std::string values(const std::string& types, const std::string& payload,
                              const SampleSource& source, const std::string& name = "T") {
        const SampleReader reader(type(types, name));
        PrintBuffers buffers;
        PlainPrinter printer(buffers, 0);
        std::string failure;
        const bool done = reader.walk(bytes_of(payload), &printer, failure, source);
        std::string text = buffers.text;
        std::replace(text.begin(), text.end(), '\n', ' ');
        return text + (done ? "" : "failed: " + failure);
    }
};

constexpr const char* kOptional = R"(<struct name="T" extensibility="final">
    <member name="note" type="string" optional="true"/><member name="count" type="int32"/>
    <member name="stamp" type="int64"/></struct>)";

// Dynamic types of Fast DDS 3 write the value of an absent member, which may look like its flag and the next
// value. Then a gap of the flagged form holds that one.
TEST_F(FormTest, AGapThatIsNotZeroTellsWhetherOptionalMembersHaveFlags) {
    const auto type = [](const char* last) {
        return R"(<struct name="T" extensibility="final"><member name="a" type="int16" optional="true"/>
            <member name="b" type="byte"/><member name="c" type=")" +
               std::string(last) + "\"/></struct>";
    };
    EXPECT_EQ(values(type("int32"), "00070000 0000 81 00 07000000", kFirst), "a: 0 b: 129 c: 7 ");
    EXPECT_EQ(values(type("int32"), "00070000 00 81 0000 07000000", kFirst), "b: 129 c: 7 ");
    EXPECT_EQ(values(type("string\" stringMaxLength=\"9"), "00070000 0000 81 00 02000000 6900", kFirst),
              "a: 0 b: 129 c: \"i\" ");
    EXPECT_EQ(values(type("int32\" sequenceMaxLength=\"-1"), "00070000 0000 81 00 01000000 05000000", kFirst),
              "a: 0 b: 129 c:    [0]: 5 ");
    EXPECT_EQ(values(type("string\" sequenceMaxLength=\"-1"),
                     "00070000 0000 81 00 0a000000 01000000 02000000 6900", kFirst),
              "a: 0 b: 129 c:    [0]: \"i\" ");
}

TEST_F(FormTest, AnAbsentMemberMovesTheOriginOfFastCdr2) {
    const std::string payload = "00010000 00000000 03000000 00000000 0900000000000000";
    for (const SampleSource& source : {kFirst, SampleSource()})
        EXPECT_EQ(values(kOptional, payload, source), "count: 3 stamp: 9 ");
    // of Cyclone DDS it does not
    EXPECT_EQ(values(kOptional, "00010000 00000000 03000000 0900000000000000", kCyclone),
              "count: 3 stamp: 9 ");
    EXPECT_EQ(
        values(kOptional, "00010000 00000700 03000000 68690000 03000000 00000000 0900000000000000", kFirst),
        "note: \"hi\" count: 3 stamp: 9 ");
}

// It compares a discriminator without its sign with labels that have theirs.
TEST_F(FormTest, CycloneDdsSendsNoMemberForANegativeNarrowDiscriminator) {
    const auto type = [](const std::string& discriminator, const std::string& more = "") {
        return "<union name=\"U\"><discriminator type=\"" + discriminator +
               R"("/><case><caseDiscriminator value="-5"/><member name="a" type="int32"/></case>
                  <case><caseDiscriminator value="3"/><member name="b" type="int32"/></case>)" +
               more + R"(</union><struct name="T"><member name="u" type="nonBasic" nonBasicTypeName="U"/>
               <member name="x" type="int32"/></struct>)";
    };
    const std::string without = "00010000 fbff0000 07000000";
    EXPECT_EQ(values(type("int16"), without, kCyclone), "u:    _d: -5 x: 7 ");
    EXPECT_EQ(values(type("int8"), "00010000 fb000000 07000000", kCyclone), "u:    _d: -5 x: 7 ");
    EXPECT_EQ(values(type("int16"), "00010000 03000000 09000000 07000000", kCyclone),
              "u:    _d: 3    b: 9 x: 7 ");
    const std::string with = "00010000 fbff0000 09000000 07000000";
    EXPECT_EQ(values(type("int16"), with, kCyclone), "u:    _d: -5    a: 9 x: 7 ") << "another release";
    EXPECT_EQ(values(type("int16"), with, kFirst), "u:    _d: -5    a: 9 x: 7 ");
    EXPECT_EQ(values(type("int32"), "00010000 fbffffff 09000000 07000000", kCyclone),
              "u:    _d: -5    a: 9 x: 7 ");
    EXPECT_EQ(values(type("int16", R"(<case><caseDiscriminator value="default"/>
                                      <member name="c" type="int8"/></case>)"),
                     "00010000 fbff0900 07000000", kCyclone),
              "u:    _d: -5    c: 9 x: 7 ");
}

TEST_F(FormTest, RequestsAndResponsesOfRos2OnCycloneDdsHaveAHeader) {
    const auto module = [](const std::string& name) {
        return R"(<module name="p"><module name="srv"><module name="dds_"><struct name=")" + name +
               R"(" extensibility="final"><member name="a" type="uint8"/><member name="b" type="int64"/></struct>
            </module></module></module>)";
    };
    const std::string content = "0700000000000000 0900000000000000";
    const std::string plain = "00010000" + content;
    const std::string with_header = "00010000 0123456789abcdef 0100000000000000" + content;
    for (const std::string name : {"Add_Request_", "Add_Response_"}) {
        EXPECT_EQ(values(module(name), with_header, kCyclone, "p::srv::dds_::" + name), "a: 7 b: 9 ");
        EXPECT_EQ(values(module(name), plain, kCyclone, "p::srv::dds_::" + name), "a: 7 b: 9 ");
        EXPECT_EQ(values(module(name), plain, kFirst, "p::srv::dds_::" + name), "a: 7 b: 9 ");
    }
    EXPECT_EQ(values(module("Add_"), plain, kCyclone, "p::srv::dds_::Add_"), "a: 7 b: 9 ");
    EXPECT_NE(values(module("Add_"), with_header, kCyclone, "p::srv::dds_::Add_").find("failed: "),
              std::string::npos);
    EXPECT_NE(
        values(module("Add_Request_"), with_header, kFirst, "p::srv::dds_::Add_Request_").find("failed: "),
        std::string::npos);
}

TEST_F(FormTest, FastCdr2KeepsOneOriginForTheWholeStream) {
    const std::string inner = R"(<struct name="S" extensibility="final">
        <member name="o" type="int32" optional="true"/></struct>)";
    const std::string list = R"(<struct name="L" extensibility="mutable">
        <member name="s" type="nonBasic" nonBasicTypeName="S"/></struct>)";
    const std::string behind_list = R"(<struct name="T" extensibility="final"><member name="n" type="int32"/>
        <member name="l" type="nonBasic" nonBasicTypeName="L"/><member name="x" type="int64"/></struct>)";
    const std::string behind_optional =
        R"(<struct name="T" extensibility="final"><member name="n" type="int32"/>
        <member name="s" type="nonBasic" nonBasicTypeName="S" optional="true"/>
        <member name="x" type="int64"/></struct>)";
    for (const SampleSource& source : {kFirst, SampleSource()}) {
        // origins: 8, 12 and, behind the list, still 12
        EXPECT_EQ(values(inner + list + behind_list,
                         "00010000 07000000 00000800 00000400 05000000 023f0000 0900000000000000", source),
                  "n: 7 l:    s:       o: 5 x: 9 ");
        EXPECT_EQ(values(inner + behind_optional,
                         "00010000 07000000 01000800 00000400 05000000 00000000 0900000000000000", source),
                  "n: 7 s:    o: 5 x: 9 ");
        // an absent member within a present one
        EXPECT_EQ(values(inner + behind_optional,
                         "00010000 07000000 01000400 00000000 00000000 0900000000000000", source),
                  "n: 7 s: {} x: 9 ");
    }
}

constexpr const char* kWideBeforeDouble = R"(<struct name="T" extensibility="final">
    <member name="n" type="int32"/><member name="w" type="wstring"/>
    <member name="d" type="float64"/></struct>)";

TEST_F(FormTest, WideTextBeforeAnEightOctetValueIsWhole) {
    for (const SampleSource& source : {kFirst, SampleSource()}) {
        EXPECT_EQ(
            values(kWideBeforeDouble, "00010000 01000000 04000000 6100620063006400 000000000000f83f", source),
            "n: 1 w: \"abcd\" d: 1.5 ");
        EXPECT_EQ(
            values(kWideBeforeDouble, "00010000 01000000 02000000 6100000062000000 000000000000f83f", source),
            "n: 1 w: \"ab\" d: 1.5 ");
    }
    EXPECT_EQ(values(kWideBeforeDouble, "00010000 01000000 04000000 61006200 00000000 000000000000f83f", {}),
              "n: 1 w: \"ab\" d: 1.5 ");
}

TEST_F(FormTest, WideTextOfFastDdsIsNeverCountedInOctets) {
    // what fills the gap behind it is whatever stood in the buffer
    EXPECT_EQ(
        values(kWideBeforeDouble, "00010000 01000000 02000000 61006200 deadbeef 000000000000f83f", kFirst),
        "n: 1 w: \"ab\" d: 1.5 ");
    // one character, or one octet and a half
    EXPECT_EQ(values(R"(<struct name="T" extensibility="final"><member name="w" type="wstring"/>
                       <member name="b" type="byte"/></struct>)",
                     "00010000 02000000 61006200 05000000", kFirst),
              "w: \"ab\" b: 5 ");
}

// The first sample is as 3.13 wrote it: text and character big-endian, the character behind its length, and
// nothing aligned to it.
TEST_F(FormTest, WideTextOfOpenDdsTo313IsBigEndian) {
    SampleSource open_dds = kFirst;
    open_dds.vendor = rtps::kOpenDds;
    open_dds.fast_cdr = 1;
    const std::string type = R"(<struct name="T" extensibility="final"><member name="o" type="byte"/>
        <member name="c" type="char16"/><member name="w" type="wstring"/><member name="n" type="int16"/>
        <member name="all" type="char16" sequenceMaxLength="-1"/><member name="b" type="byte"/></struct>)";
    const std::string sample =
        "00010000 01 02 0077 08000000 0077 0069 0064 0065 ffff 0000 02000000"
        "02 0061 02 0062 05";
    EXPECT_EQ(values(type, sample, open_dds),
              "o: 1 c: 'w' w: \"wide\" n: -1 all:    [0]: 'a'    [1]: 'b' b: 5 ");
    // Nothing but the release tells which text this is.
    const std::string text =
        R"(<struct name="T" extensibility="final"><member name="w" type="wstring"/></struct>)";
    EXPECT_EQ(values(text, "00010000 02000000 0077", open_dds), "w: \"w\" ");
    open_dds.fast_cdr = 0;
    EXPECT_EQ(values(text, "00010000 02000000 7700", open_dds), "w: \"w\" ");
    EXPECT_EQ(values(type, sample.substr(0, sample.size() - 2), open_dds).find("wide"), std::string::npos);
}

// As 3.13 wrote them.
TEST_F(FormTest, OpenDdsTo313AlignsFromTheHeaderOn) {
    SampleSource open_dds = kFirst;
    open_dds.vendor = rtps::kOpenDds;
    open_dds.fast_cdr = 1;
    const std::string type = R"(<struct name="T" extensibility="final"><member name="n" type="int32"/>
        <member name="d" type="float64"/><member name="o" type="byte" sequenceMaxLength="-1"/></struct>)";
    const std::string sample = "00010000 01000000 000000000000e03f 02000000 0a0b";
    EXPECT_EQ(values(type, sample, open_dds), "n: 1 d: 0.5 o:    [0]: 10    [1]: 11 ");
    const std::string standard = "00010000 01000000 00000000 000000000000e03f 02000000 0a0b";
    EXPECT_EQ(values(type, standard, open_dds), "n: 1 d: 0.5 o:    [0]: 10    [1]: 11 ") << "set to do so";
    EXPECT_NE(values(type, sample, {}), values(type, sample, open_dds)) << "others do not";
    const SampleReader reader(FormTest::type(R"(<struct name="T" extensibility="final">
        <member name="k" type="int64" key="true"/></struct>)"));
    rtps::KeyHash key{};
    std::string failure;
    EXPECT_TRUE(KeyHasher(reader).compute(bytes_of("00010000 00000000 0700000000000000"), false, key, failure,
                                          open_dds))
        << failure;
    EXPECT_EQ(key, (rtps::KeyHash{{0, 0, 0, 0, 0, 0, 0, 7}}));
}

constexpr const char* kLongDouble =
    R"(<struct name="T" extensibility="final"><member name="l" type="float128"/></struct>)";

/// A writer of Fast DDS with that generation of its serializer.
SampleSource fast_dds(uint8_t fast_cdr) {
    SampleSource source = kFirst;
    source.writer.entity.value += fast_cdr << 8;
    source.fast_cdr = fast_cdr;
    return source;
}

TEST_F(FormTest, WhatTheReleaseTellsIsNotAMatterOfTheSample) {
    const std::string type = R"(<struct name="T" extensibility="final"><member name="w" type="wstring"/>
        <member name="data" type="uint8" sequenceMaxLength="100"/></struct>)";
    // As two characters of four octets and one octet, or as two of two and five octets: both forms fit.
    const std::string both = "00010000 02000000 00f60100 05000000 01000000 07";
    const std::string quads = "w: \"\U0001f600\\x05\" data:    [0]: 7 ";
    const std::string units = "w: \"\uf600\\x01\" data:    [0]: 1    [1]: 0    [2]: 0    [3]: 0    [4]: 7 ";
    EXPECT_EQ(values(type, both, fast_dds(1)), quads);
    EXPECT_EQ(values(type, both, fast_dds(2)), units);
    EXPECT_EQ(values(type, both, fast_dds(0)), units);
    // The other generation's are tried all the same where its own do not fit.
    const std::string only_quads = "00010000 01000000 61000000 01000000 07";
    const std::string only_units = "00010000 02000000 61006200 01000000 07";
    for (const uint8_t fast_cdr : {uint8_t{0}, uint8_t{1}, uint8_t{2}}) {
        EXPECT_EQ(values(type, only_quads, fast_dds(fast_cdr)), "w: \"a\" data:    [0]: 7 ") << +fast_cdr;
        EXPECT_EQ(values(type, only_units, fast_dds(fast_cdr)), "w: \"ab\" data:    [0]: 7 ") << +fast_cdr;
    }
}

TEST_F(FormTest, WritersOfEachReleaseAreExpectedToDoAsTheirs) {
    const std::string type = R"(<struct name="T" extensibility="final"><member name="w" type="wstring"/>
        <member name="data" type="uint8" sequenceMaxLength="100"/></struct>)";
    const SampleReader reader(FormTest::type(type));
    const rtps::ByteBuffer both = bytes_of("00010000 02000000 00f60100 05000000 01000000 07");
    const auto length = [&](const SampleSource& source) {
        PrintBuffers buffers;
        PlainPrinter printer(buffers, 0);
        std::string failure;
        EXPECT_TRUE(reader.walk(both, &printer, failure, source)) << failure;
        return std::count(buffers.text.begin(), buffers.text.end(), '[');
    };
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(length(fast_dds(1)), 1);
        EXPECT_EQ(length(fast_dds(2)), 5);
        EXPECT_EQ(length(fast_dds(0)), 5);
    }
    // One that comes back with the same GUID and another release.
    SampleSource again = fast_dds(2);
    again.fast_cdr = 1;
    EXPECT_EQ(length(again), 1);
}

TEST_F(FormTest, AWriterMayCallItselfAnother) {
    // Requests of Cyclone DDS have more forms than those of others.
    const std::string type = R"(<module name="p"><module name="srv"><module name="dds_">
        <struct name="Add_Request_" extensibility="final"><member name="w" type="wstring"/>
        <member name="n" type="int64"/></struct></module></module></module>)";
    const SampleReader reader(FormTest::type(type, "p::srv::dds_::Add_Request_"));
    SampleSource source = kCyclone;
    for (const rtps::VendorId vendor : {kCyclone.vendor, kFirst.vendor, rtps::VendorId{}, kCyclone.vendor}) {
        source.vendor = vendor;
        for (const rtps::ByteBuffer& payload : {kOctets, kUnits, kQuads}) {
            std::string failure;
            EXPECT_TRUE(reader.walk(payload, nullptr, failure, source)) << failure;
        }
    }
}

TEST_F(FormTest, LongDoublesOfFastDdsAreThoseOfX86) {
    // zero and 1.5 in ten octets; the other six are garbage: a pointer, the end of a double
    EXPECT_EQ(values(kLongDouble, "00010000 00000000000000000000 785634127fff", kFirst), "l: 0 ");
    EXPECT_EQ(values(kLongDouble, "00010000 00000000000000000000 3412fd7f0000", kFirst), "l: 0 ");
    EXPECT_EQ(values(kLongDouble, "00010000 00000000000000000000 00000000f03f", kFirst), "l: 0 ");
    EXPECT_EQ(values(kLongDouble, "00010000 00000000000000c0ff3f 00000000f03f", kFirst), "l: 1.5 ");
    EXPECT_EQ(values(kLongDouble, "00010000 00000000000000c0ff3f 34123412fd7f", kFirst), "l: 1.5 ");
    // on other machines they are as the standard has it
    EXPECT_EQ(values(kLongDouble, "00010000 00000000000000a0999999999999ff3f", kFirst),
              "l: 1.6000000000000000888 ");
    EXPECT_EQ(values(kLongDouble, "00000000 3fff8000000000000000000000000000", kFirst), "l: 1.5 ");
}

TEST_F(FormTest, AZeroIsTakenAsTheWritersOtherLongDoubles) {
    const SampleReader reader(type(kLongDouble));
    const auto told = [&reader](const std::string& payload) {
        PrintBuffers buffers;
        PlainPrinter printer(buffers, 0);
        std::string failure;
        EXPECT_TRUE(reader.walk(bytes_of(payload), &printer, failure, kFirst)) << failure;
        return buffers.text;
    };
    EXPECT_EQ(told("00010000 00000000000000a0999999999999ff3f"), "l: 1.6000000000000000888\n");
    EXPECT_EQ(told("00010000 0000000000000000000000000000ff3f"), "l: 1\n");
}

// -- What speaks against a form though it fits

/// The objections to the standard's form of a payload; -1 where it does not fit.
int objections(const std::string& members, const std::string& payload, bool xcdr2 = false) {
    TypeDocuments documents;
    std::string error;
    EXPECT_TRUE(documents.load("doc", "<types>" + members + "</types>", error)) << error;
    const rtps::ByteBuffer bytes = test::from_hex(payload);
    WalkBuffers buffers;
    CdrWalker walker(xcdr2 ? CdrVersion::xcdr2 : CdrVersion::xcdr1, CdrDialect(), bytes.size(), buffers);
    walker.set_trial(false);
    rtps::ByteReader reader(bytes, rtps::Endianness::little, xcdr2 ? 4 : 8);
    return walker.walk(reader, *documents.find("T"), nullptr) ? static_cast<int>(walker.objections()) : -1;
}

std::string final_structure(const std::string& members) {
    return "<struct name='T' extensibility='final'>" + members + "</struct>";
}

TEST(Objections, ToValuesThatNoSerializerWrites) {
    const std::string type = "<enum name='E'><enumerator name='one' value='1'/></enum>" +
                             final_structure("<member name='e' type='nonBasic' nonBasicTypeName='E'/>");
    EXPECT_EQ(objections(type, "01000000"), 0);
    EXPECT_EQ(objections(type, "02000000"), 1);
    EXPECT_EQ(objections(type, "0200"), -1);
    const std::string boolean = final_structure("<member name='b' type='boolean'/>");
    EXPECT_EQ(objections(boolean, "01"), 0);
    EXPECT_EQ(objections(boolean, "02"), 1);
    const std::string text = final_structure("<member name='w' type='wstring'/>");
    EXPECT_EQ(objections(text, "0400000061006200"), 0);
    EXPECT_EQ(objections(text, "0400000061000000"), 0) << "a terminator";
    EXPECT_EQ(objections(text, "06000000610000006200"), 1) << "text behind a NUL";
}

TEST(Objections, ToUnionsWithoutABranch) {
    const std::string type =
        "<union name='T' extensibility='final'><discriminator type='int32'/><case>"
        "<caseDiscriminator value='1'/><member name='a' type='byte'/></case></union>";
    EXPECT_EQ(objections(type, "0100000005"), 0);
    EXPECT_EQ(objections(type, "02000000"), 1);
}

TEST(Objections, ToDelimitedValuesThatAreNotFilled) {
    const std::string type =
        "<struct name='T' extensibility='appendable'><member name='a' type='byte'/></struct>";
    EXPECT_EQ(objections(type, "0100000005", true), 0);
    EXPECT_GT(objections(type, "080000000500000006000000", true), 100);
}

// The header of an absent member, or a number.
TEST_F(FormTest, AHeaderNamesItsMember) {
    const std::string type = R"(<struct name="T" extensibility="final">
        <member name="a" type="int32" optional="true"/><member name="b" type="byte"/></struct>)";
    EXPECT_EQ(values(type, "00010000 00000000 07000000", kFirst), "b: 7 ");
    EXPECT_EQ(values(type, "00010000 05000000 07000000", kFirst), "a: 5 b: 7 ");
}

TEST_F(FormTest, WhatFitsNoFormIsNotShown) {
    const std::string type =
        R"(<struct name="T" extensibility="final"><member name="a" type="int32"/></struct>)";
    EXPECT_EQ(values(type, "00010000 05000000 06000000", kFirst),
              "failed: 4 octets are left: the type is not what was sent");
    EXPECT_EQ(values(kWideBeforeDouble, "00010000 01000000 02000000 61006200", kFirst).substr(0, 7),
              "failed:");
}

// -- Types of Fast DDS 3.1

TEST_F(FormTest, BitSetsMayBeWiderThanTheirNamedFields) {
    const std::string type = R"(<bitset name="B"><bitfield name="a" bit_bound="3"/></bitset>
        <struct name="T" extensibility="final"><member name="x" type="nonBasic" nonBasicTypeName="B"/>
        <member name="n" type="byte"/></struct>)";
    for (const SampleSource& source : {kFirst, SampleSource()}) {
        EXPECT_EQ(values(type, "00010000 05 07 0000", source), "x:    a: 5 n: 7 ");
        // with 7 and with 40 more bits that have no name
        EXPECT_EQ(values(type, "00010000 0500 07 00", source).substr(0, 14), "x:    a: 5 n: ");
        EXPECT_EQ(values(type, "00010000 0500000000000000 07 000000", source), "x:    a: 5 n: 7 ");
    }
    EXPECT_EQ(values(R"(<bitset name="B"><bitfield name="a" bit_bound="3"/></bitset>
        <struct name="T" extensibility="final"><member name="x" type="nonBasic" nonBasicTypeName="B"/>
        <member name="n" type="int16"/></struct>)",
                     "00000000 0005 0007", kFirst),
              "x:    a: 5 n: 7 ");
}

TEST_F(FormTest, MutableUnionsWithAMap) {
    const std::string type = R"(<union name="T" extensibility="mutable"><discriminator type="int32"/>
        <case><caseDiscriminator value="1"/>
        <member name="m" type="int32" mapKeyType="string" id="1"/></case></union>)";
    // code 5 and the number of entries
    EXPECT_EQ(
        values(type, "000b0000 1c000000 00000020 01000000 01000050 01000000 02000000 6b00 0000 09000000",
               kFirst),
        "_d: 1 m:    [\"k\"]: 9 ");
}

TEST_F(FormTest, MutableSequencesOfWideCharacters) {
    const std::string type = R"(<struct name="T" extensibility="mutable">
        <member name="w" type="char16" sequenceMaxLength="-1" id="1"/><member name="n" type="byte" id="2"/></struct>)";
    // code 6 counts the characters as four octets each, though they take two
    for (const SampleSource& source : {kFirst, SampleSource()}) {
        EXPECT_EQ(values(type, "000b0000 14000000 01000060 02000000 61006200 02000000 05 000000", source),
                  "w:    [0]: 'a'    [1]: 'b' n: 5 ");
        EXPECT_EQ(values(R"(<struct name="T" extensibility="mutable">
            <member name="w" type="char16" sequenceMaxLength="-1" id="1"/></struct>)",
                         "000b0000 0c000000 01000060 02000000 61006200", source),
                  "w:    [0]: 'a'    [1]: 'b' ");
    }
}

// Dynamic types of Fast DDS 3 write the code of a length and no length. Taken for one, what is behind the
// array would be passed over.
TEST_F(FormTest, MutableArraysOfBooleans) {
    const std::string type = R"(<struct name="T" extensibility="mutable">
        <member name="b" type="boolean" arrayDimensions="2" id="1"/>
        <member name="s" type="int32" sequenceMaxLength="-1" id="2"/>
        <member name="n" type="byte" id="3"/></struct>)";
    EXPECT_EQ(
        values(type, "000b0000 19000000 01000050 01010000 02000060 01000000 07000000 03000000 05", kFirst),
        "b:    [0]: true    [1]: true s:    [0]: 7 n: 5 ");
    EXPECT_EQ(values(type, "000b0000 15000000 01000050 01000000 02000060 00000000 03000000 05", kFirst),
              "b:    [0]: true    [1]: false s: [] n: 5 ");
}

// Dynamic types of Fast DDS 3. Without its header the array would begin with the 6 of it, and the sequence's
// own header would hide that octets are left.
TEST_F(FormTest, ArraysOfArraysWithHeaders) {
    const std::string type = R"(<typedef name="Row" type="byte" arrayDimensions="3"/>
        <typedef name="Grid" type="nonBasic" nonBasicTypeName="Row" arrayDimensions="2"/>
        <struct name="T" extensibility="final">
        <member name="g" type="nonBasic" nonBasicTypeName="Grid" sequenceMaxLength="-1"/>
        <member name="n" type="byte"/></struct>)";
    EXPECT_EQ(
        values(type, "00070000 0e000000 01000000 06000000 010203 040506 07", kFirst),
        "g:    [0]:       [0]:          [0]: 1          [1]: 2          [2]: 3       [1]:          [0]: 4"
        "          [1]: 5          [2]: 6 n: 7 ");
}

// Cyclone DDS, where strings and structures have a header only once for all dimensions.
TEST_F(FormTest, ArraysOfArraysWithOneHeader) {
    const std::string type = R"(<typedef name="Row" type="string" arrayDimensions="1"/>
        <struct name="T" extensibility="final">
        <member name="g" type="nonBasic" nonBasicTypeName="Row" arrayDimensions="3"/>
        <member name="n" type="int32"/></struct>)";
    const SampleSource cyclone{{rtps::GuidPrefix{{1}}, rtps::EntityId{0x102}}, rtps::VendorId{{1, 16}}};
    EXPECT_EQ(
        values(type,
               "00070000 1f000000 05000000 625a0a2200 000000 05000000 3958625c00 000000 "
               "03000000 2f5800 00 05000000",
               cyclone),
        "g:    [0]:       [0]: \"bZ\\n\\\"\"    [1]:       [0]: \"9Xb\\\\\"    [2]:       [0]: \"/X\" n: 5 ");
}

// Recorded from Dust DDS: lists that end with parameter 1, and sequences whose length in octets is the number
// of their elements.
TEST_F(FormTest, MutableTypesOfDustDds) {
    const SampleSource dust{{rtps::GuidPrefix{{4}}, rtps::EntityId{2}}, rtps::kDustDds};
    const std::string type = R"(<struct name="Inner" extensibility="mutable">
        <member name="a" type="uint8"/><member name="b" type="uint32"/><member name="c" type="uint16"/></struct>
        <struct name="T" extensibility="mutable"><member name="id" type="int32" key="true"/>
        <member name="name" type="string" key="true"/>
        <member name="inner" type="nonBasic" nonBasicTypeName="Inner"/>
        <member name="values" type="int64" sequenceMaxLength="-1"/>
        <member name="words" type="string" sequenceMaxLength="-1"/>
        <member name="grid" type="uint16" arrayDimensions="3"/>
        <member name="color" type="int32"/><member name="maybe" type="float64" optional="true"/>
        <member name="nothing" type="string" optional="true"/><member name="flag" type="boolean"/>
        <member name="ch" type="char8"/>
        <member name="inners" type="nonBasic" nonBasicTypeName="Inner" sequenceMaxLength="-1"/>
        <member name="f" type="float32"/></struct>)";
    const std::string xcdr1 =
        "00030000 00400400 00000000 01400700 030000006e300000 02001c00 00000100 00000000 01000400 70110100"
        "02000200 2c010000 01000000 03002000 03000000 00000000 0000000000000000 0100000000000000"
        "0200000000000000 04001800 02000000 040000006f6e6500 080000007a77656920c3a400 05000600 "
        "0100020003000000"
        "06000400 05000000 07000800 0000000000000440 09000100 01000000 0a000100 78000000 0b003c00 02000000"
        "00000100 01000000 01000400 71110100 02000200 2c010000 01000000"
        "00000100 02000000 01000400 72110100 02000200 2c010000 01000000 0c000400 0000c03f 01000000";
    const std::string xcdr2 =
        "000b0000 f8000000 000000a0 00000000 010000c0 07000000 030000006e300000 02000050 16000000 00000000"
        "00000000 01000020 70110100 02000010 2c010000 03000050 03000000 0000000000000000 0100000000000000"
        "0200000000000000 04000050 18000000 02000000 040000006f6e6500 080000007a77656920c3a400 05000040 "
        "06000000"
        "0100020003000000 06000020 05000000 07000030 0000000000000440 09000000 01000000 0a000000 78000000"
        "0b000050 3a000000 02000000 16000000 00000000 01000000 01000020 71110100 02000010 2c010000"
        "16000000 00000000 02000000 01000020 72110100 02000010 2c010000 0c000020 0000c03f";
    for (const std::string& payload : {xcdr1, xcdr2}) {
        for (const SampleSource& source : {dust, SampleSource()})
            EXPECT_EQ(
                values(type, payload, source),
                "id: 0 name: \"n0\" inner:    a: 0    b: 70000    c: 300 values:    [0]: 0    [1]: 1    "
                "[2]: 2 words:    [0]: \"one\"    [1]: \"zwei \xc3\xa4\" grid:    [0]: 1    [1]: 2    "
                "[2]: 3 color: 5 maybe: 2.5 flag: true ch: 'x' inners:    [0]:       a: 1       "
                "b: 70001       c: 300    [1]:       a: 2       b: 70002       c: 300 f: 1.5 ");
    }
}

TEST_F(FormTest, LabelsOfDiscriminatorsOf64Bits) {
    for (const char* kind : {"int64", "uint64"}) {
        const std::string type =
            std::string("<union name='T' extensibility='final'><discriminator type='") + kind +
            "'/><case><caseDiscriminator value='2147483648'/><member name='a' type='byte'/>"
            "</case><case><caseDiscriminator value='4294967294'/><member name='b' type='byte'/>"
            "</case><case><caseDiscriminator value='7'/><member name='c' type='byte'/></case>"
            "</union>";
        EXPECT_EQ(values(type, "00010000 0000008000000000 05", kFirst), "_d: 2147483648 a: 5 ");
        EXPECT_EQ(values(type, "00010000 feffffff00000000 05", kFirst), "_d: 4294967294 b: 5 ");
        EXPECT_EQ(values(type, "00010000 0700000000000000 05", kFirst), "_d: 7 c: 5 ");
        EXPECT_EQ(values(type, "00010000 0800000000000000", kFirst), "_d: 8 ");
    }
}

TEST(DialectMemory, HoldsSoManyWriters) {
    DialectMemory memory;
    SampleSource source = kFirst;
    const DialectMemory::Choice choice{3, false};
    for (uint32_t i = 0; i < DialectMemory::kMaxWriters; ++i) {
        source.writer.entity.value = i << 8 | 2;
        memory.note(source, 1, choice);
    }
    EXPECT_EQ(memory.expected(source, 1), choice);
    EXPECT_EQ(memory.expected(source, 0), std::nullopt);
    memory.note(kOtherVendor, 1, choice);
    EXPECT_EQ(memory.expected(source, 1), std::nullopt);
    EXPECT_EQ(memory.expected(kOtherVendor, 1), choice);
}

TEST(DialectMemory, KnowsNothingOfUnknownWriters) {
    DialectMemory memory;
    memory.note({}, 0, {1, true});
    EXPECT_EQ(memory.expected({}, 0), std::nullopt);
}

} // namespace
