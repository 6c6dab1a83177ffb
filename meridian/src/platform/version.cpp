#include "meridian/version.h"

#include "version_numbers.h"

const QUIXConfigVersion& QUIXConfigVersion::get_instance() {
    static const QUIXConfigVersion instance;
    return instance;
}

QUIXConfigProductVersion QUIXConfigVersion::get_product_version() const {
    return {meridian::kVersionMajor, meridian::kVersionMinor, meridian::kVersionRelease,
            meridian::kVersionRevision};
}

const char* QUIXConfigVersion::to_string() const {
    return meridian::kVersionText;
}
