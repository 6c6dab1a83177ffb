#pragma once

// Where the tool's text goes: a descriptor, which is standard output, or a string in tests. The start of the
// program owns it and hands it to the agent; everything that prints is given it.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

/// The verbosity of the process, 0 (silent) to 5. Errors are printed from 1 on, progress above 1. Set once,
/// from the agent's own verbosity, after the options were parsed.
extern int32_t theVerbosity;

/// Any thread may call any operation unless told otherwise. What one call puts stays together. Text is kept
/// until a flush, or until much of it has come together; order is never changed.
class QuixAgentOutput {
  public:
    /// Text beyond this length is written without a flush.
    static constexpr size_t kMaxPending = 32 * 1024;

    /// Writes to a descriptor, which is not owned.
    explicit QuixAgentOutput(int descriptor);
    /// Appends to a string, which is not owned, at once.
    explicit QuixAgentOutput(std::string& text);
    /// Flushes.
    ~QuixAgentOutput();
    QuixAgentOutput(const QuixAgentOutput&) = delete;
    QuixAgentOutput& operator=(const QuixAgentOutput&) = delete;

    /// What one thread puts while it has one stays together: others wait. One within another changes nothing.
    class Together {
      public:
        explicit Together(QuixAgentOutput& output);
        ~Together();
        Together(const Together&) = delete;
        Together& operator=(const Together&) = delete;

      private:
        QuixAgentOutput& output_;
    };

    /// When waiting for the output is over, the rest of a text beyond kMaxPending, and of what is put
    /// together with it, is given up, but not the line end.
    void put(std::string_view text);
    void print(const char* format, ...) __attribute__((format(printf, 2, 3)));
    /// From verbosity 1 on, and flushed: why something failed. Always false.
    bool fail(const char* format, ...) __attribute__((format(printf, 2, 3)));
    /// From verbosity 2 on, and flushed, as the middleware may log what happens next: what is going on.
    void progress(const char* format, ...) __attribute__((format(printf, 2, 3)));

    /// Writes what was put so far. False when that is not all written: the output takes nothing and waiting
    /// is over (the rest stays for the next flush), or it is closed.
    bool flush();
    /// A stream that puts. Not for use by several threads at once.
    std::FILE* stream() { return stream_; }

    /// `keeps_waiting` is called, on any thread and several times a second, while a flush waits for an output
    /// that takes nothing. Without one a flush waits for ever. Set before other threads print.
    void wait_while(std::function<bool()> keeps_waiting);
    /// Whether a flush had to wait since this was asked last.
    bool has_waited() { return waited_.exchange(false); }

    bool is_terminal() const { return is_terminal_; }
    /// Whether it is known that the other end is gone. What is put from then on is discarded.
    bool is_closed() const { return is_closed_; }
    /// The same, after asking for it.
    bool look_whether_closed();
    /// The number of the first write error, 0 without one. The text of failed writes is lost; later text is
    /// tried all the same.
    int error() const { return error_; }
    /// Whether the last flush had to leave text behind.
    bool is_behind() const { return is_behind_; }
    /// Whether there is text that no flush has written.
    bool has_rest() const;

  private:
    size_t append(std::string_view text);
    void put_formatted(const char* format, va_list values);
    void tell_from(int32_t verbosity, const char* format, va_list values);
    bool write_leaving(std::unique_lock<std::mutex>& lock);
    ssize_t write_some(const char* text, size_t length);
    bool wait_for_room();
    static ssize_t put_from_stream(void* self, const char* text, size_t length);
    void open_stream();

    const int descriptor_ = -1;
    std::string* const text_ = nullptr;
    const bool is_terminal_ = false;
    const bool is_file_ = false; // takes all that it is given, at once
    const bool blocks_ = false;  // a write may wait, so it is small and there must be room for it
    std::FILE* stream_ = nullptr;
    std::function<bool()> keeps_waiting_;

    std::recursive_mutex put_mutex_; // held while one text is put; before mutex_
    // Guarded by put_mutex_: how often it is held; whether the rest of what is put together is given up; how
    // that ends.
    int together_ = 0;
    bool gives_up_ = false;
    bool ends_line_ = false;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::string pending_;     // guarded by mutex_
    bool is_writing_ = false; // guarded by mutex_: one thread is writing what leaves
    std::string leaving_;     // of the thread that is writing, else guarded by mutex_
    size_t left_ = 0;         // how much of it is written

    std::atomic<bool> waited_{false};
    std::atomic<bool> is_behind_{false};
    std::atomic<bool> is_closed_{false};
    std::atomic<int> error_{0};
};
