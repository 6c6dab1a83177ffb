#pragma once

// The thread on which a participant calls its listeners. Receive threads only say that there is something to
// deliver; however long a listener takes, receiving goes on.

#include <atomic>
#include <chrono>
#include <deque>
#include <map>
#include <thread>

#include "platform/mutex.h"

namespace meridian::dcps {

/// Somebody with something to deliver, or with a timer.
class Deliverable {
  public:
    virtual ~Deliverable() = default;
    /// On the delivery thread, with no lock held: after notify, and when a wake_at has passed.
    virtual void deliver() = 0;

  private:
    friend class DeliveryThread;
    std::atomic<bool> pending_{false};
};

/// Any thread may call any operation.
class DeliveryThread {
  public:
    DeliveryThread() = default;
    /// Ends the thread; all deliverables must have been removed.
    ~DeliveryThread();
    DeliveryThread(const DeliveryThread&) = delete;
    DeliveryThread& operator=(const DeliveryThread&) = delete;

    /// Has `deliver` called soon. Cheap while a call is pending already. The thread starts with the first
    /// use.
    void notify(Deliverable& deliverable) MERIDIAN_EXCLUDES(mutex_);
    /// Has `deliver` called at that time of the monotonic clock or earlier; of several calls the earliest
    /// counts.
    void wake_at(Deliverable& deliverable, std::chrono::nanoseconds when) MERIDIAN_EXCLUDES(mutex_);
    /// Returns when `deliver` is neither running nor will be called again, except on the delivery thread
    /// itself, where the running call is the caller's.
    void remove(Deliverable& deliverable) MERIDIAN_EXCLUDES(mutex_);

  private:
    void run() MERIDIAN_EXCLUDES(mutex_);
    void start() MERIDIAN_REQUIRES(mutex_);
    Deliverable* next() MERIDIAN_REQUIRES(mutex_);

    Mutex mutex_;
    ConditionVariable changed_;
    bool stopping_ MERIDIAN_GUARDED_BY(mutex_) = false;
    std::deque<Deliverable*> ready_ MERIDIAN_GUARDED_BY(mutex_);
    std::multimap<std::chrono::nanoseconds, Deliverable*> timers_ MERIDIAN_GUARDED_BY(mutex_);
    Deliverable* running_ MERIDIAN_GUARDED_BY(mutex_) = nullptr;
    std::thread thread_ MERIDIAN_GUARDED_BY(mutex_);
};

} // namespace meridian::dcps
