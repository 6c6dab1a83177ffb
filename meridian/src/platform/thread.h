#pragma once

// A thread with a name and no signals, whose start can fail without an exception. std::thread throws where
// the system has no thread to give, and leaves name and signal mask to the caller.

#include <pthread.h>

#include <functional>
#include <string>

namespace meridian {

/// Owned and used by one thread, except where stated.
class Thread {
  public:
    Thread() = default;
    /// Waits for the end of the thread.
    ~Thread() { join(); }
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    /// Runs function, which must not throw, on a new thread. The name is what "ps -L" shows, at most 15
    /// characters. All signals are blocked there: they are for the program's own threads. False with a text
    /// in error when the system has no thread to give; it can be tried again. Must not be called while a
    /// thread of this object runs.
    bool start(const char* name, std::function<void()> function, std::string& error);
    /// From a successful start until join.
    bool is_started() const { return started_; }
    /// True on the thread itself.
    bool is_current() const { return started_ && pthread_equal(handle_, pthread_self()) != 0; }
    /// Waits for the end of the thread. Does nothing where none was started.
    void join();

  private:
    pthread_t handle_{};
    bool started_ = false;
};

} // namespace meridian
