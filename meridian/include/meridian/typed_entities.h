#pragma once

// Typed readers and writers as thin layers over untyped ones (OMG DDS 1.4, 2.2.2.5.3). One template serves
// every type: what a type adds is its sequence, its name and how to tell its readers from others.
//
// A typed entity does not own the untyped one, which outlives it.

#include "meridian/logger.h"
#include "meridian/untyped_entities.h"

/// What readers and writers have in common.
template <typename Face, typename Untyped, typename Qos, typename Sample>
class DDSTypedEndpoint : public Face {
  public:
    explicit DDSTypedEndpoint(Untyped* untyped) : untyped_(untyped) {}
    ~DDSTypedEndpoint() override = default;

    DDS_ReturnCode_t get_key_value(Sample& holder, const DDS_InstanceHandle_t& handle) {
        return untyped_->get_key_value_untyped(&holder, handle);
    }
    DDS_InstanceHandle_t lookup_instance(const Sample& holder) {
        return untyped_->lookup_instance_untyped(&holder);
    }

    DDS_ReturnCode_t enable() override { return untyped_->enable(); }
    DDSStatusCondition* get_statuscondition() override { return untyped_->get_statuscondition(); }
    DDS_StatusMask get_status_changes() override { return untyped_->get_status_changes(); }
    DDS_InstanceHandle_t get_instance_handle() override { return untyped_->get_instance_handle(); }
    DDS_ReturnCode_t get_qos(Qos& qos) override { return untyped_->get_qos(qos); }
    DDS_ReturnCode_t set_qos(const Qos& qos) override { return untyped_->set_qos(qos); }

    Untyped* untyped() const { return untyped_; }

  protected:
    Untyped* const untyped_;
};

