#pragma once

#include <memory>
#include <unordered_map>
#include <vector>

#include "dcps/common/entity_impl.h"
#include "dcps/delivery/delivery_thread.h"
#include "dcps/delivery/listener_link.h"
#include "dcps/endpoints/endpoint_membership.h"
#include "dcps/endpoints/endpoint_qos.h"
#include "dcps/reader/key_aliases.h"
#include "dcps/reader/reader_cache.h"
#include "dcps/reader/reader_statuses.h"
#include "dcps/reader/withheld_samples.h"
#include "dcps/topics/topic.h"
#include "dcps/topics/type_registry.h"
#include "discovery/endpoint_cache.h"
#include "meridian/untyped_entities.h"
#include "platform/mutex.h"

namespace meridian::dcps {

class ReadCondition;
class SubscriberImpl;

/// A reader of application data: hands each received sample to the type plugin, keeps what comes of it in a
/// cache, and tells its listener on the delivery thread.
///
/// Samples and events of the protocol arrive under the lock of the runtime; the reader's own lock is taken
/// under it and never the other way round.
class UserReader final : public EntityImpl<DDSUntypedDataReader>,
                         public rtps::ReaderSink,
                         public discovery::AnnouncementObserver,
                         private SampleOwner,
                         private Deliverable {
  public:
    /// The subscriber, the topic and the delivery thread must outlive the reader. Null with a logged reason
    /// when the plugin refuses.
    static std::unique_ptr<UserReader> create(SubscriberImpl& subscriber, TopicImpl& topic,
                                              TypeRegistry::Type type, const rtps::Guid& guid,
                                              const DDS_DataReaderQos& qos, DeliveryThread& delivery);
    ~UserReader() override;

    /// The reader that callers and listeners see. Set once, before the reader is enabled.
    void set_face(DDSDataReader* face) { face_ = face; }
    DDSDataReader* face() const { return face_; }

    /// Announces the reader and begins to receive. The runtime must outlive stop().
    bool start(rtps::net::Runtime& runtime, const GroupQos& group);
    /// Leaves the domain and lets no callback begin any more; returns when none runs on another thread.
    void stop();
    /// The QoS of the subscriber has changed.
    void set_group(const GroupQos& group);
    bool has_loans();

    DDS_ReturnCode_t enable() override;
    DDS_ReturnCode_t get_qos(DDS_DataReaderQos& qos) override;
    DDS_ReturnCode_t set_qos(const DDS_DataReaderQos& qos) override;
    DDS_ReturnCode_t set_listener(DDSDataReaderListener* listener, DDS_StatusMask mask) override;
    DDSDataReaderListener* get_listener() override;
    DDSTopicDescription* get_topicdescription() override { return &topic_; }
    DDSSubscriber* get_subscriber() override;
    DDS_ReturnCode_t get_matched_publication_participant_data(DDS_ParticipantBuiltinTopicData& data,
                                                              const DDS_InstanceHandle_t& handle) override;
    DDS_ReturnCode_t get_requested_deadline_missed_status(DDS_RequestedDeadlineMissedStatus& status) override;
    DDS_ReturnCode_t get_requested_incompatible_qos_status(
        DDS_RequestedIncompatibleQosStatus& status) override;
    DDS_ReturnCode_t get_liveliness_changed_status(DDS_LivelinessChangedStatus& status) override;
    DDS_ReturnCode_t get_sample_lost_status(DDS_SampleLostStatus& status) override;
    DDS_ReturnCode_t get_sample_rejected_status(DDS_SampleRejectedStatus& status) override;
    DDS_ReturnCode_t get_subscription_matched_status(DDS_SubscriptionMatchedStatus& status) override;
    DDS_ReturnCode_t get_matched_publications(DDS_InstanceHandleSeq& publications) override;

    DDSReadCondition* create_readcondition(DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                                           DDS_InstanceStateMask instance_states) override;
    DDS_ReturnCode_t delete_readcondition(DDSReadCondition* condition) override;
    DDS_ReturnCode_t read_or_take_untyped(DDS_Boolean take, const DDSSampleSelection& selection,
                                          const DDSSampleSequenceState& sequence, void*** samples,
                                          DDS_Long* count, DDS_SampleInfoSeq& infos) override;
    DDS_ReturnCode_t return_loan_untyped(void** samples, DDS_Long count, DDS_SampleInfoSeq& infos) override;
    DDS_ReturnCode_t get_key_value_untyped(void* holder, const DDS_InstanceHandle_t& handle) override;
    DDS_InstanceHandle_t lookup_instance_untyped(const void* holder) override;

    // Under the lock of the runtime.
    void on_sample(const rtps::Sample& sample) override;
    void on_lost(const rtps::Guid& writer, uint64_t count) override;
    void matched(const rtps::RemoteEndpoint& remote) override;
    void unmatched(const rtps::Guid& remote) override;
    void match_changed(const rtps::RemoteEndpoint& remote) override;
    void incompatible(const rtps::RemoteEndpoint& remote, const std::vector<uint32_t>& policies) override;
    void liveliness_changed(const rtps::Guid& remote, bool alive) override;
    /// Where type coercion is disallowed: only writers of a type that is known to be the same, or not known
    /// at all.
    bool accepts_type(const rtps::RemoteEndpoint& writer) override;

    // On a thread of the application, which takes the announcement of a writer.
    void announcement_given(const rtps::Guid& writer) override;

  private:
    UserReader(SubscriberImpl& subscriber, TopicImpl& topic, TypeRegistry::Type type, const rtps::Guid& guid,
               const DDS_DataReaderQos& qos, DeliveryThread& delivery);

    void release_sample(void* sample) override;
    void deliver() override;

    const PRESTypePlugin& plugin() const { return type_->plugin(); }
    ReaderCache::Settings cache_settings(const DDS_DataReaderQos& qos) const;
    rtps::EndpointQos endpoint_qos() MERIDIAN_REQUIRES(mutex_);
    rtps::EndpointData endpoint_data() MERIDIAN_EXCLUDES(mutex_);
    /// `made` becomes the sample as the plugin makes it of the payload, null when it dropped it. False when
    /// it cannot be read.
    bool deserialize(const rtps::Sample& sample, void*& made);
    rtps::KeyHash key_hash(const rtps::Sample& sample);
    /// Into the cache, unless its writer is withheld.
    void store(const Change& change) MERIDIAN_REQUIRES(mutex_);
    void store_now(const Change& change) MERIDIAN_REQUIRES(mutex_);
    void store_withheld(const rtps::Guid& writer) MERIDIAN_REQUIRES(mutex_);
    void store_all(const WithheldSamples::Withheld& withheld) MERIDIAN_REQUIRES(mutex_);
    void store_end(const rtps::Guid& writer, const WithheldSamples::End& end) MERIDIAN_REQUIRES(mutex_);
    void changed(DDS_StatusMask statuses) MERIDIAN_REQUIRES(mutex_);
    void update_conditions() MERIDIAN_REQUIRES(mutex_);
    void arm_timer() MERIDIAN_REQUIRES(mutex_);
    void tell_overwritten(bool at_end) MERIDIAN_REQUIRES(mutex_);
    void call_listener(DDSDataReaderListener& listener, DDS_StatusMask statuses);
    DDS_ReturnCode_t to_selection(const DDSSampleSelection& wanted, ReaderCache::Selection& selection,
                                  bool& empty) MERIDIAN_REQUIRES(mutex_);
    DDS_ReturnCode_t copy_out(const ReaderCache::Batch& batch, const DDSSampleSequenceState& sequence,
                              DDS_SampleInfoSeq& infos);
    template <typename Status>
    DDS_ReturnCode_t read_status(Status& status, Status (ReaderStatuses::*take)(), DDS_StatusMask bit);

    SubscriberImpl& subscriber_;
    TopicImpl& topic_;
    const TypeRegistry::Type type_;
    const bool keyed_;
    const std::unique_ptr<KeyForms> key_forms_; // under the lock of the runtime; null where nobody needs it
    DeliveryThread& delivery_;
    PRESTypePluginEndpointData endpoint_ = nullptr;
    DDSDataReader* face_ = nullptr;
    EndpointMembership membership_;
    KeyAliases aliases_; // under the lock of the runtime

    Mutex mutex_;
    DDS_DataReaderQos qos_ MERIDIAN_GUARDED_BY(mutex_);
    GroupQos group_ MERIDIAN_GUARDED_BY(mutex_);
    std::unique_ptr<ReaderCache> cache_ MERIDIAN_GUARDED_BY(mutex_);
    ReaderStatuses statuses_ MERIDIAN_GUARDED_BY(mutex_);
    WithheldSamples withheld_ MERIDIAN_GUARDED_BY(mutex_);
    std::shared_ptr<ListenerLink> listener_ MERIDIAN_GUARDED_BY(mutex_);
    DDSDataReaderListener* listener_given_ MERIDIAN_GUARDED_BY(mutex_) = nullptr;
    DDS_StatusMask listener_mask_ MERIDIAN_GUARDED_BY(mutex_) = DDS_STATUS_MASK_NONE;
    DDS_StatusMask to_tell_ MERIDIAN_GUARDED_BY(mutex_) =
        0; // statuses that the listener has not been told of
    DDS_StatusMask signalled_ MERIDIAN_GUARDED_BY(mutex_) = 0; // set in the status condition
    rtps::MonotonicTime armed_ MERIDIAN_GUARDED_BY(mutex_) = rtps::kNever;
    uint64_t overwritten_told_ MERIDIAN_GUARDED_BY(mutex_) = 0;
    uint64_t undecodable_ MERIDIAN_GUARDED_BY(mutex_) = 0;
    std::unordered_map<const void*, std::unique_ptr<ReaderCache::Batch>> loans_ MERIDIAN_GUARDED_BY(mutex_);
    /// Of the last loan that came back: its memory, which grew to the size of the takes, serves the next one.
    std::unique_ptr<ReaderCache::Batch> spare_batch_ MERIDIAN_GUARDED_BY(mutex_);
    std::vector<std::unique_ptr<ReadCondition>> conditions_ MERIDIAN_GUARDED_BY(mutex_);
};

} // namespace meridian::dcps
