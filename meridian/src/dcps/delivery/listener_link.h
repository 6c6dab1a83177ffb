#pragma once

// The tie between a listener and the readers that call it. It outlives either side: a listener that is
// deleted cuts it and waits for calls in progress; a reader that finds it cut makes no call.

#include <memory>
#include <thread>

#include "meridian/listener.h"
#include "platform/mutex.h"

namespace meridian::dcps {

/// Any thread; enter and leave on the delivery thread.
class ListenerLink {
  public:
    explicit ListenerLink(DDSDataReaderListener* listener) : listener_(listener) {}
    static const std::shared_ptr<ListenerLink>& of(const DDSDataReaderListener& listener) {
        return listener.link_;
    }

    /// The listener for one call, or null when the link is cut. A non-null answer must be followed by leave.
    DDSDataReaderListener* enter() MERIDIAN_EXCLUDES(mutex_);
    void leave() MERIDIAN_EXCLUDES(mutex_);
    /// No call begins any more; returns when none is in progress on another thread.
    void cut() MERIDIAN_EXCLUDES(mutex_);

  private:
    Mutex mutex_;
    ConditionVariable changed_;
    DDSDataReaderListener* listener_ MERIDIAN_GUARDED_BY(mutex_);
    std::thread::id caller_ MERIDIAN_GUARDED_BY(mutex_); // of the call in progress
};

} // namespace meridian::dcps
