#pragma once

#include <memory>

#include "qos/profile_store.h"

namespace meridian::dcps {

/// The holder of the loaded QoS profiles. Any thread.
class ProfileSource {
  public:
    /// As they are loaded now; never null. Loading others leaves it as it is.
    virtual std::shared_ptr<const qos::ProfileStore> profiles() = 0;

  protected:
    ~ProfileSource() = default;
};

} // namespace meridian::dcps
