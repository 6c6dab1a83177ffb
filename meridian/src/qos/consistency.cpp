#include "qos/consistency.h"

#include <algorithm>
#include <cstring>

#include "qos/policies.h"

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

    /// What can be said of each value by itself.
    template <typename Qos>
    void values(const Qos& qos) {
        for_each_field<Qos>([&](const auto& policy) { values(policy.name, qos.*policy.member); });
    }
    void limit(DDS_Long value, const std::string& name) {
        require(value == DDS_LENGTH_UNLIMITED || value >= 1,
                name + " is " + std::to_string(value) + ", must be unlimited (-1) or at least 1");
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
    void presentation(const DDS_PresentationQosPolicy& policy) {
        require(!policy.coherent_access, "presentation: coherent_access is not offered");
        require(!policy.ordered_access || policy.access_scope != DDS_GROUP_PRESENTATION_QOS,
                "presentation: ordered_access of a whole group is not offered");
    }
    /// The policies that topics, readers and writers have in common.
    template <typename Qos>
    void common(const Qos& qos) {
        history("", qos.history.kind, qos.history.depth, qos.resource_limits.max_samples,
                qos.resource_limits.max_instances, qos.resource_limits.max_samples_per_instance);
        representation(qos.representation);
    }

  private:
    template <typename Policy>
    void values(const std::string& policy, const Policy& values) {
        for_each_field<Policy>([&](const auto& field) { value(policy, field, values.*field.member); });
    }
    void values(const std::string& policy, const DDS_EntityNameQosPolicy& name) {
        parameter_size(serialized_size(name.name) + serialized_size(name.role_name), policy);
    }
    void values(const std::string& policy, const DDS_PropertyQosPolicy& properties) {
        int64_t size = 0;
        for (DDS_Long i = 0; i < properties.value.length(); ++i) {
            const DDS_Property_t& property = properties.value[i];
            require(property.name != nullptr && property.name[0] != '\0', policy + ": one without a name");
            if (property.propagate)
                size += serialized_size(property.name) + serialized_size(property.value);
        }
        parameter_size(size, policy + ": what is propagated");
    }

    /// One value; most types have none that is wrong by itself.
    template <typename Field, typename Value>
    void value(const std::string& policy, const Field& field, const Value& value) {
        const std::string name = policy + ": " + field.name;
        if constexpr (std::is_enum_v<Value>)
            named(value, kNames<Value>, name);
        else if constexpr (std::is_same_v<decltype(field.rule), Named>)
            named(value, field.rule.names, name);
        else if constexpr (std::is_same_v<Value, DDS_Duration_t>)
            duration(value, std::is_same_v<decltype(field.rule), AboveZero>, name);
        else if constexpr (std::is_same_v<Value, DDS_OctetSeq>)
            parameter_size(value.length(), policy);
        else if constexpr (std::is_same_v<Value, DDS_StringSeq> && Field::announced)
            strings(value, policy);
    }
    void named(int value, Names names, const std::string& name) {
        require(std::any_of(names.begin(), names.end(),
                            [value](const NamedValue& known) { return known.value == value; }),
                name + " has the unknown value " + std::to_string(value));
    }
    void duration(const DDS_Duration_t& value, bool above_zero, const std::string& name) {
        require(DDS_Duration_is_infinite(value) || (value.sec >= 0 && value.nanosec < 1000000000),
                name + " is not a valid duration (" + std::to_string(value.sec) + " s, " +
                    std::to_string(value.nanosec) + " ns)");
        require(!above_zero || DDS_DURATION_ZERO < value, name + " must be above 0");
    }
    void strings(const DDS_StringSeq& value, const std::string& name) {
        int64_t size = 0;
        for (DDS_Long i = 0; i < value.length(); ++i)
            size += serialized_size(value[i]);
        parameter_size(size, name);
    }
    static int64_t serialized_size(const char* string) {
        // Length, characters, terminator, and at most three bytes of padding.
        return 4 + static_cast<int64_t>(string == nullptr ? 0 : std::strlen(string)) + 4;
    }
    /// Each of these is announced in one parameter, whose length is a 16-bit number
    /// (DDSI-RTPS 2.5, 9.4.2.11).
    void parameter_size(int64_t size, const std::string& name) {
        constexpr int64_t kMost = 65000;
        require(size <= kMost, name + " takes " + std::to_string(size) + " bytes, more than the " +
                                   std::to_string(kMost) + " that can be announced");
    }

    std::string reason_;
};

template <typename Value>
bool equal(const Value& a, const Value& b);

