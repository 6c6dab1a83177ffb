#include "dcps/entities/builtin_reader.h"

#include <cstdint>
#include <utility>

#include "dcps/entities/participant.h"
#include "discovery/builtin_data.h"
#include "discovery/conversions.h"
#include "platform/log.h"

namespace meridian::dcps {

namespace {

/// A sequence that neither owns memory nor has a loan.
template <typename T>
bool is_vacant(const DDS_Sequence<T>& sequence) {
    return sequence.has_ownership() && sequence.maximum() == 0;
}

} // namespace

template <typename Data>
BuiltinReader<Data>::BuiltinReader(const rtps::Guid& guid, Cache& cache, DDSTopicDescription& topic,
                                   DDSSubscriber& subscriber, ParticipantImpl& participant)
    : EntityImpl<DDSBuiltinTopicDataReader<Data>>(guid),
      cache_(cache),
      topic_(topic),
      subscriber_(subscriber),
      participant_(participant) {
    cache_.set_observer(this);
}

template <typename Data>
BuiltinReader<Data>::~BuiltinReader() {
    cache_.set_observer(nullptr);
}

template <typename Data>
DDS_ReturnCode_t BuiltinReader<Data>::enable() {
    if (!participant_.is_enabled())
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    this->set_enabled();
    return DDS_RETCODE_OK;
}

template <typename Data>
DDS_ReturnCode_t BuiltinReader<Data>::get_qos(DDS_DataReaderQos& qos) {
    DDS_DataReaderQos builtin;
    builtin.durability.kind = DDS_TRANSIENT_LOCAL_DURABILITY_QOS;
    builtin.reliability.kind = DDS_RELIABLE_RELIABILITY_QOS;
    builtin.history.depth = static_cast<DDS_Long>(discovery::EndpointCacheLimits{}.changes_per_endpoint);
    qos = builtin;
    return DDS_RETCODE_OK;
}

template <typename Data>
DDS_ReturnCode_t BuiltinReader<Data>::set_qos(const DDS_DataReaderQos& /*qos*/) {
    return DDS_RETCODE_IMMUTABLE_POLICY;
}

template <typename Data>
DDS_ReturnCode_t BuiltinReader<Data>::get_matched_publication_participant_data(
    DDS_ParticipantBuiltinTopicData& data, const DDS_InstanceHandle_t& publication_handle) {
    const auto endpoint = discovery::to_guid(publication_handle);
    if (!endpoint)
        return DDS_RETCODE_BAD_PARAMETER;
    if (const auto remote = cache_.participant_of(*endpoint)) {
        data = participant_.describe(*remote);
        return DDS_RETCODE_OK;
    }
    // The handle of the remote builtin writer, as in DDS_SampleInfo::publication_handle.
    if (!endpoint->entity.is_builtin() || !endpoint->entity.is_writer())
        return DDS_RETCODE_BAD_PARAMETER;
    return participant_.describe(endpoint->prefix, data);
}

template <typename Data>
DDS_ReturnCode_t BuiltinReader<Data>::take(Sequence& data, DDS_SampleInfoSeq& infos, DDS_Long max_samples,
                                           DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                                           DDS_InstanceStateMask instance_states) {
    if (max_samples != DDS_LENGTH_UNLIMITED && max_samples <= 0)
        return DDS_RETCODE_BAD_PARAMETER;
    if (sample_states != DDS_ANY_SAMPLE_STATE || view_states != DDS_ANY_VIEW_STATE ||
        instance_states != DDS_ANY_INSTANCE_STATE)
        return DDS_RETCODE_UNSUPPORTED;
    if (!is_vacant(data) || !is_vacant(infos))
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    auto loan = std::make_unique<Loan>();
    loan->changes =
        cache_.take(max_samples == DDS_LENGTH_UNLIMITED ? SIZE_MAX : static_cast<size_t>(max_samples));
    if (loan->changes.empty())
        return DDS_RETCODE_NO_DATA;
    loan->records.resize(loan->changes.size());
    for (size_t i = 0; i < loan->changes.size(); ++i) {
        Cache::Change& change = loan->changes[i];
        Data& record = loan->records[i];
        if (change.info.valid_data)
            discovery::fill(*change.endpoint, record);
        else
            discovery::fill_keys(*change.endpoint, record);
        loan->data.push_back(&record);
        loan->infos.push_back(&change.info);
    }
    const auto count = static_cast<DDS_Long>(loan->changes.size());
    data.loan_discontiguous(loan->data.data(), count);
    infos.loan_discontiguous(loan->infos.data(), count);
    MutexLock lock(mutex_);
    loans_[data.get_discontiguous_buffer()] = std::move(loan);
    return DDS_RETCODE_OK;
}

template <typename Data>
DDS_ReturnCode_t BuiltinReader<Data>::return_loan(Sequence& data, DDS_SampleInfoSeq& infos) {
    if (is_vacant(data) && is_vacant(infos))
        return DDS_RETCODE_OK; // what a take without data leaves
    std::unique_ptr<Loan> loan;
    {
        MutexLock lock(mutex_);
        const auto found = loans_.find(data.get_discontiguous_buffer());
        if (found == loans_.end() || infos.get_discontiguous_buffer() != found->second->infos.data())
            return DDS_RETCODE_PRECONDITION_NOT_MET;
        loan = std::move(found->second);
        loans_.erase(found);
    }
    data.unloan();
    infos.unloan();
    cache_.give_back(loan->changes);
    return DDS_RETCODE_OK;
}

template <typename Data>
DDS_ReturnCode_t BuiltinReader<Data>::get_key_value(Data& holder, const DDS_InstanceHandle_t& handle) {
    const auto endpoint = discovery::to_guid(handle);
    if (!endpoint || cache_.participant_of(*endpoint) == nullptr)
        return DDS_RETCODE_BAD_PARAMETER;
    holder.key = discovery::to_key(*endpoint);
    return DDS_RETCODE_OK;
}

template <typename Data>
void BuiltinReader<Data>::data_available(bool available) {
    if (available)
        this->status_condition().set_changed(DDS_DATA_AVAILABLE_STATUS);
    else
        this->status_condition().set_read(DDS_DATA_AVAILABLE_STATUS);
}

template <typename Data>
bool BuiltinReader<Data>::is_watched() {
    return this->status_condition().core()->is_attached();
}

template class BuiltinReader<DDS_PublicationBuiltinTopicData>;
template class BuiltinReader<DDS_SubscriptionBuiltinTopicData>;

} // namespace meridian::dcps
