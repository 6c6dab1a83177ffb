#pragma once

// The communication statuses of one writer. Not thread-safe; the writer that owns it locks.

#include <set>
#include <vector>

#include "meridian/status.h"
#include "rtps/wire/types.h"

namespace meridian::dcps {

class WriterStatuses {
  public:
    // What happened. Each returns the status bit that changed, 0 for none.
    DDS_StatusMask reader_matched(const rtps::Guid& reader);
    DDS_StatusMask reader_unmatched(const rtps::Guid& reader);
    DDS_StatusMask incompatible(const std::vector<uint32_t>& policies);

    // Read a status, which resets its changes.
    DDS_PublicationMatchedStatus take_matched();
    DDS_OfferedIncompatibleQosStatus take_incompatible();

    const std::set<rtps::Guid>& readers() const { return readers_; }

  private:
    std::set<rtps::Guid> readers_; // matched
    DDS_PublicationMatchedStatus matched_;
    DDS_OfferedIncompatibleQosStatus incompatible_;
};

} // namespace meridian::dcps
