#pragma once

// The opaque sample types: a sample is an owned copy of its serialized bytes, whatever they mean. DynamicType
// serves topics without key, KeyedDynamicType those with one. Both are receive-only.
//
// The two are one implementation: the keyed names that do not differ in behaviour are further names of the
// same functions. Plugin functions run on the middleware's receive thread, each on its own sample.

#include "meridian/cdr_stream.h"
#include "meridian/type_plugin.h"
#include "meridian/type_support.h"

/// `stream` and its buffer are owned by the sample; null while it holds nothing.
struct DynamicType {
    QUIXCdrStream* stream;
};
struct KeyedDynamicType : DynamicType {};
struct KeyedDynamicTypeKeyHolder : DynamicType {};

constexpr const char* DynamicTypeTYPENAME = "DynamicType";
constexpr const char* KeyedDynamicTypeTYPENAME = "KeyedDynamicType";

/// True: the alignment origin of a copied stream lies 4 bytes before its first byte.
extern bool DynamicTypePlugin_g_use42Alignment;

// -- Samples

bool DynamicType_initialize_ex(DynamicType* sample, bool allocatePointers, bool allocateMemory);
inline bool DynamicType_initialize_w_params(DynamicType* sample, const DDS_TypeAllocationParams_t* params) {
    return DynamicType_initialize_ex(sample, params->allocate_pointers, params->allocate_memory);
}
inline bool DynamicType_initialize(DynamicType* sample) {
    return DynamicType_initialize_ex(sample, true, true);
}
void DynamicType_finalize_ex(DynamicType* sample, bool deletePointers);
inline void DynamicType_finalize_w_params(DynamicType* sample, const DDS_TypeDeallocationParams_t* params) {
    DynamicType_finalize_ex(sample, params->delete_pointers);
}
inline void DynamicType_finalize(DynamicType* sample) {
    DynamicType_finalize_ex(sample, true);
}
/// Not supported: always false.
inline bool DynamicType_copy(DynamicType*, const DynamicType*) {
    return false;
}
/// Copies the bytes from the source's position to its end into *target, which is made where it is null and
/// whose buffer is reused where it suffices. readEncapsulation: the bytes begin with an encapsulation header,
/// which is not copied but read; otherwise kind and options come from the source's fields. A null source
/// releases *target. False, for a header that is cut short, an unknown encapsulation or short memory; *target
/// then still can be finalised.
bool DynamicType_copy_cdr_stream(QUIXCdrStream** target, QUIXCdrStream* source, bool readEncapsulation);

inline constexpr auto& KeyedDynamicType_initialize_ex = DynamicType_initialize_ex;
inline constexpr auto& KeyedDynamicType_initialize_w_params = DynamicType_initialize_w_params;
inline constexpr auto& KeyedDynamicType_initialize = DynamicType_initialize;
inline constexpr auto& KeyedDynamicType_finalize_ex = DynamicType_finalize_ex;
inline constexpr auto& KeyedDynamicType_finalize_w_params = DynamicType_finalize_w_params;
inline constexpr auto& KeyedDynamicType_finalize = DynamicType_finalize;
inline constexpr auto& KeyedDynamicType_copy = DynamicType_copy;
inline constexpr auto& KeyedDynamicType_copy_cdr_stream = DynamicType_copy_cdr_stream;

// -- Support: records on the heap

/// Null when memory is short or the sample cannot be initialised.
DynamicType* DynamicTypePluginSupport_create_data_w_params(const DDS_TypeAllocationParams_t* params);
DynamicType* DynamicTypePluginSupport_create_data_ex(bool allocatePointers);
inline DynamicType* DynamicTypePluginSupport_create_data() {
    return DynamicTypePluginSupport_create_data_ex(true);
}
void DynamicTypePluginSupport_destroy_data_ex(DynamicType* sample, bool deletePointers);
inline void DynamicTypePluginSupport_destroy_data_w_params(DynamicType* sample,
                                                           const DDS_TypeDeallocationParams_t* params) {
    DynamicTypePluginSupport_destroy_data_ex(sample, params->delete_pointers);
}
inline void DynamicTypePluginSupport_destroy_data(DynamicType* sample) {
    DynamicTypePluginSupport_destroy_data_ex(sample, true);
}
inline bool DynamicTypePluginSupport_copy_data(DynamicType* target, const DynamicType* source) {
    return DynamicType_copy(target, source);
}
/// Prints that the sample cannot be printed, behind `indent` levels of three blanks; description may be null.
void DynamicTypePluginSupport_print_data(const DynamicType* sample, const char* description, int indent);

KeyedDynamicType* KeyedDynamicTypePluginSupport_create_data_w_params(
    const DDS_TypeAllocationParams_t* params);
KeyedDynamicType* KeyedDynamicTypePluginSupport_create_data_ex(bool allocatePointers);
inline KeyedDynamicType* KeyedDynamicTypePluginSupport_create_data() {
    return KeyedDynamicTypePluginSupport_create_data_ex(true);
}
inline constexpr auto& KeyedDynamicTypePluginSupport_destroy_data_w_params =
    DynamicTypePluginSupport_destroy_data_w_params;
inline constexpr auto& KeyedDynamicTypePluginSupport_destroy_data_ex =
    DynamicTypePluginSupport_destroy_data_ex;
inline constexpr auto& KeyedDynamicTypePluginSupport_destroy_data = DynamicTypePluginSupport_destroy_data;
inline constexpr auto& KeyedDynamicTypePluginSupport_copy_data = DynamicTypePluginSupport_copy_data;
void KeyedDynamicTypePluginSupport_print_data(const KeyedDynamicType* sample, const char* description,
                                              int indent);

