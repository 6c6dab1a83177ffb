#pragma once

// The thread on which the participants of a process call their listeners. Receive threads only say that there
// is something to deliver; however long a listener takes, receiving goes on.
//
// Where something comes more often than once in kRest, the thread rests between two deliveries: what comes
// meanwhile wakes nothing and is delivered together, at most kRest later. Waking the thread costs several
// times as much as delivering a sample.

#include <atomic>
#include <chrono>
#include <optional>
#include <string>

#include "platform/chain.h"
#include "platform/heap_trimmer.h"
#include "platform/mutex.h"
#include "platform/thread.h"
#include "rtps/protocol/timer_queue.h"

namespace meridian::dcps {

class DeliveryThread;

/// Has something to deliver, or a timer.
class Deliverable : private rtps::TimerQueue::Client {
  public:
    virtual ~Deliverable() = default;
    // On the delivery thread, with no lock held.
    /// After note, and when a wake_at has passed.
    virtual void deliver(rtps::MonotonicTime now) = 0;
    /// This was the last one that was called, and nothing else is ready now.
    virtual void on_deliveries_end() {}

  private:
    friend class DeliveryThread;
    void on_timer(rtps::MonotonicTime now) override;

    std::atomic<bool> pending_{false};
    // The rest under the lock of the thread: the timer, and the place among those that are ready.
    DeliveryThread* thread_ = nullptr;
    std::optional<rtps::TimerQueue::Timer> timer_;
    bool queued_ = false;
    Links<Deliverable> links_;
};

/// Any thread may call any operation.
class DeliveryThread {
  public:
    static constexpr std::chrono::nanoseconds kRest = std::chrono::milliseconds(2);

    DeliveryThread() = default;
    /// Ends the thread; all deliverables must have been removed.
    ~DeliveryThread();
    DeliveryThread(const DeliveryThread&) = delete;
    DeliveryThread& operator=(const DeliveryThread&) = delete;

    /// Starts the thread. False with a text in `error` when the system has none to give; what is asked for
    /// before start succeeded waits until then. Starting twice is success.
    bool start(std::string& error) MERIDIAN_EXCLUDES(mutex_);
    /// Has `deliver` called soon, by an idle thread after wake: who holds a lock that `deliver` wants wakes
    /// it later. Cheap while a call is pending already.
    void note(Deliverable& deliverable) MERIDIAN_EXCLUDES(mutex_);
    /// Ends a rest: for what was noted there is no more to wait for. Cheap when the thread does not rest.
    void end_rest() MERIDIAN_EXCLUDES(mutex_);
    /// Wakes the thread for what was noted. Cheap when there is nothing.
    void wake();
    /// Has `deliver` called at that time of the monotonic clock or earlier; of several calls the earliest
    /// counts. A rest is not interrupted for it.
    void wake_at(Deliverable& deliverable, std::chrono::nanoseconds when) MERIDIAN_EXCLUDES(mutex_);
    /// Returns when `deliver` is neither running nor will be called again, except on the delivery thread
    /// itself, where the running call is the caller's.
    void remove(Deliverable& deliverable) MERIDIAN_EXCLUDES(mutex_);

    /// How often wake had something to wake the thread for.
    uint64_t wakes() const { return wakes_.load(std::memory_order_relaxed); }

  private:
    friend class Deliverable;

    void run() MERIDIAN_EXCLUDES(mutex_);
    /// Until there is something to deliver, or for no reason.
    void sleep() MERIDIAN_REQUIRES(mutex_);
    void rest() MERIDIAN_REQUIRES(mutex_);
    Deliverable* next(rtps::MonotonicTime now) MERIDIAN_REQUIRES(mutex_);
    void enqueue(Deliverable& deliverable) MERIDIAN_REQUIRES(mutex_);
    void unqueue(Deliverable& deliverable) MERIDIAN_REQUIRES(mutex_);

    Mutex mutex_;
    ConditionVariable changed_;
    std::atomic<bool> wants_wake_{false}; // something was noted that the thread is not awake for
    std::atomic<uint64_t> wakes_{0};
    std::atomic<bool> is_resting_{false}; // changed with the lock held
    bool is_idle_ MERIDIAN_GUARDED_BY(mutex_) = false;
    bool is_busy_ MERIDIAN_GUARDED_BY(mutex_) = false; // idle for less than kRest the last time
    bool stopping_ MERIDIAN_GUARDED_BY(mutex_) = false;
    Chain<Deliverable> ready_ MERIDIAN_GUARDED_BY(mutex_);
    rtps::TimerQueue timers_ MERIDIAN_GUARDED_BY(mutex_);
    Deliverable* running_ MERIDIAN_GUARDED_BY(mutex_) = nullptr;
    Deliverable* last_ MERIDIAN_GUARDED_BY(mutex_) = nullptr; // delivered, and the end was not told since
    HeapTrimmer trimmer_{MemoryBudget::of_process()};         // of the thread alone
    Thread thread_ MERIDIAN_GUARDED_BY(mutex_);
};

/// Holds a lock that `deliver` wants too. What is noted meanwhile is delivered afterwards: a thread woken
/// before would only wait for the lock.
class MERIDIAN_SCOPED_CAPABILITY NotingLock {
  public:
    NotingLock(Mutex& mutex, DeliveryThread& delivery) MERIDIAN_ACQUIRE(mutex)
        : mutex_(mutex), delivery_(delivery) {
        mutex_.lock();
    }
    ~NotingLock() MERIDIAN_RELEASE() {
        mutex_.unlock();
        delivery_.wake();
    }
    NotingLock(const NotingLock&) = delete;
    NotingLock& operator=(const NotingLock&) = delete;

  private:
    Mutex& mutex_;
    DeliveryThread& delivery_;
};

} // namespace meridian::dcps
