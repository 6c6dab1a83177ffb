#pragma once

#include <string>

namespace meridian::types {

/// Memory of a printer, for the next one to use again.
struct PrintBuffers {
    std::string text;  // what was printed
    std::string value; // one value of it, before it is escaped
};

} // namespace meridian::types
