#pragma once

#include "meridian/logger.h"

/// Sets the levels that are logged for one test, and leaves the logger in its first state.
class LoggerGuard {
  public:
    explicit LoggerGuard(DDS_Long mask) { QUIXConfigLogger::get_instance()->set_verbosity_by_mask(mask); }
    ~LoggerGuard() {
        QUIXConfigLogger::finalize_instance();
        QUIXConfigLogger::get_instance();
    }
    LoggerGuard(const LoggerGuard&) = delete;
    LoggerGuard& operator=(const LoggerGuard&) = delete;
};
