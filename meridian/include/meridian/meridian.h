#pragma once

// All of the public API.

#include "meridian/builtin_topics.h"
#include "meridian/condition.h"
#include "meridian/domain_participant.h"
#include "meridian/domain_participant_factory.h"
#include "meridian/dynamic_data.h"
#include "meridian/heap.h"
#include "meridian/logger.h"
#include "meridian/property.h"
#include "meridian/qos.h"
#include "meridian/semaphore.h"
#include "meridian/string.h"
#include "meridian/transport.h"
#include "meridian/type_code.h"
#include "meridian/version.h"
#include "meridian/wildcard.h"
