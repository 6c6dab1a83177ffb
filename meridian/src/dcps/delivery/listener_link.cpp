#include "dcps/delivery/listener_link.h"

#include <algorithm>

namespace meridian::dcps {

DDSDataReaderListener* ListenerLink::enter() {
    MutexLock lock(mutex_);
    if (listener_ != nullptr)
        callers_.push_back(std::this_thread::get_id());
    return listener_;
}

void ListenerLink::leave() {
    MutexLock lock(mutex_);
    const auto mine = std::find(callers_.begin(), callers_.end(), std::this_thread::get_id());
    if (mine != callers_.end())
        callers_.erase(mine);
    changed_.notify_all();
}

bool ListenerLink::busy_elsewhere() const {
    return std::any_of(callers_.begin(), callers_.end(),
                       [](std::thread::id caller) { return caller != std::this_thread::get_id(); });
}

void ListenerLink::cut() {
    MutexLock lock(mutex_);
    listener_ = nullptr;
    while (busy_elsewhere())
        changed_.wait(mutex_);
}

DDSDataReaderListener* ListenerLink::listener() const {
    MutexLock lock(mutex_);
    return listener_;
}

} // namespace meridian::dcps

DDSDataReaderListener::DDSDataReaderListener()
    : link_(std::make_shared<meridian::dcps::ListenerLink>(this)) {}

DDSDataReaderListener::~DDSDataReaderListener() {
    detach();
}

void DDSDataReaderListener::detach() {
    link_->cut();
}
