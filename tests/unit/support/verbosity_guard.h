#pragma once

#include "agent/QuixAgent.h"

/// Sets the verbosity of the process for one test.
struct VerbosityGuard {
    explicit VerbosityGuard(int32_t level) : saved(theVerbosity) { theVerbosity = level; }
    ~VerbosityGuard() { theVerbosity = saved; }
    VerbosityGuard(const VerbosityGuard&) = delete;
    VerbosityGuard& operator=(const VerbosityGuard&) = delete;

    int32_t saved;
};
