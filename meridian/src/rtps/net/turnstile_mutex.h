#pragma once

// A mutex that one thread can take again and again without keeping others from it.

#include <atomic>
#include <cassert>
#include <thread>

#include "platform/mutex.h"

namespace meridian::rtps::net {

/// A thread that wants it passes a gate first and keeps it closed while it waits, so the holder, back at
/// once, has to queue behind it.
class MERIDIAN_CAPABILITY("mutex") TurnstileMutex {
  public:
    void lock() MERIDIAN_ACQUIRE() MERIDIAN_NO_THREAD_SAFETY_ANALYSIS {
        // A callback that calls back would wait for itself for ever; better to say so at once.
        assert(holder_.load(std::memory_order_relaxed) != std::this_thread::get_id());
        const MutexLock turnstile(gate_);
        mutex_.lock();
        holder_.store(std::this_thread::get_id(), std::memory_order_relaxed);
    }
    void unlock() MERIDIAN_RELEASE() MERIDIAN_NO_THREAD_SAFETY_ANALYSIS {
        holder_.store(std::thread::id(), std::memory_order_relaxed);
        mutex_.unlock();
    }

  private:
    Mutex gate_;
    Mutex mutex_;
    std::atomic<std::thread::id> holder_{std::thread::id()};
};

/// Holds the mutex from construction to the end of its scope.
class MERIDIAN_SCOPED_CAPABILITY TurnstileLock {
  public:
    explicit TurnstileLock(TurnstileMutex& mutex) MERIDIAN_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~TurnstileLock() MERIDIAN_RELEASE() { mutex_.unlock(); }
    TurnstileLock(const TurnstileLock&) = delete;
    TurnstileLock& operator=(const TurnstileLock&) = delete;

  private:
    TurnstileMutex& mutex_;
};

} // namespace meridian::rtps::net
