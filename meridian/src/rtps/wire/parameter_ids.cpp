#include "rtps/wire/parameter_ids.h"

namespace meridian::rtps::pid {

bool is_known(uint16_t id) {
    switch (id) {
        case participant_lease_duration:
        case time_based_filter:
        case topic_name:
        case ownership_strength:
        case type_name:
        case metatraffic_multicast_ip:
        case default_unicast_ip:
        case metatraffic_unicast_port:
        case default_unicast_port:
        case domain_id:
        case multicast_ip:
        case domain_tag:
        case protocol_version:
        case vendor_id:
        case reliability:
        case liveliness:
        case durability:
        case durability_service:
        case ownership:
        case presentation:
        case deadline:
        case destination_order:
        case latency_budget:
        case partition:
        case lifespan:
        case user_data:
        case group_data:
        case topic_data:
        case unicast_locator:
        case multicast_locator:
        case default_unicast_locator:
        case metatraffic_unicast_locator:
        case metatraffic_multicast_locator:
        case manual_liveliness_count:
        case content_filter:
        case history:
        case resource_limits:
        case expects_inline_qos:
        case participant_builtin_endpoints:
        case metatraffic_unicast_ip:
        case metatraffic_multicast_port:
        case default_multicast_locator:
        case transport_priority:
        case participant_guid:
        case participant_entity_id:
        case group_guid:
        case group_entity_id:
        case content_filter_info:
        case coherent_set:
        case directed_write:
        case builtin_endpoint_set:
        case property_list:
        case endpoint_guid:
        case type_max_size_serialized:
        case original_writer_info:
        case entity_name:
        case group_coherent_set:
        case group_sequence_number:
        case writer_group_info:
        case secure_writer_group_info:
        case key_hash:
        case status_info:
        case type_object:
        case data_representation:
        case type_consistency:
        case type_information:
        case builtin_endpoint_qos:
        case topic_aliases:
        case service_instance_name:
        case related_entity_guid:
        case related_sample_identity:
        case identity_token:
        case permissions_token:
        case data_tags:
        case endpoint_security_info:
        case participant_security_info:
        case identity_status_token:
        case vendor_related_sample_identity:
            return true;
        default:
            return false;
    }
}

} // namespace meridian::rtps::pid
