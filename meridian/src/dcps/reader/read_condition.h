#pragma once

#include <memory>

#include "dcps/conditions/condition_core.h"
#include "dcps/reader/reader_cache.h"
#include "meridian/untyped_entities.h"

namespace meridian::dcps {

/// Owned by its reader, which keeps the trigger value.
class ReadCondition final : public DDSReadCondition, public AttachableCondition {
  public:
    explicit ReadCondition(const ReaderCache::Selection& selection)
        : selection_(selection), core_(std::make_shared<ConditionCore>(this)) {}
    ~ReadCondition() override { core_->close(); }

    DDS_Boolean get_trigger_value() override { return core_->triggered(); }
    std::shared_ptr<ConditionCore> core() override { return core_; }
    const ReaderCache::Selection& selection() const { return selection_; }

  private:
    const ReaderCache::Selection selection_;
    const std::shared_ptr<ConditionCore> core_;
};

} // namespace meridian::dcps
