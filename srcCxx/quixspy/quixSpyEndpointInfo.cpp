#include "quixspy/quixSpyEndpointInfo.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <tuple>

#include "agent/QuixAgentOutput.h"
#include "meridian/heap.h"
#include "meridian/string.h"
#include "quixspy/quixSpyText.h"

namespace {

auto words_of(const RtpsGuid& guid) {
    return std::tie(guid.hostId, guid.appId, guid.instanceId, guid.entityId);
}

void clear(QuixSpyEndpointInfo& info, const RtpsGuid& guid) {
    info = {};
    info.guid = guid;
}

/// `source` need not be terminated within the size of an address text.
bool copy_ip(QuixSpyEndpointInfo& info, const char* source) {
    const size_t length = strnlen(source, QUIXSPY_IP_SIZE);
    if (length == QUIXSPY_IP_SIZE)
        return false;
    std::memcpy(info.ip, source, length);
    return true;
}

/// Duplicates unless the source is null; false when memory is short.
bool duplicate(char*& target, const char* source) {
    target = DDS_String_dup(source);
    return source == nullptr || target != nullptr;
}

/// The same, with a message; `what` stands in front of the text.
bool store_text(QuixAgentOutput& output, char*& target, const char* source, const char* what) {
    return duplicate(target, source) ||
           output.fail("ferret: Failed to allocate memory for %s%s'\n", what, QUIXSpy_text(source).c_str());
}

const char* or_empty(const char* text) {
    return text != nullptr ? text : "";
}

bool store_name(QuixAgentOutput& output, QuixSpyEndpointInfo& info,
                const DDS_EntityNameQosPolicy& entity_name) {
    const char* const role = entity_name.role_name;
    const char* const name = entity_name.name;
    if (role == nullptr || name == nullptr) {
        if (duplicate(info.name, role != nullptr ? role : name))
            return true;
    } else {
        const size_t length = std::strlen(role) + std::strlen(name) + 1;
        info.name = DDS_String_alloc(length);
        if (info.name != nullptr && std::snprintf(info.name, length + 1, "%s:%s", role, name) >= 0)
            return true;
    }
    return output.fail("ferret: Failed to allocate memory for name '%s:%s'\n", QUIXSpy_text(role).c_str(),
                       QUIXSpy_text(name).c_str());
}

/// All in one go: an announcement may hold thousands of names.
bool store_partitions(QuixAgentOutput& output, char*& field, const DDS_StringSeq& names) {
    if (names.length() == 0)
        return true;
    std::string joined; // of what may be thousands
    for (DDS_Long i = 0; i < names.length(); ++i)
        joined.append(i > 0 ? "," : "").append(or_empty(names[i]));
    return duplicate(field, joined.c_str()) ||
           output.fail("ferret: Failed to allocate memory for partitions\n");
}

} // namespace

bool RtpsGuid_equals(const RtpsGuid& a, const RtpsGuid& b) {
    return words_of(a) == words_of(b);
}

bool RtpsGuid_isUnknown(const RtpsGuid& guid) {
    return RtpsGuid_equals(guid, RtpsGuid{});
}

void QuixSpyEndpointInfo::finalize() {
    for (char** text : {&topicName, &typeName, &name, &participantPartition, &endpointPartition}) {
        DDS_String_free(*text);
        *text = nullptr;
    }
    std::memset(ip, 0, sizeof ip);
}

bool QuixSpyEndpointInfo::copy_from(const QuixSpyEndpointInfo& source, QuixAgentOutput& output) {
    clear(*this, source.guid);
    if (!copy_ip(*this, source.ip))
        return output.fail("ferret: Failed to copy IP '%.*s'\n", QUIXSPY_IP_SIZE, source.ip);
    return store_text(output, topicName, source.topicName, "topicName '") &&
           store_text(output, typeName, source.typeName, "typeName '") &&
           store_text(output, name, source.name, "name ':") &&
           store_text(output, participantPartition, source.participantPartition, "typeName '") &&
           store_text(output, endpointPartition, source.endpointPartition, "typeName '");
}

namespace {

bool fill(QuixAgentOutput& output, QuixSpyEndpointInfo& info, const RtpsGuid& guid, const char* ip,
          const char* topic_name, const char* type_name, const DDS_EntityNameQosPolicy& entity_name,
          const DDS_StringSeq& endpoint_partitions, const DDS_StringSeq& participant_partitions) {
    clear(info, guid);
    if (!copy_ip(info, ip))
        return output.fail("ferret: Failed to copy IP '%s'\n", ip);
    return store_text(output, info.topicName, topic_name, "topicName '") &&
           store_text(output, info.typeName, type_name, "typeName '") &&
           store_name(output, info, entity_name) &&
           store_partitions(output, info.participantPartition, participant_partitions) &&
           store_partitions(output, info.endpointPartition, endpoint_partitions);
}

void free_node(QuixSpyEndpointInfoNode* node) {
    node->info.finalize();
    QUIXHeap_free(node);
}

} // namespace

QuixSpyEndpointInfoList::~QuixSpyEndpointInfoList() {
    for (QuixSpyEndpointInfoNode* node = head(); node != nullptr;) {
        QuixSpyEndpointInfoNode* const following = next(node);
        free_node(node);
        node = following;
    }
}

bool QuixSpyEndpointInfoList::Earlier::operator()(const RtpsGuid& a, const RtpsGuid& b) const {
    return words_of(a) < words_of(b);
}

QuixSpyEndpointInfoNode* QuixSpyEndpointInfoList::find_node(const RtpsGuid& guid) const {
    const auto found = byGuid_.find(guid);
    return found != byGuid_.end() ? found->second : nullptr;
}

bool QuixSpyEndpointInfoList::assert_node(QuixSpyEndpointInfo& out, const RtpsGuid& guid, const char* ip,
                                          const char* topicName, const char* typeName,
                                          const DDS_EntityNameQosPolicy& entityName,
                                          const DDS_StringSeq& endpointPartitions,
                                          const DDS_StringSeq& participantPartitions) {
    QuixSpyEndpointInfoNode* node = find_node(guid);
    const bool is_new = node == nullptr;
    if (is_new) {
        node = QUIXHeap_allocateStructure<QuixSpyEndpointInfoNode>("struct QuixSpyEndpointInfoNode");
        if (node == nullptr)
            return output_.fail("ferret: Error allocating QuixSpyEndpointInfoNode\n");
    } else {
        node->info.finalize();
    }
    // What could be stored counts, so the result is not looked at; the GUID alone decides.
    fill(output_, node->info, guid, ip, topicName, typeName, entityName, endpointPartitions,
         participantPartitions);
    if (RtpsGuid_isUnknown(node->info.guid)) {
        free_node(node);
        return output_.fail("ferret: Error initializing QuixSpyEndpointInfo\n");
    }
    if (is_new) {
        byGuid_.emplace(guid, node);
        append(node);
    }
    out.copy_from(node->info, output_);
    return true;
}

void QuixSpyEndpointInfoList::remove_node(QuixSpyEndpointInfoNode* node) {
    byGuid_.erase(node->info.guid);
    unlink(node);
    free_node(node);
}
