#include "dcps/endpoints/endpoint_qos.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "discovery/conversions.h"
#include "discovery/partitions.h"
#include "rtps/protocol/qos_matching.h"

namespace meridian::dcps {

namespace {

using rtps::EndpointQos;

std::string text_of(rtps::WireDuration duration) {
    if (duration.seconds == rtps::kDurationInfinite.seconds)
        return "infinite";
    char text[32];
    std::snprintf(text, sizeof text, "%.9g s",
                  duration.seconds + rtps::nanoseconds_from_fraction(duration.fraction) * 1e-9);
    return text;
}

std::string text_of(rtps::Durability kind) {
    switch (kind) {
        case rtps::Durability::volatile_:
            return "VOLATILE";
        case rtps::Durability::transient_local:
            return "TRANSIENT_LOCAL";
        case rtps::Durability::transient:
            return "TRANSIENT";
        case rtps::Durability::persistent:
            return "PERSISTENT";
    }
    return "?";
}

std::string text_of(rtps::LivelinessKind kind, rtps::WireDuration lease) {
    const char* name = kind == rtps::LivelinessKind::automatic               ? "AUTOMATIC"
                       : kind == rtps::LivelinessKind::manual_by_participant ? "MANUAL_BY_PARTICIPANT"
                                                                             : "MANUAL_BY_TOPIC";
    return std::string(name) + " with a lease of " + text_of(lease);
}

std::string presentation_of(const EndpointQos& qos) {
    std::string text = qos.presentation == rtps::PresentationScope::instance ? "INSTANCE"
                       : qos.presentation == rtps::PresentationScope::topic  ? "TOPIC"
                                                                             : "GROUP";
    if (qos.coherent_access)
        text += " coherent";
    if (qos.ordered_access)
        text += " ordered";
    return text;
}

std::string representations_of(const EndpointQos& qos) {
    std::string text;
    for (const int16_t id : qos.representations) {
        if (!text.empty())
            text += ", ";
        text += id == rtps::kXcdr1               ? "XCDR1"
                : id == rtps::kXcdr2             ? "XCDR2"
                : id == rtps::kXmlRepresentation ? "XML"
                                                 : std::to_string(id);
    }
    return text.empty() ? "XCDR1" : text;
}

struct Policy {
    const char* name;
    std::string (*value)(const EndpointQos&);
};

Policy policy_of(uint32_t id) {
    switch (id) {
        case rtps::kDurabilityPolicy:
            return {"durability", [](const EndpointQos& qos) { return text_of(qos.durability); }};
        case rtps::kPresentationPolicy:
            return {"presentation", presentation_of};
        case rtps::kDeadlinePolicy:
            return {"deadline", [](const EndpointQos& qos) { return text_of(qos.deadline); }};
        case rtps::kLatencyBudgetPolicy:
            return {"latency budget", [](const EndpointQos& qos) { return text_of(qos.latency_budget); }};
        case rtps::kOwnershipPolicy:
            return {"ownership", [](const EndpointQos& qos) -> std::string {
                        return qos.ownership == rtps::Ownership::shared ? "SHARED" : "EXCLUSIVE";
                    }};
        case rtps::kLivelinessPolicy:
            return {"liveliness",
                    [](const EndpointQos& qos) { return text_of(qos.liveliness, qos.liveliness_lease); }};
        case rtps::kReliabilityPolicy:
            return {"reliability", [](const EndpointQos& qos) -> std::string {
                        return qos.reliability == rtps::Reliability::best_effort ? "BEST_EFFORT" : "RELIABLE";
                    }};
        case rtps::kDestinationOrderPolicy:
            return {"destination order", [](const EndpointQos& qos) -> std::string {
                        return qos.destination_order == rtps::DestinationOrder::by_source
                                   ? "BY_SOURCE_TIMESTAMP"
                                   : "BY_RECEPTION_TIMESTAMP";
                    }};
        case rtps::kDataRepresentationPolicy:
            return {"data representation", representations_of};
        default:
            return {nullptr, nullptr};
    }
}

template <typename Qos>
EndpointQos common_qos(const Qos& qos, const GroupQos& group, const DDS_TopicQos& topic) {
    EndpointQos out;
    out.durability = static_cast<rtps::Durability>(qos.durability.kind);
    out.deadline = discovery::to_wire(qos.deadline.period);
    out.latency_budget = discovery::to_wire(qos.latency_budget.duration);
    out.liveliness = static_cast<rtps::LivelinessKind>(qos.liveliness.kind);
    out.liveliness_lease = discovery::to_wire(qos.liveliness.lease_duration);
    out.reliability = qos.reliability.kind == DDS_RELIABLE_RELIABILITY_QOS ? rtps::Reliability::reliable
                                                                           : rtps::Reliability::best_effort;
    out.max_blocking_time = discovery::to_wire(qos.reliability.max_blocking_time);
    out.ownership = static_cast<rtps::Ownership>(qos.ownership.kind);
    out.destination_order = static_cast<rtps::DestinationOrder>(qos.destination_order.kind);
    out.presentation = static_cast<rtps::PresentationScope>(group.presentation.access_scope);
    out.coherent_access = group.presentation.coherent_access;
    out.ordered_access = group.presentation.ordered_access;
    out.partitions = discovery::announced_partitions(discovery::to_strings(group.partition.name));
    out.group_data = discovery::to_bytes(group.group_data.value);
    out.history = static_cast<rtps::HistoryKind>(qos.history.kind);
    out.history_depth = qos.history.depth;
    for (DDS_Long i = 0; i < qos.representation.value.length(); ++i)
        out.representations.push_back(qos.representation.value[i]);
    out.user_data = discovery::to_bytes(qos.user_data.value);
    out.topic_data = discovery::to_bytes(topic.topic_data.value);
    return out;
}

} // namespace

EndpointQos to_endpoint_qos(const DDS_DataReaderQos& qos, const GroupQos& group, const DDS_TopicQos& topic) {
    EndpointQos out = common_qos(qos, group, topic);
    out.time_based_filter = discovery::to_wire(qos.time_based_filter.minimum_separation);
    if (out.representations.empty())
        out.representations = {rtps::kXcdr1, rtps::kXcdr2};
    return out;
}

EndpointQos to_endpoint_qos(const DDS_DataWriterQos& qos, const GroupQos& group, const DDS_TopicQos& topic) {
    EndpointQos out = common_qos(qos, group, topic);
    out.ownership_strength = qos.ownership_strength.value;
    out.lifespan = discovery::to_wire(qos.lifespan.duration);
    return out;
}

std::vector<rtps::Property> propagated(const DDS_PropertyQosPolicy& policy) {
    std::vector<rtps::Property> properties;
    for (DDS_Long i = 0; i < policy.value.length(); ++i) {
        const DDS_Property_t& property = policy.value[i];
        if (property.propagate)
            properties.push_back({property.name, property.value != nullptr ? property.value : ""});
    }
    return properties;
}

rtps::EndpointData to_endpoint_data(const rtps::Guid& guid, DDSTopicDescription& topic,
                                    const rtps::EndpointQos& qos, const DDS_EntityNameQosPolicy& name,
                                    const DDS_PropertyQosPolicy& properties) {
    rtps::EndpointData data;
    data.guid = guid;
    data.participant = guid.prefix;
    data.topic_name = topic.get_name();
    data.type_name = topic.get_type_name();
    data.qos = qos;
    if (name.name != nullptr)
        data.name = name.name;
    data.properties = propagated(properties);
    return data;
}

std::vector<uint32_t> without_partition(const std::vector<uint32_t>& policies) {
    std::vector<uint32_t> others;
    std::copy_if(policies.begin(), policies.end(), std::back_inserter(others),
                 [](uint32_t policy) { return policy != rtps::kPartitionPolicy; });
    return others;
}

std::string describe_incompatibility(const EndpointQos& offered, const EndpointQos& requested,
                                     const std::vector<uint32_t>& policies) {
    std::string text;
    for (const uint32_t id : policies) {
        if (!text.empty())
            text += "; ";
        const Policy policy = policy_of(id);
        if (policy.name == nullptr)
            text += "policy " + std::to_string(id);
        else
            text += std::string(policy.name) + ": offered " + policy.value(offered) + ", requested " +
                    policy.value(requested);
    }
    return text;
}

} // namespace meridian::dcps
