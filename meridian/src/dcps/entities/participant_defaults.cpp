// The QoS that a participant gives to what is created under it.

#include <utility>

#include "dcps/entities/participant.h"

namespace meridian::dcps {

template <typename Qos>
DDS_ReturnCode_t ParticipantImpl::Profile::read(const char* topic_name, Qos& qos) const {
    std::string error;
    bool found = false;
    if constexpr (std::is_same_v<Qos, DDS_DataReaderQos>)
        found = store->datareader_qos(library, name, topic_name, qos, error);
    else if constexpr (std::is_same_v<Qos, DDS_TopicQos>)
        found = store->topic_qos(library, name, topic_name, qos, error);
    else
        found = store->subscriber_qos(library, name, qos, error);
    if (found)
        return DDS_RETCODE_OK;
    MERIDIAN_LOG_ERROR("dcps", "%s", error.c_str());
    return DDS_RETCODE_ERROR;
}

template <typename Qos>
DDS_ReturnCode_t ParticipantImpl::set_default_from_profile(const char* library, const char* profile,
                                                           const char* what) {
    if (library == nullptr || profile == nullptr)
        return DDS_RETCODE_BAD_PARAMETER;
    Profile source{profiles_(), library, profile};
    Qos qos;
    const DDS_ReturnCode_t result = source.read(nullptr, qos);
    return result == DDS_RETCODE_OK ? set_default(qos, what, std::move(source)) : result;
}

template DDS_ReturnCode_t ParticipantImpl::set_default_from_profile<DDS_TopicQos>(const char*, const char*,
                                                                                  const char*);
template DDS_ReturnCode_t ParticipantImpl::set_default_from_profile<DDS_SubscriberQos>(const char*,
                                                                                       const char*,
                                                                                       const char*);
template DDS_ReturnCode_t ParticipantImpl::set_default_from_profile<DDS_DataReaderQos>(const char*,
                                                                                       const char*,
                                                                                       const char*);

DDS_ReturnCode_t ParticipantImpl::default_datareader_qos_of_topic(DDS_DataReaderQos& qos,
                                                                  const char* topic_name) {
    MutexLock lock(mutex_);
    if (reader_profile_)
        return reader_profile_->read(topic_name, qos);
    qos = std::get<DDS_DataReaderQos>(defaults_);
    return DDS_RETCODE_OK;
}

} // namespace meridian::dcps
