#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "dcps/common/entity_impl.h"
#include "dcps/delivery/delivery_thread.h"
#include "dcps/endpoints/owned_endpoint.h"
#include "dcps/entities/builtin_subscriber.h"
#include "dcps/entities/profile_source.h"
#include "dcps/entities/runtime_config.h"
#include "dcps/reader/user_reader.h"
#include "dcps/topics/topic.h"
#include "dcps/topics/type_registry.h"
#include "discovery/discovery_store.h"
#include "meridian/domain_participant.h"
#include "platform/mutex.h"
#include "qos/profile_store.h"
#include "rtps/net/runtime.h"
#include "types/lookup/type_lookup_client.h"

namespace meridian::dcps {

class PublisherImpl;
class SubscriberImpl;

/// A participant and everything that belongs to it. Owned by the factory.
///
/// Lock order, for everything in this folder: factory, participant, subscriber or publisher, runtime (shared
/// by the participants of a receive thread; under it the discovery store, readers and writers are called),
/// topic, reader or writer, discovery store, endpoint cache, delivery thread, status condition, condition
/// core, wait set. An operation that holds one of them may take later ones only.
class ParticipantImpl final : public EntityImpl<DDSDomainParticipant> {
  public:
    /// Opens nothing. `own` and `delivery` are shared by all participants; `profiles` must outlive them.
    ParticipantImpl(DDS_DomainId_t domain_id, const DDS_DomainParticipantQos& qos,
                    const rtps::GuidPrefix& prefix, std::shared_ptr<rtps::net::OwnParticipants> own,
                    std::shared_ptr<DeliveryThread> delivery, ProfileSource& profiles);
    /// Leaves the domain.
    ~ParticipantImpl() override;

    /// Whether the participant could be enabled as it is now; else false and a text in `error`. Looks up the
    /// names of peers.
    bool check(std::string& error);
    /// True while subscribers, publishers or topics exist.
    bool has_entities();
    discovery::DiscoveryStore& store() { return store_; }
    /// The record of the builtin topic of a remote participant.
    DDS_ParticipantBuiltinTopicData describe(const rtps::ParticipantData& remote) const;
    DeliveryThread& delivery() { return *delivery_; }
    /// Null until the participant is enabled.
    rtps::net::Runtime* runtime() const { return running_.load(std::memory_order_acquire); }
    /// For a new reader or writer.
    rtps::Guid new_guid(rtps::EntityKind kind);
    /// A claim on the topic behind a description, or null when it is not one of this participant.
    std::unique_ptr<TopicUse> use_topic(DDSTopicDescription* description);
    DDS_ReturnCode_t default_datareader_qos_of_topic(DDS_DataReaderQos& qos, const char* topic_name);
    TransportProperties transport_properties();
    /// DDS_RETCODE_ILLEGAL_OPERATION once enabled, DDS_RETCODE_BAD_PARAMETER (and a logged reason) for values
    /// that no transport can have.
    DDS_ReturnCode_t set_transport_properties(const TransportProperties& properties);

    DDS_ReturnCode_t enable() override;
    DDS_DomainId_t get_domain_id() override { return domain_id_; }
    DDS_ReturnCode_t get_qos(DDS_DomainParticipantQos& qos) override;
    DDS_ReturnCode_t set_qos(const DDS_DomainParticipantQos& qos) override;
    DDSSubscriber* get_builtin_subscriber() override { return &builtin_subscriber_; }
    DDSSubscriber* create_subscriber(const DDS_SubscriberQos& qos, DDSSubscriberListener* listener,
                                     DDS_StatusMask mask) override;
    DDS_ReturnCode_t delete_subscriber(DDSSubscriber* subscriber) override;
    DDSPublisher* create_publisher(const DDS_PublisherQos& qos, DDSPublisherListener* listener,
                                   DDS_StatusMask mask) override;
    DDS_ReturnCode_t delete_publisher(DDSPublisher* publisher) override;
    DDS_ReturnCode_t get_default_topic_qos(DDS_TopicQos& qos) override;
    DDS_ReturnCode_t set_default_topic_qos(const DDS_TopicQos& qos) override;
    DDS_ReturnCode_t get_default_subscriber_qos(DDS_SubscriberQos& qos) override;
    DDS_ReturnCode_t set_default_subscriber_qos(const DDS_SubscriberQos& qos) override;
    DDS_ReturnCode_t get_default_datareader_qos(DDS_DataReaderQos& qos) override;
    DDS_ReturnCode_t set_default_datareader_qos(const DDS_DataReaderQos& qos) override;
    DDS_ReturnCode_t set_default_topic_qos_with_profile(const char* library, const char* profile) override;
    DDS_ReturnCode_t set_default_subscriber_qos_with_profile(const char* library,
                                                             const char* profile) override;
    DDS_ReturnCode_t set_default_datareader_qos_with_profile(const char* library,
                                                             const char* profile) override;
    DDS_ReturnCode_t register_type(const char* type_name, const PRESTypePlugin* plugin,
                                   DDSTypeSupport* type_support) override;
    DDS_ReturnCode_t unregister_type(const char* type_name) override;
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
    using Topics = std::unordered_map<const DDSTopicDescription*, std::unique_ptr<TopicImpl>>;
    using OwnedReader = std::unique_ptr<OwnedEndpoint<UserReader, DDSDataReader>>;

