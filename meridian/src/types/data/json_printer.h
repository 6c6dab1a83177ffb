#pragma once

// Contents as JSON: see docs/contents.md.

#include <string>
#include <vector>

#include "types/model/value_sink.h"

namespace meridian::types {

struct JsonStyle {
    bool pretty = false; // several lines, indented by three blanks
    bool numeric_enumerators = false;
};

/// Tells the sample's values to a ValueSink through `walk` and appends the JSON text to `out`. False, with
/// `out` as it was, when the walk failed.
class JsonWalk {
  public:
    virtual ~JsonWalk() = default;
    virtual bool operator()(ValueSink& sink) const = 0;
};
bool print_json(const JsonWalk& walk, const JsonStyle& style, std::string& out);

} // namespace meridian::types
