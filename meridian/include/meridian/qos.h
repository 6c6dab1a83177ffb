#pragma once

// QoS policies and the QoS of each entity (OMG DDS 1.4, 2.2.3; DDS-XTypes 1.3, 7.6.3). A default-constructed
// QoS holds the defaults. Copies are deep. Policies with the comment "at creation" cannot change once the
// entity is enabled.

#include "meridian/base.h"
#include "meridian/property.h"
#include "meridian/sequence.h"
#include "meridian/time.h"

enum DDS_DurabilityQosPolicyKind {
    DDS_VOLATILE_DURABILITY_QOS = 0,
    DDS_TRANSIENT_LOCAL_DURABILITY_QOS = 1,
    DDS_TRANSIENT_DURABILITY_QOS = 2,
    DDS_PERSISTENT_DURABILITY_QOS = 3
};
enum DDS_ReliabilityQosPolicyKind { DDS_BEST_EFFORT_RELIABILITY_QOS = 0, DDS_RELIABLE_RELIABILITY_QOS = 1 };
enum DDS_OwnershipQosPolicyKind { DDS_SHARED_OWNERSHIP_QOS = 0, DDS_EXCLUSIVE_OWNERSHIP_QOS = 1 };
enum DDS_LivelinessQosPolicyKind {
    DDS_AUTOMATIC_LIVELINESS_QOS = 0,
    DDS_MANUAL_BY_PARTICIPANT_LIVELINESS_QOS = 1,
    DDS_MANUAL_BY_TOPIC_LIVELINESS_QOS = 2
};
enum DDS_DestinationOrderQosPolicyKind {
    DDS_BY_RECEPTION_TIMESTAMP_DESTINATIONORDER_QOS = 0,
    DDS_BY_SOURCE_TIMESTAMP_DESTINATIONORDER_QOS = 1
};
enum DDS_PresentationQosPolicyAccessScopeKind {
    DDS_INSTANCE_PRESENTATION_QOS = 0,
    DDS_TOPIC_PRESENTATION_QOS = 1,
    DDS_GROUP_PRESENTATION_QOS = 2
};
enum DDS_HistoryQosPolicyKind { DDS_KEEP_LAST_HISTORY_QOS = 0, DDS_KEEP_ALL_HISTORY_QOS = 1 };
enum DDS_TypeConsistencyKind {
    DDS_DISALLOW_TYPE_COERCION = 0,
    DDS_ALLOW_TYPE_COERCION = 1,
    DDS_AUTO_TYPE_COERCION = 2
};

using DDS_DataRepresentationId_t = DDS_Short;
constexpr DDS_DataRepresentationId_t DDS_XCDR_DATA_REPRESENTATION = 0;
constexpr DDS_DataRepresentationId_t DDS_XML_DATA_REPRESENTATION = 1;
constexpr DDS_DataRepresentationId_t DDS_XCDR2_DATA_REPRESENTATION = 2;
using DDS_DataRepresentationIdSeq = DDS_Sequence<DDS_DataRepresentationId_t>;

/// Ids of the policies that can make a reader and a writer incompatible (DDS 1.4, 2.3.3).
using DDS_QosPolicyId_t = DDS_Long;
constexpr DDS_QosPolicyId_t DDS_DURABILITY_QOS_POLICY_ID = 2;
constexpr DDS_QosPolicyId_t DDS_PRESENTATION_QOS_POLICY_ID = 3;
constexpr DDS_QosPolicyId_t DDS_DEADLINE_QOS_POLICY_ID = 4;
constexpr DDS_QosPolicyId_t DDS_LATENCYBUDGET_QOS_POLICY_ID = 5;
constexpr DDS_QosPolicyId_t DDS_OWNERSHIP_QOS_POLICY_ID = 6;
constexpr DDS_QosPolicyId_t DDS_LIVELINESS_QOS_POLICY_ID = 8;
constexpr DDS_QosPolicyId_t DDS_PARTITION_QOS_POLICY_ID = 10;
constexpr DDS_QosPolicyId_t DDS_RELIABILITY_QOS_POLICY_ID = 11;
constexpr DDS_QosPolicyId_t DDS_DESTINATIONORDER_QOS_POLICY_ID = 12;
constexpr DDS_QosPolicyId_t DDS_DATA_REPRESENTATION_QOS_POLICY_ID = 23;

