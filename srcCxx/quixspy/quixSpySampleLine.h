#pragma once

// The text of the report line of one sample, without contents and line end.

#include <cstdint>
#include <string>

#include "meridian/sample_info.h"
#include "quixspy/quixSpyEndpointInfo.h"

/// Which of the optional fields a topic's lines show.
struct QuixSpySampleLineFields {
    bool isKeyed = false;
    bool showHandle = false;
    bool showSampleIdentity = false;
    bool showSampleFlags = false;
    bool showEntityName = false;
    bool showPartition = false;
};

/// The GUID that a reader names as the writer of a sample.
RtpsGuid QUIXSpy_writerGuid(const DDS_SampleInfo& info);

/// Appends where an endpoint is, at one width.
void QUIXSpy_appendAddress(std::string& line, const char* ip);
/// Appends field="text", nothing for a null text.
/// What is longer than `most` octets is cut, with "..." behind it.
void QUIXSpy_appendField(std::string& line, const char* field, const char* text,
                         size_t most = std::string::npos);
/// Appends a field whose text is a GUID.
void QUIXSpy_appendGuid(std::string& line, const char* field, const RtpsGuid& guid);

/// The field that names the topic and its type, both cut at their widths. The same for every line of a topic.
std::string QUIXSpy_formatTopicField(const char* topicName, int32_t topicWidth, const char* typeName,
                                     int32_t typeWidth);

/// Appends the line to `line`. `writer` is what is known of the writer of the sample: its GUID is all zero
/// when nothing is. Writes by hand instead of through printf: lines are what limits the speed of the spy.
void QUIXSpy_formatSampleLine(std::string& line, const QuixSpySampleLineFields& fields,
                              const std::string& topicField, const DDS_SampleInfo& info,
                              const QuixSpyEndpointInfo& writer);
