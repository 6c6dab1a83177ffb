#include "quixspy/quixSpyDataListener.h"

#include "meridian/string.h"

QuixSpyDataListener::QuixSpyDataListener(const char* topic, const char* type)
    : topicName(DDS_String_dup(topic)), typeName(DDS_String_dup(type)) {}

QuixSpyDataListener::~QuixSpyDataListener() {
    DDS_String_free(topicName);
    DDS_String_free(typeName);
}
