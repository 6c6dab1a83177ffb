#include "dcps/conditions/wait_set.h"

#include <algorithm>

#include "dcps/conditions/condition_core.h"
#include "platform/clock.h"

using meridian::MutexLock;
using meridian::dcps::ConditionCore;

void DDSWaitSet::Impl::add(DDSCondition* condition, const std::shared_ptr<ConditionCore>& core,
                           bool triggered) {
    MutexLock lock(mutex_);
    const auto [place, fresh] = attached_.insert({condition, Attached{condition, core, attachments_}});
    if (!fresh)
        return;
    ++attachments_;
    set_triggered(place->second, triggered);
}

void DDSWaitSet::Impl::remove(const DDSCondition* condition) {
    MutexLock lock(mutex_);
    const auto found = attached_.find(condition);
    if (found == attached_.end())
        return;
    set_triggered(found->second, false);
    attached_.erase(found);
}

void DDSWaitSet::Impl::set_triggered(const DDSCondition* condition, bool triggered) {
    MutexLock lock(mutex_);
    const auto found = attached_.find(condition);
    if (found != attached_.end())
        set_triggered(found->second, triggered);
}

void DDSWaitSet::Impl::set_triggered(Attached& attached, bool triggered) {
    if (triggered == attached.triggered)
        return;
    attached.triggered = triggered;
    if (triggered) {
        attached.place = triggered_.size();
        triggered_.push_back(&attached);
        woken_.notify_all();
    } else {
        triggered_.back()->place = attached.place;
        triggered_[attached.place] = triggered_.back();
        triggered_.pop_back();
    }
}

std::shared_ptr<ConditionCore> DDSWaitSet::Impl::core_of(const DDSCondition* condition) {
    MutexLock lock(mutex_);
    const auto found = attached_.find(condition);
    return found != attached_.end() ? found->second.core : nullptr;
}

DDS_ReturnCode_t DDSWaitSet::Impl::wait(DDSConditionSeq& active, const DDS_Duration_t& timeout) {
    const auto deadline = meridian::deadline_after(meridian::monotonic_now(), timeout);
    if (!active.has_ownership())
        return DDS_RETCODE_BAD_PARAMETER;
    active.length(0);
    MutexLock lock(mutex_);
    if (waiting_)
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    waiting_ = true;
    while (triggered_.empty() && woken_.wait_until(mutex_, deadline)) {
    }
    waiting_ = false;
    std::sort(triggered_.begin(), triggered_.end(),
              [](const Attached* a, const Attached* b) { return a->order < b->order; });
    for (size_t i = 0; i < triggered_.size(); ++i)
        triggered_[i]->place = i;
    for (const Attached* attached : triggered_) {
        if (!active.append(attached->condition))
            return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    return active.length() > 0 ? DDS_RETCODE_OK : DDS_RETCODE_TIMEOUT;
}

DDSWaitSet::DDSWaitSet() : impl_(std::make_shared<Impl>()) {}

// Conditions hold the inside weakly and drop it when they next report.
DDSWaitSet::~DDSWaitSet() = default;

DDS_ReturnCode_t DDSWaitSet::attach_condition(DDSCondition* condition) {
    auto* attachable = dynamic_cast<meridian::dcps::AttachableCondition*>(condition);
    if (attachable == nullptr)
        return DDS_RETCODE_BAD_PARAMETER;
    attachable->core()->attach(impl_);
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t DDSWaitSet::detach_condition(DDSCondition* condition) {
    if (condition == nullptr)
        return DDS_RETCODE_BAD_PARAMETER;
    const std::shared_ptr<ConditionCore> core = impl_->core_of(condition);
    return core != nullptr && core->detach(impl_) ? DDS_RETCODE_OK : DDS_RETCODE_PRECONDITION_NOT_MET;
}

DDS_ReturnCode_t DDSWaitSet::wait(DDSConditionSeq& active, const DDS_Duration_t& timeout) {
    return impl_->wait(active, timeout);
}
