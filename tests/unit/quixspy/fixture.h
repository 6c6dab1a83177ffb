#pragma once

#include <cstring>
#include <initializer_list>
#include <string>

#include "quixspy/quixSpyAgent.h"
#include "quixspy/quixSpyDiscoveryListener.h"

/// A sequence of strings.
inline DDS_StringSeq string_seq(std::initializer_list<const char*> strings) {
    DDS_StringSeq sequence;
    for (const char* const string : strings)
        DDS_StringSeq_append(sequence, string);
    return sequence;
}

inline DDS_EntityNameQosPolicy entity_name(const char* role, const char* name) {
    DDS_EntityNameQosPolicy policy;
    policy.role_name = DDS_String_dup(role);
    policy.name = DDS_String_dup(name);
    return policy;
}

inline DDS_Locator_t locator(DDS_Long kind, std::initializer_list<DDS_Octet> last_bytes) {
    DDS_Locator_t result;
    result.kind = kind;
    std::memset(result.address, 0xee, sizeof result.address);
    size_t position = 16 - last_bytes.size();
    for (const DDS_Octet byte : last_bytes)
        result.address[position++] = byte;
    return result;
}

inline DDS_LocatorSeq locators(std::initializer_list<DDS_Locator_t> list) {
    DDS_LocatorSeq sequence;
    for (const DDS_Locator_t& one : list)
        sequence.append(one);
    return sequence;
}

/// A record that frees its strings.
struct Record : QuixSpyEndpointInfo {
    Record() : QuixSpyEndpointInfo{} {}
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;
    ~Record() { finalize(); }
};

/// A text member of a record; "(null)" when it has none.
inline std::string text(const char* string) {
    return string != nullptr ? string : "(null)";
}
