#pragma once

// The writing side. The tool only reads; this is here because the typed writers of the public interface need
// something real to write through, for programs that play a peer in tests, demos and benchmarks.

#include <memory>
#include <set>
#include <vector>

#include "dcps/endpoints/user_endpoint.h"
#include "meridian/publisher.h"
#include "meridian/untyped_entities.h"

namespace meridian::dcps {

class UserWriter;
using WriterOwner = EndpointOwner<DDSPublisher, UserWriter>;
using WriterStatuses = EndpointStatuses<DDS_PublicationMatchedStatus, DDS_OfferedIncompatibleQosStatus>;

/// The writer of a topic: has the type plugin serialize each sample and hands the bytes to the protocol,
/// which copies them.
///
/// Two locks: one makes calls of the writing operations wait for each other, and is taken before the
/// runtime's; the other guards what the events of the protocol change, and is taken under it.
class UserWriter final : public UserEndpoint<DDSUntypedDataWriter, DDS_DataWriterQos, WriterStatuses>,
                         public rtps::EndpointSink {
  public:
    /// The publisher and the topic must outlive the writer. Null with a logged reason when the plugin refuses
    /// or cannot serialize.
    static std::unique_ptr<UserWriter> create(WriterOwner& publisher, TopicImpl& topic,
                                              TypeRegistry::Type type, const rtps::Guid& guid,
                                              const DDS_DataWriterQos& qos);
    ~UserWriter() override;

    /// Announces the writer. The runtime must outlive stop().
    bool start(rtps::net::Runtime& runtime, const DDS_GroupPolicies& group);
    /// Leaves the domain. Operations that wait return.
    void stop();

    DDS_ReturnCode_t enable() override;
    DDSTopic* get_topic() override { return &topic_; }
    DDSPublisher* get_publisher() override { return &publisher_; }
    DDS_ReturnCode_t wait_for_acknowledgments(const DDS_Duration_t& max_wait) override;
    DDS_ReturnCode_t assert_liveliness() override;
    DDS_ReturnCode_t get_publication_matched_status(DDS_PublicationMatchedStatus& status) override {
        return read_status(status, DDS_PUBLICATION_MATCHED_STATUS);
    }
    DDS_ReturnCode_t get_offered_incompatible_qos_status(DDS_OfferedIncompatibleQosStatus& status) override {
        return read_status(status, DDS_OFFERED_INCOMPATIBLE_QOS_STATUS);
    }
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

    UserWriter(WriterOwner& publisher, TopicImpl& topic, TypeRegistry::Type type, const rtps::Guid& guid,
               const DDS_DataWriterQos& qos);

    rtps::WriterConfig config() MERIDIAN_EXCLUDES(mutex_);
    /// The key of the sample's instance, zero without a key; fails where the handle is another's.
    DDS_ReturnCode_t key_of(const void* sample, const DDS_InstanceHandle_t& handle, rtps::KeyHash& key)
        MERIDIAN_REQUIRES(writing_);
    DDS_ReturnCode_t add_instance(const rtps::KeyHash& key) MERIDIAN_REQUIRES(writing_);
    /// A sample with data, or the end of an instance or of the writer's part in it.
    enum class Kind { data, disposal, unregistration };
    DDS_ReturnCode_t write(const void* sample, const DDS_WriteParams_t& params, Kind kind);
    /// What the payload does not say; DDS_RETCODE_BAD_PARAMETER for an impossible time.
    DDS_ReturnCode_t fill_in(const DDS_WriteParams_t& params, const rtps::KeyHash& key,
                             rtps::WriteRequest& request) const;
    /// Waits for room as long as the reliability allows.
    DDS_ReturnCode_t send(const rtps::WriteRequest& request, const DDS_Duration_t& longest)
        MERIDIAN_REQUIRES(writing_);
    /// Calls `done(participant, now)` until it is true, at first and then every millisecond.
    /// DDS_RETCODE_TIMEOUT when it was not in that time, DDS_RETCODE_ALREADY_DELETED when the writer has
    /// stopped.
    template <typename Done>
    DDS_ReturnCode_t poll(const DDS_Duration_t& longest, Done done) MERIDIAN_EXCLUDES(mutex_);
    template <typename Status>
    DDS_ReturnCode_t read_status(Status& status, DDS_StatusMask bit) MERIDIAN_EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        status = statuses_.take<Status>();
        status_condition().set_read(bit);
        return DDS_RETCODE_OK;
    }

    WriterOwner& publisher_;

    Mutex writing_;
    std::set<rtps::KeyHash> instances_ MERIDIAN_GUARDED_BY(writing_); // registered

    ConditionVariable stopped_; // with mutex_
};

} // namespace meridian::dcps
