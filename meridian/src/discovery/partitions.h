#pragma once

// Partitions (OMG DDS 1.4, 2.2.3.13) of participants and of endpoints. An empty list stands for the one
// default partition, whose name is empty. Pure functions.

#include <string>
#include <vector>

#include "rtps/wire/discovery_data.h"

namespace meridian::discovery {

using PartitionList = std::vector<std::string>;

/// Where participants announce their partitions: names joined by ",".
constexpr const char* kParticipantPartitionProperty = "dds.domain_participant.partition";

/// What an endpoint with these partitions announces: the empty name stands beside every pattern that matches
/// it, because some peers do not let a pattern match the default partition.
PartitionList announced_partitions(const PartitionList& names);

/// Whether participants with these partitions see each other: the rules for endpoints, applied to what each
/// would announce. So two participants with "*" do, although patterns do not match each other.
bool partitions_match(const PartitionList& a, const PartitionList& b);

std::string join_partitions(const PartitionList& names);
/// The inverse of join_partitions; empty text is an empty list.
PartitionList split_partitions(const std::string& text);

/// What is taken of the partitions of a participant: all of its endpoints are shown and kept with them.
constexpr size_t kMostParticipantPartitions = 256;
constexpr size_t kMostPartitionOctets = 1024; // of all names, joined
/// As a participant announces them: joined names; empty when it announces none.
std::string partitions_text(const std::vector<rtps::Property>& properties);
/// The partitions that a participant announces among its properties, as far as they are taken; empty when it
/// announces none.
PartitionList participant_partitions(const std::vector<rtps::Property>& properties);

} // namespace meridian::discovery
