#include "rtps/net/peers.h"

#include <netdb.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <set>

#include "rtps/net/address.h"
#include "rtps/net/ports.h"

namespace meridian::rtps::net {

namespace {

struct PeerText {
    unsigned index_limit = kDefaultPeerIndexLimit;
    std::optional<Family> family; // as the prefix says; without one any enabled family
    bool this_host = false;
    std::string host;
    uint16_t port = 0; // 0: those of the participant indexes
};

/// Removes prefix from the front of text; false (and no change) where it does not begin with it.
bool take_prefix(std::string& text, const std::string& prefix) {
    if (text.compare(0, prefix.size(), prefix) != 0)
        return false;
    text.erase(0, prefix.size());
    return true;
}

/// A number from lowest to highest, with no more digits than that one has.
template <typename Number>
bool parse_number(const std::string& digits, unsigned lowest, unsigned highest, Number& number) {
    if (digits.empty() || digits.size() > std::to_string(highest).size() ||
        digits.find_first_not_of("0123456789") != std::string::npos || std::stoul(digits) < lowest ||
        std::stoul(digits) > highest)
        return false;
    number = static_cast<Number>(std::stoul(digits));
    return true;
}

bool parse_index_limit(const std::string& digits, unsigned& limit, std::string& error) {
    if (parse_number(digits, 0, kMaxParticipantIndex, limit))
        return true;
    error = "'" + digits + "' before the @ is not a participant index from 0 to " +
            std::to_string(kMaxParticipantIndex);
    return false;
}

bool parse_transport(std::string& text, PeerText& peer, std::string& error) {
    const size_t separator = text.find("://");
    if (separator == std::string::npos)
        return true;
    std::string transport = text.substr(0, separator);
    text.erase(0, separator + 3);
    take_prefix(transport, "builtin.");
    if (transport == "udpv4") {
        peer.family = Family::v4;
    } else if (transport == "udpv6") {
        peer.family = Family::v6;
    } else if (transport == "shmem") {
        peer.this_host = true;
    } else {
        error = "'" + transport + "' is no transport; there are udpv4, udpv6 and shmem";
        return false;
    }
    return true;
}

bool parse_port(const std::string& digits, uint16_t& port, std::string& error) {
    if (parse_number(digits, 1, 65535, port))
        return true;
    error = "'" + digits + "' is not a port from 1 to 65535";
    return false;
}

/// host, host:port, [address] or [address]:port; IPv6 addresses have several colons of their own.
bool parse_host(std::string text, PeerText& peer, std::string& error) {
    const bool in_brackets = !text.empty() && text.front() == '[' && text.find(']') != std::string::npos;
    const size_t end = in_brackets ? text.find(']') + 1 : std::min(text.find(':'), text.size());
    const bool has_port =
        end < text.size() && text[end] == ':' && text.find(':', end + 1) == std::string::npos;
    if (has_port && !parse_port(text.substr(end + 1), peer.port, error))
        return false;
    if (has_port)
        text.erase(end);
    if (text.size() >= 2 && text.front() == '[' && text.back() == ']')
        text = text.substr(1, text.size() - 2);
    // A scope has no place in a locator; link-local peers are tried on every interface.
    if (text.find(':') != std::string::npos)
        text = text.substr(0, text.find('%'));
    if (text.empty()) {
        error = "it has no host";
        return false;
    }
    peer.host = std::move(text);
    return true;
}

std::optional<PeerText> parse_peer(std::string text, std::string& error) {
    PeerText peer;
    const size_t at = text.find('@');
    if (at != std::string::npos) {
        if (!parse_index_limit(text.substr(0, at), peer.index_limit, error))
            return std::nullopt;
        text.erase(0, at + 1);
    }
    if (!parse_transport(text, peer, error))
        return std::nullopt;
    if (!peer.this_host && !parse_host(std::move(text), peer, error))
        return std::nullopt;
    return peer;
}

bool enabled(Family family, const TransportConfig& config) {
    return family == Family::v4 ? config.uses_v4() : config.uses_v6();
}

std::vector<IpAddress> look_up(const std::string& host, std::string& error) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* list = nullptr;
    const int result = getaddrinfo(host.c_str(), nullptr, &hints, &list);
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owner(list, [](addrinfo* entry) {
        if (entry != nullptr)
            freeaddrinfo(entry);
    });
    if (result != 0) {
        error = gai_strerror(result);
        return {};
    }
    std::vector<IpAddress> addresses;
    for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
        if (const std::optional<IpAddress> address = address_of(to_locator(entry->ai_addr)))
            addresses.push_back(*address);
    }
    if (addresses.empty())
        error = "the name has no address";
    return addresses;
}

