#include "dcps/endpoints/endpoint_qos.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "discovery/announced_qos.h"
#include "discovery/partitions.h"
#include "platform/text.h"
#include "rtps/protocol/qos_matching.h"

namespace meridian::dcps {

namespace {

using rtps::EndpointQos;

/// "TRANSIENT_LOCAL" for TRANSIENT_LOCAL_DURABILITY_QOS.
template <typename Kind>
std::enable_if_t<std::is_enum_v<Kind>, std::string> text_of(Kind kind) {
    for (const xml::NamedValue& known : qos::kNames<Kind>) {
        const std::string name = known.name;
        if (known.value == kind)
            return name.substr(0, name.rfind('_', name.rfind('_') - 1));
    }
    return "?";
}

std::string text_of(const DDS_Duration_t& duration) {
    if (DDS_Duration_is_infinite(duration))
        return "infinite";
    char text[32];
    std::snprintf(text, sizeof text, "%.9g s", duration.sec + duration.nanosec * 1e-9);
    return text;
}

std::string text_of(const DDS_DataRepresentationIdSeq& ids) {
    std::string text;
    for (DDS_Long i = 0; i < ids.length(); ++i) {
        text += text.empty() ? "" : ", ";
        text += ids[i] == rtps::kXcdr1               ? "XCDR1"
                : ids[i] == rtps::kXcdr2             ? "XCDR2"
                : ids[i] == rtps::kXmlRepresentation ? "XML"
                                                     : std::to_string(ids[i]);
    }
    return text.empty() ? "XCDR1" : text;
}

/// Of partitions. There may be thousands.
std::string text_of(const DDS_StringSeq& names) {
    constexpr size_t kMost = 200;
    std::string text = discovery::join_partitions(discovery::to_strings(names));
    if (text.size() > kMost)
        text.replace(valid_length(std::string_view(text).substr(0, kMost)), std::string::npos, "...");
    return '"' + text + '"';
}

/// What is announced of a policy, in words.
template <typename Policy>
std::string text_of_policy(const EndpointQos& announced) {
    Policy policy;
    discovery::read_announced(announced, policy);
    std::string text;
    qos::for_each_field<Policy>([&](const auto& field) {
        const auto& value = policy.*field.member;
        if (field.text == nullptr)
            return;
        if constexpr (std::is_same_v<decltype(value), const bool&>)
            text += value ? field.text : "";
        else
            text += field.text + text_of(value);
    });
    return text;
}

/// "reliability: offered BEST_EFFORT, requested RELIABLE"
std::string describe_policy(uint32_t id, const EndpointQos& offered, const EndpointQos& requested) {
    std::string text = "policy " + std::to_string(id);
    const auto describe = [&](const auto&... policies) {
        const auto describe_if = [&](const auto& policy) {
            using Policy = typename std::decay_t<decltype(policy)>::Value;
            if (static_cast<uint32_t>(policy.id) == id)
                text = std::string(policy.title) + ": offered " + text_of_policy<Policy>(offered) +
                       ", requested " + text_of_policy<Policy>(requested);
        };
        (describe_if(policies), ...);
    };
    std::apply(describe, qos::endpoint_policies<DDS_DataReaderQos>());
    const auto group = qos::group_policies<DDS_GroupPolicies>();
    describe(std::get<0>(group), std::get<1>(group)); // without the data
    return text;
}

template <typename Qos>
EndpointQos announced(const Qos& qos, const DDS_GroupPolicies& group) {
    EndpointQos out;
    discovery::announce(qos, out);
    discovery::announce(group, out);
    return out;
}

template <typename Qos>
EndpointQos announced(const Qos& qos, const DDS_GroupPolicies& group, const DDS_TopicQos& topic) {
    EndpointQos out = announced(qos, group);
    discovery::announce(topic.topic_data, out);
    out.partitions = discovery::announced_partitions(out.partitions);
    return out;
}

} // namespace

EndpointQos to_endpoint_qos(const DDS_DataReaderQos& qos, const DDS_GroupPolicies& group,
                            const DDS_TopicQos& topic) {
    EndpointQos out = announced(qos, group, topic);
    if (out.representations.empty())
        out.representations = {rtps::kXcdr1, rtps::kXcdr2};
    return out;
}

EndpointQos to_endpoint_qos(const DDS_DataWriterQos& qos, const DDS_GroupPolicies& group,
                            const DDS_TopicQos& topic) {
    return announced(qos, group, topic);
}

EndpointQos to_endpoint_qos(const DDS_EndpointPolicies& policies, const DDS_GroupPolicies& group) {
    return announced(policies, group);
}

rtps::EndpointData to_endpoint_data(const rtps::Guid& guid, DDSTopicDescription& topic,
                                    const rtps::EndpointQos& qos, const DDS_EntityNameQosPolicy& name,
                                    const DDS_PropertyQosPolicy& properties) {
    rtps::EndpointData data;
    data.guid = guid;
    data.topic_name = topic.get_name();
    data.type_name = topic.get_type_name();
    data.qos = qos;
    data.name = discovery::to_text(name.name);
    data.properties = discovery::to_properties(properties, discovery::Properties::propagated);
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
    for (const uint32_t id : policies)
        text += (text.empty() ? "" : "; ") + describe_policy(id, offered, requested);
    return text;
}

} // namespace meridian::dcps
