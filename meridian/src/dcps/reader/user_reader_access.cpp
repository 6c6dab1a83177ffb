// A reader of a topic: what callers read, take and ask.

#include <algorithm>

#include "dcps/reader/read_condition.h"
#include "dcps/reader/user_reader.h"
#include "discovery/conversions.h"

namespace meridian::dcps {

thread_local std::unique_ptr<UserReader::Loan> UserReader::spare_loan_;

bool UserReader::has_loans() {
    MutexLock lock(mutex_);
    return loans_ != nullptr;
}

DDS_ReturnCode_t UserReader::get_matched_publication_participant_data(DDS_ParticipantBuiltinTopicData& data,
                                                                      const DDS_InstanceHandle_t& handle) {
    return subscriber_.participant_of_endpoint(data, handle);
}

DDSReadCondition* UserReader::create_readcondition(DDS_SampleStateMask sample_states,
                                                   DDS_ViewStateMask view_states,
                                                   DDS_InstanceStateMask instance_states) {
    const ReaderCache::Selection selection{DDS_LENGTH_UNLIMITED, sample_states, view_states, instance_states,
                                           std::nullopt};
    MutexLock lock(mutex_);
    conditions_.push_back(std::make_unique<ReadCondition>(selection));
    update_conditions();
    return conditions_.back().get();
}

DDS_ReturnCode_t UserReader::delete_readcondition(DDSReadCondition* condition) {
    MutexLock lock(mutex_);
    const auto found =
        std::find_if(conditions_.begin(), conditions_.end(),
                     [condition](const auto& candidate) { return candidate.get() == condition; });
    if (found == conditions_.end())
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    conditions_.erase(found);
    return DDS_RETCODE_OK;
}

void UserReader::update_conditions() {
    for (const auto& condition : conditions_)
        condition->core()->set_triggered(cache_.has(condition->selection()));
}

DDS_ReturnCode_t UserReader::to_selection(const DDSSampleSelection& wanted, ReaderCache::Selection& selection,
                                          bool& empty) {
    empty = false;
    if (wanted.condition != nullptr) {
        const auto known =
            std::find_if(conditions_.begin(), conditions_.end(),
                         [&wanted](const auto& candidate) { return candidate.get() == wanted.condition; });
        if (known == conditions_.end())
            return DDS_RETCODE_BAD_PARAMETER;
        selection = (*known)->selection();
    } else {
        selection = {wanted.max_samples, wanted.sample_states, wanted.view_states, wanted.instance_states,
                     std::nullopt};
    }
    if (wanted.max_samples != DDS_LENGTH_UNLIMITED && wanted.max_samples < 0)
        return DDS_RETCODE_BAD_PARAMETER;
    selection.max_samples = wanted.max_samples;
    std::optional<rtps::KeyHash> instance;
    if (wanted.instance.isValid)
        instance = discovery::to_key_hash(wanted.instance.keyHash);
    switch (wanted.scope) {
        case DDSSampleSelection::all_instances:
            break;
        case DDSSampleSelection::this_instance:
            if (!instance || !cache_.knows_instance(*instance))
                return DDS_RETCODE_BAD_PARAMETER;
            selection.instance = instance;
            break;
        case DDSSampleSelection::next_instance:
            selection.instance = cache_.next_instance(instance, selection);
            empty = !selection.instance;
            break;
    }
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t UserReader::copy_out(const ReaderCache::Batch& batch, const DDSSampleSequenceState& sequence,
                                      DDS_SampleInfoSeq& infos) {
    for (size_t i = 0; i < batch.infos.size(); ++i) {
        const auto index = static_cast<DDS_Long>(i);
        infos[index] = *batch.infos[i];
        if (batch.samples[i] == nullptr)
            continue;
        void* target = sequence.element(sequence.sequence, index);
        if (plugin().copySample == nullptr || !plugin().copySample(plugin_data(), target, batch.samples[i]))
            return DDS_RETCODE_ERROR;
    }
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t UserReader::read_or_take_untyped(DDS_Boolean take, const DDSSampleSelection& wanted,
                                                  const DDSSampleSequenceState& sequence, void*** samples,
                                                  DDS_Long* count, DDS_SampleInfoSeq& infos) {
    *samples = nullptr;
    *count = 0;
    if (!is_enabled())
        return DDS_RETCODE_NOT_ENABLED;
    if (!sequence.has_ownership || !infos.has_ownership() || sequence.maximum != infos.maximum())
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    const bool copies = sequence.maximum > 0;
    if (copies && wanted.max_samples > sequence.maximum)
        return DDS_RETCODE_PRECONDITION_NOT_MET;

    MutexLock lock(mutex_);
    ReaderCache::Selection selection;
    bool empty = false;
    const DDS_ReturnCode_t usable = to_selection(wanted, selection, empty);
    if (usable != DDS_RETCODE_OK)
        return usable;
    if (copies && selection.max_samples == DDS_LENGTH_UNLIMITED)
        selection.max_samples = sequence.maximum;
    notices_.read(DDS_DATA_AVAILABLE_STATUS); // what arrives from now on is news
    std::unique_ptr<Loan> loan = spare_loan_ != nullptr ? std::move(spare_loan_) : std::make_unique<Loan>();
    ReaderCache::Batch& batch = loan->batch;
    if (empty || !(take ? cache_.take(selection, batch) : cache_.read(selection, batch))) {
        end_loan(std::move(loan));
        return DDS_RETCODE_NO_DATA;
    }
    update_conditions();

    const auto taken = static_cast<DDS_Long>(batch.infos.size());
    if (copies) {
        infos.length(taken);
        const DDS_ReturnCode_t copied = copy_out(batch, sequence, infos);
        end_loan(std::move(loan));
        *count = copied == DDS_RETCODE_OK ? taken : 0;
        return copied;
    }
    if (!infos.loan_discontiguous(batch.infos.data(), taken)) {
        end_loan(std::move(loan));
        return DDS_RETCODE_ERROR;
    }
    *samples = batch.samples.data();
    *count = taken;
    loan->next = std::move(loans_);
    loans_ = std::move(loan);
    return DDS_RETCODE_OK;
}

void UserReader::end_loan(std::unique_ptr<Loan> loan) {
    cache_.return_batch(loan->batch);
    spare_loan_ = std::move(loan);
}

DDS_ReturnCode_t UserReader::return_loan_untyped(void** samples, DDS_Long count, DDS_SampleInfoSeq& infos) {
    MutexLock lock(mutex_);
    std::unique_ptr<Loan>* place = &loans_;
    while (*place != nullptr && (*place)->batch.samples.data() != samples)
        place = &(*place)->next;
    const ReaderCache::Batch* const batch = *place != nullptr ? &(*place)->batch : nullptr;
    if (batch == nullptr || infos.get_discontiguous_buffer() != batch->infos.data() ||
        static_cast<size_t>(count) != batch->infos.size())
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    infos.unloan();
    std::unique_ptr<Loan> loan = std::move(*place);
    *place = std::move(loan->next);
    end_loan(std::move(loan));
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t UserReader::get_key_value_untyped(void* /*holder*/, const DDS_InstanceHandle_t& handle) {
    // Only a plugin could tell the key members, and the interface of plugins has no call for a bare hash.
    return handle.isValid ? DDS_RETCODE_UNSUPPORTED : DDS_RETCODE_BAD_PARAMETER;
}

DDS_InstanceHandle_t UserReader::lookup_instance_untyped(const void* holder) {
    PRESKeyHash hash{};
    if (!keyed_ || holder == nullptr || plugin().instanceToKeyHash == nullptr ||
        !plugin().instanceToKeyHash(plugin_data(), &hash, holder))
        return DDS_HANDLE_NIL;
    const rtps::KeyHash key = discovery::to_key_hash(hash.value);
    MutexLock lock(mutex_);
    return cache_.knows_instance(key) ? discovery::to_handle(key) : DDS_HANDLE_NIL;
}

} // namespace meridian::dcps
