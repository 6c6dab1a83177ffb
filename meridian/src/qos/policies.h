#pragma once

// Every QoS policy described once: its members by the names of DDS-XML, how each is written and announced,
// and the policies of each entity. Reading documents, checks, comparison, announcements and messages all
// follow these descriptions.
//
// A record (a policy or the QoS of an entity) is described by fields_of(Of<Record>()), a tuple of Fields.

#include <string_view>
#include <tuple>
#include <type_traits>

#include "meridian/qos.h"
#include "rtps/wire/discovery_data.h"
#include "xml/named_values.h"

namespace meridian::qos {

using xml::NamedValue;
using xml::Names;
using Wire = rtps::EndpointQos;

template <typename T>
struct Of {};

// -- How the value of a field is written, where its type does not say it.

struct Plain {};
/// A number within a range, or a name.
struct Number {
    int64_t min;
    int64_t max;
    Names names;
};
/// A number that has a name.
struct Named {
    Names names;
};
/// Bits that have names.
struct Bits {
    Names names;
};
/// A duration above 0.
struct AboveZero {};

/// One member of a record.
template <typename Record, typename Member, typename Rule = Plain, typename WireMember = std::nullptr_t>
struct Field {
    using Value = Member;
    static constexpr bool announced = !std::is_null_pointer_v<WireMember>;

    const char* name;
    Member Record::*member;
    Rule rule{};
    WireMember wire{};             // what is announced of it
    const char* text = nullptr;    // before its value where an endpoint's policies are put in words
    bool fixed = false;            // a policy that cannot change once its entity is enabled
    DDS_QosPolicyId_t id = 0;      // of a policy that can make endpoints incompatible
    std::string_view title = name; // of a policy in messages about that

