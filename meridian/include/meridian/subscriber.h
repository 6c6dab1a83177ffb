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
    /// A reader of the topic's type, made by the type support that was registered with it. Owned by the
    /// subscriber until deleted. Null when the topic is not of this participant, the QoS contradicts itself
    /// or memory is short (the logger says which). The listener stays the caller's; it is called for the
    /// statuses of the mask.
    virtual DDSDataReader* create_datareader(DDSTopicDescription* topic, const DDS_DataReaderQos& qos,
                                             DDSDataReaderListener* listener, DDS_StatusMask mask) = 0;
    /// Returns only when no callback of the reader's runs any more. DDS_RETCODE_PRECONDITION_NOT_MET for a
    /// reader of another subscriber, or one whose samples are on loan.
    virtual DDS_ReturnCode_t delete_datareader(DDSDataReader* reader) = 0;
    virtual DDS_ReturnCode_t get_default_datareader_qos(DDS_DataReaderQos& qos) = 0;
    /// The default reader QoS of the participant's profile for a topic of that name.
    virtual DDS_ReturnCode_t get_default_datareader_qos_w_topic_name(DDS_DataReaderQos& qos,
                                                                     const char* topic_name) = 0;

  protected:
    ~DDSSubscriber() override = default;
};
