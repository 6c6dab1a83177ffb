#pragma once

#include <utility>

#include "rtps/protocol/remote_endpoint.h"
#include "types/model/type.h"

namespace meridian::rtps {

/// What the records of publications carry as their type; one object for all publications of a type.
class EndpointType {
  public:
    explicit EndpointType(types::TypeRef type) : type_(std::move(type)) {}
    /// Not null.
    const types::Type* get() const { return type_.get(); }

  private:
    types::TypeRef type_;
};

/// Null where the endpoint has no type.
inline const types::Type* type_of(const RemoteEndpoint& endpoint) {
    return endpoint.type != nullptr ? endpoint.type->get() : nullptr;
}

} // namespace meridian::rtps
