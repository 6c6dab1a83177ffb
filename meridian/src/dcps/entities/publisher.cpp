#include "dcps/entities/publisher.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "dcps/common/qos_change.h"
#include "dcps/entities/participant.h"

namespace meridian::dcps {

PublisherImpl::PublisherImpl(ParticipantImpl& participant, const rtps::Guid& guid,
                             const DDS_PublisherQos& qos)
    : EntityImpl(guid), participant_(participant), qos_(qos) {}

DDS_ReturnCode_t PublisherImpl::enable() {
    if (!participant_.is_enabled())
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    MutexLock lock(mutex_);
    set_enabled();
    if (qos_.entity_factory.autoenable_created_entities) {
        for (const auto& owned : writers_)
            start(owned->untyped());
    }
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t PublisherImpl::enable_writer(UserWriter& writer) {
    MutexLock lock(mutex_);
    return start(writer);
}

DDS_ReturnCode_t PublisherImpl::start(UserWriter& writer) {
    if (writer.is_enabled())
        return DDS_RETCODE_OK;
    rtps::net::Runtime* runtime = participant_.runtime();
    if (!is_enabled() || runtime == nullptr)
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    if (writer.start(*runtime, GroupQos(qos_)))
        return DDS_RETCODE_OK;
    MERIDIAN_LOG_ERROR("dcps", "the writer of topic \"%s\" could not be started",
                       writer.get_topic()->get_name());
    return DDS_RETCODE_ERROR;
}

bool PublisherImpl::has_writers() {
    MutexLock lock(mutex_);
    return !writers_.empty();
}

DDS_ReturnCode_t PublisherImpl::get_qos(DDS_PublisherQos& qos) {
    MutexLock lock(mutex_);
    qos = qos_;
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t PublisherImpl::set_qos(const DDS_PublisherQos& qos) {
    MutexLock lock(mutex_);
    const DDS_ReturnCode_t result = change_qos(qos_, qos, is_enabled(), "publisher");
    if (result != DDS_RETCODE_OK)
        return result;
    for (const auto& owned : writers_)
        owned->untyped().set_group(GroupQos(qos_));
    return DDS_RETCODE_OK;
}

DDSDomainParticipant* PublisherImpl::get_participant() {
    return &participant_;
}

DDSDataWriter* PublisherImpl::lookup_datawriter(const char* topic_name) {
    if (topic_name == nullptr)
        return nullptr;
    MutexLock lock(mutex_);
    for (const auto& owned : writers_) {
        if (std::strcmp(owned->topic().get_name(), topic_name) == 0)
            return owned->face();
    }
    return nullptr;
}

DDSDataWriter* PublisherImpl::create_datawriter(DDSTopic* description, const DDS_DataWriterQos& qos,
                                                DDSDataWriterListener* listener, DDS_StatusMask /*mask*/) {
    if (listener != nullptr) {
        QUIXLog_badParameter("create_datawriter", "listener");
        return nullptr;
    }
    std::unique_ptr<TopicUse> topic = participant_.use_topic(description);
    if (topic == nullptr) {
        QUIXLog_badParameter("create_datawriter", "topic");
        return nullptr;
    }
    if (!is_consistent(qos, "writer"))
        return nullptr;
    const TypeRegistry::Type& type = topic->topic().type();
    const rtps::EntityKind kind = type->is_keyed() ? rtps::kUserWriterWithKey : rtps::kUserWriterNoKey;
    std::unique_ptr<UserWriter> untyped =
        UserWriter::create(*this, topic->topic(), type, participant_.new_guid(kind), qos);
    if (untyped == nullptr)
        return nullptr;
    DDSTypeSupport* support = type->type_support();
    DDSDataWriter* face = support != nullptr ? support->create_datawriterI(untyped.get()) : nullptr;
    if (support != nullptr && face == nullptr) {
        QUIXLog_creationFailure("create_datawriter", "TDataWriter");
        return nullptr;
    }
    auto owned = std::make_unique<OwnedWriter>(std::move(untyped), std::move(topic), face,
                                               &DDSTypeSupport::destroy_datawriterI);
    MutexLock lock(mutex_);
    writers_.push_back(std::move(owned));
    if (is_enabled() && qos_.entity_factory.autoenable_created_entities)
        start(writers_.back()->untyped());
    return writers_.back()->face();
}

DDS_ReturnCode_t PublisherImpl::delete_datawriter(DDSDataWriter* writer) {
    std::unique_ptr<OwnedWriter> removed; // ends outside of the lock
    MutexLock lock(mutex_);
    const auto found = std::find_if(writers_.begin(), writers_.end(),
                                    [writer](const auto& owned) { return owned->face() == writer; });
    if (found == writers_.end())
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    removed = std::move(*found);
    writers_.erase(found);
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t PublisherImpl::get_default_datawriter_qos(DDS_DataWriterQos& qos) {
    MutexLock lock(mutex_);
    qos = default_writer_qos_;
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t PublisherImpl::set_default_datawriter_qos(const DDS_DataWriterQos& qos) {
    if (!is_consistent(qos, "writer"))
        return DDS_RETCODE_INCONSISTENT_POLICY;
    MutexLock lock(mutex_);
    default_writer_qos_ = qos;
    return DDS_RETCODE_OK;
}

} // namespace meridian::dcps
