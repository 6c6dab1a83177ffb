#pragma once

#include <memory>
#include <vector>

#include "dcps/delivery/delivery_thread.h"
#include "dcps/endpoints/user_endpoint.h"
#include "dcps/reader/not_taken_report.h"
#include "dcps/reader/reader_cache.h"
#include "dcps/reader/reader_notices.h"
#include "dcps/reader/reader_statuses.h"
#include "dcps/reader/sample_decoder.h"
#include "dcps/reader/sample_stock.h"
#include "dcps/reader/withheld_samples.h"
#include "discovery/announcement_watch.h"
#include "meridian/subscriber.h"
#include "meridian/untyped_entities.h"

namespace meridian::dcps {

class ReadCondition;
class UserReader;

/// The subscriber as its readers see it.
class ReaderOwner : public EndpointOwner<DDSSubscriber, UserReader> {
  public:
    /// What the application is told of remote publications.
    virtual discovery::AnnouncementWatch& announcements() const = 0;
    virtual DDS_ReturnCode_t participant_of_endpoint(DDS_ParticipantBuiltinTopicData& data,
                                                     const DDS_InstanceHandle_t& endpoint) = 0;

  protected:
    ~ReaderOwner() override = default;
};

/// The reader of a topic: decodes each received sample, keeps it in a cache until it is taken, and tells its
/// listener on the delivery thread.
///
/// Samples and events of the protocol arrive under the lock of the runtime; the reader's own lock is taken
/// under it and never the other way round.
class UserReader final : public UserEndpoint<DDSUntypedDataReader, DDS_DataReaderQos, ReaderStatuses>,
                         public rtps::ReaderSink,
                         public discovery::AnnouncementObserver,
                         private Deliverable {
  public:
    /// The subscriber, the topic and the delivery thread must outlive the reader. Null with a logged reason
    /// when the plugin refuses.
    static std::unique_ptr<UserReader> create(ReaderOwner& subscriber, TopicImpl& topic,
                                              TypeRegistry::Type type, const rtps::Guid& guid,
                                              const DDS_DataReaderQos& qos, DeliveryThread& delivery);
    ~UserReader() override;

    /// The reader that callers and listeners see. Set once, before the reader is enabled.
    void set_face(DDSDataReader* face) { face_ = face; }
    DDSDataReader* face() const { return face_; }

    /// The listener stays the caller's. Set once, too.
    void set_listener(DDSDataReaderListener* listener, DDS_StatusMask mask) {
        MutexLock lock(mutex_);
        notices_.set_listener(listener, mask);
    }

    /// Announces the reader and begins to receive. The runtime must outlive stop().
    bool start(rtps::net::Runtime& runtime, const DDS_GroupPolicies& group);
    /// Leaves the domain and lets no callback begin any more; returns when none runs on another thread.
    void stop();
    bool has_loans();

    DDS_ReturnCode_t enable() override;
    DDSTopicDescription* get_topicdescription() override { return &topic_; }
    DDSSubscriber* get_subscriber() override { return &subscriber_; }
    DDS_ReturnCode_t get_matched_publication_participant_data(DDS_ParticipantBuiltinTopicData& data,
                                                              const DDS_InstanceHandle_t& handle) override;
    DDS_ReturnCode_t read_status(const DDSReaderStatus& status) override MERIDIAN_EXCLUDES(mutex_);
    char* describe_incompatibility(const DDS_EndpointPolicies& writer,
                                   const DDS_GroupPolicies& publisher) override;

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
    void on_batch_end() override;
    void on_lost(const rtps::Guid& writer, uint64_t count) override;
    void on_not_taken(const rtps::Guid& writer, rtps::NotTaken reason, uint64_t count) override;
    void matched(const rtps::RemoteEndpoint& remote) override;
    void unmatched(const rtps::Guid& remote) override;
    void match_changed(const rtps::RemoteEndpoint& remote) override;
    void incompatible(const rtps::RemoteEndpoint& remote, const std::vector<uint32_t>& policies) override;
    void liveliness_changed(const rtps::Guid& remote, bool alive) override;
    /// Where type coercion is disallowed: only writers of a type that is known to be the same, or not known
    /// at all. Where types must be validated, it must be known.
    bool accepts_type(const rtps::RemoteEndpoint& writer) override;

    // On a thread of the application, which takes the announcement of a writer.
    void announcement_given(const rtps::Guid& writer) override;

  private:
    struct Loan {
        ReaderCache::Batch batch;
        std::unique_ptr<Loan> next;
    };
    struct Received {
        Change change;
        bool undecodable = false;
    };

    UserReader(ReaderOwner& subscriber, TopicImpl& topic, TypeRegistry::Type type, const rtps::Guid& guid,
               const DDS_DataReaderQos& qos, DeliveryThread& delivery);

    void deliver(rtps::MonotonicTime now) override;
    void on_deliveries_end() override;
    void qos_changed() override MERIDIAN_REQUIRES(mutex_);
    ReaderCache::Settings cache_settings(const DDS_DataReaderQos& qos) const;
    /// Stores what was received since the last time.
    void store_received() MERIDIAN_REQUIRES(mutex_);
    /// Into the cache, unless its writer is withheld. Like the following, returns the statuses that changed;
    /// they are still to be told by stored().
    DDS_StatusMask store(const Change& change) MERIDIAN_REQUIRES(mutex_);
    DDS_StatusMask store_now(const Change& change) MERIDIAN_REQUIRES(mutex_);
    DDS_StatusMask store_withheld(const rtps::Guid& writer) MERIDIAN_REQUIRES(mutex_);
    DDS_StatusMask store_all(const WithheldSamples::Withheld& withheld) MERIDIAN_REQUIRES(mutex_);
    DDS_StatusMask store_end(const rtps::Guid& writer, const WithheldSamples::End& end)
        MERIDIAN_REQUIRES(mutex_);
    void stored(DDS_StatusMask statuses) MERIDIAN_REQUIRES(mutex_);
    void tell_undecodable(const Change& change) MERIDIAN_REQUIRES(mutex_);
    void tell_overwritten(bool at_end) MERIDIAN_REQUIRES(mutex_);
    void changed(DDS_StatusMask statuses) MERIDIAN_REQUIRES(mutex_);
    void update_conditions() MERIDIAN_REQUIRES(mutex_);
    void arm_timer() MERIDIAN_REQUIRES(mutex_);
    void call_listener(DDSDataReaderListener& listener, DDS_StatusMask statuses);
    DDS_ReturnCode_t to_selection(const DDSSampleSelection& wanted, ReaderCache::Selection& selection,
                                  bool& empty) MERIDIAN_REQUIRES(mutex_);
    DDS_ReturnCode_t copy_out(const ReaderCache::Batch& batch, const DDSSampleSequenceState& sequence,
                              DDS_SampleInfoSeq& infos);
    void end_loan(std::unique_ptr<Loan> loan) MERIDIAN_REQUIRES(mutex_);

    // Memory that grew to the size of what is received and taken together. All readers use the same: with
    // many topics that of each would have left the processor's cache.
    static thread_local std::vector<std::vector<Received>> spare_received_;
    static thread_local std::unique_ptr<Loan> spare_loan_;

    ReaderOwner& subscriber_;
    DeliveryThread& delivery_;
    DDSDataReader* face_ = nullptr;
    /// What the stock, the cache and the withheld samples take. Used with the reader locked.
    MemoryShare share_;
    SampleStock stock_;
    // Under the lock of the runtime.
    SampleDecoder decoder_;
    NotTakenReport not_taken_;
    std::vector<Received> received_; // not stored yet; without memory of its own in between
    size_t bytes_received_ = 0;      // of those

    ReaderCache cache_ MERIDIAN_GUARDED_BY(mutex_);
    WithheldSamples withheld_ MERIDIAN_GUARDED_BY(mutex_);
    ReaderNotices notices_ MERIDIAN_GUARDED_BY(mutex_);
    size_t most_in_a_rest_ MERIDIAN_GUARDED_BY(mutex_); // samples
    rtps::MonotonicTime armed_ MERIDIAN_GUARDED_BY(mutex_) = rtps::kNever;
    std::vector<DDS_InstanceHandle_t> missed_ MERIDIAN_GUARDED_BY(mutex_); // deadlines, of the last timer
    uint64_t overwritten_told_ MERIDIAN_GUARDED_BY(mutex_) = 0;
    uint64_t undecodable_ MERIDIAN_GUARDED_BY(mutex_) = 0;
    std::unique_ptr<Loan> loans_ MERIDIAN_GUARDED_BY(mutex_); // the latest first; rarely more than one
    std::vector<std::unique_ptr<ReadCondition>> conditions_ MERIDIAN_GUARDED_BY(mutex_);
};

} // namespace meridian::dcps
