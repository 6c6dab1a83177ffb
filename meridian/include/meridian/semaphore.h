#pragma once

// Counting semaphore with a timed take.

#include "meridian/time.h"

/// Starts at zero. All operations may be called on any thread.
class QUIXSemaphore {
  public:
    /// Null when it cannot be made. The caller deletes it with destroy, when no thread uses it any more.
    static QUIXSemaphore* create();
    static void destroy(QUIXSemaphore* semaphore);

    /// Adds one; false at the largest count.
    virtual bool give() = 0;
    /// Waits until the count is above zero, at most `timeout` (may be infinite), and takes one. False on
    /// time-out.
    virtual bool take(const DDS_Duration_t& timeout) = 0;

  protected:
    virtual ~QUIXSemaphore() = default;
};
