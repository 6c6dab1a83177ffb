#pragma once

// What products of other makers do otherwise than the standard says, as far as the protocol has to obey it.
// The table is in makers.cpp: it alone names makers and tells their releases apart. Mechanisms ask for a
// quirk. What their serializers do otherwise stands in types/data/dialect.cpp.

#include <cstdint>

#include "rtps/wire/discovery_data.h"

namespace meridian::rtps {

enum Quirk : uint16_t {
    // An endpoint with addresses does not hear what comes to its participant's.
    kHearsOwnAddressesOnly = 1,
    // An ACKNACK is pre-emptive only with base 0, which others refuse.
    kPreemptedByZero = 2,
    // The one behind each that is asked for; the first with the whole sample.
    kSendsFragmentsBehind = 4,
    // No name of a partition, not even the empty one, matches the default one.
    kNamesMissDefault = 8,
    // Durations in QoS are seconds and nanoseconds.
    kCountsNanoseconds = 16,
    // Says number 1 of a writer without samples; answers a heartbeat without numbers with a broken ACKNACK.
    kKnowsNoEmptyRange = 32,
    // Drops an announcement with any parameter that it does not know, or for no named reader.
    kRefusesNewParameters = 64,
    // The participant of a service may speak for those of its node, which have builtin endpoints no more.
    kServiceSpeaksForNode = 128,
    // In fragments.
    kMarksDataAsKeys = 256,
    // Is told only of readers for its writers, with their addresses.
    kHasLittleRoom = 512,
};

struct Quirks {
    uint16_t flags = 0;
    /// Generation of the maker's serializer, where it tells: 1 or 2 of Fast CDR, 1 of OpenDDS up to 3.13; 0:
    /// not known.
    uint8_t fast_cdr = 0;
    bool has(Quirk quirk) const { return (flags & quirk) != 0; }
};

/// Of a participant and its endpoints, as its announcement tells. Any thread.
Quirks quirks_of(const ParticipantData& data);

/// Discovery servers are of this maker, and pass over participants of others.
constexpr VendorId kMakerOfServers = kFastDds;

} // namespace meridian::rtps
