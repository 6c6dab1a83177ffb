// What the writer appends, the reader visits with the same values; and what does not fit is left out whole.

#include <random>

#include "wire_test.h"

namespace meridian::rtps {
namespace {

constexpr EntityId kReader{0x00000107};
constexpr EntityId kWriter{0x00000202};

class MessageRoundTrip : public testing::Test {
  protected:
    void read_back() { ASSERT_EQ(read_message(writer_.view(), seen_), ReadStatus::ok); }

    MessageWriter writer_{prefix_of(1), 1500};
    Collector seen_;
};

TEST_F(MessageRoundTrip, HeaderNamesVersionVendorAndSource) {
    EXPECT_TRUE(writer_.empty());
    EXPECT_EQ(bytes_of(writer_.view()), from_hex(R"(
        52 54 50 53                          # "RTPS"
        02 03                                # version
        01 7e                                # vendor
        01 02 03 04 05 06 07 08 09 0a 0b 0c  # GUID prefix
    )"));
}

TEST_F(MessageRoundTrip, DataKeepsEverythingAndTheContextOfInfoSubmessages) {
    const ByteBuffer payload = from_hex("00010000 0102030405060708");
    InlineQos qos;
    qos.status_info = 3;
    const ByteBuffer inline_qos = encode(qos);
    Data data;
    data.reader = kReader;
    data.writer = kWriter;
    data.sequence_number = 0x1'0000'0002;
    data.inline_qos = inline_qos;
    data.has_payload = true;
    data.payload = payload;
    ASSERT_TRUE(writer_.add_info_destination(prefix_of(0x21)));
    ASSERT_TRUE(writer_.add_info_timestamp({1234, 0x80000000}));
    ASSERT_TRUE(writer_.add_data(data));
    ASSERT_TRUE(writer_.add_info_timestamp_invalid());
    data.payload_is_key = true;
    ASSERT_TRUE(writer_.add_data(data));
    EXPECT_FALSE(writer_.empty());
    read_back();

    ASSERT_EQ(seen_.entries.size(), 2u);
    const MessageContext& context = seen_.entries[0].context;
    EXPECT_EQ(context.source, prefix_of(1));
    EXPECT_EQ(context.destination, prefix_of(0x21));
    EXPECT_EQ(context.vendor, kOwnVendorId);
    EXPECT_EQ(context.version, ProtocolVersion());
    EXPECT_EQ(context.timestamp, (WireTime{1234, 0x80000000}));
    const Data first = seen_.at<Data>(0);
    EXPECT_EQ(first.reader, kReader);
    EXPECT_EQ(first.writer, kWriter);
    EXPECT_EQ(first.sequence_number, 0x1'0000'0002);
    EXPECT_EQ(bytes_of(first.inline_qos), inline_qos);
    EXPECT_TRUE(first.has_payload);
    EXPECT_FALSE(first.payload_is_key);
    EXPECT_EQ(bytes_of(first.payload), payload);
    EXPECT_FALSE(seen_.entries[1].context.timestamp);
    EXPECT_TRUE(seen_.at<Data>(1).payload_is_key);
    EXPECT_TRUE(seen_.at<Data>(1).has_payload);
}

TEST_F(MessageRoundTrip, DataWithoutPayloadAndWithAnOddPayloadIsPadded) {
    Data data;
    data.reader = kReader;
    data.writer = kWriter;
    data.sequence_number = 1;
    ASSERT_TRUE(writer_.add_data(data));
    const ByteBuffer payload = from_hex("00010000 aabbcc");
    data.has_payload = true;
    data.payload = payload;
    ASSERT_TRUE(writer_.add_data(data));
    EXPECT_EQ(writer_.size() % 4, 0u);
    read_back();
    EXPECT_FALSE(seen_.at<Data>(0).has_payload);
    EXPECT_EQ(bytes_of(seen_.at<Data>(1).payload), from_hex("00010000 aabbcc 00"));
}

TEST_F(MessageRoundTrip, FragmentsComeBackWithoutTheirPadding) {
    const ByteBuffer payload = from_hex("0001 0203 04");
    DataFrag fragment;
    fragment.reader = kReader;
    fragment.writer = kWriter;
    fragment.sequence_number = 7;
    fragment.first_fragment = 3;
    fragment.fragment_count = 2;
    fragment.fragment_size = 4;
    fragment.sample_size = 13;
    fragment.payload = payload;
    ASSERT_TRUE(writer_.add_data_frag(fragment));
    EXPECT_EQ(writer_.size() % 4, 0u);
    read_back();
    const DataFrag seen = seen_.at<DataFrag>(0);
    EXPECT_EQ(seen.reader, kReader);
    EXPECT_EQ(seen.writer, kWriter);
    EXPECT_EQ(seen.sequence_number, 7);
    EXPECT_EQ(seen.first_fragment, 3u);
    EXPECT_EQ(seen.fragment_count, 2);
    EXPECT_EQ(seen.fragment_size, 4);
    EXPECT_EQ(seen.sample_size, 13u);
    EXPECT_EQ(bytes_of(seen.payload), payload);
}

TEST_F(MessageRoundTrip, OtherByteOrder) {
    const Endianness other = native_endianness() == Endianness::little ? Endianness::big : Endianness::little;
    Data data;
    data.sequence_number = 0x0102030405060708;
    data.endianness = other;
    DataFrag fragment;
    const ByteBuffer payload = from_hex("aabbccdd");
    fragment.sequence_number = 9;
    fragment.endianness = other;
    fragment.fragment_size = 4;
    fragment.sample_size = 4;
    fragment.payload = payload;
    ASSERT_TRUE(writer_.add_data(data));
    ASSERT_TRUE(writer_.add_data_frag(fragment));
    read_back();
    EXPECT_EQ(seen_.at<Data>(0).sequence_number, 0x0102030405060708);
    EXPECT_EQ(seen_.at<Data>(0).endianness, other);
    EXPECT_EQ(seen_.at<DataFrag>(1).sequence_number, 9);
    EXPECT_EQ(seen_.at<DataFrag>(1).endianness, other);
    EXPECT_EQ(bytes_of(seen_.at<DataFrag>(1).payload), payload);
}

TEST_F(MessageRoundTrip, ControlSubmessages) {
    Heartbeat heartbeat{kReader, kWriter, 5, 4, 17, true, true};
    AckNack acknack{kReader, kWriter, {}, -2, true};
    acknack.missing.base = 0x7'0000'0000;
    ASSERT_TRUE(acknack.missing.insert(0x7'0000'0000));
    ASSERT_TRUE(acknack.missing.insert(0x7'0000'00ff));
    NackFrag nack{kReader, kWriter, 8, {}, 19};
    nack.missing.base = 4;
    ASSERT_TRUE(nack.missing.insert(9));
    Gap gap{kReader, kWriter, 3, {}};
    gap.list.base = 10;
    ASSERT_TRUE(gap.list.insert(12));
    ASSERT_TRUE(writer_.add_heartbeat(heartbeat) && writer_.add_acknack(acknack) &&
                writer_.add_nack_frag(nack) && writer_.add_gap(gap));
    read_back();
    ASSERT_EQ(seen_.entries.size(), 4u);
    const Heartbeat seen = seen_.at<Heartbeat>(0);
    EXPECT_EQ(seen.reader, kReader);
    EXPECT_EQ(seen.writer, kWriter);
    EXPECT_EQ(seen.first, 5);
    EXPECT_EQ(seen.last, 4);
    EXPECT_EQ(seen.count, 17);
    EXPECT_TRUE(seen.final && seen.liveliness);
    EXPECT_EQ(seen_.at<AckNack>(1).missing, acknack.missing);
    EXPECT_EQ(seen_.at<AckNack>(1).count, -2);
    EXPECT_TRUE(seen_.at<AckNack>(1).final);
    EXPECT_EQ(seen_.at<NackFrag>(2).sequence_number, 8);
    EXPECT_EQ(seen_.at<NackFrag>(2).missing, nack.missing);
    EXPECT_EQ(seen_.at<NackFrag>(2).count, 19);
    EXPECT_EQ(seen_.at<Gap>(3).start, 3);
    EXPECT_EQ(seen_.at<Gap>(3).list, gap.list);
}

TEST_F(MessageRoundTrip, FlagsThatAreClearStayClear) {
    AckNack acknack;
    acknack.missing.base = 1;
    ASSERT_TRUE(writer_.add_heartbeat({kReader, kWriter, 1, 1, 1, false, false}) &&
                writer_.add_acknack(acknack));
    read_back();
    EXPECT_FALSE(seen_.at<Heartbeat>(0).final);
    EXPECT_FALSE(seen_.at<Heartbeat>(0).liveliness);
    EXPECT_FALSE(seen_.at<AckNack>(1).final);
    EXPECT_TRUE(seen_.at<AckNack>(1).missing.empty());
}

TEST(MessageWriter, LeavesOutWhatDoesNotFit) {
    // A heartbeat takes 32 bytes with its submessage header.
    MessageWriter writer(prefix_of(1), kHeaderSize + 2 * 32);
    EXPECT_TRUE(writer.add_heartbeat({}));
    EXPECT_TRUE(writer.add_heartbeat({}));
    const ByteBuffer before = bytes_of(writer.view());
    EXPECT_FALSE(writer.add_heartbeat({}));
    EXPECT_FALSE(writer.add_info_timestamp_invalid());
    EXPECT_EQ(bytes_of(writer.view()), before);
    writer.clear();
    EXPECT_TRUE(writer.empty());
    EXPECT_EQ(bytes_of(writer.view()), ByteBuffer(before.begin(), before.begin() + kHeaderSize));
    EXPECT_TRUE(writer.add_heartbeat({}));
}

TEST(MessageWriter, RefusesPayloadsBeyondTheSubmessageLength) {
    MessageWriter writer(prefix_of(1), 1 << 20);
    const ByteBuffer payload(70000);
    Data data;
    data.sequence_number = 1;
    data.has_payload = true;
    data.payload = payload;
    EXPECT_FALSE(writer.add_data(data));
    EXPECT_TRUE(writer.empty());
}

TEST(MessageWriter, RandomNumberSetsComeBack) {
    std::mt19937_64 random(20240607);
    for (int round = 0; round < 2000; ++round) {
        AckNack acknack;
        NackFrag nack;
        nack.sequence_number = 1;
        acknack.missing.base = static_cast<SequenceNumber>(random() >> 2);
        nack.missing.base = static_cast<FragmentNumber>(random() >> 33) + 1;
        const uint64_t members = random() % 20;
        for (uint64_t i = 0; i < members; ++i) {
            const uint64_t offset = random() % 256;
            ASSERT_TRUE(acknack.missing.insert(acknack.missing.base + static_cast<SequenceNumber>(offset)));
            ASSERT_TRUE(nack.missing.insert(nack.missing.base + static_cast<FragmentNumber>(offset)));
        }
        MessageWriter writer(prefix_of(1), 1500);
        ASSERT_TRUE(writer.add_acknack(acknack) && writer.add_nack_frag(nack));
        Collector seen;
        ASSERT_EQ(read_message(writer.view(), seen), ReadStatus::ok);
        ASSERT_EQ(seen.at<AckNack>(0).missing, acknack.missing);
        ASSERT_EQ(seen.at<NackFrag>(1).missing, nack.missing);
    }
}

} // namespace
} // namespace meridian::rtps
