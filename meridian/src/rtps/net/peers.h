#pragma once

// Where participants are announced to before any is known.

#include <optional>
#include <string>
#include <vector>

#include "rtps/net/transport_config.h"
#include "rtps/wire/types.h"

namespace meridian::rtps::net {

/// Without another limit a peer is tried at the ports of the participant indexes 0 to this.
constexpr unsigned kDefaultPeerIndexLimit = 4;

/// Peers as a user writes them: [N@][transport://]host[:port], where N is the highest participant index to
/// try, the transport is udpv4, udpv6 or shmem (this host), each also with "builtin." before it, and the host
/// a name, an IPv4 or IPv6 address (also in brackets, which it needs before a port, also with %interface) or
/// a multicast group. With a port that one is tried and no participant index counts. Names are looked up,
/// which may take as long as the system's resolver takes. Returns the destinations, each once, in order; for
/// a multicast group its host locator (see address.h) before the plain one. The text in error names the peers
/// that cannot be used; it is empty without any. nullopt: none of them can.
std::optional<LocatorList> resolve_peers(const std::vector<std::string>& peers, const TransportConfig& config,
                                         std::string& error);

/// The peers where the user names none: the multicast groups, and the first participants on this host, which
/// may be without multicast.
LocatorList default_peers(const TransportConfig& config);

} // namespace meridian::rtps::net
