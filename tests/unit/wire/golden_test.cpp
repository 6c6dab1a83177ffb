// Datagrams recorded from other implementations (data/*.hex say how): decoded and compared field by field
// with what an independent dissector showed; and then every prefix and every single flipped bit of each is
// decoded or refused.

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "rtps/wire/guid_key.h"
#include "wire_test.h"

namespace meridian::rtps {
namespace {

ByteBuffer load(const std::filesystem::path& path) {
    std::ifstream file(path);
    EXPECT_TRUE(file) << path;
    std::ostringstream text;
    text << file.rdbuf();
    return from_hex(text.str());
}

GuidPrefix prefix_from(const std::string& hex) {
    const ByteBuffer bytes = from_hex(hex);
    GuidPrefix prefix;
    for (size_t i = 0; i < prefix.bytes.size(); ++i)
        prefix.bytes[i] = bytes.at(i);
    return prefix;
}

const std::string kCyclonePublisher = "01108eff bffe803c 5c6a6301";
const std::string kCycloneSubscriber = "011085af 6e3ee185 7b06ea11";
const std::string kCycloneFragmenting = "01104e43 b6085318 85c425af";
const std::string kFastPublisher = "010f7f01 344afac7 00000000";
const std::string kFast31Publisher = "010f7f01 a118bb42 00000000";
const std::string kFastSubscriber = "010f7f01 2d4a82e3 00000000";

/// One golden datagram, read.
class Golden : public Collector {
  public:
    explicit Golden(const std::string& name) : name_(name) {
        EXPECT_EQ(read_message(load(std::filesystem::path(TEST_DATA_DIR) / (name + ".hex")), *this),
                  ReadStatus::ok)
            << name;
    }
    ParticipantData participant(size_t index) const {
        std::string error;
        auto data = decode_participant(at<Data>(index).payload, error);
        EXPECT_TRUE(data) << name_ << ": " << error;
        return data.value_or(ParticipantData());
    }
    EndpointData endpoint(size_t index) const {
        const Data data = at<Data>(index);
        std::string error;
        auto decoded = decode_endpoint(data.payload, data.writer == entity::publications_writer, error);
        EXPECT_TRUE(decoded) << name_ << ": " << error;
        return decoded.value_or(EndpointData());
    }
    std::optional<Guid> key(size_t index) const {
        const std::optional<Guid> from_payload = decode_key(at<Data>(index).payload);
        const std::optional<KeyHash> key_hash = inline_qos(index).key_hash;
        return !from_payload && key_hash ? guid_of(*key_hash) : from_payload;
    }
    InlineQos inline_qos(size_t index) const {
        const Data data = at<Data>(index);
        InlineQos qos;
        EXPECT_TRUE(decode_inline_qos(data.inline_qos, data.endianness, qos));
        return qos;
    }
    void expect_context(const std::string& source, const std::string& destination) const {
        ASSERT_FALSE(entries.empty());
        EXPECT_EQ(entries[0].context.source, prefix_from(source));
        EXPECT_EQ(entries[0].context.destination,
                  destination.empty() ? kUnknownPrefix : prefix_from(destination));
    }

