#include "meridian/builtin_topics.h"

namespace {

void replace_string(char*& target, const char* source) {
    char* copy = DDS_String_dup(source);
    DDS_String_free(target);
    target = copy;
}

} // namespace

DDS_EndpointNames::DDS_EndpointNames(const DDS_EndpointNames& other) {
    *this = other;
}

DDS_EndpointNames& DDS_EndpointNames::operator=(const DDS_EndpointNames& other) {
    replace_string(topic_name, other.topic_name);
    replace_string(type_name, other.type_name);
    return *this;
}

DDS_EndpointNames::~DDS_EndpointNames() {
    DDS_String_free(topic_name);
    DDS_String_free(type_name);
}
