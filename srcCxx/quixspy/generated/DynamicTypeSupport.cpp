#include "quixspy/generated/DynamicTypeSupport.h"

#include <cstring>
#include <memory>
#include <new>

#include "meridian/logger.h"

namespace {

bool is_registered_as(const char* registered_name, const char* type_name) {
    return registered_name != nullptr && std::strcmp(registered_name, type_name) == 0;
}

} // namespace

template <typename Family>
OpaqueTypeDataReader<Family>* OpaqueTypeDataReader<Family>::narrow(DDSDataReader* reader) {
    if (reader == nullptr) {
        QUIXLog_badParameter("TDataReader::narrow", "null reader");
        return nullptr;
    }
    DDSTopicDescription* topic = reader->get_topicdescription();
    if (topic == nullptr || !is_registered_as(topic->get_type_name(), Family::kTypeName)) {
        QUIXLog_badParameter("TDataReader::narrow", "wrong type reader");
        return nullptr;
    }
    return dynamic_cast<OpaqueTypeDataReader*>(reader);
}

template <typename Family>
OpaqueTypeDataReader<Family>* OpaqueTypeDataReader<Family>::createI(DDSUntypedDataReader* untyped) {
    return new (std::nothrow) OpaqueTypeDataReader(untyped);
}

template <typename Family>
void OpaqueTypeDataReader<Family>::destroyI(DDSDataReader* reader) {
    delete static_cast<OpaqueTypeDataReader*>(reader);
}

template <typename Family>
OpaqueTypeDataWriter<Family>* OpaqueTypeDataWriter<Family>::narrow(DDSDataWriter* writer) {
    if (writer == nullptr) {
        QUIXLog_badParameter("TDataWriter::narrow", "null writer");
        return nullptr;
    }
    auto* topic = dynamic_cast<DDSTopicDescription*>(writer->get_topic());
    if (topic == nullptr || !is_registered_as(topic->get_type_name(), Family::kTypeName)) {
        QUIXLog_badParameter("TDataWriter::narrow", "wrong type writer");
        return nullptr;
    }
    return dynamic_cast<OpaqueTypeDataWriter*>(writer);
}

template <typename Family>
OpaqueTypeDataWriter<Family>* OpaqueTypeDataWriter<Family>::createI(DDSUntypedDataWriter* untyped) {
    return new (std::nothrow) OpaqueTypeDataWriter(untyped);
}

template <typename Family>
void OpaqueTypeDataWriter<Family>::destroyI(DDSDataWriter* writer) {
    delete static_cast<OpaqueTypeDataWriter*>(writer);
}

template <typename Family>
DDS_ReturnCode_t OpaqueTypeSupport<Family>::register_type(DDSDomainParticipant* participant,
                                                          const char* type_name) {
    constexpr const char* kOperation = "TTypeSupport::register_type";
    if (participant == nullptr) {
        QUIXLog_badParameter(kOperation, "participant");
        return DDS_RETCODE_ERROR;
    }
    if (type_name == nullptr) {
        QUIXLog_badParameter(kOperation, "type_name");
        return DDS_RETCODE_ERROR;
    }
    const std::unique_ptr<PRESTypePlugin, decltype(&DynamicTypePlugin_delete)> plugin(
        Family::new_plugin(), &DynamicTypePlugin_delete);
    if (plugin == nullptr) {
        QUIXLog_creationFailure(kOperation, "TPlugin");
        return DDS_RETCODE_ERROR;
    }
    std::unique_ptr<DDSTypeSupport> support(new (std::nothrow) OpaqueTypeSupport());
    if (support == nullptr) {
        QUIXLog_creationFailure(kOperation, "TTypeSupport");
        return DDS_RETCODE_ERROR;
    }
    plugin->registrationData = support.get();
    const bool known = participant->is_type_registered(type_name);
    const DDS_ReturnCode_t result =
        participant->register_type(type_name, plugin.get(), known ? nullptr : support.get());
    if (result != DDS_RETCODE_OK)
        QUIXLog_failure(kOperation, "register_type");
    else if (!known)
        support.release(); // the participant's now
    return result;
}

template <typename Family>
DDS_ReturnCode_t OpaqueTypeSupport<Family>::unregister_type(DDSDomainParticipant* participant,
                                                            const char* type_name) {
    constexpr const char* kOperation = "TTypeSupport::unregister_type";
    if (participant == nullptr) {
        QUIXLog_badParameter(kOperation, "participant");
        return DDS_RETCODE_BAD_PARAMETER;
    }
    if (type_name == nullptr) {
        QUIXLog_badParameter(kOperation, "type_name");
        return DDS_RETCODE_BAD_PARAMETER;
    }
    DDS_ReturnCode_t result = participant->lock();
    if (result != DDS_RETCODE_OK)
        return result;
    result = participant->unregister_type(type_name);
    if (result != DDS_RETCODE_OK)
        QUIXLog_failure(kOperation, "unregister_type");
    if (participant->unlock() != DDS_RETCODE_OK) {
        QUIXLog_failure(kOperation, "unlock");
        return DDS_RETCODE_ERROR;
    }
    return result;
}

