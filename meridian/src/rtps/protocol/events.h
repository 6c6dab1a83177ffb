#pragma once

#include <memory>
#include <string>

#include "rtps/protocol/remote_endpoint.h"
#include "rtps/wire/discovery_data.h"

namespace meridian::rtps {

enum class GoneReason {
    disposed,      // it said so
    lease_expired, // it was silent for longer than its lease
    ignored,       // ignore_participant was called for it
    replaced,      // the same prefix came back as another participant (other endpoints, other process)
    forgotten,     // it was not heard again, and others needed its place
    stopped,       // this side stopped
};

/// The last announcement of a participant; does not change, any thread may read it.
using ParticipantRef = std::shared_ptr<const ParticipantData>;

/// News of remote participants and endpoints, told during the call that caused it. An implementation must not
/// call back into the participant; it may keep the records, which are never null. Nothing about own
/// participants is ever told. Order: participant_discovered, then its endpoints; all its endpoints are gone
/// before participant_gone. An endpoint that matches a local one is told here first, then to the sink of that
/// one (see sinks.h).
class Events {
  public:
    virtual ~Events() = default;

    virtual void participant_discovered(const ParticipantRef&) {}
    /// An announcement with another content than before.
    virtual void participant_changed(const ParticipantRef&) {}
    virtual void participant_gone(const ParticipantRef&, GoneReason) {}

    /// Asked, not told: whether local endpoints may match those of this participant, which was told of
    /// before. One that is not admitted hears nothing of the endpoints here, while its own are told of all
    /// the same. The answer may change with a change of the participant, and with what set_announcement
    /// announces of this one; what was announced to it before is not taken back then.
    virtual bool admits(const GuidPrefix&) const { return true; }

    /// Its type is settled.
    virtual void endpoint_discovered(const RemoteEndpointRef&) {}
    virtual void endpoint_changed(const RemoteEndpointRef&) {}
    /// source_timestamp: of the dispose; kTimeInvalid when the endpoint went with its participant.
    virtual void endpoint_gone(const RemoteEndpointRef&, GoneReason, WireTime /*source_timestamp*/) {}

    /// Something an operator should know; each cause is told once, so this never floods.
    virtual void warning(const std::string& /*text*/) {}
    /// Likewise, of what an operator must know: something is not seen.
    virtual void error(const std::string& /*text*/) {}
};

} // namespace meridian::rtps
