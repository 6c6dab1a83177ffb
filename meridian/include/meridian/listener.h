#pragma once

// Listener interfaces (OMG DDS 1.4, 2.2.2.5.6). Callbacks run on the delivery thread of the participant, one
// at a time per reader, with no lock of the library held: a callback may call any operation except deleting
// its own reader.

#include <memory>

#include "meridian/status.h"

class DDSDataReader;

namespace meridian::dcps {
class ListenerLink;
}

class DDSListener {
  public:
    virtual ~DDSListener() = default;
};

class DDSDataReaderListener : public virtual DDSListener {
  public:
    DDSDataReaderListener();
    /// Detaches.
    ~DDSDataReaderListener() override;
    DDSDataReaderListener(const DDSDataReaderListener&) = delete;
    DDSDataReaderListener& operator=(const DDSDataReaderListener&) = delete;

    virtual void on_requested_deadline_missed(DDSDataReader*, const DDS_RequestedDeadlineMissedStatus&) {}
    virtual void on_liveliness_changed(DDSDataReader*, const DDS_LivelinessChangedStatus&) {}
    virtual void on_requested_incompatible_qos(DDSDataReader*, const DDS_RequestedIncompatibleQosStatus&) {}
    virtual void on_sample_rejected(DDSDataReader*, const DDS_SampleRejectedStatus&) {}
    virtual void on_data_available(DDSDataReader*) {}
    virtual void on_sample_lost(DDSDataReader*, const DDS_SampleLostStatus&) {}
    virtual void on_subscription_matched(DDSDataReader*, const DDS_SubscriptionMatchedStatus&) {}
    /// Not of the standard: nothing more is to be delivered at present. Comes, after one or several calls of
    /// listeners of data readers, to the last of them: what all of these put off is done now. It does not
    /// come where the reader of the last one is deleted meanwhile.
    virtual void on_deliveries_end() {}

    /// Parts the listener from every reader for good and returns when no callback runs on another thread. A
    /// class that callbacks touch members of calls this first in its destructor: when the one of this base
    /// runs, they are gone.
    void detach();

  private:
    friend class meridian::dcps::ListenerLink;
    std::shared_ptr<meridian::dcps::ListenerLink> link_;
};
