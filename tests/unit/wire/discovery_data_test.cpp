// Participants and endpoints: what was encoded is decoded with the same values, and what peers leave out or
// get wrong is judged as the comments beside the decoders say.

#include "rtps/wire/encapsulation.h"
#include "rtps/wire/parameter_ids.h"
#include "rtps/wire/parameter_list.h"
#include "wire_test.h"

namespace meridian::rtps {
namespace {

const Guid kParticipantGuid{prefix_of(1), entity::participant};
const Guid kWriterGuid{prefix_of(1), EntityId{0x00000102}};
const Guid kReaderGuid{prefix_of(1), EntityId{0x00000207}};

ParticipantData full_participant() {
    ParticipantData data;
    data.version = {2, 4};
    data.vendor = kOwnVendorId;
    data.guid = kParticipantGuid;
    data.builtin_endpoints = 0xc3f;
    data.domain_id = 42;
    data.domain_tag = "tag";
    data.lease = {6, 0x80000000};
    data.metatraffic_unicast = {udp4(192, 168, 1, 2, 7410), udp4(127, 0, 0, 1, 7410)};
    data.metatraffic_multicast = {udp4(239, 255, 0, 1, 7400)};
    data.default_unicast = {udp4(192, 168, 1, 2, 7411)};
    data.default_multicast = {udp4(239, 255, 0, 1, 7401)};
    data.manual_liveliness_count = 3;
    data.name = "a name";
    data.user_data = {1, 2, 3};
    data.properties = {{"dds.sys_info.hostname", "h"}, {"empty", ""}};
    data.raw = {{0x8123, {1, 2, 3, 4}}};
    return data;
}

EndpointData full_endpoint(const Guid& guid) {
    EndpointData data;
    data.guid = guid;
    data.topic_name = "Square";
    data.type_name = "Shape::Type";
    data.qos.durability = Durability::transient_local;
    data.qos.deadline = {1, 2};
    data.qos.latency_budget = {3, 4};
    data.qos.liveliness = LivelinessKind::manual_by_topic;
    data.qos.liveliness_lease = {5, 6};
    data.qos.reliability = Reliability::reliable;
    data.qos.max_blocking_time = {7, 8};
    data.qos.ownership = Ownership::exclusive;
    data.qos.destination_order = DestinationOrder::by_source;
    data.qos.presentation = PresentationScope::group;
    data.qos.coherent_access = true;
    data.qos.ordered_access = true;
    data.qos.partitions = {"", "a*", "third"};
    data.qos.history = HistoryKind::keep_all;
    data.qos.history_depth = 9;
    data.qos.representations = {kXcdr1, kXcdr2};
    data.qos.user_data = {1};
    data.qos.topic_data = {2, 2};
    data.qos.group_data = {3, 3, 3};
    data.unicast = {udp4(10, 0, 0, 1, 9000)};
    data.name = "entity";
    data.type_information = {1, 2, 3, 4, 5, 6, 7, 8};
    data.type_object = {9, 9, 9, 9};
    data.properties = {{"n", "v"}};
    data.raw = {{0x8001, {1, 0, 0, 0}}};
    if (data.is_writer()) {
        data.qos.ownership_strength = -7;
        data.qos.lifespan = {10, 11};
    } else {
        data.qos.time_based_filter = {12, 13};
    }
    return data;
}

void expect_same(const EndpointQos& a, const EndpointQos& b) {
    EXPECT_EQ(a.durability, b.durability);
    EXPECT_EQ(a.deadline, b.deadline);
    EXPECT_EQ(a.latency_budget, b.latency_budget);
    EXPECT_EQ(a.liveliness, b.liveliness);
    EXPECT_EQ(a.liveliness_lease, b.liveliness_lease);
    EXPECT_EQ(a.reliability, b.reliability);
    EXPECT_EQ(a.max_blocking_time, b.max_blocking_time);
    EXPECT_EQ(a.ownership, b.ownership);
    EXPECT_EQ(a.ownership_strength, b.ownership_strength);
    EXPECT_EQ(a.destination_order, b.destination_order);
    EXPECT_EQ(a.presentation, b.presentation);
    EXPECT_EQ(a.coherent_access, b.coherent_access);
    EXPECT_EQ(a.ordered_access, b.ordered_access);
    EXPECT_EQ(a.partitions, b.partitions);
    EXPECT_EQ(a.lifespan, b.lifespan);
    EXPECT_EQ(a.time_based_filter, b.time_based_filter);
    EXPECT_EQ(a.history, b.history);
    EXPECT_EQ(a.history_depth, b.history_depth);
    EXPECT_EQ(a.representations, b.representations);
    EXPECT_EQ(a.user_data, b.user_data);
    EXPECT_EQ(a.topic_data, b.topic_data);
    EXPECT_EQ(a.group_data, b.group_data);
}

void expect_same(const EndpointData& a, const EndpointData& b) {
    EXPECT_EQ(a.guid, b.guid);
    EXPECT_EQ(a.topic_name, b.topic_name);
    EXPECT_EQ(a.type_name, b.type_name);
    expect_same(a.qos, b.qos);
    EXPECT_EQ(a.unicast, b.unicast);
    EXPECT_EQ(a.name, b.name);
    EXPECT_EQ(a.type_information, b.type_information);
    EXPECT_EQ(a.type_object, b.type_object);
    EXPECT_EQ(a.properties, b.properties);
    EXPECT_EQ(a.raw, b.raw);
}

/// A payload with these parameters in that byte order; fill as with ParameterListWriter.
template <typename Fill>
ByteBuffer payload_with(Endianness order, Fill fill) {
    ByteBuffer bytes;
    write_encapsulation(bytes, Encoding::pl_cdr, order);
    ParameterListWriter list(bytes, order);
    fill(list);
    list.add_sentinel();
    return bytes;
}

void add_guid_bytes(ParameterListWriter& list, uint16_t id, const Guid& guid) {
    list.add(id, [&](ByteWriter& writer) {
        writer.write_bytes(guid.prefix.bytes);
        writer.write_bytes(std::array<uint8_t, 4>{static_cast<uint8_t>(guid.entity.value >> 24),
                                                  static_cast<uint8_t>(guid.entity.value >> 16 & 0xff),
                                                  static_cast<uint8_t>(guid.entity.value >> 8 & 0xff),
                                                  guid.entity.kind()});
    });
}

void add_string(ParameterListWriter& list, uint16_t id, const std::string& text) {
    list.add(id, [&](ByteWriter& writer) { writer.write_string(text); });
}

void add_words(ParameterListWriter& list, uint16_t id, const std::vector<uint32_t>& words) {
    list.add(id, [&](ByteWriter& writer) {
        for (const uint32_t word : words)
            writer.write(word);
    });
}

/// The least an endpoint needs, and what `more` adds.
template <typename Fill>
ByteBuffer minimal_endpoint(const Guid& guid, Fill more, Endianness order = native_endianness()) {
    return payload_with(order, [&](ParameterListWriter& list) {
        add_guid_bytes(list, pid::endpoint_guid, guid);
        add_string(list, pid::topic_name, "T");
        add_string(list, pid::type_name, "Y");
        more(list);
    });
}

TEST(ParticipantData, RoundTrip) {
    const ParticipantData data = full_participant();
    std::string error;
    const auto decoded = decode_participant(encode(data), error);
    ASSERT_TRUE(decoded) << error;
    EXPECT_EQ(decoded->version, data.version);
    EXPECT_EQ(decoded->vendor, data.vendor);
    EXPECT_EQ(decoded->guid, data.guid);
    EXPECT_EQ(decoded->builtin_endpoints, data.builtin_endpoints);
    EXPECT_EQ(decoded->domain_id, data.domain_id);
    EXPECT_EQ(decoded->domain_tag, data.domain_tag);
    EXPECT_EQ(decoded->lease, data.lease);
    EXPECT_EQ(decoded->metatraffic_unicast, data.metatraffic_unicast);
    EXPECT_EQ(decoded->metatraffic_multicast, data.metatraffic_multicast);
    EXPECT_EQ(decoded->default_unicast, data.default_unicast);
    EXPECT_EQ(decoded->default_multicast, data.default_multicast);
    EXPECT_EQ(decoded->manual_liveliness_count, data.manual_liveliness_count);
    EXPECT_EQ(decoded->name, data.name);
    EXPECT_EQ(decoded->user_data, data.user_data);
    EXPECT_EQ(decoded->properties, data.properties);
    EXPECT_FALSE(decoded->secured);
    EXPECT_EQ(decoded->raw, data.raw);
}

TEST(EndpointData, RoundTripOfAWriterAndAReader) {
    for (const Guid& guid : {kWriterGuid, kReaderGuid}) {
        const EndpointData data = full_endpoint(guid);
        std::string error;
        const auto decoded = decode_endpoint(encode(data), data.is_writer(), error);
        ASSERT_TRUE(decoded) << error;
        expect_same(*decoded, data);
    }
}

TEST(EndpointData, DefaultsInBothByteOrders) {
    for (const Endianness order : {Endianness::big, Endianness::little}) {
        std::string error;
        const auto writer = decode_endpoint(minimal_endpoint(
                                                kWriterGuid, [](auto&) {}, order),
                                            true, error);
        const auto reader = decode_endpoint(minimal_endpoint(
                                                kReaderGuid, [](auto&) {}, order),
                                            false, error);
        ASSERT_TRUE(writer && reader) << error;
        EXPECT_EQ(writer->guid, kWriterGuid);
        EXPECT_EQ(writer->raw_endianness, order);
        EndpointQos expected;
        expect_same(reader->qos, expected);
        expected.reliability = Reliability::reliable;
        expect_same(writer->qos, expected);
    }
}

TEST(EndpointData, EveryPrefixOfAFullRecordIsRefused) {
    const ByteBuffer payload = encode(full_endpoint(kReaderGuid));
    for (size_t size = 0; size < payload.size(); ++size) {
        // A copy of exactly that size, so that the address sanitizer sees a read beyond it.
        const ByteBuffer prefix(payload.begin(), payload.begin() + static_cast<ptrdiff_t>(size));
        std::string error;
        ASSERT_FALSE(decode_endpoint(prefix, false, error)) << size;
        ASSERT_FALSE(error.empty()) << size;
    }
}

TEST(EndpointData, MustHaveKeyAndNames) {
    const auto refused = [](const ByteBuffer& payload, bool is_writer) {
        std::string error;
        const bool decoded = decode_endpoint(payload, is_writer, error).has_value();
        EXPECT_EQ(decoded, error.empty());
        return !decoded;
    };
    const auto list = [](bool guid, bool topic, bool type) {
        return payload_with(native_endianness(), [&](ParameterListWriter& parameters) {
            if (guid)
                add_guid_bytes(parameters, pid::endpoint_guid, kWriterGuid);
            if (topic)
                add_string(parameters, pid::topic_name, "T");
            if (type)
                add_string(parameters, pid::type_name, "Y");
        });
    };
    EXPECT_FALSE(refused(list(true, true, true), true));
    EXPECT_TRUE(refused(list(false, true, true), true));
    EXPECT_TRUE(refused(list(true, false, true), true));
    EXPECT_TRUE(refused(list(true, true, false), true));
    EXPECT_TRUE(refused(list(true, true, true), false)) << "a writer announced as a reader";
}

TEST(EndpointData, KeyHashStandsInForAMissingGuid) {
    const ByteBuffer payload = payload_with(native_endianness(), [](ParameterListWriter& list) {
        add_guid_bytes(list, pid::key_hash, kReaderGuid);
        add_string(list, pid::topic_name, "T");
        add_string(list, pid::type_name, "Y");
    });
    std::string error;
    const auto decoded = decode_endpoint(payload, false, error);
    ASSERT_TRUE(decoded) << error;
    EXPECT_EQ(decoded->guid, kReaderGuid);
}

TEST(EndpointData, EnumerationsThatDecideAMatchAreRefusedOutOfRange) {
    const struct {
        uint16_t id;
        uint32_t highest;
        uint32_t above;
        size_t words;
    } kinds[] = {{pid::durability, 3, 4, 1},   {pid::reliability, 2, 3, 3},
                 {pid::reliability, 1, 0, 3},  {pid::liveliness, 2, 3, 3},
                 {pid::ownership, 1, 2, 1},    {pid::destination_order, 1, 2, 1},
                 {pid::presentation, 2, 3, 2}, {pid::durability, 0, 0xffffffff, 1}};
    for (const auto& kind : kinds) {
        for (const bool good : {true, false}) {
            std::vector<uint32_t> words(kind.words, 0);
            words[0] = good ? kind.highest : kind.above;
            const ByteBuffer payload = minimal_endpoint(
                kWriterGuid, [&](ParameterListWriter& list) { add_words(list, kind.id, words); });
            std::string error;
            EXPECT_EQ(decode_endpoint(payload, true, error).has_value(), good) << kind.id << ' ' << error;
        }
    }
}

TEST(EndpointData, StrangeOptionalParametersLeaveTheDefaultAndStayVisibleRaw) {
    const ByteBuffer payload = minimal_endpoint(kWriterGuid, [](ParameterListWriter& list) {
        add_words(list, pid::deadline, {0xffffffff, 0});
        add_words(list, pid::history, {7, 1});
        add_words(list, pid::user_data, {100});
        add_words(list, pid::unicast_locator, {1, 7400});
        add_words(list, pid::property_list, {0xffffffff});
        add_words(list, 0x3123, {1});
        add_words(list, 0x8abc, {2});
    });
    std::string error;
    const auto decoded = decode_endpoint(payload, true, error);
    ASSERT_TRUE(decoded) << error;
    EndpointQos expected;
    expected.reliability = Reliability::reliable;
    expect_same(decoded->qos, expected);
    EXPECT_TRUE(decoded->unicast.empty());
    EXPECT_TRUE(decoded->properties.empty());
    std::vector<uint16_t> ids;
    for (const RawParameter& parameter : decoded->raw)
        ids.push_back(parameter.id);
    EXPECT_EQ(ids, (std::vector<uint16_t>{pid::deadline, pid::history, pid::user_data, pid::unicast_locator,
                                          pid::property_list, 0x3123, 0x8abc}));
}

TEST(EndpointData, MustUnderstandRefusesTheUnknownOnly) {
    const auto decodes = [](uint16_t id) {
        std::string error;
        const ByteBuffer payload =
            minimal_endpoint(kWriterGuid, [&](ParameterListWriter& list) { add_words(list, id, {1}); });
        return decode_endpoint(payload, true, error).has_value();
    };
    EXPECT_TRUE(decodes(0x3123));
    EXPECT_FALSE(decodes(0x3123 | kPidMustUnderstandBit));
    EXPECT_TRUE(decodes(0x8123));
    EXPECT_FALSE(decodes(0x8123 | kPidMustUnderstandBit));
    EXPECT_TRUE(decodes(pid::ownership | kPidMustUnderstandBit));
    EXPECT_TRUE(decodes(pid::transport_priority | kPidMustUnderstandBit));
}

TEST(EndpointData, ErrorsNameTheParameter) {
    const auto error_of = [](uint16_t id) {
        std::string error;
        decode_endpoint(
            minimal_endpoint(kWriterGuid, [&](ParameterListWriter& list) { add_words(list, id, {9}); }), true,
            error);
        return error;
    };
    EXPECT_EQ(error_of(pid::ownership),
              "parameter 0x001f (ownership) at byte 52 is truncated or out of range");
    EXPECT_EQ(error_of(0x7123), "parameter 0x7123 at byte 52 must be understood and is unknown");
}

TEST(EndpointData, InfiniteDurationsOfAllSortsAreOne) {
    const ByteBuffer payload = minimal_endpoint(kWriterGuid, [](ParameterListWriter& list) {
        add_words(list, pid::lifespan, {0x7fffffff, 0x7fffffff});
    });
    std::string error;
    const auto decoded = decode_endpoint(payload, true, error);
    ASSERT_TRUE(decoded) << error;
    EXPECT_EQ(decoded->qos.lifespan, kDurationInfinite);
}

TEST(EndpointData, LocatorsAreThoseThatWereAnnounced) {
    const ByteBuffer payload = minimal_endpoint(kWriterGuid, [](ParameterListWriter& list) {
        add_words(list, pid::unicast_locator, {0, 0, 0, 0, 0, 0});
        for (const uint32_t port : {0u, 65535u, 65536u}) {
            list.add(pid::unicast_locator, [&](ByteWriter& writer) {
                writer.write(int32_t{kLocatorUdpV4});
                writer.write(port);
                writer.write_bytes(udp4(1, 2, 3, 4, 0).address);
            });
        }
    });
    std::string error;
    const auto decoded = decode_endpoint(payload, true, error);
    ASSERT_TRUE(decoded) << error;
    ASSERT_EQ(decoded->unicast.size(), 4u);
    EXPECT_EQ(decoded->unicast[0].kind, kLocatorReserved);
    EXPECT_EQ(decoded->unicast[1], udp4(1, 2, 3, 4, 0));
    EXPECT_EQ(decoded->unicast[2], udp4(1, 2, 3, 4, 65535));
    EXPECT_EQ(decoded->unicast[3].port, 65536u);
}

TEST(EndpointData, EntitiesOfOtherKindsAreWhatTheyAreAnnouncedAs) {
    std::string error;
    for (const uint32_t kind : {0x01u, 0x0bu, 0x0cu, 0x0du, 0x0eu, 0x3cu, 0x3du}) {
        const Guid guid{kWriterGuid.prefix, EntityId{0x100 | kind}};
        for (const bool is_writer : {true, false}) {
            const auto decoded = decode_endpoint(minimal_endpoint(guid, [](auto&) {}), is_writer, error);
            ASSERT_TRUE(decoded) << error;
            EXPECT_EQ(decoded->is_writer(), is_writer);
        }
    }
    EXPECT_FALSE(decode_endpoint(minimal_endpoint(kWriterGuid, [](auto&) {}), false, error));
    EXPECT_FALSE(decode_endpoint(minimal_endpoint(kParticipantGuid, [](auto&) {}), true, error));
}

/// The bytes that a list of values takes beside itself.
template <typename T>
size_t kept_by(const std::vector<T>& values) {
    return values.capacity() * sizeof(T);
}

// What a few bytes announce must not take many times as many for as long as its announcer lives.
TEST(EndpointData, WideAnnouncementsAreKeptInAFewTimesTheirBytes) {
    std::string error;
    const auto strings_of = [](uint16_t id, uint32_t count, const ByteBuffer& each) {
        return [=](ParameterListWriter& list) {
            list.add(id, [&](ByteWriter& writer) {
                writer.write(count);
                for (uint32_t i = 0; i < count; ++i)
                    writer.write_bytes(each);
            });
        };
    };
    const ByteBuffer nothing(4);
    const ByteBuffer empty{1, 0, 0, 0, 0, 0, 0, 0};
    for (const auto& [count, each] : {std::pair(15000u, nothing), std::pair(7500u, empty)}) {
        const ByteBuffer names =
            minimal_endpoint(kWriterGuid, strings_of(pid::partition, count, each), Endianness::little);
        const auto decoded = decode_endpoint(names, true, error);
        ASSERT_TRUE(decoded) << error;
        EXPECT_EQ(decoded->qos.partitions, (std::vector<std::string>{""}));
        const ByteBuffer properties =
            minimal_endpoint(kWriterGuid,
                             strings_of(pid::property_list, count / 2,
                                        [&] {
                                            ByteBuffer both = each;
                                            both.insert(both.end(), each.begin(), each.end());
                                            return both;
                                        }()),
                             Endianness::little);
        const auto with_properties = decode_endpoint(properties, true, error);
        ASSERT_TRUE(with_properties) << error;
        EXPECT_TRUE(with_properties->properties.empty());
    }
    ByteBuffer names = minimal_endpoint(kWriterGuid, [](ParameterListWriter& list) {
        list.add(pid::partition, [](ByteWriter& writer) {
            writer.write(7400u);
            for (uint32_t i = 0; i < 7400; ++i)
                writer.write_string(std::to_string(i % 1000));
        });
    });
    const auto distinct = decode_endpoint(names, true, error);
    ASSERT_TRUE(distinct) << error;
    EXPECT_EQ(distinct->qos.partitions.size(), 1000u);
    EXPECT_EQ(distinct->qos.partitions[999], "999");
    const ByteBuffer many = minimal_endpoint(kWriterGuid, [](ParameterListWriter& list) {
        list.add(pid::property_list, [](ByteWriter& writer) {
            writer.write(3700u);
            for (uint32_t i = 0; i < 3700; ++i) {
                writer.write_string(std::to_string(i % 1000));
                writer.write_string("v");
            }
        });
    });
    const auto properties = decode_endpoint(many, true, error);
    ASSERT_TRUE(properties) << error;
    EXPECT_EQ(properties->properties.size(), 1024u);
    const ByteBuffer unknown = minimal_endpoint(kWriterGuid, [](ParameterListWriter& list) {
        for (int i = 0; i < 15000; ++i)
            list.add_bytes(0x8123, ByteView());
    });
    const auto raw = decode_endpoint(unknown, true, error);
    ASSERT_TRUE(raw) << error;
    EXPECT_LE(kept_by(raw->raw), unknown.size());
}

TEST(EndpointData, OversizedParametersAreLeftOutOfTheList) {
    EndpointData data = full_endpoint(kWriterGuid);
    data.qos.user_data.assign(70000, 7);
    std::string error;
    const auto decoded = decode_endpoint(encode(data), true, error);
    ASSERT_TRUE(decoded) << error;
    EXPECT_TRUE(decoded->qos.user_data.empty());
    EXPECT_EQ(decoded->qos.topic_data, data.qos.topic_data);
}

TEST(EndpointData, WhatIsKeptUndecodedLeavesOnlyInTheByteOrderItCameIn) {
    const Endianness other = native_endianness() == Endianness::little ? Endianness::big : Endianness::little;
    for (const Endianness order : {native_endianness(), other}) {
        const ByteBuffer payload = minimal_endpoint(
            kWriterGuid,
            [](ParameterListWriter& list) {
                add_words(list, pid::type_information, {1});
                add_words(list, pid::type_object, {2});
                add_words(list, 0x8001, {3});
            },
            order);
        std::string error;
        const auto decoded = decode_endpoint(payload, true, error);
        ASSERT_TRUE(decoded) << error;
        EXPECT_EQ(decoded->type_information.size(), 4u);
        EXPECT_EQ(decoded->type_object.size(), 4u);
        EXPECT_EQ(decoded->raw.size(), 1u);
        const auto again = decode_endpoint(encode(*decoded), true, error);
        ASSERT_TRUE(again) << error;
        const bool kept = order == native_endianness();
        EXPECT_EQ(again->type_information.empty(), !kept);
        EXPECT_EQ(again->type_object.empty(), !kept);
        EXPECT_EQ(again->raw.empty(), !kept);
    }
}

TEST(ParticipantData, TheOlderBuiltinEndpointNumberDoesNotOverrideTheNewer) {
    const ByteBuffer payload = payload_with(Endianness::little, [](ParameterListWriter& list) {
        add_guid_bytes(list, pid::participant_guid, kParticipantGuid);
        add_words(list, pid::builtin_endpoint_set, {0xc3f});
        add_words(list, pid::participant_builtin_endpoints, {0x3});
    });
    std::string error;
    const auto decoded = decode_participant(payload, error);
    ASSERT_TRUE(decoded) << error;
    EXPECT_EQ(decoded->builtin_endpoints, 0xc3fu);
}

TEST(ParticipantData, OldBuiltinEndpointNumberAndTokens) {
    const ByteBuffer payload = payload_with(Endianness::big, [](ParameterListWriter& list) {
        add_guid_bytes(list, pid::key_hash, kParticipantGuid);
        add_words(list, pid::participant_builtin_endpoints, {0x3f});
        add_words(list, pid::identity_token, {0});
        add_words(list, pid::multicast_ip, {0x7f000001});
    });
    std::string error;
    const auto decoded = decode_participant(payload, error);
    ASSERT_TRUE(decoded) << error;
    EXPECT_EQ(decoded->guid, kParticipantGuid);
    EXPECT_EQ(decoded->builtin_endpoints, 0x3fu);
    EXPECT_TRUE(decoded->secured);
    EXPECT_FALSE(decoded->domain_id);
    EXPECT_EQ(decoded->lease, (WireDuration{100, 0}));
}

TEST(ParticipantData, RefusedWithoutGuidOrInAnotherEncapsulation) {
    std::string error;
    EXPECT_FALSE(decode_participant(payload_with(Endianness::little, [](auto&) {}), error));
    EXPECT_NE(error.find("GUID"), std::string::npos) << error;
    ByteBuffer payload = encode(full_participant());
    payload[1] = 0x01; // CDR_LE
    EXPECT_FALSE(decode_participant(payload, error));
    EXPECT_NE(error.find("0x0001"), std::string::npos) << error;
    EXPECT_FALSE(decode_participant(ByteView(payload.data(), 3), error));
    EXPECT_NE(error.find("3 bytes"), std::string::npos) << error;
    EXPECT_FALSE(decode_participant(payload_with(Endianness::little,
                                                 [](ParameterListWriter& list) {
                                                     add_guid_bytes(list, pid::participant_guid, kWriterGuid);
                                                 }),
                                    error));
}

TEST(Key, FromEitherPayload) {
    EXPECT_EQ(decode_key(encode_participant_key(kParticipantGuid)), kParticipantGuid);
    EXPECT_EQ(decode_key(encode_endpoint_key(kWriterGuid)), kWriterGuid);
    // The participant's GUID in front of the endpoint's does not hide it.
    const ByteBuffer both = payload_with(Endianness::big, [](ParameterListWriter& list) {
        add_guid_bytes(list, pid::participant_guid, kParticipantGuid);
        add_guid_bytes(list, pid::endpoint_guid, kWriterGuid);
    });
    EXPECT_EQ(decode_key(both), kWriterGuid);
    EXPECT_EQ(decode_key({}), std::nullopt);
}

TEST(ParticipantMessage, RoundTripAndBytes) {
    ParticipantMessage message;
    message.participant = prefix_of(1);
    message.kind = ParticipantMessage::manual;
    const auto decoded = decode_participant_message(encode(message));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->participant, message.participant);
    EXPECT_EQ(decoded->kind, message.kind);

