#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "dcps/common/entity_impl.h"
#include "dcps/common/qos_change.h"
#include "dcps/delivery/delivery_thread.h"
#include "dcps/endpoints/owned_endpoint.h"
#include "dcps/entities/builtin_subscriber.h"
#include "dcps/entities/runtime_config.h"
#include "dcps/reader/user_reader.h"
#include "dcps/topics/topic.h"
#include "dcps/topics/type_registry.h"
#include "discovery/announcement_watch.h"
#include "discovery/discovery_store.h"
#include "meridian/domain_participant.h"
#include "platform/log.h"
#include "platform/mutex.h"
#include "platform/seeded_hash.h"
#include "qos/profile_store.h"
#include "rtps/net/runtime.h"
#include "types/lookup/type_lookup_client.h"

namespace meridian::dcps {

class PublisherImpl;
class SubscriberImpl;

/// The QoS profiles as they are loaded now; never null. Loading others leaves them as they are. Any thread.
using ProfileSource = std::function<std::shared_ptr<const qos::ProfileStore>()>;

/// What all participants of the process have in common. None is null.
struct SharedParts {
    std::shared_ptr<rtps::net::OwnParticipants> own = std::make_shared<rtps::net::OwnParticipants>();
    std::shared_ptr<DeliveryThread> delivery = std::make_shared<DeliveryThread>();
    std::shared_ptr<types::SharedTypeResolvers> type_resolvers =
        std::make_shared<types::SharedTypeResolvers>();
    std::shared_ptr<discovery::PublicationCaches> publications =
        std::make_shared<discovery::PublicationCaches>();
};

/// A participant and everything that belongs to it. Owned by the factory. Any thread; the order of locks
/// stands in docs/architecture.md.
class ParticipantImpl final : public EntityImpl<DDSDomainParticipant> {
  public:
    /// Opens nothing.
    ParticipantImpl(DDS_DomainId_t domain_id, const DDS_DomainParticipantQos& qos,
                    const rtps::GuidPrefix& prefix, const SharedParts& shared, ProfileSource profiles);
    /// Leaves the domain.
    ~ParticipantImpl() override;

    /// Whether the participant could be enabled as it is now; else false and a text in `error`. Looks up the
    /// names of peers.
    bool check(std::string& error);
    /// True while subscribers, publishers or topics exist.
    bool has_entities();
    discovery::DiscoveryStore& store() { return store_; }
    discovery::AnnouncementWatch& announcements() { return announcements_; }
    /// The record of the builtin topic of a remote participant.
    DDS_ParticipantBuiltinTopicData describe(const rtps::ParticipantData& remote) const;
    /// The same by its prefix; DDS_RETCODE_BAD_PARAMETER for one that is not known.
    DDS_ReturnCode_t describe(const rtps::GuidPrefix& remote, DDS_ParticipantBuiltinTopicData& data);
    DeliveryThread& delivery() { return *shared_.delivery; }
    /// Null until the participant is enabled.
    rtps::net::Runtime* runtime() const { return running_.load(std::memory_order_acquire); }
    /// For a new reader or writer.
    rtps::Guid new_guid(rtps::EntityKind kind);
    /// The topic behind a description, which cannot be deleted as long as the caller keeps it; null when it
    /// is not one of this participant.
    std::shared_ptr<TopicImpl> use_topic(DDSTopicDescription* description);
    DDS_ReturnCode_t default_datareader_qos_of_topic(DDS_DataReaderQos& qos, const char* topic_name);
    TransportProperties transport_properties();
    /// DDS_RETCODE_ILLEGAL_OPERATION once enabled, DDS_RETCODE_BAD_PARAMETER (and a logged reason) for values
    /// that no transport can have.
    DDS_ReturnCode_t set_transport_properties(const TransportProperties& properties);

