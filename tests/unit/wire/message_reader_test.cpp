// Messages as bytes, field by field, in both byte orders; and every rule by which a submessage is refused.

#include "wire_test.h"

namespace meridian::rtps {
namespace {

constexpr char kHeader[] = R"(
    52 54 50 53                          # "RTPS"
    02 05                                # version
    01 0f                                # vendor
    11 12 13 14 15 16 17 18 19 1a 1b 1c  # GUID prefix
)";
/// A submessage that is visited, to see whether the walk got that far.
constexpr char kTail[] = "07 00 00 1c  00000107 00000202  00000000 00000001  00000000 00000001  00000009";

/// Reads the header, these submessages and nothing else.
ReadStatus read(const std::string& submessages, Collector& seen) {
    return read_message(from_hex(kHeader + submessages), seen);
}
ReadStatus read(const std::string& submessages) {
    Collector seen;
    return read(submessages, seen);
}

TEST(MessageHeader, IsReadOrRefused) {
    Collector seen;
    ASSERT_EQ(read(kTail, seen), ReadStatus::ok);
    const MessageContext& context = seen.entries.at(0).context;
    EXPECT_EQ(context.version, (ProtocolVersion{2, 5}));
    EXPECT_EQ(context.vendor, (VendorId{{0x01, 0x0f}}));
    EXPECT_EQ(context.source, prefix_of(0x11));
    EXPECT_EQ(context.destination, kUnknownPrefix);
    EXPECT_FALSE(context.timestamp);

    EXPECT_EQ(read(""), ReadStatus::ok);
    ByteBuffer bytes = from_hex(kHeader);
    for (size_t size = 0; size < bytes.size(); ++size)
        EXPECT_EQ(read_message(ByteBuffer(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size)), seen),
                  ReadStatus::not_rtps);
    bytes[4] = 1;
    EXPECT_EQ(read_message(bytes, seen), ReadStatus::not_rtps);
    bytes[4] = 2;
    bytes[3] = 'X';
    EXPECT_EQ(read_message(bytes, seen), ReadStatus::not_rtps);
}

TEST(DataSubmessage, BigEndianWithInlineQosAndPayload) {
    Collector seen;
    ASSERT_EQ(read(R"(
        15 06 00 2c              # DATA, inline QoS and data, octets to next header
        00 00                    # extra flags
        00 10                    # octets to inline QoS
        00 00 01 07              # reader
        00 00 02 02              # writer
        00 00 00 01 00 00 00 02  # sequence number
        00 71 00 04 00 00 00 01  # status info
        00 01 00 00              # sentinel
        00 01 00 00              # encapsulation
        de ad be ef 01 02 03 04  # body
    )",
                   seen),
              ReadStatus::ok);
    const Data data = seen.at<Data>(0);
    EXPECT_EQ(data.reader.value, 0x107u);
    EXPECT_EQ(data.writer.value, 0x202u);
    EXPECT_EQ(data.sequence_number, 0x1'0000'0002);
    EXPECT_EQ(data.endianness, Endianness::big);
    EXPECT_EQ(bytes_of(data.inline_qos), from_hex("0071000400000001 00010000"));
    EXPECT_TRUE(data.has_payload);
    EXPECT_FALSE(data.payload_is_key);
    EXPECT_EQ(bytes_of(data.payload), from_hex("00010000 deadbeef01020304"));
}

TEST(DataSubmessage, LittleEndianKeyOnlyUpToTheEnd) {
    Collector seen;
    ASSERT_EQ(read(R"(
        15 19 00 00              # DATA, little-endian, key, non-standard payload, up to the end
        ff ff                    # extra flags of a later version
        14 00                    # octets to inline QoS: four more than known
        00 00 00 00              # reader: all
        00 00 02 03              # writer
        00 00 00 00 07 00 00 00  # sequence number
        aa bb cc dd              # not known
        00 03 00 00  01          # payload of odd length
    )",
                   seen),
              ReadStatus::ok);
    const Data data = seen.at<Data>(0);
    EXPECT_EQ(data.reader, entity::unknown);
    EXPECT_EQ(data.writer.value, 0x203u);
    EXPECT_EQ(data.sequence_number, 7);
    EXPECT_EQ(data.endianness, Endianness::little);
    EXPECT_TRUE(data.inline_qos.empty());
    EXPECT_TRUE(data.has_payload && data.payload_is_key);
    EXPECT_EQ(bytes_of(data.payload), from_hex("0003000001"));
}

