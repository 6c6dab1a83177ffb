#pragma once

#include <optional>

#include "dcps/entity_impl.h"
#include "meridian/subscriber.h"
#include "platform/mutex.h"

namespace meridian::dcps {

class ParticipantImpl;

/// A subscriber of the user's. Owned by its participant.
class SubscriberImpl final : public EntityImpl<DDSSubscriber> {
  public:
    SubscriberImpl(ParticipantImpl& participant, const rtps::Guid& guid, const DDS_SubscriberQos& qos);
    ~SubscriberImpl() override = default;

    DDS_ReturnCode_t enable() override;
    DDS_ReturnCode_t get_qos(DDS_SubscriberQos& qos) override;
    DDS_ReturnCode_t set_qos(const DDS_SubscriberQos& qos) override;
    DDSDomainParticipant* get_participant() override;
    DDSDataReader* lookup_datareader(const char* topic_name) override;
    /// The participant's default as long as none was set here.
    DDS_ReturnCode_t get_default_datareader_qos(DDS_DataReaderQos& qos) override;
    DDS_ReturnCode_t set_default_datareader_qos(const DDS_DataReaderQos& qos) override;
    DDS_ReturnCode_t get_default_datareader_qos_w_topic_name(DDS_DataReaderQos& qos,
                                                             const char* topic_name) override;

  private:
    ParticipantImpl& participant_;
    Mutex mutex_;
    DDS_SubscriberQos qos_ MERIDIAN_GUARDED_BY(mutex_);
    std::optional<DDS_DataReaderQos> default_reader_qos_ MERIDIAN_GUARDED_BY(mutex_);
};

} // namespace meridian::dcps
