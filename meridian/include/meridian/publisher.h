#pragma once

// The writing side: what typed writers write through (typed_entities.h). A program that only watches needs
// none of it; it is complete so that the type supports of such a program have real writers behind them, and
// so that tests have a peer.

#include "meridian/data_writer.h"
#include "meridian/entity.h"
#include "meridian/qos.h"

class DDSDomainParticipant;
class DDSTopic;

class DDSPublisher : public DDSEntity {
  public:
    virtual DDS_ReturnCode_t get_qos(DDS_PublisherQos& qos) = 0;
    virtual DDS_ReturnCode_t set_qos(const DDS_PublisherQos& qos) = 0;
    virtual DDSDomainParticipant* get_participant() = 0;
    /// A writer of the topic of that name, or null.
    virtual DDSDataWriter* lookup_datawriter(const char* topic_name) = 0;
    /// A writer of the topic's type, made by the type support that was registered with it. Owned by the
    /// publisher until deleted. Null when the topic is not of this participant, its plugin does not
    /// serialize, the QoS contradicts itself or memory is short (the logger says which). The listener must be
    /// null: writers tell their statuses by their status condition.
    virtual DDSDataWriter* create_datawriter(DDSTopic* topic, const DDS_DataWriterQos& qos,
                                             DDSDataWriterListener* listener, DDS_StatusMask mask) = 0;
    /// No other thread may use the writer any more. What readers have not acknowledged is lost to them.
    /// DDS_RETCODE_PRECONDITION_NOT_MET for a writer of another publisher.
    virtual DDS_ReturnCode_t delete_datawriter(DDSDataWriter* writer) = 0;

  protected:
    ~DDSPublisher() override = default;
};
