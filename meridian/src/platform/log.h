#pragma once

// Logging from inside the middleware. What is off costs one relaxed load and a compare: the arguments are not
// evaluated. What is on becomes one line on standard error, written at once; control characters in the text,
// which may come from the network, are written as escapes. Any thread, except from a signal handler.

#include <atomic>

#include "meridian/logger.h"

namespace meridian::log {

/// Bits of the verbosity mask.
enum class Level : DDS_Long {
    fatal = QUIX_LOG_FATAL,     // the program cannot go on
    error = QUIX_LOG_ERROR,     // an operation failed, or something the user asked for is not done
    warning = QUIX_LOG_WARNING, // done, but not as expected
    local = QUIX_LOG_LOCAL,     // what this side does
    remote = QUIX_LOG_REMOTE,   // what other participants do
    all = QUIX_LOG_ALL,         // details, for instance per message
};

constexpr DDS_Long kInitialVerbosity = QUIX_LOG_FATAL | QUIX_LOG_ERROR;

/// The mask of the one logger; set through QUIXConfigLogger only.
extern std::atomic<DDS_Long> verbosity_mask;

inline bool is_enabled(Level level) {
    return (verbosity_mask.load(std::memory_order_relaxed) & static_cast<DDS_Long>(level)) != 0;
}

/// Writes whatever the mask says. `module` is the folder's name ("qos", "net", ...), `method` the operation;
/// both may be null.
void write(Level level, const char* module, const char* method, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

} // namespace meridian::log

/// MERIDIAN_LOG(error, "qos", "format", arguments...)
#define MERIDIAN_LOG(level, module, ...)                                                          \
    do {                                                                                          \
        if (::meridian::log::is_enabled(::meridian::log::Level::level))                           \
            ::meridian::log::write(::meridian::log::Level::level, module, __func__, __VA_ARGS__); \
    } while (false)
#define MERIDIAN_LOG_FATAL(module, ...) MERIDIAN_LOG(fatal, module, __VA_ARGS__)
#define MERIDIAN_LOG_ERROR(module, ...) MERIDIAN_LOG(error, module, __VA_ARGS__)
#define MERIDIAN_LOG_WARNING(module, ...) MERIDIAN_LOG(warning, module, __VA_ARGS__)
#define MERIDIAN_LOG_LOCAL(module, ...) MERIDIAN_LOG(local, module, __VA_ARGS__)
#define MERIDIAN_LOG_REMOTE(module, ...) MERIDIAN_LOG(remote, module, __VA_ARGS__)
#define MERIDIAN_LOG_ALL(module, ...) MERIDIAN_LOG(all, module, __VA_ARGS__)
