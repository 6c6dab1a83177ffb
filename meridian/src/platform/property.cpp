#include "meridian/property.h"

#include <cstring>

namespace {

/// The index of the property of that name, or -1. Names that are null match nothing.
DDS_Long index_of(const DDS_PropertyQosPolicy& policy, const char* name) {
    for (DDS_Long i = 0; name != nullptr && i < policy.value.length(); ++i) {
        const char* candidate = policy.value[i].name;
        if (candidate != nullptr && std::strcmp(candidate, name) == 0)
            return i;
    }
    return -1;
}

bool is_usable(const char* name, const char* value) {
    return name != nullptr && name[0] != '\0' && value != nullptr;
}

} // namespace

DDS_Property_t::DDS_Property_t(const DDS_Property_t& other) {
    *this = other;
}

DDS_Property_t& DDS_Property_t::operator=(const DDS_Property_t& other) {
    DDS_SequenceElement<char*>::copy(name, other.name);
    DDS_SequenceElement<char*>::copy(value, other.value);
    propagate = other.propagate;
    return *this;
}

DDS_Property_t::~DDS_Property_t() {
    DDS_String_free(name);
    DDS_String_free(value);
}

DDS_ReturnCode_t DDS_PropertyQosPolicyHelper_add_property(DDS_PropertyQosPolicy& policy, const char* name,
                                                          const char* value, DDS_Boolean propagate) {
    if (!is_usable(name, value))
        return DDS_RETCODE_BAD_PARAMETER;
    if (index_of(policy, name) >= 0)
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    DDS_Property_t property;
    property.name = DDS_String_dup(name);
    property.value = DDS_String_dup(value);
    property.propagate = propagate;
    if (property.name == nullptr || property.value == nullptr || !policy.value.append(property))
        return DDS_RETCODE_OUT_OF_RESOURCES;
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t DDS_PropertyQosPolicyHelper_assert_property(DDS_PropertyQosPolicy& policy, const char* name,
                                                             const char* value, DDS_Boolean propagate) {
    if (!is_usable(name, value))
        return DDS_RETCODE_BAD_PARAMETER;
    const DDS_Long index = index_of(policy, name);
    if (index < 0)
        return DDS_PropertyQosPolicyHelper_add_property(policy, name, value, propagate);
    DDS_Property_t& property = policy.value[index];
    // The caller may have passed the old value: it goes when the copy is there.
    if (!DDS_SequenceElement<char*>::copy(property.value, const_cast<char*>(value)))
        return DDS_RETCODE_OUT_OF_RESOURCES;
    property.propagate = propagate;
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t DDS_PropertyQosPolicyHelper_remove_property(DDS_PropertyQosPolicy& policy,
                                                             const char* name) {
    if (name == nullptr || name[0] == '\0')
        return DDS_RETCODE_BAD_PARAMETER;
    const DDS_Long index = index_of(policy, name);
    if (index < 0)
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    const DDS_Long last = policy.value.length() - 1;
    for (DDS_Long i = index; i < last; ++i) {
        std::swap(policy.value[i].name, policy.value[i + 1].name);
        std::swap(policy.value[i].value, policy.value[i + 1].value);
        std::swap(policy.value[i].propagate, policy.value[i + 1].propagate);
    }
    policy.value.length(last);
    return DDS_RETCODE_OK;
}

const DDS_Property_t* DDS_PropertyQosPolicyHelper_lookup_property(const DDS_PropertyQosPolicy& policy,
                                                                  const char* name) {
    const DDS_Long index = index_of(policy, name);
    return index < 0 ? nullptr : &policy.value[index];
}
