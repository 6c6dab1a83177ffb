#pragma once

// Where participants are announced to before any is known.

#include <string>
#include <vector>

#include "rtps/net/transport_config.h"
#include "rtps/wire/types.h"

namespace meridian::rtps::net {

/// Without another limit a peer is tried at the ports of the participant indexes 0 to this.
constexpr unsigned kDefaultPeerIndexLimit = 4;

struct Peers {
    /// Each once, in order; for a multicast group its host locator (see address.h) before the plain one.
    LocatorList destinations;
    /// The others, which have a port of their own: a discovery server may listen there.
    LocatorList with_port;
    /// For each peer that cannot be used a text that names it and the reason.
    std::vector<std::string> unusable;
};

/// Peers as a user writes them: [N@][transport://]host[:port], where N is the highest participant index to
/// try, the transport is udpv4, udpv6 or shmem (this host), each also with "builtin." before it, and the host
/// a name, an IPv4 or IPv6 address (also in brackets, also with %interface; before a port in brackets) or a
/// multicast group. Names are looked up, which may take as long as the system's resolver takes.
Peers resolve_peers(const std::vector<std::string>& peers, const TransportConfig& config);

/// The peers where the user names none: the multicast groups, and the first participants on this host, which
/// may be without multicast.
LocatorList default_peers(const TransportConfig& config);

} // namespace meridian::rtps::net
