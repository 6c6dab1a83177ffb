#include "qos/consistency.h"

#include <cstring>
#include <initializer_list>

namespace meridian::qos {

namespace {

/// Announcements go to every peer and group: more often than this they are a flood and no sign of life.
constexpr DDS_Duration_t kShortestAssertPeriod = {0, 10000000};

/// Collects nothing but the first reason.
class Check {
  public:
    /// `condition` must hold; else `reason` is kept.
    void require(bool condition, const std::string& reason) {
        if (!condition && reason_.empty())
            reason_ = reason;
    }
    const std::string& reason() const { return reason_; }

    void duration(const DDS_Duration_t& value, const char* name) {
        require(DDS_Duration_is_infinite(value) || (value.sec >= 0 && value.nanosec < 1000000000),
                std::string(name) + " is not a valid duration (" + std::to_string(value.sec) + " s, " +
                    std::to_string(value.nanosec) + " ns)");
    }
    void positive_duration(const DDS_Duration_t& value, const char* name) {
        duration(value, name);
        require(DDS_DURATION_ZERO < value, std::string(name) + " must be above 0");
    }
    /// For the enumerations that can hold a value without a name.
    void enumerator(int value, int last, const char* name) {
        require(value >= 0 && value <= last,
                std::string(name) + " has the unknown value " + std::to_string(value));
    }
    void limit(DDS_Long value, const std::string& name) {
        require(value == DDS_LENGTH_UNLIMITED || value >= 1,
                name + " is " + std::to_string(value) + ", must be unlimited (-1) or at least 1");
    }
    void octets(const DDS_OctetSeq& value, const char* name) { parameter_size(value.length(), name); }
    void strings(const DDS_StringSeq& value, const char* name) {
        int64_t size = 0;
        for (DDS_Long i = 0; i < value.length(); ++i)
            size += serialized_size(value[i]);
        parameter_size(size, name);
    }
    void entity_name(const DDS_EntityNameQosPolicy& value, const char* name) {
        parameter_size(serialized_size(value.name) + serialized_size(value.role_name), name);
    }
    void properties(const DDS_PropertyQosPolicy& value) {
        int64_t size = 0;
        for (DDS_Long i = 0; i < value.value.length(); ++i) {
            const DDS_Property_t& property = value.value[i];
            require(property.name != nullptr && property.name[0] != '\0', "property: one without a name");
            if (property.propagate)
                size += serialized_size(property.name) + serialized_size(property.value);
        }
        parameter_size(size, "property: what is propagated");
    }
    void history(const std::string& prefix, DDS_HistoryQosPolicyKind kind, DDS_Long depth,
                 DDS_Long max_samples, DDS_Long max_instances, DDS_Long max_samples_per_instance) {
        limit(max_samples, prefix + "max_samples");
        limit(max_instances, prefix + "max_instances");
        limit(max_samples_per_instance, prefix + "max_samples_per_instance");
        const auto above = [](DDS_Long value, DDS_Long most) {
            return most != DDS_LENGTH_UNLIMITED && value > most;
        };
        if (kind == DDS_KEEP_LAST_HISTORY_QOS) {
            require(depth >= 1,
                    prefix + "history depth is " + std::to_string(depth) + ", must be at least 1");
            require(!above(depth, max_samples_per_instance),
                    prefix + "history depth " + std::to_string(depth) +
                        " is above max_samples_per_instance " + std::to_string(max_samples_per_instance));
        }
        require(!above(max_samples_per_instance, max_samples),
                prefix + "max_samples_per_instance " + std::to_string(max_samples_per_instance) +
                    " is above max_samples " + std::to_string(max_samples));
    }
    void representation(const DDS_DataRepresentationQosPolicy& value) {
        for (DDS_Long i = 0; i < value.value.length(); ++i) {
            const DDS_DataRepresentationId_t id = value.value[i];
            require(id != DDS_XML_DATA_REPRESENTATION, "representation: XML is not read here");
            require(id == DDS_XML_DATA_REPRESENTATION || id == DDS_XCDR_DATA_REPRESENTATION ||
                        id == DDS_XCDR2_DATA_REPRESENTATION,
                    "representation: unknown id " + std::to_string(id));
        }
    }
    /// The policies that publishers and subscribers have in common.
    template <typename Qos>
    void group(const Qos& qos) {
        enumerator(qos.presentation.access_scope, DDS_GROUP_PRESENTATION_QOS, "presentation: access_scope");
        require(!qos.presentation.coherent_access, "presentation: coherent_access is not offered");
        require(
            !qos.presentation.ordered_access || qos.presentation.access_scope != DDS_GROUP_PRESENTATION_QOS,
            "presentation: ordered_access of a whole group is not offered");
        strings(qos.partition.name, "partition");
        octets(qos.group_data.value, "group_data");
    }
    /// The policies that topics, readers and writers have in common.
    template <typename Qos>
    void common(const Qos& qos) {
        duration(qos.deadline.period, "deadline: period");
        duration(qos.latency_budget.duration, "latency_budget: duration");
        enumerator(qos.liveliness.kind, DDS_MANUAL_BY_TOPIC_LIVELINESS_QOS, "liveliness: kind");
        positive_duration(qos.liveliness.lease_duration, "liveliness: lease_duration");
        duration(qos.reliability.max_blocking_time, "reliability: max_blocking_time");
        history("", qos.history.kind, qos.history.depth, qos.resource_limits.max_samples,
                qos.resource_limits.max_instances, qos.resource_limits.max_samples_per_instance);
        representation(qos.representation);
    }

