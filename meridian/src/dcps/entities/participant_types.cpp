// The types and topics of a participant.

#include <utility>

#include "dcps/entities/participant.h"

namespace meridian::dcps {

namespace {

constexpr uint32_t kTopicKind = 0x05;

} // namespace

rtps::Guid ParticipantImpl::new_guid(rtps::EntityKind kind) {
    return {guid().prefix, shared_.own->new_entity(kind)};
}

DDS_Boolean ParticipantImpl::is_type_registered(const char* type_name) {
    return type_name != nullptr && types_.find(type_name) != nullptr;
}

const DDS_TypeCode* ParticipantImpl::get_typecode(const char* type_name) {
    const TypeRegistry::Type type = type_name != nullptr ? types_.find(type_name) : nullptr;
    return type != nullptr ? type->plugin().typeCode : nullptr;
}

std::shared_ptr<TopicImpl> ParticipantImpl::use_topic(DDSTopicDescription* description) {
    MutexLock lock(mutex_);
    const auto found = topics_.find(description);
    return found == topics_.end() ? nullptr : found->second;
}

DDSTopicDescription* ParticipantImpl::lookup_topicdescription(const char* topic_name) {
    if (topic_name == nullptr)
        return nullptr;
    MutexLock lock(mutex_);
    return find_topic(topic_name);
}

TopicImpl* ParticipantImpl::find_topic(const char* topic_name) {
    const auto found = topics_by_name_.find(topic_name);
    return found == topics_by_name_.end() ? nullptr : found->second;
}

DDSTopic* ParticipantImpl::create_topic(const char* topic_name, const char* type_name,
                                        const DDS_TopicQos& qos, DDSTopicListener* listener,
                                        DDS_StatusMask /*mask*/) {
    if (topic_name == nullptr || *topic_name == '\0') {
        QUIXLog_badParameter("create_topic", "topic_name");
        return nullptr;
    }
    if (listener != nullptr) {
        QUIXLog_badParameter("create_topic", "listener");
        return nullptr;
    }
    TypeRegistry::Type type = type_name != nullptr ? types_.find(type_name) : nullptr;
    if (type == nullptr) {
        MERIDIAN_LOG_ERROR("dcps", "topic \"%s\": its type \"%s\" is not registered", topic_name,
                           type_name != nullptr ? type_name : "(null)");
        return nullptr;
    }
    if (!is_consistent(qos, "topic"))
        return nullptr;
    MutexLock lock(mutex_);
    if (find_topic(topic_name) != nullptr) {
        MERIDIAN_LOG_ERROR("dcps", "topic \"%s\" exists already", topic_name);
        return nullptr;
    }
    const rtps::EntityId entity{++topics_made_ << 8 | kTopicKind};
    auto made = std::make_shared<TopicImpl>(*this, rtps::Guid{guid().prefix, entity}, topic_name, type_name,
                                            qos, std::move(type));
    TopicImpl* topic = made.get();
    topics_.emplace(topic, std::move(made));
    topics_by_name_.emplace(topic_name, topic);
    topic->enable();
    return topic;
}

DDS_ReturnCode_t ParticipantImpl::delete_topic(DDSTopic* topic) {
    std::shared_ptr<TopicImpl> removed; // ends outside of the lock
    MutexLock lock(mutex_);
    const auto found = topics_.find(topic);
    if (found == topics_.end())
        return DDS_RETCODE_BAD_PARAMETER;
    if (found->second.use_count() > 1)
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    removed = std::move(found->second);
    topics_by_name_.erase(removed->get_name());
    topics_.erase(found);
    return DDS_RETCODE_OK;
}

} // namespace meridian::dcps
