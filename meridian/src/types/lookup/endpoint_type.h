#pragma once

#include <memory>
#include <utility>

#include "meridian/builtin_topics.h"
#include "rtps/protocol/remote_endpoint.h"
#include "types/model/type.h"

namespace meridian::types {

using NoType = DDS_TypeCodeAbsence;

} // namespace meridian::types

namespace meridian::rtps {

/// What the records of publications carry as their type; one object for all publications of a type.
class EndpointType {
  public:
    explicit EndpointType(types::TypeRef type) : type_(std::move(type)) {}
    explicit EndpointType(types::NoType why) : why_(why) {}
    static EndpointTypeRef none(types::NoType why) { return std::make_shared<EndpointType>(why); }

    /// Null where there is none.
    const types::Type* get() const { return type_.get(); }
    types::NoType why_none() const { return why_; }

  private:
    types::TypeRef type_;
    types::NoType why_ = DDS_TYPE_CODE_NOT_ANNOUNCED;
};

/// Null where the endpoint has no type.
inline const types::Type* type_of(const RemoteEndpoint& endpoint) {
    return endpoint.type != nullptr ? endpoint.type->get() : nullptr;
}

} // namespace meridian::rtps
