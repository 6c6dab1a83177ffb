// Serializers differ, and a sample does not always tell them apart: what its writer did before does.

#include "types/data/dialect.h"

#include <gtest/gtest.h>

#include "support/type_documents.h"
#include "types/data/json_printer.h"
#include "types/data/plain_printer.h"
#include "types/data/sample_reader.h"

using namespace meridian;
using namespace meridian::types;

namespace {

const SampleSource kFirst{{rtps::GuidPrefix{{1}}, rtps::EntityId{0x102}}, rtps::VendorId{{1, 15}}};
const SampleSource kSecond{{rtps::GuidPrefix{{2}}, rtps::EntityId{0x102}}, rtps::VendorId{{1, 15}}};
const SampleSource kOtherVendor{{rtps::GuidPrefix{{3}}, rtps::EntityId{0x102}}, rtps::VendorId{{1, 16}}};

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
constexpr const char* kAsOctets = "text: \"a\"\nnumber: 98\n";
constexpr const char* kAsQuads = "text: \"ab\"\nnumber:\n";

TEST_F(DialectTest, EachIsFoundOut) {
    for (const rtps::ByteBuffer& payload : {kOctets, kUnits, kQuads})
        EXPECT_EQ(values(payload, {}), kWhole);
    EXPECT_EQ(damaged({}), kAsOctets);
}

TEST_F(DialectTest, AWriterIsExpectedToDoAsBefore) {
    EXPECT_EQ(values(kQuads, kFirst), kWhole);
    EXPECT_EQ(damaged(kFirst), kAsQuads);
    EXPECT_EQ(damaged(kOtherVendor), kAsOctets);
    EXPECT_EQ(damaged({}), kAsOctets);
}

TEST_F(DialectTest, ANewWriterIsExpectedToDoAsItsVendor) {
    EXPECT_EQ(values(kQuads, kFirst), kWhole);
    EXPECT_EQ(damaged(kSecond), kAsQuads);
}

TEST_F(DialectTest, AnExpectationThatFailsIsCorrected) {
    EXPECT_EQ(values(kQuads, kFirst), kWhole);
    EXPECT_EQ(values(kOctets, kSecond), kWhole);
    EXPECT_EQ(damaged(kSecond), kAsOctets);
    EXPECT_EQ(damaged(kFirst), kAsQuads);
    EXPECT_EQ(values(kUnits, kFirst), kWhole);
    EXPECT_EQ(values(kQuads, kFirst), kWhole);
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
