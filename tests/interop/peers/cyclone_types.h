// The types of the Cyclone DDS peer: how a sample of each is built, and what it says.
#pragma once

#include <dds/dds.h>

#include <functional>
#include <string>

#include "command_loop.h"

namespace peers {

// Gets a sample of the generated type; it exists for the time of the call.
using Action = std::function<dds_return_t(const void*)>;

struct CycloneType {
    const char* name; // in the commands
    const dds_topic_descriptor_t* descriptor;
    dds_return_t (*build)(const Sample&, const Action&);
    // The values of a sample of the generated type as JSON, members in the order of their declaration.
    std::string (*describe)(const void*);
};

// Null when there is none of that name.
const CycloneType* cyclone_type(const std::string& name);

} // namespace peers
