#pragma once

#include "meridian/base.h"

struct QUIXConfigProductVersion {
    DDS_Octet major;
    DDS_Octet minor;
    DDS_Octet release;
    DDS_Octet revision;
};

/// The version of this library.
class QUIXConfigVersion {
  public:
    static const QUIXConfigVersion& get_instance();
    QUIXConfigProductVersion get_product_version() const;
    /// The full version text; lives as long as the process.
    const char* to_string() const;
};
