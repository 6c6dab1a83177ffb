#include "rtps/net/udp_transport.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/clock.h"
#include "rtps/net/ports.h"

namespace meridian::rtps::net {

namespace {

constexpr size_t kBatchCapacity = 32;
/// Guards against a peer that announces ever new addresses.
constexpr size_t kMostWarnings = 200;
constexpr size_t kMostScopes = 1000;
/// An interface may go down and up all the time.
constexpr Duration kTellAgain = std::chrono::minutes(1);

// How good a way to a peer is. Even numbers: one more is for IPv4, which wins where both families would do.
constexpr int kUnreachable = 0;
constexpr int kMaybeThisHost = 10;
constexpr int kNeedsScope = 20;
constexpr int kRouted = 40;
constexpr int kSameNetwork = 60;
constexpr int kOwnAddress = 70;
constexpr int kLoopback = 80;

/// Whether peers on this host are to be told the loopback address beside these. Not beside link-local IPv6
/// addresses: there are peers that prefer ::1 to them although they cannot send there.
bool loopback_is_an_addition(const std::vector<IpAddress>& addresses) {
    return std::none_of(addresses.begin(), addresses.end(), [](const IpAddress& address) {
        return address.is_loopback() || (address.family == Family::v6 && address.is_link_local());
    });
}

template <typename Predicate>
bool any_address(const std::vector<Interface>& interfaces, Predicate predicate) {
    return std::any_of(interfaces.begin(), interfaces.end(), [&](const Interface& interface) {
        return std::any_of(interface.addresses.begin(), interface.addresses.end(), predicate);
    });
}

size_t receive_buffer_size(const TransportConfig& config) {
    if (config.receive_buffer_size == 0)
        return kLargestReceiveBuffer;
    return static_cast<size_t>(
        std::clamp(config.receive_buffer_size, kSmallestDatagram, kLargestReceiveBuffer));
}

} // namespace

UdpTransport::UdpTransport(const TransportConfig& config, Messages messages)
    : config_(config),
      messages_(std::move(messages)),
      drops_(receive_buffer_size(config), messages_),
      discovery_batch_(kBatchCapacity, receive_buffer_size(config)),
      data_batch_(kBatchCapacity, receive_buffer_size(config)) {}

std::unique_ptr<UdpTransport> UdpTransport::open(const TransportConfig& config, Messages messages,
                                                 std::string& error) {
    if (!check(config, error))
        return nullptr;
    std::unique_ptr<UdpTransport> transport(new UdpTransport(config, std::move(messages)));
    return transport->open(error) ? std::move(transport) : nullptr;
}

bool UdpTransport::open(std::string& error) {
    if (config_.uses_v4())
        families_.emplace_back(Family::v4, config_);
    if (config_.uses_v6())
        families_.emplace_back(Family::v6, config_);

    const auto multicast = multicast_ports(config_.domain_id);
    if (!drop_missing_families(error) || !open_index(error))
        return false;
    for (FamilySockets& sockets : families_) {
        if (!sockets.open_multicast(*multicast, error))
            return false;
        sockets.configure([this](const std::string& text) { tell_once(text); });
    }
    for (const FamilySockets& sockets : families_) {
        descriptors_.push_back(sockets.metatraffic_unicast());
        descriptors_.push_back(sockets.metatraffic_multicast());
    }
    discovery_descriptors_ = descriptors_.size();
    for (const FamilySockets& sockets : families_) {
        descriptors_.push_back(sockets.user_unicast());
        descriptors_.push_back(sockets.user_multicast());
    }
    std::string monitor_error;
    if (!monitor_.open(monitor_error))
        tell_once(monitor_error);
    update_interfaces(); // after the monitor, so that no change falls in between
    return true;
}

bool UdpTransport::drop_missing_families(std::string& error) {
    for (auto it = families_.begin(); it != families_.end();) {
        // Any free port tells whether the family is there.
        if (it->open_unicast(PortPair{}, error) != OpenResult::unavailable) {
            it->close_unicast();
            ++it;
            continue;
        }
        if (families_.size() > 1)
            tell_once("an address family is not available and left out: " + error);
        it = families_.erase(it);
    }
    return !families_.empty();
}

bool UdpTransport::open_index(std::string& error) {
    if (config_.participant_index >= 0) {
        participant_index_ = static_cast<uint32_t>(config_.participant_index);
        const OpenResult result = open_unicast_pair(participant_index_, error);
        if (result == OpenResult::in_use) {
            error = "participant index " + std::to_string(participant_index_) + " of domain " +
                    std::to_string(config_.domain_id) + " is in use on this host (" + error + ")";
        }
        return result == OpenResult::ok;
    }
    for (uint32_t index = 0; unicast_ports(config_.domain_id, index); ++index) {
        const OpenResult result = open_unicast_pair(index, error);
        if (result == OpenResult::in_use)
            continue;
        participant_index_ = index;
        return result == OpenResult::ok;
    }
    error =
        "all participant indexes of domain " + std::to_string(config_.domain_id) + " are in use on this host";
    return false;
}

OpenResult UdpTransport::open_unicast_pair(uint32_t index, std::string& error) {
    const auto ports = unicast_ports(config_.domain_id, index);
    for (FamilySockets& sockets : families_) {
        const OpenResult result = sockets.open_unicast(*ports, error);
        if (result != OpenResult::ok) {
            for (FamilySockets& opened : families_)
                opened.close_unicast();
            return result;
        }
    }
    return OpenResult::ok;
}

const FamilySockets* UdpTransport::sockets_of(Family family) const {
    const auto it = std::find_if(families_.begin(), families_.end(), [family](const FamilySockets& sockets) {
        return sockets.family() == family;
    });
    return it != families_.end() ? &*it : nullptr;
}

OwnLocators UdpTransport::own_locators() const {
    OwnLocators own;
    const auto multicast = multicast_ports(config_.domain_id);
    for (const FamilySockets& sockets : families_) {
        const uint16_t metatraffic_port = sockets.metatraffic_unicast_port();
        const uint16_t user_port = sockets.user_unicast_port();
        const std::vector<IpAddress> addresses = announced_addresses(sockets.usable(), sockets.family());
        for (const IpAddress& address : addresses) {
            own.metatraffic_unicast.push_back(to_locator(address, metatraffic_port));
            own.default_unicast.push_back(to_locator(address, user_port));
        }
        if (sockets.uses_loopback() && loopback_is_an_addition(addresses)) {
            const IpAddress loopback = loopback_address(sockets.family());
            own.host_metatraffic_unicast.push_back(to_locator(loopback, metatraffic_port));
            own.host_default_unicast.push_back(to_locator(loopback, user_port));
        }
        if (sockets.has_multicast()) {
            // One group only: a sender that uses all announced locators would send twice.
            own.metatraffic_multicast.push_back(to_locator(sockets.groups().front(), multicast->metatraffic));
            own.default_multicast.push_back(to_locator(sockets.groups().front(), multicast->user));
        }
    }
    return own;
}

std::string UdpTransport::describe() const {
    std::string text;
    for (const FamilySockets& sockets : families_) {
        for (const Interface& interface : sockets.usable()) {
            for (const InterfaceAddress& entry : interface.addresses)
                text += (text.empty() ? "" : ", ") + interface.name + " " + to_string(entry.address);
        }
    }
    return text.empty() ? "none" : text;
}

bool UdpTransport::is_own_address(const IpAddress& address) const {
    if (address.is_loopback())
        return true;
    return any_address(interfaces_,
                       [&address](const InterfaceAddress& entry) { return entry.address == address; });
}

bool UdpTransport::uses(const Locator& locator) const {
    return std::any_of(families_.begin(), families_.end(), [&](const FamilySockets& sockets) {
        return any_address(sockets.usable(), [&](const InterfaceAddress& entry) {
            return entry.address == address_of(locator);
        });
    });
}

UdpTransport::Neighbour UdpTransport::neighbour(const Locator& announced_from) const {
    const std::optional<IpAddress> source = address_of(announced_from);
    if (!source || source->is_unspecified()) // a host that had no address to send from
        return Neighbour::unknown;
    return is_own_address(*source) ? Neighbour::this_host : Neighbour::other_host;
}

int UdpTransport::rate(const FamilySockets& sockets, const IpAddress& address, Neighbour neighbour) const {
    if (is_own_address(address)) {
        // Another host may have the same address (bridges of container hosts often do), and every host has a
        // loopback address.
        if (neighbour == Neighbour::other_host || sockets.usable().empty())
            return kUnreachable;
        if (address.is_loopback() && !sockets.uses_loopback())
            return kUnreachable;
        if (neighbour == Neighbour::unknown)
            return kMaybeThisHost;
        return address.is_loopback() ? kLoopback : kOwnAddress;
    }
    if (!sockets.leaves_host())
        return kUnreachable;
    if (address.family == Family::v6 && address.is_link_local())
        return kNeedsScope;

    const auto in_network = [&address](const InterfaceAddress& entry) {
        // Without a prefix length (point-to-point links may have none) the network is not known.
        return entry.prefix_length > 0 && same_network(entry.address, address, entry.prefix_length);
    };
    if (any_address(sockets.usable(), in_network))
        return kSameNetwork;
    // The routes would take it through an interface that is not to be used.
    return any_address(interfaces_, in_network) ? kUnreachable : kRouted;
}

int UdpTransport::preference(const Locator& locator, const Locator& announced_from) const {
    const std::optional<IpAddress> address = address_of(locator);
    if (!address || address->is_unspecified() || locator.port == 0 || locator.port > 65535)
        return kUnreachable;
    const FamilySockets* sockets = sockets_of(address->family);
    if (sockets == nullptr)
        return kUnreachable;
    if (address->is_multicast())
        return sockets->has_multicast() ? kMaybeThisHost : kUnreachable;
    const int rating = rate(*sockets, *address, neighbour(announced_from));
    return rating > 0 && address->family == Family::v4 ? rating + 1 : rating;
}

bool UdpTransport::stays_on_host(const Locator& destination) const {
    if (plain_locator(destination))
        return true;
    const std::optional<IpAddress> address = address_of(destination);
    return address && is_own_address(*address);
}

void UdpTransport::send(ByteView message, const Locator& wanted) {
    const std::optional<Locator> on_host = plain_locator(wanted);
    const Locator& destination = on_host ? *on_host : wanted;
    const std::optional<IpAddress> address = address_of(destination);
    if (!address || address->is_unspecified() || destination.port == 0 || destination.port > 65535)
        return refuse("is no destination", destination);
    const FamilySockets* sockets = sockets_of(address->family);
    if (sockets == nullptr)
        return refuse("is of a transport that is not in use", destination);
    if (message.size > static_cast<size_t>(std::min(sockets->settings().message_size_max, kLargestDatagram)))
        return refuse("was to get a message larger than the transport's maximum", destination);
    const auto port = static_cast<uint16_t>(destination.port);
    if (address->is_multicast())
        send_multicast(*sockets, message, *address, port, on_host.has_value());
    else if (rate(*sockets, *address, Neighbour::unknown) > 0)
        send_unicast(*sockets, message, *address, port);
    else
        refuse("cannot be reached over the interfaces in use", destination);
}

void UdpTransport::send_multicast(const FamilySockets& sockets, ByteView message, const IpAddress& group,
                                  uint16_t port, bool on_host) {
    const bool over_loopback = on_host == sockets.leaves_host();
    if (on_host && !over_loopback)
        return; // the plain group goes over loopback
    for (const Interface& interface : sockets.usable()) {
        if (interface.loopback != over_loopback || (!interface.multicast && !interface.loopback))
            continue;
        const int error_number = sockets.send(message, group, port, &interface);
        // Loopback without a multicast route is how most hosts are; those peers are reached by unicast.
        if (interface.loopback && error_number == ENETUNREACH)
            ++statistics_.send_errors;
        else
            sent(error_number, group, port);
    }
}

void UdpTransport::send_unicast(const FamilySockets& sockets, ByteView message, const IpAddress& address,
                                uint16_t port) {
    const bool is_there = is_own_address(address) || heard_.contains(address, monotonic_now());
    const SendThrough through = is_there ? SendThrough::first : SendThrough::second;
    if (address.family == Family::v4 || !address.is_link_local()) {
        sent(sockets.send(message, address, port, nullptr, through), address, port);
        return;
    }
    const auto known = scopes_.find(address);
    const Interface* behind = known != scopes_.end() ? sockets.find_usable(known->second) : nullptr;
    if (behind != nullptr) {
        sent(sockets.send(message, address, port, behind, through), address, port);
        return;
    }
    // Not heard of yet, so any link may be its link: that it is not on most of them is no news.
    int error_number = ENETUNREACH;
    for (const Interface& interface : sockets.usable()) {
        if (!interface.loopback)
            error_number = std::min(error_number, sockets.send(message, address, port, &interface, through));
    }
    sent(error_number, address, port);
}

void UdpTransport::sent(int error_number, const IpAddress& destination, uint16_t port) {
    if (error_number == 0) {
        ++statistics_.datagrams_sent;
        return;
    }
    ++statistics_.send_errors;
    const std::string text =
        describe_error("cannot send to " + to_string(to_locator(destination, port)), error_number);
    // Seldom a passing state. The first address stands for all.
    const bool is_forbidden = error_number == EPERM || error_number == EACCES;
    tell_once(text + (is_forbidden ? ": a firewall or a route of this host may forbid it" : ""),
              is_forbidden && !std::exchange(told_forbidden_, true));
}

void UdpTransport::refuse(const std::string& reason, const Locator& destination) {
    ++statistics_.send_errors;
    tell_once(to_string(destination) + " " + reason);
}

void UdpTransport::tell_once(const std::string& text, bool is_error) {
    if (told_.size() < kMostWarnings && told_.insert(text).second)
        (is_error ? messages_.error : messages_.warning)(text);
}

bool UdpTransport::take(const ReceivedDatagram& datagram, const Locator& source) {
    ++statistics_.datagrams_received;
    if (datagram.truncated) {
        drops_.note(DropReport::Kind::truncated, source);
        return false;
    }
    const std::optional<IpAddress> address = address_of(source);
    if (address)
        heard_.note(*address);
    if (address && address->family == Family::v6 && address->is_link_local() &&
        (scopes_.size() < kMostScopes || scopes_.count(*address) != 0)) {
        scopes_[*address] = reinterpret_cast<const sockaddr_in6*>(datagram.source)->sin6_scope_id;
    }
    return true;
}

bool UdpTransport::update_interfaces() {
    monitor_.drain();
    std::string error;
    std::vector<Interface> present = enumerate_interfaces(error);
    if (!error.empty()) {
        messages_.error(error +
                        "; nothing is sent or received (is the limit of open files, ulimit -n, too low?)");
        return false;
    }
    interfaces_ = std::move(present);
    bool changed = false;
    for (FamilySockets& sockets : families_)
        changed |=
            sockets.set_interfaces(interfaces_, [this](const std::string& text) { tell_once(text, true); });
    tell_what_is_not_usable();
    return changed;
}

void UdpTransport::tell_what_is_not_usable() {
    std::string text;
    bool any = false;
    for (const FamilySockets& sockets : families_) {
        any = any || !sockets.usable().empty();
        if (sockets.allows_none())
            text = std::string("the list of allowed interfaces of ") + name_of(sockets.family()) +
                   " matches none that is up" +
                   (sockets.usable().empty() ? "" : "; only the loopback interface is used");
    }
    if (!any) {
        const bool both = families_.size() > 1;
        text = std::string("no network interface is usable for ") +
               (both ? "UDP" : name_of(families_.front().family())) +
               ": nothing is sent or received until one is up, has an address of that kind and passes the "
               "lists of allowed and denied interfaces";
    }
    const MonotonicTime now = monotonic_now();
    MonotonicTime& tell_at = tell_not_usable_at_[text];
    if (text == not_usable_ || (!text.empty() && tell_at > now))
        return;
    not_usable_ = text;
    if (!text.empty()) {
        messages_.error(text);
        tell_at = now + kTellAgain;
    }
}

bool UdpTransport::fetch(size_t position) {
    ReceiveBatch& batch = batch_of(position < discovery_descriptors_ ? Traffic::discovery : Traffic::data);
    return batch.receive(descriptors_.at(position)) > 0 || batch.error_number() != 0;
}

} // namespace meridian::rtps::net
