#pragma once

#include "meridian/data_reader.h"
#include "meridian/entity.h"
#include "meridian/qos.h"

class DDSDomainParticipant;
class DDSTopicDescription;

class DDSSubscriber : public DDSEntity {
  public:
    virtual DDS_ReturnCode_t get_qos(DDS_SubscriberQos& qos) = 0;
    virtual DDS_ReturnCode_t set_qos(const DDS_SubscriberQos& qos) = 0;
    virtual DDSDomainParticipant* get_participant() = 0;
    /// The reader of the topic of that name, or null. The readers of the builtin subscriber exist from the
    /// first look-up (or from the enabling of the participant) on.
    virtual DDSDataReader* lookup_datareader(const char* topic_name) = 0;
    virtual DDS_ReturnCode_t get_default_datareader_qos(DDS_DataReaderQos& qos) = 0;
    virtual DDS_ReturnCode_t set_default_datareader_qos(const DDS_DataReaderQos& qos) = 0;
    /// The default reader QoS of the participant's profile for a topic of that name.
    virtual DDS_ReturnCode_t get_default_datareader_qos_w_topic_name(DDS_DataReaderQos& qos,
                                                                     const char* topic_name) = 0;

  protected:
    ~DDSSubscriber() override = default;
};
