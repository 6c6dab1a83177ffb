#pragma once

#include <optional>

#include "rtps/wire/discovery_data.h"
#include "types/model/type.h"

namespace meridian::types {

/// Where the types of publications come from. Called under the lock of the participant's runtime.
class PublicationTypes {
  public:
    virtual ~PublicationTypes() = default;
    /// The type of a publication that was announced, empty when there is none; or nothing when it will be
    /// told later, even if the publication or its participant goes meanwhile. `answers`: its participant
    /// offers the type lookup service.
    virtual std::optional<TypeRef> type_of(const rtps::EndpointData& publication, bool answers) = 0;
    /// The participant answers no longer.
    virtual void participant_gone(const rtps::GuidPrefix& participant) = 0;
};

} // namespace meridian::types
