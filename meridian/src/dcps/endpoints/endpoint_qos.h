#pragma once

// The QoS of readers and writers as it is announced, and what keeps two of them apart in words. Pure
// functions.

#include <string>
#include <vector>

#include "meridian/qos.h"
#include "meridian/topic.h"
#include "rtps/wire/discovery_data.h"

namespace meridian::dcps {

/// With the policies of the subscriber or publisher. Without representations of its own a reader takes both
/// encodings.
rtps::EndpointQos to_endpoint_qos(const DDS_DataReaderQos& qos, const DDS_GroupPolicies& group,
                                  const DDS_TopicQos& topic);
rtps::EndpointQos to_endpoint_qos(const DDS_DataWriterQos& qos, const DDS_GroupPolicies& group,
                                  const DDS_TopicQos& topic);
/// As an endpoint of others announced it.
rtps::EndpointQos to_endpoint_qos(const DDS_EndpointPolicies& policies, const DDS_GroupPolicies& group);

/// The name that an endpoint announces.
inline const DDS_EntityNameQosPolicy& name_of(const DDS_DataReaderQos& qos) {
    return qos.subscription_name;
}
inline const DDS_EntityNameQosPolicy& name_of(const DDS_DataWriterQos& qos) {
    return qos.publication_name;
}

/// What an endpoint announces of itself, but for its addresses.
rtps::EndpointData to_endpoint_data(const rtps::Guid& guid, DDSTopicDescription& topic,
                                    const rtps::EndpointQos& qos, const DDS_EntityNameQosPolicy& name,
                                    const DDS_PropertyQosPolicy& properties);

/// The policies that the matching protocol lists, without partitions: a difference of partitions is not a
/// mistake.
std::vector<uint32_t> without_partition(const std::vector<uint32_t>& policies);

/// "reliability: offered BEST_EFFORT, requested RELIABLE; deadline: offered infinite, requested 2.5 s"
std::string describe_incompatibility(const rtps::EndpointQos& offered, const rtps::EndpointQos& requested,
                                     const std::vector<uint32_t>& policies);

} // namespace meridian::dcps
