#include "dcps/delivery/delivery_thread.h"

#include "platform/clock.h"

namespace meridian::dcps {

// The thread calls this with its lock held, which the analysis cannot follow through the queue.
void Deliverable::on_timer(rtps::MonotonicTime /*now*/) MERIDIAN_NO_THREAD_SAFETY_ANALYSIS {
    thread_->enqueue(*this);
}

DeliveryThread::~DeliveryThread() {
    {
        MutexLock lock(mutex_);
        stopping_ = true;
        changed_.notify_all();
    }
    thread_.join();
}

bool DeliveryThread::start(std::string& error) {
    MutexLock lock(mutex_);
    return thread_.is_started() || thread_.start(
                                       "delivery", [this] { run(); }, error);
}

void DeliveryThread::note(Deliverable& deliverable) {
    if (deliverable.pending_.exchange(true, std::memory_order_acq_rel))
        return;
    MutexLock lock(mutex_);
    enqueue(deliverable);
    if (is_idle_)
        wants_wake_.store(true, std::memory_order_relaxed);
}

void DeliveryThread::end_rest() {
    if (!is_resting_.load(std::memory_order_relaxed))
        return;
    MutexLock lock(mutex_);
    if (is_resting_.exchange(false, std::memory_order_relaxed))
        wants_wake_.store(true, std::memory_order_relaxed);
}

void DeliveryThread::wake() {
    if (!wants_wake_.load(std::memory_order_relaxed) ||
        !wants_wake_.exchange(false, std::memory_order_acq_rel))
        return;
    wakes_.fetch_add(1, std::memory_order_relaxed);
    changed_.notify_all();
}

void DeliveryThread::wake_at(Deliverable& deliverable, std::chrono::nanoseconds when) {
    MutexLock lock(mutex_);
    if (!deliverable.timer_) {
        deliverable.thread_ = this;
        rtps::TimerQueue::Client& client = deliverable;
        deliverable.timer_.emplace(timers_, client);
    }
    deliverable.timer_->wake_at(when);
    if (timers_.next_deadline() == when)
        changed_.notify_all();
}

void DeliveryThread::remove(Deliverable& deliverable) {
    MutexLock lock(mutex_);
    unqueue(deliverable);
    if (deliverable.timer_)
        deliverable.timer_->cancel();
    deliverable.pending_ = false;
    if (last_ == &deliverable)
        last_ = nullptr;
    if (thread_.is_current())
        return;
    while (running_ == &deliverable)
        changed_.wait(mutex_);
}

Deliverable* DeliveryThread::next(rtps::MonotonicTime now) {
    timers_.run(now);
    Deliverable* found = ready_.first();
    if (found != nullptr) {
        unqueue(*found);
        // What arrives from here on asks for another call.
        found->pending_.store(false, std::memory_order_release);
    }
    return found;
}

void DeliveryThread::enqueue(Deliverable& deliverable) {
    if (deliverable.queued_)
        return;
    deliverable.queued_ = true;
    ready_.append(deliverable, &Deliverable::links_);
}

void DeliveryThread::unqueue(Deliverable& deliverable) {
    if (!deliverable.queued_)
        return;
    deliverable.queued_ = false;
    ready_.remove(deliverable, &Deliverable::links_);
}

void DeliveryThread::rest() {
    const auto end = monotonic_now() + kRest;
    is_resting_.store(true, std::memory_order_relaxed);
    while (is_resting_.load(std::memory_order_relaxed) && !stopping_ && changed_.wait_until(mutex_, end)) {
    }
    is_resting_.store(false, std::memory_order_relaxed);
}

void DeliveryThread::sleep() {
    const auto begin = monotonic_now();
    if (is_busy_)
        rest();
    if (ready_.first() != nullptr || stopping_)
        return;
    is_idle_ = true;
    changed_.wait_until(mutex_, timers_.next_deadline());
    is_idle_ = false;
    is_busy_ = monotonic_now() - begin < kRest;
}

void DeliveryThread::run() {
    MutexLock lock(mutex_);
    while (!stopping_) {
        const rtps::MonotonicTime now = monotonic_now();
        running_ = next(now);
        const bool is_end = running_ == nullptr;
        if (is_end)
            running_ = last_;
        if (running_ == nullptr) {
            sleep();
            continue;
        }
        last_ = is_end ? nullptr : running_;
        Deliverable* deliverable = running_;
        lock.unlock();
        if (is_end)
            deliverable->on_deliveries_end();
        else
            deliverable->deliver(now);
        trimmer_.look(now);
        lock.lock();
        running_ = nullptr;
        changed_.notify_all();
    }
}

} // namespace meridian::dcps
