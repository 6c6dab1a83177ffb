// Copies of the QoS records that own strings.

#include "meridian/qos.h"
#include "meridian/string.h"

DDS_EntityNameQosPolicy::DDS_EntityNameQosPolicy(const DDS_EntityNameQosPolicy& other) {
    *this = other;
}

DDS_EntityNameQosPolicy& DDS_EntityNameQosPolicy::operator=(const DDS_EntityNameQosPolicy& other) {
    DDS_SequenceElement<char*>::copy(name, other.name);
    DDS_SequenceElement<char*>::copy(role_name, other.role_name);
    return *this;
}

DDS_EntityNameQosPolicy::~DDS_EntityNameQosPolicy() {
    DDS_String_free(name);
    DDS_String_free(role_name);
}
