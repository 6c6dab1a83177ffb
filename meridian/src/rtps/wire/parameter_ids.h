#pragma once

// The parameters of announcements and of inline QoS (OMG DDSI-RTPS 2.5, 9.6.2.2 and 9.6.4; DDS-XTypes 1.3,
// 7.6.3.2; DDS-RPC 1.0; DDS Security 1.1), without the must-understand bit.

#include <cstdint>

namespace meridian::rtps::pid {

// These two make up the list itself and name no value.
constexpr uint16_t pad = 0x0000;
constexpr uint16_t sentinel = 0x0001;

enum Flags : uint8_t {
    none = 0,
    of_writers = 1,      // means nothing in the announcement of a reader
    of_readers = 2,      // means nothing in the announcement of a writer
    must_understand = 4, // always sent with the must-understand bit
};

// One line per parameter: name, id, flags; in the order of the ids. A macro, since each line becomes a
// constant here and a row of the table in the source file. Addresses and ports without a locator (0x000b to
// 0x000e, 0x0011, 0x0045, 0x0046) are deprecated; 0x0044 is the older number of builtin_endpoint_set; 0x800f
// was sent for related_sample_identity before 0x0083 was assigned, and still is.
#define MERIDIAN_PARAMETERS(ROW)                     \
    ROW(participant_lease_duration, 0x0002, none)    \
    ROW(time_based_filter, 0x0004, of_readers)       \
    ROW(topic_name, 0x0005, none)                    \
    ROW(ownership_strength, 0x0006, of_writers)      \
    ROW(type_name, 0x0007, none)                     \
    ROW(metatraffic_multicast_ip, 0x000b, none)      \
    ROW(default_unicast_ip, 0x000c, none)            \
    ROW(metatraffic_unicast_port, 0x000d, none)      \
    ROW(default_unicast_port, 0x000e, none)          \
    ROW(domain_id, 0x000f, none)                     \
    ROW(multicast_ip, 0x0011, none)                  \
    ROW(domain_tag, 0x0014, must_understand)         \
    ROW(protocol_version, 0x0015, none)              \
    ROW(vendor_id, 0x0016, none)                     \
    ROW(reliability, 0x001a, none)                   \
    ROW(liveliness, 0x001b, none)                    \
    ROW(durability, 0x001d, none)                    \
    ROW(durability_service, 0x001e, none)            \
    ROW(ownership, 0x001f, none)                     \
    ROW(presentation, 0x0021, none)                  \
    ROW(deadline, 0x0023, none)                      \
    ROW(destination_order, 0x0025, none)             \
    ROW(latency_budget, 0x0027, none)                \
    ROW(partition, 0x0029, none)                     \
    ROW(lifespan, 0x002b, of_writers)                \
    ROW(user_data, 0x002c, none)                     \
    ROW(group_data, 0x002d, none)                    \
    ROW(topic_data, 0x002e, none)                    \
    ROW(unicast_locator, 0x002f, none)               \
    ROW(multicast_locator, 0x0030, none)             \
    ROW(default_unicast_locator, 0x0031, none)       \
    ROW(metatraffic_unicast_locator, 0x0032, none)   \
    ROW(metatraffic_multicast_locator, 0x0033, none) \
    ROW(manual_liveliness_count, 0x0034, none)       \
    ROW(content_filter, 0x0035, of_readers)          \
    ROW(history, 0x0040, none)                       \
    ROW(resource_limits, 0x0041, none)               \
    ROW(expects_inline_qos, 0x0043, of_readers)      \
    ROW(participant_builtin_endpoints, 0x0044, none) \
    ROW(metatraffic_unicast_ip, 0x0045, none)        \
    ROW(metatraffic_multicast_port, 0x0046, none)    \
    ROW(default_multicast_locator, 0x0048, none)     \
    ROW(transport_priority, 0x0049, none)            \
    ROW(participant_guid, 0x0050, none)              \
    ROW(participant_entity_id, 0x0051, none)         \
    ROW(group_guid, 0x0052, none)                    \
    ROW(group_entity_id, 0x0053, none)               \
    ROW(content_filter_info, 0x0055, none)           \
    ROW(coherent_set, 0x0056, none)                  \
    ROW(directed_write, 0x0057, none)                \
    ROW(builtin_endpoint_set, 0x0058, none)          \
    ROW(property_list, 0x0059, none)                 \
    ROW(endpoint_guid, 0x005a, none)                 \
    ROW(type_max_size_serialized, 0x0060, none)      \
    ROW(original_writer_info, 0x0061, none)          \
    ROW(entity_name, 0x0062, none)                   \
    ROW(group_coherent_set, 0x0063, none)            \
    ROW(group_sequence_number, 0x0064, none)         \
    ROW(writer_group_info, 0x0065, none)             \
    ROW(secure_writer_group_info, 0x0066, none)      \
    ROW(key_hash, 0x0070, none)                      \
    ROW(status_info, 0x0071, none)                   \
    ROW(type_object, 0x0072, none)                   \
    ROW(data_representation, 0x0073, none)           \
    ROW(type_consistency, 0x0074, none)              \
    ROW(type_information, 0x0075, none)              \
    ROW(builtin_endpoint_qos, 0x0077, none)          \
    ROW(topic_aliases, 0x0080, none)                 \
    ROW(service_instance_name, 0x0081, none)         \
    ROW(related_entity_guid, 0x0082, none)           \
    ROW(related_sample_identity, 0x0083, none)       \
    ROW(identity_token, 0x1001, none)                \
    ROW(permissions_token, 0x1002, none)             \
    ROW(data_tags, 0x1003, none)                     \
    ROW(endpoint_security_info, 0x1004, none)        \
    ROW(participant_security_info, 0x1005, none)     \
    ROW(identity_status_token, 0x1006, none)         \
    ROW(vendor_related_sample_identity, 0x800f, none)

#define MERIDIAN_PARAMETER_CONSTANT(name, id, flags) constexpr uint16_t name = id;
MERIDIAN_PARAMETERS(MERIDIAN_PARAMETER_CONSTANT)
#undef MERIDIAN_PARAMETER_CONSTANT

struct Info {
    uint16_t id;
    Flags flags;
    const char* name;
};

/// The row of a parameter without its must-understand bit; null for an id that is not in the table. An id in
/// the table meets the demand "must be understood", even where the value has no use here.
const Info* find(uint16_t id);

} // namespace meridian::rtps::pid
