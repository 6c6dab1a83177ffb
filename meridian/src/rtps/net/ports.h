#pragma once

// The UDP ports and multicast groups that participants of one domain agree on (OMG DDSI-RTPS 2.5, 9.6.2).
// Pure arithmetic; any thread.

#include <cstdint>
#include <optional>

namespace meridian::rtps::net {

constexpr uint32_t kPortBase = 7400;
constexpr uint32_t kDomainGain = 250;
constexpr uint32_t kParticipantGain = 2;
constexpr uint32_t kMetatrafficMulticastOffset = 0;
constexpr uint32_t kMetatrafficUnicastOffset = 10;
constexpr uint32_t kUserMulticastOffset = 1;
constexpr uint32_t kUserUnicastOffset = 11;

/// The highest domain whose ports exist for at least the first participants of a host.
constexpr uint32_t kMaxDomainId = 232;
/// Beyond it the ports of one domain would run into those of the next.
constexpr uint32_t kMaxParticipantIndex = 119;

/// A port for metatraffic and one for user data: unicast ones are of one participant of a host, multicast
/// ones of all participants of a domain.
struct PortPair {
    uint16_t metatraffic = 0;
    uint16_t user = 0;
};

/// nullopt: a domain above kMaxDomainId.
constexpr std::optional<PortPair> multicast_ports(uint32_t domain_id) {
    if (domain_id > kMaxDomainId)
        return std::nullopt;
    const uint32_t base = kPortBase + kDomainGain * domain_id;
    return PortPair{static_cast<uint16_t>(base + kMetatrafficMulticastOffset),
                    static_cast<uint16_t>(base + kUserMulticastOffset)};
}

/// nullopt: a domain or index out of range, or (in the highest domain) ports above 65535.
constexpr std::optional<PortPair> unicast_ports(uint32_t domain_id, uint32_t participant_index) {
    if (domain_id > kMaxDomainId || participant_index > kMaxParticipantIndex)
        return std::nullopt;
    const uint32_t base = kPortBase + kDomainGain * domain_id + kParticipantGain * participant_index;
    if (base + kUserUnicastOffset > 65535)
        return std::nullopt;
    return PortPair{static_cast<uint16_t>(base + kMetatrafficUnicastOffset),
                    static_cast<uint16_t>(base + kUserUnicastOffset)};
}

} // namespace meridian::rtps::net
