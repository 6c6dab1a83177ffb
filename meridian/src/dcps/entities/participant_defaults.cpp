// The QoS that a participant gives to what is created under it.

#include <utility>

#include "dcps/common/qos_change.h"
#include "dcps/entities/participant.h"

namespace meridian::dcps {

namespace {

/// What a profile lookup left: logs why there is nothing.
DDS_ReturnCode_t lookup_result(bool found, const std::string& error) {
    if (found)
        return DDS_RETCODE_OK;
    MERIDIAN_LOG_ERROR("dcps", "%s", error.c_str());
    return DDS_RETCODE_ERROR;
}

} // namespace

template <typename Qos>
DDS_ReturnCode_t ParticipantImpl::get_default(Qos ParticipantImpl::*source, Qos& qos) {
    MutexLock lock(mutex_);
    qos = this->*source;
    return DDS_RETCODE_OK;
}

template <typename Qos>
DDS_ReturnCode_t ParticipantImpl::set_default(Qos ParticipantImpl::*target, const Qos& qos,
                                              const char* what) {
    if (!is_consistent(qos, what))
        return DDS_RETCODE_INCONSISTENT_POLICY;
    MutexLock lock(mutex_);
    this->*target = qos;
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t ParticipantImpl::get_default_topic_qos(DDS_TopicQos& qos) {
    return get_default(&ParticipantImpl::default_topic_qos_, qos);
}

DDS_ReturnCode_t ParticipantImpl::set_default_topic_qos(const DDS_TopicQos& qos) {
    return set_default(&ParticipantImpl::default_topic_qos_, qos, "topic");
}

DDS_ReturnCode_t ParticipantImpl::get_default_subscriber_qos(DDS_SubscriberQos& qos) {
    return get_default(&ParticipantImpl::default_subscriber_qos_, qos);
}

DDS_ReturnCode_t ParticipantImpl::set_default_subscriber_qos(const DDS_SubscriberQos& qos) {
    return set_default(&ParticipantImpl::default_subscriber_qos_, qos, "subscriber");
}

DDS_ReturnCode_t ParticipantImpl::get_default_datareader_qos(DDS_DataReaderQos& qos) {
    return get_default(&ParticipantImpl::default_reader_qos_, qos);
}

DDS_ReturnCode_t ParticipantImpl::set_default_datareader_qos(const DDS_DataReaderQos& qos) {
    if (!is_consistent(qos, "reader"))
        return DDS_RETCODE_INCONSISTENT_POLICY;
    MutexLock lock(mutex_);
    default_reader_qos_ = qos;
    reader_profile_.reset();
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t ParticipantImpl::set_default_topic_qos_with_profile(const char* library,
                                                                     const char* profile) {
    if (library == nullptr || profile == nullptr)
        return DDS_RETCODE_BAD_PARAMETER;
    DDS_TopicQos qos;
    std::string error;
    const bool found = profiles_.profiles()->topic_qos(library, profile, nullptr, qos, error);
    const DDS_ReturnCode_t result = lookup_result(found, error);
    return result == DDS_RETCODE_OK ? set_default_topic_qos(qos) : result;
}

DDS_ReturnCode_t ParticipantImpl::set_default_subscriber_qos_with_profile(const char* library,
                                                                          const char* profile) {
    if (library == nullptr || profile == nullptr)
        return DDS_RETCODE_BAD_PARAMETER;
    DDS_SubscriberQos qos;
    std::string error;
    const bool found = profiles_.profiles()->subscriber_qos(library, profile, qos, error);
    const DDS_ReturnCode_t result = lookup_result(found, error);
    return result == DDS_RETCODE_OK ? set_default_subscriber_qos(qos) : result;
}

DDS_ReturnCode_t ParticipantImpl::set_default_datareader_qos_with_profile(const char* library,
                                                                          const char* profile) {
    if (library == nullptr || profile == nullptr)
        return DDS_RETCODE_BAD_PARAMETER;
    ReaderProfile source{profiles_.profiles(), library, profile};
    DDS_DataReaderQos qos;
    std::string error;
    const bool found = source.store->datareader_qos(library, profile, nullptr, qos, error);
    const DDS_ReturnCode_t result = lookup_result(found, error);
    if (result != DDS_RETCODE_OK)
        return result;
    if (!is_consistent(qos, "reader"))
        return DDS_RETCODE_INCONSISTENT_POLICY;
    MutexLock lock(mutex_);
    default_reader_qos_ = qos;
    reader_profile_ = std::move(source);
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t ParticipantImpl::default_datareader_qos_of_topic(DDS_DataReaderQos& qos,
                                                                  const char* topic_name) {
    MutexLock lock(mutex_);
    if (!reader_profile_) {
        qos = default_reader_qos_;
        return DDS_RETCODE_OK;
    }
    std::string error;
    const bool found = reader_profile_->store->datareader_qos(
        reader_profile_->library, reader_profile_->profile, topic_name, qos, error);
    return lookup_result(found, error);
}

} // namespace meridian::dcps
