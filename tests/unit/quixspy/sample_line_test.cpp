// The report line of a sample: literal lines for each field, and every combination of the optional ones.

#include "quixspy/quixSpySampleLine.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "quixspy/fixture.h"

namespace {

DDS_GUID_t guid(std::initializer_list<DDS_Octet> bytes) {
    DDS_GUID_t result{};
    std::copy(bytes.begin(), bytes.end(), result.value);
    return result;
}

const DDS_GUID_t kWriter =
    guid({0x01, 0x01, 0x88, 0x8c, 0x46, 0xc9, 0xef, 0x71, 0xfa, 0x7e, 0xd5, 0xae, 0x80, 0x00, 0x42, 0x02});
const DDS_GUID_t kRelated = guid({0xab, 0xcd, 0xef, 0x01, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 4});

DDS_InstanceHandle_t handle_of(const DDS_GUID_t& bytes) {
    DDS_InstanceHandle_t handle{{}, 16, true};
    std::memcpy(handle.keyHash, bytes.value, 16);
    return handle;
}

/// 12:25:30, data of a new instance.
DDS_SampleInfo plain_info() {
    DDS_SampleInfo info;
    info.valid_data = true;
    info.source_timestamp = {44730, 999999999};
    info.publication_handle = handle_of(kWriter);
    return info;
}

/// A writer of whom everything is known.
struct KnownWriter : Record {
    KnownWriter() {
        guid = {0x0101888c, 0x46c9ef71, 0xfa7ed5ae, 0x80004202};
        std::snprintf(ip, sizeof ip, "192.168.100.200");
        name = DDS_String_dup("role:Sensor");
        participantPartition = DDS_String_dup("P1,P2");
        endpointPartition = DDS_String_dup("E");
    }
};

std::string line_of(const QuixSpySampleLineFields& fields, const DDS_SampleInfo& info,
                    const QuixSpyEndpointInfo& writer = KnownWriter()) {
    std::string line;
    QUIXSpy_formatSampleLine(line, fields, QUIXSpy_formatTopicField("Circle", 50, "ShapeType", 50), info,
                             writer);
    return line;
}

const std::string kStart =
    "12:25:30 New data          from 192.168.100.200 : topic=\"Circle\" type=\"ShapeType\"";

} // namespace

TEST(SampleLine, ShortestForm) {
    EXPECT_EQ(line_of({}, plain_info()),
              "12:25:30 New data          from 192.168.100.200 : topic=\"Circle\" type=\"ShapeType\"");
}

TEST(SampleLine, AppendsToWhatIsThere) {
    std::string line = "before ";
    QUIXSpy_formatSampleLine(line, {}, "|", plain_info(), KnownWriter());
    EXPECT_EQ(line, "before 12:25:30 New data          from 192.168.100.200 :|");
}

TEST(SampleLine, TimeOfDay) {
    DDS_SampleInfo info = plain_info();
    info.source_timestamp = {0, 0};
    EXPECT_EQ(line_of({}, info).substr(0, 9), "00:00:00 ");
    info.source_timestamp = {1700000000, 1}; // 2023-11-14 22:13:20
    EXPECT_EQ(line_of({}, info).substr(0, 9), "22:13:20 ");
    info.source_timestamp = DDS_TIME_INVALID;
    EXPECT_EQ(line_of({}, info).substr(0, 9), "xx:xx:xx ");
}

TEST(SampleLine, EventIsTheInstancesState) {
    struct Case {
        DDS_InstanceStateMask instance;
        DDS_ViewStateMask view;
        bool keyed;
        const char* text;
    };
    const Case cases[] = {
        {1, 1, true, " New data          from"},
        {1, 1, false, " New data          from"},
        {1, 2, true, " Modified instance from"},
        {1, 2, false, " New data          from"},
        {2, 1, true, " Disposed instance from"},
        {2, 2, true, " Disposed instance from"},
        {2, 2, false, " Disposed instance from"},
        {4, 1, true, " No writers        from"},
        {4, 2, false, " No writers        from"},
        {3, 1, true, " from"},
        {0, 2, true, " from"},
        {1, 3, true, " New data          from"},
    };
    for (const Case& one : cases) {
        for (const bool valid : {true, false}) {
            DDS_SampleInfo info = plain_info();
            info.instance_state = one.instance;
            info.view_state = one.view;
            info.valid_data = valid;
            QuixSpySampleLineFields fields;
            fields.isKeyed = one.keyed;
            const std::string line = line_of(fields, info);
            EXPECT_EQ(line.substr(8, std::strlen(one.text)), one.text)
                << one.instance << ' ' << one.view << ' ' << one.keyed;
        }
    }
}

