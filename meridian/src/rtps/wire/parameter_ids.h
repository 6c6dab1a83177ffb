#pragma once

// Parameter ids (OMG DDSI-RTPS 2.5, 9.6.2.2 and 9.6.4; DDS-XTypes 1.3, 7.6.3.2; DDS-RPC 1.0; DDS
// Security 1.1), without the must-understand bit.

#include <cstdint>

namespace meridian::rtps::pid {

constexpr uint16_t pad = 0x0000;
constexpr uint16_t sentinel = 0x0001;
constexpr uint16_t participant_lease_duration = 0x0002;
constexpr uint16_t time_based_filter = 0x0004;
constexpr uint16_t topic_name = 0x0005;
constexpr uint16_t ownership_strength = 0x0006;
constexpr uint16_t type_name = 0x0007;
constexpr uint16_t metatraffic_multicast_ip = 0x000b; // deprecated, as are the other addresses and ports
constexpr uint16_t default_unicast_ip = 0x000c;
constexpr uint16_t metatraffic_unicast_port = 0x000d;
constexpr uint16_t default_unicast_port = 0x000e;
constexpr uint16_t domain_id = 0x000f;
constexpr uint16_t multicast_ip = 0x0011;
constexpr uint16_t domain_tag = 0x0014; // always sent as 0x4014
constexpr uint16_t protocol_version = 0x0015;
constexpr uint16_t vendor_id = 0x0016;
constexpr uint16_t reliability = 0x001a;
constexpr uint16_t liveliness = 0x001b;
constexpr uint16_t durability = 0x001d;
constexpr uint16_t durability_service = 0x001e;
constexpr uint16_t ownership = 0x001f;
constexpr uint16_t presentation = 0x0021;
constexpr uint16_t deadline = 0x0023;
constexpr uint16_t destination_order = 0x0025;
constexpr uint16_t latency_budget = 0x0027;
constexpr uint16_t partition = 0x0029;
constexpr uint16_t lifespan = 0x002b;
constexpr uint16_t user_data = 0x002c;
constexpr uint16_t group_data = 0x002d;
constexpr uint16_t topic_data = 0x002e;
constexpr uint16_t unicast_locator = 0x002f;
constexpr uint16_t multicast_locator = 0x0030;
constexpr uint16_t default_unicast_locator = 0x0031;
constexpr uint16_t metatraffic_unicast_locator = 0x0032;
constexpr uint16_t metatraffic_multicast_locator = 0x0033;
constexpr uint16_t manual_liveliness_count = 0x0034;
constexpr uint16_t content_filter = 0x0035;
constexpr uint16_t history = 0x0040;
constexpr uint16_t resource_limits = 0x0041;
constexpr uint16_t expects_inline_qos = 0x0043;
constexpr uint16_t participant_builtin_endpoints =
    0x0044; // the older name and number of builtin_endpoint_set
constexpr uint16_t metatraffic_unicast_ip = 0x0045;
constexpr uint16_t metatraffic_multicast_port = 0x0046;
constexpr uint16_t default_multicast_locator = 0x0048;
constexpr uint16_t transport_priority = 0x0049;
constexpr uint16_t participant_guid = 0x0050;
constexpr uint16_t participant_entity_id = 0x0051;
constexpr uint16_t group_guid = 0x0052;
constexpr uint16_t group_entity_id = 0x0053;
constexpr uint16_t content_filter_info = 0x0055;
constexpr uint16_t coherent_set = 0x0056;
constexpr uint16_t directed_write = 0x0057;
constexpr uint16_t builtin_endpoint_set = 0x0058;
constexpr uint16_t property_list = 0x0059;
constexpr uint16_t endpoint_guid = 0x005a;
constexpr uint16_t type_max_size_serialized = 0x0060;
constexpr uint16_t original_writer_info = 0x0061;
constexpr uint16_t entity_name = 0x0062;
constexpr uint16_t group_coherent_set = 0x0063;
constexpr uint16_t group_sequence_number = 0x0064;
constexpr uint16_t writer_group_info = 0x0065;
constexpr uint16_t secure_writer_group_info = 0x0066;
constexpr uint16_t key_hash = 0x0070;
constexpr uint16_t status_info = 0x0071;
constexpr uint16_t type_object = 0x0072;
constexpr uint16_t data_representation = 0x0073;
constexpr uint16_t type_consistency = 0x0074;
constexpr uint16_t type_information = 0x0075;
constexpr uint16_t builtin_endpoint_qos = 0x0077;
constexpr uint16_t topic_aliases = 0x0080;
constexpr uint16_t service_instance_name = 0x0081;
constexpr uint16_t related_entity_guid = 0x0082;
constexpr uint16_t related_sample_identity = 0x0083;
constexpr uint16_t identity_token = 0x1001;
constexpr uint16_t permissions_token = 0x1002;
constexpr uint16_t data_tags = 0x1003;
constexpr uint16_t endpoint_security_info = 0x1004;
constexpr uint16_t participant_security_info = 0x1005;
constexpr uint16_t identity_status_token = 0x1006;
// What was sent for the related sample identity before 0x0083 was assigned, and still is.
constexpr uint16_t vendor_related_sample_identity = 0x800f;

/// True for every id above: what the bit "must be understood" asks for, even where the value is of no use
/// here.
bool is_known(uint16_t id);

} // namespace meridian::rtps::pid