TEST(DataSubmessage, Refused) {
    const std::string good = "00000107 00000202  00000000 00000001";
    EXPECT_EQ(read("15 00 0014 0000 0010" + good), ReadStatus::ok);
    EXPECT_EQ(read("15 00 0014 0000 000c" + good), ReadStatus::malformed)
        << "inline QoS within the fixed fields";
    EXPECT_EQ(read("15 00 0014 0000 0014" + good), ReadStatus::malformed) << "inline QoS beyond the end";
    EXPECT_EQ(read("15 0c 0014 0000 0010" + good), ReadStatus::malformed) << "data and key at once";
    EXPECT_EQ(read("15 02 0014 0000 0010" + good), ReadStatus::malformed) << "no inline QoS there";
    EXPECT_EQ(read("15 02 0018 0000 0010" + good + "00710004"), ReadStatus::malformed) << "cut inline QoS";
    EXPECT_EQ(read("15 00 0018 0000 0010" + good), ReadStatus::malformed) << "longer than the datagram";
    for (const char* number : {"00000000 00000000", "ffffffff 00000000", "80000000 00000001"})
        EXPECT_EQ(read("15 00 0014 0000 0010 00000107 00000202" + std::string(number)),
                  ReadStatus::malformed);
}

/// A big-endian DATA_FRAG with these numbers and that many payload bytes.
std::string data_frag(const std::string& first, const std::string& count, const std::string& size,
                      const std::string& sample, size_t payload) {
    std::string text =
        "16 00 00 00  0000 001c 00000107 00000202 00000000 00000001" + first + count + size + sample;
    for (size_t i = 0; i < payload; ++i)
        text += " 5a";
    return text;
}

TEST(DataFragSubmessage, BothByteOrders) {
    Collector seen;
    ASSERT_EQ(read(R"(
        16 07 30 00              # DATA_FRAG, little-endian, inline QoS, key
        00 00  1c 00             # extra flags, octets to inline QoS
        00 00 01 07  00 00 02 02 # reader, writer
        00 00 00 00 05 00 00 00  # sequence number
        02 00 00 00              # first fragment
        02 00                    # fragments
        04 00                    # fragment size
        0b 00 00 00              # sample size
        01 00 00 00              # sentinel
        04 05 06 07 08 09 0a     # fragments 2 and 3, seven bytes
        00 00 00 00 00           # padding
    )" + std::string(kTail),
                   seen),
              ReadStatus::ok);
    ASSERT_EQ(seen.entries.size(), 2u);
    const DataFrag little = seen.at<DataFrag>(0);
    EXPECT_EQ(little.sequence_number, 5);
    EXPECT_EQ(little.first_fragment, 2u);
    EXPECT_EQ(little.fragment_count, 2);
    EXPECT_EQ(little.fragment_size, 4);
    EXPECT_EQ(little.sample_size, 11u);
    EXPECT_TRUE(little.payload_is_key);
    EXPECT_EQ(bytes_of(little.inline_qos), from_hex("01000000"));
    EXPECT_EQ(bytes_of(little.payload), from_hex("0405060708090a"));

    Collector big;
    ASSERT_EQ(read(data_frag("00000001", "0003", "0004", "0000000b", 11), big), ReadStatus::ok);
    EXPECT_EQ(big.at<DataFrag>(0).fragment_count, 3);
    EXPECT_EQ(big.at<DataFrag>(0).payload.size, 11u);
    EXPECT_FALSE(big.at<DataFrag>(0).payload_is_key);
}

