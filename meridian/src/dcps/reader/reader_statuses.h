#pragma once

// The communication statuses of one reader: counters, what changed since it was last told, and what goes to a
// listener. Not thread-safe; the reader that owns it locks.

#include <map>
#include <vector>

#include "meridian/status.h"
#include "rtps/wire/types.h"

namespace meridian::dcps {

class ReaderStatuses {
  public:
    // What happened. Each returns the status bit that changed, 0 for none.
    DDS_StatusMask writer_matched(const rtps::Guid& writer);
    DDS_StatusMask writer_unmatched(const rtps::Guid& writer);
    /// Only matched writers count.
    DDS_StatusMask writer_alive(const rtps::Guid& writer, bool alive);
    DDS_StatusMask incompatible(const std::vector<uint32_t>& policies);
    DDS_StatusMask deadline_missed(const DDS_InstanceHandle_t& instance);
    DDS_StatusMask samples_lost(uint64_t count);
    DDS_StatusMask sample_rejected(DDS_SampleRejectedStatusKind reason, const DDS_InstanceHandle_t& instance);

    // Read a status, which resets its changes.
    DDS_RequestedDeadlineMissedStatus take_deadline_missed();
    DDS_RequestedIncompatibleQosStatus take_incompatible();
    DDS_LivelinessChangedStatus take_liveliness();
    DDS_SampleLostStatus take_lost();
    DDS_SampleRejectedStatus take_rejected();
    DDS_SubscriptionMatchedStatus take_matched();

    const std::map<rtps::Guid, bool>& writers() const { return writers_; }

  private:
    std::map<rtps::Guid, bool> writers_; // matched, and whether alive
    DDS_RequestedDeadlineMissedStatus deadline_;
    DDS_RequestedIncompatibleQosStatus incompatible_;
    DDS_LivelinessChangedStatus liveliness_;
    DDS_SampleLostStatus lost_;
    DDS_SampleRejectedStatus rejected_;
    DDS_SubscriptionMatchedStatus matched_;
};

} // namespace meridian::dcps