struct DDS_UserDataQosPolicy {
    DDS_OctetSeq value;
};
struct DDS_TopicDataQosPolicy {
    DDS_OctetSeq value;
};
struct DDS_GroupDataQosPolicy {
    DDS_OctetSeq value;
};
struct DDS_EntityFactoryQosPolicy {
    DDS_Boolean autoenable_created_entities = true;
};
struct DDS_DurabilityQosPolicy {
    DDS_DurabilityQosPolicyKind kind = DDS_VOLATILE_DURABILITY_QOS;
};
struct DDS_DeadlineQosPolicy {
    DDS_Duration_t period = DDS_DURATION_INFINITE;
};
struct DDS_LatencyBudgetQosPolicy {
    DDS_Duration_t duration = DDS_DURATION_ZERO;
};
struct DDS_LivelinessQosPolicy {
    DDS_LivelinessQosPolicyKind kind = DDS_AUTOMATIC_LIVELINESS_QOS;
    DDS_Duration_t lease_duration = DDS_DURATION_INFINITE;
};
struct DDS_ReliabilityQosPolicy {
    DDS_ReliabilityQosPolicyKind kind = DDS_BEST_EFFORT_RELIABILITY_QOS;
    DDS_Duration_t max_blocking_time{0, 100000000};
};
struct DDS_OwnershipQosPolicy {
    DDS_OwnershipQosPolicyKind kind = DDS_SHARED_OWNERSHIP_QOS;
};
struct DDS_OwnershipStrengthQosPolicy {
    DDS_Long value = 0;
};
struct DDS_WriterDataLifecycleQosPolicy {
    DDS_Boolean autodispose_unregistered_instances = true;
};
struct DDS_DestinationOrderQosPolicy {
    DDS_DestinationOrderQosPolicyKind kind = DDS_BY_RECEPTION_TIMESTAMP_DESTINATIONORDER_QOS;
};
struct DDS_PresentationQosPolicy {
    DDS_PresentationQosPolicyAccessScopeKind access_scope = DDS_INSTANCE_PRESENTATION_QOS;
    DDS_Boolean coherent_access = false;
    DDS_Boolean ordered_access = false;
};
struct DDS_HistoryQosPolicy {
    DDS_HistoryQosPolicyKind kind = DDS_KEEP_LAST_HISTORY_QOS;
    DDS_Long depth = 1;
};
struct DDS_ResourceLimitsQosPolicy {
    DDS_Long max_samples = DDS_LENGTH_UNLIMITED;
    DDS_Long max_instances = DDS_LENGTH_UNLIMITED;
    DDS_Long max_samples_per_instance = DDS_LENGTH_UNLIMITED;
};
struct DDS_PartitionQosPolicy {
    DDS_StringSeq name;
};
struct DDS_TimeBasedFilterQosPolicy {
    DDS_Duration_t minimum_separation = DDS_DURATION_ZERO;
};
struct DDS_ReaderDataLifecycleQosPolicy {
    DDS_Duration_t autopurge_nowriter_samples_delay = DDS_DURATION_INFINITE;
    DDS_Duration_t autopurge_disposed_samples_delay = DDS_DURATION_INFINITE;
};
struct DDS_TransportPriorityQosPolicy {
    DDS_Long value = 0;
};
struct DDS_LifespanQosPolicy {
    DDS_Duration_t duration = DDS_DURATION_INFINITE;
};
struct DDS_DurabilityServiceQosPolicy {
    DDS_Duration_t service_cleanup_delay = DDS_DURATION_ZERO;
    DDS_HistoryQosPolicyKind history_kind = DDS_KEEP_LAST_HISTORY_QOS;
    DDS_Long history_depth = 1;
    DDS_Long max_samples = DDS_LENGTH_UNLIMITED;
    DDS_Long max_instances = DDS_LENGTH_UNLIMITED;
    DDS_Long max_samples_per_instance = DDS_LENGTH_UNLIMITED;
};
struct DDS_DataRepresentationQosPolicy {
    DDS_DataRepresentationIdSeq value;
};
struct DDS_TypeConsistencyEnforcementQosPolicy {
    DDS_TypeConsistencyKind kind = DDS_AUTO_TYPE_COERCION;
    /// A reader of a known type does not match writers that announce none (OMG DDS-XTypes 1.3, 7.6.3.7).
    DDS_Boolean force_type_validation = false;
};

