#include "qos/policy_readers.h"

#include <set>

namespace meridian::qos {

namespace {

using Node = pugi::xml_node;

void read_enumerator(ElementReader& reader, Node element, DDS_DurabilityQosPolicyKind& value) {
    reader.enumerator(element, value,
                      {{"VOLATILE_DURABILITY_QOS", DDS_VOLATILE_DURABILITY_QOS},
                       {"TRANSIENT_LOCAL_DURABILITY_QOS", DDS_TRANSIENT_LOCAL_DURABILITY_QOS},
                       {"TRANSIENT_DURABILITY_QOS", DDS_TRANSIENT_DURABILITY_QOS},
                       {"PERSISTENT_DURABILITY_QOS", DDS_PERSISTENT_DURABILITY_QOS}});
}

void read_enumerator(ElementReader& reader, Node element, DDS_LivelinessQosPolicyKind& value) {
    reader.enumerator(element, value,
                      {{"AUTOMATIC_LIVELINESS_QOS", DDS_AUTOMATIC_LIVELINESS_QOS},
                       {"MANUAL_BY_PARTICIPANT_LIVELINESS_QOS", DDS_MANUAL_BY_PARTICIPANT_LIVELINESS_QOS},
                       {"MANUAL_BY_TOPIC_LIVELINESS_QOS", DDS_MANUAL_BY_TOPIC_LIVELINESS_QOS}});
}

void read_enumerator(ElementReader& reader, Node element, DDS_ReliabilityQosPolicyKind& value) {
    reader.enumerator(element, value,
                      {{"BEST_EFFORT_RELIABILITY_QOS", DDS_BEST_EFFORT_RELIABILITY_QOS},
                       {"RELIABLE_RELIABILITY_QOS", DDS_RELIABLE_RELIABILITY_QOS}});
}

void read_enumerator(ElementReader& reader, Node element, DDS_OwnershipQosPolicyKind& value) {
    reader.enumerator(element, value,
                      {{"SHARED_OWNERSHIP_QOS", DDS_SHARED_OWNERSHIP_QOS},
                       {"EXCLUSIVE_OWNERSHIP_QOS", DDS_EXCLUSIVE_OWNERSHIP_QOS}});
}

void read_enumerator(ElementReader& reader, Node element, DDS_DestinationOrderQosPolicyKind& value) {
    reader.enumerator(
        element, value,
        {{"BY_RECEPTION_TIMESTAMP_DESTINATIONORDER_QOS", DDS_BY_RECEPTION_TIMESTAMP_DESTINATIONORDER_QOS},
         {"BY_SOURCE_TIMESTAMP_DESTINATIONORDER_QOS", DDS_BY_SOURCE_TIMESTAMP_DESTINATIONORDER_QOS}});
}

void read_enumerator(ElementReader& reader, Node element, DDS_PresentationQosPolicyAccessScopeKind& value) {
    reader.enumerator(element, value,
                      {{"INSTANCE_PRESENTATION_QOS", DDS_INSTANCE_PRESENTATION_QOS},
                       {"TOPIC_PRESENTATION_QOS", DDS_TOPIC_PRESENTATION_QOS},
                       {"GROUP_PRESENTATION_QOS", DDS_GROUP_PRESENTATION_QOS}});
}

void read_enumerator(ElementReader& reader, Node element, DDS_HistoryQosPolicyKind& value) {
    reader.enumerator(element, value,
                      {{"KEEP_LAST_HISTORY_QOS", DDS_KEEP_LAST_HISTORY_QOS},
                       {"KEEP_ALL_HISTORY_QOS", DDS_KEEP_ALL_HISTORY_QOS}});
}

void read_enumerator(ElementReader& reader, Node element, DDS_TypeConsistencyKind& value) {
    reader.enumerator(element, value,
                      {{"DISALLOW_TYPE_COERCION", DDS_DISALLOW_TYPE_COERCION},
                       {"ALLOW_TYPE_COERCION", DDS_ALLOW_TYPE_COERCION},
                       {"AUTO_TYPE_COERCION", DDS_AUTO_TYPE_COERCION}});
}

// Readers of one member, for the tables below: the kind of value by the function, the member by the template
// argument.

template <typename>
struct OwnerOf;
template <typename Record, typename Value>
struct OwnerOf<Value Record::*> {
    using type = Record;
};
template <auto member>
using Owner = typename OwnerOf<decltype(member)>::type;

template <auto member>
void enumerator(ElementReader& reader, Node element, Owner<member>& policy) {
    read_enumerator(reader, element, policy.*member);
}
template <auto member>
void boolean(ElementReader& reader, Node element, Owner<member>& policy) {
    reader.boolean(element, policy.*member);
}
template <auto member>
void duration(ElementReader& reader, Node element, Owner<member>& policy) {
    reader.duration(element, policy.*member);
}
template <auto member>
void string(ElementReader& reader, Node element, Owner<member>& policy) {
    reader.string(element, policy.*member);
}
template <auto member>
void strings(ElementReader& reader, Node element, Owner<member>& policy) {
    reader.strings(element, policy.*member);
}
template <auto member>
void octets(ElementReader& reader, Node element, Owner<member>& policy) {
    reader.octets(element, policy.*member);
}
template <auto member>
void any_number(ElementReader& reader, Node element, Owner<member>& policy) {
    reader.number(element, policy.*member, INT32_MIN, INT32_MAX);
}
template <auto member>
void positive(ElementReader& reader, Node element, Owner<member>& policy) {
    reader.number(element, policy.*member, 1, INT32_MAX);
}
template <auto member>
void size(ElementReader& reader, Node element, Owner<member>& policy) {
    reader.number(element, policy.*member, 0, INT32_MAX);
}
template <auto member>
void size_limit(ElementReader& reader, Node element, Owner<member>& policy) {
    reader.number(element, policy.*member, 0, INT32_MAX, {{"LENGTH_UNLIMITED", DDS_LENGTH_UNLIMITED}});
}
/// None, or at least one.
template <auto member>
void limit(ElementReader& reader, Node element, Owner<member>& policy) {
    reader.number(element, policy.*member, 1, INT32_MAX, {{"LENGTH_UNLIMITED", DDS_LENGTH_UNLIMITED}});
}
template <auto member>
void participant_id(ElementReader& reader, Node element, Owner<member>& policy) {
    reader.number(element, policy.*member, -1, INT32_MAX);
}
template <auto member>
void guid_word(ElementReader& reader, Node element, Owner<member>& policy) {
    reader.number(element, policy.*member, 0, UINT32_MAX, {{"RTPS_AUTO_ID", DDS_RTPS_AUTO_ID}});
}
template <auto member>
void transport_mask(ElementReader& reader, Node element, Owner<member>& policy) {
    reader.mask(element, policy.*member,
                {{"TRANSPORTBUILTIN_MASK_DEFAULT", DDS_TRANSPORTBUILTIN_MASK_DEFAULT},
                 {"TRANSPORTBUILTIN_UDPv4", DDS_TRANSPORTBUILTIN_UDPv4},
                 {"TRANSPORTBUILTIN_SHMEM", DDS_TRANSPORTBUILTIN_SHMEM},
                 {"TRANSPORTBUILTIN_UDPv6", DDS_TRANSPORTBUILTIN_UDPv6}});
}
template <auto member>
void discovery_plugins(ElementReader& reader, Node element, Owner<member>& policy) {
    reader.enumerator(element, policy.*member,
                      {{"DISCOVERYCONFIG_BUILTIN_SDP", DDS_DISCOVERYCONFIG_BUILTIN_SDP},
                       {"DISCOVERYCONFIG_BUILTIN_SDP2", DDS_DISCOVERYCONFIG_BUILTIN_SDP2},
                       {"SDP", DDS_DISCOVERYCONFIG_BUILTIN_SDP},
                       {"SDP2", DDS_DISCOVERYCONFIG_BUILTIN_SDP2}});
}
template <auto member>
void representations(ElementReader& reader, Node element, Owner<member>& policy) {
    DDS_DataRepresentationIdSeq& ids = policy.*member;
    ids.length(0);
    for (const Node item : reader.list(element)) {
        DDS_DataRepresentationId_t id = DDS_XCDR_DATA_REPRESENTATION;
        reader.enumerator(item, id,
                          {{"XCDR_DATA_REPRESENTATION", DDS_XCDR_DATA_REPRESENTATION},
                           {"XML_DATA_REPRESENTATION", DDS_XML_DATA_REPRESENTATION},
                           {"XCDR2_DATA_REPRESENTATION", DDS_XCDR2_DATA_REPRESENTATION}});
        ids.append(id);
    }
}

constexpr Member<DDS_Property_t> kPropertyItem[] = {
    {"name", string<&DDS_Property_t::name>},
    {"value", string<&DDS_Property_t::value>},
    {"propagate", boolean<&DDS_Property_t::propagate>},
};

template <auto member>
void properties(ElementReader& reader, Node element, Owner<member>& policy) {
    DDS_Sequence<DDS_Property_t>& values = policy.*member;
    values.length(0);
    std::set<std::string> names;
    for (const Node item : reader.list(element)) {
        DDS_Property_t property;
        read_members(reader, item, property, kPropertyItem);
        if (reader.ok() && (property.name == nullptr || property.name[0] == '\0'))
            reader.fail(item, "a property without name");
        if (!reader.ok())
            return;
        if (!names.insert(property.name).second)
            return reader.fail(item, std::string("the property \"") + property.name + "\" appears twice");
        if (property.value == nullptr)
            property.value = DDS_String_dup("");
        values.append(property);
    }
}

constexpr Member<DDS_UserDataQosPolicy> kUserData[] = {
    {"value", octets<&DDS_UserDataQosPolicy::value>},
};
constexpr Member<DDS_TopicDataQosPolicy> kTopicData[] = {
    {"value", octets<&DDS_TopicDataQosPolicy::value>},
};
constexpr Member<DDS_GroupDataQosPolicy> kGroupData[] = {
    {"value", octets<&DDS_GroupDataQosPolicy::value>},
};
constexpr Member<DDS_EntityFactoryQosPolicy> kEntityFactory[] = {
    {"autoenable_created_entities", boolean<&DDS_EntityFactoryQosPolicy::autoenable_created_entities>},
};
constexpr Member<DDS_DurabilityQosPolicy> kDurability[] = {
    {"kind", enumerator<&DDS_DurabilityQosPolicy::kind>},
};
constexpr Member<DDS_DurabilityServiceQosPolicy> kDurabilityService[] = {
    {"service_cleanup_delay", duration<&DDS_DurabilityServiceQosPolicy::service_cleanup_delay>},
    {"history_kind", enumerator<&DDS_DurabilityServiceQosPolicy::history_kind>},
    {"history_depth", positive<&DDS_DurabilityServiceQosPolicy::history_depth>},
    {"max_samples", limit<&DDS_DurabilityServiceQosPolicy::max_samples>},
    {"max_instances", limit<&DDS_DurabilityServiceQosPolicy::max_instances>},
    {"max_samples_per_instance", limit<&DDS_DurabilityServiceQosPolicy::max_samples_per_instance>},
};
constexpr Member<DDS_DeadlineQosPolicy> kDeadline[] = {
    {"period", duration<&DDS_DeadlineQosPolicy::period>},
};
constexpr Member<DDS_LatencyBudgetQosPolicy> kLatencyBudget[] = {
    {"duration", duration<&DDS_LatencyBudgetQosPolicy::duration>},
};
constexpr Member<DDS_LivelinessQosPolicy> kLiveliness[] = {
    {"kind", enumerator<&DDS_LivelinessQosPolicy::kind>},
    {"lease_duration", duration<&DDS_LivelinessQosPolicy::lease_duration>},
};
constexpr Member<DDS_ReliabilityQosPolicy> kReliability[] = {
    {"kind", enumerator<&DDS_ReliabilityQosPolicy::kind>},
    {"max_blocking_time", duration<&DDS_ReliabilityQosPolicy::max_blocking_time>},
};
constexpr Member<DDS_OwnershipQosPolicy> kOwnership[] = {
    {"kind", enumerator<&DDS_OwnershipQosPolicy::kind>},
};
constexpr Member<DDS_DestinationOrderQosPolicy> kDestinationOrder[] = {
    {"kind", enumerator<&DDS_DestinationOrderQosPolicy::kind>},
};
constexpr Member<DDS_PresentationQosPolicy> kPresentation[] = {
    {"access_scope", enumerator<&DDS_PresentationQosPolicy::access_scope>},
    {"coherent_access", boolean<&DDS_PresentationQosPolicy::coherent_access>},
    {"ordered_access", boolean<&DDS_PresentationQosPolicy::ordered_access>},
};
constexpr Member<DDS_HistoryQosPolicy> kHistory[] = {
    {"kind", enumerator<&DDS_HistoryQosPolicy::kind>},
    {"depth", positive<&DDS_HistoryQosPolicy::depth>},
};
constexpr Member<DDS_ResourceLimitsQosPolicy> kResourceLimits[] = {
    {"max_samples", limit<&DDS_ResourceLimitsQosPolicy::max_samples>},
    {"max_instances", limit<&DDS_ResourceLimitsQosPolicy::max_instances>},
    {"max_samples_per_instance", limit<&DDS_ResourceLimitsQosPolicy::max_samples_per_instance>},
};
constexpr Member<DDS_PartitionQosPolicy> kPartition[] = {
    {"name", strings<&DDS_PartitionQosPolicy::name>},
};
constexpr Member<DDS_TimeBasedFilterQosPolicy> kTimeBasedFilter[] = {
    {"minimum_separation", duration<&DDS_TimeBasedFilterQosPolicy::minimum_separation>},
};
constexpr Member<DDS_ReaderDataLifecycleQosPolicy> kReaderDataLifecycle[] = {
    {"autopurge_nowriter_samples_delay",
     duration<&DDS_ReaderDataLifecycleQosPolicy::autopurge_nowriter_samples_delay>},
    {"autopurge_disposed_samples_delay",
     duration<&DDS_ReaderDataLifecycleQosPolicy::autopurge_disposed_samples_delay>},
};
constexpr Member<DDS_TransportPriorityQosPolicy> kTransportPriority[] = {
    {"value", any_number<&DDS_TransportPriorityQosPolicy::value>},
};
constexpr Member<DDS_LifespanQosPolicy> kLifespan[] = {
    {"duration", duration<&DDS_LifespanQosPolicy::duration>},
};
constexpr Member<DDS_DataRepresentationQosPolicy> kRepresentation[] = {
    {"value", representations<&DDS_DataRepresentationQosPolicy::value>},
};
constexpr Member<DDS_TypeConsistencyEnforcementQosPolicy> kTypeConsistency[] = {
    {"kind", enumerator<&DDS_TypeConsistencyEnforcementQosPolicy::kind>},
};
constexpr Member<DDS_EntityNameQosPolicy> kEntityName[] = {
    {"name", string<&DDS_EntityNameQosPolicy::name>},
    {"role_name", string<&DDS_EntityNameQosPolicy::role_name>},
};
constexpr Member<DDS_PropertyQosPolicy> kProperty[] = {
    {"value", properties<&DDS_PropertyQosPolicy::value>},
};
constexpr Member<DDS_WireProtocolQosPolicy> kWireProtocol[] = {
    {"participant_id", participant_id<&DDS_WireProtocolQosPolicy::participant_id>},
    {"rtps_host_id", guid_word<&DDS_WireProtocolQosPolicy::rtps_host_id>},
    {"rtps_app_id", guid_word<&DDS_WireProtocolQosPolicy::rtps_app_id>},
    {"rtps_instance_id", guid_word<&DDS_WireProtocolQosPolicy::rtps_instance_id>},
};
constexpr Member<DDS_TransportBuiltinQosPolicy> kTransportBuiltin[] = {
    {"mask", transport_mask<&DDS_TransportBuiltinQosPolicy::mask>},
};
constexpr Member<DDS_DiscoveryQosPolicy> kDiscovery[] = {
    {"initial_peers", strings<&DDS_DiscoveryQosPolicy::initial_peers>},
};
constexpr Member<DDS_DiscoveryConfigQosPolicy> kDiscoveryConfig[] = {
    {"participant_liveliness_lease_duration",
     duration<&DDS_DiscoveryConfigQosPolicy::participant_liveliness_lease_duration>},
    {"participant_liveliness_assert_period",
     duration<&DDS_DiscoveryConfigQosPolicy::participant_liveliness_assert_period>},
    {"builtin_discovery_plugins",
     discovery_plugins<&DDS_DiscoveryConfigQosPolicy::builtin_discovery_plugins>},
};
constexpr Member<DDS_DomainParticipantResourceLimitsQosPolicy> kParticipantResourceLimits[] = {
    {"type_code_max_serialized_length",
     size_limit<&DDS_DomainParticipantResourceLimitsQosPolicy::type_code_max_serialized_length>},
};
constexpr Member<DDS_ReceiverPoolQosPolicy> kReceiverPool[] = {
    {"buffer_size", size<&DDS_ReceiverPoolQosPolicy::buffer_size>},
};
constexpr Member<DDS_DataReaderResourceLimitsQosPolicy> kReaderResourceLimits[] = {
    {"dynamically_allocate_fragmented_samples",
     boolean<&DDS_DataReaderResourceLimitsQosPolicy::dynamically_allocate_fragmented_samples>},
};

} // namespace

void read_policy(ElementReader& reader, Node element, DDS_UserDataQosPolicy& policy) {
    read_members(reader, element, policy, kUserData);
}
void read_policy(ElementReader& reader, Node element, DDS_TopicDataQosPolicy& policy) {
    read_members(reader, element, policy, kTopicData);
}
void read_policy(ElementReader& reader, Node element, DDS_GroupDataQosPolicy& policy) {
    read_members(reader, element, policy, kGroupData);
}
void read_policy(ElementReader& reader, Node element, DDS_EntityFactoryQosPolicy& policy) {
    read_members(reader, element, policy, kEntityFactory);
}
void read_policy(ElementReader& reader, Node element, DDS_DurabilityQosPolicy& policy) {
    read_members(reader, element, policy, kDurability);
}
void read_policy(ElementReader& reader, Node element, DDS_DurabilityServiceQosPolicy& policy) {
    read_members(reader, element, policy, kDurabilityService);
}
void read_policy(ElementReader& reader, Node element, DDS_DeadlineQosPolicy& policy) {
    read_members(reader, element, policy, kDeadline);
}
void read_policy(ElementReader& reader, Node element, DDS_LatencyBudgetQosPolicy& policy) {
    read_members(reader, element, policy, kLatencyBudget);
}
void read_policy(ElementReader& reader, Node element, DDS_LivelinessQosPolicy& policy) {
    read_members(reader, element, policy, kLiveliness);
}
void read_policy(ElementReader& reader, Node element, DDS_ReliabilityQosPolicy& policy) {
    read_members(reader, element, policy, kReliability);
}
void read_policy(ElementReader& reader, Node element, DDS_OwnershipQosPolicy& policy) {
    read_members(reader, element, policy, kOwnership);
}
void read_policy(ElementReader& reader, Node element, DDS_DestinationOrderQosPolicy& policy) {
    read_members(reader, element, policy, kDestinationOrder);
}
void read_policy(ElementReader& reader, Node element, DDS_PresentationQosPolicy& policy) {
    read_members(reader, element, policy, kPresentation);
}
void read_policy(ElementReader& reader, Node element, DDS_HistoryQosPolicy& policy) {
    read_members(reader, element, policy, kHistory);
}
void read_policy(ElementReader& reader, Node element, DDS_ResourceLimitsQosPolicy& policy) {
    read_members(reader, element, policy, kResourceLimits);
}
void read_policy(ElementReader& reader, Node element, DDS_PartitionQosPolicy& policy) {
    read_members(reader, element, policy, kPartition);
}
void read_policy(ElementReader& reader, Node element, DDS_TimeBasedFilterQosPolicy& policy) {
    read_members(reader, element, policy, kTimeBasedFilter);
}
void read_policy(ElementReader& reader, Node element, DDS_ReaderDataLifecycleQosPolicy& policy) {
    read_members(reader, element, policy, kReaderDataLifecycle);
}
void read_policy(ElementReader& reader, Node element, DDS_TransportPriorityQosPolicy& policy) {
    read_members(reader, element, policy, kTransportPriority);
}
void read_policy(ElementReader& reader, Node element, DDS_LifespanQosPolicy& policy) {
    read_members(reader, element, policy, kLifespan);
}
void read_policy(ElementReader& reader, Node element, DDS_DataRepresentationQosPolicy& policy) {
    read_members(reader, element, policy, kRepresentation);
}
void read_policy(ElementReader& reader, Node element, DDS_TypeConsistencyEnforcementQosPolicy& policy) {
    read_members(reader, element, policy, kTypeConsistency);
}
void read_policy(ElementReader& reader, Node element, DDS_EntityNameQosPolicy& policy) {
    read_members(reader, element, policy, kEntityName);
}
void read_policy(ElementReader& reader, Node element, DDS_PropertyQosPolicy& policy) {
    read_members(reader, element, policy, kProperty);
}
void read_policy(ElementReader& reader, Node element, DDS_WireProtocolQosPolicy& policy) {
    read_members(reader, element, policy, kWireProtocol);
}
void read_policy(ElementReader& reader, Node element, DDS_TransportBuiltinQosPolicy& policy) {
    read_members(reader, element, policy, kTransportBuiltin);
}
void read_policy(ElementReader& reader, Node element, DDS_DiscoveryQosPolicy& policy) {
    read_members(reader, element, policy, kDiscovery);
}
void read_policy(ElementReader& reader, Node element, DDS_DiscoveryConfigQosPolicy& policy) {
    read_members(reader, element, policy, kDiscoveryConfig);
}
void read_policy(ElementReader& reader, Node element, DDS_DomainParticipantResourceLimitsQosPolicy& policy) {
    read_members(reader, element, policy, kParticipantResourceLimits);
}
void read_policy(ElementReader& reader, Node element, DDS_ReceiverPoolQosPolicy& policy) {
    read_members(reader, element, policy, kReceiverPool);
}
void read_policy(ElementReader& reader, Node element, DDS_DataReaderResourceLimitsQosPolicy& policy) {
    read_members(reader, element, policy, kReaderResourceLimits);
}

} // namespace meridian::qos
