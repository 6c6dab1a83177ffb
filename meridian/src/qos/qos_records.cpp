// Copies of the QoS records that own strings.

#include "meridian/builtin_topics.h"
#include "meridian/qos.h"

namespace {

void replace(char*& target, const char* source) {
    char* copy = DDS_String_dup(source);
    DDS_String_free(target);
    target = copy;
}

} // namespace

DDS_EntityNameQosPolicy::DDS_EntityNameQosPolicy(const DDS_EntityNameQosPolicy& other)
    : name(DDS_String_dup(other.name)), role_name(DDS_String_dup(other.role_name)) {}

DDS_EntityNameQosPolicy& DDS_EntityNameQosPolicy::operator=(const DDS_EntityNameQosPolicy& other) {
    if (this != &other) {
        replace(name, other.name);
        replace(role_name, other.role_name);
    }
    return *this;
}

DDS_EntityNameQosPolicy::~DDS_EntityNameQosPolicy() {
    DDS_String_free(name);
    DDS_String_free(role_name);
}

DDS_EndpointBuiltinTopicData::DDS_EndpointBuiltinTopicData(const DDS_EndpointBuiltinTopicData& other) {
    *this = other;
}

DDS_EndpointBuiltinTopicData& DDS_EndpointBuiltinTopicData::operator=(
    const DDS_EndpointBuiltinTopicData& other) {
    if (this == &other)
        return *this;
    key = other.key;
    participant_key = other.participant_key;
    replace(topic_name, other.topic_name);
    replace(type_name, other.type_name);
    durability = other.durability;
    deadline = other.deadline;
    latency_budget = other.latency_budget;
    liveliness = other.liveliness;
    reliability = other.reliability;
    ownership = other.ownership;
    destination_order = other.destination_order;
    presentation = other.presentation;
    partition = other.partition;
    user_data = other.user_data;
    topic_data = other.topic_data;
    group_data = other.group_data;
    representation = other.representation;
    unicast_locators = other.unicast_locators;
    entity_name = other.entity_name;
    property = other.property;
    type_code = other.type_code;
    return *this;
}

DDS_EndpointBuiltinTopicData::~DDS_EndpointBuiltinTopicData() {
    DDS_String_free(topic_name);
    DDS_String_free(type_name);
}
