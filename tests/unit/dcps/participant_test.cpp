#include <gmock/gmock.h>

#include "endpoints_peer.h"
#include "factory_fixture.h"
#include "meridian/transport.h"
#include "platform/clock.h"
#include "support/logger_guard.h"
#include "support/no_threads.h"
#include "test_type.h"

namespace meridian::dcps::test {
namespace {

using ::testing::HasSubstr;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

/// A participant that was not enabled.
class ParticipantTest : public FactoryTest {
  protected:
    void SetUp() override {
        FactoryTest::SetUp();
        participant_ = create();
        ASSERT_NE(participant_, nullptr);
    }
    ParticipantImpl* participant_ = nullptr;
};

TEST_F(ParticipantTest, SubscribersBelongToTheirParticipant) {
    DDS_SubscriberQos qos;
    DDS_StringSeq_append(qos.partition.name, "A");
    DDSSubscriber* subscriber = participant_->create_subscriber(qos, nullptr, DDS_STATUS_MASK_NONE);
    ASSERT_NE(subscriber, nullptr);
    EXPECT_EQ(subscriber->get_participant(), participant_);
    DDS_SubscriberQos read;
    EXPECT_EQ(subscriber->get_qos(read), DDS_RETCODE_OK);
    ASSERT_EQ(read.partition.name.length(), 1);
    EXPECT_STREQ(read.partition.name[0], "A");
    EXPECT_EQ(subscriber->lookup_datareader("any"), nullptr);
    EXPECT_NE(subscriber->get_statuscondition(), nullptr);
    EXPECT_EQ(subscriber->get_statuscondition()->get_entity(), subscriber);
    EXPECT_EQ(subscriber->get_status_changes(), DDS_STATUS_MASK_NONE);
    EXPECT_EQ(subscriber->enable(), DDS_RETCODE_PRECONDITION_NOT_MET);

    DDSSubscriber* other = participant_->create_subscriber({}, nullptr, DDS_STATUS_MASK_NONE);
    EXPECT_FALSE(other->get_instance_handle() == subscriber->get_instance_handle());

    EXPECT_EQ(factory()->delete_participant(participant_), DDS_RETCODE_PRECONDITION_NOT_MET);
    EXPECT_EQ(participant_->delete_contained_entities(), DDS_RETCODE_OK);
    EXPECT_EQ(factory()->delete_participant(participant_), DDS_RETCODE_OK);
}

TEST_F(ParticipantTest, SubscribersThatCannotBeAreRefused) {
    int anything = 0;
    auto* listener = reinterpret_cast<DDSSubscriberListener*>(&anything);
    DDS_SubscriberQos qos;
    CaptureStderr();
    EXPECT_EQ(participant_->create_subscriber(qos, listener, DDS_STATUS_MASK_ALL), nullptr);
    qos.presentation.access_scope = static_cast<DDS_PresentationQosPolicyAccessScopeKind>(3);
    EXPECT_EQ(participant_->create_subscriber(qos, nullptr, DDS_STATUS_MASK_NONE), nullptr);
    const std::string logged = GetCapturedStderr();
    EXPECT_NE(logged.find("listener"), std::string::npos) << logged;
    EXPECT_NE(logged.find("presentation"), std::string::npos) << logged;
    EXPECT_FALSE(participant_->has_entities());
}

TEST_F(ParticipantTest, DefaultsComeFromAProfile) {
    ASSERT_EQ(load(kProfiles), DDS_RETCODE_OK);
    ASSERT_EQ(participant_->set_default_topic_qos_with_profile("Lib", "First"), DDS_RETCODE_OK);
    ASSERT_EQ(participant_->set_default_subscriber_qos_with_profile("Lib", "First"), DDS_RETCODE_OK);
    ASSERT_EQ(participant_->set_default_datareader_qos_with_profile("Lib", "First"), DDS_RETCODE_OK);
    DDS_TopicQos topic;
    DDS_SubscriberQos subscriber_qos;
    DDS_DataReaderQos reader;
    participant_->get_default_topic_qos(topic);
    participant_->get_default_subscriber_qos(subscriber_qos);
    participant_->get_default_datareader_qos(reader);
    EXPECT_EQ(topic.history.depth, 56);
    ASSERT_EQ(subscriber_qos.partition.name.length(), 1);
    EXPECT_STREQ(subscriber_qos.partition.name[0], "S");
    EXPECT_EQ(reader.history.depth, 12);

    DDSSubscriber* subscriber = participant_->create_subscriber(subscriber_qos, nullptr, 0);
    EXPECT_EQ(subscriber->get_default_datareader_qos(reader), DDS_RETCODE_OK);
    EXPECT_EQ(reader.history.depth, 12);
    EXPECT_EQ(subscriber->get_default_datareader_qos_w_topic_name(reader, "Special"), DDS_RETCODE_OK);
    EXPECT_EQ(reader.history.depth, 34);
    EXPECT_EQ(subscriber->get_default_datareader_qos_w_topic_name(reader, "Plain"), DDS_RETCODE_OK);
    EXPECT_EQ(reader.history.depth, 12);
    EXPECT_EQ(subscriber->get_default_datareader_qos_w_topic_name(reader, nullptr),
              DDS_RETCODE_BAD_PARAMETER);
}

TEST_F(ParticipantTest, AProfileThatContradictsItselfLeavesTheDefaults) {
    ASSERT_EQ(load("<dds><qos_library name=\"L\"><qos_profile name=\"P\"><datareader_qos>"
                   "<history><depth>9</depth></history>"
                   "<resource_limits><max_samples_per_instance>3</max_samples_per_instance></resource_limits>"
                   "</datareader_qos></qos_profile></qos_library></dds>"),
              DDS_RETCODE_OK);
    CaptureStderr();
    EXPECT_EQ(participant_->set_default_datareader_qos_with_profile("L", "P"),
              DDS_RETCODE_INCONSISTENT_POLICY);
    EXPECT_FALSE(GetCapturedStderr().empty());
    DDS_DataReaderQos reader;
    participant_->get_default_datareader_qos(reader);
    EXPECT_EQ(reader.history.depth, 1);
}

TEST_F(ParticipantTest, AProfileThatDoesNotExistIsAnError) {
    ASSERT_EQ(load(kProfiles), DDS_RETCODE_OK);
    CaptureStderr();
    EXPECT_EQ(participant_->set_default_topic_qos_with_profile("Lib", "None"), DDS_RETCODE_ERROR);
    EXPECT_EQ(participant_->set_default_subscriber_qos_with_profile("Lib", "None"), DDS_RETCODE_ERROR);
    EXPECT_EQ(participant_->set_default_datareader_qos_with_profile("Lib", "None"), DDS_RETCODE_ERROR);
    EXPECT_NE(GetCapturedStderr().find("None"), std::string::npos);
    EXPECT_EQ(participant_->set_default_topic_qos_with_profile(nullptr, "x"), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(participant_->set_default_subscriber_qos_with_profile("x", nullptr), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(participant_->set_default_datareader_qos_with_profile(nullptr, nullptr),
              DDS_RETCODE_BAD_PARAMETER);
}

TEST_F(ParticipantTest, QosOfParticipantAndSubscriberCanChange) {
    DDS_DomainParticipantQos qos;
    EXPECT_EQ(participant_->get_qos(qos), DDS_RETCODE_OK);
    DDS_StringSeq_append(qos.partition.name, "P");
    qos.wire_protocol.participant_id = 3;
    EXPECT_EQ(participant_->set_qos(qos), DDS_RETCODE_OK); // not enabled yet
    DDS_DomainParticipantQos read;
    participant_->get_qos(read);
    EXPECT_EQ(read.wire_protocol.participant_id, 3);
    EXPECT_EQ(read.partition.name.length(), 1);
    CaptureStderr();
    qos.wire_protocol.rtps_app_id = 17;
    EXPECT_EQ(participant_->set_qos(qos), DDS_RETCODE_IMMUTABLE_POLICY);
    EXPECT_NE(GetCapturedStderr().find("GUID"), std::string::npos);

    DDSSubscriber* subscriber = participant_->create_subscriber({}, nullptr, 0);
    DDS_SubscriberQos subscriber_qos;
    DDS_StringSeq_append(subscriber_qos.partition.name, "S");
    EXPECT_EQ(subscriber->set_qos(subscriber_qos), DDS_RETCODE_OK);
    DDS_SubscriberQos subscriber_read;
    subscriber->get_qos(subscriber_read);
    EXPECT_EQ(subscriber_read.partition.name.length(), 1);
}

TEST_F(ParticipantTest, TheClockIsTheWallClock) {
    DDS_Time_t time = DDS_TIME_INVALID;
    const DDS_Time_t before = wall_time();
    EXPECT_EQ(participant_->get_current_time(time), DDS_RETCODE_OK);
    EXPECT_GE(time.sec, before.sec);
    EXPECT_LE(time.sec, wall_time().sec);
    EXPECT_LT(time.nanosec, 1000000000u);
}

TEST_F(ParticipantTest, IgnoringWantsTheHandleOfAParticipant) {
    EXPECT_EQ(participant_->ignore_participant(create()->get_instance_handle()), DDS_RETCODE_OK);
    EXPECT_EQ(participant_->ignore_participant(participant_->get_instance_handle()), DDS_RETCODE_OK);
    EXPECT_EQ(participant_->ignore_participant(DDS_HANDLE_NIL), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(participant_->ignore_participant(participant_->get_builtin_subscriber()->get_instance_handle()),
              DDS_RETCODE_BAD_PARAMETER);
}

TEST_F(ParticipantTest, NothingIsDiscoveredBeforeEnabling) {
    DDS_ParticipantBuiltinTopicData data;
    EXPECT_EQ(participant_->get_discovered_participant_data(data, participant_->get_instance_handle()),
              DDS_RETCODE_NOT_ENABLED);
}

TEST_F(ParticipantTest, TheBuiltinReadersExistFromTheStart) {
    DDSSubscriber* builtin = participant_->get_builtin_subscriber();
    ASSERT_NE(builtin, nullptr);
    EXPECT_EQ(builtin->get_participant(), participant_);
    DDSDataReader* publications = builtin->lookup_datareader(DDS_PUBLICATION_TOPIC_NAME);
    DDSDataReader* subscriptions = builtin->lookup_datareader(DDS_SUBSCRIPTION_TOPIC_NAME);
    ASSERT_NE(publications, nullptr);
    ASSERT_NE(subscriptions, nullptr);
    EXPECT_EQ(builtin->lookup_datareader(DDS_PUBLICATION_TOPIC_NAME), publications);
    EXPECT_EQ(builtin->lookup_datareader("DCPSTopic"), nullptr);
    EXPECT_EQ(builtin->lookup_datareader(nullptr), nullptr);
    EXPECT_NE(DDSPublicationBuiltinTopicDataDataReader::narrow(publications), nullptr);
    EXPECT_EQ(DDSPublicationBuiltinTopicDataDataReader::narrow(subscriptions), nullptr);
    EXPECT_NE(DDSSubscriptionBuiltinTopicDataDataReader::narrow(subscriptions), nullptr);
    EXPECT_EQ(builtin->enable(), DDS_RETCODE_PRECONDITION_NOT_MET);
    EXPECT_EQ(publications->enable(), DDS_RETCODE_PRECONDITION_NOT_MET);

    DDS_SubscriberQos qos;
    EXPECT_EQ(builtin->get_qos(qos), DDS_RETCODE_OK);
    EXPECT_EQ(builtin->set_qos(qos), DDS_RETCODE_IMMUTABLE_POLICY);
    DDS_DataReaderQos reader_qos;
    EXPECT_EQ(builtin->get_default_datareader_qos(reader_qos), DDS_RETCODE_OK);
    EXPECT_EQ(reader_qos.reliability.kind, DDS_RELIABLE_RELIABILITY_QOS);
    EXPECT_EQ(builtin->get_default_datareader_qos_w_topic_name(reader_qos, "x"), DDS_RETCODE_OK);
    EXPECT_EQ(builtin->get_default_datareader_qos_w_topic_name(reader_qos, nullptr),
              DDS_RETCODE_BAD_PARAMETER);
}

TEST_F(ParticipantTest, BuiltinTopicsAreTopics) {
    DDSTopicDescription* description = participant_->get_builtin_subscriber()
                                           ->lookup_datareader(DDS_PUBLICATION_TOPIC_NAME)
                                           ->get_topicdescription();
    ASSERT_NE(description, nullptr);
    EXPECT_STREQ(description->get_name(), DDS_PUBLICATION_TOPIC_NAME);
    EXPECT_STRNE(description->get_type_name(), "");
    EXPECT_EQ(description->get_participant(), participant_);
    DDSTopic* topic = DDSTopic::narrow(description);
    ASSERT_NE(topic, nullptr);
    EXPECT_EQ(DDSTopic::narrow(nullptr), nullptr);
    DDS_TopicQos qos;
    EXPECT_EQ(topic->get_qos(qos), DDS_RETCODE_OK);
    EXPECT_EQ(qos.durability.kind, DDS_TRANSIENT_LOCAL_DURABILITY_QOS);
    EXPECT_EQ(topic->enable(), DDS_RETCODE_PRECONDITION_NOT_MET);
}

TEST_F(ParticipantTest, TransportPropertiesAreReadAndWritten) {
    for (DDS_TransportBuiltinKind kind : {DDS_TRANSPORT_KIND_UDPv4, DDS_TRANSPORT_KIND_UDPv6}) {
        QUIXTransport_Property property(kind);
        property.udp.multicast_ttl = 77;
        ASSERT_EQ(QUIXTransportSupport::get_builtin_transport_property(participant_, property),
                  DDS_RETCODE_OK);
        EXPECT_EQ(property.udp.multicast_ttl, QUIXTransport_UDP_Property().multicast_ttl);
        property.udp.multicast_ttl = kind;
        property.udp.message_size_max = 9000;
        ASSERT_EQ(QUIXTransportSupport::set_builtin_transport_property(participant_, property),
                  DDS_RETCODE_OK);
    }
    QUIXTransport_Property property(DDS_TRANSPORT_KIND_UDPv4);
    QUIXTransportSupport::get_builtin_transport_property(participant_, property);
    EXPECT_EQ(property.udp.multicast_ttl, 1);
    EXPECT_EQ(property.udp.message_size_max, 9000);

    QUIXTransport_Property shmem(DDS_TRANSPORT_KIND_SHMEM);
    ASSERT_EQ(QUIXTransportSupport::get_builtin_transport_property(participant_, shmem), DDS_RETCODE_OK);
    shmem.shmem.receive_buffer_size = 1000000;
    ASSERT_EQ(QUIXTransportSupport::set_builtin_transport_property(participant_, shmem), DDS_RETCODE_OK);
    shmem.shmem.receive_buffer_size = 0;
    ASSERT_EQ(QUIXTransportSupport::get_builtin_transport_property(participant_, shmem), DDS_RETCODE_OK);
    EXPECT_EQ(shmem.shmem.receive_buffer_size, 1000000);
}

TEST_F(ParticipantTest, TransportPropertiesThatCannotBeAreRefused) {
    QUIXTransport_Property property(DDS_TRANSPORT_KIND_UDPv4);
    EXPECT_EQ(QUIXTransportSupport::get_builtin_transport_property(nullptr, property),
              DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(QUIXTransportSupport::set_builtin_transport_property(nullptr, property),
              DDS_RETCODE_BAD_PARAMETER);
    QUIXTransport_Property unknown(static_cast<DDS_TransportBuiltinKind>(3));
    EXPECT_EQ(QUIXTransportSupport::get_builtin_transport_property(participant_, unknown),
              DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(QUIXTransportSupport::set_builtin_transport_property(participant_, unknown),
              DDS_RETCODE_BAD_PARAMETER);
    CaptureStderr();
    property.udp.message_size_max = 10;
    EXPECT_EQ(QUIXTransportSupport::set_builtin_transport_property(participant_, property),
              DDS_RETCODE_BAD_PARAMETER);
    property.udp = {};
    property.udp.multicast_ttl = 256;
    EXPECT_EQ(QUIXTransportSupport::set_builtin_transport_property(participant_, property),
              DDS_RETCODE_BAD_PARAMETER);
    QUIXTransport_Property shmem(DDS_TRANSPORT_KIND_SHMEM);
    shmem.shmem.received_message_count_max = 0;
    EXPECT_EQ(QUIXTransportSupport::set_builtin_transport_property(participant_, shmem),
              DDS_RETCODE_BAD_PARAMETER);
    EXPECT_FALSE(GetCapturedStderr().empty());
    QUIXTransportSupport::get_builtin_transport_property(participant_, property);
    EXPECT_EQ(property.udp.multicast_ttl, 1);
}

TEST_F(ParticipantTest, ThreadsThatCannotBeHadFailEnablingAndNothingElse) {
    const LoggerGuard logging(QUIX_LOG_ERROR);
    CaptureStderr();
    {
        const NoThreads none;
        EXPECT_EQ(participant_->enable(), DDS_RETCODE_ERROR);
    }
    EXPECT_THAT(GetCapturedStderr(), HasSubstr("cannot start a thread"));
    EXPECT_EQ(participant_->enable(), DDS_RETCODE_OK);
    // Readers start none.
    ASSERT_TRUE(register_test_types(*participant_));
    const NoThreads none;
    EXPECT_NE(make_reader(*participant_, "Square", "Keyed", "", nullptr, DDS_STATUS_MASK_ALL), nullptr);
    EXPECT_EQ(participant_->delete_contained_entities(), DDS_RETCODE_OK);
}

} // namespace
} // namespace meridian::dcps::test
