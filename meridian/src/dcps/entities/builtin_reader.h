#pragma once

#include <memory>
#include <unordered_map>
#include <vector>

#include "dcps/common/entity_impl.h"
#include "discovery/endpoint_cache.h"
#include "meridian/builtin_topics.h"
#include "platform/mutex.h"

namespace meridian::dcps {

class ParticipantImpl;

/// Reader of one builtin topic: the public face of an endpoint cache. Owned by the builtin subscriber of its
/// participant. What is on loan stays until the reader is destroyed.
template <typename Data>
class BuiltinReader final : public EntityImpl<DDSBuiltinTopicDataReader<Data>>,
                            public discovery::EndpointCacheObserver {
  public:
    using Cache = discovery::EndpointCache;
    using Sequence = DDS_Sequence<Data>;

    /// The cache, topic, subscriber and participant must outlive the reader.
    BuiltinReader(const rtps::Guid& guid, Cache& cache, DDSTopicDescription& topic, DDSSubscriber& subscriber,
                  ParticipantImpl& participant);
    ~BuiltinReader() override;

    DDS_ReturnCode_t enable() override;
    DDS_ReturnCode_t get_qos(DDS_DataReaderQos& qos) override;
    DDS_ReturnCode_t set_qos(const DDS_DataReaderQos& qos) override;
    DDSTopicDescription* get_topicdescription() override { return &topic_; }
    DDSSubscriber* get_subscriber() override { return &subscriber_; }
    DDS_ReturnCode_t get_matched_publication_participant_data(
        DDS_ParticipantBuiltinTopicData& data, const DDS_InstanceHandle_t& publication_handle) override;

    DDS_ReturnCode_t take(Sequence& data, DDS_SampleInfoSeq& infos, DDS_Long max_samples,
                          DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                          DDS_InstanceStateMask instance_states) override;
    DDS_ReturnCode_t return_loan(Sequence& data, DDS_SampleInfoSeq& infos) override;
    DDS_ReturnCode_t get_key_value(Data& holder, const DDS_InstanceHandle_t& handle) override;

    void data_available(bool available) override;
    bool is_watched() override;

  private:
    /// What the sequences of one take point to.
    struct Loan {
        std::vector<Cache::Change> changes;
        std::vector<Data> records; // as many as changes
        std::vector<Data*> data;
        std::vector<DDS_SampleInfo*> infos;
    };

    Cache& cache_;
    DDSTopicDescription& topic_;
    DDSSubscriber& subscriber_;
    ParticipantImpl& participant_;
    Mutex mutex_;
    /// By the buffer that the sequence borrowed.
    std::unordered_map<const void*, std::unique_ptr<Loan>> loans_ MERIDIAN_GUARDED_BY(mutex_);
};

extern template class BuiltinReader<DDS_PublicationBuiltinTopicData>;
extern template class BuiltinReader<DDS_SubscriptionBuiltinTopicData>;

} // namespace meridian::dcps
