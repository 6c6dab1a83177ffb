#pragma once

// How a log message becomes a line; apart from the logger so that it can be tested without clocks and
// threads.

#include <chrono>
#include <string>

#include "platform/log.h"

namespace meridian::log {

// Bits of the print format, see docs/logging.md.
constexpr DDS_Long kFormatDate = 0x0001;
constexpr DDS_Long kFormatLevel = 0x0002;
constexpr DDS_Long kFormatProcess = 0x0004;
constexpr DDS_Long kFormatMonotonic = 0x0008;
constexpr DDS_Long kFormatModule = 0x0010;
constexpr DDS_Long kFormatTime = 0x0400;
constexpr DDS_Long kFormatMethod = 0x1000;
constexpr DDS_Long kFormatThread = 0x2000;
constexpr DDS_Long kInitialFormat =
    kFormatLevel | kFormatModule | kFormatTime | kFormatMethod | kFormatThread;

struct Message {
    Level level = Level::error;
    std::chrono::nanoseconds wall{0};
    std::chrono::nanoseconds monotonic{0};
    long process = 0;
    long thread = 0;
    const char* module = nullptr; // null: not in the line
    const char* method = nullptr; // null: not in the line
    std::string text;
};

/// The line with its line end, and no other control character.
std::string to_line(const Message& message, DDS_Long format);

} // namespace meridian::log