template <typename Element>
bool equal(const DDS_Sequence<Element>& a, const DDS_Sequence<Element>& b) {
    bool same = a.length() == b.length();
    for (DDS_Long i = 0; same && i < a.length(); ++i)
        same = equal(a[i], b[i]);
    return same;
}

template <typename Value>
bool equal(const Value& a, const Value& b) {
    if constexpr (IsRecord<Value>::value) {
        bool same = true;
        for_each_field<Value>(
            [&](const auto& field) { same = same && equal(a.*field.member, b.*field.member); });
        return same;
    } else if constexpr (std::is_same_v<Value, char*>) {
        return std::strcmp(a == nullptr ? "" : a, b == nullptr ? "" : b) == 0;
    } else {
        return a == b;
    }
}

/// What can be said of an entity beyond each value by itself and the groups of policies.
template <typename Qos>
void check_further(Check&, const Qos&) {}

void check_further(Check& check, const DDS_DomainParticipantQos& qos) {
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
    check.require(!(config.participant_liveliness_assert_period < kShortestAssertPeriod),
                  "discovery_config: participant_liveliness_assert_period must be at least 10 ms");
    check.require(
        DDS_Duration_is_infinite(config.participant_liveliness_lease_duration) ||
            config.participant_liveliness_assert_period < config.participant_liveliness_lease_duration,
        "discovery_config: participant_liveliness_assert_period must be below "
        "participant_liveliness_lease_duration");
    check.require(config.builtin_discovery_plugins != DDS_DISCOVERYCONFIG_BUILTIN_SDP2,
                  "discovery_config: builtin_discovery_plugins SDP2 is not offered");
    check.require(qos.resource_limits.type_code_max_serialized_length >= DDS_LENGTH_UNLIMITED,
                  "resource_limits: type_code_max_serialized_length is negative");
    check.require(qos.receiver_pool.buffer_size >= 0, "receiver_pool: buffer_size is negative");
    for (DDS_Long i = 0; i < qos.partition.name.length(); ++i) {
        const char* name = qos.partition.name[i];
        // They are announced as one text, joined by commas.
        check.require(name == nullptr || std::strchr(name, ',') == nullptr,
                      std::string("partition: the participant partition \"") + (name == nullptr ? "" : name) +
                          "\" holds a comma");
    }
}

void check_further(Check& check, const DDS_TopicQos& qos) {
    const DDS_DurabilityServiceQosPolicy& service = qos.durability_service;
    check.history("durability_service: ", service.history_kind, service.history_depth, service.max_samples,
                  service.max_instances, service.max_samples_per_instance);
}

void check_further(Check& check, const DDS_DataReaderQos& qos) {
    check.require(!(qos.deadline.period < qos.time_based_filter.minimum_separation),
                  "deadline: period is below the minimum_separation of time_based_filter");
}

} // namespace

template <typename Qos>
std::string check_consistency(const Qos& qos) {
    Check check;
    check.values(qos);
    if constexpr (std::is_base_of_v<DDS_GroupPolicies, Qos>)
        check.presentation(qos.presentation);
    if constexpr (std::is_base_of_v<DDS_HistoryPolicies, Qos>)
        check.common(qos);
    check_further(check, qos);
    return check.reason();
}

template <typename Qos>
std::string changed_immutable_policy(const Qos& before, const Qos& after) {
    std::string name;
    for_each_field<Qos>([&](const auto& policy) {
        if (policy.fixed && name.empty() && !equal(before.*policy.member, after.*policy.member))
            name = policy.name;
    });
    return name;
}

template std::string check_consistency(const DDS_DomainParticipantQos&);
template std::string check_consistency(const DDS_TopicQos&);
template std::string check_consistency(const DDS_SubscriberQos&);
template std::string check_consistency(const DDS_DataReaderQos&);
template std::string check_consistency(const DDS_PublisherQos&);
template std::string check_consistency(const DDS_DataWriterQos&);
template std::string changed_immutable_policy(const DDS_DomainParticipantQos&,
                                              const DDS_DomainParticipantQos&);
template std::string changed_immutable_policy(const DDS_TopicQos&, const DDS_TopicQos&);
template std::string changed_immutable_policy(const DDS_SubscriberQos&, const DDS_SubscriberQos&);
template std::string changed_immutable_policy(const DDS_DataReaderQos&, const DDS_DataReaderQos&);
template std::string changed_immutable_policy(const DDS_PublisherQos&, const DDS_PublisherQos&);
template std::string changed_immutable_policy(const DDS_DataWriterQos&, const DDS_DataWriterQos&);

} // namespace meridian::qos