    DDS_ReturnCode_t enable() override;
    DDS_ReturnCode_t get_qos(DDS_DomainParticipantQos& qos) override;
    DDS_ReturnCode_t set_qos(const DDS_DomainParticipantQos& qos) override;
    DDSSubscriber* get_builtin_subscriber() override { return &builtin_subscriber_; }
    DDSSubscriber* create_subscriber(const DDS_SubscriberQos& qos, DDSSubscriberListener* listener,
                                     DDS_StatusMask mask) override;
    DDSPublisher* create_publisher(const DDS_PublisherQos& qos, DDSPublisherListener* listener,
                                   DDS_StatusMask mask) override;
    DDS_ReturnCode_t delete_publisher(DDSPublisher* publisher) override;
    DDS_ReturnCode_t get_default_topic_qos(DDS_TopicQos& qos) override { return get_default(qos); }
    DDS_ReturnCode_t get_default_subscriber_qos(DDS_SubscriberQos& qos) override { return get_default(qos); }
    DDS_ReturnCode_t get_default_datareader_qos(DDS_DataReaderQos& qos) override { return get_default(qos); }
    DDS_ReturnCode_t set_default_topic_qos_with_profile(const char* library, const char* profile) override {
        return set_default_from_profile<DDS_TopicQos>(library, profile, "topic");
    }
    DDS_ReturnCode_t set_default_subscriber_qos_with_profile(const char* library,
                                                             const char* profile) override {
        return set_default_from_profile<DDS_SubscriberQos>(library, profile, "subscriber");
    }
    DDS_ReturnCode_t set_default_datareader_qos_with_profile(const char* library,
                                                             const char* profile) override {
        return set_default_from_profile<DDS_DataReaderQos>(library, profile, "reader");
    }
    DDS_ReturnCode_t register_type(const char* type_name, const PRESTypePlugin* plugin,
                                   DDSTypeSupport* type_support) override {
        return types_.register_type(type_name, plugin, type_support);
    }
    DDS_ReturnCode_t unregister_type(const char* type_name) override {
        return types_.unregister_type(type_name);
    }
    DDS_Boolean is_type_registered(const char* type_name) override;
    const DDS_TypeCode* get_typecode(const char* type_name) override;
    DDS_ReturnCode_t lock() override { return types_.lock(); }
    DDS_ReturnCode_t unlock() override { return types_.unlock(); }
    DDSTopicDescription* lookup_topicdescription(const char* topic_name) override;
    DDSTopic* create_topic(const char* topic_name, const char* type_name, const DDS_TopicQos& qos,
                           DDSTopicListener* listener, DDS_StatusMask mask) override;
    DDS_ReturnCode_t delete_topic(DDSTopic* topic) override;
    DDS_ReturnCode_t ignore_participant(const DDS_InstanceHandle_t& handle) override;
    DDS_ReturnCode_t get_discovered_participant_data(DDS_ParticipantBuiltinTopicData& data,
                                                     const DDS_InstanceHandle_t& handle) override;
    DDS_ReturnCode_t get_current_time(DDS_Time_t& time) override;
    DDS_ReturnCode_t delete_contained_entities() override;

  private:
    using Topics = std::unordered_map<const DDSTopicDescription*, std::shared_ptr<TopicImpl>>;
    using OwnedReader = std::unique_ptr<OwnedEndpoint<UserReader, DDSDataReader>>;

    /// A profile in the documents from which it was asked for.
    struct Profile {
        std::shared_ptr<const qos::ProfileStore> store;
        std::string library;
        std::string name;

        /// Logs why it cannot be read.
        template <typename Qos>
        DDS_ReturnCode_t read(const char* topic_name, Qos& qos) const {
            std::string error;
            if (store->read(library, name, topic_name, qos, error))
                return DDS_RETCODE_OK;
            MERIDIAN_LOG_ERROR("dcps", "%s", error.c_str());
            return DDS_RETCODE_ERROR;
        }
    };
    template <typename Group>
    struct Groups {
        std::vector<std::unique_ptr<Group>> all;
        uint32_t made = 0;
    };

