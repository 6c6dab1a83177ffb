#pragma once

// The inside of DDSWaitSet, for conditions that report to it.

#include <memory>
#include <vector>

#include "meridian/condition.h"
#include "platform/mutex.h"

namespace meridian::dcps {
class ConditionCore;
}

/// Keeps the last known trigger value of each attached condition, so that a wait needs no lock but its own.
/// Lock order: condition, wait set. Any thread.
class DDSWaitSet::Impl {
  public:
    /// What a condition reports about itself; called by its core with the core locked.
    void add(DDSCondition* condition, const std::shared_ptr<meridian::dcps::ConditionCore>& core,
             bool triggered) MERIDIAN_EXCLUDES(mutex_);
    void remove(const DDSCondition* condition) MERIDIAN_EXCLUDES(mutex_);
    void set_triggered(const DDSCondition* condition, bool triggered) MERIDIAN_EXCLUDES(mutex_);

    /// The core of an attached condition, or null. The condition itself is not touched: it may be gone.
    std::shared_ptr<meridian::dcps::ConditionCore> core_of(const DDSCondition* condition)
        MERIDIAN_EXCLUDES(mutex_);

    DDS_ReturnCode_t wait(DDSConditionSeq& active, const DDS_Duration_t& timeout) MERIDIAN_EXCLUDES(mutex_);

  private:
    struct Attached {
        DDSCondition* condition;
        std::shared_ptr<meridian::dcps::ConditionCore> core;
        bool triggered;
    };
    using Iterator = std::vector<Attached>::iterator;

    Iterator find(const DDSCondition* condition) MERIDIAN_REQUIRES(mutex_);
    bool any_triggered() const MERIDIAN_REQUIRES(mutex_);

    meridian::Mutex mutex_;
    meridian::ConditionVariable woken_;
    std::vector<Attached> attached_ MERIDIAN_GUARDED_BY(mutex_); // in order of attachment
    bool waiting_ MERIDIAN_GUARDED_BY(mutex_) = false;
};
