#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "dcps/common/entity_impl.h"
#include "dcps/endpoints/owned_endpoint.h"
#include "dcps/reader/user_reader.h"
#include "meridian/subscriber.h"
#include "platform/mutex.h"

namespace meridian::dcps {

class ParticipantImpl;

using OwnedReader = OwnedEndpoint<UserReader, DDSDataReader>;
using OwnedReaders = std::vector<std::unique_ptr<OwnedReader>>;

/// A subscriber of the user's. Owned by its participant.
class SubscriberImpl final : public EntityImpl<DDSSubscriber> {
  public:
    SubscriberImpl(ParticipantImpl& participant, const rtps::Guid& guid, const DDS_SubscriberQos& qos);
    ~SubscriberImpl() override = default;

    /// Starts a reader; the subscriber must be enabled.
    DDS_ReturnCode_t enable_reader(UserReader& reader);
    bool has_readers();
    /// Hands over all readers, for their end outside of any lock.
    OwnedReaders release_readers();
    /// What the application is told of remote publications.
    discovery::EndpointCache& publications() const;
    DDS_ReturnCode_t participant_of_endpoint(DDS_ParticipantBuiltinTopicData& data,
                                             const DDS_InstanceHandle_t& endpoint);

    DDS_ReturnCode_t enable() override;
    DDS_ReturnCode_t get_qos(DDS_SubscriberQos& qos) override;
    DDS_ReturnCode_t set_qos(const DDS_SubscriberQos& qos) override;
    DDSDomainParticipant* get_participant() override;
    DDSDataReader* lookup_datareader(const char* topic_name) override;
    DDSDataReader* create_datareader(DDSTopicDescription* topic, const DDS_DataReaderQos& qos,
                                     DDSDataReaderListener* listener, DDS_StatusMask mask) override;
    DDS_ReturnCode_t delete_datareader(DDSDataReader* reader) override;
    /// The participant's default as long as none was set here.
    DDS_ReturnCode_t get_default_datareader_qos(DDS_DataReaderQos& qos) override;
    DDS_ReturnCode_t set_default_datareader_qos(const DDS_DataReaderQos& qos) override;
    DDS_ReturnCode_t get_default_datareader_qos_w_topic_name(DDS_DataReaderQos& qos,
                                                             const char* topic_name) override;

  private:
    DDS_ReturnCode_t start(UserReader& reader) MERIDIAN_REQUIRES(mutex_);

    ParticipantImpl& participant_;
    Mutex mutex_;
    DDS_SubscriberQos qos_ MERIDIAN_GUARDED_BY(mutex_);
    std::optional<DDS_DataReaderQos> default_reader_qos_ MERIDIAN_GUARDED_BY(mutex_);
    OwnedReaders readers_ MERIDIAN_GUARDED_BY(mutex_);
};

} // namespace meridian::dcps
