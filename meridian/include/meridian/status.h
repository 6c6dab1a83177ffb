#pragma once

// Communication statuses (OMG DDS 1.4, 2.2.4.1).

#include "meridian/base.h"
#include "meridian/guid.h"
#include "meridian/qos.h"

using DDS_StatusMask = DDS_UnsignedLong;
constexpr DDS_StatusMask DDS_STATUS_MASK_NONE = 0;
constexpr DDS_StatusMask DDS_STATUS_MASK_ALL = 0xffffffffu;
constexpr DDS_StatusMask DDS_REQUESTED_DEADLINE_MISSED_STATUS = 1u << 2;
constexpr DDS_StatusMask DDS_OFFERED_INCOMPATIBLE_QOS_STATUS = 1u << 5;
constexpr DDS_StatusMask DDS_REQUESTED_INCOMPATIBLE_QOS_STATUS = 1u << 6;
constexpr DDS_StatusMask DDS_SAMPLE_LOST_STATUS = 1u << 7;
constexpr DDS_StatusMask DDS_SAMPLE_REJECTED_STATUS = 1u << 8;
constexpr DDS_StatusMask DDS_DATA_AVAILABLE_STATUS = 1u << 10;
constexpr DDS_StatusMask DDS_LIVELINESS_CHANGED_STATUS = 1u << 12;
constexpr DDS_StatusMask DDS_PUBLICATION_MATCHED_STATUS = 1u << 13;
constexpr DDS_StatusMask DDS_SUBSCRIPTION_MATCHED_STATUS = 1u << 14;

/// What most statuses count; the change since the status was read last.
struct DDS_CountedStatus {
    DDS_Long total_count = 0;
    DDS_Long total_count_change = 0;
};
struct DDS_RequestedDeadlineMissedStatus : DDS_CountedStatus {
    DDS_InstanceHandle_t last_instance_handle{};
};
struct DDS_QosPolicyCount {
    DDS_QosPolicyId_t policy_id = 0;
    DDS_Long count = 0;
};
struct DDS_IncompatibleQosStatus : DDS_CountedStatus {
    DDS_QosPolicyId_t last_policy_id = 0;
    DDS_Sequence<DDS_QosPolicyCount> policies;
};
struct DDS_RequestedIncompatibleQosStatus : DDS_IncompatibleQosStatus {};
struct DDS_OfferedIncompatibleQosStatus : DDS_IncompatibleQosStatus {};
struct DDS_SampleLostStatus : DDS_CountedStatus {};
enum DDS_SampleRejectedStatusKind {
    DDS_NOT_REJECTED = 0,
    DDS_REJECTED_BY_INSTANCES_LIMIT = 1,
    DDS_REJECTED_BY_SAMPLES_LIMIT = 2,
    DDS_REJECTED_BY_SAMPLES_PER_INSTANCE_LIMIT = 3
};
struct DDS_SampleRejectedStatus : DDS_CountedStatus {
    DDS_SampleRejectedStatusKind last_reason = DDS_NOT_REJECTED;
    DDS_InstanceHandle_t last_instance_handle{};
};
struct DDS_LivelinessChangedStatus {
    DDS_Long alive_count = 0;
    DDS_Long not_alive_count = 0;
    DDS_Long alive_count_change = 0;
    DDS_Long not_alive_count_change = 0;
    DDS_InstanceHandle_t last_publication_handle{};
};
struct DDS_MatchedStatus : DDS_CountedStatus {
    DDS_Long current_count = 0;
    DDS_Long current_count_change = 0;
};
struct DDS_SubscriptionMatchedStatus : DDS_MatchedStatus {
    DDS_InstanceHandle_t last_publication_handle{};
};
struct DDS_PublicationMatchedStatus : DDS_MatchedStatus {
    DDS_InstanceHandle_t last_subscription_handle{};
};
