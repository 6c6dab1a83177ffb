#include "dcps/conditions/condition_core.h"

#include <algorithm>

#include "dcps/conditions/wait_set.h"

namespace meridian::dcps {

void ConditionCore::attach(const std::shared_ptr<DDSWaitSet::Impl>& wait_set) {
    MutexLock lock(mutex_);
    if (condition_ == nullptr || find(wait_set) != wait_sets_.end())
        return;
    wait_sets_.push_back(wait_set);
    wait_set->add(condition_, shared_from_this(), triggered_);
}

bool ConditionCore::detach(const std::shared_ptr<DDSWaitSet::Impl>& wait_set) {
    MutexLock lock(mutex_);
    const auto found = find(wait_set);
    if (condition_ == nullptr || found == wait_sets_.end())
        return false;
    wait_sets_.erase(found);
    wait_set->remove(condition_);
    return true;
}

void ConditionCore::close() {
    MutexLock lock(mutex_);
    for (const auto& weak : wait_sets_) {
        if (const auto wait_set = weak.lock())
            wait_set->remove(condition_);
    }
    wait_sets_.clear();
    condition_ = nullptr;
}

bool ConditionCore::is_attached() const {
    MutexLock lock(mutex_);
    return std::any_of(wait_sets_.begin(), wait_sets_.end(),
                       [](const auto& wait_set) { return !wait_set.expired(); });
}

bool ConditionCore::triggered() const {
    MutexLock lock(mutex_);
    return triggered_;
}

void ConditionCore::set_triggered(bool triggered) {
    MutexLock lock(mutex_);
    if (triggered == triggered_)
        return;
    triggered_ = triggered;
    for (auto weak = wait_sets_.begin(); weak != wait_sets_.end();) {
        const auto wait_set = weak->lock();
        if (wait_set == nullptr) {
            weak = wait_sets_.erase(weak);
            continue;
        }
        wait_set->set_triggered(condition_, triggered);
        ++weak;
    }
}

ConditionCore::WaitSets::iterator ConditionCore::find(const std::shared_ptr<DDSWaitSet::Impl>& wait_set) {
    return std::find_if(wait_sets_.begin(), wait_sets_.end(),
                        [&wait_set](const auto& weak) { return weak.lock() == wait_set; });
}

} // namespace meridian::dcps