std::vector<IpAddress> addresses_of(const PeerText& peer, const TransportConfig& config, std::string& error) {
    std::vector<IpAddress> addresses;
    if (peer.this_host) {
        for (const Family family : {Family::v4, Family::v6}) {
            if (enabled(family, config))
                addresses.push_back(loopback_address(family));
        }
        return addresses;
    }
    if (const std::optional<IpAddress> address = parse_address(peer.host))
        addresses = {*address};
    else
        addresses = look_up(peer.host, error);
    if (addresses.empty())
        return addresses;

    const auto unusable = [&](const IpAddress& address) {
        return !enabled(address.family, config) || (peer.family && *peer.family != address.family);
    };
    addresses.erase(std::remove_if(addresses.begin(), addresses.end(), unusable), addresses.end());
    if (addresses.empty())
        error = "its transport is not enabled, or it has no address there";
    for (const IpAddress& address : addresses) {
        if (address.is_unspecified()) {
            error = "an unspecified address is no destination";
            return {};
        }
    }
    return addresses;
}

/// Each once, in order.
LocatorList distinct(const LocatorList& all) {
    std::set<Locator> known;
    LocatorList list;
    std::copy_if(all.begin(), all.end(), std::back_inserter(list),
                 [&known](const Locator& locator) { return known.insert(locator).second; });
    return list;
}

/// Port 0: the well-known one. A unicast address has those of the participants.
void add(LocatorList& list, uint32_t domain_id, const IpAddress& address, unsigned index_limit,
         uint16_t port = 0) {
    if (address.is_multicast()) {
        const auto ports = multicast_ports(domain_id);
        if (port == 0 && ports)
            port = ports->metatraffic;
        if (port != 0) {
            // Loopback first: of an announcement that comes twice, the first counts, and it says more there.
            list.push_back(to_host_locator(address, port));
            list.push_back(to_locator(address, port));
        }
        return;
    }
    for (unsigned index = 0; index <= index_limit; ++index) {
        if (const auto ports = unicast_ports(domain_id, index))
            list.push_back(to_locator(address, ports->metatraffic));
    }
}

} // namespace

Peers resolve_peers(const std::vector<std::string>& peers, const TransportConfig& config) {
    Peers result;
    for (const std::string& text : peers) {
        std::string reason;
        const std::optional<PeerText> peer = parse_peer(text, reason);
        const std::vector<IpAddress> addresses =
            peer ? addresses_of(*peer, config, reason) : std::vector<IpAddress>{};
        if (addresses.empty())
            result.unusable.push_back("peer '" + text + "' cannot be used: " + reason);
        for (const IpAddress& address : addresses) {
            if (peer->port != 0 && !address.is_multicast())
                result.with_port.push_back(to_locator(address, peer->port));
            else
                add(result.destinations, config.domain_id, address, peer->index_limit, peer->port);
        }
    }
    result.destinations = distinct(result.destinations);
    result.with_port = distinct(result.with_port);
    return result;
}

LocatorList default_peers(const TransportConfig& config) {
    LocatorList destinations;
    const auto add_address = [&](const IpAddress& address) {
        add(destinations, config.domain_id, address, kDefaultPeerIndexLimit);
    };
    if (config.uses_v4()) {
        add_address(multicast_group_v4());
        add_address(loopback_address(Family::v4));
    }
    if (config.uses_v6()) {
        for (const IpAddress& group : multicast_groups_v6())
            add_address(group);
        add_address(loopback_address(Family::v6));
    }
    return distinct(destinations);
}

} // namespace meridian::rtps::net
