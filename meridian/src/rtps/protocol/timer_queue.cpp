#include "rtps/protocol/timer_queue.h"

namespace meridian::rtps {

MonotonicTime TimerQueue::Timer::due() const {
    return place_ == kOff ? kNever : queue_.heap_[place_].due;
}

void TimerQueue::Timer::wake_at(MonotonicTime when) {
    if (when >= due())
        return;
    const Entry entry{when, queue_.order_++, this};
    if (place_ == kOff) {
        queue_.heap_.push_back(entry);
        queue_.put(queue_.heap_.size() - 1, entry);
    } else {
        queue_.put(place_, entry);
    }
    queue_.rise(place_);
}

void TimerQueue::Timer::cancel() {
    if (place_ != kOff)
        queue_.remove(place_);
}

void TimerQueue::put(size_t place, const Entry& entry) {
    ++operations_;
    heap_[place] = entry;
    entry.timer->place_ = place;
}

void TimerQueue::rise(size_t place) {
    const Entry entry = heap_[place];
    size_t at = place;
    for (; at > 0 && entry < heap_[(at - 1) / 2]; at = (at - 1) / 2)
        put(at, heap_[(at - 1) / 2]);
    if (at != place)
        put(at, entry);
}

void TimerQueue::descend(size_t place) {
    const Entry entry = heap_[place];
    size_t at = place;
    for (size_t child = 2 * at + 1; child < heap_.size(); child = 2 * at + 1) {
        if (child + 1 < heap_.size() && heap_[child + 1] < heap_[child])
            ++child;
        if (!(heap_[child] < entry))
            break;
        put(at, heap_[child]);
        at = child;
    }
    if (at != place)
        put(at, entry);
}

void TimerQueue::remove(size_t place) {
    heap_[place].timer->place_ = Timer::kOff;
    const Entry last = heap_.back();
    heap_.pop_back();
    if (place == heap_.size())
        return;
    put(place, last);
    rise(place);
    descend(last.timer->place_);
}

void TimerQueue::run(MonotonicTime now) {
    const uint64_t end = order_;
    while (!heap_.empty() && heap_.front().due <= now && heap_.front().order < end) {
        Timer& timer = *heap_.front().timer;
        remove(0);
        ++operations_;
        timer.client_.on_timer(now);
    }
}

} // namespace meridian::rtps