    std::optional<rtps::net::RuntimeConfig> config(const TransportProperties& transports, std::string& error)
        MERIDIAN_REQUIRES(mutex_);
    bool open(std::string& error) MERIDIAN_REQUIRES(mutex_);
    TopicImpl* find_topic(const char* topic_name) MERIDIAN_REQUIRES(mutex_);
    template <typename Group>
    Group* create_group(Groups<Group> ParticipantImpl::*groups, const typename Group::Qos& qos,
                        bool has_listener) MERIDIAN_EXCLUDES(mutex_);
    template <typename Qos>
    DDS_ReturnCode_t get_default(Qos& qos) MERIDIAN_EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        qos = std::get<Qos>(defaults_);
        return DDS_RETCODE_OK;
    }
    template <typename Qos>
    DDS_ReturnCode_t set_default_from_profile(const char* library, const char* profile, const char* what)
        MERIDIAN_EXCLUDES(mutex_) {
        if (library == nullptr || profile == nullptr)
            return DDS_RETCODE_BAD_PARAMETER;
        Profile source{profiles_(), library, profile};
        Qos qos;
        const DDS_ReturnCode_t result = source.read(nullptr, qos);
        if (result != DDS_RETCODE_OK)
            return result;
        if (!is_consistent(qos, what))
            return DDS_RETCODE_INCONSISTENT_POLICY;
        MutexLock lock(mutex_);
        std::get<Qos>(defaults_) = qos;
        if constexpr (std::is_same_v<Qos, DDS_DataReaderQos>)
            reader_profile_ = std::move(source);
        return DDS_RETCODE_OK;
    }

    const DDS_DomainId_t domain_id_;
    const SharedParts shared_;
    const ProfileSource profiles_;
    discovery::DiscoveryStore store_;
    discovery::AnnouncementWatch announcements_;
    std::unique_ptr<types::TypeLookupClient> type_lookup_; // from enabling on
    TypeRegistry types_;
    BuiltinSubscriber builtin_subscriber_;
    std::atomic<rtps::net::Runtime*> running_{nullptr};

    Mutex mutex_;
    DDS_DomainParticipantQos qos_ MERIDIAN_GUARDED_BY(mutex_);
    TransportProperties transports_ MERIDIAN_GUARDED_BY(mutex_);
    std::tuple<DDS_TopicQos, DDS_SubscriberQos, DDS_DataReaderQos> defaults_ MERIDIAN_GUARDED_BY(mutex_);
    /// Where the default reader QoS came from, for the readers of single topics.
    std::optional<Profile> reader_profile_ MERIDIAN_GUARDED_BY(mutex_);
    Topics topics_ MERIDIAN_GUARDED_BY(mutex_);
    std::unordered_map<std::string, TopicImpl*, SeededHash> topics_by_name_ MERIDIAN_GUARDED_BY(mutex_);
    uint32_t topics_made_ MERIDIAN_GUARDED_BY(mutex_) = 0;
    Groups<SubscriberImpl> subscribers_ MERIDIAN_GUARDED_BY(mutex_);
    Groups<PublisherImpl> publishers_ MERIDIAN_GUARDED_BY(mutex_);
    /// Deleted with the rest, but kept because samples are still on loan.
    std::vector<std::unique_ptr<SubscriberImpl>> departed_subscribers_ MERIDIAN_GUARDED_BY(mutex_);
    std::vector<OwnedReader> departed_readers_ MERIDIAN_GUARDED_BY(mutex_);
    std::vector<rtps::GuidPrefix> ignored_ MERIDIAN_GUARDED_BY(mutex_);       // asked for before enabling
    std::unique_ptr<rtps::net::Runtime> runtime_ MERIDIAN_GUARDED_BY(mutex_); // null until enabled
};

} // namespace meridian::dcps