TEST(DataFragSubmessage, Refused) {
    const auto status = [](const char* first, const char* count, const char* size, const char* sample,
                           size_t payload) { return read(data_frag(first, count, size, sample, payload)); };
    EXPECT_EQ(status("00000003", "0001", "0004", "0000000b", 3), ReadStatus::ok);
    EXPECT_EQ(status("00000003", "0001", "0004", "0000000b", 2), ReadStatus::malformed) << "payload cut";
    EXPECT_EQ(status("00000004", "0001", "0004", "0000000b", 4), ReadStatus::malformed)
        << "fragment beyond the sample";
    EXPECT_EQ(status("00000003", "0002", "0004", "0000000b", 8), ReadStatus::malformed)
        << "last beyond the sample";
    EXPECT_EQ(status("00000003", "0001", "0004", "0000000c", 4), ReadStatus::ok) << "the last one is full";
    EXPECT_EQ(status("00000004", "0001", "0004", "0000000c", 4), ReadStatus::malformed)
        << "one after a full one";
    EXPECT_EQ(status("00000003", "0002", "0004", "0000000c", 8), ReadStatus::malformed)
        << "last after a full one";
    EXPECT_EQ(status("00000000", "0001", "0004", "0000000b", 4), ReadStatus::malformed) << "fragment 0";
    EXPECT_EQ(status("00000001", "0000", "0004", "0000000b", 4), ReadStatus::malformed) << "no fragments";
    EXPECT_EQ(status("00000001", "0001", "0000", "0000000b", 4), ReadStatus::malformed)
        << "fragments of no size";
    EXPECT_EQ(status("00000001", "0001", "0004", "00000000", 4), ReadStatus::malformed)
        << "sample of no size";
    EXPECT_EQ(status("ffffffff", "ffff", "ffff", "ffffffff", 64), ReadStatus::malformed);
    EXPECT_EQ(status("00000001", "0001", "0010", "0000000b", 11), ReadStatus::ok)
        << "one fragment holds it all";
}

TEST(HeartbeatSubmessage, BothByteOrdersAndGroupInformation) {
    Collector seen;
    ASSERT_EQ(read(R"(
        07 07 1c 00              # HEARTBEAT, little-endian, final, liveliness
        00 00 01 07  00 00 02 02 # reader, writer
        00 00 00 00 03 00 00 00  # first
        01 00 00 00 04 00 00 00  # last
        fe ff ff ff              # count
        07 08 00 3c              # HEARTBEAT, big-endian, group information
        00 00 01 07  00 00 02 02
        00 00 00 00 00 00 00 01  # first
        00 00 00 00 00 00 00 00  # last: nothing yet
        00 00 00 05              # count
        00 00 00 00 00 00 00 01  # current group number
        00 00 00 00 00 00 00 01  # first group number
        00 00 00 00 00 00 00 01  # last group number
        00 00 00 00  00 00 00 00 # writer sets
    )",
                   seen),
              ReadStatus::ok);
    const Heartbeat little = seen.at<Heartbeat>(0);
    EXPECT_EQ(little.first, 3);
    EXPECT_EQ(little.last, 0x1'0000'0004);
    EXPECT_EQ(little.count, -2);
    EXPECT_TRUE(little.final && little.liveliness);
    const Heartbeat big = seen.at<Heartbeat>(1);
    EXPECT_EQ(big.first, 1);
    EXPECT_EQ(big.last, 0);
    EXPECT_EQ(big.count, 5);
    EXPECT_FALSE(big.final || big.liveliness);
}

TEST(HeartbeatSubmessage, Refused) {
    const auto status = [](const std::string& first, const std::string& last) {
        return read("07 00 001c 00000107 00000202" + first + last + "00000001");
    };
    EXPECT_EQ(status("00000000 00000005", "00000000 00000004"), ReadStatus::ok);
    EXPECT_EQ(status("00000000 00000005", "00000000 00000003"), ReadStatus::malformed);
    EXPECT_EQ(status("00000000 00000000", "00000000 00000003"), ReadStatus::malformed);
    EXPECT_EQ(status("ffffffff ffffffff", "00000000 00000003"), ReadStatus::malformed);
    EXPECT_EQ(status("80000000 00000000", "80000000 00000000"), ReadStatus::malformed);
    EXPECT_EQ(read("07 00 0018 00000107 00000202 00000000 00000001 00000000 00000001"),
              ReadStatus::malformed);
}

