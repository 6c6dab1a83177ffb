#pragma once

// Type support, readers and writers of the two opaque types: one implementation, told apart by a family
// record.

#include "meridian/domain_participant.h"
#include "meridian/typed_entities.h"
#include "quixspy/generated/DynamicTypeSeq.h"

struct DynamicTypeFamily {
    using Sample = DynamicType;
    static constexpr const char* kTypeName = DynamicTypeTYPENAME;
    static constexpr auto& new_plugin = DynamicTypePlugin_new;
    static constexpr auto& create_data_w_params = DynamicTypePluginSupport_create_data_w_params;
    static constexpr auto& print_data = DynamicTypePluginSupport_print_data;
};
struct KeyedDynamicTypeFamily {
    using Sample = KeyedDynamicType;
    static constexpr const char* kTypeName = KeyedDynamicTypeTYPENAME;
    static constexpr auto& new_plugin = KeyedDynamicTypePlugin_new;
    static constexpr auto& create_data_w_params = KeyedDynamicTypePluginSupport_create_data_w_params;
    static constexpr auto& print_data = KeyedDynamicTypePluginSupport_print_data;
};

/// Reader; owned by the type support's caller, stands on an untyped reader that outlives it.
template <typename Family>
class OpaqueTypeDataReader
    : public DDSTypedDataReader<typename Family::Sample, OpaqueTypeSeq<typename Family::Sample>> {
  public:
    /// The reader as one of this type; null, and logged, for a null reader or one registered under another
    /// type name.
    static OpaqueTypeDataReader* narrow(DDSDataReader* reader);
    /// Null when memory is short.
    static OpaqueTypeDataReader* createI(DDSUntypedDataReader* untyped);
    static void destroyI(DDSDataReader* reader);

  private:
    using DDSTypedDataReader<typename Family::Sample,
                             OpaqueTypeSeq<typename Family::Sample>>::DDSTypedDataReader;
};

/// Writer, likewise. The opaque types are not serialized, so written samples carry no payload.
template <typename Family>
class OpaqueTypeDataWriter : public DDSTypedDataWriter<typename Family::Sample> {
  public:
    static OpaqueTypeDataWriter* narrow(DDSDataWriter* writer);
    static OpaqueTypeDataWriter* createI(DDSUntypedDataWriter* untyped);
    static void destroyI(DDSDataWriter* writer);

  private:
    using DDSTypedDataWriter<typename Family::Sample>::DDSTypedDataWriter;
};

template <typename Family>
class OpaqueTypeSupport : public DDSTypeSupport {
  public:
    using Sample = typename Family::Sample;

    /// Registers the plugin under type_name. Registering a name again keeps what was registered first.
    /// DDS_RETCODE_ERROR for null arguments or short memory, else what the participant says.
    static DDS_ReturnCode_t register_type(DDSDomainParticipant* participant, const char* type_name);
    /// DDS_RETCODE_BAD_PARAMETER for null arguments, else what the participant says.
    static DDS_ReturnCode_t unregister_type(DDSDomainParticipant* participant, const char* type_name);
    static const char* get_type_name() { return Family::kTypeName; }
    /// The type is opaque: always null.
    static const DDS_TypeCode* get_typecode() { return nullptr; }

    static Sample* create_data() { return create_data_ex(true); }
    static Sample* create_data_ex(bool allocatePointers);
    static DDS_ReturnCode_t delete_data(Sample* sample) { return delete_data_ex(sample, true); }
    static DDS_ReturnCode_t delete_data_ex(Sample* sample, bool deletePointers);
    static DDS_ReturnCode_t initialize_data(Sample* sample,
                                            const DDS_TypeAllocationParams_t& alloc_params = {});
    static DDS_ReturnCode_t initialize_data_ex(Sample* sample, bool allocatePointers);
    static DDS_ReturnCode_t finalize_data(Sample* sample,
                                          const DDS_TypeDeallocationParams_t& dealloc_params = {});
    static DDS_ReturnCode_t finalize_data_ex(Sample* sample, bool deletePointers);
    /// Always DDS_RETCODE_ERROR: opaque samples cannot be copied.
    static DDS_ReturnCode_t copy_data(Sample* target, const Sample* source);
    static void print_data(const Sample* sample) { Family::print_data(sample, nullptr, 0); }

    // Not supported, whatever the arguments.
    static DDS_ReturnCode_t serialize_data_to_cdr_buffer(char* buffer, DDS_UnsignedLong* length,
                                                         const Sample* sample);
    static DDS_ReturnCode_t serialize_data_to_cdr_buffer_ex(char* buffer, DDS_UnsignedLong* length,
                                                            const Sample* sample,
                                                            DDS_DataRepresentationId_t representation);
    static DDS_ReturnCode_t deserialize_data_from_cdr_buffer(Sample* sample, const char* buffer,
                                                             DDS_UnsignedLong length);
    static DDS_ReturnCode_t data_to_string(const Sample* sample, char* text, DDS_UnsignedLong* length);

    static void finalize() {}

    DDSDataReader* create_datareaderI(DDSUntypedDataReader* untyped) override;
    DDS_ReturnCode_t destroy_datareaderI(DDSDataReader* reader) override;
    DDSDataWriter* create_datawriterI(DDSUntypedDataWriter* untyped) override;
    DDS_ReturnCode_t destroy_datawriterI(DDSDataWriter* writer) override;
};

using DynamicTypeDataReader = OpaqueTypeDataReader<DynamicTypeFamily>;
using DynamicTypeDataWriter = OpaqueTypeDataWriter<DynamicTypeFamily>;
using DynamicTypeTypeSupport = OpaqueTypeSupport<DynamicTypeFamily>;
using KeyedDynamicTypeDataReader = OpaqueTypeDataReader<KeyedDynamicTypeFamily>;
using KeyedDynamicTypeDataWriter = OpaqueTypeDataWriter<KeyedDynamicTypeFamily>;
using KeyedDynamicTypeTypeSupport = OpaqueTypeSupport<KeyedDynamicTypeFamily>;
