#pragma once

// When which state machine wants to be called: times in order, so that a call costs nothing for those that
// wait for nothing. Timers of equal time run in the order in which they were set.

#include <cstdint>
#include <set>

#include "rtps/protocol/times.h"

namespace meridian::rtps {

class TimerQueue {
  public:
    class Timer;

  private:
    struct Entry {
        MonotonicTime due{0};
        uint64_t order = 0; // of setting
        Timer* timer = nullptr;
        friend bool operator<(const Entry& a, const Entry& b) {
            return a.due != b.due ? a.due < b.due : a.order < b.order;
        }
    };
    using Entries = std::set<Entry>;

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
        MonotonicTime due() const { return is_on_ ? place_->due : kNever; }
        /// Due then, unless it is due earlier already. kNever changes nothing.
        void wake_at(MonotonicTime when);
        void cancel();

      private:
        friend class TimerQueue;
        TimerQueue& queue_;
        Client& client_;
        bool is_on_ = false;
        Entries::iterator place_;   // while it is on
        Entries::node_type unused_; // while it is off: setting it again allocates nothing
    };

    MonotonicTime next_deadline() const { return entries_.empty() ? kNever : entries_.begin()->due; }
    /// Calls the clients of all timers that are due. What they set meanwhile waits for the next call.
    void run(MonotonicTime now);

    /// Timers set or called, since the beginning: what the queue has cost.
    uint64_t operations() const { return operations_; }

  private:
    Entries entries_;
    uint64_t order_ = 0;
    uint64_t operations_ = 0;
};

} // namespace meridian::rtps
