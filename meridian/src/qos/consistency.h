#pragma once

// Do the policies of one QoS record fit together, and does this middleware do what they ask (OMG
// DDS 1.4, 2.2.3)? Each function returns an empty string, or the reason why not: one line that names policy,
// values and limit.

#include <string>

#include "meridian/qos.h"

namespace meridian::qos {

/// For the QoS of participants, topics, publishers, subscribers, readers and writers.
template <typename Qos>
std::string check_consistency(const Qos& qos);

/// The name of a policy that cannot change once the entity is enabled and has changed, for
/// DDS_RETCODE_IMMUTABLE_POLICY; else an empty string. For the same QoS records.
template <typename Qos>
std::string changed_immutable_policy(const Qos& before, const Qos& after);

} // namespace meridian::qos
