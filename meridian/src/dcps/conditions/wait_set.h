#pragma once

// The inside of DDSWaitSet, for conditions that report to it.

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "meridian/condition.h"
#include "platform/mutex.h"

namespace meridian::dcps {
class ConditionCore;
}

/// Keeps the last known trigger value of each attached condition, so that a wait needs no lock but its own.
/// What a condition reports costs the same however many are attached. Lock order: condition, wait set. Any
/// thread.
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
        uint64_t order;
        bool triggered = false;
        size_t place = 0; // in triggered_
    };

    void set_triggered(Attached& attached, bool triggered) MERIDIAN_REQUIRES(mutex_);

    meridian::Mutex mutex_;
    meridian::ConditionVariable woken_;
    std::unordered_map<const DDSCondition*, Attached> attached_ MERIDIAN_GUARDED_BY(mutex_);
    std::vector<Attached*> triggered_ MERIDIAN_GUARDED_BY(mutex_);
    uint64_t attachments_ MERIDIAN_GUARDED_BY(mutex_) = 0;
    bool waiting_ MERIDIAN_GUARDED_BY(mutex_) = false;
};
