#pragma once

#include "meridian/builtin_topics.h"
#include "meridian/entity.h"
#include "meridian/qos.h"
#include "meridian/subscriber.h"
#include "meridian/time.h"
#include "meridian/topic.h"

class DDSDomainParticipantListener;
class DDSSubscriberListener;

/// Member of a domain. Until it is enabled it opens no socket and sends nothing. It never sees the traffic of
/// other participants of the same process.
class DDSDomainParticipant : public DDSEntity {
  public:
    /// Opens the sockets and announces the participant. DDS_RETCODE_ERROR when a transport cannot be opened
    /// or an initial peer cannot be used (the logger says which).
    DDS_ReturnCode_t enable() override = 0;

    virtual DDS_DomainId_t get_domain_id() = 0;
    virtual DDS_ReturnCode_t get_qos(DDS_DomainParticipantQos& qos) = 0;
    virtual DDS_ReturnCode_t set_qos(const DDS_DomainParticipantQos& qos) = 0;

    /// Owned by the participant, deleted with it.
    virtual DDSSubscriber* get_builtin_subscriber() = 0;
    /// Owned by the participant until deleted. Null when the QoS contradicts itself (the logger says how).
    /// The listener must be null: subscribers have no statuses of their own here.
    virtual DDSSubscriber* create_subscriber(const DDS_SubscriberQos& qos, DDSSubscriberListener* listener,
                                             DDS_StatusMask mask) = 0;
    virtual DDS_ReturnCode_t delete_subscriber(DDSSubscriber* subscriber) = 0;

    virtual DDS_ReturnCode_t get_default_topic_qos(DDS_TopicQos& qos) = 0;
    virtual DDS_ReturnCode_t set_default_topic_qos(const DDS_TopicQos& qos) = 0;
    virtual DDS_ReturnCode_t get_default_subscriber_qos(DDS_SubscriberQos& qos) = 0;
    virtual DDS_ReturnCode_t set_default_subscriber_qos(const DDS_SubscriberQos& qos) = 0;
    virtual DDS_ReturnCode_t get_default_datareader_qos(DDS_DataReaderQos& qos) = 0;
    virtual DDS_ReturnCode_t set_default_datareader_qos(const DDS_DataReaderQos& qos) = 0;
    /// From a profile of the factory. DDS_RETCODE_ERROR when the profile does not exist.
    virtual DDS_ReturnCode_t set_default_topic_qos_with_profile(const char* library, const char* profile) = 0;
    virtual DDS_ReturnCode_t set_default_subscriber_qos_with_profile(const char* library,
                                                                     const char* profile) = 0;
    virtual DDS_ReturnCode_t set_default_datareader_qos_with_profile(const char* library,
                                                                     const char* profile) = 0;

    /// Nothing of the participant with that handle is seen any more; what was seen of it is reported gone.
    virtual DDS_ReturnCode_t ignore_participant(const DDS_InstanceHandle_t& handle) = 0;
    /// Data of a remote participant, copied into the caller's record. DDS_RETCODE_BAD_PARAMETER for an
    /// unknown handle, DDS_RETCODE_NOT_ENABLED before enabling.
    virtual DDS_ReturnCode_t get_discovered_participant_data(DDS_ParticipantBuiltinTopicData& data,
                                                             const DDS_InstanceHandle_t& handle) = 0;

    /// The wall clock, UTC.
    virtual DDS_ReturnCode_t get_current_time(DDS_Time_t& time) = 0;
    /// Deletes everything that was created from the participant. Loans that are still out stay readable until
    /// the participant is deleted.
    virtual DDS_ReturnCode_t delete_contained_entities() = 0;

  protected:
    ~DDSDomainParticipant() override = default;
};
