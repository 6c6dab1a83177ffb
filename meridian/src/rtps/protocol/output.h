#pragma once

#include "rtps/wire/types.h"

namespace meridian::rtps {

/// Where messages go. Implemented by the net layer (and by the simulator in tests).
class Output {
  public:
    virtual ~Output() = default;

    /// Sends one datagram; destination may be a multicast address. Best effort: failure is the network's
    /// business. The view is valid during the call only.
    virtual void send(ByteView message, const Locator& destination) = 0;

    /// How good a unicast locator is for reaching the participant whose announcements come from
    /// announced_from (kind kLocatorInvalid where that is unknown). 0 or less: cannot be reached from here;
    /// higher is better. Messages go to one locator per peer, the best one: two would double all traffic.
    /// Among equals an address equal to announced_from wins, then the order of announcement. A peer that
    /// announces 127.0.0.1 among others is reached there only if it lives on this host, which is what
    /// announced_from is for.
    virtual int preference(const Locator& locator, const Locator& announced_from) const = 0;

    /// True when nothing sent there leaves this host. Such destinations are announced the loopback addresses
    /// too.
    virtual bool stays_on_host(const Locator& /*destination*/) const { return false; }
};

} // namespace meridian::rtps
