#include "rtps/net/transport_config.h"

#include <tuple>

#include "platform/text.h"
#include "rtps/net/ports.h"

namespace meridian::rtps::net {

namespace {

std::vector<std::string> names_in(const std::string& text) {
    std::vector<std::string> names;
    for (const std::string& part : split(text, ",")) {
        if (std::string name = trimmed(part); !name.empty())
            names.push_back(std::move(name));
    }
    return names;
}

bool apply_one(const std::string& name, const std::string& value, UdpSettings& settings, std::string& error) {
    if (name == "ignore_loopback_interface") {
        if (value != "0" && value != "1") {
            error = "must be 0 or 1, not '" + value + "'";
            return false;
        }
        settings.ignore_loopback_interface = value == "1";
    } else if (name == "parent.allow_interfaces_list") {
        settings.allow_interfaces = names_in(value);
    } else if (name == "parent.deny_interfaces_list") {
        settings.deny_interfaces = names_in(value);
    }
    return true;
}

bool check_range(const std::string& what, int value, int lowest, int highest, std::string& error) {
    if (value >= lowest && value <= highest)
        return true;
    error = what + " must be " + std::to_string(lowest) + " to " + std::to_string(highest) + ", not " +
            std::to_string(value);
    return false;
}

bool check_settings(const std::string& family, const UdpSettings& settings, std::string& error) {
    constexpr int kMost = 1 << 30;
    return check_range(family + " message_size_max", settings.message_size_max, kSmallestDatagram, kMost,
                       error) &&
           check_range(family + " send_socket_buffer_size", settings.send_socket_buffer_size, 0, kMost,
                       error) &&
           check_range(family + " recv_socket_buffer_size", settings.receive_socket_buffer_size, 0, kMost,
                       error) &&
           check_range(family + " multicast_ttl", settings.multicast_ttl, 0, 255, error);
}

} // namespace

bool operator==(const UdpSettings& a, const UdpSettings& b) {
    const auto fields = [](const UdpSettings& s) {
        return std::tie(s.message_size_max, s.send_socket_buffer_size, s.receive_socket_buffer_size,
                        s.multicast_ttl, s.ignore_loopback_interface, s.allow_interfaces, s.deny_interfaces);
    };
    return fields(a) == fields(b);
}

bool operator==(const TransportConfig& a, const TransportConfig& b) {
    const auto fields = [](const TransportConfig& c) {
        return std::tie(c.domain_id, c.participant_index, c.mask, c.v4, c.v6, c.receive_buffer_size);
    };
    return fields(a) == fields(b);
}

bool apply_properties(const std::vector<Property>& properties, TransportConfig& config, std::string& error) {
    const struct {
        std::string prefix;
        UdpSettings& settings;
    } families[] = {{"dds.transport.UDPv4.builtin.", config.v4}, {"dds.transport.UDPv6.builtin.", config.v6}};
    for (const Property& property : properties) {
        const std::string name = trimmed(property.name);
        for (const auto& family : families) {
            if (name.compare(0, family.prefix.size(), family.prefix) != 0)
                continue;
            if (!apply_one(name.substr(family.prefix.size()), trimmed(property.value), family.settings,
                           error)) {
                error = "property " + name + " " + error;
                return false;
            }
        }
    }
    return true;
}

bool check(const TransportConfig& config, std::string& error) {
    constexpr uint32_t kKnownKinds = kTransportUdpV4 | kTransportThisHost | kTransportUdpV6;
    if (!multicast_ports(config.domain_id)) {
        error = "domain " + std::to_string(config.domain_id) + " does not exist: the highest is " +
                std::to_string(kMaxDomainId) + ", the ports of more would not fit";
        return false;
    }
    if (config.participant_index < -1 ||
        (config.participant_index >= 0 &&
         !unicast_ports(config.domain_id, static_cast<uint32_t>(config.participant_index)))) {
        error = "participant index " + std::to_string(config.participant_index) +
                " is not possible in domain " + std::to_string(config.domain_id) +
                ": -1 (automatic) or 0 to " + std::to_string(kMaxParticipantIndex) +
                ", with ports up to 65535";
        return false;
    }
    if ((config.mask & ~kKnownKinds) != 0 || config.mask == 0) {
        error = "transport mask " + std::to_string(config.mask) +
                " is not a sum of 1 (UDPv4), 2 (this host) and 8 (UDPv6)";
        return false;
    }
    return check_range("receive buffer size", config.receive_buffer_size, 0, 1 << 30, error) &&
           check_settings("UDPv4", config.v4, error) && check_settings("UDPv6", config.v6, error);
}

} // namespace meridian::rtps::net
