#include "discovery/partitions.h"

#include <algorithm>

#include "platform/text.h"
#include "rtps/protocol/qos_matching.h"

namespace meridian::discovery {

PartitionList announced_partitions(const PartitionList& names) {
    PartitionList announced = names;
    const bool has_default = std::find(names.begin(), names.end(), "") != names.end();
    const auto matches_default = [](const std::string& name) {
        return rtps::is_partition_pattern(name) && rtps::pattern_matches(name, "");
    };
    if (!has_default && std::any_of(names.begin(), names.end(), matches_default))
        announced.insert(announced.begin(), "");
    return announced;
}

bool partitions_match(const PartitionList& a, const PartitionList& b) {
    return rtps::partitions_match(announced_partitions(a), announced_partitions(b));
}

std::string join_partitions(const PartitionList& names) {
    std::string text;
    for (const std::string& name : names) {
        if (&name != &names.front())
            text += ',';
        text += name;
    }
    return text;
}

PartitionList split_partitions(const std::string& text) {
    return text.empty() ? PartitionList() : split(text, ",");
}

std::string partitions_text(const std::vector<rtps::Property>& properties) {
    const std::string* text = rtps::find_property(properties, kParticipantPartitionProperty);
    return text != nullptr ? *text : std::string();
}

PartitionList participant_partitions(const std::vector<rtps::Property>& properties) {
    std::string text = partitions_text(properties);
    if (text.size() > kMostPartitionOctets) {
        text.resize(kMostPartitionOctets + 1);
        const size_t end = text.rfind(',');
        text.resize(end != std::string::npos ? end : 0); // no part of a name
    }
    PartitionList names = split_partitions(text);
    names.resize(std::min(names.size(), kMostParticipantPartitions));
    return names;
}

} // namespace meridian::discovery
