#pragma once

// Whether a writer and a reader fit together: requested against offered QoS (DDS 1.4, 2.2.3), data
// representation (DDS-XTypes 1.3, 7.6.3.1.1) and partitions. Pure functions.

#include <string>
#include <vector>

#include "rtps/wire/discovery_data.h"

namespace meridian::rtps {

/// DDS policy ids, as in the standard's PSM.
enum QosPolicyId : uint32_t {
    kDurabilityPolicy = 2,
    kPresentationPolicy = 3,
    kDeadlinePolicy = 4,
    kLatencyBudgetPolicy = 5,
    kOwnershipPolicy = 6,
    kLivelinessPolicy = 8,
    kPartitionPolicy = 10,
    kReliabilityPolicy = 11,
    kDestinationOrderPolicy = 12,
    kDataRepresentationPolicy = 23,
};

/// Policies that keep the two apart, in ascending order; empty: they match. A partition mismatch is no
/// incompatibility in the sense of the standard but is listed like one; tell the two apart by the id.
std::vector<uint32_t> incompatible_policies(const EndpointQos& writer, const EndpointQos& reader);

/// Any name of one list equals one of the other, or is matched by a pattern of the other. An empty list is
/// the default partition, whose name is the empty string. Two patterns never match each other.
bool partitions_match(const std::vector<std::string>& a, const std::vector<std::string>& b);

/// True when name contains '*', '?' or '['.
bool is_partition_pattern(const std::string& name);

/// POSIX fnmatch rules without flags, for single bytes: '*', '?', bracket expressions with '!' or '^' and
/// ranges, and backslash. An unterminated bracket is an ordinary character. Linear in practice: at most
/// |pattern| * |name| steps.
bool pattern_matches(const std::string& pattern, const std::string& name);

} // namespace meridian::rtps
