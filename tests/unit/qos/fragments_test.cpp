// A string profile that is cut into many pieces, down to single tags and values.

#include "documents.h"
#include "xml/documents.h"

using namespace meridian::qos;
using namespace meridian::qos::test;

namespace {

const char* const kFragments[] = {
    "<dds>",
    "<qos_library name=\"InternalSpyLibrary\">",
    "<qos_profile name=\"InternalSpyProfile\" is_default_qos=\"false\">",
    "<domain_participant_qos>",
    "<property>",
    "<value>",
    "<element>",
    "<name> dds.transport.UDPv4.builtin.ignore_loopback_interface </name>",
    "<value> 0 </value>",
    "</element>",
    "</value>",
    "</property>",
    "<participant_name>",
    "<name>Kvo DDS Spy</name>",
    "</participant_name>",
    "<partition>",
    "<name>",
    "<element>*</element>",
    "</name>",
    "</partition>",
    "<wire_protocol>",
    "<participant_id>",
    "-1",
    "</participant_id>",
    "<rtps_app_id>",
    "DDS_RTPS_AUTO_ID",
    "</rtps_app_id>",
    "</wire_protocol>",
    "<transport_builtin>",
    "<mask>",
    "DDS_TRANSPORTBUILTIN_MASK_DEFAULT",
    "</mask>",
    "</transport_builtin>",
    "<discovery_config>",
    "<participant_liveliness_assert_period>",
    "<sec>2</sec>",
    "<nanosec>0</nanosec>",
    "</participant_liveliness_assert_period>",
    "<participant_liveliness_lease_duration>",
    "<sec>6</sec>",
    "<nanosec>500000000</nanosec>",
    "</participant_liveliness_lease_duration>",
    "</discovery_config>",
    "<resource_limits>",
    "<type_code_max_serialized_length>",
    "4096",
    "</type_code_max_serialized_length>",
    "</resource_limits>",
    "</domain_participant_qos>",
    "<subscriber_qos>",
    "<partition>",
    "<name>",
    "<element>*</element>",
    "</name>",
    "</partition>",
    "</subscriber_qos>",
    "<datareader_qos>",
    "<latency_budget>",
    "<duration>",
    "<sec> DURATION_INFINITE_SEC</sec>",
    "<nanosec>DURATION_INFINITE_NSEC</nanosec>",
    "</duration>",
    "</latency_budget>",
    "<reader_resource_limits>",
    "<dynamically_allocate_fragmented_samples>",
    "true",
    "</dynamically_allocate_fragmented_samples>",
    "</reader_resource_limits>",
    "<history>",
    "<depth>8192</depth>",
    "</history>",
    "<representation>",
    "<value>",
    "<element>",
    "XCDR_DATA_REPRESENTATION",
    "</element>",
    "<element>",
    "XCDR2_DATA_REPRESENTATION",
    "</element>",
    "</value>",
    "</representation>",
    "</datareader_qos>",
    "</qos_profile>",
    "</qos_library>",
    "</dds>",
};

constexpr const char* kLibrary = "InternalSpyLibrary";
constexpr const char* kProfile = "InternalSpyProfile";

class Fragments : public testing::Test {
  protected:
    void SetUp() override {
        const auto count = static_cast<DDS_Long>(std::size(kFragments));
        ASSERT_TRUE(DDS_StringSeq_from_array(sources_.string_profile, kFragments, count));
    }
    DDS_ProfileQosPolicy sources_;
    ProfileStore store_;
    std::string error_;
};

TEST_F(Fragments, AreOneDocument) {
    ASSERT_TRUE(store_.load(sources_, error_)) << error_;
    EXPECT_EQ(store_.libraries(), std::vector<std::string>{kLibrary});
    EXPECT_EQ(store_.profiles(kLibrary), std::vector<std::string>{kProfile});
}

TEST_F(Fragments, EveryValueArrives) {
    ASSERT_TRUE(store_.load(sources_, error_)) << error_;
    DDS_DomainParticipantQos participant;
    participant.transport_builtin.mask = 8; // replaced by the document's
    participant.wire_protocol.rtps_app_id = 5;
    ASSERT_TRUE(store_.read(kLibrary, kProfile, nullptr, participant, error_));
    ASSERT_EQ(participant.property.value.length(), 1);
    EXPECT_STREQ(participant.property.value[0].name, "dds.transport.UDPv4.builtin.ignore_loopback_interface");
    EXPECT_STREQ(participant.property.value[0].value, "0");
    EXPECT_FALSE(participant.property.value[0].propagate);
    EXPECT_STREQ(participant.participant_name.name, "Kvo DDS Spy");
    EXPECT_EQ(joined(participant.partition.name), "*");
    EXPECT_EQ(participant.wire_protocol.participant_id, -1);
    EXPECT_EQ(participant.wire_protocol.rtps_app_id, DDS_RTPS_AUTO_ID);
    EXPECT_EQ(participant.transport_builtin.mask, 3);
    EXPECT_EQ(participant.discovery_config.participant_liveliness_assert_period, (DDS_Duration_t{2, 0}));
    EXPECT_EQ(participant.discovery_config.participant_liveliness_lease_duration,
              (DDS_Duration_t{6, 500000000}));
    EXPECT_EQ(participant.resource_limits.type_code_max_serialized_length, 4096);

    DDS_SubscriberQos subscriber;
    ASSERT_TRUE(store_.read(kLibrary, kProfile, nullptr, subscriber, error_));
    EXPECT_EQ(joined(subscriber.partition.name), "*");

    DDS_DataReaderQos reader;
    ASSERT_TRUE(store_.read(kLibrary, kProfile, "Square", reader, error_));
    EXPECT_EQ(reader.latency_budget.duration, DDS_DURATION_INFINITE);
    EXPECT_TRUE(reader.reader_resource_limits.dynamically_allocate_fragmented_samples);
    EXPECT_EQ(reader.history.kind, DDS_KEEP_LAST_HISTORY_QOS);
    EXPECT_EQ(reader.history.depth, 8192);
    ASSERT_EQ(reader.representation.value.length(), 2);
    EXPECT_EQ(reader.representation.value[0], DDS_XCDR_DATA_REPRESENTATION);
    EXPECT_EQ(reader.representation.value[1], DDS_XCDR2_DATA_REPRESENTATION);

    DDS_TopicQos topic;
    topic.history.depth = 77;
    ASSERT_TRUE(store_.read(kLibrary, kProfile, nullptr, topic, error_));
    EXPECT_EQ(topic.history.depth, 1); // nothing said of topics: the defaults
}

TEST_F(Fragments, AFileMayDeriveFromThem) {
    const TemporaryFile file(
        "<dds><qos_library name=\"DefaultSpyLibrary\"><qos_profile name=\"DefaultSpyProfile\" "
        "base_name=\"InternalSpyLibrary::InternalSpyProfile\"><datareader_qos><history><depth>5</depth></"
        "history>"
        "</datareader_qos></qos_profile></qos_library></dds>");
    DDS_StringSeq_append(sources_.url_profile, file.path().c_str());
    ASSERT_TRUE(store_.load(sources_, error_)) << error_;
    DDS_DataReaderQos reader;
    ASSERT_TRUE(store_.read("DefaultSpyLibrary", "DefaultSpyProfile", nullptr, reader, error_));
    EXPECT_EQ(reader.history.depth, 5);
    EXPECT_EQ(reader.representation.value.length(), 2);
}

TEST_F(Fragments, AMissingOneIsAnError) {
    DDS_ProfileQosPolicy fewer;
    const auto count = static_cast<DDS_Long>(std::size(kFragments)) - 1;
    ASSERT_TRUE(DDS_StringSeq_from_array(fewer.string_profile, kFragments, count));
    ASSERT_TRUE(store_.load(sources_, error_));
    EXPECT_FALSE(store_.load(fewer, error_));
    EXPECT_EQ(error_, "string profile:1: not well-formed: Start-end tags mismatch");
    EXPECT_EQ(store_.libraries().size(), 1u);
}

TEST_F(Fragments, NullAndHugeOnes) {
    DDS_ProfileQosPolicy sources;
    EXPECT_TRUE(DDS_StringSeq_append(sources.string_profile, nullptr));
    EXPECT_TRUE(DDS_StringSeq_append(sources.string_profile, "<dds/>"));
    EXPECT_TRUE(store_.load(sources, error_)) << error_;
    DDS_StringSeq_append(sources.string_profile,
                         std::string(meridian::xml::Documents::kMaxSize, ' ').c_str());
    EXPECT_FALSE(store_.load(sources, error_));
    EXPECT_EQ(error_, "string profile: is larger than 4194304 bytes");
}

} // namespace
