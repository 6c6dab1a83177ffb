#include "rtps/protocol/qos_matching.h"

#include <algorithm>

namespace meridian::rtps {

namespace {

/// Matches one element of a pattern (not '*') against c. On return next is the position after the element.
bool element_matches(const std::string& pattern, size_t at, char c, size_t& next) {
    const auto byte = [](char value) { return static_cast<unsigned char>(value); };
    if (pattern[at] == '?') {
        next = at + 1;
        return true;
    }
    if (pattern[at] == '\\' && at + 1 < pattern.size()) {
        next = at + 2;
        return pattern[at + 1] == c;
    }
    if (pattern[at] == '[') {
        size_t i = at + 1;
        const bool negated = i < pattern.size() && (pattern[i] == '!' || pattern[i] == '^');
        if (negated)
            ++i;
        bool found = false;
        for (bool first = true; i < pattern.size() && (first || pattern[i] != ']'); first = false) {
            if (pattern[i] == '\\' && i + 1 < pattern.size())
                ++i;
            const char low = pattern[i++];
            char high = low;
            if (i + 1 < pattern.size() && pattern[i] == '-' && pattern[i + 1] != ']') {
                const bool escaped = pattern[i + 1] == '\\' && i + 2 < pattern.size();
                i += escaped ? 2u : 1u;
                high = pattern[i++];
            }
            found = found || (byte(low) <= byte(c) && byte(c) <= byte(high));
        }
        if (i < pattern.size()) { // at the closing bracket
            next = i + 1;
            return found != negated;
        }
    }
    next = at + 1;
    return pattern[at] == c;
}

bool longer(WireDuration a, WireDuration b) {
    return b < a;
}

std::vector<int16_t> representations(const EndpointQos& qos) {
    return qos.representations.empty() ? std::vector<int16_t>{kXcdr1} : qos.representations;
}

/// A writer uses the first representation of its list; the reader must accept that one.
bool representation_accepted(const EndpointQos& writer, const EndpointQos& reader) {
    const std::vector<int16_t> accepted = representations(reader);
    return std::find(accepted.begin(), accepted.end(), representations(writer).front()) != accepted.end();
}

} // namespace

bool is_partition_pattern(const std::string& name) {
    return name.find_first_of("*?[") != std::string::npos;
}

bool pattern_matches(const std::string& pattern, const std::string& name) {
    size_t p = 0;
    size_t n = 0;
    size_t star = std::string::npos;
    size_t resume = 0;
    while (n < name.size()) {
        size_t next = 0;
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            resume = n;
        } else if (p < pattern.size() && element_matches(pattern, p, name[n], next)) {
            p = next;
            ++n;
        } else if (star != std::string::npos) {
            p = star + 1;
            n = ++resume;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*')
        ++p;
    return p == pattern.size();
}

bool partitions_match(const std::vector<std::string>& a, const std::vector<std::string>& b) {
    static const std::vector<std::string> kDefault{std::string()};
    const std::vector<std::string>& left = a.empty() ? kDefault : a;
    const std::vector<std::string>& right = b.empty() ? kDefault : b;
    for (const std::string& x : left) {
        const bool x_is_pattern = is_partition_pattern(x);
        for (const std::string& y : right) {
            const bool y_is_pattern = is_partition_pattern(y);
            if (x_is_pattern && y_is_pattern)
                continue;
            if (x_is_pattern ? pattern_matches(x, y) : y_is_pattern ? pattern_matches(y, x) : x == y)
                return true;
        }
    }
    return false;
}

std::vector<uint32_t> incompatible_policies(const EndpointQos& writer, const EndpointQos& reader) {
    std::vector<uint32_t> result;
    const auto require = [&result](bool compatible, uint32_t policy) {
        if (!compatible)
            result.push_back(policy);
    };
    require(writer.durability >= reader.durability, kDurabilityPolicy);
    require(writer.presentation >= reader.presentation &&
                (writer.coherent_access || !reader.coherent_access) &&
                (writer.ordered_access || !reader.ordered_access),
            kPresentationPolicy);
    require(!longer(writer.deadline, reader.deadline), kDeadlinePolicy);
    require(!longer(writer.latency_budget, reader.latency_budget), kLatencyBudgetPolicy);
    require(writer.ownership == reader.ownership, kOwnershipPolicy);
    require(
        writer.liveliness >= reader.liveliness && !longer(writer.liveliness_lease, reader.liveliness_lease),
        kLivelinessPolicy);
    require(partitions_match(writer.partitions, reader.partitions), kPartitionPolicy);
    require(writer.reliability >= reader.reliability, kReliabilityPolicy);
    require(writer.destination_order >= reader.destination_order, kDestinationOrderPolicy);
    require(representation_accepted(writer, reader), kDataRepresentationPolicy);
    return result;
}

} // namespace meridian::rtps
