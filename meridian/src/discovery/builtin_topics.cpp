#include "meridian/builtin_topics.h"

namespace {

void replace_string(char*& target, const char* source) {
    char* copy = DDS_String_dup(source);
    DDS_String_free(target);
    target = copy;
}

} // namespace

DDS_EndpointBuiltinTopicData::DDS_EndpointBuiltinTopicData(const DDS_EndpointBuiltinTopicData& other) {
    *this = other;
}

DDS_EndpointBuiltinTopicData& DDS_EndpointBuiltinTopicData::operator=(
    const DDS_EndpointBuiltinTopicData& other) {
    if (this == &other)
        return *this;
    key = other.key;
    participant_key = other.participant_key;
    replace_string(topic_name, other.topic_name);
    replace_string(type_name, other.type_name);
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
    type_information = other.type_information;
    return *this;
}

DDS_EndpointBuiltinTopicData::~DDS_EndpointBuiltinTopicData() {
    DDS_String_free(topic_name);
    DDS_String_free(type_name);
}
