#include "dcps/delivery/listener_link.h"

namespace meridian::dcps {

DDSDataReaderListener* ListenerLink::enter() {
    MutexLock lock(mutex_);
    if (listener_ != nullptr)
        caller_ = std::this_thread::get_id();
    return listener_;
}

void ListenerLink::leave() {
    MutexLock lock(mutex_);
    caller_ = {};
    changed_.notify_all();
}

void ListenerLink::cut() {
    MutexLock lock(mutex_);
    listener_ = nullptr;
    while (caller_ != std::thread::id() && caller_ != std::this_thread::get_id())
        changed_.wait(mutex_);
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
