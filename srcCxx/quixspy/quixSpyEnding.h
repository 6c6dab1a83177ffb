#pragma once

// How a run ends. From the moment at which it is over the main thread waits for nothing that the output or
// the other threads could make long: samples that were taken and not printed are dropped, and the statistics
// have a limited time.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>

/// One for a run, with which it begins in the phase of running. The main thread changes the phase; any thread
/// may call the rest.
class QuixSpyEnding {
  public:
    /// How long lines are still printed, and the whole text is waited for, from the end of the run on.
    static constexpr std::chrono::milliseconds kLinesTime{400};
    static constexpr std::chrono::milliseconds kTextTime{3000};

    /// `is_over` tells whether the run is to end: asked on any thread.
    explicit QuixSpyEnding(std::function<bool()> is_over) : is_over_(std::move(is_over)) {}

    /// The run is over: samples are no longer taken, and dropped unless the output takes their lines at once.
    void begin();
    /// No line of a sample is printed any more.
    void begin_statistics();

    /// Whether samples are taken.
    bool takes_samples() const { return phase_ == Phase::running; }
    /// Whether samples that were taken are dropped. `is_behind`: the output does not keep up.
    bool drops_samples(bool is_behind) const;
    /// Whether to go on waiting for the output.
    bool keeps_waiting() const;

    void count_dropped(uint64_t samples) { dropped_ += samples; }
    uint64_t dropped() const { return dropped_; }

  private:
    using Clock = std::chrono::steady_clock;
    enum class Phase : uint8_t { running, lines, statistics };

    const std::function<bool()> is_over_;
    std::atomic<Phase> phase_{Phase::running};
    Clock::time_point began_{}; // written before the phase changes
    std::atomic<uint64_t> dropped_{0};
};
