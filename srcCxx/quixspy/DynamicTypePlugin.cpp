#include "quixspy/DynamicTypePlugin.h"

#include <cstring>
#include <new>

#include "meridian/heap.h"
#include "meridian/logger.h"

bool DynamicTypePlugin_g_use42Alignment = false;

namespace {

constexpr DDS_UnsignedLong kSerializedSampleMaxSize = 65535;

struct Encapsulation {
    DDS_UnsignedShort kind = 0;
    DDS_UnsignedShort options = 0;
};

bool is_known(DDS_UnsignedShort kind) {
    return kind <= 3 || (kind >= 6 && kind <= 11);
}

/// Two bytes in stream order, whatever the byte order of the stream.
bool read_header_word(QUIXCdrStream* stream, DDS_UnsignedShort* word) {
    DDS_Octet bytes[2] = {};
    if (!QUIXCdrStream_readBytes(stream, bytes, 2))
        return false;
    *word = static_cast<DDS_UnsignedShort>(bytes[0] << 8 | bytes[1]);
    return true;
}

bool read_encapsulation(QUIXCdrStream* stream, Encapsulation* header) {
    return read_header_word(stream, &header->kind) && read_header_word(stream, &header->options) &&
           is_known(header->kind);
}

/// The kinds that say their byte order and are not parameter lists or delimited say it themselves; of the
/// others the stream knows it.
DDS_Octet byte_order(DDS_UnsignedShort kind, const QUIXCdrStream& source) {
    switch (kind) {
        case 1:
        case 7:
            return QUIX_CDR_ENDIAN_LITTLE;
        case 0:
        case 6:
            return QUIX_CDR_ENDIAN_BIG;
        default:
            return source.endian;
    }
}

void release(QUIXCdrStream** stream) {
    if (*stream == nullptr)
        return;
    delete[](*stream)->buffer;
    QUIXCdrStream_delete(*stream);
    *stream = nullptr;
}

/// Larger buffers are given back when a sample needs less than a quarter of them: many may wait.
constexpr DDS_UnsignedLong kKeptCapacity = 4096;

/// Makes *target a stream with a buffer of at least `length` bytes; the buffer is kept where it suffices.
bool prepare(QUIXCdrStream** target, DDS_UnsignedLong length) {
    if (*target == nullptr) {
        *target = QUIXCdrStream_new();
        if (*target == nullptr)
            return false;
    }
    QUIXCdrStream& stream = **target;
    const bool is_fit =
        length <= stream.capacity && (stream.capacity <= kKeptCapacity || stream.capacity / 4 <= length);
    if (stream.buffer != nullptr && is_fit)
        return true;
    delete[] stream.buffer;
    stream.bufferLength = stream.capacity = 0;
    stream.buffer = new (std::nothrow) char[length];
    stream.capacity = stream.buffer != nullptr ? length : 0;
    return stream.buffer != nullptr;
}

/// One record of type T, initialised like a sample.
template <typename T>
T* create(const char* name, bool allocate_pointers, bool allocate_memory) {
    T* record = QUIXHeap_allocateStructure<T>(name);
    if (record != nullptr && !DynamicType_initialize_ex(record, allocate_pointers, allocate_memory)) {
        QUIXHeap_free(record);
        return nullptr;
    }
    return record;
}

void print(const DynamicType* sample, const char* description, int indent, const char* what) {
    for (int level = 0; level < indent; ++level)
        QUIXLog_print("   ");
    QUIXLog_print("%s:\n", description != nullptr ? description : "");
    QUIXLog_print("%s\n", sample == nullptr ? "NULL" : what);
}

PRESTypePluginEndpointData attach_endpoint(const PRESTypePluginEndpointInfo* info,
                                           PRESTypePluginCreateFunction createSample,
                                           PRESTypePluginCreateFunction createKey) {
    const PRESTypePluginDestroyFunction drop = [](void* record) {
        DynamicTypePluginSupport_destroy_data(static_cast<DynamicType*>(record));
    };
    PRESTypePluginEndpointData data =
        PRESTypePluginDefaultEndpointData_new(createSample, drop, createKey, createKey ? drop : nullptr);
    if (data != nullptr && info->endpointKind == PRES_TYPEPLUGIN_ENDPOINT_WRITER &&
        !PRESTypePluginDefaultEndpointData_setBufferSize(
            data, DynamicTypePlugin_get_serialized_sample_max_size(data, false, 0, 0))) {
        PRESTypePluginDefaultEndpointData_delete(data);
        return nullptr;
    }
    return data;
}

/// The record of the operations that both types share.
PRESTypePlugin* new_plugin(const char* type_name) {
    auto* plugin = QUIXHeap_allocateStructure<PRESTypePlugin>("struct PRESTypePlugin");
    if (plugin == nullptr)
        return nullptr;
    plugin->version = PRES_TYPEPLUGIN_VERSION;
    plugin->languageConstant = PRES_TYPEPLUGIN_LANGUAGE_CONSTANT;
    plugin->onParticipantAttached = DynamicTypePlugin_on_participant_attached;
    plugin->onParticipantDetached = DynamicTypePlugin_on_participant_detached;
    plugin->onEndpointAttached = DynamicTypePlugin_on_endpoint_attached;
    plugin->onEndpointDetached = DynamicTypePlugin_on_endpoint_detached;
    plugin->copySample = DynamicTypePlugin_copy_sample;
    plugin->createSample = PRESTypePluginDefaultEndpointData_createSample;
    plugin->deleteSample = PRESTypePluginDefaultEndpointData_deleteSample;
    plugin->getSample = PRESTypePluginDefaultEndpointData_getSample;
    plugin->returnSample = PRESTypePluginDefaultEndpointData_returnSample;
    plugin->getSampleMemory = DynamicTypePlugin_get_sample_memory;
    plugin->getBuffer = PRESTypePluginDefaultEndpointData_getBuffer;
    plugin->returnBuffer = PRESTypePluginDefaultEndpointData_returnBuffer;
    plugin->serialize = DynamicTypePlugin_serialize;
    plugin->deserialize = DynamicTypePlugin_deserialize;
    plugin->getSerializedSampleMaxSize = DynamicTypePlugin_get_serialized_sample_max_size;
    plugin->getKeyKind = DynamicTypePlugin_get_key_kind;
    plugin->serializeKey = DynamicTypePlugin_serialize_key;
    plugin->deserializeKey = DynamicTypePlugin_deserialize_key;
    plugin->endpointTypeName = type_name;
    return plugin;
}

} // namespace

