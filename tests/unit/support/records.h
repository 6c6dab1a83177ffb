#pragma once

#include <memory>
#include <utility>

#include "rtps/protocol/remote_endpoint.h"

namespace meridian::rtps {

/// The record that the protocol layer makes of an announcement.
inline std::shared_ptr<RemoteEndpoint> record_of(EndpointData data) {
    return RecordMaker().make(std::move(data), kTimeInvalid);
}

} // namespace meridian::rtps
