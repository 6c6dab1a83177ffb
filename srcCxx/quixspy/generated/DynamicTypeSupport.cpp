#include "quixspy/generated/DynamicTypeSupport.h"

#include <cstring>
#include <memory>

#include "meridian/logger.h"

namespace {

bool is_registered_as(DDSTopicDescription* topic, const char* type_name) {
    const char* const registered_name = topic != nullptr ? topic->get_type_name() : nullptr;
    return registered_name != nullptr && std::strcmp(registered_name, type_name) == 0;
}

/// Logs a reason unless it is null; whether it is.
bool passes(const char* operation, const char* refusal) {
    if (refusal != nullptr)
        QUIXLog_badParameter(operation, refusal);
    return refusal == nullptr;
}

/// Logs the first argument that is null.
bool has_arguments(const char* operation, const DDSDomainParticipant* participant, const char* type_name) {
    return passes(operation, participant == nullptr ? "participant"
                             : type_name == nullptr ? "type_name"
                                                    : nullptr);
}

} // namespace

bool OpaqueType_isReaderOf(DDSDataReader* reader, const char* type_name) {
    const char* refusal = nullptr;
    if (reader == nullptr)
        refusal = "null reader";
    else if (!is_registered_as(reader->get_topicdescription(), type_name))
        refusal = "wrong type reader";
    return passes("TDataReader::narrow", refusal);
}

bool OpaqueType_isWriterOf(DDSDataWriter* writer, const char* type_name) {
    const char* refusal = nullptr;
    if (writer == nullptr)
        refusal = "null writer";
    else if (!is_registered_as(dynamic_cast<DDSTopicDescription*>(writer->get_topic()), type_name))
        refusal = "wrong type writer";
    return passes("TDataWriter::narrow", refusal);
}

DDS_ReturnCode_t OpaqueTypeSupportBase::register_as(DDSDomainParticipant* participant, const char* type_name,
                                                    PRESTypePlugin* (*new_plugin)(),
                                                    DDSTypeSupport* (*new_support)()) {
    constexpr const char* kOperation = "TTypeSupport::register_type";
    if (!has_arguments(kOperation, participant, type_name))
        return DDS_RETCODE_ERROR;
    const std::unique_ptr<PRESTypePlugin, decltype(&DynamicTypePlugin_delete)> plugin(
        new_plugin(), &DynamicTypePlugin_delete);
    if (plugin == nullptr) {
        QUIXLog_creationFailure(kOperation, "TPlugin");
        return DDS_RETCODE_ERROR;
    }
    std::unique_ptr<DDSTypeSupport> support(new_support());
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

DDS_ReturnCode_t OpaqueTypeSupportBase::unregister_type(DDSDomainParticipant* participant,
                                                        const char* type_name) {
    constexpr const char* kOperation = "TTypeSupport::unregister_type";
    if (!has_arguments(kOperation, participant, type_name))
        return DDS_RETCODE_BAD_PARAMETER;
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

DDS_ReturnCode_t OpaqueTypeSupportBase::initialize_data(DynamicType* sample,
                                                        const DDS_TypeAllocationParams_t& alloc_params) {
    if (!alloc_params.allocate_memory) {
        QUIXLog_badParameter("TTypeSupport::initialize_data", "alloc_params->allocate_memory");
        return DDS_RETCODE_ERROR;
    }
    return DynamicType_initialize_w_params(sample, &alloc_params) ? DDS_RETCODE_OK : DDS_RETCODE_ERROR;
}
