#pragma once

// Partitions (OMG DDS 1.4, 2.2.3.13) of participants and of endpoints. An empty list stands for the one
// default partition, whose name is empty. Names with '*', '?' or '[' are patterns. Pure functions.

#include <string>
#include <vector>

#include "rtps/wire/discovery_data.h"

namespace meridian::discovery {

using PartitionList = std::vector<std::string>;

/// Where participants announce their partitions: names joined by ",".
constexpr const char* kParticipantPartitionProperty = "dds.domain_participant.partition";

bool is_partition_pattern(const std::string& name);

/// What an endpoint with these partitions announces: the empty name stands beside every pattern that matches
/// it, because some peers do not let a pattern match the default partition.
PartitionList announced_partitions(const PartitionList& names);

/// True when a name of one side equals a name of the other, or is matched by a pattern of the other. Two
/// patterns match only when both match the default partition, or are equal.
bool partitions_match(const PartitionList& a, const PartitionList& b);

std::string join_partitions(const PartitionList& names);
/// The inverse of join_partitions; empty text is an empty list.
PartitionList split_partitions(const std::string& text);

/// The partitions that a participant announces among its properties; empty when it announces none.
PartitionList participant_partitions(const std::vector<rtps::Property>& properties);

} // namespace meridian::discovery
