#pragma once

// When which state machine wants to be called: a heap of times, so that a call costs nothing for those that
// wait for nothing. Timers of equal time run in the order in which they were set.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "rtps/protocol/times.h"

namespace meridian::rtps {

class TimerQueue {
  public:
    class Client {
      public:
        /// The timer that was due is off again.
        virtual void on_timer(MonotonicTime now) = 0;

      protected:
        ~Client() = default;
    };

    /// One timer of one client; off at first. Queue and client must outlive it.
    class Timer {
      public:
        Timer(TimerQueue& queue, Client& client) : queue_(queue), client_(client) {}
        ~Timer() { cancel(); }
        Timer(const Timer&) = delete;
        Timer& operator=(const Timer&) = delete;

        /// kNever when it is off.
        MonotonicTime due() const;
        /// Due then, unless it is due earlier already. kNever changes nothing.
        void wake_at(MonotonicTime when);
        void cancel();

      private:
        friend class TimerQueue;
        static constexpr size_t kOff = SIZE_MAX;
        TimerQueue& queue_;
        Client& client_;
        size_t place_ = kOff; // in the heap
    };

    MonotonicTime next_deadline() const { return heap_.empty() ? kNever : heap_.front().due; }
    /// Calls the clients of all timers that are due. What they set meanwhile waits for the next call.
    void run(MonotonicTime now);

    /// Timers set, moved within the heap or called, since the beginning: what the queue has cost.
    uint64_t operations() const { return operations_; }

  private:
    struct Entry {
        MonotonicTime due{0};
        uint64_t order = 0; // of setting
        Timer* timer = nullptr;
        friend bool operator<(const Entry& a, const Entry& b) {
            return a.due != b.due ? a.due < b.due : a.order < b.order;
        }
    };
    void put(size_t place, const Entry& entry);
    void rise(size_t place);
    void descend(size_t place);
    void remove(size_t place);

    std::vector<Entry> heap_; // the children of i are 2i + 1 and 2i + 2; none is before its parent
    uint64_t order_ = 0;
    uint64_t operations_ = 0;
};

} // namespace meridian::rtps
