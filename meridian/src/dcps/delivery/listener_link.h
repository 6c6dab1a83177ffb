#pragma once

// The tie between a listener and the readers that call it. It outlives either side: a listener that is
// deleted cuts it and waits for calls in progress; a reader that finds it cut makes no call.

#include <memory>
#include <thread>

#include "meridian/listener.h"
#include "platform/mutex.h"

namespace meridian::dcps {

/// Any thread; calls are made on the delivery thread.
class ListenerLink {
  public:
    explicit ListenerLink(DDSDataReaderListener* listener) : listener_(listener) {}
    static const std::shared_ptr<ListenerLink>& of(const DDSDataReaderListener& listener) {
        return listener.link_;
    }

    /// Calls `function` with the listener, unless the link is cut.
    template <typename Function>
    void call(Function function) MERIDIAN_EXCLUDES(mutex_) {
        if (DDSDataReaderListener* listener = enter()) {
            function(*listener);
            leave();
        }
    }
    /// No call begins any more; returns when none is in progress on another thread.
    void cut() MERIDIAN_EXCLUDES(mutex_);

  private:
    DDSDataReaderListener* enter() MERIDIAN_EXCLUDES(mutex_);
    void leave() MERIDIAN_EXCLUDES(mutex_);

    Mutex mutex_;
    ConditionVariable changed_;
    DDSDataReaderListener* listener_ MERIDIAN_GUARDED_BY(mutex_);
    std::thread::id caller_ MERIDIAN_GUARDED_BY(mutex_); // of the call in progress
};

} // namespace meridian::dcps
