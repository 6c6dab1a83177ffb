// Every policy of every entity is read into its record.

#include "documents.h"

using namespace meridian::qos;
using namespace meridian::qos::test;

namespace {

bool read(const ProfileStore& store, DDS_DomainParticipantQos& qos, std::string& error) {
    return store.read("L", "P", nullptr, qos, error);
}
bool read(const ProfileStore& store, DDS_TopicQos& qos, std::string& error) {
    return store.read("L", "P", nullptr, qos, error);
}
bool read(const ProfileStore& store, DDS_SubscriberQos& qos, std::string& error) {
    return store.read("L", "P", nullptr, qos, error);
}
bool read(const ProfileStore& store, DDS_DataReaderQos& qos, std::string& error) {
    return store.read("L", "P", nullptr, qos, error);
}

template <typename Qos>
struct Case {
    const char* xml;
    bool (*holds)(const Qos& qos); // must be false for the defaults
};

template <typename Qos, size_t count>
void check_cases(const std::string& element, const Case<Qos> (&cases)[count]) {
    for (const Case<Qos>& test : cases) {
        EXPECT_FALSE(test.holds(Qos())) << test.xml;
        ProfileStore store;
        std::string error;
        ASSERT_TRUE(
            load_string(store, in_profile("<" + element + ">" + test.xml + "</" + element + ">"), error))
            << error;
        Qos qos;
        ASSERT_TRUE(read(store, qos, error)) << error;
        EXPECT_TRUE(test.holds(qos)) << test.xml;
    }
}

/// The policies that topics and readers have in common.
template <typename Qos>
void check_common_cases(const std::string& element) {
    static const Case<Qos> cases[] = {
        {"<durability><kind>TRANSIENT_LOCAL_DURABILITY_QOS</kind></durability>",
         [](const Qos& q) { return q.durability.kind == DDS_TRANSIENT_LOCAL_DURABILITY_QOS; }},
        {"<durability><kind>DDS_TRANSIENT_DURABILITY_QOS</kind></durability>",
         [](const Qos& q) { return q.durability.kind == DDS_TRANSIENT_DURABILITY_QOS; }},
        {"<durability><kind> PERSISTENT_DURABILITY_QOS\n</kind></durability>",
         [](const Qos& q) { return q.durability.kind == DDS_PERSISTENT_DURABILITY_QOS; }},
        {"<deadline><period><sec>3</sec><nanosec>7</nanosec></period></deadline>",
         [](const Qos& q) {
             return q.deadline.period == DDS_Duration_t{3, 7};
         }},
        {"<latency_budget><duration><nanosec>5</nanosec></duration></latency_budget>",
         [](const Qos& q) {
             return q.latency_budget.duration == DDS_Duration_t{0, 5};
         }},
        {"<latency_budget><duration><sec> "
         "DURATION_INFINITE_SEC</sec><nanosec>DURATION_INFINITE_NSEC</nanosec>"
         "</duration></latency_budget>",
         [](const Qos& q) { return q.latency_budget.duration == DDS_DURATION_INFINITE; }},
        {"<liveliness><kind>MANUAL_BY_PARTICIPANT_LIVELINESS_QOS</kind></liveliness>",
         [](const Qos& q) { return q.liveliness.kind == DDS_MANUAL_BY_PARTICIPANT_LIVELINESS_QOS; }},
        {"<liveliness><kind>MANUAL_BY_TOPIC_LIVELINESS_QOS</kind><lease_duration><sec>9</sec></"
         "lease_duration>"
         "</liveliness>",
         [](const Qos& q) {
             return q.liveliness.kind == DDS_MANUAL_BY_TOPIC_LIVELINESS_QOS &&
                    q.liveliness.lease_duration == DDS_Duration_t{9, 0};
         }},
        {"<reliability><kind>RELIABLE_RELIABILITY_QOS</kind></reliability>",
         [](const Qos& q) { return q.reliability.kind == DDS_RELIABLE_RELIABILITY_QOS; }},
        {"<reliability><max_blocking_time><sec>1</sec></max_blocking_time></reliability>",
         [](const Qos& q) {
             return q.reliability.max_blocking_time == DDS_Duration_t{1, 0};
         }},
        {"<destination_order><kind>BY_SOURCE_TIMESTAMP_DESTINATIONORDER_QOS</kind></destination_order>",
         [](const Qos& q) {
             return q.destination_order.kind == DDS_BY_SOURCE_TIMESTAMP_DESTINATIONORDER_QOS;
         }},
        {"<history><kind>KEEP_ALL_HISTORY_QOS</kind></history>",
         [](const Qos& q) { return q.history.kind == DDS_KEEP_ALL_HISTORY_QOS; }},
        {"<history><depth>8192</depth></history>", [](const Qos& q) { return q.history.depth == 8192; }},
        {"<resource_limits><max_samples>100</max_samples></resource_limits>",
         [](const Qos& q) { return q.resource_limits.max_samples == 100; }},
        {"<resource_limits><max_instances>0x10</max_instances></resource_limits>",
         [](const Qos& q) { return q.resource_limits.max_instances == 16; }},
        {"<resource_limits><max_samples_per_instance>7</max_samples_per_instance></resource_limits>",
         [](const Qos& q) { return q.resource_limits.max_samples_per_instance == 7; }},
        {"<ownership><kind>EXCLUSIVE_OWNERSHIP_QOS</kind></ownership>",
         [](const Qos& q) { return q.ownership.kind == DDS_EXCLUSIVE_OWNERSHIP_QOS; }},
        {"<representation><value><element>XCDR2_DATA_REPRESENTATION</element>"
         "<element>DDS_XCDR_DATA_REPRESENTATION</element><element>XML_DATA_REPRESENTATION</element></value>"
         "</representation>",
         [](const Qos& q) {
             return q.representation.value.length() == 3 &&
                    q.representation.value[0] == DDS_XCDR2_DATA_REPRESENTATION &&
                    q.representation.value[1] == DDS_XCDR_DATA_REPRESENTATION &&
                    q.representation.value[2] == DDS_XML_DATA_REPRESENTATION;
         }},
    };
    check_cases(element, cases);
}

TEST(Policies, CommonToTopicsAndReaders) {
    check_common_cases<DDS_TopicQos>("topic_qos");
    check_common_cases<DDS_DataReaderQos>("datareader_qos");
}

TEST(Policies, Topic) {
    using Qos = DDS_TopicQos;
    static const Case<Qos> cases[] = {
        {"<topic_data><value>AQID</value></topic_data>",
         [](const Qos& q) { return joined(q.topic_data.value) == "1,2,3"; }},
        {"<durability_service><service_cleanup_delay><sec>4</sec></service_cleanup_delay></"
         "durability_service>",
         [](const Qos& q) {
             return q.durability_service.service_cleanup_delay == DDS_Duration_t{4, 0};
         }},
        {"<durability_service><history_kind>KEEP_ALL_HISTORY_QOS</history_kind></durability_service>",
         [](const Qos& q) { return q.durability_service.history_kind == DDS_KEEP_ALL_HISTORY_QOS; }},
        {"<durability_service><history_depth>3</history_depth></durability_service>",
         [](const Qos& q) { return q.durability_service.history_depth == 3; }},
        {"<durability_service><max_samples>5</max_samples></durability_service>",
         [](const Qos& q) { return q.durability_service.max_samples == 5; }},
        {"<durability_service><max_instances>6</max_instances></durability_service>",
         [](const Qos& q) { return q.durability_service.max_instances == 6; }},
        {"<durability_service><max_samples_per_instance>7</max_samples_per_instance></durability_service>",
         [](const Qos& q) { return q.durability_service.max_samples_per_instance == 7; }},
        {"<transport_priority><value>-5</value></transport_priority>",
         [](const Qos& q) { return q.transport_priority.value == -5; }},
        {"<lifespan><duration><sec>8</sec></duration></lifespan>",
         [](const Qos& q) {
             return q.lifespan.duration == DDS_Duration_t{8, 0};
         }},
    };
    check_cases("topic_qos", cases);
}

TEST(Policies, Subscriber) {
    using Qos = DDS_SubscriberQos;
    static const Case<Qos> cases[] = {
        {"<presentation><access_scope>TOPIC_PRESENTATION_QOS</access_scope></presentation>",
         [](const Qos& q) { return q.presentation.access_scope == DDS_TOPIC_PRESENTATION_QOS; }},
        {"<presentation><access_scope>GROUP_PRESENTATION_QOS</access_scope></presentation>",
         [](const Qos& q) { return q.presentation.access_scope == DDS_GROUP_PRESENTATION_QOS; }},
        {"<presentation><coherent_access>TRUE</coherent_access></presentation>",
         [](const Qos& q) { return q.presentation.coherent_access; }},
        {"<presentation><ordered_access>1</ordered_access></presentation>",
         [](const Qos& q) { return q.presentation.ordered_access; }},
        {"<partition><name><element> a b </element><element/><element>c*</element></name></partition>",
         [](const Qos& q) { return joined(q.partition.name) == "a b||c*"; }},
        {"<group_data><value>0x01,255</value></group_data>",
         [](const Qos& q) { return joined(q.group_data.value) == "1,255"; }},
        {"<entity_factory><autoenable_created_entities>False</autoenable_created_entities></entity_factory>",
         [](const Qos& q) { return !q.entity_factory.autoenable_created_entities; }},
        {"<subscriber_name><name>n</name><role_name>r</role_name></subscriber_name>",
         [](const Qos& q) {
             return q.subscriber_name.name != nullptr && std::string(q.subscriber_name.name) == "n" &&
                    std::string(q.subscriber_name.role_name) == "r";
         }},
    };
    check_cases("subscriber_qos", cases);
}

TEST(Policies, Reader) {
    using Qos = DDS_DataReaderQos;
    static const Case<Qos> cases[] = {
        {"<user_data><value>aGk=</value></user_data>",
         [](const Qos& q) { return joined(q.user_data.value) == "104,105"; }},
        {"<time_based_filter><minimum_separation><nanosec>999999999</nanosec></minimum_separation>"
         "</time_based_filter>",
         [](const Qos& q) {
             return q.time_based_filter.minimum_separation == DDS_Duration_t{0, 999999999};
         }},
        {"<reader_data_lifecycle><autopurge_nowriter_samples_delay><sec>2</sec></"
         "autopurge_nowriter_samples_delay>"
         "</reader_data_lifecycle>",
         [](const Qos& q) {
             return q.reader_data_lifecycle.autopurge_nowriter_samples_delay == DDS_Duration_t{2, 0};
         }},
        {"<reader_data_lifecycle><autopurge_disposed_samples_delay><sec>DURATION_ZERO_SEC</sec>"
         "</autopurge_disposed_samples_delay></reader_data_lifecycle>",
         [](const Qos& q) {
             return q.reader_data_lifecycle.autopurge_disposed_samples_delay == DDS_DURATION_ZERO;
         }},
        {"<type_consistency><kind>DISALLOW_TYPE_COERCION</kind></type_consistency>",
         [](const Qos& q) { return q.type_consistency.kind == DDS_DISALLOW_TYPE_COERCION; }},
        {"<type_consistency><kind>ALLOW_TYPE_COERCION</kind></type_consistency>",
         [](const Qos& q) { return q.type_consistency.kind == DDS_ALLOW_TYPE_COERCION; }},
        {"<reader_resource_limits><dynamically_allocate_fragmented_samples>0"
         "</dynamically_allocate_fragmented_samples></reader_resource_limits>",
         [](const Qos& q) { return !q.reader_resource_limits.dynamically_allocate_fragmented_samples; }},
        {"<property><value><element><name>a</name><value>1</value><propagate>true</propagate></element>"
         "<element><name>b</name></element></value></property>",
         [](const Qos& q) {
             return q.property.value.length() == 2 && std::string(q.property.value[0].name) == "a" &&
                    std::string(q.property.value[0].value) == "1" && q.property.value[0].propagate &&
                    std::string(q.property.value[1].name) == "b" &&
                    std::string(q.property.value[1].value).empty() && !q.property.value[1].propagate;
         }},
        {"<subscription_name><name>n</name></subscription_name>",
         [](const Qos& q) {
             return q.subscription_name.name != nullptr && std::string(q.subscription_name.name) == "n";
         }},
    };
    check_cases("datareader_qos", cases);
}

TEST(Policies, Participant) {
    using Qos = DDS_DomainParticipantQos;
    static const Case<Qos> cases[] = {
        {"<user_data><value><element>1</element><element>0xff</element></value></user_data>",
         [](const Qos& q) { return joined(q.user_data.value) == "1,255"; }},
        {"<entity_factory><autoenable_created_entities>false</autoenable_created_entities></entity_factory>",
         [](const Qos& q) { return !q.entity_factory.autoenable_created_entities; }},
        {"<wire_protocol><participant_id>5</participant_id></wire_protocol>",
         [](const Qos& q) { return q.wire_protocol.participant_id == 5; }},
        {"<wire_protocol><rtps_host_id>0xffffffff</rtps_host_id></wire_protocol>",
         [](const Qos& q) { return q.wire_protocol.rtps_host_id == 0xffffffffu; }},
        {"<wire_protocol><rtps_app_id>77</rtps_app_id></wire_protocol>",
         [](const Qos& q) { return q.wire_protocol.rtps_app_id == 77; }},
        {"<wire_protocol><rtps_instance_id>78</rtps_instance_id></wire_protocol>",
         [](const Qos& q) { return q.wire_protocol.rtps_instance_id == 78; }},
        {"<transport_builtin><mask>TRANSPORTBUILTIN_UDPv4</mask></transport_builtin>",
         [](const Qos& q) { return q.transport_builtin.mask == 1; }},
        {"<transport_builtin><mask> DDS_TRANSPORTBUILTIN_UDPv4 | "
         "TRANSPORTBUILTIN_UDPv6</mask></transport_builtin>",
         [](const Qos& q) { return q.transport_builtin.mask == 9; }},
        {"<transport_builtin><mask>TRANSPORTBUILTIN_SHMEM|TRANSPORTBUILTIN_UDPv6</mask></transport_builtin>",
         [](const Qos& q) { return q.transport_builtin.mask == 10; }},
        {"<transport_builtin><mask>8</mask></transport_builtin>",
         [](const Qos& q) { return q.transport_builtin.mask == 8; }},
        {"<discovery><initial_peers><element>10.0.0.1</element><element>host</element></initial_peers></"
         "discovery>",
         [](const Qos& q) { return joined(q.discovery.initial_peers) == "10.0.0.1|host"; }},
        {"<discovery_config><participant_liveliness_lease_duration><sec>6</sec><nanosec>500000000</nanosec>"
         "</participant_liveliness_lease_duration></discovery_config>",
         [](const Qos& q) {
             return q.discovery_config.participant_liveliness_lease_duration == DDS_Duration_t{6, 500000000};
         }},
        {"<discovery_config><participant_liveliness_assert_period><sec>2</sec>"
         "</participant_liveliness_assert_period></discovery_config>",
         [](const Qos& q) {
             return q.discovery_config.participant_liveliness_assert_period == DDS_Duration_t{2, 0};
         }},
        {"<discovery_config><builtin_discovery_plugins>DDS_DISCOVERYCONFIG_BUILTIN_SDP2</"
         "builtin_discovery_plugins>"
         "</discovery_config>",
         [](const Qos& q) {
             return q.discovery_config.builtin_discovery_plugins == DDS_DISCOVERYCONFIG_BUILTIN_SDP2;
         }},
        {"<resource_limits><type_code_max_serialized_length>9</type_code_max_serialized_length></"
         "resource_limits>",
         [](const Qos& q) { return q.resource_limits.type_code_max_serialized_length == 9; }},
        {"<resource_limits><type_code_max_serialized_length>LENGTH_UNLIMITED</"
         "type_code_max_serialized_length>"
         "</resource_limits>",
         [](const Qos& q) { return q.resource_limits.type_code_max_serialized_length == -1; }},
        {"<receiver_pool><buffer_size>9000</buffer_size></receiver_pool>",
         [](const Qos& q) { return q.receiver_pool.buffer_size == 9000; }},
        {"<property><value><element><name>a</name><value>1</value></element></value></property>",
         [](const Qos& q) { return q.property.value.length() == 1; }},
        {"<participant_name><name>n</name><role_name>r</role_name></participant_name>",
         [](const Qos& q) {
             return q.participant_name.name != nullptr && std::string(q.participant_name.name) == "n" &&
                    std::string(q.participant_name.role_name) == "r";
         }},
        {"<partition><name><element>*</element></name></partition>",
         [](const Qos& q) { return joined(q.partition.name) == "*"; }},
    };
    check_cases("domain_participant_qos", cases);
    check_cases("domainparticipant_qos", cases);
    check_cases("participant_qos", cases);
}

} // namespace
