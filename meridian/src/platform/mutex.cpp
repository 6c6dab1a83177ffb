#include "platform/mutex.h"

#include <cerrno>
#include <ctime>

namespace meridian {

ConditionVariable::ConditionVariable() {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&condition_, &attributes);
    pthread_condattr_destroy(&attributes);
}

bool ConditionVariable::wait_until(Mutex& mutex, std::chrono::nanoseconds deadline) {
    if (deadline == std::chrono::nanoseconds::max()) {
        wait(mutex);
        return true;
    }
    if (deadline.count() < 0)
        deadline = std::chrono::nanoseconds::zero();
    timespec at{};
    at.tv_sec = static_cast<time_t>(deadline.count() / 1000000000);
    at.tv_nsec = static_cast<long>(deadline.count() % 1000000000);
    return pthread_cond_timedwait(&condition_, &mutex.mutex_, &at) != ETIMEDOUT;
}

} // namespace meridian
