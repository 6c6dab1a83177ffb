#pragma once

// What two announcements of one participant say about each other.

#include "rtps/wire/discovery_data.h"

namespace meridian::rtps {

/// True when b cannot be the same process as a: another incarnation, process or vendor, or other sockets.
bool another_life(const ParticipantData& a, const ParticipantData& b);
/// Whether the two announce an address for discovery in common.
bool shares_an_address(const ParticipantData& a, const ParticipantData& b);
/// The counter that asserts manual liveliness is no content of an announcement.
bool same_content(const ParticipantData& a, const ParticipantData& b);

} // namespace meridian::rtps
