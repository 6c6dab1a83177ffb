#include "dcps/delivery/delivery_thread.h"

#include <algorithm>

#include "platform/clock.h"

namespace meridian::dcps {

DeliveryThread::~DeliveryThread() {
    std::thread thread;
    {
        MutexLock lock(mutex_);
        stopping_ = true;
        changed_.notify_all();
        thread = std::move(thread_);
    }
    if (thread.joinable())
        thread.join();
}

void DeliveryThread::notify(Deliverable& deliverable) {
    if (deliverable.pending_.exchange(true, std::memory_order_acq_rel))
        return;
    MutexLock lock(mutex_);
    start();
    ready_.push_back(&deliverable);
    changed_.notify_all();
}

void DeliveryThread::wake_at(Deliverable& deliverable, std::chrono::nanoseconds when) {
    MutexLock lock(mutex_);
    start();
    timers_.emplace(when, &deliverable);
    if (timers_.begin()->second == &deliverable)
        changed_.notify_all();
}

void DeliveryThread::remove(Deliverable& deliverable) {
    MutexLock lock(mutex_);
    ready_.erase(std::remove(ready_.begin(), ready_.end(), &deliverable), ready_.end());
    for (auto timer = timers_.begin(); timer != timers_.end();)
        timer = timer->second == &deliverable ? timers_.erase(timer) : std::next(timer);
    deliverable.pending_ = false;
    if (std::this_thread::get_id() == thread_.get_id())
        return;
    while (running_ == &deliverable)
        changed_.wait(mutex_);
}

void DeliveryThread::start() {
    if (!thread_.joinable() && !stopping_)
        thread_ = std::thread([this] { run(); });
}

Deliverable* DeliveryThread::next() {
    Deliverable* found = nullptr;
    if (!timers_.empty() && timers_.begin()->first <= monotonic_now()) {
        found = timers_.begin()->second;
        timers_.erase(timers_.begin());
    } else if (!ready_.empty()) {
        found = ready_.front();
        ready_.pop_front();
        // From here on whatever arrives asks for another call.
        found->pending_.store(false, std::memory_order_release);
    }
    return found;
}

void DeliveryThread::run() {
    MutexLock lock(mutex_);
    while (!stopping_) {
        running_ = next();
        if (running_ == nullptr) {
            changed_.wait_until(mutex_,
                                timers_.empty() ? std::chrono::nanoseconds::max() : timers_.begin()->first);
            continue;
        }
        Deliverable* deliverable = running_;
        lock.unlock();
        deliverable->deliver();
        lock.lock();
        running_ = nullptr;
        changed_.notify_all();
    }
}

} // namespace meridian::dcps
