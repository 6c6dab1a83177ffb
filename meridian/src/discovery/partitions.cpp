#include "discovery/partitions.h"

#include <algorithm>

#include "meridian/wildcard.h"

namespace meridian::discovery {

namespace {

bool names_match(const std::string& a, const std::string& b) {
    if (a == b)
        return true;
    const bool a_is_pattern = is_partition_pattern(a);
    const bool b_is_pattern = is_partition_pattern(b);
    if (a_is_pattern == b_is_pattern)
        return false;
    return a_is_pattern ? QUIXString_matchesWildcard(a.c_str(), b.c_str())
                        : QUIXString_matchesWildcard(b.c_str(), a.c_str());
}

} // namespace

bool is_partition_pattern(const std::string& name) {
    return name.find_first_of("*?[") != std::string::npos;
}

PartitionList announced_partitions(const PartitionList& names) {
    PartitionList announced = names;
    const bool has_default = std::find(names.begin(), names.end(), "") != names.end();
    const auto matches_default = [](const std::string& name) {
        return is_partition_pattern(name) && QUIXString_matchesWildcard(name.c_str(), "");
    };
    if (!has_default && std::any_of(names.begin(), names.end(), matches_default))
        announced.insert(announced.begin(), "");
    return announced;
}

bool partitions_match(const PartitionList& a, const PartitionList& b) {
    const auto effective = [](const PartitionList& names) {
        return names.empty() ? PartitionList{""} : announced_partitions(names);
    };
    const PartitionList left = effective(a);
    const PartitionList right = effective(b);
    return std::any_of(left.begin(), left.end(), [&](const std::string& name) {
        return std::any_of(right.begin(), right.end(),
                           [&](const std::string& other) { return names_match(name, other); });
    });
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
    PartitionList names;
    if (text.empty())
        return names;
    size_t start = 0;
    for (size_t comma = text.find(','); comma != std::string::npos; comma = text.find(',', start)) {
        names.push_back(text.substr(start, comma - start));
        start = comma + 1;
    }
    names.push_back(text.substr(start));
    return names;
}

PartitionList participant_partitions(const std::vector<rtps::Property>& properties) {
    for (const rtps::Property& property : properties) {
        if (property.name == kParticipantPartitionProperty)
            return split_partitions(property.value);
    }
    return {};
}

} // namespace meridian::discovery
