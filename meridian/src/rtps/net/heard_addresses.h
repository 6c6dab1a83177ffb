#pragma once

// Which addresses datagrams come from at present. What is sent to another one may have to wait in its socket
// until the system knows whether there is such a host.

#include <cstddef>
#include <set>

#include "rtps/net/address.h"
#include "rtps/protocol/times.h"

namespace meridian::rtps::net {

/// Forgets an address that was not heard for kMemory to twice as long. Not thread-safe.
class HeardAddresses {
  public:
    void note(const IpAddress& address) {
        if (address == last_)
            return;
        last_ = address;
        if (recent_.size() < kMost)
            recent_.insert(address);
    }

    bool contains(const IpAddress& address, MonotonicTime now) {
        if (now >= turn_at_) {
            earlier_.swap(recent_);
            recent_.clear();
            last_ = IpAddress{};
            turn_at_ = now + kMemory;
        }
        return recent_.count(address) != 0 || earlier_.count(address) != 0;
    }

  private:
    static constexpr Duration kMemory = std::chrono::seconds(10);
    static constexpr size_t kMost = 4096; // sources may be forged
    IpAddress last_;
    std::set<IpAddress> recent_;
    std::set<IpAddress> earlier_;
    MonotonicTime turn_at_{0};
};

} // namespace meridian::rtps::net
