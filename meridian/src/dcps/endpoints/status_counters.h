#pragma once

// What the statuses of readers and writers have in common.

#include <cstdint>
#include <vector>

#include "meridian/status.h"

namespace meridian::dcps {

/// The status as it is, after which its changes count from zero.
template <typename Status>
Status taken(Status& status) {
    Status copy = status;
    status.total_count_change = 0;
    return copy;
}

/// One more matched endpoint, or one less.
template <typename Status>
void count_match(Status& status, bool matched) {
    status.total_count += matched ? 1 : 0;
    status.total_count_change += matched ? 1 : 0;
    status.current_count += matched ? 1 : -1;
    status.current_count_change += matched ? 1 : -1;
}

/// The status of matches as it is, after which its changes count from zero.
template <typename Status>
Status taken_match(Status& status) {
    Status copy = taken(status);
    status.current_count_change = 0;
    return copy;
}

/// One more remote endpoint that these policies keep away.
template <typename Status>
void count_incompatible(Status& status, const std::vector<uint32_t>& policies) {
    ++status.total_count;
    ++status.total_count_change;
    for (const uint32_t policy : policies) {
        const auto id = static_cast<DDS_QosPolicyId_t>(policy);
        status.last_policy_id = id;
        DDS_Long at = 0;
        while (at < status.policies.length() && status.policies[at].policy_id != id)
            ++at;
        if (at < status.policies.length())
            ++status.policies[at].count;
        else
            status.policies.append(DDS_QosPolicyCount{id, 1});
    }
}

} // namespace meridian::dcps
