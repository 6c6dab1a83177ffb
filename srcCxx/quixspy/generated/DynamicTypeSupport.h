#pragma once

// Type support, readers and writers of the two opaque types: one implementation, told apart by a family
// record.

#include <new>

#include "meridian/domain_participant.h"
#include "meridian/typed_entities.h"
#include "quixspy/generated/DynamicTypeSeq.h"

struct DynamicTypeFamily {
    using Sample = DynamicType;
    static constexpr const char* kTypeName = DynamicTypeTYPENAME;
    static constexpr auto& new_plugin = DynamicTypePlugin_new;
    static constexpr auto& create_data_ex = DynamicTypePluginSupport_create_data_ex;
    static constexpr auto& print_data = DynamicTypePluginSupport_print_data;
};
struct KeyedDynamicTypeFamily {
    using Sample = KeyedDynamicType;
    static constexpr const char* kTypeName = KeyedDynamicTypeTYPENAME;
    static constexpr auto& new_plugin = KeyedDynamicTypePlugin_new;
    static constexpr auto& create_data_ex = KeyedDynamicTypePluginSupport_create_data_ex;
    static constexpr auto& print_data = KeyedDynamicTypePluginSupport_print_data;
};

/// Whether the reader stands for a type registered as type_name; logs why not.
bool OpaqueType_isReaderOf(DDSDataReader* reader, const char* type_name);
bool OpaqueType_isWriterOf(DDSDataWriter* writer, const char* type_name);

/// Reader; owned by the type support's caller, stands on an untyped reader that outlives it.
template <typename Family>
class OpaqueTypeDataReader
    : public DDSTypedDataReader<typename Family::Sample, OpaqueTypeSeq<typename Family::Sample>> {
  public:
    /// The reader as one of this type; null, and logged, for a null reader or one registered under another
    /// type name.
    static OpaqueTypeDataReader* narrow(DDSDataReader* reader) {
        return OpaqueType_isReaderOf(reader, Family::kTypeName) ? dynamic_cast<OpaqueTypeDataReader*>(reader)
                                                                : nullptr;
    }
    /// Null when memory is short.
    static OpaqueTypeDataReader* createI(DDSUntypedDataReader* untyped) {
        return new (std::nothrow) OpaqueTypeDataReader(untyped);
    }
    static void destroyI(DDSDataReader* reader) { delete static_cast<OpaqueTypeDataReader*>(reader); }

  private:
    using DDSTypedDataReader<typename Family::Sample,
                             OpaqueTypeSeq<typename Family::Sample>>::DDSTypedDataReader;
};

/// Writer, likewise. The opaque types are not serialized, so written samples carry no payload.
template <typename Family>
class OpaqueTypeDataWriter : public DDSTypedDataWriter<typename Family::Sample> {
  public:
    static OpaqueTypeDataWriter* narrow(DDSDataWriter* writer) {
        return OpaqueType_isWriterOf(writer, Family::kTypeName) ? dynamic_cast<OpaqueTypeDataWriter*>(writer)
                                                                : nullptr;
    }
    static OpaqueTypeDataWriter* createI(DDSUntypedDataWriter* untyped) {
        return new (std::nothrow) OpaqueTypeDataWriter(untyped);
    }
    static void destroyI(DDSDataWriter* writer) { delete static_cast<OpaqueTypeDataWriter*>(writer); }

  private:
    using DDSTypedDataWriter<typename Family::Sample>::DDSTypedDataWriter;
};

/// What does not differ between the two types.
class OpaqueTypeSupportBase : public DDSTypeSupport {
  public:
    /// DDS_RETCODE_BAD_PARAMETER for null arguments, else what the participant says.
    static DDS_ReturnCode_t unregister_type(DDSDomainParticipant* participant, const char* type_name);
    /// The type is opaque: always null.
    static const DDS_TypeCode* get_typecode() { return nullptr; }

