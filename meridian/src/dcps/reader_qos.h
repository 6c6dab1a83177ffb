#pragma once

// The QoS of a reader as it is announced, and what keeps it from a writer in words. Pure functions.

#include <string>
#include <vector>

#include "meridian/qos.h"
#include "rtps/wire/discovery_data.h"

namespace meridian::dcps {

/// Without representations of its own a reader takes both encodings. The partitions are those of its
/// subscriber.
rtps::EndpointQos to_endpoint_qos(const DDS_DataReaderQos& qos, const std::vector<std::string>& partitions);

/// "reliability: offered BEST_EFFORT, requested RELIABLE; deadline: offered infinite, requested 2.5 s"
std::string describe_incompatibility(const rtps::EndpointQos& offered, const rtps::EndpointQos& requested,
                                     const std::vector<uint32_t>& policies);

} // namespace meridian::dcps
