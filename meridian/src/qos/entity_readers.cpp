#include "qos/entity_readers.h"

#include "qos/policy_readers.h"

namespace meridian::qos {

namespace {

/// Reads the policy that is this member of the entity's QoS.
template <typename Qos, auto member>
void policy(ElementReader& reader, pugi::xml_node element, Qos& qos) {
    read_policy(reader, element, qos.*member);
}

} // namespace

void read_qos(ElementReader& reader, pugi::xml_node element, DDS_DomainParticipantQos& qos) {
    using Qos = DDS_DomainParticipantQos;
    static constexpr Member<Qos> kMembers[] = {
        {"user_data", policy<Qos, &Qos::user_data>},
        {"entity_factory", policy<Qos, &Qos::entity_factory>},
        {"wire_protocol", policy<Qos, &Qos::wire_protocol>},
        {"transport_builtin", policy<Qos, &Qos::transport_builtin>},
        {"discovery", policy<Qos, &Qos::discovery>},
        {"discovery_config", policy<Qos, &Qos::discovery_config>},
        {"resource_limits", policy<Qos, &Qos::resource_limits>},
        {"receiver_pool", policy<Qos, &Qos::receiver_pool>},
        {"property", policy<Qos, &Qos::property>},
        {"participant_name", policy<Qos, &Qos::participant_name>},
        {"partition", policy<Qos, &Qos::partition>},
    };
    read_members(reader, element, qos, kMembers);
}

void read_qos(ElementReader& reader, pugi::xml_node element, DDS_TopicQos& qos) {
    using Qos = DDS_TopicQos;
    static constexpr Member<Qos> kMembers[] = {
        {"topic_data", policy<Qos, &Qos::topic_data>},
        {"durability", policy<Qos, &Qos::durability>},
        {"durability_service", policy<Qos, &Qos::durability_service>},
        {"deadline", policy<Qos, &Qos::deadline>},
        {"latency_budget", policy<Qos, &Qos::latency_budget>},
        {"liveliness", policy<Qos, &Qos::liveliness>},
        {"reliability", policy<Qos, &Qos::reliability>},
        {"destination_order", policy<Qos, &Qos::destination_order>},
        {"history", policy<Qos, &Qos::history>},
        {"resource_limits", policy<Qos, &Qos::resource_limits>},
        {"transport_priority", policy<Qos, &Qos::transport_priority>},
        {"lifespan", policy<Qos, &Qos::lifespan>},
        {"ownership", policy<Qos, &Qos::ownership>},
        {"representation", policy<Qos, &Qos::representation>},
    };
    read_members(reader, element, qos, kMembers);
}

void read_qos(ElementReader& reader, pugi::xml_node element, DDS_SubscriberQos& qos) {
    using Qos = DDS_SubscriberQos;
    static constexpr Member<Qos> kMembers[] = {
        {"presentation", policy<Qos, &Qos::presentation>},
        {"partition", policy<Qos, &Qos::partition>},
        {"group_data", policy<Qos, &Qos::group_data>},
        {"entity_factory", policy<Qos, &Qos::entity_factory>},
        {"subscriber_name", policy<Qos, &Qos::subscriber_name>},
    };
    read_members(reader, element, qos, kMembers);
}

void read_qos(ElementReader& reader, pugi::xml_node element, DDS_DataReaderQos& qos) {
    using Qos = DDS_DataReaderQos;
    static constexpr Member<Qos> kMembers[] = {
        {"durability", policy<Qos, &Qos::durability>},
        {"deadline", policy<Qos, &Qos::deadline>},
        {"latency_budget", policy<Qos, &Qos::latency_budget>},
        {"liveliness", policy<Qos, &Qos::liveliness>},
        {"reliability", policy<Qos, &Qos::reliability>},
        {"destination_order", policy<Qos, &Qos::destination_order>},
        {"history", policy<Qos, &Qos::history>},
        {"resource_limits", policy<Qos, &Qos::resource_limits>},
        {"user_data", policy<Qos, &Qos::user_data>},
        {"ownership", policy<Qos, &Qos::ownership>},
        {"time_based_filter", policy<Qos, &Qos::time_based_filter>},
        {"reader_data_lifecycle", policy<Qos, &Qos::reader_data_lifecycle>},
        {"representation", policy<Qos, &Qos::representation>},
        {"type_consistency", policy<Qos, &Qos::type_consistency>},
        {"reader_resource_limits", policy<Qos, &Qos::reader_resource_limits>},
        {"property", policy<Qos, &Qos::property>},
        {"subscription_name", policy<Qos, &Qos::subscription_name>},
    };
    read_members(reader, element, qos, kMembers);
}

} // namespace meridian::qos