TEST(SampleLine, AddressIsPaddedTo16Columns) {
    KnownWriter writer;
    std::snprintf(writer.ip, sizeof writer.ip, "10.0.0.1");
    EXPECT_EQ(line_of({}, plain_info(), writer).substr(26, 26), " from 10.0.0.1        : to");
    std::snprintf(writer.ip, sizeof writer.ip, "unknown ip");
    EXPECT_EQ(line_of({}, plain_info(), writer).substr(26, 26), " from unknown ip      : to");
}

TEST(SampleLine, UnknownWriterHasNoFieldsOfItsOwn) {
    QuixSpySampleLineFields fields;
    fields.showEntityName = fields.showPartition = true;
    KnownWriter writer;
    writer.guid = {};
    EXPECT_EQ(line_of(fields, plain_info(), writer),
              "12:25:30 New data          from unknown ip      : topic=\"Circle\" type=\"ShapeType\"");
}

TEST(SampleLine, NamesAreCutNeverPadded) {
    EXPECT_EQ(QUIXSpy_formatTopicField("Circle", 6, "ShapeType", 9), " topic=\"Circle\" type=\"ShapeType\"");
    EXPECT_EQ(QUIXSpy_formatTopicField("Circle", 5, "ShapeType", 1), " topic=\"Circl\" type=\"S\"");
    EXPECT_EQ(QUIXSpy_formatTopicField("Circle", 255, "ShapeType", 255),
              " topic=\"Circle\" type=\"ShapeType\"");
    const std::string name(300, 'x');
    EXPECT_EQ(QUIXSpy_formatTopicField(name.c_str(), 255, "", 50),
              " topic=\"" + name.substr(0, 255) + "\" type=\"\"");
}

TEST(SampleLine, KeyIsInHostOrderGuidInNetworkOrder) {
    DDS_SampleInfo info = plain_info();
    info.instance_handle = handle_of(guid({1, 2, 3, 4, 0xaa, 0xbb, 0xcc, 0xdd, 0, 0, 0, 0, 0, 0, 0, 0x10}));
    QuixSpySampleLineFields fields;
    fields.isKeyed = fields.showHandle = true;
    const DDS_UnsignedShort probe = 1;
    const bool little = *reinterpret_cast<const unsigned char*>(&probe) == 1;
    EXPECT_EQ(line_of(fields, info), kStart +
                                         (little ? " key=\"04030201.ddccbbaa.00000000.10000000\""
                                                 : " key=\"01020304.aabbccdd.00000000.00000010\"") +
                                         " guid=\"0x0101888C,0x46C9EF71,0xFA7ED5AE:0x80004202\"");
    fields.isKeyed = false;
    EXPECT_EQ(line_of(fields, info), kStart) << "no key, no field";
}

TEST(SampleLine, Flags) {
    const char* const expected[16] = {
        "",
        " flags=\"R\"",
        " flags=\"I\"",
        " flags=\"IR\"",
        " flags=\"P\"",
        " flags=\"PR\"",
        " flags=\"PI\"",
        " flags=\"PIR\"",
        " flags=\"L\"",
        " flags=\"LR\"",
        " flags=\"LI\"",
        " flags=\"LIR\"",
        " flags=\"LP\"",
        " flags=\"LPR\"",
        " flags=\"LPI\"",
        " flags=\"LPIR\"",
    };
    QuixSpySampleLineFields fields;
    fields.showSampleFlags = true;
    DDS_SampleInfo info = plain_info();
    for (DDS_UnsignedLong flag = 0; flag < 16; ++flag) {
        for (const DDS_UnsignedLong others : {0U, 0xfffffff0U}) {
            info.flag = flag | others;
            EXPECT_EQ(line_of(fields, info), kStart + expected[flag]) << info.flag;
        }
    }
}

TEST(SampleLine, Identities) {
    QuixSpySampleLineFields fields;
    fields.showSampleIdentity = true;
    DDS_SampleInfo info = plain_info();
    EXPECT_EQ(line_of(fields, info), kStart) << "nothing known";
    info.sample_identity = {kWriter, {0, 1}};
    EXPECT_EQ(line_of(fields, info),
              kStart + " virtual_guid=\"0x0101888C,0x46C9EF71,0xFA7ED5AE:0x80004202\" virtual_sn=(0, 1)");
    info.related_sample_identity = {kRelated, {-7, 4294967295U}};
    EXPECT_EQ(line_of(fields, info),
              kStart +
                  " virtual_guid=\"0x0101888C,0x46C9EF71,0xFA7ED5AE:0x80004202\""
                  " related_virtual_guid=\"0xABCDEF01,0x00000002,0x00000003:0x00000004\""
                  " virtual_sn=(0, 1) related_virtual_sn=(-7, 4294967295)");
    info.sample_identity = {};
    EXPECT_EQ(line_of(fields, info),
              kStart +
                  " related_virtual_guid=\"0xABCDEF01,0x00000002,0x00000003:0x00000004\""
                  " related_virtual_sn=(-7, 4294967295)");
    info.related_sample_identity = {DDS_GUID_UNKNOWN, {-1, 4294967294U}}; // each field has its own condition
    EXPECT_EQ(line_of(fields, info), kStart + " related_virtual_sn=(-1, 4294967294)");
    info.related_sample_identity = {kRelated, DDS_SEQUENCE_NUMBER_UNKNOWN};
    info.sample_identity = {DDS_GUID_UNKNOWN, {2147483647, 0}};
    EXPECT_EQ(line_of(fields, info),
              kStart +
                  " related_virtual_guid=\"0xABCDEF01,0x00000002,0x00000003:0x00000004\""
                  " virtual_sn=(2147483647, 0)");
}