  private:
    std::string name_;
};

std::vector<uint16_t> ids_of(const std::vector<RawParameter>& raw) {
    std::vector<uint16_t> ids;
    for (const RawParameter& parameter : raw)
        ids.push_back(parameter.id);
    return ids;
}

// 2026-11-21, 08:33:00 UTC.
constexpr int32_t kMinuteOfRecording = 1795249980;

TEST(Cyclone, Participant) {
    const Golden golden("cyclone_participant");
    golden.expect_context(kCyclonePublisher, "");
    ASSERT_EQ(golden.entries.size(), 1u);
    const MessageContext& context = golden.entries[0].context;
    EXPECT_EQ(context.version, (ProtocolVersion{2, 1}));
    EXPECT_EQ(context.vendor, (VendorId{{0x01, 0x10}}));
    ASSERT_TRUE(context.timestamp);
    EXPECT_EQ(context.timestamp->seconds, kMinuteOfRecording + 44);
    EXPECT_EQ(nanoseconds_from_fraction(context.timestamp->fraction) / 1000, 533134u);
    const Data data = golden.at<Data>(0);
    EXPECT_EQ(data.reader, entity::unknown);
    EXPECT_EQ(data.writer, entity::participant_writer);
    EXPECT_EQ(data.sequence_number, 1);
    EXPECT_EQ(data.endianness, Endianness::little);

    const ParticipantData participant = golden.participant(0);
    EXPECT_EQ(participant.version, (ProtocolVersion{2, 1}));
    EXPECT_EQ(participant.vendor, (VendorId{{0x01, 0x10}}));
    EXPECT_EQ(participant.guid, (Guid{prefix_from(kCyclonePublisher), entity::participant}));
    EXPECT_EQ(participant.builtin_endpoints, 0xfc3fu);
    EXPECT_EQ(participant.domain_id, 0u);
    EXPECT_EQ(participant.domain_tag, "");
    EXPECT_EQ(participant.lease, (WireDuration{10, 0}));
    EXPECT_EQ(participant.metatraffic_unicast, LocatorList{udp4(127, 0, 0, 1, 35381)});
    EXPECT_EQ(participant.default_unicast, LocatorList{udp4(127, 0, 0, 1, 35381)});
    EXPECT_EQ(participant.metatraffic_multicast, LocatorList{udp4(239, 255, 0, 1, 7400)});
    EXPECT_EQ(participant.default_multicast, LocatorList{udp4(239, 255, 0, 1, 7401)});
    EXPECT_EQ(text_of(participant.user_data), "DDSPerf:1:19058:vm");
    EXPECT_EQ(
        participant.properties,
        (std::vector<Property>{{"__ProcessName", "ddsperf"}, {"__Pid", "19058"}, {"__Hostname", "vm"}}));
    EXPECT_EQ(ids_of(participant.raw), (std::vector<uint16_t>{0x8007, 0x8019}));
    EXPECT_EQ(participant.raw.at(1).value, from_hex("00002000"));
    EXPECT_FALSE(participant.secured);
}

TEST(Cyclone, HeartbeatsAndPublications) {
    const Golden golden("cyclone_heartbeats_and_publications");
    golden.expect_context(kCyclonePublisher, kCycloneSubscriber);
    ASSERT_EQ(golden.entries.size(), 9u);
    const struct {
        EntityId writer;
        SequenceNumber last;
    } heartbeats[] = {{entity::subscriptions_writer, 3},
                      {entity::participant_message_writer, 1},
                      {entity::type_lookup_request_writer, 0},
                      {entity::type_lookup_reply_writer, 0}};
    for (size_t i = 0; i < 4; ++i) {
        const Heartbeat heartbeat = golden.at<Heartbeat>(i);
        EXPECT_EQ(heartbeat.reader, entity::unknown);
        EXPECT_EQ(heartbeat.writer, heartbeats[i].writer);
        EXPECT_EQ(heartbeat.first, 1);
        EXPECT_EQ(heartbeat.last, heartbeats[i].last);
        EXPECT_EQ(heartbeat.count, 1);
        EXPECT_FALSE(heartbeat.final || heartbeat.liveliness);
    }
    const struct {
        const char* topic;
        const char* type;
        uint32_t entity;
        HistoryKind history;
        std::vector<std::string> partitions;
    } writers[] = {{"DDSPerfCPUStats", "CPUStats", 0x802, HistoryKind::keep_last, {}},
                   {"DDSPerfRPingKS", "KeyedSeq", 0xa02, HistoryKind::keep_last, {}},
                   {"DDSPerfRDataKS", "KeyedSeq", 0xc02, HistoryKind::keep_all, {}},
                   {"DDSPerfRPongKS",
                    "KeyedSeq",
                    0xe02,
                    HistoryKind::keep_last,
                    {"011085af_6e3ee185_7b06ea11_000001c1"}}};
    for (size_t i = 0; i < 4; ++i) {
        const EndpointData writer = golden.endpoint(4 + i);
        EXPECT_TRUE(writer.is_writer());
        EXPECT_EQ(writer.guid, (Guid{prefix_from(kCyclonePublisher), EntityId{writers[i].entity}}));
        EXPECT_EQ(writer.topic_name, writers[i].topic);
        EXPECT_EQ(writer.type_name, writers[i].type);
        EXPECT_EQ(writer.qos.reliability, Reliability::reliable);
        EXPECT_EQ(writer.qos.durability, Durability::volatile_);
        EXPECT_EQ(writer.qos.history, writers[i].history);
        EXPECT_EQ(writer.qos.partitions, writers[i].partitions);
        EXPECT_EQ(writer.qos.representations, (std::vector<int16_t>{kXcdr1, kXcdr2}));
        EXPECT_EQ(writer.type_information.size(), i == 0 ? 148u : 100u);
        EXPECT_TRUE(writer.unicast.empty());
    }
    // The length of the delimited body that the type information is.
    EXPECT_EQ(golden.endpoint(4).type_information.at(0), 0x90);
    EXPECT_TRUE(std::holds_alternative<Heartbeat>(golden.entries[8].item));
}

TEST(Cyclone, AckNacks) {
    const Golden golden("cyclone_acknacks");
    golden.expect_context(kCycloneSubscriber, kCyclonePublisher);
    ASSERT_EQ(golden.entries.size(), 5u);
    const AckNack first = golden.at<AckNack>(0);
    EXPECT_EQ(first.reader, entity::subscriptions_reader);
    EXPECT_EQ(first.writer, entity::subscriptions_writer);
    EXPECT_EQ(first.missing.base, 1);
    EXPECT_EQ(first.missing.num_bits, 3u);
    EXPECT_TRUE(first.missing.contains(1) && first.missing.contains(2) && first.missing.contains(3));
    EXPECT_EQ(first.count, 1);
    EXPECT_TRUE(first.final);
}

TEST(Cyclone, SubscriptionsAndLiveliness) {
    const Golden golden("cyclone_subscriptions_and_liveliness");
    golden.expect_context(kCyclonePublisher, kCycloneSubscriber);
    ASSERT_EQ(golden.entries.size(), 6u);
    const EndpointData ping = golden.endpoint(0);
    EXPECT_FALSE(ping.is_writer());
    EXPECT_EQ(ping.guid.entity.value, 0x907u);
    EXPECT_EQ(ping.topic_name, "DDSPerfRPingKS");
    EXPECT_EQ(ping.qos.reliability, Reliability::reliable);
    EXPECT_EQ(ping.qos.history, HistoryKind::keep_last);
    const EndpointData data = golden.endpoint(1);
    EXPECT_EQ(data.guid.entity.value, 0xb07u);
    EXPECT_EQ(data.topic_name, "DDSPerfRDataKS");
    EXPECT_EQ(data.qos.history, HistoryKind::keep_all);
    EXPECT_EQ(data.qos.representations, (std::vector<int16_t>{kXcdr1, kXcdr2}));

    const auto message = decode_participant_message(golden.at<Data>(3).payload);
    ASSERT_TRUE(message);
    EXPECT_EQ(golden.at<Data>(3).writer, entity::participant_message_writer);
    EXPECT_EQ(message->participant, prefix_from(kCyclonePublisher));
    EXPECT_EQ(message->kind, ParticipantMessage::automatic);
}

TEST(Cyclone, DataAndHeartbeat) {
    const Golden golden("cyclone_data_and_heartbeat");
    golden.expect_context(kCycloneSubscriber, "");
    ASSERT_EQ(golden.entries.size(), 2u);
    const Data data = golden.at<Data>(0);
    EXPECT_EQ(data.writer.value, 0xb02u);
    EXPECT_EQ(data.sequence_number, 2);
    EXPECT_TRUE(data.inline_qos.empty());
    EXPECT_TRUE(data.has_payload);
    EXPECT_FALSE(data.payload_is_key);
    ASSERT_EQ(data.payload.size, 104u);
    const ByteBuffer payload = bytes_of(data.payload);
    EXPECT_EQ(ByteBuffer(payload.begin(), payload.begin() + 20),
              from_hex("00010000 01000000 00000000 58000000 eeeeeeee"));
    EXPECT_EQ(golden.at<Heartbeat>(1).first, 2);
    EXPECT_EQ(golden.at<Heartbeat>(1).last, 2);
    EXPECT_EQ(golden.at<Heartbeat>(1).count, 2);
}

TEST(Cyclone, DisposedEndpoints) {
    const Golden golden("cyclone_disposed_endpoints");
    ASSERT_EQ(golden.entries.size(), 9u);
    const uint32_t entities[] = {0xb07, 0xd07, 0xf02};
    for (size_t i = 0; i < 9; ++i) {
        const Data data = golden.at<Data>(i);
        EXPECT_TRUE(data.payload_is_key);
        EXPECT_EQ(golden.inline_qos(i).status_info, 3u);
        const auto key = golden.key(i);
        ASSERT_TRUE(key);
        EXPECT_EQ(key->prefix, golden.entries[0].context.source);
        if (i < 3) {
            EXPECT_EQ(key->entity.value, entities[i]);
        }
        EXPECT_EQ(key->entity.is_writer(), data.writer == entity::publications_writer) << i;
    }
    EXPECT_EQ(golden.key(8)->entity, entity::participant);
}

TEST(Cyclone, Fragments) {
    const Golden first("cyclone_data_frag_and_heartbeat_frag");
    first.expect_context(kCycloneFragmenting, "");
    ASSERT_EQ(first.entries.size(), 2u);
    const DataFrag fragment = first.at<DataFrag>(0);
    EXPECT_EQ(fragment.writer.value, 0xb02u);
    EXPECT_EQ(fragment.sequence_number, 2);
    EXPECT_EQ(fragment.first_fragment, 1u);
    EXPECT_EQ(fragment.fragment_count, 1);
    EXPECT_EQ(fragment.fragment_size, 1000);
    EXPECT_EQ(fragment.sample_size, 2504u);
    EXPECT_EQ(fragment.payload.size, 1000u);
    EXPECT_EQ(first.at<HeartbeatFrag>(1).sequence_number, 2);
    EXPECT_EQ(first.at<HeartbeatFrag>(1).last_fragment, 1u);
    const Golden last("cyclone_last_data_frag");
    ASSERT_EQ(last.entries.size(), 2u);
    EXPECT_EQ(last.at<DataFrag>(0).first_fragment, 3u);
    EXPECT_EQ(last.at<DataFrag>(0).payload.size, 504u);
    EXPECT_EQ(last.at<Heartbeat>(1).last, 2);
}

TEST(Fast, Participant) {
    const Golden golden("fast_participant");
    golden.expect_context(kFastSubscriber, "");
    ASSERT_EQ(golden.entries.size(), 1u) << "the vendor's own submessage is skipped";
    EXPECT_EQ(golden.entries[0].context.version, (ProtocolVersion{2, 3}));
    EXPECT_EQ(golden.entries[0].context.timestamp.value_or(WireTime()).seconds, kMinuteOfRecording + 36);
    EXPECT_EQ(golden.at<Data>(0).reader, entity::participant_reader);
    const ParticipantData participant = golden.participant(0);
    EXPECT_EQ(participant.version, (ProtocolVersion{2, 3}));
    EXPECT_EQ(participant.vendor, (VendorId{{0x01, 0x0f}}));
    EXPECT_EQ(participant.guid, (Guid{prefix_from(kFastSubscriber), entity::participant}));
    EXPECT_EQ(participant.builtin_endpoints, 0x0c3f0c3fu);
    EXPECT_FALSE(participant.domain_id);
    EXPECT_EQ(participant.lease, (WireDuration{20, 0}));
    EXPECT_EQ(participant.metatraffic_unicast, LocatorList{udp4(127, 0, 0, 1, 7410)});
    EXPECT_EQ(participant.default_unicast, LocatorList{udp4(127, 0, 0, 1, 7411)});
    EXPECT_TRUE(participant.metatraffic_multicast.empty() && participant.default_multicast.empty());
    EXPECT_EQ(participant.name, "fast subscriber");
    EXPECT_EQ(participant.user_data, (ByteBuffer{1, 2, 3, 4, 5}));
    ASSERT_EQ(participant.properties.size(), 5u);
    EXPECT_EQ(participant.properties[0], (Property{"golden.color", "blue"}));
    EXPECT_EQ(participant.properties[4], (Property{"fastdds.physical_data.process", "18989"}));
    EXPECT_TRUE(participant.raw.empty());
}

TEST(Fast31, Participant) {
    const Golden golden("fast31_participant");
    golden.expect_context(kFast31Publisher, "");
    ASSERT_EQ(golden.entries.size(), 1u);
    const ParticipantData participant = golden.participant(0);
    EXPECT_EQ(participant.version, (ProtocolVersion{2, 3}));
    EXPECT_EQ(participant.vendor, (VendorId{{0x01, 0x0f}}));
    EXPECT_EQ(participant.guid, (Guid{prefix_from(kFast31Publisher), entity::participant}));
    EXPECT_EQ(participant.builtin_endpoints, 0x000ffc3fu);
    EXPECT_EQ(participant.domain_id, 0u) << "which 2.x does not announce";
    EXPECT_EQ(participant.lease, (WireDuration{20, 0}));
    EXPECT_EQ(participant.metatraffic_unicast, LocatorList{udp4(127, 0, 0, 1, 7412)});
    EXPECT_EQ(participant.default_unicast, LocatorList{udp4(127, 0, 0, 1, 7413)});
    EXPECT_EQ(participant.name, "fast31");
    ASSERT_EQ(participant.properties.size(), 4u);
    EXPECT_EQ(participant.properties[0], (Property{"PARTICIPANT_TYPE", "SIMPLE"}));
    EXPECT_EQ(participant.properties[2], (Property{"fastdds.physical_data.user", "root"}));
}

// What the protocol tells their releases by.
TEST(FastDds, ParametersOfItsReleases) {
    const auto ids = [](const char* name) {
        std::vector<uint16_t> found;
        for (const RawParameter& parameter : Golden(name).participant(0).raw)
            found.push_back(parameter.id);
        return found;
    };
    using testing::Contains;
    using testing::Not;
    EXPECT_THAT(ids("fast_participant"), Not(Contains(0x8007))) << "2.9";
    EXPECT_THAT(ids("fast214_participant"), Contains(0x8007));
    EXPECT_THAT(ids("fast31_participant"), Contains(0x8000));
}

TEST(Fast31, Publication) {
    const Golden golden("fast31_publication");
    const EndpointData writer = golden.endpoint(0);
    EXPECT_EQ(writer.guid, (Guid{prefix_from(kFast31Publisher), EntityId{0x102}}));
    EXPECT_EQ(writer.topic_name, "Rich");
    EXPECT_EQ(writer.type_name, "np::RichFinal");
    EXPECT_EQ(writer.unicast, LocatorList{udp4(127, 0, 0, 1, 7413)});
    EXPECT_EQ(writer.qos.durability, Durability::volatile_);
    EXPECT_EQ(writer.qos.reliability, Reliability::reliable);
    EXPECT_EQ(writer.qos.ownership, Ownership::shared);
    EXPECT_EQ(writer.qos.representations, (std::vector<int16_t>{0}));
    EXPECT_FALSE(writer.type_information.empty());
}

TEST(Fast31, Disposals) {
    const Golden endpoint("fast31_disposed_publication");
    EXPECT_EQ(endpoint.key(0), (Guid{prefix_from(kFast31Publisher), EntityId{0x102}}));
    EXPECT_EQ(endpoint.inline_qos(0).status_info, 3u);
    const Golden participant("fast31_disposed_participant");
    EXPECT_EQ(participant.key(0), (Guid{prefix_from(kFast31Publisher), entity::participant}));
    EXPECT_EQ(participant.inline_qos(0).status_info, 3u);
}

TEST(Fast, Publication) {
    const Golden golden("fast_publication");
    golden.expect_context(kFastPublisher, kFastSubscriber);
    const EndpointData writer = golden.endpoint(0);
    EXPECT_EQ(writer.guid, (Guid{prefix_from(kFastPublisher), EntityId{0x102}}));
    EXPECT_EQ(writer.topic_name, "GoldenTopic");
    EXPECT_EQ(writer.type_name, "Golden::Sample");
    EXPECT_EQ(writer.unicast, LocatorList{udp4(127, 0, 0, 1, 7413)});
    EXPECT_EQ(writer.qos.durability, Durability::transient_local);
    EXPECT_EQ(writer.qos.deadline, (WireDuration{5, 0}));
    EXPECT_EQ(writer.qos.liveliness, LivelinessKind::automatic);
    EXPECT_EQ(writer.qos.liveliness_lease, kDurationInfinite);
    EXPECT_EQ(writer.qos.reliability, Reliability::reliable);
    EXPECT_EQ(writer.qos.lifespan, kDurationInfinite);
    EXPECT_EQ(writer.qos.user_data, (ByteBuffer{9, 8, 7}));
    EXPECT_EQ(writer.qos.ownership, Ownership::exclusive);
    EXPECT_EQ(writer.qos.ownership_strength, 17);
    EXPECT_EQ(writer.qos.destination_order, DestinationOrder::by_reception);
    EXPECT_EQ(writer.qos.presentation, PresentationScope::instance);
    EXPECT_EQ(writer.qos.partitions, (std::vector<std::string>{"north", "so*"}));
    EXPECT_TRUE(writer.qos.representations.empty());
    EXPECT_TRUE(writer.type_information.empty());
}

TEST(Fast, Subscription) {
    const Golden golden("fast_subscription");
    const EndpointData reader = golden.endpoint(0);
    EXPECT_EQ(reader.guid, (Guid{prefix_from(kFastSubscriber), EntityId{0x107}}));
    EXPECT_EQ(reader.topic_name, "GoldenTopic");
    EXPECT_EQ(reader.unicast, LocatorList{udp4(127, 0, 0, 1, 7411)});
    EXPECT_EQ(reader.qos.reliability, Reliability::reliable);
    EXPECT_EQ(reader.qos.durability, Durability::transient_local);
    EXPECT_EQ(reader.qos.ownership, Ownership::exclusive);
    EXPECT_EQ(reader.qos.time_based_filter, (WireDuration{0, 5})) << "one nanosecond, nearly";
    EXPECT_EQ(reader.qos.partitions, std::vector<std::string>{"north"});
}

TEST(Fast, HeartbeatAndAckNack) {
    const Golden heartbeat("fast_heartbeat");
    heartbeat.expect_context(kFastSubscriber, kFastPublisher);
    ASSERT_EQ(heartbeat.entries.size(), 1u);
    EXPECT_EQ(heartbeat.at<Heartbeat>(0).reader, entity::publications_reader);
    EXPECT_EQ(heartbeat.at<Heartbeat>(0).first, 1);
    EXPECT_EQ(heartbeat.at<Heartbeat>(0).last, 0);
    const Golden acknack("fast_acknack");
    ASSERT_EQ(acknack.entries.size(), 1u);
    EXPECT_EQ(acknack.at<AckNack>(0).reader, entity::publications_reader);
    EXPECT_EQ(acknack.at<AckNack>(0).writer, entity::publications_writer);
    EXPECT_FALSE(acknack.at<AckNack>(0).final);
}

TEST(Fast, DataAndFragments) {
    const Golden golden("fast_data");
    golden.expect_context(kFastPublisher, kFastSubscriber);
    const Data data = golden.at<Data>(0);
    EXPECT_EQ(data.reader.value, 0x107u);
    EXPECT_EQ(data.writer.value, 0x102u);
    EXPECT_EQ(data.sequence_number, 1);
    EXPECT_TRUE(data.inline_qos.empty());
    EXPECT_EQ(bytes_of(data.payload), from_hex("00010000 04030201 06000000 68656c6c6f00 0000"));

    const DataFrag middle = Golden("fast_data_frag").at<DataFrag>(0);
    EXPECT_EQ(middle.first_fragment, 2u);
    EXPECT_EQ(middle.fragment_size, 1224);
    EXPECT_EQ(middle.payload.size, 1224u);
    const DataFrag last = Golden("fast_last_data_frag").at<DataFrag>(0);
    EXPECT_EQ(last.sequence_number, 2);
    EXPECT_EQ(last.first_fragment, 3u);
    EXPECT_EQ(last.sample_size, 3013u);
    EXPECT_EQ(last.payload.size, 3013u - 2 * 1224u) << "without the padding";
}

TEST(Fast, DisposesAndGap) {
    const Golden dispose("fast_dispose");
    ASSERT_EQ(dispose.entries.size(), 2u);
    EXPECT_FALSE(dispose.at<Data>(0).has_payload);
    EXPECT_EQ(dispose.at<Data>(0).sequence_number, 3);
    EXPECT_EQ(dispose.inline_qos(0).status_info, 1u);
    EXPECT_EQ(dispose.inline_qos(0).key_hash, (KeyHash{1, 2, 3, 4}));
    EXPECT_EQ(dispose.at<Heartbeat>(1).first, 2);
    EXPECT_EQ(dispose.at<Heartbeat>(1).last, 3);

    const Golden gap("fast_gap");
    ASSERT_EQ(gap.entries.size(), 2u);
    EXPECT_EQ(gap.at<Gap>(0).start, 3);
    EXPECT_EQ(gap.at<Gap>(0).list.base, 4);
    EXPECT_EQ(gap.at<Gap>(0).list.num_bits, 0u);

    const Golden publication("fast_disposed_publication");
    EXPECT_EQ(publication.key(0), (Guid{prefix_from(kFastPublisher), EntityId{0x102}}));
    EXPECT_EQ(publication.inline_qos(0).status_info, 3u);
    const Golden participant("fast_disposed_participant");
    EXPECT_EQ(participant.key(0), (Guid{participant.entries.at(0).context.source, entity::participant}));
}

/// Decodes everything that a datagram holds, as all it could be; keeps nothing.
class DecodeAll : public MessageVisitor {
  public:
    void on_data(const MessageContext&, const Data& data) override {
        InlineQos qos;
        decode_inline_qos(data.inline_qos, data.endianness, qos);
        decode_key(data.payload);
        decode_participant(data.payload, error_);
        decode_endpoint(data.payload, true, error_);
        decode_endpoint(data.payload, false, error_);
        decode_participant_message(data.payload);
        ++visited;
    }
    void on_data_frag(const MessageContext&, const DataFrag& fragment) override {
        for (const uint8_t byte : fragment.payload)
            sum += byte;
        ++visited;
    }

