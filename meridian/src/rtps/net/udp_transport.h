#pragma once

// UDP sockets of one participant, in one or both address families: unicast sockets of its own, and the
// multicast ports that it shares with all others of the domain, joined on every usable interface.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "rtps/net/network_interfaces.h"
#include "rtps/net/transport_config.h"
#include "rtps/protocol/interfaces.h"
#include "rtps/protocol/participant.h"

namespace meridian::rtps::net {

struct TransportStatistics {
    uint64_t datagrams_received = 0;
    uint64_t bytes_received = 0;
    uint64_t datagrams_truncated = 0; // larger than the receive buffer; dropped
    uint64_t receive_errors = 0;
    uint64_t datagrams_sent = 0; // multicast counts once per interface
    uint64_t send_errors = 0;    // includes oversized and unroutable ones
};

/// Not thread-safe, except where stated. Nothing that happens to a datagram or an interface is fatal: it is
/// counted, and told once per cause through the warning function.
class UdpTransport final : public Output {
  public:
    using Warning = std::function<void(const std::string&)>;
    using Received = std::function<void(ByteView datagram, const Locator& source)>;

    /// Opens the sockets. nullptr with a text in error where it is not possible: an index in use, no free
    /// index, a configuration that check() refuses. A family that the host does not have is left out with a
    /// warning where another one remains.
    static std::unique_ptr<UdpTransport> open(const TransportConfig& config, Warning warning,
                                              std::string& error);
    ~UdpTransport() override;

    uint32_t participant_index() const;
    /// The addresses and ports to announce at present.
    OwnLocators own_locators() const;
    const TransportConfig& config() const;
    /// Interfaces in use at present, by name; for logs.
    std::string describe() const;
    TransportStatistics statistics() const;

    /// Unicast goes out once, as the routes say. Multicast goes out once per usable interface other than
    /// loopback, or over loopback where there is no other; to a host locator (see address.h) over loopback
    /// where there is another. Destinations behind interfaces that are not to be used are refused.
    void send(ByteView message, const Locator& destination) override;
    int preference(const Locator& locator, const Locator& announced_from) const override;
    bool stays_on_host(const Locator& destination) const override;

    /// What a socket is for. Each kind has a batch of its own.
    enum class Traffic { discovery, data };

    /// The descriptors to wait on for reading: those of discovery first, the rest for data. Constant over the
    /// object's life, may be read by any thread.
    const std::vector<int>& descriptors() const;
    size_t discovery_descriptor_count() const;
    /// Fetches up to one batch of datagrams from the descriptor of that position in descriptors(), without
    /// waiting. True when there is something for dispatch(). Separate from dispatch() so that the caller
    /// holds its lock during dispatch() only: one thread calls fetch() and dispatch(), and fetch() may run
    /// beside every other call.
    bool fetch(size_t position);
    /// Hands over what the last fetch() from a socket of that kind brought. The views are valid during the
    /// call.
    void dispatch(Traffic traffic, const Received& received);

    /// Readable when interfaces may have changed; -1 where the system does not tell.
    int change_descriptor() const;
    /// Looks at the interfaces again and joins on new ones. True when own_locators() or the usable interfaces
    /// are others than before.
    bool update_interfaces();

  private:
    class Implementation;
    explicit UdpTransport(std::unique_ptr<Implementation> implementation);
    std::unique_ptr<Implementation> implementation_;
};

} // namespace meridian::rtps::net