bool DynamicType_initialize_ex(DynamicType* sample, bool, bool) {
    sample->stream = nullptr;
    return true;
}

void DynamicType_finalize_ex(DynamicType* sample, bool) {
    release(&sample->stream);
}

bool DynamicType_copy_cdr_stream(QUIXCdrStream** target, QUIXCdrStream* source, bool readEncapsulation) {
    if (source == nullptr) {
        release(target);
        return true;
    }
    Encapsulation header{source->encapsulationKind, source->encapsulationOptions};
    if (readEncapsulation && !read_encapsulation(source, &header))
        return false;

    const DDS_UnsignedLong length = QUIXCdrStream_remaining(source);
    if (!prepare(target, length))
        return false;
    QUIXCdrStream& stream = **target;
    char* const buffer = stream.buffer;
    const DDS_UnsignedLong capacity = stream.capacity;
    if (length > 0)
        std::memcpy(buffer, source->currentPosition, length);
    QUIXCdrStream_set(&stream, buffer, length);
    stream.capacity = capacity;
    QUIXCdrStream_setEndian(&stream, byte_order(header.kind, *source));
    stream.encapsulationKind = header.kind;
    stream.encapsulationOptions = header.options;
    const DDS_Octet* const vendor = source->source != nullptr ? source->source->vendorId : source->vendorId;
    std::memcpy(stream.vendorId, vendor, sizeof stream.vendorId);
    stream.fastCdr = source->source != nullptr ? source->source->fastCdr : source->fastCdr;
    if (DynamicTypePlugin_g_use42Alignment)
        stream.alignmentOrigin = buffer - 4;
    return true;
}

DynamicType* DynamicTypePluginSupport_create_data_w_params(const DDS_TypeAllocationParams_t* params) {
    return create<DynamicType>(DynamicTypeTYPENAME, params->allocate_pointers, params->allocate_memory);
}

DynamicType* DynamicTypePluginSupport_create_data_ex(bool allocatePointers) {
    return create<DynamicType>(DynamicTypeTYPENAME, allocatePointers, true);
}

void DynamicTypePluginSupport_destroy_data_ex(DynamicType* sample, bool deletePointers) {
    if (sample == nullptr)
        return;
    DynamicType_finalize_ex(sample, deletePointers);
    QUIXHeap_free(sample);
}

void DynamicTypePluginSupport_print_data(const DynamicType* sample, const char* description, int indent) {
    print(sample, description, indent, "Can not print generic stream");
}

KeyedDynamicType* KeyedDynamicTypePluginSupport_create_data_w_params(
    const DDS_TypeAllocationParams_t* params) {
    return create<KeyedDynamicType>(KeyedDynamicTypeTYPENAME, params->allocate_pointers,
                                    params->allocate_memory);
}

KeyedDynamicType* KeyedDynamicTypePluginSupport_create_data_ex(bool allocatePointers) {
    return create<KeyedDynamicType>(KeyedDynamicTypeTYPENAME, allocatePointers, true);
}

void KeyedDynamicTypePluginSupport_print_data(const KeyedDynamicType* sample, const char* description,
                                              int indent) {
    print(sample, description, indent, "Can not print opaque stream");
}

KeyedDynamicTypeKeyHolder* KeyedDynamicTypePluginSupport_create_key_ex(bool allocatePointers) {
    return create<KeyedDynamicTypeKeyHolder>("KeyedDynamicTypeKeyHolder", allocatePointers, true);
}