    template <typename Announced>
    constexpr auto as(Announced Wire::*announced_as, const char* words = nullptr) const {
        return Field<Record, Member, Rule, Announced Wire::*>{name,  member, rule, announced_as,
                                                              words, fixed,  id,   title};
    }
    constexpr Field at_creation() const {
        Field changed = *this;
        changed.fixed = true;
        return changed;
    }
    constexpr Field matched(DDS_QosPolicyId_t policy_id, std::string_view words) const {
        Field changed = *this;
        changed.id = policy_id;
        changed.title = words;
        return changed;
    }
};

template <typename Record, typename Member, typename Rule = Plain>
constexpr Field<Record, Member, Rule> field(const char* name, Member Record::*member, Rule rule = {}) {
    return {name, member, rule};
}

/// Calls `visit` for each field of a record, in their order.
template <typename Record, typename Visit>
void for_each_field(Visit&& visit) {
    std::apply([&visit](const auto&... fields) { (visit(fields), ...); }, fields_of(Of<Record>()));
}

template <typename T, typename = void>
struct IsRecord : std::false_type {};
template <typename T>
struct IsRecord<T, std::void_t<decltype(fields_of(Of<T>()))>> : std::true_type {};

// -- Names of values

/// Those of an enumeration.
template <typename Enumeration>
inline constexpr Names kNames{};

template <>
inline constexpr NamedValue kNames<DDS_DurabilityQosPolicyKind>[] = {
    {"VOLATILE_DURABILITY_QOS", DDS_VOLATILE_DURABILITY_QOS},
    {"TRANSIENT_LOCAL_DURABILITY_QOS", DDS_TRANSIENT_LOCAL_DURABILITY_QOS},
    {"TRANSIENT_DURABILITY_QOS", DDS_TRANSIENT_DURABILITY_QOS},
    {"PERSISTENT_DURABILITY_QOS", DDS_PERSISTENT_DURABILITY_QOS}};
template <>
inline constexpr NamedValue kNames<DDS_LivelinessQosPolicyKind>[] = {
    {"AUTOMATIC_LIVELINESS_QOS", DDS_AUTOMATIC_LIVELINESS_QOS},
    {"MANUAL_BY_PARTICIPANT_LIVELINESS_QOS", DDS_MANUAL_BY_PARTICIPANT_LIVELINESS_QOS},
    {"MANUAL_BY_TOPIC_LIVELINESS_QOS", DDS_MANUAL_BY_TOPIC_LIVELINESS_QOS}};
template <>
inline constexpr NamedValue kNames<DDS_ReliabilityQosPolicyKind>[] = {
    {"BEST_EFFORT_RELIABILITY_QOS", DDS_BEST_EFFORT_RELIABILITY_QOS},
    {"RELIABLE_RELIABILITY_QOS", DDS_RELIABLE_RELIABILITY_QOS}};
template <>
inline constexpr NamedValue kNames<DDS_OwnershipQosPolicyKind>[] = {
    {"SHARED_OWNERSHIP_QOS", DDS_SHARED_OWNERSHIP_QOS},
    {"EXCLUSIVE_OWNERSHIP_QOS", DDS_EXCLUSIVE_OWNERSHIP_QOS}};
template <>
inline constexpr NamedValue kNames<DDS_DestinationOrderQosPolicyKind>[] = {
    {"BY_RECEPTION_TIMESTAMP_DESTINATIONORDER_QOS", DDS_BY_RECEPTION_TIMESTAMP_DESTINATIONORDER_QOS},
    {"BY_SOURCE_TIMESTAMP_DESTINATIONORDER_QOS", DDS_BY_SOURCE_TIMESTAMP_DESTINATIONORDER_QOS}};
template <>
inline constexpr NamedValue kNames<DDS_PresentationQosPolicyAccessScopeKind>[] = {
    {"INSTANCE_PRESENTATION_QOS", DDS_INSTANCE_PRESENTATION_QOS},
    {"TOPIC_PRESENTATION_QOS", DDS_TOPIC_PRESENTATION_QOS},
    {"GROUP_PRESENTATION_QOS", DDS_GROUP_PRESENTATION_QOS}};
template <>
inline constexpr NamedValue kNames<DDS_HistoryQosPolicyKind>[] = {
    {"KEEP_LAST_HISTORY_QOS", DDS_KEEP_LAST_HISTORY_QOS}, {"KEEP_ALL_HISTORY_QOS", DDS_KEEP_ALL_HISTORY_QOS}};
template <>
inline constexpr NamedValue kNames<DDS_TypeConsistencyKind>[] = {
    {"DISALLOW_TYPE_COERCION", DDS_DISALLOW_TYPE_COERCION},
    {"ALLOW_TYPE_COERCION", DDS_ALLOW_TYPE_COERCION},
    {"AUTO_TYPE_COERCION", DDS_AUTO_TYPE_COERCION}};
inline constexpr NamedValue kRepresentations[] = {
    {"XCDR_DATA_REPRESENTATION", DDS_XCDR_DATA_REPRESENTATION},
    {"XML_DATA_REPRESENTATION", DDS_XML_DATA_REPRESENTATION},
    {"XCDR2_DATA_REPRESENTATION", DDS_XCDR2_DATA_REPRESENTATION}};
inline constexpr NamedValue kTransports[] = {
    {"TRANSPORTBUILTIN_MASK_DEFAULT", DDS_TRANSPORTBUILTIN_MASK_DEFAULT},
    {"TRANSPORTBUILTIN_UDPv4", DDS_TRANSPORTBUILTIN_UDPv4},
    {"TRANSPORTBUILTIN_SHMEM", DDS_TRANSPORTBUILTIN_SHMEM},
    {"TRANSPORTBUILTIN_UDPv6", DDS_TRANSPORTBUILTIN_UDPv6}};
inline constexpr NamedValue kDiscoveryPlugins[] = {
    {"DISCOVERYCONFIG_BUILTIN_SDP", DDS_DISCOVERYCONFIG_BUILTIN_SDP},
    {"DISCOVERYCONFIG_BUILTIN_SDP2", DDS_DISCOVERYCONFIG_BUILTIN_SDP2},
    {"SDP", DDS_DISCOVERYCONFIG_BUILTIN_SDP},
    {"SDP2", DDS_DISCOVERYCONFIG_BUILTIN_SDP2}};
inline constexpr NamedValue kUnlimited[] = {{"LENGTH_UNLIMITED", DDS_LENGTH_UNLIMITED}};
inline constexpr NamedValue kAutoId[] = {{"RTPS_AUTO_ID", DDS_RTPS_AUTO_ID}};

inline constexpr Number kAnyNumber{INT32_MIN, INT32_MAX, {}};
inline constexpr Number kPositive{1, INT32_MAX, {}};
inline constexpr Number kSize{0, INT32_MAX, {}};
inline constexpr Number kSizeOrUnlimited{0, INT32_MAX, kUnlimited};
inline constexpr Number kLimit{1, INT32_MAX, kUnlimited};
inline constexpr Number kParticipantId{-1, INT32_MAX, {}};
inline constexpr Number kGuidWord{0, UINT32_MAX, kAutoId};

// -- Policies

constexpr auto fields_of(Of<DDS_UserDataQosPolicy>) {
    return std::tuple(field("value", &DDS_UserDataQosPolicy::value).as(&Wire::user_data));
}
constexpr auto fields_of(Of<DDS_TopicDataQosPolicy>) {
    return std::tuple(field("value", &DDS_TopicDataQosPolicy::value).as(&Wire::topic_data));
}
constexpr auto fields_of(Of<DDS_GroupDataQosPolicy>) {
    return std::tuple(field("value", &DDS_GroupDataQosPolicy::value).as(&Wire::group_data));
}
constexpr auto fields_of(Of<DDS_EntityFactoryQosPolicy>) {
    return std::tuple(
        field("autoenable_created_entities", &DDS_EntityFactoryQosPolicy::autoenable_created_entities));
}
constexpr auto fields_of(Of<DDS_DurabilityQosPolicy>) {
    return std::tuple(field("kind", &DDS_DurabilityQosPolicy::kind).as(&Wire::durability, ""));
}
constexpr auto fields_of(Of<DDS_DurabilityServiceQosPolicy>) {
    using P = DDS_DurabilityServiceQosPolicy;
    return std::tuple(
        field("service_cleanup_delay", &P::service_cleanup_delay), field("history_kind", &P::history_kind),
        field("history_depth", &P::history_depth, kPositive), field("max_samples", &P::max_samples, kLimit),
        field("max_instances", &P::max_instances, kLimit),
        field("max_samples_per_instance", &P::max_samples_per_instance, kLimit));
}
constexpr auto fields_of(Of<DDS_DeadlineQosPolicy>) {
    return std::tuple(field("period", &DDS_DeadlineQosPolicy::period).as(&Wire::deadline, ""));
}
constexpr auto fields_of(Of<DDS_LatencyBudgetQosPolicy>) {
    return std::tuple(field("duration", &DDS_LatencyBudgetQosPolicy::duration).as(&Wire::latency_budget, ""));
}
constexpr auto fields_of(Of<DDS_LivelinessQosPolicy>) {
    using P = DDS_LivelinessQosPolicy;
    return std::tuple(field("kind", &P::kind).as(&Wire::liveliness, ""),
                      field("lease_duration", &P::lease_duration, AboveZero())
                          .as(&Wire::liveliness_lease, " with a lease of "));
}
constexpr auto fields_of(Of<DDS_ReliabilityQosPolicy>) {
    using P = DDS_ReliabilityQosPolicy;
    return std::tuple(field("kind", &P::kind).as(&Wire::reliability, ""),
                      field("max_blocking_time", &P::max_blocking_time).as(&Wire::max_blocking_time));
}
constexpr auto fields_of(Of<DDS_OwnershipQosPolicy>) {
    return std::tuple(field("kind", &DDS_OwnershipQosPolicy::kind).as(&Wire::ownership, ""));
}
constexpr auto fields_of(Of<DDS_OwnershipStrengthQosPolicy>) {
    return std::tuple(
        field("value", &DDS_OwnershipStrengthQosPolicy::value, kAnyNumber).as(&Wire::ownership_strength));
}
constexpr auto fields_of(Of<DDS_WriterDataLifecycleQosPolicy>) {
    return std::tuple(field("autodispose_unregistered_instances",
                            &DDS_WriterDataLifecycleQosPolicy::autodispose_unregistered_instances));
}
constexpr auto fields_of(Of<DDS_DestinationOrderQosPolicy>) {
    return std::tuple(field("kind", &DDS_DestinationOrderQosPolicy::kind).as(&Wire::destination_order, ""));
}
constexpr auto fields_of(Of<DDS_PresentationQosPolicy>) {
    using P = DDS_PresentationQosPolicy;
    return std::tuple(field("access_scope", &P::access_scope).as(&Wire::presentation, ""),
                      field("coherent_access", &P::coherent_access).as(&Wire::coherent_access, " coherent"),
                      field("ordered_access", &P::ordered_access).as(&Wire::ordered_access, " ordered"));
}
constexpr auto fields_of(Of<DDS_HistoryQosPolicy>) {
    using P = DDS_HistoryQosPolicy;
    return std::tuple(field("kind", &P::kind).as(&Wire::history),
                      field("depth", &P::depth, kPositive).as(&Wire::history_depth));
}
constexpr auto fields_of(Of<DDS_ResourceLimitsQosPolicy>) {
    using P = DDS_ResourceLimitsQosPolicy;
    return std::tuple(field("max_samples", &P::max_samples, kLimit),
                      field("max_instances", &P::max_instances, kLimit),
                      field("max_samples_per_instance", &P::max_samples_per_instance, kLimit));
}
constexpr auto fields_of(Of<DDS_PartitionQosPolicy>) {
    return std::tuple(field("name", &DDS_PartitionQosPolicy::name).as(&Wire::partitions, ""));
}
constexpr auto fields_of(Of<DDS_TimeBasedFilterQosPolicy>) {
    return std::tuple(field("minimum_separation", &DDS_TimeBasedFilterQosPolicy::minimum_separation)
                          .as(&Wire::time_based_filter));
}
constexpr auto fields_of(Of<DDS_ReaderDataLifecycleQosPolicy>) {
    using P = DDS_ReaderDataLifecycleQosPolicy;
    return std::tuple(field("autopurge_nowriter_samples_delay", &P::autopurge_nowriter_samples_delay),
                      field("autopurge_disposed_samples_delay", &P::autopurge_disposed_samples_delay));
}
constexpr auto fields_of(Of<DDS_TransportPriorityQosPolicy>) {
    return std::tuple(field("value", &DDS_TransportPriorityQosPolicy::value, kAnyNumber));
}
constexpr auto fields_of(Of<DDS_LifespanQosPolicy>) {
    return std::tuple(field("duration", &DDS_LifespanQosPolicy::duration, AboveZero()).as(&Wire::lifespan));
}
constexpr auto fields_of(Of<DDS_DataRepresentationQosPolicy>) {
    return std::tuple(field("value", &DDS_DataRepresentationQosPolicy::value).as(&Wire::representations, ""));
}
constexpr auto fields_of(Of<DDS_TypeConsistencyEnforcementQosPolicy>) {
    using Policy = DDS_TypeConsistencyEnforcementQosPolicy;
    return std::tuple(field("kind", &Policy::kind),
                      field("force_type_validation", &Policy::force_type_validation));
}
constexpr auto fields_of(Of<DDS_EntityNameQosPolicy>) {
    using P = DDS_EntityNameQosPolicy;
    return std::tuple(field("name", &P::name), field("role_name", &P::role_name));
}
constexpr auto fields_of(Of<DDS_Property_t>) {
    using P = DDS_Property_t;
    return std::tuple(field("name", &P::name), field("value", &P::value), field("propagate", &P::propagate));
}
constexpr auto fields_of(Of<DDS_PropertyQosPolicy>) {
    return std::tuple(field("value", &DDS_PropertyQosPolicy::value));
}
constexpr auto fields_of(Of<DDS_WireProtocolQosPolicy>) {
    using P = DDS_WireProtocolQosPolicy;
    return std::tuple(field("participant_id", &P::participant_id, kParticipantId),
                      field("rtps_host_id", &P::rtps_host_id, kGuidWord),
                      field("rtps_app_id", &P::rtps_app_id, kGuidWord),
                      field("rtps_instance_id", &P::rtps_instance_id, kGuidWord));
}
constexpr auto fields_of(Of<DDS_TransportBuiltinQosPolicy>) {
    return std::tuple(field("mask", &DDS_TransportBuiltinQosPolicy::mask, Bits{kTransports}));
}
constexpr auto fields_of(Of<DDS_DiscoveryQosPolicy>) {
    return std::tuple(field("initial_peers", &DDS_DiscoveryQosPolicy::initial_peers));
}
constexpr auto fields_of(Of<DDS_DiscoveryConfigQosPolicy>) {
    using P = DDS_DiscoveryConfigQosPolicy;
    return std::tuple(
        field("participant_liveliness_lease_duration", &P::participant_liveliness_lease_duration,
              AboveZero()),
        field("participant_liveliness_assert_period", &P::participant_liveliness_assert_period),
        field("builtin_discovery_plugins", &P::builtin_discovery_plugins, Named{kDiscoveryPlugins}));
}
constexpr auto fields_of(Of<DDS_DomainParticipantResourceLimitsQosPolicy>) {
    using P = DDS_DomainParticipantResourceLimitsQosPolicy;
    return std::tuple(
        field("type_code_max_serialized_length", &P::type_code_max_serialized_length, kSizeOrUnlimited));
}
constexpr auto fields_of(Of<DDS_ReceiverPoolQosPolicy>) {
    return std::tuple(field("buffer_size", &DDS_ReceiverPoolQosPolicy::buffer_size, kSize));
}
constexpr auto fields_of(Of<DDS_DataReaderResourceLimitsQosPolicy>) {
    using P = DDS_DataReaderResourceLimitsQosPolicy;
    return std::tuple(
        field("dynamically_allocate_fragmented_samples", &P::dynamically_allocate_fragmented_samples));
}

// -- Entities

/// Policies that topics, readers and writers have in common and that endpoints announce.
template <typename Q>
constexpr auto endpoint_policies() {
    return std::tuple(
        field("durability", &Q::durability).at_creation().matched(DDS_DURABILITY_QOS_POLICY_ID, "durability"),
        field("deadline", &Q::deadline).matched(DDS_DEADLINE_QOS_POLICY_ID, "deadline"),
        field("latency_budget", &Q::latency_budget)
            .matched(DDS_LATENCYBUDGET_QOS_POLICY_ID, "latency budget"),
        field("liveliness", &Q::liveliness).at_creation().matched(DDS_LIVELINESS_QOS_POLICY_ID, "liveliness"),
        field("reliability", &Q::reliability)
            .at_creation()
            .matched(DDS_RELIABILITY_QOS_POLICY_ID, "reliability"),
        field("destination_order", &Q::destination_order)
            .at_creation()
            .matched(DDS_DESTINATIONORDER_QOS_POLICY_ID, "destination order"),
        field("ownership", &Q::ownership).at_creation().matched(DDS_OWNERSHIP_QOS_POLICY_ID, "ownership"),
        field("representation", &Q::representation)
            .at_creation()
            .matched(DDS_DATA_REPRESENTATION_QOS_POLICY_ID, "data representation"));
}
/// Policies of their histories.
template <typename Q>
constexpr auto storage_policies() {
    return std::tuple(field("history", &Q::history).at_creation(),
                      field("resource_limits", &Q::resource_limits).at_creation());
}
/// Policies that publishers and subscribers have in common and that their endpoints announce.
template <typename Q>
constexpr auto group_policies() {
    return std::tuple(field("presentation", &Q::presentation)
                          .at_creation()
                          .matched(DDS_PRESENTATION_QOS_POLICY_ID, "presentation"),
                      field("partition", &Q::partition).matched(DDS_PARTITION_QOS_POLICY_ID, "partition"),
                      field("group_data", &Q::group_data));
}

constexpr auto fields_of(Of<DDS_EndpointPolicies>) {
    return endpoint_policies<DDS_EndpointPolicies>();
}
constexpr auto fields_of(Of<DDS_GroupPolicies>) {
    return group_policies<DDS_GroupPolicies>();
}
constexpr auto fields_of(Of<DDS_DomainParticipantQos>) {
    using Q = DDS_DomainParticipantQos;
    return std::tuple(field("user_data", &Q::user_data), field("entity_factory", &Q::entity_factory),
                      field("wire_protocol", &Q::wire_protocol).at_creation(),
                      field("transport_builtin", &Q::transport_builtin).at_creation(),
                      field("discovery", &Q::discovery).at_creation(),
                      field("discovery_config", &Q::discovery_config).at_creation(),
                      field("resource_limits", &Q::resource_limits).at_creation(),
                      field("receiver_pool", &Q::receiver_pool).at_creation(),
                      field("property", &Q::property), field("participant_name", &Q::participant_name),
                      field("partition", &Q::partition));
}
constexpr auto fields_of(Of<DDS_TopicQos>) {
    using Q = DDS_TopicQos;
    return std::tuple_cat(
        endpoint_policies<Q>(), storage_policies<Q>(),
        std::tuple(field("topic_data", &Q::topic_data),
                   field("durability_service", &Q::durability_service).at_creation(),
                   field("transport_priority", &Q::transport_priority), field("lifespan", &Q::lifespan)));
}
constexpr auto fields_of(Of<DDS_SubscriberQos>) {
    using Q = DDS_SubscriberQos;
    return std::tuple_cat(group_policies<Q>(), std::tuple(field("entity_factory", &Q::entity_factory),
                                                          field("subscriber_name", &Q::subscriber_name)));
}
constexpr auto fields_of(Of<DDS_PublisherQos>) {
    using Q = DDS_PublisherQos;
    return std::tuple_cat(group_policies<Q>(), std::tuple(field("entity_factory", &Q::entity_factory),
                                                          field("publisher_name", &Q::publisher_name)));
}
constexpr auto fields_of(Of<DDS_DataReaderQos>) {
    using Q = DDS_DataReaderQos;
    return std::tuple_cat(
        endpoint_policies<Q>(), storage_policies<Q>(),
        std::tuple(field("user_data", &Q::user_data), field("time_based_filter", &Q::time_based_filter),
                   field("reader_data_lifecycle", &Q::reader_data_lifecycle),
                   field("type_consistency", &Q::type_consistency).at_creation(),
                   field("reader_resource_limits", &Q::reader_resource_limits).at_creation(),
                   field("property", &Q::property), field("subscription_name", &Q::subscription_name)));
}
constexpr auto fields_of(Of<DDS_DataWriterQos>) {
    using Q = DDS_DataWriterQos;
    return std::tuple_cat(
        endpoint_policies<Q>(), storage_policies<Q>(),
        std::tuple(field("durability_service", &Q::durability_service),
                   field("transport_priority", &Q::transport_priority), field("lifespan", &Q::lifespan),
                   field("user_data", &Q::user_data), field("ownership_strength", &Q::ownership_strength),
                   field("writer_data_lifecycle", &Q::writer_data_lifecycle), field("property", &Q::property),
                   field("publication_name", &Q::publication_name)));
}

} // namespace meridian::qos
