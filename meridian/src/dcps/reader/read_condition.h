#pragma once

#include <memory>

#include "dcps/conditions/condition_core.h"
#include "dcps/reader/reader_cache.h"
#include "meridian/untyped_entities.h"

namespace meridian::dcps {

/// Owned by its reader, which keeps the trigger value.
class ReadCondition final : public DDSReadCondition, public AttachableCondition {
  public:
    ReadCondition(DDSDataReader* reader, const ReaderCache::Selection& selection)
        : reader_(reader), selection_(selection), core_(std::make_shared<ConditionCore>(this)) {}
    ~ReadCondition() override { core_->close(); }

    DDS_Boolean get_trigger_value() override { return core_->triggered(); }
    DDS_SampleStateMask get_sample_state_mask() override { return selection_.sample_states; }
    DDS_ViewStateMask get_view_state_mask() override { return selection_.view_states; }
    DDS_InstanceStateMask get_instance_state_mask() override { return selection_.instance_states; }
    DDSDataReader* get_datareader() override { return reader_; }

    std::shared_ptr<ConditionCore> core() override { return core_; }
    const ReaderCache::Selection& selection() const { return selection_; }

  private:
    DDSDataReader* const reader_;
    const ReaderCache::Selection selection_;
    const std::shared_ptr<ConditionCore> core_;
};

} // namespace meridian::dcps
