#include "meridian/builtin_topics.h"

DDS_EndpointNames::DDS_EndpointNames(const DDS_EndpointNames& other) {
    *this = other;
}

DDS_EndpointNames& DDS_EndpointNames::operator=(const DDS_EndpointNames& other) {
    DDS_SequenceElement<char*>::copy(topic_name, other.topic_name);
    DDS_SequenceElement<char*>::copy(type_name, other.type_name);
    return *this;
}

DDS_EndpointNames::~DDS_EndpointNames() {
    DDS_String_free(topic_name);
    DDS_String_free(type_name);
}
