#pragma once

#include <variant>

#include "meridian/entity.h"
#include "meridian/listener.h"
#include "meridian/qos.h"
#include "meridian/sample_info.h"

class DDSSubscriber;
class DDSTopicDescription;
struct DDS_ParticipantBuiltinTopicData;

/// Where a status of a reader is to be put.
using DDSReaderStatus = std::variant<DDS_RequestedDeadlineMissedStatus*, DDS_RequestedIncompatibleQosStatus*,
                                     DDS_LivelinessChangedStatus*, DDS_SampleLostStatus*,
                                     DDS_SampleRejectedStatus*, DDS_SubscriptionMatchedStatus*>;

/// What every reader offers; reading itself is typed and stands in the derived classes.
class DDSDataReader : public DDSEntity {
  public:
    virtual DDS_ReturnCode_t get_qos(DDS_DataReaderQos& qos) = 0;
    /// Refuses changes of policies that cannot change any more (DDS_RETCODE_IMMUTABLE_POLICY) and values that
    /// contradict each other (DDS_RETCODE_INCONSISTENT_POLICY).
    virtual DDS_ReturnCode_t set_qos(const DDS_DataReaderQos& qos) = 0;
    virtual DDSTopicDescription* get_topicdescription() = 0;
    virtual DDSSubscriber* get_subscriber() = 0;
    /// Data of the remote participant that owns the remote endpoint `publication_handle`. The out record is
    /// the caller's. DDS_RETCODE_BAD_PARAMETER for a handle that is not known; a participant that is gone
    /// stays known until the samples that report its endpoints gone were taken.
    virtual DDS_ReturnCode_t get_matched_publication_participant_data(
        DDS_ParticipantBuiltinTopicData& data, const DDS_InstanceHandle_t& publication_handle) = 0;

    // The statuses. Reading one resets its change counters and its bit in get_status_changes.
    /// Readers that match nothing, such as those of builtin topics, report zeros.
    virtual DDS_ReturnCode_t read_status(const DDSReaderStatus& status) {
        std::visit([](auto* out) { *out = {}; }, status);
        return DDS_RETCODE_OK;
    }
    DDS_ReturnCode_t get_subscription_matched_status(DDS_SubscriptionMatchedStatus& status) {
        return read_status(&status);
    }
    /// Which policies of a writer and its publisher do not fit those of this reader (OMG DDS 1.4, 2.2.3), and
    /// what each of both says, in words. Partitions count unless the writer's are patterns only. Empty where
    /// all fit; the string is the caller's (DDS_String_free), null when memory is short.
    virtual char* describe_incompatibility(const DDS_EndpointPolicies& /*writer*/,
                                           const DDS_GroupPolicies& /*publisher*/) {
        return DDS_String_dup("");
    }

  protected:
    ~DDSDataReader() override = default;
};