TEST(AckNackSubmessage, BothByteOrders) {
    Collector seen;
    ASSERT_EQ(read(R"(
        06 03 20 00              # ACKNACK, little-endian, final
        00 00 01 07  00 00 02 02 # reader, writer
        00 00 00 00 0a 00 00 00  # base
        21 00 00 00              # 33 bits
        01 00 00 80              # 10 and 41
        ff ff ff ff              # 42, and 31 bits that mean nothing
        07 00 00 00              # count
        06 00 00 18              # ACKNACK, big-endian
        00 00 01 07  00 00 02 02
        00 00 00 00 00 00 00 00  # base 0
        00 00 00 00              # no bits
        00 00 00 01              # count
    )",
                   seen),
              ReadStatus::ok);
    const AckNack little = seen.at<AckNack>(0);
    EXPECT_EQ(little.missing.base, 10);
    EXPECT_EQ(little.missing.num_bits, 33u);
    EXPECT_TRUE(little.missing.contains(10) && little.missing.contains(41) && little.missing.contains(42));
    EXPECT_FALSE(little.missing.contains(11) || little.missing.contains(43) || little.missing.contains(9));
    EXPECT_EQ(little.missing.bitmap[1], 0x80000000u);
    EXPECT_TRUE(little.final);
    EXPECT_EQ(little.count, 7);
    const AckNack big = seen.at<AckNack>(1);
    EXPECT_EQ(big.missing.base, 0);
    EXPECT_TRUE(big.missing.empty());
    EXPECT_FALSE(big.final);
}

TEST(AckNackSubmessage, Refused) {
    const auto status = [](const std::string& base, const std::string& bits, int words) {
        std::string text = "06 00 0000 00000107 00000202" + base + bits;
        for (int i = 0; i < words; ++i)
            text += " ffffffff";
        return read(text + "00000001");
    };
    EXPECT_EQ(status("00000000 00000001", "00000100", 8), ReadStatus::ok);
    EXPECT_EQ(status("00000000 00000001", "00000101", 9), ReadStatus::malformed) << "257 bits";
    EXPECT_EQ(status("00000000 00000001", "ffffffff", 8), ReadStatus::malformed);
    EXPECT_EQ(status("00000000 00000001", "00000100", 7), ReadStatus::malformed) << "bitmap cut";
    EXPECT_EQ(status("ffffffff ffffffff", "00000001", 1), ReadStatus::malformed) << "negative base";
    EXPECT_EQ(status("7fffffff ffffffff", "00000001", 1), ReadStatus::malformed)
        << "beyond the highest number";
}

TEST(FragmentControlSubmessages, BothByteOrders) {
    Collector seen;
    ASSERT_EQ(read(R"(
        12 01 20 00              # NACK_FRAG, little-endian
        00 00 01 07  00 00 02 02 # reader, writer
        00 00 00 00 05 00 00 00  # sequence number
        03 00 00 00              # base
        02 00 00 00              # 2 bits
        00 00 00 40              # fragment 4
        09 00 00 00              # count
        13 00 00 18              # HEARTBEAT_FRAG, big-endian
        00 00 01 07  00 00 02 02
        00 00 00 00 00 00 00 06  # sequence number
        00 00 00 08              # last fragment
        00 00 00 0a              # count
    )",
                   seen),
              ReadStatus::ok);
    const NackFrag nack = seen.at<NackFrag>(0);
    EXPECT_EQ(nack.sequence_number, 5);
    EXPECT_EQ(nack.missing.base, 3u);
    EXPECT_FALSE(nack.missing.contains(3));
    EXPECT_TRUE(nack.missing.contains(4));
    EXPECT_EQ(nack.count, 9);
    const HeartbeatFrag heartbeat = seen.at<HeartbeatFrag>(1);
    EXPECT_EQ(heartbeat.sequence_number, 6);
    EXPECT_EQ(heartbeat.last_fragment, 8u);
    EXPECT_EQ(heartbeat.count, 10);
}

TEST(FragmentControlSubmessages, Refused) {
    const std::string entities = " 00000107 00000202 ";
    EXPECT_EQ(read("12 00 0000" + entities + "00000000 00000001 00000001 00000000 00000001"), ReadStatus::ok);
    EXPECT_EQ(read("12 00 0000" + entities + "00000000 00000000 00000001 00000000 00000001"),
              ReadStatus::malformed);
    EXPECT_EQ(read("12 00 0000" + entities + "00000000 00000001 00000000 00000000 00000001"),
              ReadStatus::malformed);
    EXPECT_EQ(read("12 00 0000" + entities + "00000000 00000001 ffffffff 00000001 80000000 00000001"),
              ReadStatus::malformed);
    EXPECT_EQ(read("13 00 0000" + entities + "00000000 00000001 00000001 00000001"), ReadStatus::ok);
    EXPECT_EQ(read("13 00 0000" + entities + "00000000 00000000 00000001 00000001"), ReadStatus::malformed);
    EXPECT_EQ(read("13 00 0000" + entities + "00000000 00000001 00000000 00000001"), ReadStatus::malformed);
}