/// Name and role of an entity; both strings are owned and may be null.
struct DDS_EntityNameQosPolicy {
    char* name = nullptr;
    char* role_name = nullptr;

    DDS_EntityNameQosPolicy() = default;
    DDS_EntityNameQosPolicy(const DDS_EntityNameQosPolicy& other);
    DDS_EntityNameQosPolicy& operator=(const DDS_EntityNameQosPolicy& other);
    ~DDS_EntityNameQosPolicy();
};

// -- Policies that several entities have

/// Of topics, readers and writers; endpoints announce them.
struct DDS_EndpointPolicies {
    DDS_DurabilityQosPolicy durability;
    DDS_DeadlineQosPolicy deadline;
    DDS_LatencyBudgetQosPolicy latency_budget;
    DDS_LivelinessQosPolicy liveliness;
    DDS_ReliabilityQosPolicy reliability;
    DDS_DestinationOrderQosPolicy destination_order;
    DDS_OwnershipQosPolicy ownership;
    DDS_DataRepresentationQosPolicy representation;
};
/// Of what topics, readers and writers keep.
struct DDS_HistoryPolicies {
    DDS_HistoryQosPolicy history;
    DDS_ResourceLimitsQosPolicy resource_limits;
};
/// Of publishers and subscribers; their endpoints announce them.
struct DDS_GroupPolicies {
    DDS_PresentationQosPolicy presentation;
    DDS_PartitionQosPolicy partition;
    DDS_GroupDataQosPolicy group_data;
};

// -- Factory

/// Where QoS profiles come from. The string profile is one document cut into pieces that are joined as they
/// stand.
struct DDS_ProfileQosPolicy {
    DDS_StringSeq string_profile;
    DDS_StringSeq url_profile; // files, or several of them separated by ";" in one element
};

struct DDS_DomainParticipantFactoryQos {
    DDS_EntityFactoryQosPolicy entity_factory;
    DDS_ProfileQosPolicy profile;
};

// -- Participant

constexpr DDS_UnsignedLong DDS_RTPS_AUTO_ID = 0;

/// At creation.
struct DDS_WireProtocolQosPolicy {
    DDS_Long participant_id = -1;                     // -1: the first free one
    DDS_UnsignedLong rtps_host_id = DDS_RTPS_AUTO_ID; // first, second and third word of the GUID prefix
    DDS_UnsignedLong rtps_app_id = DDS_RTPS_AUTO_ID;
    DDS_UnsignedLong rtps_instance_id = DDS_RTPS_AUTO_ID;
};

using DDS_TransportBuiltinKindMask = DDS_Long;
constexpr DDS_TransportBuiltinKindMask DDS_TRANSPORTBUILTIN_UDPv4 = 1;
constexpr DDS_TransportBuiltinKindMask DDS_TRANSPORTBUILTIN_SHMEM = 2;
constexpr DDS_TransportBuiltinKindMask DDS_TRANSPORTBUILTIN_UDPv6 = 8;
constexpr DDS_TransportBuiltinKindMask DDS_TRANSPORTBUILTIN_MASK_DEFAULT =
    DDS_TRANSPORTBUILTIN_UDPv4 | DDS_TRANSPORTBUILTIN_SHMEM;
/// At creation.
struct DDS_TransportBuiltinQosPolicy {
    DDS_TransportBuiltinKindMask mask = DDS_TRANSPORTBUILTIN_MASK_DEFAULT;
};

/// At creation. Peers are host names or addresses; empty means the standard multicast group and this host.
struct DDS_DiscoveryQosPolicy {
    DDS_StringSeq initial_peers;
};

