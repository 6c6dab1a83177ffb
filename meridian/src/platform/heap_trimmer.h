#pragma once

// Gives memory back to the system that a peak has left free in the heap. The allocator does so at the end of
// the heap only; where endpoints come and go, something that lives is there always, and each peak would stay.

#include <chrono>

#include "platform/memory_budget.h"

namespace meridian {

/// One thread at a time.
class HeapTrimmer {
  public:
    /// Less is not worth it; and no more often, since other threads that allocate wait for it.
    static constexpr size_t kMuch = size_t{8} << 20;
    static constexpr std::chrono::seconds kPause{5};

    /// What is taken from the budget tells how much was freed. The budget must outlive the trimmer.
    explicit HeapTrimmer(const MemoryBudget& budget) : budget_(budget) {}

    /// Cheap where there is nothing to do. now: of the monotonic clock.
    void look(std::chrono::nanoseconds now);

  private:
    const MemoryBudget& budget_;
    size_t peak_ = 0; // since the last time
    std::chrono::nanoseconds trimmed_at_ = -kPause;
};

} // namespace meridian
