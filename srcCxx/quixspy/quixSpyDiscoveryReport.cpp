// The report of one discovery event: address, registry, agent and line.

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string>

#include "agent/QuixAgent.h"
#include "meridian/domain_participant.h"
#include "meridian/subscriber.h"
#include "quixspy/quixSpyAgent.h"
#include "quixspy/quixSpyDiscoveryListener.h"
#include "quixspy/quixSpySampleLine.h"
#include "quixspy/quixSpyText.h"

namespace {

bool is_ipv4(DDS_Long kind) {
    constexpr DDS_Long kKinds[] = {DDS_LOCATOR_KIND_UDPv4,     DDS_LOCATOR_KIND_UDPv4_WAN,
                                   DDS_LOCATOR_KIND_TCPV4_LAN, DDS_LOCATOR_KIND_TCPV4_WAN,
                                   DDS_LOCATOR_KIND_TLSV4_LAN, DDS_LOCATOR_KIND_TLSV4_WAN};
    return std::find(std::begin(kKinds), std::end(kKinds), kind) != std::end(kKinds);
}

/// The participant that an endpoint belongs to: the endpoint's prefix with the entity id of participants.
DDS_InstanceHandle_t participant_handle(const RtpsGuid& endpoint) {
    DDS_InstanceHandle_t handle{};
    const DDS_UnsignedLong words[] = {endpoint.hostId, endpoint.appId, endpoint.instanceId, 0x000001c1U};
    DDS_Octet* byte = handle.keyHash;
    for (const DDS_UnsignedLong word : words) {
        for (unsigned shift = 32; shift > 0;) {
            shift -= 8;
            *byte++ = static_cast<DDS_Octet>(word >> shift);
        }
    }
    handle.length = 16;
    handle.isValid = true;
    return handle;
}

} // namespace

bool QuixSpyDiscoveryListenerHelper_getIpv4Address(char (&out)[QUIXSPY_IP_SIZE],
                                                   const DDS_LocatorSeq& locators) {
    for (DDS_Long i = 0; i < locators.length(); ++i) {
        const DDS_Locator_t& locator = locators[i];
        if (is_ipv4(locator.kind) &&
            std::snprintf(out, sizeof out, "%d.%d.%d.%d", locator.address[12], locator.address[13],
                          locator.address[14], locator.address[15]) > 0)
            return true;
    }
    return false;
}

void QuixSpyDiscoveryListener::getIpv4Address(char (&out)[QUIXSPY_IP_SIZE], const RtpsGuid& guid,
                                              const DDS_LocatorSeq& locators) {
    std::snprintf(out, sizeof out, "unknown ip");
    if (QuixSpyDiscoveryListenerHelper_getIpv4Address(out, locators))
        return;
    DDSSubscriber* const subscriber = subscription_reader_->get_subscriber();
    if (subscriber == nullptr) {
        agent_->output().fail("ferret: Error getting Subscriber\n");
        return;
    }
    DDSDomainParticipant* const participant = subscriber->get_participant();
    if (participant == nullptr) {
        agent_->output().fail("ferret: Error getting DomainParticipant\n");
        return;
    }
    DDS_ParticipantBuiltinTopicData data;
    if (participant->get_discovered_participant_data(data, participant_handle(guid)) == DDS_RETCODE_OK)
        QuixSpyDiscoveryListenerHelper_getIpv4Address(out, data.default_unicast_locators);
}

bool QuixSpyDiscoveryListener::report_and_notify_agent(
    const char* topicName, const char* typeName, DDS_OwnershipQosPolicyKind ownership,
    DDS_ReliabilityQosPolicyKind reliability, DDS_DurabilityQosPolicyKind durability, bool keyed,
    bool isWriter, const RtpsGuid& guid, const DDS_SampleInfo& info, const DDS_TypeCode* typeCode,
    const DDS_LocatorSeq& locators, const DDS_EntityNameQosPolicy& entityName,
    const DDS_StringSeq& endpointPartitions, const DDS_StringSeq& participantPartitions,
    DDS_TypeCodeAbsence absence, const DDS_EndpointBuiltinTopicData* announced) {
    char ip[QUIXSPY_IP_SIZE] = {};
    getIpv4Address(ip, guid, locators);
    QuixSpyLocalEndpointInfo record;

    if (!info.valid_data) {
        QuixSpyEndpointInfoNode* const known = _registry.find_node(guid);
        if (known == nullptr)
            return false;
        record.copy_from(known->info, agent_->output());
        if (!RtpsGuid_isUnknown(record.guid)) {
            print_discovery_data(record, isWriter, info);
            if (QuixSpyEndpointInfoNode* const gone = _registry.find_node(guid))
                _registry.remove_node(gone);
        }
        return false;
    }

    if (agent_->_printUserData && isWriter) {
        agent_->on_publication_discovered(ip, guid, topicName, typeName, ownership, reliability, durability,
                                          keyed, typeCode, entityName, endpointPartitions,
                                          participantPartitions, absence, announced);
    }
    if (!_registry.assert_node(record, guid, ip, topicName, typeName, entityName, endpointPartitions,
                               participantPartitions)) {
        return agent_->output().fail(
            "ferret: Failed to add entity for topic '%s' to internal endpoint list).\n",
            QUIXSpy_text(topicName).c_str());
    }
    if (RtpsGuid_isUnknown(record.guid)) {
        return agent_->output().fail(
            "ferret: Failed to print writer/reader (could not find entity with topic '%s' to internal "
            "endpoint list).\n",
            QUIXSpy_text(topicName).c_str());
    }
    print_discovery_data(record, isWriter, info);
    return true;
}

void QuixSpyDiscoveryListener::print_discovery_data(const QuixSpyEndpointInfo& record, bool isWriter,
                                                    const DDS_SampleInfo& info) {
    if (!agent_->_printDiscovery)
        return;
    const bool is_alive = info.instance_state == DDS_ALIVE_INSTANCE_STATE;
    const bool is_new = is_alive && info.view_state == DDS_NEW_VIEW_STATE;
    const bool is_updated = is_alive && info.view_state == DDS_NOT_NEW_VIEW_STATE;

    std::string line;
    QUIXSpy_printTimestamp(line, info.source_timestamp);
    line += is_new ? " New " : is_updated ? " Updated " : " Deleted ";
    line += isWriter ? "writer" : "reader";
    line += is_new ? "       " : "   ";
    QUIXSpy_appendAddress(line, record.ip);
    line += QUIXSpy_formatTopicField(record.topicName != nullptr ? record.topicName : "", _topicWidth,
                                     record.typeName != nullptr ? record.typeName : "", _typeWidth);
    if (_showHandle)
        QUIXSpy_appendGuid(line, " guid", record.guid);
    QUIXSpy_appendField(line, " name", record.name);
    if (_showPartition) {
        QUIXSpy_appendField(line, " DP partition", record.participantPartition);
        QUIXSpy_appendField(line, isWriter ? " S  partition" : " P  partition", record.endpointPartition);
    }
    line += '\n';
    agent_->output().put(line);
    agent_->output().flush();
}