/// Reader of samples of type Sample. Sequence is DDS_Sequence<Sample> or offers the same loan operations.
template <typename Sample, typename Sequence>
class DDSTypedDataReader
    : public DDSTypedEndpoint<DDSDataReader, DDSUntypedDataReader, DDS_DataReaderQos, Sample> {
    using Endpoint = DDSTypedEndpoint<DDSDataReader, DDSUntypedDataReader, DDS_DataReaderQos, Sample>;
    using Endpoint::untyped_;

  public:
    explicit DDSTypedDataReader(DDSUntypedDataReader* untyped) : Endpoint(untyped) {}

    /// Fill `data` and `infos` with up to max_samples (DDS_LENGTH_UNLIMITED: all) that match: on loan when
    /// both sequences own nothing, and then to be given back with return_loan; else copied.
    /// DDS_RETCODE_NO_DATA, and the length of `data` 0, when nothing matches; further codes as
    /// DDSUntypedDataReader says.
    DDS_ReturnCode_t read(Sequence& data, DDS_SampleInfoSeq& infos, DDS_Long max_samples,
                          DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                          DDS_InstanceStateMask instance_states) {
        return access(false, data, infos, {max_samples, sample_states, view_states, instance_states});
    }
    DDS_ReturnCode_t take(Sequence& data, DDS_SampleInfoSeq& infos, DDS_Long max_samples,
                          DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                          DDS_InstanceStateMask instance_states) {
        return access(true, data, infos, {max_samples, sample_states, view_states, instance_states});
    }
    DDS_ReturnCode_t read_w_condition(Sequence& data, DDS_SampleInfoSeq& infos, DDS_Long max_samples,
                                      DDSReadCondition* condition) {
        return access_w_condition(false, data, infos, max_samples, condition);
    }
    DDS_ReturnCode_t take_w_condition(Sequence& data, DDS_SampleInfoSeq& infos, DDS_Long max_samples,
                                      DDSReadCondition* condition) {
        return access_w_condition(true, data, infos, max_samples, condition);
    }

    /// Copy the next sample that was not read before.
    DDS_ReturnCode_t read_next_sample(Sample& data, DDS_SampleInfo& info) {
        return access_next(false, data, info);
    }
    DDS_ReturnCode_t take_next_sample(Sample& data, DDS_SampleInfo& info) {
        return access_next(true, data, info);
    }

    /// The same for one instance, or for the one after `previous` (nil: the first) that has samples.
    DDS_ReturnCode_t read_instance(Sequence& data, DDS_SampleInfoSeq& infos, DDS_Long max_samples,
                                   const DDS_InstanceHandle_t& instance, DDS_SampleStateMask sample_states,
                                   DDS_ViewStateMask view_states, DDS_InstanceStateMask instance_states) {
        return access(false, data, infos,
                      {max_samples, sample_states, view_states, instance_states, nullptr,
                       DDSSampleSelection::this_instance, instance});
    }
    DDS_ReturnCode_t take_instance(Sequence& data, DDS_SampleInfoSeq& infos, DDS_Long max_samples,
                                   const DDS_InstanceHandle_t& instance, DDS_SampleStateMask sample_states,
                                   DDS_ViewStateMask view_states, DDS_InstanceStateMask instance_states) {
        return access(true, data, infos,
                      {max_samples, sample_states, view_states, instance_states, nullptr,
                       DDSSampleSelection::this_instance, instance});
    }
    DDS_ReturnCode_t read_instance_w_condition(Sequence& data, DDS_SampleInfoSeq& infos, DDS_Long max_samples,
                                               const DDS_InstanceHandle_t& instance,
                                               DDSReadCondition* condition) {
        return access_w_condition(false, data, infos, max_samples, condition,
                                  DDSSampleSelection::this_instance, instance);
    }
    DDS_ReturnCode_t take_instance_w_condition(Sequence& data, DDS_SampleInfoSeq& infos, DDS_Long max_samples,
                                               const DDS_InstanceHandle_t& instance,
                                               DDSReadCondition* condition) {
        return access_w_condition(true, data, infos, max_samples, condition,
                                  DDSSampleSelection::this_instance, instance);
    }
    DDS_ReturnCode_t read_next_instance(Sequence& data, DDS_SampleInfoSeq& infos, DDS_Long max_samples,
                                        const DDS_InstanceHandle_t& previous,
                                        DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                                        DDS_InstanceStateMask instance_states) {
        return access(false, data, infos,
                      {max_samples, sample_states, view_states, instance_states, nullptr,
                       DDSSampleSelection::next_instance, previous});
    }
    DDS_ReturnCode_t take_next_instance(Sequence& data, DDS_SampleInfoSeq& infos, DDS_Long max_samples,
                                        const DDS_InstanceHandle_t& previous,
                                        DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                                        DDS_InstanceStateMask instance_states) {
        return access(true, data, infos,
                      {max_samples, sample_states, view_states, instance_states, nullptr,
                       DDSSampleSelection::next_instance, previous});
    }
    DDS_ReturnCode_t read_next_instance_w_condition(Sequence& data, DDS_SampleInfoSeq& infos,
                                                    DDS_Long max_samples,
                                                    const DDS_InstanceHandle_t& previous,
                                                    DDSReadCondition* condition) {
        return access_w_condition(false, data, infos, max_samples, condition,
                                  DDSSampleSelection::next_instance, previous);
    }
    DDS_ReturnCode_t take_next_instance_w_condition(Sequence& data, DDS_SampleInfoSeq& infos,
                                                    DDS_Long max_samples,
                                                    const DDS_InstanceHandle_t& previous,
                                                    DDSReadCondition* condition) {
        return access_w_condition(true, data, infos, max_samples, condition,
                                  DDSSampleSelection::next_instance, previous);
    }

    /// Gives a loan back. Succeeds at once when both sequences own their buffers.
    DDS_ReturnCode_t return_loan(Sequence& data, DDS_SampleInfoSeq& infos) {
        if (data.has_ownership() && infos.has_ownership())
            return DDS_RETCODE_OK;
        const DDS_ReturnCode_t returned = untyped_->return_loan_untyped(
            reinterpret_cast<void**>(data.get_discontiguous_buffer()), data.length(), infos);
        if (returned != DDS_RETCODE_OK)
            return returned;
        if (!data.unloan()) {
            QUIXLog_failure("TDataReader::return_loan", "unloan sequence");
            return DDS_RETCODE_ERROR;
        }
        return DDS_RETCODE_OK;
    }

    DDSTopicDescription* get_topicdescription() override { return untyped_->get_topicdescription(); }
    DDSSubscriber* get_subscriber() override { return untyped_->get_subscriber(); }
    DDS_ReturnCode_t get_matched_publication_participant_data(DDS_ParticipantBuiltinTopicData& data,
                                                              const DDS_InstanceHandle_t& handle) override {
        return untyped_->get_matched_publication_participant_data(data, handle);
    }
    DDS_ReturnCode_t read_status(const DDSReaderStatus& status) override {
        return untyped_->read_status(status);
    }
    char* describe_incompatibility(const DDS_EndpointPolicies& writer,
                                   const DDS_GroupPolicies& publisher) override {
        return untyped_->describe_incompatibility(writer, publisher);
    }
    DDSReadCondition* create_readcondition(DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                                           DDS_InstanceStateMask instance_states) {
        return untyped_->create_readcondition(sample_states, view_states, instance_states);
    }
    DDS_ReturnCode_t delete_readcondition(DDSReadCondition* condition) {
        return untyped_->delete_readcondition(condition);
    }

  private:
    static void* element_of(void* sequence, DDS_Long index) {
        return &(*static_cast<Sequence*>(sequence))[index];
    }

    DDS_ReturnCode_t access_w_condition(bool take, Sequence& data, DDS_SampleInfoSeq& infos,
                                        DDS_Long max_samples, DDSReadCondition* condition,
                                        DDSSampleSelection::Scope scope = DDSSampleSelection::all_instances,
                                        const DDS_InstanceHandle_t& instance = {}) {
        if (condition == nullptr)
            return DDS_RETCODE_BAD_PARAMETER;
        return access(take, data, infos,
                      {max_samples, DDS_ANY_SAMPLE_STATE, DDS_ANY_VIEW_STATE, DDS_ANY_INSTANCE_STATE,
                       condition, scope, instance});
    }

    DDS_ReturnCode_t access(bool take, Sequence& data, DDS_SampleInfoSeq& infos,
                            const DDSSampleSelection& selection) {
        DDSSampleSequenceState state;
        state.length = data.length();
        state.maximum = data.maximum();
        state.has_ownership = data.has_ownership();
        state.element = &element_of;
        state.sequence = &data;
        const bool copies = state.has_ownership && state.maximum > 0;
        if (copies)
            data.length(state.maximum); // elements must be reachable to be filled
        void** samples = nullptr;
        DDS_Long count = 0;
        const DDS_ReturnCode_t result =
            untyped_->read_or_take_untyped(take, selection, state, &samples, &count, infos);
        if (copies)
            data.length(result == DDS_RETCODE_OK ? count : result == DDS_RETCODE_NO_DATA ? 0 : state.length);
        if (result != DDS_RETCODE_OK || samples == nullptr)
            return result;
        if (!data.loan_discontiguous(reinterpret_cast<Sample**>(samples), count)) {
            untyped_->return_loan_untyped(samples, count, infos);
            return DDS_RETCODE_ERROR;
        }
        return DDS_RETCODE_OK;
    }

    DDS_ReturnCode_t access_next(bool take, Sample& data, DDS_SampleInfo& info) {
        DDSSampleSequenceState state;
        state.maximum = 1;
        state.element = [](void* sample, DDS_Long) { return sample; };
        state.sequence = &data;
        const DDSSampleSelection selection{1, DDS_NOT_READ_SAMPLE_STATE};
        void** samples = nullptr;
        DDS_Long count = 0;
        DDS_SampleInfoSeq infos(1);
        const DDS_ReturnCode_t result =
            untyped_->read_or_take_untyped(take, selection, state, &samples, &count, infos);
        if (result == DDS_RETCODE_OK)
            info = infos[0];
        return result;
    }
};

