#include "rtps/net/peers.h"

#include <netdb.h>

#include <algorithm>
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

bool parse_index_limit(const std::string& digits, unsigned& limit, std::string& error) {
    const bool valid = !digits.empty() && digits.size() <= 3 &&
                       digits.find_first_not_of("0123456789") == std::string::npos &&
                       std::stoul(digits) <= kMaxParticipantIndex;
    if (!valid) {
        error = "'" + digits + "' before the @ is not a participant index from 0 to " +
                std::to_string(kMaxParticipantIndex);
        return false;
    }
    limit = static_cast<unsigned>(std::stoul(digits));
    return true;
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
    const bool valid = !digits.empty() && digits.size() <= 5 &&
                       digits.find_first_not_of("0123456789") == std::string::npos &&
                       std::stoul(digits) > 0 && std::stoul(digits) <= 65535;
    if (valid)
        port = static_cast<uint16_t>(std::stoul(digits));
    else
        error = "'" + digits + "' is not a port from 1 to 65535";
    return valid;
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

/// Appends destinations that are not in the list yet.
class DestinationList {
  public:
    explicit DestinationList(uint32_t domain_id) : domain_id_(domain_id) {}

    /// Port 0: the well-known one. A unicast address has those of the participants.
    void add(const IpAddress& address, unsigned index_limit, uint16_t port = 0) {
        if (address.is_multicast()) {
            const auto ports = multicast_ports(domain_id_);
            if (port == 0 && ports)
                port = ports->metatraffic;
            if (port != 0) {
                // Loopback first: of an announcement that comes twice, the first counts, and it says more
                // there.
                add(to_host_locator(address, port));
                add(to_locator(address, port));
            }
            return;
        }
        for (unsigned index = 0; index <= index_limit; ++index) {
            if (const auto ports = unicast_ports(domain_id_, index))
                add(to_locator(address, ports->metatraffic));
        }
    }

    void add(const Locator& locator) {
        if (known_.insert(locator).second)
            list_.push_back(locator);
    }

    LocatorList take() { return std::move(list_); }

  private:
    uint32_t domain_id_;
    std::set<Locator> known_;
    LocatorList list_;
};

} // namespace

Peers resolve_peers(const std::vector<std::string>& peers, const TransportConfig& config) {
    Peers result;
    DestinationList destinations(config.domain_id);
    DestinationList with_port(config.domain_id);
    for (const std::string& text : peers) {
        std::string reason;
        const std::optional<PeerText> peer = parse_peer(text, reason);
        const std::vector<IpAddress> addresses =
            peer ? addresses_of(*peer, config, reason) : std::vector<IpAddress>{};
        if (addresses.empty())
            result.unusable.push_back("peer '" + text + "' cannot be used: " + reason);
        for (const IpAddress& address : addresses) {
            if (peer->port != 0 && !address.is_multicast())
                with_port.add(to_locator(address, peer->port));
            else
                destinations.add(address, peer->index_limit, peer->port);
        }
    }
    result.destinations = destinations.take();
    result.with_port = with_port.take();
    return result;
}

LocatorList default_peers(const TransportConfig& config) {
    DestinationList destinations(config.domain_id);
    if (config.uses_v4()) {
        destinations.add(multicast_group_v4(), 0);
        destinations.add(loopback_address(Family::v4), kDefaultPeerIndexLimit);
    }
    if (config.uses_v6()) {
        for (const IpAddress& group : multicast_groups_v6())
            destinations.add(group, 0);
        destinations.add(loopback_address(Family::v6), kDefaultPeerIndexLimit);
    }
    return destinations.take();
}

} // namespace meridian::rtps::net
