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

DDS_StatusMask StatusCondition::changes() const {
    MutexLock lock(mutex_);
    return changes_;
}

void StatusCondition::set_changed(DDS_StatusMask statuses) {
    MutexLock lock(mutex_);
    changes_ |= statuses;
    update();
}

void StatusCondition::set_read(DDS_StatusMask statuses) {
    MutexLock lock(mutex_);
    changes_ &= ~statuses;
    update();
}

/// Within the lock, so that the trigger value never lags behind the masks.
void StatusCondition::update() {
    if (core_ != nullptr)
        core_->set_triggered(triggered());
}

} // namespace meridian::dcps