/// Writer of samples of type Sample.
template <typename Sample>
class DDSTypedDataWriter
    : public DDSTypedEndpoint<DDSDataWriter, DDSUntypedDataWriter, DDS_DataWriterQos, Sample> {
    using Endpoint = DDSTypedEndpoint<DDSDataWriter, DDSUntypedDataWriter, DDS_DataWriterQos, Sample>;
    using Endpoint::untyped_;

  public:
    explicit DDSTypedDataWriter(DDSUntypedDataWriter* untyped) : Endpoint(untyped) {}

    DDS_ReturnCode_t write(const Sample& sample, const DDS_InstanceHandle_t& handle) {
        return untyped_->write_untyped(&sample, at(handle, DDS_TIME_INVALID));
    }
    DDS_ReturnCode_t write_w_timestamp(const Sample& sample, const DDS_InstanceHandle_t& handle,
                                       const DDS_Time_t& timestamp) {
        return untyped_->write_untyped(&sample, at(handle, timestamp));
    }
    DDS_ReturnCode_t write_w_params(const Sample& sample, const DDS_WriteParams_t& params) {
        return untyped_->write_untyped(&sample, params);
    }
    DDS_InstanceHandle_t register_instance(const Sample& sample) {
        return untyped_->register_instance_untyped(&sample, {});
    }
    DDS_InstanceHandle_t register_instance_w_timestamp(const Sample& sample, const DDS_Time_t& timestamp) {
        return untyped_->register_instance_untyped(&sample, at(DDS_HANDLE_NIL, timestamp));
    }
    DDS_InstanceHandle_t register_instance_w_params(const Sample& sample, const DDS_WriteParams_t& params) {
        return untyped_->register_instance_untyped(&sample, params);
    }
    DDS_ReturnCode_t unregister_instance(const Sample& sample, const DDS_InstanceHandle_t& handle) {
        return untyped_->unregister_instance_untyped(&sample, at(handle, DDS_TIME_INVALID));
    }
    DDS_ReturnCode_t unregister_instance_w_timestamp(const Sample& sample, const DDS_InstanceHandle_t& handle,
                                                     const DDS_Time_t& timestamp) {
        return untyped_->unregister_instance_untyped(&sample, at(handle, timestamp));
    }
    DDS_ReturnCode_t unregister_instance_w_params(const Sample& sample, const DDS_WriteParams_t& params) {
        return untyped_->unregister_instance_untyped(&sample, params);
    }
    DDS_ReturnCode_t dispose(const Sample& sample, const DDS_InstanceHandle_t& handle) {
        return untyped_->dispose_untyped(&sample, at(handle, DDS_TIME_INVALID));
    }
    DDS_ReturnCode_t dispose_w_timestamp(const Sample& sample, const DDS_InstanceHandle_t& handle,
                                         const DDS_Time_t& timestamp) {
        return untyped_->dispose_untyped(&sample, at(handle, timestamp));
    }
    DDS_ReturnCode_t dispose_w_params(const Sample& sample, const DDS_WriteParams_t& params) {
        return untyped_->dispose_untyped(&sample, params);
    }
    DDS_ReturnCode_t get_publication_matched_status(DDS_PublicationMatchedStatus& status) override {
        return untyped_->get_publication_matched_status(status);
    }
    DDS_ReturnCode_t get_offered_incompatible_qos_status(DDS_OfferedIncompatibleQosStatus& status) override {
        return untyped_->get_offered_incompatible_qos_status(status);
    }
    DDS_ReturnCode_t get_matched_subscriptions(DDS_InstanceHandleSeq& subscriptions) override {
        return untyped_->get_matched_subscriptions(subscriptions);
    }
    DDSTopic* get_topic() override { return untyped_->get_topic(); }
    DDSPublisher* get_publisher() override { return untyped_->get_publisher(); }
    DDS_ReturnCode_t wait_for_acknowledgments(const DDS_Duration_t& max_wait) override {
        return untyped_->wait_for_acknowledgments(max_wait);
    }
    DDS_ReturnCode_t assert_liveliness() override { return untyped_->assert_liveliness(); }

  private:
    static DDS_WriteParams_t at(const DDS_InstanceHandle_t& handle, const DDS_Time_t& timestamp) {
        DDS_WriteParams_t params;
        params.handle = handle;
        params.source_timestamp = timestamp;
        return params;
    }
};
