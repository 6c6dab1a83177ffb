#pragma once

// Conditions and wait sets (OMG DDS 1.4, 2.2.2.1.6 to 2.2.2.1.9).

#include <memory>

#include "meridian/base.h"
#include "meridian/sequence.h"
#include "meridian/status.h"
#include "meridian/time.h"

class DDSEntity;

class DDSCondition {
  public:
    virtual DDS_Boolean get_trigger_value() = 0;

  protected:
    virtual ~DDSCondition() = default;
};
using DDSConditionSeq = DDS_Sequence<DDSCondition*>;

/// Triggered while one of the enabled statuses of its entity has changed and was not read or taken since.
class DDSStatusCondition : public DDSCondition {
  public:
    virtual DDS_ReturnCode_t set_enabled_statuses(DDS_StatusMask mask) = 0;
    /// The entity that owns this condition.
    virtual DDSEntity* get_entity() = 0;
};

/// Waits for conditions. Conditions are not owned; one that is destroyed while attached detaches itself. One
/// thread waits at a time; attach and detach may be called on any thread.
class DDSWaitSet {
  public:
    DDSWaitSet();
    ~DDSWaitSet();
    DDSWaitSet(const DDSWaitSet&) = delete;
    DDSWaitSet& operator=(const DDSWaitSet&) = delete;

    /// Attaching twice succeeds and changes nothing. DDS_RETCODE_BAD_PARAMETER for null.
    DDS_ReturnCode_t attach_condition(DDSCondition* condition);
    /// DDS_RETCODE_PRECONDITION_NOT_MET when the condition is not attached.
    DDS_ReturnCode_t detach_condition(DDSCondition* condition);
    /// Blocks until a condition triggers or the time-out passes; a signal does not end the wait. Fills
    /// `active` with the triggered conditions, in order of attachment. DDS_RETCODE_TIMEOUT (and `active`
    /// empty) when none did, DDS_RETCODE_PRECONDITION_NOT_MET while another thread waits.
    DDS_ReturnCode_t wait(DDSConditionSeq& active, const DDS_Duration_t& timeout);

    class Impl;

  private:
    std::shared_ptr<Impl> impl_;
};
