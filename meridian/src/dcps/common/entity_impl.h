#pragma once

#include <atomic>

#include "dcps/conditions/status_condition.h"
#include "discovery/conversions.h"
#include "meridian/entity.h"
#include "rtps/wire/types.h"

namespace meridian::dcps {

/// The part of an entity class that all share. Interface is DDSEntity or derived from it.
template <typename Interface>
class EntityImpl : public Interface {
  public:
    explicit EntityImpl(const rtps::Guid& guid) : guid_(guid) {}

    DDSStatusCondition* get_statuscondition() override { return &status_condition_; }
    DDS_StatusMask get_status_changes() override { return status_condition_.changes(); }
    DDS_InstanceHandle_t get_instance_handle() override { return discovery::to_handle(guid_); }

    const rtps::Guid& guid() const { return guid_; }
    bool is_enabled() const { return enabled_.load(std::memory_order_acquire); }

  protected:
    ~EntityImpl() override = default;

    void set_enabled() { enabled_.store(true, std::memory_order_release); }
    StatusCondition& status_condition() { return status_condition_; }

  private:
    const rtps::Guid guid_;
    std::atomic<bool> enabled_{false};
    StatusCondition status_condition_{this};
};

} // namespace meridian::dcps