PRESTypePluginParticipantData DynamicTypePlugin_on_participant_attached(void*, const DDS_TypeCode* typeCode) {
    return PRESTypePluginDefaultParticipantData_new(typeCode);
}

PRESTypePluginEndpointData DynamicTypePlugin_on_endpoint_attached(PRESTypePluginParticipantData,
                                                                  const PRESTypePluginEndpointInfo* info) {
    return attach_endpoint(
        info, []() -> void* { return DynamicTypePluginSupport_create_data(); }, nullptr);
}

PRESTypePluginEndpointData KeyedDynamicTypePlugin_on_endpoint_attached(
    PRESTypePluginParticipantData, const PRESTypePluginEndpointInfo* info) {
    return attach_endpoint(
        info, []() -> void* { return KeyedDynamicTypePluginSupport_create_data(); },
        []() -> void* { return KeyedDynamicTypePluginSupport_create_key(); });
}

size_t DynamicTypePlugin_get_sample_memory(const void* sample) {
    // With what the allocator adds to each of the three.
    const QUIXCdrStream* const stream = static_cast<const DynamicType*>(sample)->stream;
    const size_t own = sizeof(DynamicType) + 2 * sizeof(void*);
    return stream == nullptr ? own : own + sizeof *stream + stream->capacity + 4 * sizeof(void*);
}

bool DynamicTypePlugin_copy_sample(PRESTypePluginEndpointData, void* target, const void* source) {
    return DynamicType_copy(static_cast<DynamicType*>(target), static_cast<const DynamicType*>(source));
}

bool DynamicTypePlugin_serialize(PRESTypePluginEndpointData, const void*, QUIXCdrStream*, bool,
                                 DDS_UnsignedShort, bool) {
    return true;
}

bool DynamicTypePlugin_deserialize(PRESTypePluginEndpointData, void** sample, bool*, QUIXCdrStream* stream,
                                   bool deserializeEncapsulation, bool deserializeSample) {
    if (deserializeSample)
        return DynamicType_copy_cdr_stream(&static_cast<DynamicType*>(*sample)->stream, stream,
                                           deserializeEncapsulation);
    if (!deserializeEncapsulation)
        return true;
    Encapsulation header;
    if (!read_encapsulation(stream, &header))
        return false;
    QUIXCdrStream_setEndian(stream, byte_order(header.kind, *stream));
    return true;
}

DDS_UnsignedLong DynamicTypePlugin_get_serialized_sample_max_size(PRESTypePluginEndpointData, bool,
                                                                  DDS_UnsignedShort, DDS_UnsignedLong) {
    return kSerializedSampleMaxSize;
}

bool DynamicTypePlugin_deserialize_key(PRESTypePluginEndpointData, void**, bool*, QUIXCdrStream*, bool,
                                       bool) {
    return true;
}

DDS_UnsignedLong KeyedDynamicTypePlugin_get_serialized_key_max_size(PRESTypePluginEndpointData, bool,
                                                                    DDS_UnsignedShort, DDS_UnsignedLong) {
    return 0;
}

bool KeyedDynamicTypePlugin_instance_to_key(PRESTypePluginEndpointData, void*, const void*) {
    return true;
}

bool KeyedDynamicTypePlugin_instance_to_keyhash(PRESTypePluginEndpointData, PRESKeyHash* keyHash,
                                                const void*) {
    std::memset(keyHash->value, 0, sizeof keyHash->value);
    keyHash->length = sizeof keyHash->value;
    return true;
}

bool KeyedDynamicTypePlugin_serialized_sample_to_keyhash(PRESTypePluginEndpointData, QUIXCdrStream*,
                                                         PRESKeyHash*, bool, bool) {
    return true;
}

PRESTypePlugin* DynamicTypePlugin_new() {
    return new_plugin(DynamicTypeTYPENAME);
}

PRESTypePlugin* KeyedDynamicTypePlugin_new() {
    PRESTypePlugin* plugin = new_plugin(KeyedDynamicTypeTYPENAME);
    if (plugin == nullptr)
        return nullptr;
    plugin->onEndpointAttached = KeyedDynamicTypePlugin_on_endpoint_attached;
    plugin->getKeyKind = KeyedDynamicTypePlugin_get_key_kind;
    plugin->deserializeKey = KeyedDynamicTypePlugin_deserialize_key;
    plugin->getSerializedKeyMaxSize = KeyedDynamicTypePlugin_get_serialized_key_max_size;
    plugin->getKey = PRESTypePluginDefaultEndpointData_getKey;
    plugin->returnKey = PRESTypePluginDefaultEndpointData_returnKey;
    plugin->instanceToKey = KeyedDynamicTypePlugin_instance_to_key;
    plugin->keyToInstance = KeyedDynamicTypePlugin_key_to_instance;
    plugin->instanceToKeyHash = KeyedDynamicTypePlugin_instance_to_keyhash;
    plugin->serializedSampleToKeyHash = KeyedDynamicTypePlugin_serialized_sample_to_keyhash;
    return plugin;
}

void DynamicTypePlugin_delete(PRESTypePlugin* plugin) {
    QUIXHeap_free(plugin);
}