    size_t visited = 0;
    unsigned sum = 0;

  private:
    std::string error_;
};

std::vector<std::filesystem::path> all_goldens() {
    std::vector<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::directory_iterator(TEST_DATA_DIR)) {
        if (entry.path().extension() == ".hex")
            paths.push_back(entry.path());
    }
    return paths;
}

TEST(Mutations, EveryPrefixIsDecodedOrRefused) {
    const auto paths = all_goldens();
    ASSERT_EQ(paths.size(), 25u);
    for (const auto& path : paths) {
        const ByteBuffer whole = load(path);
        DecodeAll all;
        ASSERT_EQ(read_message(whole, all), ReadStatus::ok) << path;
        size_t refused = 0;
        for (size_t size = 0; size < whole.size(); ++size) {
            // A copy of exactly that size, so that the address sanitizer sees a read beyond it.
            const ByteBuffer prefix(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
            DecodeAll visitor;
            if (read_message(prefix, visitor) != ReadStatus::ok)
                ++refused;
            ASSERT_LE(visitor.visited, all.visited);
        }
        // Only the ends of whole submessages make a message; each of the others takes at least four bytes.
        EXPECT_GE(refused, whole.size() * 3 / 4) << path;
    }
}

TEST(Mutations, EveryFlippedBitIsDecodedOrRefused) {
    for (const auto& path : all_goldens()) {
        ByteBuffer bytes = load(path);
        size_t refused = 0;
        for (size_t bit = 0; bit < bytes.size() * 8; ++bit) {
            const auto mask = static_cast<uint8_t>(1u << bit % 8);
            bytes[bit / 8] = static_cast<uint8_t>(bytes[bit / 8] ^ mask);
            DecodeAll visitor;
            if (read_message(bytes, visitor) != ReadStatus::ok)
                ++refused;
            bytes[bit / 8] = static_cast<uint8_t>(bytes[bit / 8] ^ mask);
        }
        EXPECT_GE(refused, 40u) << path << ": the protocol name and the major version alone are 40 bits";
    }
}

} // namespace
} // namespace meridian::rtps
