#pragma once

#include "rtps/protocol/remote_endpoint.h"
#include "rtps/wire/discovery_data.h"

namespace meridian::rtps {

/// Finds the types of publications. Asked during calls of the participant, and must not call back into it.
class TypeSettler {
  public:
    virtual ~TypeSettler() = default;

    struct Answer {
        TypeState state = TypeState::none;
        EndpointTypeRef type; // where it is known
    };
    /// Asked once for each announcement of a publication whose participant is known. Waiting: the answer
    /// comes later by Participant::settle_type, within a time that the settler bounds; until then nothing is
    /// told of the announcement.
    virtual Answer type_of(const RemoteEndpoint& publication, const ParticipantData& participant) = 0;
    /// The participant answers no longer, and its publications wait no longer.
    virtual void participant_gone(const GuidPrefix& participant) = 0;
};

} // namespace meridian::rtps
