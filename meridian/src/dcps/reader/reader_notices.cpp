#include "dcps/reader/reader_notices.h"

#include <utility>

namespace meridian::dcps {

void ReaderNotices::set_listener(DDSDataReaderListener* listener, DDS_StatusMask mask) {
    link_ = listener != nullptr ? ListenerLink::of(*listener) : nullptr;
    mask_ = mask;
}

void ReaderNotices::changed(DDS_StatusMask statuses) {
    const bool news = (statuses & ~to_tell_) != 0;
    changed_in_call(statuses);
    if (news)
        delivery_.note(reader_);
}

void ReaderNotices::changed_in_call(DDS_StatusMask statuses) {
    condition_.set_changed(statuses);
    to_tell_ |= statuses;
}

void ReaderNotices::read(DDS_StatusMask statuses) {
    condition_.set_read(statuses);
}

ReaderNotices::Call ReaderNotices::next_call() {
    return {link_, std::exchange(to_tell_, DDS_STATUS_MASK_NONE) & mask_};
}

} // namespace meridian::dcps
