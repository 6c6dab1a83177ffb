#pragma once

#include "meridian/builtin_topics.h"
#include "meridian/entity.h"
#include "meridian/publisher.h"
#include "meridian/qos.h"
#include "meridian/subscriber.h"
#include "meridian/time.h"
#include "meridian/topic.h"

class DDSDomainParticipantListener;
class DDSTypeSupport;
struct PRESTypePlugin;
class DDSPublisherListener;
class DDSSubscriberListener;

/// Member of a domain. Until it is enabled it opens no socket and sends nothing. It never sees the traffic of
/// other participants of the same process.
class DDSDomainParticipant : public DDSEntity {
  public:
    /// Opens the sockets and announces the participant. DDS_RETCODE_ERROR when a transport cannot be opened,
    /// for instance because its ports are taken (the logger says which). What the QoS asks for in vain, such
    /// as an initial peer that cannot be used, was refused at creation already.
    DDS_ReturnCode_t enable() override = 0;

    virtual DDS_ReturnCode_t get_qos(DDS_DomainParticipantQos& qos) = 0;
    virtual DDS_ReturnCode_t set_qos(const DDS_DomainParticipantQos& qos) = 0;

    /// Owned by the participant, deleted with it.
    virtual DDSSubscriber* get_builtin_subscriber() = 0;
    /// Owned by the participant. Null when the QoS contradicts itself (the logger says how).
    /// The listener must be null: subscribers have no statuses of their own here.
    virtual DDSSubscriber* create_subscriber(const DDS_SubscriberQos& qos, DDSSubscriberListener* listener,
                                             DDS_StatusMask mask) = 0;
    /// The same for publishers, which can be deleted: DDS_RETCODE_PRECONDITION_NOT_MET while it has writers.
    virtual DDSPublisher* create_publisher(const DDS_PublisherQos& qos, DDSPublisherListener* listener,
                                           DDS_StatusMask mask) = 0;
    virtual DDS_ReturnCode_t delete_publisher(DDSPublisher* publisher) = 0;

    virtual DDS_ReturnCode_t get_default_topic_qos(DDS_TopicQos& qos) = 0;
    virtual DDS_ReturnCode_t get_default_subscriber_qos(DDS_SubscriberQos& qos) = 0;
    virtual DDS_ReturnCode_t get_default_datareader_qos(DDS_DataReaderQos& qos) = 0;
    /// From a profile of the factory. DDS_RETCODE_ERROR when the profile does not exist.
    virtual DDS_ReturnCode_t set_default_topic_qos_with_profile(const char* library, const char* profile) = 0;
    virtual DDS_ReturnCode_t set_default_subscriber_qos_with_profile(const char* library,
                                                                     const char* profile) = 0;
    virtual DDS_ReturnCode_t set_default_datareader_qos_with_profile(const char* library,
                                                                     const char* profile) = 0;

    /// Makes samples of topics with that type name be handled by the plugin, whose record is copied. A type
    /// support that is given becomes the participant's. For a name that is registered, what was registered
    /// first stays in use: that succeeds for the same plugin functions with an equal type code, and for a
    /// plugin that knows no type code where the first one does. A plugin that knows one where the first one
    /// does not serves the topics that are made from then on, and unregister_type speaks of it alone. Else
    /// DDS_RETCODE_PRECONDITION_NOT_MET.
    virtual DDS_ReturnCode_t register_type(const char* type_name, const PRESTypePlugin* plugin,
                                           DDSTypeSupport* type_support) = 0;
    /// DDS_RETCODE_PRECONDITION_NOT_MET while a topic uses the type, DDS_RETCODE_BAD_PARAMETER when it is not
    /// registered.
    virtual DDS_ReturnCode_t unregister_type(const char* type_name) = 0;
    virtual DDS_Boolean is_type_registered(const char* type_name) = 0;
    /// The type code registered under that name, or null. Valid until the type is unregistered.
    virtual const DDS_TypeCode* get_typecode(const char* type_name) = 0;
    /// Keeps other threads from registering and unregistering types.
    virtual DDS_ReturnCode_t lock() = 0;
    virtual DDS_ReturnCode_t unlock() = 0;

    /// The topic of that name, or null. Owned by the participant.
    virtual DDSTopicDescription* lookup_topicdescription(const char* topic_name) = 0;
    /// Owned by the participant until deleted. Null when the name is in use, the type name is not registered
    /// or the QoS contradicts itself (the logger says which). The listener must be null.
    virtual DDSTopic* create_topic(const char* topic_name, const char* type_name, const DDS_TopicQos& qos,
                                   DDSTopicListener* listener, DDS_StatusMask mask) = 0;
    /// DDS_RETCODE_PRECONDITION_NOT_MET while readers or writers use it.
    virtual DDS_ReturnCode_t delete_topic(DDSTopic* topic) = 0;

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
