#pragma once

#include <atomic>
#include <memory>

#include "dcps/conditions/condition_core.h"
#include "meridian/condition.h"
#include "platform/mutex.h"

namespace meridian::dcps {

/// The statuses of an entity and the condition over them. Part of its entity. Any thread. Lock order: status
/// condition, condition core, wait set.
class StatusCondition final : public DDSStatusCondition, public AttachableCondition {
  public:
    explicit StatusCondition(DDSEntity* entity);
    ~StatusCondition() override;

    DDS_Boolean get_trigger_value() override;
    DDS_ReturnCode_t set_enabled_statuses(DDS_StatusMask mask) override;
    DDSEntity* get_entity() override { return entity_; }
    /// Made when it is first asked for: few are ever waited for.
    std::shared_ptr<ConditionCore> core() override MERIDIAN_EXCLUDES(mutex_);

    /// The statuses that have changed and were not read since.
    DDS_StatusMask changes() const { return changes_; }
    /// Cheap as long as no one waits.
    void set_changed(DDS_StatusMask statuses) MERIDIAN_EXCLUDES(mutex_);
    void set_read(DDS_StatusMask statuses) MERIDIAN_EXCLUDES(mutex_);

  private:
    bool triggered() const MERIDIAN_REQUIRES(mutex_) { return (enabled_ & changes_) != 0; }
    void update() MERIDIAN_REQUIRES(mutex_);
    void update_core() MERIDIAN_EXCLUDES(mutex_);

    DDSEntity* const entity_;
    mutable Mutex mutex_;
    std::shared_ptr<ConditionCore> core_ MERIDIAN_GUARDED_BY(mutex_);
    DDS_StatusMask enabled_ MERIDIAN_GUARDED_BY(mutex_) = DDS_STATUS_MASK_ALL;
    // Who changes the statuses looks for the core afterwards, and who makes the core looks at the statuses
    // afterwards: one of the two sees the other.
    std::atomic<DDS_StatusMask> changes_{DDS_STATUS_MASK_NONE};
    std::atomic<bool> has_core_{false};
};

} // namespace meridian::dcps
