#pragma once

// The logger of the middleware: one message per line on standard error. Process-wide; every operation may be
// called on any thread.

#include "meridian/base.h"

/// Bits of the verbosity mask.
enum QUIXLogVerbosity : DDS_Long {
    QUIX_LOG_SILENT = 0,
    QUIX_LOG_FATAL = 1,
    QUIX_LOG_ERROR = 2,
    QUIX_LOG_WARNING = 4,
    QUIX_LOG_LOCAL = 8,
    QUIX_LOG_REMOTE = 16,
    QUIX_LOG_ALL = 32,
};

class QUIXConfigLogger {
  public:
    /// Created on first use, also on the first one after finalize_instance: fatal and error messages are on.
    static QUIXConfigLogger* get_instance();
    /// Flushes. Messages after it are still written, with the mask and format set before, until the next
    /// get_instance.
    static DDS_ReturnCode_t finalize_instance();

    virtual void set_verbosity_by_mask(DDS_Long mask) = 0;
    virtual DDS_Long get_verbosity_mask() const = 0;
    /// Bits of the format choose what stands before the text, see docs/logging.md. Unknown bits are ignored.
    virtual void set_print_format(DDS_Long format) = 0;
    virtual DDS_Long get_print_format() const = 0;

  protected:
    virtual ~QUIXConfigLogger() = default;
};

/// Logs that `operation` was given a bad `parameter` (error level).
void QUIXLog_badParameter(const char* operation, const char* parameter);
/// Logs that `operation` failed to create `what` (error level).
void QUIXLog_creationFailure(const char* operation, const char* what);
/// Logs that `what` failed within `operation` (error level).
void QUIXLog_failure(const char* operation, const char* what);
/// Logs a message of the application, told to come from its part `part` (error level).
void QUIXLog_error(const char* part, const char* text);
/// Plain text of printing operations, to standard output.
void QUIXLog_print(const char* format, ...) __attribute__((format(printf, 1, 2)));
