#pragma once

// Memory that one call leaves to the next, so that steady traffic allocates nothing.

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "platform/mutex.h"

namespace meridian::types {

/// Objects that are kept for the next user; each has one user at a time. Any thread.
template <typename T>
class Spares {
  public:
    /// More than so many are rarely in use at once; others are deleted when they come back.
    static constexpr size_t kMaxKept = 4;

    std::unique_ptr<T> take() const MERIDIAN_EXCLUDES(mutex_) {
        {
            MutexLock lock(mutex_);
            if (!kept_.empty()) {
                std::unique_ptr<T> spare = std::move(kept_.back());
                kept_.pop_back();
                return spare;
            }
        }
        return std::make_unique<T>();
    }
    void give_back(std::unique_ptr<T> spare) const MERIDIAN_EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        if (kept_.size() < kMaxKept)
            kept_.push_back(std::move(spare));
    }

  private:
    mutable Mutex mutex_;
    mutable std::vector<std::unique_ptr<T>> kept_ MERIDIAN_GUARDED_BY(mutex_);
};

/// A spare for the length of a scope.
template <typename T>
class Borrowed {
  public:
    explicit Borrowed(const Spares<T>& spares) : spares_(spares), spare_(spares.take()) {}
    ~Borrowed() { spares_.give_back(std::move(spare_)); }
    Borrowed(const Borrowed&) = delete;
    Borrowed& operator=(const Borrowed&) = delete;

    T& operator*() const { return *spare_; }
    T* operator->() const { return spare_.get(); }

  private:
    const Spares<T>& spares_;
    std::unique_ptr<T> spare_;
};

} // namespace meridian::types
