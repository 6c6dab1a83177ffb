#include "dcps/entities/builtin_reader.h"

#include <limits>
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

template <typename Data>
void fill_from(const discovery::EndpointCache::Change& change, Data& out) {
    if (change.info.valid_data)
        discovery::fill(*change.endpoint, out);
    else
        discovery::fill_keys(*change.endpoint, out);
}

bool is_own_loan(const void* token, const void* other_token) {
    return token != nullptr && token == other_token;
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
DDS_ReturnCode_t BuiltinReader<Data>::set_listener(DDSDataReaderListener* listener, DDS_StatusMask /*mask*/) {
    return listener == nullptr ? DDS_RETCODE_OK : DDS_RETCODE_UNSUPPORTED;
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
    if (!data.has_ownership() || !infos.has_ownership() || data.maximum() != infos.maximum() ||
        data.length() != infos.length())
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    const bool on_loan = is_vacant(data);
    if (!on_loan && max_samples > data.maximum())
        return DDS_RETCODE_PRECONDITION_NOT_MET;

    DDS_Long limit = max_samples;
    if (limit == DDS_LENGTH_UNLIMITED)
        limit = on_loan ? std::numeric_limits<DDS_Long>::max() : data.maximum();
    auto changes =
        cache_.take(static_cast<size_t>(limit), {sample_states, view_states, instance_states}, on_loan);
    data.length(0);
    infos.length(0);
    if (changes.empty())
        return DDS_RETCODE_NO_DATA;
    if (on_loan) {
        lend(std::move(changes), data, infos);
        return DDS_RETCODE_OK;
    }
    for (const auto& change : changes) {
        Data record;
        fill_from(change, record);
        data.append(record);
        infos.append(change.info);
    }
    return DDS_RETCODE_OK;
}

template <typename Data>
void BuiltinReader<Data>::lend(std::vector<Cache::Change> changes, Sequence& data, DDS_SampleInfoSeq& infos) {
    auto loan = std::make_unique<Loan>();
    loan->changes = std::move(changes);
    loan->records.resize(loan->changes.size());
    for (size_t i = 0; i < loan->changes.size(); ++i) {
        fill_from(loan->changes[i], loan->records[i]);
        loan->data.push_back(&loan->records[i]);
        loan->infos.push_back(&loan->changes[i].info);
    }
    const auto count = static_cast<DDS_Long>(loan->changes.size());
    data.loan_discontiguous(loan->data.data(), count);
    infos.loan_discontiguous(loan->infos.data(), count);
    data.read_token = infos.read_token = loan.get();
    MutexLock lock(mutex_);
    loans_[loan.get()] = std::move(loan);
}

template <typename Data>
DDS_ReturnCode_t BuiltinReader<Data>::return_loan(Sequence& data, DDS_SampleInfoSeq& infos) {
    if (is_vacant(data) && is_vacant(infos))
        return DDS_RETCODE_OK; // what a take without data leaves
    if (!is_own_loan(data.read_token, infos.read_token))
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    std::unique_ptr<Loan> loan;
    {
        MutexLock lock(mutex_);
        const auto found = loans_.find(data.read_token);
        if (found == loans_.end() || data.get_discontiguous_buffer() != found->second->data.data() ||
            infos.get_discontiguous_buffer() != found->second->infos.data())
            return DDS_RETCODE_PRECONDITION_NOT_MET;
        loan = std::move(found->second);
        loans_.erase(found);
    }
    data.unloan();
    infos.unloan();
    data.read_token = infos.read_token = nullptr;
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
