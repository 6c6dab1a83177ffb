#pragma once

#include <string>

#include "meridian/base.h"
#include "platform/log.h"
#include "qos/consistency.h"

namespace meridian::dcps {

/// Logs why the QoS of `what` cannot be used.
template <typename Qos>
bool is_consistent(const Qos& qos, const char* what) {
    const std::string problem = qos::check_consistency(qos);
    if (problem.empty())
        return true;
    MERIDIAN_LOG_ERROR("dcps", "QoS of the %s: %s", what, problem.c_str());
    return false;
}

/// `wanted` takes the place of `current` in an entity; where that is impossible the reason is logged.
template <typename Qos>
DDS_ReturnCode_t change_qos(Qos& current, const Qos& wanted, bool enabled, const char* what) {
    const std::string fixed = enabled ? qos::changed_immutable_policy(current, wanted) : "";
    if (!fixed.empty()) {
        MERIDIAN_LOG_ERROR("dcps", "QoS of the %s: %s cannot change any more", what, fixed.c_str());
        return DDS_RETCODE_IMMUTABLE_POLICY;
    }
    if (!is_consistent(wanted, what))
        return DDS_RETCODE_INCONSISTENT_POLICY;
    current = wanted;
    return DDS_RETCODE_OK;
}

} // namespace meridian::dcps
