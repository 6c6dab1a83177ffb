#pragma once

// Readers and writers that know samples only as pointers. The typed readers and writers stand on them: what
// is typed is the sequence that samples are lent in, everything else is forwarded.

#include "meridian/condition.h"
#include "meridian/data_reader.h"
#include "meridian/data_writer.h"
#include "meridian/entity.h"
#include "meridian/sample_info.h"

/// Condition over the states of a reader's samples; triggered while the reader holds one that fits.
class DDSReadCondition : public DDSCondition {};

/// Which samples to read or take. The masks do not count where a condition is given.
struct DDSSampleSelection {
    DDS_Long max_samples = DDS_LENGTH_UNLIMITED;
    DDS_SampleStateMask sample_states = DDS_ANY_SAMPLE_STATE;
    DDS_ViewStateMask view_states = DDS_ANY_VIEW_STATE;
    DDS_InstanceStateMask instance_states = DDS_ANY_INSTANCE_STATE;
    DDSReadCondition* condition = nullptr;
    enum Scope { all_instances, this_instance, next_instance };
    Scope scope = all_instances;
    DDS_InstanceHandle_t instance{}; // the instance, or the one before it (nil: the first one)
};

/// The sequence that a typed reader was handed, as the rules of loans see it (OMG DDS 1.4, 2.2.2.5.3.8): one
/// that owns nothing borrows; one that owns a buffer gets copies, at most `maximum` of them.
struct DDSSampleSequenceState {
    DDS_Long length = 0;
    DDS_Long maximum = 0;
    DDS_Boolean has_ownership = true;
    /// Element i of the owned buffer, for copies; null when maximum is 0.
    void* (*element)(void* sequence, DDS_Long index) = nullptr;
    void* sequence = nullptr;
};

class DDSUntypedDataReader : public DDSDataReader {
  public:
    /// Owned by the reader until deleted.
    virtual DDSReadCondition* create_readcondition(DDS_SampleStateMask sample_states,
                                                   DDS_ViewStateMask view_states,
                                                   DDS_InstanceStateMask instance_states) = 0;
    virtual DDS_ReturnCode_t delete_readcondition(DDSReadCondition* condition) = 0;

    /// Reads or takes. On loan: *samples is an array of *count pointers that, like the infos, is the caller's
    /// until return_loan_untyped. Copied: *samples is null and *count elements of the sequence were filled.
    /// DDS_RETCODE_NO_DATA (and *count 0), DDS_RETCODE_PRECONDITION_NOT_MET when the two sequences contradict
    /// each other or are on loan already, DDS_RETCODE_BAD_PARAMETER for an unknown instance or a foreign
    /// condition, DDS_RETCODE_ERROR when a sample cannot be copied.
    virtual DDS_ReturnCode_t read_or_take_untyped(DDS_Boolean take, const DDSSampleSelection& selection,
                                                  const DDSSampleSequenceState& sequence, void*** samples,
                                                  DDS_Long* count, DDS_SampleInfoSeq& infos) = 0;
    /// DDS_RETCODE_PRECONDITION_NOT_MET when the samples are not on loan from this reader.
    virtual DDS_ReturnCode_t return_loan_untyped(void** samples, DDS_Long count,
                                                 DDS_SampleInfoSeq& infos) = 0;

    /// Fills the key members of `holder`; DDS_RETCODE_UNSUPPORTED when the type plugin cannot.
    virtual DDS_ReturnCode_t get_key_value_untyped(void* holder, const DDS_InstanceHandle_t& handle) = 0;
    /// The handle of the instance that `holder` belongs to; nil when the reader does not know it.
    virtual DDS_InstanceHandle_t lookup_instance_untyped(const void* holder) = 0;

  protected:
    ~DDSUntypedDataReader() override = default;
};

/// The writing operations of DDS 1.4, 2.2.2.4.2. A handle in the parameters may be nil;
/// DDS_RETCODE_BAD_PARAMETER when it is of no registered instance (or the type has no key),
/// DDS_RETCODE_PRECONDITION_NOT_MET when it is of another instance than the sample. DDS_RETCODE_TIMEOUT when
/// a reliable writer finds no room for reliability.max_blocking_time, DDS_RETCODE_OUT_OF_RESOURCES beyond
/// max_instances, DDS_RETCODE_ERROR when the plugin cannot serialize the sample or tell its key,
/// DDS_RETCODE_NOT_ENABLED.
class DDSUntypedDataWriter : public DDSDataWriter {
  public:
    /// A sample of which the plugin serializes nothing goes out without a payload.
    virtual DDS_ReturnCode_t write_untyped(const void* sample, const DDS_WriteParams_t& params) = 0;
    /// The handle of the instance; nil for a type without key, and where registering fails.
    virtual DDS_InstanceHandle_t register_instance_untyped(const void* sample,
                                                           const DDS_WriteParams_t& params) = 0;
    /// As the writer_data_lifecycle says, the instance is disposed as well. DDS_RETCODE_PRECONDITION_NOT_MET
    /// when the instance is not registered, and for a type without key; likewise for dispose, which
    /// registers.
    virtual DDS_ReturnCode_t unregister_instance_untyped(const void* sample,
                                                         const DDS_WriteParams_t& params) = 0;
    virtual DDS_ReturnCode_t dispose_untyped(const void* sample, const DDS_WriteParams_t& params) = 0;
    /// DDS_RETCODE_UNSUPPORTED: no plugin tells the key members of a bare key hash.
    virtual DDS_ReturnCode_t get_key_value_untyped(void* holder, const DDS_InstanceHandle_t& handle) = 0;
    /// The handle of the registered instance that `holder` belongs to, else nil.
    virtual DDS_InstanceHandle_t lookup_instance_untyped(const void* holder) = 0;

  protected:
    ~DDSUntypedDataWriter() override = default;
};
