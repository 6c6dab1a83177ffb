#pragma once

// Do the policies of one QoS record fit together, and does this middleware do what they ask (OMG
// DDS 1.4, 2.2.3)? Each function returns an empty string, or the reason why not: one line that names policy,
// values and limit.

#include <string>

#include "meridian/qos.h"

namespace meridian::qos {

std::string check_consistency(const DDS_DomainParticipantQos& qos);
std::string check_consistency(const DDS_TopicQos& qos);
std::string check_consistency(const DDS_SubscriberQos& qos);
std::string check_consistency(const DDS_DataReaderQos& qos);
std::string check_consistency(const DDS_PublisherQos& qos);
std::string check_consistency(const DDS_DataWriterQos& qos);

/// Has a policy that cannot change once the entity is enabled changed? Then its name, for
/// DDS_RETCODE_IMMUTABLE_POLICY; else an empty string.
std::string changed_immutable_policy(const DDS_DomainParticipantQos& before,
                                     const DDS_DomainParticipantQos& after);
std::string changed_immutable_policy(const DDS_TopicQos& before, const DDS_TopicQos& after);
std::string changed_immutable_policy(const DDS_SubscriberQos& before, const DDS_SubscriberQos& after);
std::string changed_immutable_policy(const DDS_DataReaderQos& before, const DDS_DataReaderQos& after);
std::string changed_immutable_policy(const DDS_PublisherQos& before, const DDS_PublisherQos& after);
std::string changed_immutable_policy(const DDS_DataWriterQos& before, const DDS_DataWriterQos& after);

} // namespace meridian::qos
