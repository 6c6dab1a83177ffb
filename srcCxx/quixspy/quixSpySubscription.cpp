#include <cstdio>

#include "quixspy/quixSpyAgent.h"

bool QuixSpyAgent::on_publication_discovered(const char*, const RtpsGuid&, const char* topicName,
                                             const char* typeName, DDS_OwnershipQosPolicyKind,
                                             DDS_ReliabilityQosPolicyKind, DDS_DurabilityQosPolicyKind, bool,
                                             const DDS_TypeCode*, const DDS_EntityNameQosPolicy&,
                                             const DDS_StringSeq&, const DDS_StringSeq&) {
    const bool matched = QUIXSpy_matchesPattern(topicName, _topicRegex, _topicRegexCount) != 0 &&
                         QUIXSpy_matchesPattern(typeName, _typeRegex, _typeRegexCount) != 0;
    if (theVerbosity >= 2)
        std::printf("ferret: ... topic and type %s\n", matched ? "MATCHED" : "NOT MATCHED");
    // Not subscribing yet: a topic that matches gets no reader.
    return false;
}