template <typename Family>
typename Family::Sample* OpaqueTypeSupport<Family>::create_data_ex(bool allocatePointers) {
    DDS_TypeAllocationParams_t params;
    params.allocate_pointers = allocatePointers;
    return Family::create_data_w_params(&params);
}

template <typename Family>
DDS_ReturnCode_t OpaqueTypeSupport<Family>::delete_data_ex(Sample* sample, bool deletePointers) {
    DynamicTypePluginSupport_destroy_data_ex(sample, deletePointers);
    return DDS_RETCODE_OK;
}

template <typename Family>
DDS_ReturnCode_t OpaqueTypeSupport<Family>::initialize_data(Sample* sample,
                                                            const DDS_TypeAllocationParams_t& alloc_params) {
    if (!alloc_params.allocate_memory) {
        QUIXLog_badParameter("TTypeSupport::initialize_data", "alloc_params->allocate_memory");
        return DDS_RETCODE_ERROR;
    }
    return DynamicType_initialize_w_params(sample, &alloc_params) ? DDS_RETCODE_OK : DDS_RETCODE_ERROR;
}

template <typename Family>
DDS_ReturnCode_t OpaqueTypeSupport<Family>::initialize_data_ex(Sample* sample, bool allocatePointers) {
    return DynamicType_initialize_ex(sample, allocatePointers, true) ? DDS_RETCODE_OK : DDS_RETCODE_ERROR;
}

template <typename Family>
DDS_ReturnCode_t OpaqueTypeSupport<Family>::finalize_data(
    Sample* sample, const DDS_TypeDeallocationParams_t& dealloc_params) {
    DynamicType_finalize_w_params(sample, &dealloc_params);
    return DDS_RETCODE_OK;
}

template <typename Family>
DDS_ReturnCode_t OpaqueTypeSupport<Family>::finalize_data_ex(Sample* sample, bool deletePointers) {
    DynamicType_finalize_ex(sample, deletePointers);
    return DDS_RETCODE_OK;
}

template <typename Family>
DDS_ReturnCode_t OpaqueTypeSupport<Family>::copy_data(Sample* target, const Sample* source) {
    return DynamicTypePluginSupport_copy_data(target, source) ? DDS_RETCODE_OK : DDS_RETCODE_ERROR;
}

template <typename Family>
DDS_ReturnCode_t OpaqueTypeSupport<Family>::serialize_data_to_cdr_buffer(char*, DDS_UnsignedLong*,
                                                                         const Sample*) {
    return DDS_RETCODE_UNSUPPORTED;
}

template <typename Family>
DDS_ReturnCode_t OpaqueTypeSupport<Family>::serialize_data_to_cdr_buffer_ex(char*, DDS_UnsignedLong*,
                                                                            const Sample*,
                                                                            DDS_DataRepresentationId_t) {
    return DDS_RETCODE_UNSUPPORTED;
}

template <typename Family>
DDS_ReturnCode_t OpaqueTypeSupport<Family>::deserialize_data_from_cdr_buffer(Sample*, const char*,
                                                                             DDS_UnsignedLong) {
    return DDS_RETCODE_UNSUPPORTED;
}

template <typename Family>
DDS_ReturnCode_t OpaqueTypeSupport<Family>::data_to_string(const Sample*, char*, DDS_UnsignedLong*) {
    return DDS_RETCODE_UNSUPPORTED;
}

template <typename Family>
DDSDataReader* OpaqueTypeSupport<Family>::create_datareaderI(DDSUntypedDataReader* untyped) {
    return OpaqueTypeDataReader<Family>::createI(untyped);
}

template <typename Family>
DDS_ReturnCode_t OpaqueTypeSupport<Family>::destroy_datareaderI(DDSDataReader* reader) {
    OpaqueTypeDataReader<Family>::destroyI(reader);
    return DDS_RETCODE_OK;
}

template <typename Family>
DDSDataWriter* OpaqueTypeSupport<Family>::create_datawriterI(DDSUntypedDataWriter* untyped) {
    return OpaqueTypeDataWriter<Family>::createI(untyped);
}

template <typename Family>
DDS_ReturnCode_t OpaqueTypeSupport<Family>::destroy_datawriterI(DDSDataWriter* writer) {
    OpaqueTypeDataWriter<Family>::destroyI(writer);
    return DDS_RETCODE_OK;
}

template class OpaqueTypeDataReader<DynamicTypeFamily>;
template class OpaqueTypeDataWriter<DynamicTypeFamily>;
template class OpaqueTypeSupport<DynamicTypeFamily>;
template class OpaqueTypeDataReader<KeyedDynamicTypeFamily>;
template class OpaqueTypeDataWriter<KeyedDynamicTypeFamily>;
template class OpaqueTypeSupport<KeyedDynamicTypeFamily>;
