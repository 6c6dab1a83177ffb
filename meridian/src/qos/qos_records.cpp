// Copies of the QoS records that own strings.

#include "meridian/qos.h"
#include "meridian/string.h"

DDS_EntityNameQosPolicy::DDS_EntityNameQosPolicy(const DDS_EntityNameQosPolicy& other)
    : name(DDS_String_dup(other.name)), role_name(DDS_String_dup(other.role_name)) {}

DDS_EntityNameQosPolicy& DDS_EntityNameQosPolicy::operator=(const DDS_EntityNameQosPolicy& other) {
    if (this != &other) {
        DDS_SequenceElement<char*>::copy(name, other.name);
        DDS_SequenceElement<char*>::copy(role_name, other.role_name);
    }
    return *this;
}

DDS_EntityNameQosPolicy::~DDS_EntityNameQosPolicy() {
    DDS_String_free(name);
    DDS_String_free(role_name);
}
