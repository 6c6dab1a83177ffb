#pragma once

#include "meridian/base.h"
#include "meridian/sequence.h"

/// Where an endpoint receives. IPv4 addresses stand in the last four bytes. Kinds above 2 are those of other
/// makers' transports; they are passed through as announced.
constexpr DDS_Long DDS_LOCATOR_KIND_INVALID = -1;
constexpr DDS_Long DDS_LOCATOR_KIND_RESERVED = 0;
constexpr DDS_Long DDS_LOCATOR_KIND_UDPv4 = 1;
constexpr DDS_Long DDS_LOCATOR_KIND_UDPv6 = 2;
constexpr DDS_Long DDS_LOCATOR_KIND_TCPV4_LAN = 8;
constexpr DDS_Long DDS_LOCATOR_KIND_TCPV4_WAN = 9;
constexpr DDS_Long DDS_LOCATOR_KIND_TLSV4_LAN = 10;
constexpr DDS_Long DDS_LOCATOR_KIND_TLSV4_WAN = 11;
constexpr DDS_Long DDS_LOCATOR_KIND_UDPv4_WAN = 0x01000001;

struct DDS_Locator_t {
    DDS_Long kind = DDS_LOCATOR_KIND_INVALID;
    DDS_UnsignedLong port = 0;
    DDS_Octet address[16] = {};
};
using DDS_LocatorSeq = DDS_Sequence<DDS_Locator_t>;