    static DDS_ReturnCode_t delete_data(DynamicType* sample) { return delete_data_ex(sample, true); }
    static DDS_ReturnCode_t delete_data_ex(DynamicType* sample, bool deletePointers) {
        DynamicTypePluginSupport_destroy_data_ex(sample, deletePointers);
        return DDS_RETCODE_OK;
    }
    static DDS_ReturnCode_t initialize_data(DynamicType* sample,
                                            const DDS_TypeAllocationParams_t& alloc_params = {});
    static DDS_ReturnCode_t initialize_data_ex(DynamicType* sample, bool allocatePointers) {
        return DynamicType_initialize_ex(sample, allocatePointers, true) ? DDS_RETCODE_OK : DDS_RETCODE_ERROR;
    }
    static DDS_ReturnCode_t finalize_data(DynamicType* sample,
                                          const DDS_TypeDeallocationParams_t& dealloc_params = {}) {
        DynamicType_finalize_w_params(sample, &dealloc_params);
        return DDS_RETCODE_OK;
    }
    static DDS_ReturnCode_t finalize_data_ex(DynamicType* sample, bool deletePointers) {
        DynamicType_finalize_ex(sample, deletePointers);
        return DDS_RETCODE_OK;
    }
    /// Always DDS_RETCODE_ERROR: opaque samples cannot be copied.
    static DDS_ReturnCode_t copy_data(DynamicType* target, const DynamicType* source) {
        return DynamicTypePluginSupport_copy_data(target, source) ? DDS_RETCODE_OK : DDS_RETCODE_ERROR;
    }

    // Not supported, whatever the arguments.
    static DDS_ReturnCode_t serialize_data_to_cdr_buffer(char*, DDS_UnsignedLong*, const DynamicType*) {
        return DDS_RETCODE_UNSUPPORTED;
    }
    static DDS_ReturnCode_t serialize_data_to_cdr_buffer_ex(char*, DDS_UnsignedLong*, const DynamicType*,
                                                            DDS_DataRepresentationId_t) {
        return DDS_RETCODE_UNSUPPORTED;
    }
    static DDS_ReturnCode_t deserialize_data_from_cdr_buffer(DynamicType*, const char*, DDS_UnsignedLong) {
        return DDS_RETCODE_UNSUPPORTED;
    }
    static DDS_ReturnCode_t data_to_string(const DynamicType*, char*, DDS_UnsignedLong*) {
        return DDS_RETCODE_UNSUPPORTED;
    }

    static void finalize() {}

  protected:
    /// See OpaqueTypeSupport::register_type. Both functions give null when memory is short.
    static DDS_ReturnCode_t register_as(DDSDomainParticipant* participant, const char* type_name,
                                        PRESTypePlugin* (*new_plugin)(), DDSTypeSupport* (*new_support)());
};

template <typename Family>
class OpaqueTypeSupport : public OpaqueTypeSupportBase {
  public:
    using Sample = typename Family::Sample;

    /// Registers the plugin under type_name. Registering a name again keeps what was registered first.
    /// DDS_RETCODE_ERROR for null arguments or short memory, else what the participant says.
    static DDS_ReturnCode_t register_type(DDSDomainParticipant* participant, const char* type_name) {
        return register_as(participant, type_name, Family::new_plugin,
                           []() -> DDSTypeSupport* { return new (std::nothrow) OpaqueTypeSupport(); });
    }
    static const char* get_type_name() { return Family::kTypeName; }

    static Sample* create_data() { return create_data_ex(true); }
    static Sample* create_data_ex(bool allocatePointers) { return Family::create_data_ex(allocatePointers); }
    static void print_data(const Sample* sample) { Family::print_data(sample, nullptr, 0); }

    DDSDataReader* create_datareaderI(DDSUntypedDataReader* untyped) override {
        return OpaqueTypeDataReader<Family>::createI(untyped);
    }
    DDS_ReturnCode_t destroy_datareaderI(DDSDataReader* reader) override {
        OpaqueTypeDataReader<Family>::destroyI(reader);
        return DDS_RETCODE_OK;
    }
    DDSDataWriter* create_datawriterI(DDSUntypedDataWriter* untyped) override {
        return OpaqueTypeDataWriter<Family>::createI(untyped);
    }
    DDS_ReturnCode_t destroy_datawriterI(DDSDataWriter* writer) override {
        OpaqueTypeDataWriter<Family>::destroyI(writer);
        return DDS_RETCODE_OK;
    }
};

using DynamicTypeDataReader = OpaqueTypeDataReader<DynamicTypeFamily>;
using DynamicTypeDataWriter = OpaqueTypeDataWriter<DynamicTypeFamily>;
using DynamicTypeTypeSupport = OpaqueTypeSupport<DynamicTypeFamily>;
using KeyedDynamicTypeDataReader = OpaqueTypeDataReader<KeyedDynamicTypeFamily>;
using KeyedDynamicTypeDataWriter = OpaqueTypeDataWriter<KeyedDynamicTypeFamily>;
using KeyedDynamicTypeTypeSupport = OpaqueTypeSupport<KeyedDynamicTypeFamily>;