using DDS_DiscoveryConfigBuiltinPluginKind = DDS_Long;
constexpr DDS_DiscoveryConfigBuiltinPluginKind DDS_DISCOVERYCONFIG_BUILTIN_SDP = 3;
constexpr DDS_DiscoveryConfigBuiltinPluginKind DDS_DISCOVERYCONFIG_BUILTIN_SDP2 = 18; // not offered
/// At creation.
struct DDS_DiscoveryConfigQosPolicy {
    DDS_Duration_t participant_liveliness_lease_duration{100, 0};
    DDS_Duration_t participant_liveliness_assert_period{30, 0};
    DDS_DiscoveryConfigBuiltinPluginKind builtin_discovery_plugins = DDS_DISCOVERYCONFIG_BUILTIN_SDP;
};

/// At creation.
struct DDS_DomainParticipantResourceLimitsQosPolicy {
    DDS_Long type_code_max_serialized_length = 4096; // bytes, summed over a type and its dependencies
};

/// At creation. Size in bytes of one receive buffer: the largest datagram that is read whole.
struct DDS_ReceiverPoolQosPolicy {
    DDS_Long buffer_size = 65536;
};

struct DDS_DomainParticipantQos {
    DDS_UserDataQosPolicy user_data;
    DDS_EntityFactoryQosPolicy entity_factory;
    DDS_WireProtocolQosPolicy wire_protocol;
    DDS_TransportBuiltinQosPolicy transport_builtin;
    DDS_DiscoveryQosPolicy discovery;
    DDS_DiscoveryConfigQosPolicy discovery_config;
    DDS_DomainParticipantResourceLimitsQosPolicy resource_limits;
    DDS_ReceiverPoolQosPolicy receiver_pool;
    DDS_PropertyQosPolicy property;
    DDS_EntityNameQosPolicy participant_name;
    DDS_PartitionQosPolicy partition;
};

// -- Topic, subscriber, reader

struct DDS_TopicQos : DDS_EndpointPolicies, DDS_HistoryPolicies {
    DDS_TopicDataQosPolicy topic_data;
    DDS_DurabilityServiceQosPolicy durability_service;
    DDS_TransportPriorityQosPolicy transport_priority;
    DDS_LifespanQosPolicy lifespan;
};

struct DDS_SubscriberQos : DDS_GroupPolicies {
    DDS_EntityFactoryQosPolicy entity_factory;
    DDS_EntityNameQosPolicy subscriber_name;
};

struct DDS_DataReaderResourceLimitsQosPolicy {
    DDS_Boolean dynamically_allocate_fragmented_samples = true;
};

/// An empty representation of a reader stands for XCDR1 and XCDR2.
struct DDS_DataReaderQos : DDS_EndpointPolicies, DDS_HistoryPolicies {
    DDS_UserDataQosPolicy user_data;
    DDS_TimeBasedFilterQosPolicy time_based_filter;
    DDS_ReaderDataLifecycleQosPolicy reader_data_lifecycle;
    DDS_TypeConsistencyEnforcementQosPolicy type_consistency;
    DDS_DataReaderResourceLimitsQosPolicy reader_resource_limits;
    DDS_PropertyQosPolicy property;
    DDS_EntityNameQosPolicy subscription_name;
};

// -- Publisher, writer

struct DDS_PublisherQos : DDS_GroupPolicies {
    DDS_EntityFactoryQosPolicy entity_factory;
    DDS_EntityNameQosPolicy publisher_name;
};

/// The first representation of a writer is written; empty stands for XCDR1.
struct DDS_DataWriterQos : DDS_EndpointPolicies, DDS_HistoryPolicies {
    DDS_DataWriterQos() { reliability.kind = DDS_RELIABLE_RELIABILITY_QOS; }

    DDS_DurabilityServiceQosPolicy durability_service; // no such service here: without effect
    DDS_TransportPriorityQosPolicy transport_priority; // without effect
    DDS_LifespanQosPolicy lifespan;                    // announced, applied nowhere here
    DDS_UserDataQosPolicy user_data;
    DDS_OwnershipStrengthQosPolicy ownership_strength;
    DDS_WriterDataLifecycleQosPolicy writer_data_lifecycle;
    DDS_PropertyQosPolicy property;
    DDS_EntityNameQosPolicy publication_name;
};