KeyedDynamicTypeKeyHolder* KeyedDynamicTypePluginSupport_create_key_ex(bool allocatePointers);
inline KeyedDynamicTypeKeyHolder* KeyedDynamicTypePluginSupport_create_key() {
    return KeyedDynamicTypePluginSupport_create_key_ex(true);
}
inline constexpr auto& KeyedDynamicTypePluginSupport_destroy_key_ex =
    DynamicTypePluginSupport_destroy_data_ex;
inline constexpr auto& KeyedDynamicTypePluginSupport_destroy_key = DynamicTypePluginSupport_destroy_data;

// -- Plugin operations; see PRESTypePlugin for what the middleware expects of each

PRESTypePluginParticipantData DynamicTypePlugin_on_participant_attached(void* registrationData,
                                                                        const DDS_TypeCode* typeCode);
inline constexpr auto& DynamicTypePlugin_on_participant_detached =
    PRESTypePluginDefaultParticipantData_delete;
PRESTypePluginEndpointData DynamicTypePlugin_on_endpoint_attached(
    PRESTypePluginParticipantData participantData, const PRESTypePluginEndpointInfo* info);
inline constexpr auto& DynamicTypePlugin_on_endpoint_detached = PRESTypePluginDefaultEndpointData_delete;
bool DynamicTypePlugin_copy_sample(PRESTypePluginEndpointData endpointData, void* target, const void* source);
size_t DynamicTypePlugin_get_sample_memory(const void* sample);
/// Writes nothing: samples of these types are not meant to be sent.
bool DynamicTypePlugin_serialize(PRESTypePluginEndpointData endpointData, const void* sample,
                                 QUIXCdrStream* stream, bool serializeEncapsulation,
                                 DDS_UnsignedShort encapsulationId, bool serializeSample);
bool DynamicTypePlugin_deserialize(PRESTypePluginEndpointData endpointData, void** sample, bool* dropSample,
                                   QUIXCdrStream* stream, bool deserializeEncapsulation,
                                   bool deserializeSample);
DDS_UnsignedLong DynamicTypePlugin_get_serialized_sample_max_size(PRESTypePluginEndpointData endpointData,
                                                                  bool includeEncapsulation,
                                                                  DDS_UnsignedShort encapsulationId,
                                                                  DDS_UnsignedLong alignment);
inline PRESTypePluginKeyKind DynamicTypePlugin_get_key_kind() {
    return PRES_TYPEPLUGIN_NO_KEY;
}
inline constexpr auto& DynamicTypePlugin_serialize_key = DynamicTypePlugin_serialize;
bool DynamicTypePlugin_deserialize_key(PRESTypePluginEndpointData endpointData, void** sample,
                                       bool* dropSample, QUIXCdrStream* stream, bool deserializeEncapsulation,
                                       bool deserializeSample);

inline constexpr auto& KeyedDynamicTypePlugin_on_participant_attached =
    DynamicTypePlugin_on_participant_attached;
inline constexpr auto& KeyedDynamicTypePlugin_on_participant_detached =
    DynamicTypePlugin_on_participant_detached;
PRESTypePluginEndpointData KeyedDynamicTypePlugin_on_endpoint_attached(
    PRESTypePluginParticipantData participantData, const PRESTypePluginEndpointInfo* info);
inline constexpr auto& KeyedDynamicTypePlugin_on_endpoint_detached = DynamicTypePlugin_on_endpoint_detached;
inline constexpr auto& KeyedDynamicTypePlugin_copy_sample = DynamicTypePlugin_copy_sample;
inline constexpr auto& KeyedDynamicTypePlugin_serialize = DynamicTypePlugin_serialize;
inline constexpr auto& KeyedDynamicTypePlugin_deserialize = DynamicTypePlugin_deserialize;
inline constexpr auto& KeyedDynamicTypePlugin_get_serialized_sample_max_size =
    DynamicTypePlugin_get_serialized_sample_max_size;
inline PRESTypePluginKeyKind KeyedDynamicTypePlugin_get_key_kind() {
    return PRES_TYPEPLUGIN_USER_KEY;
}
inline constexpr auto& KeyedDynamicTypePlugin_serialize_key = DynamicTypePlugin_serialize_key;
inline constexpr auto& KeyedDynamicTypePlugin_deserialize_key = DynamicTypePlugin_deserialize;
DDS_UnsignedLong KeyedDynamicTypePlugin_get_serialized_key_max_size(PRESTypePluginEndpointData endpointData,
                                                                    bool includeEncapsulation,
                                                                    DDS_UnsignedShort encapsulationId,
                                                                    DDS_UnsignedLong alignment);
bool KeyedDynamicTypePlugin_instance_to_key(PRESTypePluginEndpointData endpointData, void* key,
                                            const void* instance);
inline constexpr auto& KeyedDynamicTypePlugin_key_to_instance = KeyedDynamicTypePlugin_instance_to_key;
/// The all-zero hash: what the key is, these types do not know.
bool KeyedDynamicTypePlugin_instance_to_keyhash(PRESTypePluginEndpointData endpointData, PRESKeyHash* keyHash,
                                                const void* instance);
bool KeyedDynamicTypePlugin_serialized_sample_to_keyhash(PRESTypePluginEndpointData endpointData,
                                                         QUIXCdrStream* stream, PRESKeyHash* keyHash,
                                                         bool deserializeEncapsulation, bool keyOnly);

/// A plugin record on the heap, or null when memory is short; to be deleted by the caller.
PRESTypePlugin* DynamicTypePlugin_new();
void DynamicTypePlugin_delete(PRESTypePlugin* plugin);
PRESTypePlugin* KeyedDynamicTypePlugin_new();
inline constexpr auto& KeyedDynamicTypePlugin_delete = DynamicTypePlugin_delete;