TEST(SampleLine, NameAndPartitionsOnlyWherePresent) {
    QuixSpySampleLineFields fields;
    fields.showEntityName = fields.showPartition = true;
    for (int present = 0; present < 8; ++present) {
        Record writer;
        writer.guid = {1, 2, 3, 4};
        std::snprintf(writer.ip, sizeof writer.ip, "192.168.100.200");
        std::string expected = kStart;
        if ((present & 1) != 0) {
            writer.name = DDS_String_dup("Sensor");
            expected += " name=\"Sensor\"";
        }
        if ((present & 2) != 0) {
            writer.participantPartition = DDS_String_dup("D");
            expected += " DP partition=\"D\"";
        }
        if ((present & 4) != 0) {
            writer.endpointPartition = DDS_String_dup("A,B,");
            expected += " S partition=\"A,B,\"";
        }
        EXPECT_EQ(line_of(fields, plain_info(), writer), expected);
    }
}

TEST(SampleLine, NamesThatWouldComeWithEachSampleAreCut) {
    QuixSpySampleLineFields fields;
    fields.showEntityName = fields.showPartition = true;
    Record writer;
    writer.guid = {1, 2, 3, 4};
    std::snprintf(writer.ip, sizeof writer.ip, "192.168.100.200");
    writer.name = DDS_String_dup(std::string(4096, 'n').c_str());
    writer.endpointPartition = DDS_String_dup(std::string(4097, 'p').c_str());
    EXPECT_EQ(line_of(fields, plain_info(), writer), kStart + " name=\"" + std::string(4096, 'n') +
                                                         "\" S partition=\"" + std::string(4096, 'p') +
                                                         "...\"");
}

TEST(SampleLine, EveryCombinationOfOptionalFields) {
    DDS_SampleInfo info = plain_info();
    info.instance_handle = handle_of(guid({7, 7, 7, 7}));
    info.sample_identity = {kWriter, {0, 42}};
    info.related_sample_identity = {kRelated, {1, 2}};
    info.flag = 5;
    for (int bits = 0; bits < 128; ++bits) {
        const auto has = [bits](int bit) { return (bits & 1 << bit) != 0; };
        QuixSpySampleLineFields fields;
        fields.isKeyed = has(0);
        fields.showHandle = has(1);
        fields.showSampleFlags = has(2);
        fields.showSampleIdentity = has(3);
        fields.showEntityName = has(4);
        fields.showPartition = has(5);
        const bool is_known = has(6);
        KnownWriter writer;
        if (!is_known)
            writer.guid = {};

        std::string expected = "12:25:30 New data          from ";
        expected += is_known ? "192.168.100.200 :" : "unknown ip      :";
        expected += " topic=\"Circle\" type=\"ShapeType\"";
        if (fields.isKeyed && fields.showHandle)
            expected +=
                " key=\"07070707.00000000.00000000.00000000\""
                " guid=\"0x0101888C,0x46C9EF71,0xFA7ED5AE:0x80004202\"";
        if (fields.showSampleFlags)
            expected += " flags=\"PR\"";
        if (fields.showSampleIdentity)
            expected +=
                " virtual_guid=\"0x0101888C,0x46C9EF71,0xFA7ED5AE:0x80004202\""
                " related_virtual_guid=\"0xABCDEF01,0x00000002,0x00000003:0x00000004\""
                " virtual_sn=(0, 42) related_virtual_sn=(1, 2)";
        if (fields.showEntityName && is_known)
            expected += " name=\"role:Sensor\"";
        if (fields.showPartition && is_known)
            expected += " DP partition=\"P1,P2\" S partition=\"E\"";
        EXPECT_EQ(line_of(fields, info, writer), expected) << bits;
    }
}

TEST(SampleLine, WriterGuidIsInNetworkOrder) {
    EXPECT_TRUE(
        RtpsGuid_equals(QUIXSpy_writerGuid(plain_info()), {0x0101888c, 0x46c9ef71, 0xfa7ed5ae, 0x80004202}));
}
