#pragma once

#include <optional>

#include "rtps/wire/discovery_data.h"
#include "types/type.h"

namespace meridian::discovery {

/// Where the types of publications come from. Called under the lock of the participant's runtime.
class PublicationTypes {
  public:
    virtual ~PublicationTypes() = default;
    /// The type of a publication that was announced, empty when there is none; or nothing when it will be
    /// told later. `answers`: its participant offers the type lookup service.
    virtual std::optional<types::TypeRef> type_of(const rtps::EndpointData& publication, bool answers) = 0;
    /// Nothing more is to be told of this publication, or of all those of a participant.
    virtual void forget(const rtps::Guid& publication) = 0;
    virtual void participant_gone(const rtps::GuidPrefix& participant) = 0;
};

} // namespace meridian::discovery
