#pragma once

#include <string>

#include "rtps/wire/discovery_data.h"

namespace meridian::rtps {

enum class GoneReason {
    disposed,      // it said so
    lease_expired, // it was silent for longer than its lease
    ignored,       // ignore_participant was called for it
    replaced,      // the same prefix came back as another participant (other endpoints, other process)
    stopped,       // this side stopped
};

/// News of remote participants and endpoints, told during the call that caused it. An implementation must not
/// call back into the participant, and the references are valid during the call only. Nothing about own
/// participants is ever told. Order: participant_discovered, then its endpoints; all its endpoints are gone
/// before participant_gone. An endpoint that matches a local one is told here first, then to the sink of that
/// one (see sinks.h).
class Events {
  public:
    virtual ~Events() = default;

    virtual void participant_discovered(const ParticipantData&) {}
    /// An announcement with another content than before.
    virtual void participant_changed(const ParticipantData&) {}
    virtual void participant_gone(const ParticipantData&, GoneReason) {}

    /// Asked, not told: whether local endpoints may match those of this participant, which was told of
    /// before. One that is not admitted hears nothing of the endpoints here, while its own are told of all
    /// the same. The answer may change with a change of the participant, and with what set_announcement
    /// announces of this one; what was announced to it before is not taken back then.
    virtual bool admits(const GuidPrefix&) const { return true; }

    /// source_timestamp: INFO_TS of the announcement, kTimeInvalid where none was sent.
    virtual void endpoint_discovered(const EndpointData&, WireTime /*source_timestamp*/) {}
    virtual void endpoint_changed(const EndpointData&, WireTime /*source_timestamp*/) {}
    /// source_timestamp: of the dispose; kTimeInvalid when the endpoint went with its participant.
    virtual void endpoint_gone(const EndpointData&, GoneReason, WireTime /*source_timestamp*/) {}

    /// Something an operator should know; each cause is told once, so this never floods.
    virtual void warning(const std::string& /*text*/) {}
};

} // namespace meridian::rtps
