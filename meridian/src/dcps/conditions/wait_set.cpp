#include "dcps/conditions/wait_set.h"

#include <algorithm>

#include "dcps/conditions/condition_core.h"
#include "platform/clock.h"

using meridian::MutexLock;
using meridian::dcps::ConditionCore;

void DDSWaitSet::Impl::add(DDSCondition* condition, const std::shared_ptr<ConditionCore>& core,
                           bool triggered) {
    MutexLock lock(mutex_);
    if (find(condition) != attached_.end())
        return;
    attached_.push_back({condition, core, triggered});
    if (triggered)
        woken_.notify_all();
}

void DDSWaitSet::Impl::remove(const DDSCondition* condition) {
    MutexLock lock(mutex_);
    const Iterator found = find(condition);
    if (found != attached_.end())
        attached_.erase(found);
}

void DDSWaitSet::Impl::set_triggered(const DDSCondition* condition, bool triggered) {
    MutexLock lock(mutex_);
    const Iterator found = find(condition);
    if (found == attached_.end())
        return;
    found->triggered = triggered;
    if (triggered)
        woken_.notify_all();
}

std::shared_ptr<ConditionCore> DDSWaitSet::Impl::core_of(const DDSCondition* condition) {
    MutexLock lock(mutex_);
    const Iterator found = find(condition);
    return found != attached_.end() ? found->core : nullptr;
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
    while (!any_triggered() && woken_.wait_until(mutex_, deadline)) {
    }
    waiting_ = false;
    for (const Attached& attached : attached_) {
        if (attached.triggered && !active.append(attached.condition))
            return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    return active.length() > 0 ? DDS_RETCODE_OK : DDS_RETCODE_TIMEOUT;
}

DDSWaitSet::Impl::Iterator DDSWaitSet::Impl::find(const DDSCondition* condition) {
    return std::find_if(attached_.begin(), attached_.end(),
                        [condition](const Attached& attached) { return attached.condition == condition; });
}

bool DDSWaitSet::Impl::any_triggered() const {
    return std::any_of(attached_.begin(), attached_.end(),
                       [](const Attached& attached) { return attached.triggered; });
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
