#pragma once

// What conditions and wait sets share: a trigger value that is pushed to every wait set it is attached to.

#include <memory>
#include <vector>

#include "meridian/condition.h"
#include "platform/mutex.h"

namespace meridian::dcps {

/// Outlives its condition while a wait set still knows it. Any thread. Lock order: core, wait set.
class ConditionCore : public std::enable_shared_from_this<ConditionCore> {
  public:
    explicit ConditionCore(DDSCondition* condition) : condition_(condition) {}

    /// Attaching twice changes nothing; nothing happens after close.
    void attach(const std::shared_ptr<DDSWaitSet::Impl>& wait_set);
    /// False when it was not attached.
    bool detach(const std::shared_ptr<DDSWaitSet::Impl>& wait_set);
    /// The condition is about to be destroyed: detaches from every wait set.
    void close();

    /// True while it is attached to a wait set.
    bool is_attached() const;

    bool triggered() const;
    void set_triggered(bool triggered);

  private:
    using WaitSets = std::vector<std::weak_ptr<DDSWaitSet::Impl>>;

    WaitSets::iterator find(const std::shared_ptr<DDSWaitSet::Impl>& wait_set) MERIDIAN_REQUIRES(mutex_);

    mutable Mutex mutex_;
    DDSCondition* condition_ MERIDIAN_GUARDED_BY(mutex_); // null after close
    bool triggered_ MERIDIAN_GUARDED_BY(mutex_) = false;
    WaitSets wait_sets_ MERIDIAN_GUARDED_BY(mutex_);
};

/// Every condition of this library is one.
class AttachableCondition {
  public:
    virtual std::shared_ptr<ConditionCore> core() = 0;

  protected:
    ~AttachableCondition() = default;
};

} // namespace meridian::dcps
