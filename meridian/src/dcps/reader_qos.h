#pragma once

// The QoS of a reader as it is announced, and what keeps it from a writer in words. Pure functions.

#include <string>
#include <vector>

#include "meridian/qos.h"
#include "rtps/wire/discovery_data.h"

namespace meridian::dcps {

/// Without representations of its own a reader takes both encodings.
rtps::EndpointQos to_endpoint_qos(const DDS_DataReaderQos& reader, const DDS_SubscriberQos& subscriber,
                                  const DDS_TopicQos& topic);

/// "reliability: offered BEST_EFFORT, requested RELIABLE; deadline: offered infinite, requested 2.5 s"
std::string describe_incompatibility(const rtps::EndpointQos& offered, const rtps::EndpointQos& requested,
                                     const std::vector<uint32_t>& policies);

} // namespace meridian::dcps
