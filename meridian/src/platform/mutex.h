#pragma once

// Mutex, scoped lock and condition variable with thread-safety attributes. Built on pthreads directly: a
// timed wait must count on the monotonic clock, and the thread sanitizers of the compilers in use know the
// pthread calls but not all of those that the standard library makes for that.

#include <pthread.h>

#include <chrono>

#include "platform/thread_annotations.h"

namespace meridian {

/// Not recursive.
class MERIDIAN_CAPABILITY("mutex") Mutex {
  public:
    Mutex() = default;
    ~Mutex() { pthread_mutex_destroy(&mutex_); }
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() MERIDIAN_ACQUIRE() { pthread_mutex_lock(&mutex_); }
    void unlock() MERIDIAN_RELEASE() { pthread_mutex_unlock(&mutex_); }

  private:
    friend class ConditionVariable;
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

/// Holds the mutex from construction to the end of its scope, except between unlock and lock.
class MERIDIAN_SCOPED_CAPABILITY MutexLock {
  public:
    explicit MutexLock(Mutex& mutex) MERIDIAN_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~MutexLock() MERIDIAN_RELEASE() {
        if (held_)
            mutex_.unlock();
    }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    /// Lets go before the end of the scope, for example around a callback.
    void unlock() MERIDIAN_RELEASE() {
        held_ = false;
        mutex_.unlock();
    }
    void lock() MERIDIAN_ACQUIRE() {
        mutex_.lock();
        held_ = true;
    }

  private:
    Mutex& mutex_;
    bool held_ = true;
};

/// Waits on the monotonic clock. Every wait may wake for no reason: test the condition in a loop.
class ConditionVariable {
  public:
    ConditionVariable();
    ~ConditionVariable() { pthread_cond_destroy(&condition_); }
    ConditionVariable(const ConditionVariable&) = delete;
    ConditionVariable& operator=(const ConditionVariable&) = delete;

    void notify_one() { pthread_cond_signal(&condition_); }
    void notify_all() { pthread_cond_broadcast(&condition_); }

    void wait(Mutex& mutex) MERIDIAN_REQUIRES(mutex) { pthread_cond_wait(&condition_, &mutex.mutex_); }
    /// False when `deadline` (of monotonic_now, see platform/clock.h) has passed.
    /// std::chrono::nanoseconds::max() waits without limit; a deadline in the past returns at once.
    bool wait_until(Mutex& mutex, std::chrono::nanoseconds deadline) MERIDIAN_REQUIRES(mutex);

  private:
    pthread_cond_t condition_;
};

} // namespace meridian
