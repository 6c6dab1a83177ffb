#pragma once

#include <memory>

#include "dcps/conditions/status_condition.h"
#include "dcps/delivery/delivery_thread.h"
#include "dcps/delivery/listener_link.h"
#include "meridian/listener.h"

namespace meridian::dcps {

/// Says of one reader which statuses changed: to its status condition at once, to its listener by a call on
/// the delivery thread, which its owner wakes. Not thread-safe; the reader that owns it locks.
class ReaderNotices {
  public:
    /// What a listener is to be told in one call.
    struct Call {
        std::shared_ptr<ListenerLink> link; // null: no listener
        DDS_StatusMask statuses = DDS_STATUS_MASK_NONE;
    };

    /// All must outlive the notices; `reader` is called on the delivery thread.
    ReaderNotices(StatusCondition& condition, DeliveryThread& delivery, Deliverable& reader)
        : condition_(condition), delivery_(delivery), reader_(reader) {}

    /// Before anything happens.
    void set_listener(DDSDataReaderListener* listener, DDS_StatusMask mask);
    /// Null without a listener.
    const std::shared_ptr<ListenerLink>& link() const { return link_; }

    /// The statuses changed: a call on the delivery thread follows.
    void changed(DDS_StatusMask statuses);
    /// The same on the delivery thread, before next_call.
    void changed_in_call(DDS_StatusMask statuses);
    /// The statuses were read.
    void read(DDS_StatusMask statuses);
    /// On the delivery thread: what to tell now.
    Call next_call();

  private:
    StatusCondition& condition_;
    DeliveryThread& delivery_;
    Deliverable& reader_;
    std::shared_ptr<ListenerLink> link_;
    DDS_StatusMask mask_ = DDS_STATUS_MASK_NONE;
    DDS_StatusMask to_tell_ = DDS_STATUS_MASK_NONE; // the listener was not told of these yet
};

} // namespace meridian::dcps
