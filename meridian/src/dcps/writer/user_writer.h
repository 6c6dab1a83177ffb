#pragma once

#include <chrono>
#include <memory>
#include <set>
#include <vector>

#include "dcps/common/entity_impl.h"
#include "dcps/endpoints/endpoint_membership.h"
#include "dcps/endpoints/endpoint_qos.h"
#include "dcps/topics/topic.h"
#include "dcps/topics/type_registry.h"
#include "dcps/writer/writer_statuses.h"
#include "meridian/untyped_entities.h"
#include "platform/mutex.h"

namespace meridian::dcps {

class PublisherImpl;

/// A writer of application data: has the type plugin serialize each sample and hands the bytes to the
/// protocol, which copies them.
///
/// Two locks: one makes calls of the writing operations wait for each other, and is taken before the
/// runtime's; the other guards what the events of the protocol change, and is taken under it.
class UserWriter final : public EntityImpl<DDSUntypedDataWriter>, public rtps::EndpointSink {
  public:
    /// The publisher and the topic must outlive the writer. Null with a logged reason when the plugin refuses
    /// or cannot serialize.
    static std::unique_ptr<UserWriter> create(PublisherImpl& publisher, TopicImpl& topic,
                                              TypeRegistry::Type type, const rtps::Guid& guid,
                                              const DDS_DataWriterQos& qos);
    ~UserWriter() override;

    /// Announces the writer. The runtime must outlive stop().
    bool start(rtps::net::Runtime& runtime, const GroupQos& group);
    /// Leaves the domain. Operations that wait return.
    void stop();
    /// The QoS of the publisher has changed.
    void set_group(const GroupQos& group);

    DDS_ReturnCode_t enable() override;
    DDS_ReturnCode_t get_qos(DDS_DataWriterQos& qos) override;
    DDS_ReturnCode_t set_qos(const DDS_DataWriterQos& qos) override;
    DDSTopic* get_topic() override { return &topic_; }
    DDSPublisher* get_publisher() override;
    DDS_ReturnCode_t wait_for_acknowledgments(const DDS_Duration_t& max_wait) override;
    DDS_ReturnCode_t assert_liveliness() override;
    DDS_ReturnCode_t get_publication_matched_status(DDS_PublicationMatchedStatus& status) override;
    DDS_ReturnCode_t get_offered_incompatible_qos_status(DDS_OfferedIncompatibleQosStatus& status) override;
    DDS_ReturnCode_t get_matched_subscriptions(DDS_InstanceHandleSeq& subscriptions) override;

    DDS_ReturnCode_t write_untyped(const void* sample, const DDS_WriteParams_t& params) override;
    DDS_InstanceHandle_t register_instance_untyped(const void* sample,
                                                   const DDS_WriteParams_t& params) override;
    DDS_ReturnCode_t unregister_instance_untyped(const void* sample,
                                                 const DDS_WriteParams_t& params) override;
    DDS_ReturnCode_t dispose_untyped(const void* sample, const DDS_WriteParams_t& params) override;
    DDS_ReturnCode_t get_key_value_untyped(void* holder, const DDS_InstanceHandle_t& handle) override;
    DDS_InstanceHandle_t lookup_instance_untyped(const void* holder) override;

    // Under the lock of the runtime.
    void matched(const rtps::RemoteEndpoint& remote) override;
    void unmatched(const rtps::Guid& remote) override;
    void incompatible(const rtps::RemoteEndpoint& remote, const std::vector<uint32_t>& policies) override;

  private:
    class Buffer;

    UserWriter(PublisherImpl& publisher, TopicImpl& topic, TypeRegistry::Type type, const rtps::Guid& guid,
               const DDS_DataWriterQos& qos);

    const PRESTypePlugin& plugin() const { return type_->plugin(); }
    rtps::EndpointQos endpoint_qos() MERIDIAN_REQUIRES(mutex_);
    rtps::EndpointData endpoint_data() MERIDIAN_EXCLUDES(mutex_);
    rtps::WriterConfig config() MERIDIAN_EXCLUDES(mutex_);
    /// The key of the sample's instance, zero without a key; fails where the handle is another's.
    DDS_ReturnCode_t key_of(const void* sample, const DDS_InstanceHandle_t& handle, rtps::KeyHash& key)
        MERIDIAN_REQUIRES(writing_);
    DDS_ReturnCode_t add_instance(const rtps::KeyHash& key) MERIDIAN_REQUIRES(writing_);
    /// Ends an instance, or the writer's part in it.
    DDS_ReturnCode_t write_end(const void* sample, const DDS_WriteParams_t& params, bool unregister);
    /// What the payload does not say; DDS_RETCODE_BAD_PARAMETER for an impossible time.
    DDS_ReturnCode_t fill_in(const DDS_WriteParams_t& params, const rtps::KeyHash& key,
                             rtps::WriteRequest& request) const;
    /// Waits for room as long as the reliability allows.
    DDS_ReturnCode_t send(const rtps::WriteRequest& request) MERIDIAN_REQUIRES(writing_);
    /// Calls `done(runtime)` until it is true, at first and then every millisecond. False at the deadline, or
    /// when the writer has stopped.
    template <typename Done>
    bool poll(std::chrono::nanoseconds deadline, Done done) MERIDIAN_EXCLUDES(mutex_);
    void changed(DDS_StatusMask status) MERIDIAN_REQUIRES(mutex_);

    PublisherImpl& publisher_;
    TopicImpl& topic_;
    const TypeRegistry::Type type_;
    const bool keyed_;
    PRESTypePluginEndpointData endpoint_ = nullptr;
    EndpointMembership membership_;

    Mutex writing_;
    std::set<rtps::KeyHash> instances_ MERIDIAN_GUARDED_BY(writing_); // registered

    Mutex mutex_;
    ConditionVariable stopped_;
    DDS_DataWriterQos qos_ MERIDIAN_GUARDED_BY(mutex_);
    GroupQos group_ MERIDIAN_GUARDED_BY(mutex_);
    WriterStatuses statuses_ MERIDIAN_GUARDED_BY(mutex_);
};

} // namespace meridian::dcps
