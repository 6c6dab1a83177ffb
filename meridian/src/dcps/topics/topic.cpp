#include "dcps/topics/topic.h"

#include <utility>

DDSTopic* DDSTopic::narrow(DDSTopicDescription* description) {
    return dynamic_cast<DDSTopic*>(description);
}

namespace meridian::dcps {

TopicImpl::TopicImpl(Participant& participant, const rtps::Guid& guid, std::string name,
                     std::string type_name, const DDS_TopicQos& qos, TypeRegistry::Type type)
    : EntityImpl(guid),
      participant_(participant),
      name_(std::move(name)),
      type_name_(std::move(type_name)),
      type_(std::move(type)),
      qos_(qos) {}

DDS_ReturnCode_t TopicImpl::enable() {
    if (!participant_.is_enabled())
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    set_enabled();
    return DDS_RETCODE_OK;
}

DDSDomainParticipant* TopicImpl::get_participant() {
    return &participant_;
}

DDS_ReturnCode_t TopicImpl::get_qos(DDS_TopicQos& qos) {
    qos = qos_;
    return DDS_RETCODE_OK;
}

} // namespace meridian::dcps