TEST(GapSubmessage, ReadAndRefused) {
    Collector seen;
    ASSERT_EQ(read(R"(
        08 01 20 00              # GAP, little-endian
        00 00 01 07  00 00 02 02 # reader, writer
        00 00 00 00 03 00 00 00  # start
        00 00 00 00 06 00 00 00  # list base
        02 00 00 00              # 2 bits
        00 00 00 c0              # 6 and 7
    )",
                   seen),
              ReadStatus::ok);
    const Gap gap = seen.at<Gap>(0);
    EXPECT_EQ(gap.start, 3);
    EXPECT_EQ(gap.list.base, 6);
    EXPECT_TRUE(gap.list.contains(6) && gap.list.contains(7));
    const std::string entities = " 00000107 00000202 ";
    EXPECT_EQ(read("08 00 0000" + entities + "00000000 00000001 00000000 00000002 00000000"), ReadStatus::ok);
    EXPECT_EQ(read("08 00 0000" + entities + "00000000 00000000 00000000 00000002 00000000"),
              ReadStatus::malformed);
    EXPECT_EQ(read("08 00 0000" + entities + "00000000 00000001 00000000 00000000 00000000"),
              ReadStatus::malformed);
    EXPECT_EQ(read("08 00 0000" + entities + "00000000 00000001 00000000 00000002"), ReadStatus::malformed);
}

TEST(InfoSubmessages, TimestampHoldsUntilTheNextOne) {
    Collector seen;
    ASSERT_EQ(read(std::string("09 01 08 00  d2 04 00 00  00 00 00 80") + kTail +
                       "09 00 00 08  00 00 00 01 00 00 00 02" + kTail + "09 02 00 00" + kTail +
                       "09 00 00 08 ffffffff ffffffff" + kTail,
                   seen),
              ReadStatus::ok);
    ASSERT_EQ(seen.entries.size(), 4u);
    EXPECT_EQ(seen.entries[0].context.timestamp, (WireTime{1234, 0x80000000}));
    EXPECT_EQ(seen.entries[1].context.timestamp, (WireTime{1, 2}));
    EXPECT_FALSE(seen.entries[2].context.timestamp);
    EXPECT_FALSE(seen.entries[3].context.timestamp);
    EXPECT_EQ(read("09 00 00 04 00000001"), ReadStatus::malformed);
    EXPECT_EQ(read("09 00 00 00"), ReadStatus::malformed) << "no time and not marked as invalid";
}

TEST(InfoSubmessages, SourceReplacesWhatItCameWith) {
    Collector seen;
    ASSERT_EQ(read(std::string(R"(
        09 00 00 08 00000001 00000002             # time
        0e 00 00 0c 313233343536373839 3a3b3c     # destination
        0d 00 00 08 7f000001 00001ce8             # reply address
        0c 00 00 14                               # INFO_SRC
        00 00 00 00                               # unused
        02 01  01 10                              # version, vendor
        21 22 23 24 25 26 27 28 29 2a 2b 2c       # GUID prefix
    )") + kTail,
                   seen),
              ReadStatus::ok);
    const MessageContext& context = seen.entries.at(0).context;
    EXPECT_EQ(context.version, (ProtocolVersion{2, 1}));
    EXPECT_EQ(context.vendor, (VendorId{{0x01, 0x10}}));
    EXPECT_EQ(context.source, prefix_of(0x21));
    EXPECT_EQ(context.destination, prefix_of(0x31));
    EXPECT_FALSE(context.timestamp);
    EXPECT_EQ(read("0c 00 00 10 00000000 0201 0110 2122232425262728"), ReadStatus::malformed);
    EXPECT_EQ(read("0e 00 00 08 2122232425262728"), ReadStatus::malformed);
}

