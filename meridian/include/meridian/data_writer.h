#pragma once

#include "meridian/entity.h"
#include "meridian/qos.h"
#include "meridian/sample_info.h"
#include "meridian/status.h"

class DDSDataWriterListener;
class DDSPublisher;
class DDSTopic;

/// What every writer offers; writing itself is typed and stands in the derived classes.
class DDSDataWriter : public DDSEntity {
  public:
    virtual DDS_ReturnCode_t get_qos(DDS_DataWriterQos& qos) = 0;
    /// As DDSDataReader::set_qos.
    virtual DDS_ReturnCode_t set_qos(const DDS_DataWriterQos& qos) = 0;
    virtual DDSTopic* get_topic() = 0;
    virtual DDSPublisher* get_publisher() = 0;
    /// Waits until every matched reliable reader has everything; DDS_RETCODE_TIMEOUT.
    virtual DDS_ReturnCode_t wait_for_acknowledgments(const DDS_Duration_t& max_wait) = 0;
    /// For the manual kinds of liveliness; writing does not assert them by participant.
    virtual DDS_ReturnCode_t assert_liveliness() = 0;

    // The statuses. Reading one resets its change counters and its bit in get_status_changes.
    virtual DDS_ReturnCode_t get_publication_matched_status(DDS_PublicationMatchedStatus& status) = 0;
    virtual DDS_ReturnCode_t get_offered_incompatible_qos_status(
        DDS_OfferedIncompatibleQosStatus& status) = 0;
    /// The readers matched at present, as handles. The sequence must own its buffer.
    virtual DDS_ReturnCode_t get_matched_subscriptions(DDS_InstanceHandleSeq& subscriptions) = 0;

  protected:
    ~DDSDataWriter() override = default;
};

/// Parameters of one write. Members that stay as constructed are chosen by the writer.
struct DDS_WriteParams_t {
    DDS_Time_t source_timestamp = DDS_TIME_INVALID;
    DDS_InstanceHandle_t handle{};
    DDS_SampleIdentity_t related_sample_identity;
    DDS_UnsignedLong flag = 0;
};
