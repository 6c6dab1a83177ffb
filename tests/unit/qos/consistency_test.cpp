#include "qos/consistency.h"

#include <gtest/gtest.h>

using meridian::qos::changed_immutable_policy;
using meridian::qos::check_consistency;

namespace {

template <typename Qos>
struct Case {
    void (*change)(Qos& qos);
    const char* reason;
};

template <typename Qos, size_t count>
void check_cases(const Case<Qos> (&cases)[count]) {
    EXPECT_EQ(check_consistency(Qos()), "");
    for (const Case<Qos>& test : cases) {
        Qos qos;
        test.change(qos);
        EXPECT_EQ(check_consistency(qos), test.reason);
    }
}

void fill(DDS_OctetSeq& octets, DDS_Long length) {
    octets.ensure_length(length, length);
}

template <typename Qos>
void check_common_cases() {
    static const Case<Qos> cases[] = {
        {[](Qos& q) { q.history.depth = 10, q.resource_limits.max_samples_per_instance = 10; }, ""},
        {[](Qos& q) { q.history.depth = 11, q.resource_limits.max_samples_per_instance = 10; },
         "history depth 11 is above max_samples_per_instance 10"},
        {[](Qos& q) {
             q.history.kind = DDS_KEEP_ALL_HISTORY_QOS, q.history.depth = 11;
             q.resource_limits.max_samples_per_instance = 10;
         },
         ""},
        {[](Qos& q) { q.history.depth = 0; }, "history depth is 0, must be at least 1"},
        {[](Qos& q) { q.resource_limits.max_samples = 0; },
         "max_samples is 0, must be unlimited (-1) or at least 1"},
        {[](Qos& q) { q.resource_limits.max_instances = -2; },
         "max_instances is -2, must be unlimited (-1) or at least 1"},
        {[](Qos& q) { q.resource_limits.max_samples_per_instance = 5, q.resource_limits.max_samples = 4; },
         "max_samples_per_instance 5 is above max_samples 4"},
        {[](Qos& q) { q.resource_limits.max_samples_per_instance = 5, q.resource_limits.max_samples = 5; },
         ""},
        {[](Qos& q) { q.resource_limits.max_samples = 4; }, ""},
        {[](Qos& q) {
             q.deadline.period = {-1, 0};
         },
         "deadline: period is not a valid duration (-1 s, 0 ns)"},
        {[](Qos& q) {
             q.latency_budget.duration = {0, 1000000000};
         },
         "latency_budget: duration is not a valid duration (0 s, 1000000000 ns)"},
        {[](Qos& q) { q.liveliness.lease_duration = DDS_DURATION_ZERO; },
         "liveliness: lease_duration must be above 0"},
        {[](Qos& q) { q.liveliness.kind = static_cast<DDS_LivelinessQosPolicyKind>(3); },
         "liveliness: kind has the unknown value 3"},
        {[](Qos& q) { q.representation.value.append(DDS_XML_DATA_REPRESENTATION); },
         "representation: XML is not read here"},
        {[](Qos& q) { q.representation.value.append(9); }, "representation: unknown id 9"},
        {[](Qos& q) { q.representation.value.append(DDS_XCDR2_DATA_REPRESENTATION); }, ""},
    };
    check_cases(cases);
}

TEST(Consistency, CommonToTopicsAndReaders) {
    check_common_cases<DDS_TopicQos>();
    check_common_cases<DDS_DataReaderQos>();
}

TEST(Consistency, Topic) {
    using Qos = DDS_TopicQos;
    static const Case<Qos> cases[] = {
        {[](Qos& q) {
             q.durability_service.history_depth = 3, q.durability_service.max_samples_per_instance = 2;
         },
         "durability_service: history depth 3 is above max_samples_per_instance 2"},
        {[](Qos& q) { q.lifespan.duration = DDS_DURATION_ZERO; }, "lifespan: duration must be above 0"},
        {[](Qos& q) { fill(q.topic_data.value, 65000); }, ""},
        {[](Qos& q) { fill(q.topic_data.value, 65001); },
         "topic_data takes 65001 bytes, more than the 65000 that can be announced"},
    };
    check_cases(cases);
}

TEST(Consistency, Reader) {
    using Qos = DDS_DataReaderQos;
    static const Case<Qos> cases[] = {
        {[](Qos& q) {
             q.deadline.period = {1, 0}, q.time_based_filter.minimum_separation = {1, 0};
         },
         ""},
        {[](Qos& q) {
             q.deadline.period = {1, 0}, q.time_based_filter.minimum_separation = {1, 1};
         },
         "deadline: period is below the minimum_separation of time_based_filter"},
        {[](Qos& q) { q.deadline.period = DDS_DURATION_ZERO; }, ""},
        {[](Qos& q) { q.type_consistency.kind = static_cast<DDS_TypeConsistencyKind>(3); },
         "type_consistency: kind has the unknown value 3"},
        {[](Qos& q) { q.property.value.append(DDS_Property_t()); }, "property: one without a name"},
        {[](Qos& q) { fill(q.user_data.value, 70000); },
         "user_data takes 70000 bytes, more than the 65000 that can be announced"},
    };
    check_cases(cases);
}

TEST(Consistency, Subscriber) {
    using Qos = DDS_SubscriberQos;
    static const Case<Qos> cases[] = {
        {[](Qos& q) { q.presentation.coherent_access = true; },
         "presentation: coherent_access is not offered"},
        {[](Qos& q) {
             q.presentation.access_scope = DDS_GROUP_PRESENTATION_QOS, q.presentation.ordered_access = true;
         },
         "presentation: ordered_access of a whole group is not offered"},
        {[](Qos& q) {
             q.presentation.access_scope = DDS_TOPIC_PRESENTATION_QOS, q.presentation.ordered_access = true;
         },
         ""},
        {[](Qos& q) {
             for (int i = 0; i < 1000; ++i)
                 DDS_StringSeq_append(q.partition.name, std::string(100, 'p').c_str());
         },
         "partition takes 108000 bytes, more than the 65000 that can be announced"},
    };
    check_cases(cases);
}

TEST(Consistency, Participant) {
    using Qos = DDS_DomainParticipantQos;
    static const Case<Qos> cases[] = {
        {[](Qos& q) { q.transport_builtin.mask = 4; },
         "transport_builtin: the mask 4 selects no transport (1 UDPv4, 2 this host only, 8 UDPv6)"},
        {[](Qos& q) { q.transport_builtin.mask = 9; }, ""},
        {[](Qos& q) { q.wire_protocol.participant_id = -2; },
         "wire_protocol: participant_id is -2, must be -1 (the first free one) or more"},
        {[](Qos& q) { DDS_StringSeq_append(q.discovery.initial_peers, ""); },
         "discovery: an initial peer is empty"},
        {[](Qos& q) {
             q.discovery_config.participant_liveliness_assert_period = {0, 9999999};
         },
         "discovery_config: participant_liveliness_assert_period must be at least 10 ms"},
        {[](Qos& q) {
             q.discovery_config.participant_liveliness_assert_period = {0, 10000000};
         },
         ""},
        {[](Qos& q) {
             q.discovery_config.participant_liveliness_assert_period = {100, 0};
         },
         "discovery_config: participant_liveliness_assert_period must be below "
         "participant_liveliness_lease_duration"},
        {[](Qos& q) { q.discovery_config.participant_liveliness_assert_period = DDS_DURATION_INFINITE; },
         "discovery_config: participant_liveliness_assert_period must be below "
         "participant_liveliness_lease_duration"},
        {[](Qos& q) { q.discovery_config.participant_liveliness_lease_duration = DDS_DURATION_INFINITE; },
         ""},
        {[](Qos& q) { q.discovery_config.builtin_discovery_plugins = DDS_DISCOVERYCONFIG_BUILTIN_SDP2; },
         "discovery_config: builtin_discovery_plugins SDP2 is not offered"},
        {[](Qos& q) { q.discovery_config.builtin_discovery_plugins = 1; },
         "discovery_config: builtin_discovery_plugins has the unknown value 1"},
        {[](Qos& q) { q.resource_limits.type_code_max_serialized_length = -2; },
         "resource_limits: type_code_max_serialized_length is negative"},
        {[](Qos& q) { q.receiver_pool.buffer_size = -1; }, "receiver_pool: buffer_size is negative"},
        {[](Qos& q) { DDS_StringSeq_append(q.partition.name, "a,b"); },
         "partition: the participant partition \"a,b\" holds a comma"},
        {[](Qos& q) { q.participant_name.name = DDS_String_dup(std::string(70000, 'n').c_str()); },
         "participant_name takes 70016 bytes, more than the 65000 that can be announced"},
    };
    check_cases(cases);
}

template <typename Qos, size_t count>
void check_changes(const Case<Qos> (&cases)[count]) {
    EXPECT_EQ(changed_immutable_policy(Qos(), Qos()), "");
    for (const Case<Qos>& test : cases) {
        Qos qos;
        test.change(qos);
        EXPECT_EQ(changed_immutable_policy(Qos(), qos), test.reason);
    }
}

TEST(ImmutablePolicies, Participant) {
    using Qos = DDS_DomainParticipantQos;
    static const Case<Qos> cases[] = {
        {[](Qos& q) { q.wire_protocol.participant_id = 1; }, "wire_protocol"},
        {[](Qos& q) { q.wire_protocol.rtps_host_id = 1; }, "wire_protocol"},
        {[](Qos& q) { q.transport_builtin.mask = 1; }, "transport_builtin"},
        {[](Qos& q) { DDS_StringSeq_append(q.discovery.initial_peers, "a"); }, "discovery"},
        {[](Qos& q) { q.discovery_config.participant_liveliness_lease_duration.sec = 1; },
         "discovery_config"},
        {[](Qos& q) { q.resource_limits.type_code_max_serialized_length = 1; }, "resource_limits"},
        {[](Qos& q) { q.receiver_pool.buffer_size = 1; }, "receiver_pool"},
        {[](Qos& q) { fill(q.user_data.value, 1); }, ""},
        {[](Qos& q) { DDS_StringSeq_append(q.partition.name, "a"); }, ""},
    };
    check_changes(cases);
}

template <typename Qos>
void check_common_changes() {
    static const Case<Qos> cases[] = {
        {[](Qos& q) { q.durability.kind = DDS_TRANSIENT_LOCAL_DURABILITY_QOS; }, "durability"},
        {[](Qos& q) { q.liveliness.lease_duration.sec = 1; }, "liveliness"},
        {[](Qos& q) { q.reliability.kind = DDS_RELIABLE_RELIABILITY_QOS; }, "reliability"},
        {[](Qos& q) { q.destination_order.kind = DDS_BY_SOURCE_TIMESTAMP_DESTINATIONORDER_QOS; },
         "destination_order"},
        {[](Qos& q) { q.history.depth = 2; }, "history"},
        {[](Qos& q) { q.resource_limits.max_instances = 2; }, "resource_limits"},
        {[](Qos& q) { q.ownership.kind = DDS_EXCLUSIVE_OWNERSHIP_QOS; }, "ownership"},
        {[](Qos& q) { q.representation.value.append(DDS_XCDR2_DATA_REPRESENTATION); }, "representation"},
        {[](Qos& q) {
             q.deadline.period = {1, 0};
         },
         ""},
        {[](Qos& q) {
             q.latency_budget.duration = {1, 0};
         },
         ""},
    };
    check_changes(cases);
}

TEST(ImmutablePolicies, TopicReaderAndSubscriber) {
    check_common_changes<DDS_TopicQos>();
    check_common_changes<DDS_DataReaderQos>();
    static const Case<DDS_TopicQos> topic_cases[] = {
        {[](DDS_TopicQos& q) { q.durability_service.history_depth = 2; }, "durability_service"},
        {[](DDS_TopicQos& q) {
             q.lifespan.duration = {1, 0};
         },
         ""},
    };
    check_changes(topic_cases);
    static const Case<DDS_DataReaderQos> reader_cases[] = {
        {[](DDS_DataReaderQos& q) { q.type_consistency.kind = DDS_DISALLOW_TYPE_COERCION; },
         "type_consistency"},
        {[](DDS_DataReaderQos& q) {
             q.reader_resource_limits.dynamically_allocate_fragmented_samples = false;
         },
         "reader_resource_limits"},
        {[](DDS_DataReaderQos& q) {
             q.time_based_filter.minimum_separation = {1, 0};
         },
         ""},
    };
    check_changes(reader_cases);
    static const Case<DDS_SubscriberQos> subscriber_cases[] = {
        {[](DDS_SubscriberQos& q) { q.presentation.ordered_access = true; }, "presentation"},
        {[](DDS_SubscriberQos& q) { DDS_StringSeq_append(q.partition.name, "a"); }, ""},
    };
    check_changes(subscriber_cases);
}

TEST(Records, CopiesAreDeep) {
    DDS_EntityNameQosPolicy name;
    name.name = DDS_String_dup("n");
    DDS_EntityNameQosPolicy copy(name);
    name.name[0] = 'X';
    EXPECT_STREQ(copy.name, "n");
    EXPECT_EQ(copy.role_name, nullptr);
    copy = name;
    EXPECT_STREQ(copy.name, "X");
    DDS_EntityNameQosPolicy& self = copy;
    copy = self;
    EXPECT_STREQ(copy.name, "X");
}

} // namespace
