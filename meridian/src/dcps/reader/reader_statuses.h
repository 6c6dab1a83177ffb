#pragma once

#include "dcps/endpoints/endpoint_statuses.h"
#include "meridian/data_reader.h"

namespace meridian::dcps {

/// Not thread-safe; the reader that owns it locks.
class ReaderStatuses
    : public EndpointStatuses<DDS_SubscriptionMatchedStatus, DDS_RequestedIncompatibleQosStatus,
                              DDS_RequestedDeadlineMissedStatus, DDS_LivelinessChangedStatus,
                              DDS_SampleLostStatus, DDS_SampleRejectedStatus> {
  public:
    // What happened. Each returns the status bits that changed, 0 for none.
    DDS_StatusMask writer_matched(const rtps::Guid& writer);
    DDS_StatusMask writer_unmatched(const rtps::Guid& writer);
    /// Only matched writers count.
    DDS_StatusMask writer_alive(const rtps::Guid& writer, bool alive);
    DDS_StatusMask deadline_missed(const DDS_InstanceHandle_t& instance);
    DDS_StatusMask samples_lost(uint64_t count);
    DDS_StatusMask sample_rejected(DDS_SampleRejectedStatusKind reason, const DDS_InstanceHandle_t& instance);

    /// Reads a status, which resets its changes. Returns its bit.
    DDS_StatusMask take(const DDSReaderStatus& status);

  private:
    /// So many more writers are alive, and so many more are not.
    void count_alive(const rtps::Guid& writer, DDS_Long alive, DDS_Long not_alive);
};

} // namespace meridian::dcps
