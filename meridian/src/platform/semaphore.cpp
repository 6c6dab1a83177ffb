#include "meridian/semaphore.h"

#include <limits>
#include <new>

#include "meridian/logger.h"
#include "platform/clock.h"
#include "platform/mutex.h"

namespace {

class Semaphore final : public QUIXSemaphore {
  public:
    bool give() override {
        const meridian::MutexLock lock(mutex_);
        if (count_ == std::numeric_limits<DDS_Long>::max())
            return false;
        ++count_;
        changed_.notify_one();
        return true;
    }

    bool take(const DDS_Duration_t& timeout) override {
        const std::chrono::nanoseconds deadline =
            meridian::deadline_after(meridian::monotonic_now(), timeout);
        const meridian::MutexLock lock(mutex_);
        bool in_time = true;
        while (count_ == 0 && in_time)
            in_time = changed_.wait_until(mutex_, deadline);
        // A unit that came together with the deadline is still taken.
        if (count_ == 0)
            return false;
        --count_;
        return true;
    }

  private:
    meridian::Mutex mutex_;
    meridian::ConditionVariable changed_;
    DDS_Long count_ MERIDIAN_GUARDED_BY(mutex_) = 0;
};

} // namespace

QUIXSemaphore* QUIXSemaphore::create() {
    auto* semaphore = new (std::nothrow) Semaphore();
    if (semaphore == nullptr)
        QUIXLog_creationFailure("QUIXSemaphore::create", "semaphore");
    return semaphore;
}

void QUIXSemaphore::destroy(QUIXSemaphore* semaphore) {
    // create() is the only maker, so this is the type of every semaphore.
    delete static_cast<Semaphore*>(semaphore);
}
