#pragma once

// Name and value pairs of an entity's QoS.

#include "meridian/base.h"
#include "meridian/sequence.h"

/// Both strings are owned by the record.
struct DDS_Property_t {
    char* name = nullptr;
    char* value = nullptr;
    DDS_Boolean propagate = false; // announced to other participants

    DDS_Property_t() = default;
    DDS_Property_t(const DDS_Property_t& other);
    DDS_Property_t& operator=(const DDS_Property_t& other);
    ~DDS_Property_t();
};

struct DDS_PropertyQosPolicy {
    DDS_Sequence<DDS_Property_t> value;
};

/// Adds; DDS_RETCODE_PRECONDITION_NOT_MET when the name is present, DDS_RETCODE_BAD_PARAMETER for null or
/// empty names.
DDS_ReturnCode_t DDS_PropertyQosPolicyHelper_add_property(DDS_PropertyQosPolicy& policy, const char* name,
                                                          const char* value, DDS_Boolean propagate);
/// Adds, or replaces value and propagation where the name is present.
DDS_ReturnCode_t DDS_PropertyQosPolicyHelper_assert_property(DDS_PropertyQosPolicy& policy, const char* name,
                                                             const char* value, DDS_Boolean propagate);
/// DDS_RETCODE_PRECONDITION_NOT_MET when the name is absent.
DDS_ReturnCode_t DDS_PropertyQosPolicyHelper_remove_property(DDS_PropertyQosPolicy& policy, const char* name);
/// The property of that name, or null. Valid until the policy changes.
const DDS_Property_t* DDS_PropertyQosPolicyHelper_lookup_property(const DDS_PropertyQosPolicy& policy,
                                                                  const char* name);
