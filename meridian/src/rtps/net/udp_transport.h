#pragma once

// UDP sockets of one participant index, in one or both address families: unicast sockets of its own, and the
// multicast ports that it shares with all others of the domain, joined on every usable interface.

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "rtps/net/drop_report.h"
#include "rtps/net/family_sockets.h"
#include "rtps/net/heard_addresses.h"
#include "rtps/net/network_interfaces.h"
#include "rtps/net/receive_batch.h"
#include "rtps/net/transport_config.h"
#include "rtps/protocol/config.h"
#include "rtps/protocol/output.h"

namespace meridian::rtps::net {

struct TransportStatistics {
    uint64_t datagrams_received = 0; // all, also those that were dropped
    uint64_t datagrams_sent = 0;     // multicast counts once per interface
    uint64_t send_errors = 0;        // includes oversized and unroutable ones
};

/// Not thread-safe, except where stated. Nothing that happens to a datagram or an interface is fatal: it is
/// counted, and told once per cause through the warning function.
class UdpTransport final : public Output {
  public:
    /// Opens the sockets. nullptr with a text in error where it is not possible: an index in use, no free
    /// index, a configuration that check() refuses. A family that the host does not have is left out with a
    /// warning where another one remains.
    static std::unique_ptr<UdpTransport> open(const TransportConfig& config, Messages messages,
                                              std::string& error);
    UdpTransport(const UdpTransport&) = delete;
    UdpTransport& operator=(const UdpTransport&) = delete;

    uint32_t participant_index() const { return participant_index_; }
    /// The addresses and ports to announce at present.
    OwnLocators own_locators() const;
    /// Whether this host has the address on an interface in use, announced or not.
    bool uses(const Locator& address) const;
    /// Interfaces in use at present, by name; for logs.
    std::string describe() const;
    const TransportStatistics& statistics() const { return statistics_; }
    /// Truncated datagrams and receive errors are noted here already.
    DropReport& drops() { return drops_; }

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
    const std::vector<int>& descriptors() const { return descriptors_; }
    size_t discovery_descriptor_count() const { return discovery_descriptors_; }
    /// Fetches up to one batch of datagrams from the descriptor of that position in descriptors(), without
    /// waiting. True when there is something for dispatch(). Separate from dispatch() so that the caller
    /// holds its lock during dispatch() only: one thread calls fetch() and dispatch(), and fetch() may run
    /// beside every other call.
    bool fetch(size_t position);
    /// Hands over what the last fetch() from a socket of that kind brought, one after the other, as
    /// received(ByteView datagram, const Locator& source). The views are valid during the call.
    template <typename Received>
    void dispatch(Traffic traffic, Received&& received) {
        const ReceiveBatch& batch = batch_of(traffic);
        if (batch.error_number() != 0)
            drops_.note_receive_error(batch.error_number());
        for (size_t i = 0; i < batch.size(); ++i) {
            const ReceivedDatagram datagram = batch[i];
            const Locator source = to_locator(datagram.source);
            if (take(datagram, source))
                received(datagram.bytes, source);
        }
    }

    /// Readable when interfaces may have changed; -1 where the system does not tell.
    int change_descriptor() const { return monitor_.descriptor(); }
    /// Looks at the interfaces again and joins on new ones. True when own_locators() or the usable interfaces
    /// are others than before.
    bool update_interfaces();

  private:
    /// Whether a peer lives on this host, as far as the source of its announcements tells.
    enum class Neighbour { unknown, this_host, other_host };

    UdpTransport(const TransportConfig& config, Messages messages);
    bool open(std::string& error);
    bool open_index(std::string& error);
    OpenResult open_unicast_pair(uint32_t index, std::string& error);
    bool drop_missing_families(std::string& error);
    const FamilySockets* sockets_of(Family family) const;
    bool is_own_address(const IpAddress& address) const;
    Neighbour neighbour(const Locator& announced_from) const;
    int rate(const FamilySockets& sockets, const IpAddress& address, Neighbour neighbour) const;
    void send_multicast(const FamilySockets& sockets, ByteView message, const IpAddress& group, uint16_t port,
                        bool on_host);
    void send_unicast(const FamilySockets& sockets, ByteView message, const IpAddress& address,
                      uint16_t port);
    void sent(int error_number, const IpAddress& destination, uint16_t port);
    void refuse(const std::string& reason, const Locator& destination);
    ReceiveBatch& batch_of(Traffic traffic) {
        return traffic == Traffic::data ? data_batch_ : discovery_batch_;
    }
    /// Counts a datagram and learns from its source. False when it is to be dropped.
    bool take(const ReceivedDatagram& datagram, const Locator& source);
    void tell_once(const std::string& text, bool is_error = false);
    void tell_what_is_not_usable();

    const TransportConfig config_;
    const Messages messages_;
    uint32_t participant_index_ = 0;
    std::vector<FamilySockets> families_;
    std::vector<int> descriptors_;
    size_t discovery_descriptors_ = 0;
    InterfaceMonitor monitor_;
    std::vector<Interface> interfaces_; // all, used or not
    /// The interface behind which a link-local IPv6 address was seen: locators cannot say it.
    std::map<IpAddress, unsigned> scopes_;
    HeardAddresses heard_;
    TransportStatistics statistics_;
    DropReport drops_;
    ReceiveBatch discovery_batch_;
    ReceiveBatch data_batch_;
    std::set<std::string> told_;
    bool told_forbidden_ = false;
    std::string not_usable_; // why, at present
    std::map<std::string, MonotonicTime> tell_not_usable_at_;
};

} // namespace meridian::rtps::net
