#pragma once

#include <cstdint>
#include <cstdio>

#include "meridian/time.h"

/// How sample contents are printed.
enum PrintSample { PRINT_SAMPLE_NONE = 0, PRINT_SAMPLE_PLAIN = 1, PRINT_SAMPLE_COMPACT = 2 };

/// Keeps the text of other threads out of standard output while it lives. May be nested.
class QuixSpyOutputLock {
  public:
    QuixSpyOutputLock() { flockfile(stdout); }
    ~QuixSpyOutputLock() { funlockfile(stdout); }
    QuixSpyOutputLock(const QuixSpyOutputLock&) = delete;
    QuixSpyOutputLock& operator=(const QuixSpyOutputLock&) = delete;
};

/// Writes the UTC time of day, "HH:MM:SS", or "xx:xx:xx" for a time that is none, into `text`, which holds
/// QUIX_TIME_OF_DAY_BUFFER_SIZE characters.
void QUIXSpy_formatTimestamp(const DDS_Time_t& time, char* text);
/// Prints the same. No blank, no line end.
void QUIXSpy_printTimestamp(const DDS_Time_t& time);

/// 1 when `name` as a whole matches one of the shell patterns, or when there are none; else 0. A negative
/// count matches nothing.
int QUIXSpy_matchesPattern(const char* name, const char* const* patterns, int32_t count);
