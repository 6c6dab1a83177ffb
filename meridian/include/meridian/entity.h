#pragma once

// Base of all entities (OMG DDS 1.4, 2.2.2.1.1).

#include "meridian/base.h"
#include "meridian/guid.h"
#include "meridian/status.h"

class DDSStatusCondition;

/// Entities belong to the entity that created them and are deleted through it. Operations may be called on
/// any thread except where one says otherwise.
class DDSEntity {
  public:
    DDSEntity(const DDSEntity&) = delete;
    DDSEntity& operator=(const DDSEntity&) = delete;

    /// Enables; succeeds at once when already enabled. DDS_RETCODE_PRECONDITION_NOT_MET while the parent is
    /// not.
    virtual DDS_ReturnCode_t enable() = 0;
    /// Owned by the entity; valid as long as it is.
    virtual DDSStatusCondition* get_statuscondition() = 0;
    virtual DDS_StatusMask get_status_changes() = 0;
    /// The GUID of the entity as a handle.
    virtual DDS_InstanceHandle_t get_instance_handle() = 0;

  protected:
    DDSEntity() = default;
    virtual ~DDSEntity() = default;
};
