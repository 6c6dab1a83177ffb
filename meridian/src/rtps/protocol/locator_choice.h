#pragma once

// Which addresses of a peer messages go to.

#include "rtps/protocol/output.h"

namespace meridian::rtps {

/// The best usable unicast locator of those announced, as a list of one; empty when none can be reached.
/// Only UDPv4 and UDPv6 count. current is what was chosen before: it stays while it is announced and nothing
/// has a higher preference, so that announcements arriving over several interfaces do not move traffic back
/// and forth.
LocatorList choose_locators(const LocatorList& announced, const Locator& announced_from, const Output& output,
                            const LocatorList& current = {});

/// Whether any of them is of UDP, reachable or not.
bool announces_udp(const LocatorList& locators);

bool is_multicast(const Locator& locator);

} // namespace meridian::rtps
