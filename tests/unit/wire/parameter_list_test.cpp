// Walking and building parameter lists.

#include "rtps/wire/parameter_list.h"

#include "rtps/wire/encapsulation.h"
#include "wire_test.h"

namespace meridian::rtps {
namespace {

std::vector<uint16_t> ids_of(const std::string& hex, Endianness order, bool& complete, size_t& consumed) {
    const ByteBuffer bytes = from_hex(hex);
    ParameterListReader list(bytes, order);
    std::vector<uint16_t> ids;
    Parameter parameter;
    while (list.next(parameter))
        ids.push_back(parameter.id);
    EXPECT_FALSE(list.next(parameter)) << "the end stays the end";
    complete = list.complete();
    consumed = list.consumed();
    return ids;
}

TEST(ParameterListReader, BothByteOrdersPadAndSentinel) {
    bool complete = false;
    size_t consumed = 0;
    EXPECT_EQ(ids_of(R"(
        00 00 00 04 ff ff ff ff  # pad
        40 14 00 00              # must be understood, empty
        80 01 00 04 01 02 03 04  # a vendor's
        00 00 00 00              # pad
        00 01 12 34              # sentinel; its length means nothing
        ff ff ff ff              # not part of the list
    )",
                     Endianness::big, complete, consumed),
              (std::vector<uint16_t>{0x4014, 0x8001}));
    EXPECT_TRUE(complete);
    EXPECT_EQ(consumed, 28u);
    EXPECT_EQ(ids_of("0500 0400 61000000  0100 0000", Endianness::little, complete, consumed),
              std::vector<uint16_t>{0x0005});
    EXPECT_TRUE(complete);
    EXPECT_EQ(consumed, 12u);
}

TEST(ParameterListReader, Malformed) {
    for (const char* bad : {"", "05", "050004", "0005 0003 616200 0001 0000", "0005 0002 6162 0001 0000",
                            "0005 0008 61626364", "0005 0004 61620000", "0005 0004 61620000 0001 00"}) {
        bool complete = true;
        size_t consumed = 0;
        ids_of(bad, Endianness::big, complete, consumed);
        EXPECT_FALSE(complete) << bad;
    }
}

TEST(Parameter, BitsOfTheId) {
    Parameter parameter;
    parameter.id = 0x4014;
    EXPECT_EQ(parameter.base_id(), 0x0014);
    EXPECT_TRUE(parameter.must_understand());
    EXPECT_FALSE(parameter.not_understood()) << "the domain tag";
    parameter.id = 0x800f;
    EXPECT_EQ(parameter.base_id(), 0x800f);
    EXPECT_FALSE(parameter.must_understand());
    parameter.id = 0x7123;
    EXPECT_TRUE(parameter.not_understood());
    parameter.id = 0x3123;
    EXPECT_FALSE(parameter.not_understood()) << "may be skipped";
}

TEST(ParameterIds, RowsAreFoundByTheirId) {
    ASSERT_NE(pid::find(pid::participant_lease_duration), nullptr);
    EXPECT_STREQ(pid::find(pid::participant_lease_duration)->name, "participant_lease_duration");
    ASSERT_NE(pid::find(0x800f), nullptr);
    EXPECT_STREQ(pid::find(0x800f)->name, "vendor_related_sample_identity");
    EXPECT_EQ(pid::find(pid::lifespan)->flags, pid::of_writers);
    for (const uint16_t absent : {uint16_t{0x0000}, uint16_t{0x0001}, uint16_t{0x0003}, uint16_t{0x4005},
                                  uint16_t{0x800e}, uint16_t{0xffff}})
        EXPECT_EQ(pid::find(absent), nullptr) << absent;
}

TEST(ParameterListWriter, MarksWhatMustBeUnderstood) {
    ByteBuffer bytes;
    ParameterListWriter list(bytes, Endianness::big);
    list.add(pid::domain_tag, [](ByteWriter&) {});
    list.add(pid::domain_id, [](ByteWriter&) {});
    EXPECT_EQ(bytes, from_hex("40 14 00 00  00 0f 00 00"));
}

TEST(ParameterListWriter, PadsValuesAndLeavesOutWhatIsTooLong) {
    ByteBuffer bytes;
    ParameterListWriter list(bytes, Endianness::big);
    EXPECT_TRUE(list.add(0x0005, [](ByteWriter& writer) { writer.write_string("a"); }));
    EXPECT_FALSE(list.add_bytes(0x8001, ByteBuffer(ParameterListWriter::kMaxValueSize + 1)));
    EXPECT_TRUE(list.add_bytes(0x8002, {}));
    list.add_sentinel();
    EXPECT_EQ(bytes, from_hex(R"(
        00 05 00 08              # id, length
        00 00 00 02 61 00 00 00  # "a"
        80 02 00 00              # empty
        00 01 00 00              # sentinel
    )"));
    ByteBuffer largest;
    EXPECT_TRUE(
        ParameterListWriter(largest).add_bytes(0x8001, ByteBuffer(ParameterListWriter::kMaxValueSize)));
    EXPECT_EQ(largest.size(), 4 + ParameterListWriter::kMaxValueSize);
}

TEST(ParameterListWriter, AlignmentCountsFromTheValue) {
    ByteBuffer bytes;
    ParameterListWriter list(bytes, Endianness::big);
    // Behind a four-byte parameter header, an eight-byte value still starts without padding.
    list.add(0x8001, [](ByteWriter& writer) { writer.write(uint64_t{1}); });
    EXPECT_EQ(bytes, from_hex("8001 0008 0000000000000001"));
}

TEST(Encapsulation, IsSplitOff) {
    Encapsulation encapsulation;
    ByteView body;
    const ByteBuffer bytes = from_hex("0009 0003 aa");
    ASSERT_TRUE(read_encapsulation(bytes, encapsulation, body));
    EXPECT_EQ(encapsulation.encoding(), Encoding::delimited_cdr2);
    EXPECT_EQ(encapsulation.endianness(), Endianness::little);
    EXPECT_EQ(encapsulation.padding(), 3u);
    EXPECT_EQ(bytes_of(body), from_hex("aa"));
    EXPECT_FALSE(read_encapsulation(ByteView(bytes.data(), 3), encapsulation, body));
    ByteBuffer written;
    write_encapsulation(written, Encoding::pl_cdr, Endianness::big);
    EXPECT_EQ(written, from_hex("00020000"));
}

} // namespace
} // namespace meridian::rtps