TEST(InfoSubmessages, ReplyLocatorsAreChecked) {
    Collector seen;
    ASSERT_EQ(read(std::string(R"(
        0f 02 00 38              # INFO_REPLY with multicast, big-endian
        00 00 00 01              # one unicast locator
        00 00 00 01  00 00 1c e8 # UDPv4, port 7400
        00 00 00 00 00 00 00 00 00 00 00 00 0a 00 00 01
        00 00 00 01              # one multicast locator
        00 00 00 01  00 00 1c e9
        00 00 00 00 00 00 00 00 00 00 00 00 ef ff 00 01
    )") + kTail + R"(
        0d 03 10 00              # INFO_REPLY_IP4 with multicast, little-endian
        01 00 00 7f  e8 1c 00 00 # 127.0.0.1, port 7400
        00 00 00 00  00 00 00 00 # invalid
    )" + kTail,
                   seen),
              ReadStatus::ok);
    EXPECT_EQ(seen.entries.size(), 2u);
    EXPECT_EQ(read("0d 02 00 08 7f000001 00001ce8"), ReadStatus::malformed) << "no multicast locator";
    EXPECT_EQ(read("0f 00 00 04 ffffffff"), ReadStatus::malformed);
    EXPECT_EQ(read("0f 00 00 04 00000001"), ReadStatus::malformed);
    EXPECT_EQ(read("0f 02 00 04 00000000"), ReadStatus::malformed) << "no multicast list";
}

TEST(HeaderExtension, TimeLengthAndWhatIsPassedOver) {
    Collector seen;
    // 20 header, 52 extension, 32 the first heartbeat: the second one is beyond the message.
    ASSERT_EQ(read(std::string(R"(
        00 fe 00 30              # header extension, big-endian, everything there is
        00 00 00 68              # message length
        00 00 00 05 40 00 00 00  # time of sending
        01 02 03 04              # extension of 4
        01 02 03 04 05 06 07 08  # extension of 8
        00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00  # MD5
        81 23 00 00              # a vendor's parameter
        00 01 00 00              # sentinel
    )") + kTail + kTail,
                   seen),
              ReadStatus::ok);
    ASSERT_EQ(seen.entries.size(), 1u);
    for (const char* checksum : {"00 20 00 04 00000000", "00 40 00 08 0000000000000000"}) {
        Collector more;
        EXPECT_EQ(read(checksum + std::string(kTail), more), ReadStatus::ok);
        EXPECT_EQ(more.entries.size(), 1u);
    }
    EXPECT_EQ(read("00 20 00 04 00000000"), ReadStatus::ok);
    EXPECT_EQ(read("00 40 00 04 00000000"), ReadStatus::malformed) << "checksum cut";
    EXPECT_EQ(read("00 02 00 04 0000ffff"), ReadStatus::malformed) << "longer than the datagram";
    EXPECT_EQ(read("00 02 00 04 00000010"), ReadStatus::malformed) << "shorter than itself";
    EXPECT_EQ(read("00 80 00 08 41230000 00010000"), ReadStatus::malformed) << "must be understood";
    EXPECT_EQ(read("00 80 00 04 81230000"), ReadStatus::malformed) << "no sentinel";
}

TEST(OtherSubmessages, AreSkippedByLength) {
    Collector seen;
    ASSERT_EQ(read(std::string("01 00 00 00") +                 // PAD without length: the message goes on
                       kTail + "01 01 04 00 ffffffff" +         // PAD with a length, little-endian
                       kTail + "80 00 00 08 0123456789abcdef" + // one vendor's own
                       kTail + "2a 00 00 03 ffffff" +           // of a later version, odd length
                       kTail + "30 00 00 04 01020304" +         // secured
                       kTail + "55 00 00 00 0102030405",        // up to the end
                   seen),
              ReadStatus::ok);
    ASSERT_EQ(seen.entries.size(), 6u);
    EXPECT_EQ(seen.at<uint8_t>(4), 0x30);
    EXPECT_EQ(seen.at<Heartbeat>(5).count, 9);
}

TEST(OtherSubmessages, WhatWasVisitedBeforeAMalformedOneStands) {
    Collector seen;
    EXPECT_EQ(read(std::string(kTail) + "07 00 00 1c 00" + kTail, seen), ReadStatus::malformed);
    EXPECT_EQ(seen.entries.size(), 1u);
    for (const char* cut : {"07", "07 00", "07 00 00", "80 00 00 04 000000"})
        EXPECT_EQ(read(cut), ReadStatus::malformed) << cut;
}

} // namespace
} // namespace meridian::rtps
