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

/// Why `wanted` cannot take the place of `current` in an entity, logged; DDS_RETCODE_OK when it can.
template <typename Qos>
DDS_ReturnCode_t check_change(const Qos& current, const Qos& wanted, bool enabled, const char* what) {
    const std::string fixed = enabled ? qos::changed_immutable_policy(current, wanted) : "";
    if (!fixed.empty()) {
        MERIDIAN_LOG_ERROR("dcps", "QoS of the %s: %s cannot change any more", what, fixed.c_str());
        return DDS_RETCODE_IMMUTABLE_POLICY;
    }
    return is_consistent(wanted, what) ? DDS_RETCODE_OK : DDS_RETCODE_INCONSISTENT_POLICY;
}

/// Changes `current` where that is possible.
template <typename Qos>
DDS_ReturnCode_t change_qos(Qos& current, const Qos& wanted, bool enabled, const char* what) {
    const DDS_ReturnCode_t result = check_change(current, wanted, enabled, what);
    if (result == DDS_RETCODE_OK)
        current = wanted;
    return result;
}

} // namespace meridian::dcps
