#include "dcps/entities/builtin_subscriber.h"

#include <cstring>

#include "dcps/entities/participant.h"
#include "meridian/logger.h"

namespace meridian::dcps {

namespace {

// Entities that only this process sees; their kinds are those of vendor-specific entities, the reader's
// apart.
constexpr rtps::EntityId kBuiltinSubscriber{0x000001c9};
constexpr rtps::EntityId kPublicationTopic{0x00000345};
constexpr rtps::EntityId kSubscriptionTopic{0x00000445};

DDS_TopicQos builtin_topic_qos() {
    DDS_TopicQos qos;
    qos.durability.kind = DDS_TRANSIENT_LOCAL_DURABILITY_QOS;
    qos.reliability.kind = DDS_RELIABLE_RELIABILITY_QOS;
    return qos;
}

} // namespace

BuiltinSubscriber::BuiltinSubscriber(ParticipantImpl& participant)
    : EntityImpl({participant.guid().prefix, kBuiltinSubscriber}),
      participant_(participant),
      publication_topic_(participant, {guid().prefix, kPublicationTopic}, DDS_PUBLICATION_TOPIC_NAME,
                         "PublicationBuiltinTopicData", builtin_topic_qos()),
      subscription_topic_(participant, {guid().prefix, kSubscriptionTopic}, DDS_SUBSCRIPTION_TOPIC_NAME,
                          "SubscriptionBuiltinTopicData", builtin_topic_qos()),
      publications_({guid().prefix, rtps::entity::publications_reader}, participant.store().publications(),
                    publication_topic_, *this, participant),
      subscriptions_({guid().prefix, rtps::entity::subscriptions_reader}, participant.store().subscriptions(),
                     subscription_topic_, *this, participant) {}

DDS_ReturnCode_t BuiltinSubscriber::enable() {
    if (!participant_.is_enabled())
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    set_enabled();
    publication_topic_.enable();
    subscription_topic_.enable();
    publications_.enable();
    subscriptions_.enable();
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t BuiltinSubscriber::get_qos(DDS_SubscriberQos& qos) {
    DDS_SubscriberQos builtin;
    builtin.presentation.access_scope = DDS_TOPIC_PRESENTATION_QOS;
    qos = builtin;
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t BuiltinSubscriber::set_qos(const DDS_SubscriberQos& /*qos*/) {
    return DDS_RETCODE_IMMUTABLE_POLICY;
}

DDSDataReader* BuiltinSubscriber::create_datareader(DDSTopicDescription* /*topic*/,
                                                    const DDS_DataReaderQos& /*qos*/,
                                                    DDSDataReaderListener* /*listener*/,
                                                    DDS_StatusMask /*mask*/) {
    QUIXLog_failure("create_datareader", "the builtin subscriber has its builtin readers only");
    return nullptr;
}

DDS_ReturnCode_t BuiltinSubscriber::delete_datareader(DDSDataReader* /*reader*/) {
    return DDS_RETCODE_PRECONDITION_NOT_MET;
}

DDSDomainParticipant* BuiltinSubscriber::get_participant() {
    return &participant_;
}

DDSDataReader* BuiltinSubscriber::lookup_datareader(const char* topic_name) {
    if (topic_name == nullptr)
        return nullptr;
    if (std::strcmp(topic_name, DDS_PUBLICATION_TOPIC_NAME) == 0)
        return &publications_;
    if (std::strcmp(topic_name, DDS_SUBSCRIPTION_TOPIC_NAME) == 0)
        return &subscriptions_;
    return nullptr;
}

DDS_ReturnCode_t BuiltinSubscriber::get_default_datareader_qos(DDS_DataReaderQos& qos) {
    return publications_.get_qos(qos);
}

DDS_ReturnCode_t BuiltinSubscriber::get_default_datareader_qos_w_topic_name(DDS_DataReaderQos& qos,
                                                                            const char* topic_name) {
    return topic_name != nullptr ? publications_.get_qos(qos) : DDS_RETCODE_BAD_PARAMETER;
}

} // namespace meridian::dcps
