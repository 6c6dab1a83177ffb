#pragma once

#include <cstdint>

#include "meridian/listener.h"

/// What the spy keeps of one subscribed topic for its statistics. Topics are not subscribed yet, so nothing
/// feeds the counters; the strings are owned (DDS_String).
class QuixSpyDataListener : public DDSDataReaderListener {
  public:
    QuixSpyDataListener(const char* topic, const char* type);
    QuixSpyDataListener(const QuixSpyDataListener&) = delete;
    QuixSpyDataListener& operator=(const QuixSpyDataListener&) = delete;
    ~QuixSpyDataListener() override;

    char* topicName;
    char* typeName;
    uint64_t dataSampleCount = 0;
    uint64_t disposeSampleCount = 0;
    uint64_t noWritersSampleCount = 0;
};