    /// Where the default reader QoS came from, for the readers of single topics.
    struct ReaderProfile {
        std::shared_ptr<const qos::ProfileStore> store;
        std::string library;
        std::string profile;
    };

    std::optional<rtps::net::RuntimeConfig> config(const TransportProperties& transports, std::string& error)
        MERIDIAN_REQUIRES(mutex_);
    bool open(std::string& error) MERIDIAN_REQUIRES(mutex_);
    TopicImpl* find_topic(const char* topic_name) MERIDIAN_REQUIRES(mutex_);
    template <typename Qos>
    DDS_ReturnCode_t get_default(Qos ParticipantImpl::*source, Qos& qos) MERIDIAN_EXCLUDES(mutex_);
    template <typename Qos>
    DDS_ReturnCode_t set_default(Qos ParticipantImpl::*target, const Qos& qos, const char* what)
        MERIDIAN_EXCLUDES(mutex_);

    const DDS_DomainId_t domain_id_;
    const std::shared_ptr<rtps::net::OwnParticipants> own_;
    const std::shared_ptr<DeliveryThread> delivery_;
    ProfileSource& profiles_;
    discovery::DiscoveryStore store_;
    std::unique_ptr<types::TypeLookupClient> type_lookup_; // from enabling on
    TypeRegistry types_;
    BuiltinSubscriber builtin_subscriber_;
    std::atomic<rtps::net::Runtime*> running_{nullptr};

    Mutex mutex_;
    DDS_DomainParticipantQos qos_ MERIDIAN_GUARDED_BY(mutex_);
    TransportProperties transports_ MERIDIAN_GUARDED_BY(mutex_);
    DDS_TopicQos default_topic_qos_ MERIDIAN_GUARDED_BY(mutex_);
    DDS_SubscriberQos default_subscriber_qos_ MERIDIAN_GUARDED_BY(mutex_);
    DDS_DataReaderQos default_reader_qos_ MERIDIAN_GUARDED_BY(mutex_);
    std::optional<ReaderProfile> reader_profile_ MERIDIAN_GUARDED_BY(mutex_);
    Topics topics_ MERIDIAN_GUARDED_BY(mutex_);
    std::unordered_map<std::string, TopicImpl*> topics_by_name_ MERIDIAN_GUARDED_BY(mutex_);
    uint32_t topics_made_ MERIDIAN_GUARDED_BY(mutex_) = 0;
    std::vector<std::unique_ptr<SubscriberImpl>> subscribers_ MERIDIAN_GUARDED_BY(mutex_);
    std::vector<std::unique_ptr<PublisherImpl>> publishers_ MERIDIAN_GUARDED_BY(mutex_);
    /// Deleted with the rest, but kept because samples are still on loan.
    std::vector<Topics> departed_topics_ MERIDIAN_GUARDED_BY(mutex_);
    std::vector<std::unique_ptr<SubscriberImpl>> departed_subscribers_ MERIDIAN_GUARDED_BY(mutex_);
    std::vector<OwnedReader> departed_readers_ MERIDIAN_GUARDED_BY(mutex_);
    uint32_t subscribers_made_ MERIDIAN_GUARDED_BY(mutex_) = 0;
    uint32_t publishers_made_ MERIDIAN_GUARDED_BY(mutex_) = 0;
    std::vector<rtps::GuidPrefix> ignored_ MERIDIAN_GUARDED_BY(mutex_);       // asked for before enabling
    std::unique_ptr<rtps::net::Runtime> runtime_ MERIDIAN_GUARDED_BY(mutex_); // null until enabled
};

} // namespace meridian::dcps
