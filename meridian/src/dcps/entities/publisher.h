#pragma once

#include <memory>
#include <vector>

#include "dcps/common/entity_impl.h"
#include "dcps/endpoints/owned_endpoint.h"
#include "dcps/writer/user_writer.h"
#include "meridian/publisher.h"
#include "platform/mutex.h"

namespace meridian::dcps {

class ParticipantImpl;

using OwnedWriter = OwnedEndpoint<UserWriter, DDSDataWriter>;

/// A publisher of the user's. Owned by its participant.
class PublisherImpl final : public EntityImpl<DDSPublisher> {
  public:
    PublisherImpl(ParticipantImpl& participant, const rtps::Guid& guid, const DDS_PublisherQos& qos);
    ~PublisherImpl() override = default;

    /// Starts a writer of this publisher, which must be enabled.
    DDS_ReturnCode_t enable_writer(UserWriter& writer);
    bool has_writers();

    DDS_ReturnCode_t enable() override;
    DDS_ReturnCode_t get_qos(DDS_PublisherQos& qos) override;
    DDS_ReturnCode_t set_qos(const DDS_PublisherQos& qos) override;
    DDSDomainParticipant* get_participant() override;
    DDSDataWriter* lookup_datawriter(const char* topic_name) override;
    DDSDataWriter* create_datawriter(DDSTopic* topic, const DDS_DataWriterQos& qos,
                                     DDSDataWriterListener* listener, DDS_StatusMask mask) override;
    DDS_ReturnCode_t delete_datawriter(DDSDataWriter* writer) override;
    DDS_ReturnCode_t get_default_datawriter_qos(DDS_DataWriterQos& qos) override;
    DDS_ReturnCode_t set_default_datawriter_qos(const DDS_DataWriterQos& qos) override;

  private:
    DDS_ReturnCode_t start(UserWriter& writer) MERIDIAN_REQUIRES(mutex_);

    ParticipantImpl& participant_;
    Mutex mutex_;
    DDS_PublisherQos qos_ MERIDIAN_GUARDED_BY(mutex_);
    DDS_DataWriterQos default_writer_qos_ MERIDIAN_GUARDED_BY(mutex_);
    std::vector<std::unique_ptr<OwnedWriter>> writers_ MERIDIAN_GUARDED_BY(mutex_);
};

} // namespace meridian::dcps
