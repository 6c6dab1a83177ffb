#include "dcps/entities/subscriber.h"

#include <utility>

#include "discovery/conversions.h"

namespace meridian::dcps {

discovery::AnnouncementWatch& SubscriberImpl::announcements() const {
    return participant_.announcements();
}

DDS_ReturnCode_t SubscriberImpl::participant_of_endpoint(DDS_ParticipantBuiltinTopicData& data,
                                                         const DDS_InstanceHandle_t& endpoint) {
    const auto guid = discovery::to_guid(endpoint);
    return guid ? participant_.describe(guid->prefix, data) : DDS_RETCODE_BAD_PARAMETER;
}

DDSDataReader* SubscriberImpl::create_datareader(DDSTopicDescription* description,
                                                 const DDS_DataReaderQos& qos,
                                                 DDSDataReaderListener* listener, DDS_StatusMask mask) {
    auto owned = make_endpoint(description, qos, [&](auto& topic, auto& type, const rtps::Guid& guid) {
        return UserReader::create(*this, topic, type, guid, qos, participant_.delivery());
    });
    if (owned == nullptr)
        return nullptr;
    owned->untyped().set_face(owned->face());
    owned->untyped().set_listener(listener, mask);
    return adopt(std::move(owned));
}

DDS_ReturnCode_t SubscriberImpl::get_default_datareader_qos(DDS_DataReaderQos& qos) {
    return participant_.get_default_datareader_qos(qos);
}

DDS_ReturnCode_t SubscriberImpl::get_default_datareader_qos_w_topic_name(DDS_DataReaderQos& qos,
                                                                         const char* topic_name) {
    return topic_name != nullptr ? participant_.default_datareader_qos_of_topic(qos, topic_name)
                                 : DDS_RETCODE_BAD_PARAMETER;
}

} // namespace meridian::dcps
