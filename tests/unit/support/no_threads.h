#pragma once

#include <pthread.h>

#include <cstddef>

/// While it lives no thread can be started in this process: new stacks are larger than the address space.
/// Limits of processes do not hold for root, under which tests often run.
class NoThreads {
  public:
    NoThreads() {
        pthread_getattr_default_np(&before_);
        pthread_attr_t too_large;
        pthread_attr_init(&too_large);
        pthread_attr_setstacksize(&too_large, size_t{1} << 47);
        pthread_setattr_default_np(&too_large);
        pthread_attr_destroy(&too_large);
    }
    ~NoThreads() {
        pthread_setattr_default_np(&before_);
        pthread_attr_destroy(&before_);
    }
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;

  private:
    pthread_attr_t before_;
};
