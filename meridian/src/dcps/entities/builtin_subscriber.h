#pragma once

#include "dcps/common/entity_impl.h"
#include "dcps/entities/builtin_reader.h"
#include "dcps/topics/topic.h"
#include "meridian/subscriber.h"

namespace meridian::dcps {

/// The subscriber of the builtin readers, with its topics and readers. They exist as long as the participant;
/// their QoS cannot be changed.
class BuiltinSubscriber final : public EntityImpl<DDSSubscriber> {
  public:
    explicit BuiltinSubscriber(ParticipantImpl& participant);
    ~BuiltinSubscriber() override = default;

    DDS_ReturnCode_t enable() override;
    DDS_ReturnCode_t get_qos(DDS_SubscriberQos& qos) override;
    DDS_ReturnCode_t set_qos(const DDS_SubscriberQos& qos) override;
    DDSDomainParticipant* get_participant() override;
    DDSDataReader* lookup_datareader(const char* topic_name) override;
    DDSDataReader* create_datareader(DDSTopicDescription* topic, const DDS_DataReaderQos& qos,
                                     DDSDataReaderListener* listener, DDS_StatusMask mask) override;
    DDS_ReturnCode_t delete_datareader(DDSDataReader* reader) override;
    DDS_ReturnCode_t get_default_datareader_qos(DDS_DataReaderQos& qos) override;
    DDS_ReturnCode_t get_default_datareader_qos_w_topic_name(DDS_DataReaderQos& qos,
                                                             const char* topic_name) override;

  private:
    ParticipantImpl& participant_;
    TopicImpl publication_topic_;
    TopicImpl subscription_topic_;
    BuiltinReader<DDS_PublicationBuiltinTopicData> publications_;
    BuiltinReader<DDS_SubscriptionBuiltinTopicData> subscriptions_;
};

} // namespace meridian::dcps
