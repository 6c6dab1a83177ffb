#pragma once

#include <cstdint>
#include <string>

#include "meridian/time.h"

/// How sample contents are printed.
enum PrintSample { PRINT_SAMPLE_NONE = 0, PRINT_SAMPLE_PLAIN = 1, PRINT_SAMPLE_COMPACT = 2 };

/// Appends the UTC time of day, "HH:MM:SS", or "xx:xx:xx" for an invalid time, to a line.
void QUIXSpy_printTimestamp(std::string& line, const DDS_Time_t& time);

/// 1 when `name` as a whole matches one of the shell patterns, or when there are none; else 0. A negative
/// count matches nothing.
int QUIXSpy_matchesPattern(const char* name, const char* const* patterns, int32_t count);
