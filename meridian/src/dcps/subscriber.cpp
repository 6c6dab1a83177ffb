#include "dcps/subscriber.h"

#include "dcps/participant.h"
#include "dcps/qos_change.h"

namespace meridian::dcps {

SubscriberImpl::SubscriberImpl(ParticipantImpl& participant, const rtps::Guid& guid,
                               const DDS_SubscriberQos& qos)
    : EntityImpl(guid), participant_(participant), qos_(qos) {}

DDS_ReturnCode_t SubscriberImpl::enable() {
    if (!participant_.is_enabled())
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    set_enabled();
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t SubscriberImpl::get_qos(DDS_SubscriberQos& qos) {
    MutexLock lock(mutex_);
    qos = qos_;
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t SubscriberImpl::set_qos(const DDS_SubscriberQos& qos) {
    MutexLock lock(mutex_);
    return change_qos(qos_, qos, is_enabled(), "subscriber");
}

DDSDomainParticipant* SubscriberImpl::get_participant() {
    return &participant_;
}

DDSDataReader* SubscriberImpl::lookup_datareader(const char* /*topic_name*/) {
    return nullptr;
}

DDS_ReturnCode_t SubscriberImpl::get_default_datareader_qos(DDS_DataReaderQos& qos) {
    {
        MutexLock lock(mutex_);
        if (default_reader_qos_) {
            qos = *default_reader_qos_;
            return DDS_RETCODE_OK;
        }
    }
    return participant_.get_default_datareader_qos(qos);
}

DDS_ReturnCode_t SubscriberImpl::set_default_datareader_qos(const DDS_DataReaderQos& qos) {
    if (!is_consistent(qos, "reader"))
        return DDS_RETCODE_INCONSISTENT_POLICY;
    MutexLock lock(mutex_);
    default_reader_qos_ = qos;
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t SubscriberImpl::get_default_datareader_qos_w_topic_name(DDS_DataReaderQos& qos,
                                                                         const char* topic_name) {
    if (topic_name == nullptr)
        return DDS_RETCODE_BAD_PARAMETER;
    {
        MutexLock lock(mutex_);
        if (default_reader_qos_) {
            qos = *default_reader_qos_;
            return DDS_RETCODE_OK;
        }
    }
    return participant_.default_datareader_qos_of_topic(qos, topic_name);
}

} // namespace meridian::dcps