  private:
    static int64_t serialized_size(const char* string) {
        // Length, characters, terminator, and at most three bytes of padding.
        return 4 + static_cast<int64_t>(string == nullptr ? 0 : std::strlen(string)) + 4;
    }
    /// Each of these is announced in one parameter, whose length is a 16-bit number
    /// (DDSI-RTPS 2.5, 9.4.2.11).
    void parameter_size(int64_t size, const char* name) {
        constexpr int64_t kMost = 65000;
        require(size <= kMost, std::string(name) + " takes " + std::to_string(size) +
                                   " bytes, more than the " + std::to_string(kMost) +
                                   " that can be announced");
    }

    std::string reason_;
};

template <typename Sequence, typename Equal>
bool equal_sequences(const Sequence& a, const Sequence& b, Equal equal) {
    if (a.length() != b.length())
        return false;
    for (DDS_Long i = 0; i < a.length(); ++i) {
        if (!equal(a[i], b[i]))
            return false;
    }
    return true;
}

bool equal(const DDS_StringSeq& a, const DDS_StringSeq& b) {
    return equal_sequences(a, b, [](const char* left, const char* right) {
        return std::strcmp(left == nullptr ? "" : left, right == nullptr ? "" : right) == 0;
    });
}

bool equal(const DDS_DataRepresentationQosPolicy& a, const DDS_DataRepresentationQosPolicy& b) {
    return equal_sequences(a.value, b.value, [](auto left, auto right) { return left == right; });
}

struct Comparison {
    const char* policy;
    bool same;
};

std::string first_difference(std::initializer_list<Comparison> comparisons) {
    for (const Comparison& comparison : comparisons) {
        if (!comparison.same)
            return comparison.policy;
    }
    return {};
}

/// Of the policies that publishers and subscribers have in common.
template <typename Qos>
std::string changed_group_policy(const Qos& a, const Qos& b) {
    return first_difference({
        {"presentation", a.presentation.access_scope == b.presentation.access_scope &&
                             a.presentation.coherent_access == b.presentation.coherent_access &&
                             a.presentation.ordered_access == b.presentation.ordered_access},
    });
}

/// Of the policies that topics, readers and writers have in common.
template <typename Qos>
std::string changed_common_policy(const Qos& a, const Qos& b) {
    return first_difference({
        {"durability", a.durability.kind == b.durability.kind},
        {"liveliness", a.liveliness.kind == b.liveliness.kind &&
                           a.liveliness.lease_duration == b.liveliness.lease_duration},
        {"reliability", a.reliability.kind == b.reliability.kind &&
                            a.reliability.max_blocking_time == b.reliability.max_blocking_time},
        {"destination_order", a.destination_order.kind == b.destination_order.kind},
        {"history", a.history.kind == b.history.kind && a.history.depth == b.history.depth},
        {"resource_limits",
         a.resource_limits.max_samples == b.resource_limits.max_samples &&
             a.resource_limits.max_instances == b.resource_limits.max_instances &&
             a.resource_limits.max_samples_per_instance == b.resource_limits.max_samples_per_instance},
        {"ownership", a.ownership.kind == b.ownership.kind},
        {"representation", equal(a.representation, b.representation)},
    });
}

} // namespace

std::string check_consistency(const DDS_DomainParticipantQos& qos) {
    Check check;
    check.octets(qos.user_data.value, "user_data");
    check.require(qos.wire_protocol.participant_id >= -1,
                  "wire_protocol: participant_id is " + std::to_string(qos.wire_protocol.participant_id) +
                      ", must be -1 (the first free one) or more");
    constexpr DDS_TransportBuiltinKindMask kKnown =
        DDS_TRANSPORTBUILTIN_UDPv4 | DDS_TRANSPORTBUILTIN_SHMEM | DDS_TRANSPORTBUILTIN_UDPv6;
    check.require((qos.transport_builtin.mask & kKnown) != 0,
                  "transport_builtin: the mask " + std::to_string(qos.transport_builtin.mask) +
                      " selects no transport (1 UDPv4, 2 this host only, 8 UDPv6)");
    for (DDS_Long i = 0; i < qos.discovery.initial_peers.length(); ++i) {
        const char* peer = qos.discovery.initial_peers[i];
        check.require(peer != nullptr && peer[0] != '\0', "discovery: an initial peer is empty");
    }
    const DDS_DiscoveryConfigQosPolicy& config = qos.discovery_config;
    check.positive_duration(config.participant_liveliness_lease_duration,
                            "discovery_config: participant_liveliness_lease_duration");
    check.duration(config.participant_liveliness_assert_period,
                   "discovery_config: participant_liveliness_assert_period");
    check.require(!(config.participant_liveliness_assert_period < kShortestAssertPeriod),
                  "discovery_config: participant_liveliness_assert_period must be at least 10 ms");
    check.require(
        DDS_Duration_is_infinite(config.participant_liveliness_lease_duration) ||
            config.participant_liveliness_assert_period < config.participant_liveliness_lease_duration,
        "discovery_config: participant_liveliness_assert_period must be below "
        "participant_liveliness_lease_duration");
    check.require(config.builtin_discovery_plugins != DDS_DISCOVERYCONFIG_BUILTIN_SDP2,
                  "discovery_config: builtin_discovery_plugins SDP2 is not offered");
    check.require(config.builtin_discovery_plugins == DDS_DISCOVERYCONFIG_BUILTIN_SDP ||
                      config.builtin_discovery_plugins == DDS_DISCOVERYCONFIG_BUILTIN_SDP2,
                  "discovery_config: builtin_discovery_plugins has the unknown value " +
                      std::to_string(config.builtin_discovery_plugins));
    check.require(qos.resource_limits.type_code_max_serialized_length >= DDS_LENGTH_UNLIMITED,
                  "resource_limits: type_code_max_serialized_length is negative");
    check.require(qos.receiver_pool.buffer_size >= 0, "receiver_pool: buffer_size is negative");
    check.properties(qos.property);
    check.entity_name(qos.participant_name, "participant_name");
    check.strings(qos.partition.name, "partition");
    for (DDS_Long i = 0; i < qos.partition.name.length(); ++i) {
        const char* name = qos.partition.name[i];
        // They are announced as one text, joined by commas.
        check.require(name == nullptr || std::strchr(name, ',') == nullptr,
                      std::string("partition: the participant partition \"") + (name == nullptr ? "" : name) +
                          "\" holds a comma");
    }
    return check.reason();
}

std::string check_consistency(const DDS_TopicQos& qos) {
    Check check;
    check.octets(qos.topic_data.value, "topic_data");
    check.common(qos);
    const DDS_DurabilityServiceQosPolicy& service = qos.durability_service;
    check.duration(service.service_cleanup_delay, "durability_service: service_cleanup_delay");
    check.history("durability_service: ", service.history_kind, service.history_depth, service.max_samples,
                  service.max_instances, service.max_samples_per_instance);
    check.positive_duration(qos.lifespan.duration, "lifespan: duration");
    return check.reason();
}

std::string check_consistency(const DDS_SubscriberQos& qos) {
    Check check;
    check.group(qos);
    check.entity_name(qos.subscriber_name, "subscriber_name");
    return check.reason();
}

std::string check_consistency(const DDS_DataReaderQos& qos) {
    Check check;
    check.common(qos);
    check.octets(qos.user_data.value, "user_data");
    check.duration(qos.time_based_filter.minimum_separation, "time_based_filter: minimum_separation");
    check.require(!(qos.deadline.period < qos.time_based_filter.minimum_separation),
                  "deadline: period is below the minimum_separation of time_based_filter");
    check.duration(qos.reader_data_lifecycle.autopurge_nowriter_samples_delay,
                   "reader_data_lifecycle: autopurge_nowriter_samples_delay");
    check.duration(qos.reader_data_lifecycle.autopurge_disposed_samples_delay,
                   "reader_data_lifecycle: autopurge_disposed_samples_delay");
    check.enumerator(qos.type_consistency.kind, DDS_AUTO_TYPE_COERCION, "type_consistency: kind");
    check.properties(qos.property);
    check.entity_name(qos.subscription_name, "subscription_name");
    return check.reason();
}

std::string check_consistency(const DDS_PublisherQos& qos) {
    Check check;
    check.group(qos);
    check.entity_name(qos.publisher_name, "publisher_name");
    return check.reason();
}

std::string check_consistency(const DDS_DataWriterQos& qos) {
    Check check;
    check.common(qos);
    check.octets(qos.user_data.value, "user_data");
    check.positive_duration(qos.lifespan.duration, "lifespan: duration");
    check.properties(qos.property);
    check.entity_name(qos.publication_name, "publication_name");
    return check.reason();
}

std::string changed_immutable_policy(const DDS_DomainParticipantQos& a, const DDS_DomainParticipantQos& b) {
    const DDS_DiscoveryConfigQosPolicy& config_a = a.discovery_config;
    const DDS_DiscoveryConfigQosPolicy& config_b = b.discovery_config;
    return first_difference({
        {"wire_protocol", a.wire_protocol.participant_id == b.wire_protocol.participant_id &&
                              a.wire_protocol.rtps_host_id == b.wire_protocol.rtps_host_id &&
                              a.wire_protocol.rtps_app_id == b.wire_protocol.rtps_app_id &&
                              a.wire_protocol.rtps_instance_id == b.wire_protocol.rtps_instance_id},
        {"transport_builtin", a.transport_builtin.mask == b.transport_builtin.mask},
        {"discovery", equal(a.discovery.initial_peers, b.discovery.initial_peers)},
        {"discovery_config",
         config_a.participant_liveliness_lease_duration == config_b.participant_liveliness_lease_duration &&
             config_a.participant_liveliness_assert_period == config_b.participant_liveliness_assert_period &&
             config_a.builtin_discovery_plugins == config_b.builtin_discovery_plugins},
        {"resource_limits", a.resource_limits.type_code_max_serialized_length ==
                                b.resource_limits.type_code_max_serialized_length},
        {"receiver_pool", a.receiver_pool.buffer_size == b.receiver_pool.buffer_size},
    });
}

std::string changed_immutable_policy(const DDS_TopicQos& a, const DDS_TopicQos& b) {
    const std::string common = changed_common_policy(a, b);
    if (!common.empty())
        return common;
    const DDS_DurabilityServiceQosPolicy& service_a = a.durability_service;
    const DDS_DurabilityServiceQosPolicy& service_b = b.durability_service;
    return first_difference({
        {"durability_service", service_a.service_cleanup_delay == service_b.service_cleanup_delay &&
                                   service_a.history_kind == service_b.history_kind &&
                                   service_a.history_depth == service_b.history_depth &&
                                   service_a.max_samples == service_b.max_samples &&
                                   service_a.max_instances == service_b.max_instances &&
                                   service_a.max_samples_per_instance == service_b.max_samples_per_instance},
    });
}

std::string changed_immutable_policy(const DDS_SubscriberQos& a, const DDS_SubscriberQos& b) {
    return changed_group_policy(a, b);
}

std::string changed_immutable_policy(const DDS_DataReaderQos& a, const DDS_DataReaderQos& b) {
    const std::string common = changed_common_policy(a, b);
    if (!common.empty())
        return common;
    return first_difference({
        {"type_consistency", a.type_consistency.kind == b.type_consistency.kind},
        {"reader_resource_limits", a.reader_resource_limits.dynamically_allocate_fragmented_samples ==
                                       b.reader_resource_limits.dynamically_allocate_fragmented_samples},
    });
}

std::string changed_immutable_policy(const DDS_PublisherQos& a, const DDS_PublisherQos& b) {
    return changed_group_policy(a, b);
}

std::string changed_immutable_policy(const DDS_DataWriterQos& a, const DDS_DataWriterQos& b) {
    return changed_common_policy(a, b);
}

} // namespace meridian::qos
