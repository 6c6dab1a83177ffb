#include "dcps/conditions/status_condition.h"

namespace meridian::dcps {

StatusCondition::StatusCondition(DDSEntity* entity) : entity_(entity) {}

StatusCondition::~StatusCondition() {
    if (core_ != nullptr)
        core_->close();
}

std::shared_ptr<ConditionCore> StatusCondition::core() {
    MutexLock lock(mutex_);
    if (core_ == nullptr) {
        core_ = std::make_shared<ConditionCore>(this);
        has_core_ = true;
        update();
    }
    return core_;
}

DDS_Boolean StatusCondition::get_trigger_value() {
    MutexLock lock(mutex_);
    return triggered();
}

DDS_ReturnCode_t StatusCondition::set_enabled_statuses(DDS_StatusMask mask) {
    MutexLock lock(mutex_);
    enabled_ = mask;
    update();
    return DDS_RETCODE_OK;
}

void StatusCondition::set_changed(DDS_StatusMask statuses) {
    if ((statuses & ~changes_) == 0)
        return;
    changes_ |= statuses;
    update_core();
}

void StatusCondition::set_read(DDS_StatusMask statuses) {
    if ((statuses & changes_) == 0)
        return;
    changes_ &= ~statuses;
    update_core();
}

void StatusCondition::update_core() {
    if (!has_core_)
        return;
    MutexLock lock(mutex_);
    update();
}

/// Within the lock, so that the trigger value never lags behind the masks for long.
void StatusCondition::update() {
    if (core_ != nullptr)
        core_->set_triggered(triggered());
}

} // namespace meridian::dcps
