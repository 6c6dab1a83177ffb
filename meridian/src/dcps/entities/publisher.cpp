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

} // namespace meridian::dcps