    const auto big = decode_participant_message(from_hex(R"(
        00 00 00 00                          # CDR_BE
        01 02 03 04 05 06 07 08 09 0a 0b 0c  # GUID prefix
        00 00 00 01                          # automatic
        00 00 00 02 aa bb                    # data
    )"));
    ASSERT_TRUE(big);
    EXPECT_EQ(big->kind, ParticipantMessage::automatic);
    EXPECT_FALSE(
        decode_participant_message(from_hex("00010000 0102030405060708090a0b0c 00000001 03000000 aabb")));
    EXPECT_FALSE(decode_participant_message(from_hex("00030000 0102030405060708090a0b0c 00000001 00000000")));
}

TEST(InlineQos, RoundTrip) {
    InlineQos qos;
    qos.key_hash = KeyHash{1, 2, 3};
    qos.status_info = 1;
    qos.original_writer = kWriterGuid;
    qos.original_sequence_number = 0x1'0000'0001;
    qos.related_writer = kReaderGuid;
    qos.related_sequence_number = 77;
    InlineQos decoded;
    ASSERT_TRUE(decode_inline_qos(encode(qos), native_endianness(), decoded));
    EXPECT_EQ(decoded.key_hash, qos.key_hash);
    EXPECT_EQ(decoded.status_info, 1u);
    EXPECT_EQ(decoded.original_writer, kWriterGuid);
    EXPECT_EQ(decoded.original_sequence_number, 0x1'0000'0001);
    EXPECT_EQ(decoded.related_writer, kReaderGuid);
    EXPECT_EQ(decoded.related_sequence_number, 77);
    EXPECT_FALSE(decoded.refused);
}

TEST(InlineQos, StatusInfoIsTheSameInBothByteOrders) {
    InlineQos big;
    ASSERT_TRUE(decode_inline_qos(from_hex(R"(
        00 71 00 04 00 00 00 03   # status info: disposed and unregistered
        80 0f 00 18               # related sample identity, as sent before it had a number
        01 02 03 04 05 06 07 08 09 0a 0b 0c  00 00 01 02   # writer
        00 00 00 01 00 00 00 05                            # sequence number
        00 01 00 00               # sentinel
    )"),
                                  Endianness::big, big));
    EXPECT_EQ(big.status_info, 3u);
    EXPECT_EQ(big.related_writer, kWriterGuid);
    EXPECT_EQ(big.related_sequence_number, 0x1'0000'0005);
    InlineQos little;
    ASSERT_TRUE(decode_inline_qos(from_hex("7100 0400 00000003  0100 0000"), Endianness::little, little));
    EXPECT_EQ(little.status_info, 3u);
}

TEST(InlineQos, RefusedAndMalformed) {
    InlineQos qos;
    EXPECT_TRUE(decode_inline_qos(from_hex("2371 0400 00000000  0100 0000"), Endianness::little, qos));
    EXPECT_TRUE(qos.refused) << "0x7123 must be understood";
    InlineQos known;
    EXPECT_TRUE(decode_inline_qos(from_hex("7140 0400 00000001  0100 0000"), Endianness::little, known));
    EXPECT_FALSE(known.refused);
    EXPECT_EQ(known.status_info, 1u);
    InlineQos cut;
    EXPECT_FALSE(decode_inline_qos(from_hex("7100 0400 00000001  7000 1000 0102"), Endianness::little, cut));
    EXPECT_EQ(cut.status_info, 1u) << "what was read before stands";
    EXPECT_FALSE(
        decode_inline_qos(from_hex("7000 0800 0102030405060708  0100 0000"), Endianness::little, cut));
    EXPECT_FALSE(cut.key_hash);
}

} // namespace
} // namespace meridian::rtps
