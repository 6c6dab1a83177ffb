#pragma once

// What subscribers and publishers have in common.

#include <cstring>
#include <iterator>
#include <list>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "dcps/common/entity_impl.h"
#include "dcps/common/qos_change.h"
#include "dcps/endpoints/endpoint_qos.h"
#include "dcps/endpoints/owned_endpoint.h"
#include "dcps/entities/participant.h"
#include "platform/mutex.h"

namespace meridian::dcps {

/// A subscriber with its readers, or a publisher with its writers; see SubscriberImpl and PublisherImpl for
/// what the traits say. Owned by the participant.
template <typename Traits>
class EndpointGroup : public EntityImpl<typename Traits::Owner> {
  public:
    using Kind = Traits;
    using Qos = typename Traits::Qos;
    using Untyped = typename Traits::Untyped;
    using Face = typename Traits::Face;
    using Owned = OwnedEndpoint<Untyped, Face>;

    bool has_endpoints() {
        MutexLock lock(mutex_);
        return !endpoints_.empty();
    }
    /// Hands over all endpoints, for their end outside of any lock.
    std::vector<std::unique_ptr<Owned>> release_endpoints() {
        MutexLock lock(mutex_);
        by_face_.clear();
        std::vector<std::unique_ptr<Owned>> all(std::make_move_iterator(endpoints_.begin()),
                                                std::make_move_iterator(endpoints_.end()));
        endpoints_.clear();
        return all;
    }

    DDS_ReturnCode_t enable_endpoint(Untyped& endpoint) override {
        MutexLock lock(mutex_);
        return start(endpoint);
    }
    DDS_ReturnCode_t enable() override {
        if (!participant_.is_enabled())
            return DDS_RETCODE_PRECONDITION_NOT_MET;
        MutexLock lock(mutex_);
        this->set_enabled();
        if (qos_.entity_factory.autoenable_created_entities) {
            for (const auto& owned : endpoints_)
                start(owned->untyped());
        }
        return DDS_RETCODE_OK;
    }
    DDS_ReturnCode_t get_qos(Qos& qos) override {
        MutexLock lock(mutex_);
        qos = qos_;
        return DDS_RETCODE_OK;
    }
    DDS_ReturnCode_t set_qos(const Qos& qos) override {
        MutexLock lock(mutex_);
        const DDS_ReturnCode_t result = change_qos(qos_, qos, this->is_enabled(), Traits::kName);
        if (result != DDS_RETCODE_OK)
            return result;
        for (const auto& owned : endpoints_)
            owned->untyped().set_group(qos_);
        return DDS_RETCODE_OK;
    }
    DDSDomainParticipant* get_participant() override { return &participant_; }

  protected:
    EndpointGroup(ParticipantImpl& participant, const rtps::Guid& guid, const Qos& qos)
        : EntityImpl<typename Traits::Owner>(guid), participant_(participant), qos_(qos) {}
    ~EndpointGroup() override = default;

    /// `make(topic, type, guid)` makes the untyped endpoint, around which the type support makes the face.
    /// Null with a logged reason.
    template <typename EndpointQos, typename Make>
    std::unique_ptr<Owned> make_endpoint(DDSTopicDescription* description, const EndpointQos& qos,
                                         Make make) {
        std::shared_ptr<TopicImpl> topic = participant_.use_topic(description);
        if (topic == nullptr) {
            QUIXLog_badParameter(Traits::kCreate, "topic");
            return nullptr;
        }
        if (!is_consistent(qos, Traits::kEndpointName))
            return nullptr;
        const TypeRegistry::Type& type = topic->type();
        const rtps::EntityKind kind = type->is_keyed() ? Traits::kWithKey : Traits::kNoKey;
        std::unique_ptr<Untyped> untyped = make(*topic, type, participant_.new_guid(kind));
        if (untyped == nullptr)
            return nullptr;
        DDSTypeSupport* support = type->type_support();
        Face* face = support != nullptr ? (support->*Traits::kCreateFace)(untyped.get()) : nullptr;
        if (support != nullptr && face == nullptr) {
            QUIXLog_creationFailure(Traits::kCreate, Traits::kFaceName);
            return nullptr;
        }
        return std::make_unique<Owned>(std::move(untyped), std::move(topic), face, Traits::kDestroyFace);
    }
    /// Takes the endpoint over, and starts it where that is to happen by itself.
    Face* adopt(std::unique_ptr<Owned> owned) MERIDIAN_EXCLUDES(mutex_) {
        Owned& endpoint = *owned;
        MutexLock lock(mutex_);
        by_face_[endpoint.face()] = endpoints_.insert(endpoints_.end(), std::move(owned));
        if (this->is_enabled() && qos_.entity_factory.autoenable_created_entities)
            start(endpoint.untyped());
        return endpoint.face();
    }
    Face* find_endpoint(const char* topic_name) MERIDIAN_EXCLUDES(mutex_) {
        if (topic_name == nullptr)
            return nullptr;
        MutexLock lock(mutex_);
        for (const auto& owned : endpoints_) {
            if (std::strcmp(owned->topic().get_name(), topic_name) == 0)
                return owned->face();
        }
        return nullptr;
    }
    DDS_ReturnCode_t delete_endpoint(const Face* face) MERIDIAN_EXCLUDES(mutex_) {
        std::unique_ptr<Owned> removed; // ends outside of the lock: a callback in progress may ask this group
        MutexLock lock(mutex_);
        const auto found = by_face_.find(face);
        if (found == by_face_.end() || Traits::is_in_use((*found->second)->untyped()))
            return DDS_RETCODE_PRECONDITION_NOT_MET;
        removed = std::move(*found->second);
        endpoints_.erase(found->second);
        by_face_.erase(found);
        return DDS_RETCODE_OK;
    }

    ParticipantImpl& participant_;
    Mutex mutex_;

  private:
    using Endpoints = std::list<std::unique_ptr<Owned>>;

    DDS_ReturnCode_t start(Untyped& endpoint) MERIDIAN_REQUIRES(mutex_) {
        if (endpoint.is_enabled())
            return DDS_RETCODE_OK;
        rtps::net::Runtime* runtime = participant_.runtime();
        if (!this->is_enabled() || runtime == nullptr)
            return DDS_RETCODE_PRECONDITION_NOT_MET;
        if (endpoint.start(*runtime, qos_))
            return DDS_RETCODE_OK;
        MERIDIAN_LOG_ERROR("dcps", "the %s of topic \"%s\" could not be started", Traits::kEndpointName,
                           endpoint.topic().get_name());
        return DDS_RETCODE_ERROR;
    }

    Qos qos_ MERIDIAN_GUARDED_BY(mutex_);
    Endpoints endpoints_ MERIDIAN_GUARDED_BY(mutex_); // in the order of their creation
    std::unordered_map<const Face*, typename Endpoints::iterator> by_face_ MERIDIAN_GUARDED_BY(mutex_);
};

} // namespace meridian::dcps
