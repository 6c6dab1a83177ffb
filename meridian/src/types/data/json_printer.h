#pragma once

// Contents as JSON: see docs/contents.md.

#include <functional>

#include "types/data/print_buffers.h"
#include "types/data/value_sink.h"

namespace meridian::types {

struct JsonStyle {
    bool pretty = false; // several lines, indented by three blanks
    bool numeric_enumerators = false;
};

/// What tells the values of a sample to a sink; false when it failed.
using JsonWalk = std::function<bool(ValueSink& sink)>;
/// Appends the JSON text to that of `buffers`. False, with the text as it was or, when some of it went
/// elsewhere, without text, when the walk failed.
bool print_json(const JsonWalk& walk, const JsonStyle& style, PrintBuffers& buffers,
                const TextTarget& target = {});

} // namespace meridian::types
