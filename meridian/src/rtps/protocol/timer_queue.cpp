#include "rtps/protocol/timer_queue.h"

#include <utility>

namespace meridian::rtps {

void TimerQueue::Timer::wake_at(MonotonicTime when) {
    if (when >= due())
        return;
    cancel();
    const Entry entry{when, queue_.order_++, this};
    if (unused_.empty()) {
        place_ = queue_.entries_.insert(entry).first;
    } else {
        unused_.value() = entry;
        place_ = queue_.entries_.insert(std::move(unused_)).position;
    }
    is_on_ = true;
    ++queue_.operations_;
}

void TimerQueue::Timer::cancel() {
    if (!is_on_)
        return;
    unused_ = queue_.entries_.extract(place_);
    is_on_ = false;
}

void TimerQueue::run(MonotonicTime now) {
    const uint64_t end = order_;
    while (!entries_.empty() && entries_.begin()->due <= now && entries_.begin()->order < end) {
        Timer& timer = *entries_.begin()->timer;
        timer.cancel();
        ++operations_;
        timer.client_.on_timer(now);
    }
}

} // namespace meridian::rtps
