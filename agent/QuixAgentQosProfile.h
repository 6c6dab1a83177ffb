#pragma once

// The QoS profile that the tools use unless told otherwise.

#include "meridian/base.h"

constexpr const char* QUIX_AGENT_QOS_LIBRARY = "InternalSpyLibrary";
constexpr const char* QUIX_AGENT_QOS_PROFILE = "InternalSpyProfile";
/// A profile of these names in a loaded file takes the place of the built-in one.
constexpr const char* QUIX_AGENT_USER_QOS_LIBRARY = "DefaultSpyLibrary";
constexpr const char* QUIX_AGENT_USER_QOS_PROFILE = "DefaultSpyProfile";

constexpr DDS_Long QUIX_AGENT_QOS_FRAGMENT_COUNT = 85;
/// The document of the built-in profile, in pieces that are joined as they stand.
extern const char* const QUIX_AGENT_QOS_FRAGMENTS[QUIX_AGENT_QOS_FRAGMENT_COUNT];
