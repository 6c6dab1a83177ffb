#include "dcps/entities/publisher.h"

#include <utility>

namespace meridian::dcps {

DDSDataWriter* PublisherImpl::create_datawriter(DDSTopic* description, const DDS_DataWriterQos& qos,
                                                DDSDataWriterListener* listener, DDS_StatusMask /*mask*/) {
    if (listener != nullptr) {
        QUIXLog_badParameter("create_datawriter", "listener");
        return nullptr;
    }
    auto owned = make_endpoint(description, qos, [&](auto& topic, auto& type, const rtps::Guid& guid) {
        return UserWriter::create(*this, topic, type, guid, qos);
    });
    return owned != nullptr ? adopt(std::move(owned)) : nullptr;
}

DDS_ReturnCode_t PublisherImpl::get_default_datawriter_qos(DDS_DataWriterQos& qos) {
    MutexLock lock(mutex_);
    qos = default_qos_;
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t PublisherImpl::set_default_datawriter_qos(const DDS_DataWriterQos& qos) {
    if (!is_consistent(qos, "writer"))
        return DDS_RETCODE_INCONSISTENT_POLICY;
    MutexLock lock(mutex_);
    default_qos_ = qos;
    return DDS_RETCODE_OK;
}

} // namespace meridian::dcps
