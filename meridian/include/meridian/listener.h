#pragma once

// Listener interfaces (OMG DDS 1.4, 2.2.2.5.6). Callbacks run on the delivery thread of the participant, one
// at a time per reader, with no lock of the library held: a callback may call any operation except deleting
// its own reader.

#include "meridian/status.h"

class DDSDataReader;

class DDSListener {
  public:
    virtual ~DDSListener() = default;
};

class DDSDataReaderListener : public virtual DDSListener {
  public:
    virtual void on_requested_deadline_missed(DDSDataReader*, const DDS_RequestedDeadlineMissedStatus&) {}
    virtual void on_liveliness_changed(DDSDataReader*, const DDS_LivelinessChangedStatus&) {}
    virtual void on_requested_incompatible_qos(DDSDataReader*, const DDS_RequestedIncompatibleQosStatus&) {}
    virtual void on_sample_rejected(DDSDataReader*, const DDS_SampleRejectedStatus&) {}
    virtual void on_data_available(DDSDataReader*) {}
    virtual void on_sample_lost(DDSDataReader*, const DDS_SampleLostStatus&) {}
    virtual void on_subscription_matched(DDSDataReader*, const DDS_SubscriptionMatchedStatus&) {}
};
