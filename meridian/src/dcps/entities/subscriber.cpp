#include "dcps/entities/subscriber.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "dcps/common/qos_change.h"
#include "dcps/entities/participant.h"
#include "discovery/conversions.h"

namespace meridian::dcps {

SubscriberImpl::SubscriberImpl(ParticipantImpl& participant, const rtps::Guid& guid,
                               const DDS_SubscriberQos& qos)
    : EntityImpl(guid), participant_(participant), qos_(qos) {}

DDS_ReturnCode_t SubscriberImpl::enable() {
    if (!participant_.is_enabled())
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    MutexLock lock(mutex_);
    set_enabled();
    if (qos_.entity_factory.autoenable_created_entities) {
        for (const auto& owned : readers_)
            start(owned->untyped());
    }
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t SubscriberImpl::enable_reader(UserReader& reader) {
    MutexLock lock(mutex_);
    const bool ours = std::any_of(readers_.begin(), readers_.end(),
                                  [&reader](const auto& owned) { return &owned->untyped() == &reader; });
    return ours ? start(reader) : DDS_RETCODE_PRECONDITION_NOT_MET;
}

DDS_ReturnCode_t SubscriberImpl::start(UserReader& reader) {
    if (reader.is_enabled())
        return DDS_RETCODE_OK;
    rtps::net::Runtime* runtime = participant_.runtime();
    if (!is_enabled() || runtime == nullptr)
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    if (reader.start(*runtime, GroupQos(qos_)))
        return DDS_RETCODE_OK;
    MERIDIAN_LOG_ERROR("dcps", "the reader of topic \"%s\" could not be started",
                       reader.get_topicdescription()->get_name());
    return DDS_RETCODE_ERROR;
}

bool SubscriberImpl::has_readers() {
    MutexLock lock(mutex_);
    return !readers_.empty();
}

OwnedReaders SubscriberImpl::release_readers() {
    MutexLock lock(mutex_);
    return std::exchange(readers_, {});
}

discovery::EndpointCache& SubscriberImpl::publications() const {
    return participant_.store().publications();
}

DDS_ReturnCode_t SubscriberImpl::participant_of_endpoint(DDS_ParticipantBuiltinTopicData& data,
                                                         const DDS_InstanceHandle_t& endpoint) {
    const auto guid = discovery::to_guid(endpoint);
    const auto known = guid ? participant_.store().find_participant(guid->prefix) : nullptr;
    if (known == nullptr)
        return DDS_RETCODE_BAD_PARAMETER;
    data = participant_.describe(*known);
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t SubscriberImpl::get_qos(DDS_SubscriberQos& qos) {
    MutexLock lock(mutex_);
    qos = qos_;
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t SubscriberImpl::set_qos(const DDS_SubscriberQos& qos) {
    MutexLock lock(mutex_);
    const DDS_ReturnCode_t result = change_qos(qos_, qos, is_enabled(), "subscriber");
    if (result != DDS_RETCODE_OK)
        return result;
    for (const auto& owned : readers_)
        owned->untyped().set_group(GroupQos(qos_));
    return DDS_RETCODE_OK;
}

DDSDomainParticipant* SubscriberImpl::get_participant() {
    return &participant_;
}

DDSDataReader* SubscriberImpl::lookup_datareader(const char* topic_name) {
    if (topic_name == nullptr)
        return nullptr;
    MutexLock lock(mutex_);
    for (const auto& owned : readers_) {
        if (std::strcmp(owned->topic().get_name(), topic_name) == 0)
            return owned->face();
    }
    return nullptr;
}

DDSDataReader* SubscriberImpl::create_datareader(DDSTopicDescription* description,
                                                 const DDS_DataReaderQos& qos,
                                                 DDSDataReaderListener* listener, DDS_StatusMask mask) {
    std::unique_ptr<TopicUse> topic = participant_.use_topic(description);
    if (topic == nullptr) {
        QUIXLog_badParameter("create_datareader", "topic");
        return nullptr;
    }
    if (!is_consistent(qos, "reader"))
        return nullptr;
    const TypeRegistry::Type& type = topic->topic().type();
    const rtps::EntityKind kind = type->is_keyed() ? rtps::kUserReaderWithKey : rtps::kUserReaderNoKey;
    std::unique_ptr<UserReader> untyped = UserReader::create(
        *this, topic->topic(), type, participant_.new_guid(kind), qos, participant_.delivery());
    if (untyped == nullptr)
        return nullptr;
    DDSTypeSupport* support = type->type_support();
    DDSDataReader* face = support != nullptr ? support->create_datareaderI(untyped.get()) : nullptr;
    if (support != nullptr && face == nullptr) {
        QUIXLog_creationFailure("create_datareader", "TDataReader");
        return nullptr;
    }
    auto owned = std::make_unique<OwnedReader>(std::move(untyped), std::move(topic), face,
                                               &DDSTypeSupport::destroy_datareaderI);
    UserReader& reader = owned->untyped();
    reader.set_face(owned->face());
    reader.set_listener(listener, mask);
    MutexLock lock(mutex_);
    readers_.push_back(std::move(owned));
    if (is_enabled() && qos_.entity_factory.autoenable_created_entities)
        start(reader);
    return readers_.back()->face();
}

DDS_ReturnCode_t SubscriberImpl::delete_datareader(DDSDataReader* reader) {
    std::unique_ptr<OwnedReader>
        removed; // ends outside of the lock: a callback in progress may ask this subscriber
    MutexLock lock(mutex_);
    const auto found = std::find_if(readers_.begin(), readers_.end(),
                                    [reader](const auto& owned) { return owned->face() == reader; });
    if (found == readers_.end() || (*found)->untyped().has_loans())
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    removed = std::move(*found);
    readers_.erase(found);
    return DDS_RETCODE_OK;
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
