#include "dcps/entities/participant.h"

#include <algorithm>
#include <utility>

#include "dcps/entities/publisher.h"
#include "dcps/entities/subscriber.h"
#include "discovery/builtin_data.h"
#include "discovery/conversions.h"
#include "platform/clock.h"
#include "platform/log.h"

namespace meridian::dcps {

namespace {

bool same_guid_words(const DDS_WireProtocolQosPolicy& a, const DDS_WireProtocolQosPolicy& b) {
    return a.rtps_host_id == b.rtps_host_id && a.rtps_app_id == b.rtps_app_id &&
           a.rtps_instance_id == b.rtps_instance_id;
}

} // namespace

ParticipantImpl::ParticipantImpl(DDS_DomainId_t domain_id, const DDS_DomainParticipantQos& qos,
                                 const rtps::GuidPrefix& prefix, const SharedParts& shared,
                                 ProfileSource profiles)
    : EntityImpl(discovery::participant_guid(prefix)),
      domain_id_(domain_id),
      shared_(shared),
      profiles_(std::move(profiles)),
      store_(partitions_of(qos)),
      announcements_(shared.publications, domain_id, store_.publications()),
      builtin_subscriber_(*this),
      qos_(qos) {}

ParticipantImpl::~ParticipantImpl() {
    delete_contained_entities();
    if (type_lookup_ != nullptr)
        type_lookup_->detach();
}

bool ParticipantImpl::check(std::string& error) {
    MutexLock lock(mutex_);
    const auto wanted = config(transports_, error);
    return wanted && rtps::net::Runtime::check(*wanted, error);
}

bool ParticipantImpl::has_entities() {
    MutexLock lock(mutex_);
    return !subscribers_.all.empty() || !publishers_.all.empty() || !topics_.empty();
}

TransportProperties ParticipantImpl::transport_properties() {
    MutexLock lock(mutex_);
    return transports_;
}

DDS_ReturnCode_t ParticipantImpl::set_transport_properties(const TransportProperties& properties) {
    MutexLock lock(mutex_);
    if (is_enabled())
        return DDS_RETCODE_ILLEGAL_OPERATION;
    std::string error;
    const auto wanted = config(properties, error);
    if (!wanted || !rtps::net::check(wanted->transport, error)) {
        MERIDIAN_LOG_ERROR("dcps", "transport property: %s", error.c_str());
        return DDS_RETCODE_BAD_PARAMETER;
    }
    transports_ = properties;
    return DDS_RETCODE_OK;
}

std::optional<rtps::net::RuntimeConfig> ParticipantImpl::config(const TransportProperties& transports,
                                                                std::string& error) {
    return runtime_config(domain_id_, qos_, transports, guid().prefix, shared_.own, error);
}

DDS_ReturnCode_t ParticipantImpl::enable() {
    MutexLock lock(mutex_);
    if (is_enabled())
        return DDS_RETCODE_OK;
    std::string error;
    if (!open(error)) {
        MERIDIAN_LOG_ERROR("dcps", "cannot enable the participant of domain %d: %s", domain_id_,
                           error.c_str());
        return DDS_RETCODE_ERROR;
    }
    set_enabled();
    builtin_subscriber_.enable();
    if (qos_.entity_factory.autoenable_created_entities) {
        for (const auto& subscriber : subscribers_.all)
            subscriber->enable();
        for (const auto& publisher : publishers_.all)
            publisher->enable();
    }
    return DDS_RETCODE_OK;
}

bool ParticipantImpl::open(std::string& error) {
    auto wanted = config(transports_, error);
    // Before the participant is announced: without the thread no listener could be called.
    if (!wanted || !shared_.delivery->start(error))
        return false;
    wanted->participant.additional_builtin_endpoints |= types::TypeLookupClient::kBuiltinEndpoints;
    auto runtime = rtps::net::Runtime::create(std::move(*wanted), store_, error);
    if (runtime == nullptr)
        return false;
    types::TypeResolver::Settings types;
    types.max_type_size = max_type_size(qos_);
    type_lookup_ = std::make_unique<types::TypeLookupClient>(
        shared_.type_resolvers->with(types),
        [documents = profiles_()](const std::string& type_name) { return documents->type(type_name); });
    const std::vector<rtps::GuidPrefix> ignored = ignored_;
    runtime->with_participant([&](rtps::Participant& participant, rtps::Now now) {
        for (const rtps::GuidPrefix& prefix : ignored)
            participant.ignore_participant(prefix, now);
        type_lookup_->attach(*runtime, participant, now);
    });
    if (!runtime->start(error)) {
        type_lookup_->detach();
        return false;
    }
    runtime_ = std::move(runtime);
    running_.store(runtime_.get(), std::memory_order_release);
    MERIDIAN_LOG_LOCAL("dcps", "participant %s of domain %d, index %u, on %s",
                       rtps::to_string(guid().prefix).c_str(), domain_id_, runtime_->participant_index(),
                       runtime_->describe_interfaces().c_str());
    return true;
}

DDS_ReturnCode_t ParticipantImpl::get_qos(DDS_DomainParticipantQos& qos) {
    MutexLock lock(mutex_);
    qos = qos_;
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t ParticipantImpl::set_qos(const DDS_DomainParticipantQos& qos) {
    MutexLock lock(mutex_);
    if (!same_guid_words(qos_.wire_protocol, qos.wire_protocol)) {
        MERIDIAN_LOG_ERROR("dcps", "QoS of the participant: the GUID was given out at creation");
        return DDS_RETCODE_IMMUTABLE_POLICY;
    }
    const DDS_ReturnCode_t result = change_qos(qos_, qos, is_enabled(), "participant");
    if (result != DDS_RETCODE_OK)
        return result;
    store_.set_own_partitions(partitions_of(qos_));
    if (runtime_ != nullptr) {
        const Announcement announcement = announcement_of(qos_);
        runtime_->with_participant([&announcement](rtps::Participant& participant, rtps::Now now) {
            participant.set_announcement(announcement.name, announcement.properties, announcement.user_data,
                                         now);
        });
    }
    return DDS_RETCODE_OK;
}

template <typename Group>
Group* ParticipantImpl::create_group(Groups<Group> ParticipantImpl::*groups, const typename Group::Qos& qos,
                                     bool has_listener) {
    using Kind = typename Group::Kind;
    if (has_listener) {
        QUIXLog_badParameter(Kind::kCreateGroup, "listener");
        return nullptr;
    }
    if (!is_consistent(qos, Kind::kName))
        return nullptr;
    MutexLock lock(mutex_);
    auto& [all, made] = this->*groups;
    const rtps::EntityId entity{++made << 8 | Kind::kGroupKind};
    all.push_back(std::make_unique<Group>(*this, rtps::Guid{guid().prefix, entity}, qos));
    if (is_enabled() && qos_.entity_factory.autoenable_created_entities)
        all.back()->enable();
    return all.back().get();
}

DDSSubscriber* ParticipantImpl::create_subscriber(const DDS_SubscriberQos& qos,
                                                  DDSSubscriberListener* listener, DDS_StatusMask /*mask*/) {
    return create_group(&ParticipantImpl::subscribers_, qos, listener != nullptr);
}

DDSPublisher* ParticipantImpl::create_publisher(const DDS_PublisherQos& qos, DDSPublisherListener* listener,
                                                DDS_StatusMask /*mask*/) {
    return create_group(&ParticipantImpl::publishers_, qos, listener != nullptr);
}

DDS_ReturnCode_t ParticipantImpl::delete_publisher(DDSPublisher* publisher) {
    if (publisher == nullptr)
        return DDS_RETCODE_BAD_PARAMETER;
    MutexLock lock(mutex_);
    auto& all = publishers_.all;
    const auto found = std::find_if(
        all.begin(), all.end(), [publisher](const auto& candidate) { return candidate.get() == publisher; });
    if (found == all.end() || (*found)->has_endpoints())
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    all.erase(found);
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t ParticipantImpl::default_datareader_qos_of_topic(DDS_DataReaderQos& qos,
                                                                  const char* topic_name) {
    MutexLock lock(mutex_);
    if (reader_profile_)
        return reader_profile_->read(topic_name, qos);
    qos = std::get<DDS_DataReaderQos>(defaults_);
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t ParticipantImpl::ignore_participant(const DDS_InstanceHandle_t& handle) {
    const auto ignored = discovery::to_guid(handle);
    if (!ignored || ignored->entity != rtps::entity::participant)
        return DDS_RETCODE_BAD_PARAMETER;
    if (shared_.own->contains(ignored->prefix))
        return DDS_RETCODE_OK; // never seen in the first place
    MutexLock lock(mutex_);
    if (runtime_ == nullptr) {
        ignored_.push_back(ignored->prefix);
        return DDS_RETCODE_OK;
    }
    runtime_->with_participant([&ignored](rtps::Participant& participant, rtps::Now now) {
        participant.ignore_participant(ignored->prefix, now);
    });
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t ParticipantImpl::get_discovered_participant_data(DDS_ParticipantBuiltinTopicData& data,
                                                                  const DDS_InstanceHandle_t& handle) {
    if (!is_enabled())
        return DDS_RETCODE_NOT_ENABLED;
    const auto wanted = discovery::to_guid(handle);
    if (!wanted || wanted->entity != rtps::entity::participant)
        return DDS_RETCODE_BAD_PARAMETER;
    return describe(wanted->prefix, data);
}

DDS_ReturnCode_t ParticipantImpl::describe(const rtps::GuidPrefix& remote,
                                           DDS_ParticipantBuiltinTopicData& data) {
    const auto known = store_.find_participant(remote);
    if (known == nullptr)
        return DDS_RETCODE_BAD_PARAMETER;
    data = describe(*known);
    return DDS_RETCODE_OK;
}

DDS_ParticipantBuiltinTopicData ParticipantImpl::describe(const rtps::ParticipantData& remote) const {
    return discovery::to_participant_data(remote, static_cast<uint32_t>(domain_id_));
}

DDS_ReturnCode_t ParticipantImpl::get_current_time(DDS_Time_t& time) {
    time = wall_time();
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t ParticipantImpl::delete_contained_entities() {
    // The topics end last: a callback may have made one more reader until it returned.
    Topics topics;
    std::vector<std::unique_ptr<PublisherImpl>> publishers;
    std::vector<std::unique_ptr<SubscriberImpl>> subscribers;
    {
        MutexLock lock(mutex_);
        subscribers.swap(subscribers_.all);
        publishers.swap(publishers_.all);
        topics.swap(topics_);
        topics_by_name_.clear();
    }
    // Outside of the lock: a callback in progress may ask this participant.
    std::vector<OwnedReader> lent;
    for (const auto& subscriber : subscribers) {
        for (auto& owned : subscriber->release_endpoints()) {
            owned->untyped().stop();
            if (owned->untyped().has_loans())
                lent.push_back(std::move(owned));
        }
    }
    if (lent.empty())
        return DDS_RETCODE_OK;
    MutexLock lock(mutex_);
    std::move(lent.begin(), lent.end(), std::back_inserter(departed_readers_));
    std::move(subscribers.begin(), subscribers.end(), std::back_inserter(departed_subscribers_));
    return DDS_RETCODE_OK;
}

} // namespace meridian::dcps
