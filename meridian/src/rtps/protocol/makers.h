#pragma once

// What products of other makers do otherwise than the standard says, as far as the protocol has to obey it.
// The table is in makers.cpp: it alone names makers and tells their releases apart. Mechanisms ask for a
// quirk. What their serializers do otherwise stands in types/data/dialect.cpp.

#include <cstdint>

#include "rtps/wire/discovery_data.h"

namespace meridian::rtps {

enum Quirk : uint8_t {
    kHearsOwnAddressesOnly = 1, // an endpoint with addresses does not hear what comes to its participant's
    kPreemptedByZero = 2,       // an ACKNACK is pre-emptive only with base 0, which others refuse
    kSendsFragmentsBehind = 4,  // the one behind each that is asked for; the first with the whole sample
    kNamesMissDefault = 8,      // no name of a partition, not even the empty one, matches the default one
    kCountsNanoseconds = 16,    // durations in QoS are seconds and nanoseconds
    kKnowsNoEmptyRange = 32, // says number 1 of a writer without samples; answers a heartbeat that names no
                             // number with a broken ACKNACK
};

struct Quirks {
    uint8_t flags = 0;
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
