#pragma once

// What others can make this process keep (fragments, samples out of order, history, waiting samples,
// announcements, types) comes out of one budget, so that its memory is bounded whatever they send.

#include <atomic>
#include <cstddef>

namespace meridian {

/// A number of bytes that holders share. May be used by any thread.
class MemoryBudget {
  public:
    static constexpr size_t kDefaultLimit = size_t{256} << 20;

    explicit MemoryBudget(size_t limit) : limit_(limit) {}
    MemoryBudget(const MemoryBudget&) = delete;
    MemoryBudget& operator=(const MemoryBudget&) = delete;

    /// The one of this process, of kDefaultLimit bytes.
    static MemoryBudget& of_process() {
        static MemoryBudget budget(kDefaultLimit);
        return budget;
    }

    size_t limit() const { return limit_; }
    size_t used() const { return used_.load(std::memory_order_relaxed); }
    /// Whether memory that is not needed at present may be kept for later: all that is kept for speed alone
    /// must leave most of the budget to what has come.
    bool is_ample() const { return used() < limit_ / 4; }

  private:
    friend class MemoryShare;
    const size_t limit_;
    std::atomic<size_t> used_{0};
};

/// What one holder, for example the assembler of one writer, has taken from a budget; gives it back when it
/// ends. One holder gets no more than what is left for all others afterwards: alone it gets half of the
/// limit, and whatever others hold, a new one still gets something. Not for several threads at once.
class MemoryShare {
  public:
    /// The budget must outlive the share.
    explicit MemoryShare(MemoryBudget& budget) : budget_(&budget) {}
    ~MemoryShare() { give_back(held_); }
    MemoryShare(const MemoryShare&) = delete;
    MemoryShare& operator=(const MemoryShare&) = delete;

    /// False, with nothing taken, where the holder's part or the budget does not allow it.
    bool take(size_t bytes) {
        size_t used = budget_->used_.load(std::memory_order_relaxed);
        do {
            if (used > budget_->limit_ || bytes > budget_->limit_ - used)
                return false;
            const size_t left = budget_->limit_ - used - bytes;
            if (held_ + bytes > left)
                return false;
        } while (!budget_->used_.compare_exchange_weak(used, used + bytes, std::memory_order_relaxed));
        held_ += bytes;
        return true;
    }
    /// Never more than was taken.
    void give_back(size_t bytes) {
        held_ -= bytes;
        budget_->used_.fetch_sub(bytes, std::memory_order_relaxed);
    }
    size_t held() const { return held_; }
    const MemoryBudget& budget() const { return *budget_; }

  private:
    MemoryBudget* budget_;
    size_t held_ = 0;
};

} // namespace meridian
