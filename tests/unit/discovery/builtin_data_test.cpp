#include "discovery/builtin_data.h"

#include <gtest/gtest.h>

#include "discovery/conversions.h"
#include "samples.h"
#include "types/lookup/endpoint_type.h"

namespace meridian::discovery {
namespace {

rtps::Locator make_locator(int32_t kind, uint32_t port, uint8_t last) {
    rtps::Locator locator;
    locator.kind = kind;
    locator.port = port;
    locator.address = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 10, 0, 0, last};
    return locator;
}

DDS_PublicationBuiltinTopicData publication(const rtps::EndpointData& data) {
    DDS_PublicationBuiltinTopicData out;
    rtps::RemoteEndpoint endpoint = *test::record(data);
    endpoint.type = rtps::EndpointType::none(DDS_TYPE_CODE_TOO_LARGE);
    fill(endpoint, out);
    return out;
}

TEST(BuiltinData, ParticipantIsConvertedWhole) {
    rtps::ParticipantData data = test::make_participant(16, "A,B*");
    data.version = {2, 4};
    data.vendor.bytes = {1, 0x10};
    data.domain_id = 7;
    data.lease = {10, 0x80000000};
    data.user_data = {1, 2, 3};
    data.properties.push_back({"name", "value"});
    data.default_unicast = {make_locator(1, 7411, 5), make_locator(16, 1, 6)};
    data.metatraffic_unicast = {make_locator(2, 7410, 7)};

    const DDS_ParticipantBuiltinTopicData out = to_participant_data(data, 3);
    EXPECT_EQ(out.key.value[0], 0x10111213u);
    EXPECT_EQ(out.key.value[2], 0x18191a1bu);
    EXPECT_EQ(out.key.value[3], 0x000001c1u);
    EXPECT_EQ(out.protocol_version[0], 2);
    EXPECT_EQ(out.protocol_version[1], 4);
    EXPECT_EQ(out.vendor_id[1], 0x10);
    EXPECT_EQ(out.domain_id, 7u);
    EXPECT_EQ(out.lease_duration, (DDS_Duration_t{10, 500000000}));
    ASSERT_EQ(out.user_data.value.length(), 3);
    EXPECT_EQ(out.user_data.value[2], 3);
    EXPECT_STREQ(out.participant_name.name, "participant 16");
    ASSERT_EQ(out.partition.name.length(), 2);
    EXPECT_STREQ(out.partition.name[1], "B*");
    ASSERT_EQ(out.property.value.length(), 2);
    EXPECT_STREQ(out.property.value[1].name, "name");
    EXPECT_TRUE(out.property.value[1].propagate);
    ASSERT_EQ(out.default_unicast_locators.length(), 2);
    EXPECT_EQ(out.default_unicast_locators[0].kind, DDS_LOCATOR_KIND_UDPv4);
    EXPECT_EQ(out.default_unicast_locators[0].port, 7411u);
    EXPECT_EQ(out.default_unicast_locators[0].address[15], 5);
    EXPECT_EQ(out.default_unicast_locators[1].kind, 16);
    ASSERT_EQ(out.metatraffic_unicast_locators.length(), 1);
}

TEST(BuiltinData, ParticipantWithoutOptionalPartsIsInTheDomainAsked) {
    rtps::ParticipantData data = test::make_participant(16);
    data.name.clear();
    const DDS_ParticipantBuiltinTopicData out = to_participant_data(data, 3);
    EXPECT_EQ(out.domain_id, 3u);
    EXPECT_EQ(out.participant_name.name, nullptr);
    EXPECT_EQ(out.partition.name.length(), 0);
}

TEST(BuiltinData, WriterIsConvertedWhole) {
    rtps::EndpointData data = test::make_writer(16, 0x12);
    data.qos.durability = rtps::Durability::transient_local;
    data.qos.reliability = rtps::Reliability::reliable;
    data.qos.ownership = rtps::Ownership::exclusive;
    data.qos.ownership_strength = 9;
    data.qos.deadline = {1, 0};
    data.qos.latency_budget = {0, 0x40000000};
    data.qos.liveliness = rtps::LivelinessKind::manual_by_topic;
    data.qos.liveliness_lease = {2, 0};
    data.qos.destination_order = rtps::DestinationOrder::by_source;
    data.qos.presentation = rtps::PresentationScope::group;
    data.qos.coherent_access = true;
    data.qos.partitions = {"P1", "P2"};
    data.qos.lifespan = {3, 0};
    data.qos.representations = {2, 0};
    data.qos.user_data = {1};
    data.qos.topic_data = {2, 2};
    data.qos.group_data = {3, 3, 3};
    data.unicast = {make_locator(1, 7411, 5)};
    data.name = "the writer";
    data.properties = {{"p", "v"}};
    data.type_information = {0xaa, 0xbb};

    DDS_PublicationBuiltinTopicData first = publication(data);
    const DDS_PublicationBuiltinTopicData out = first; // copies are deep
    first.topic_name[0] = 'X';
    EXPECT_EQ(out.key.value[3], 0x1202u);
    EXPECT_EQ(out.participant_key.value[3], 0x1c1u);
    EXPECT_EQ(out.participant_key.value[0], out.key.value[0]);
    EXPECT_STREQ(out.topic_name, "Topic18");
    EXPECT_STREQ(out.type_name, "Type");
    EXPECT_EQ(out.durability.kind, DDS_TRANSIENT_LOCAL_DURABILITY_QOS);
    EXPECT_EQ(out.reliability.kind, DDS_RELIABLE_RELIABILITY_QOS);
    EXPECT_EQ(out.ownership.kind, DDS_EXCLUSIVE_OWNERSHIP_QOS);
    EXPECT_EQ(out.ownership_strength, 9);
    EXPECT_EQ(out.deadline.period, (DDS_Duration_t{1, 0}));
    EXPECT_EQ(out.latency_budget.duration, (DDS_Duration_t{0, 250000000}));
    EXPECT_EQ(out.liveliness.kind, DDS_MANUAL_BY_TOPIC_LIVELINESS_QOS);
    EXPECT_EQ(out.liveliness.lease_duration, (DDS_Duration_t{2, 0}));
    EXPECT_EQ(out.destination_order.kind, DDS_BY_SOURCE_TIMESTAMP_DESTINATIONORDER_QOS);
    EXPECT_EQ(out.presentation.access_scope, DDS_GROUP_PRESENTATION_QOS);
    EXPECT_TRUE(out.presentation.coherent_access);
    EXPECT_FALSE(out.presentation.ordered_access);
    ASSERT_EQ(out.partition.name.length(), 2);
    EXPECT_STREQ(out.partition.name[0], "P1");
    EXPECT_EQ(out.lifespan.duration, (DDS_Duration_t{3, 0}));
    ASSERT_EQ(out.representation.value.length(), 2);
    EXPECT_EQ(out.representation.value[0], DDS_XCDR2_DATA_REPRESENTATION);
    EXPECT_EQ(out.user_data.value.length(), 1);
    EXPECT_EQ(out.topic_data.value.length(), 2);
    EXPECT_EQ(out.group_data.value.length(), 3);
    EXPECT_EQ(out.unicast_locators.length(), 1);
    EXPECT_STREQ(out.entity_name.name, "the writer");
    EXPECT_EQ(out.property.value.length(), 1);
    EXPECT_EQ(out.type_code, nullptr);
    EXPECT_EQ(out.type_code_absence, DDS_TYPE_CODE_TOO_LARGE);
    ASSERT_EQ(out.type_information.length(), 2);
    EXPECT_EQ(out.type_information[1], 0xbb);
}

TEST(BuiltinData, ReaderHasATimeBasedFilterAndInfiniteTimesStayInfinite) {
    rtps::EndpointData data = test::make_reader(16, 0x12);
    data.qos.time_based_filter = {5, 0};
    DDS_SubscriptionBuiltinTopicData out;
    fill(*test::record(data), out);
    EXPECT_EQ(out.time_based_filter.minimum_separation, (DDS_Duration_t{5, 0}));
    EXPECT_TRUE(DDS_Duration_is_infinite(out.deadline.period));
    EXPECT_EQ(out.deadline.period, DDS_DURATION_INFINITE);
    EXPECT_EQ(out.reliability.kind, DDS_BEST_EFFORT_RELIABILITY_QOS);
    EXPECT_EQ(out.entity_name.name, nullptr);
    EXPECT_EQ(out.key.value[3], 0x1204u);
}

TEST(BuiltinData, AssignmentReplacesStrings) {
    DDS_PublicationBuiltinTopicData target = publication(test::make_writer(16, 1));
    target = publication(test::make_writer(16, 2));
    EXPECT_STREQ(target.topic_name, "Topic2");
    const DDS_PublicationBuiltinTopicData& same = target;
    target = same;
    EXPECT_STREQ(target.topic_name, "Topic2");
    target = DDS_PublicationBuiltinTopicData();
    EXPECT_EQ(target.topic_name, nullptr);
}

TEST(Conversions, HandlesAndGuids) {
    const rtps::Guid guid{test::make_prefix(1), rtps::EntityId{0x00123407}};
    const DDS_InstanceHandle_t handle = to_handle(guid);
    EXPECT_TRUE(handle.isValid);
    EXPECT_EQ(handle.length, 16u);
    EXPECT_EQ(handle.keyHash[0], 1);
    EXPECT_EQ(handle.keyHash[13], 0x12);
    EXPECT_EQ(handle.keyHash[15], 0x07);
    EXPECT_EQ(to_guid(handle), guid);
    EXPECT_EQ(to_guid(DDS_HANDLE_NIL), std::nullopt);
    DDS_InstanceHandle_t odd = handle;
    odd.length = 8;
    EXPECT_EQ(to_guid(odd), std::nullopt);
}

TEST(Conversions, Times) {
    EXPECT_EQ(to_wire(DDS_DURATION_INFINITE), rtps::kDurationInfinite);
    EXPECT_EQ(to_wire({6, 500000000}), (rtps::WireDuration{6, 0x80000000}));
    EXPECT_EQ(to_duration(to_wire({6, 123456789})), (DDS_Duration_t{6, 123456789}));
    EXPECT_EQ(to_time(rtps::kTimeInvalid).sec, DDS_TIME_INVALID.sec);
    EXPECT_EQ(to_time({17, 0x80000000}).nanosec, 500000000u);
    EXPECT_EQ(to_wire({1, 4000000000u}).seconds, 1); // nanoseconds that cannot be
}

} // namespace
} // namespace meridian::discovery
