#pragma once

// How a participant handles the samples of a type: a record of functions, registered under a type name. The
// reader hands `deserialize` the bytes of each received sample; what a sample is, only the plugin knows.
//
// Plugin functions run on the receive thread of the participant, one call at a time per endpoint.

#include <cstddef>

#include "meridian/base.h"
#include "meridian/cdr_stream.h"
#include "meridian/guid.h"
#include "meridian/type_code.h"

struct PRESTypePlugin;

/// Opaque to the middleware except for what the default operations below keep in them.
using PRESTypePluginParticipantData = void*;
using PRESTypePluginEndpointData = void*;

enum PRESTypePluginEndpointKind : DDS_Long {
    PRES_TYPEPLUGIN_ENDPOINT_READER = 1,
    PRES_TYPEPLUGIN_ENDPOINT_WRITER = 2
};
enum PRESTypePluginKeyKind : DDS_Long {
    PRES_TYPEPLUGIN_NO_KEY = 0,
    PRES_TYPEPLUGIN_GUID_KEY = 1,
    PRES_TYPEPLUGIN_USER_KEY = 2
};

struct PRESTypePluginEndpointInfo {
    PRESTypePluginEndpointKind endpointKind;
    /// For messages; valid during the call only, may be null.
    const char* topicName;
};

/// The key hash that a plugin computes.
struct PRESKeyHash {
    DDS_Octet value[16];
    DDS_UnsignedLong length;
};

struct PRESTypePluginVersion {
    DDS_Octet major, minor, release, revision;
};
constexpr PRESTypePluginVersion PRES_TYPEPLUGIN_VERSION{2, 0, 0, 0};
constexpr DDS_UnsignedLong PRES_TYPEPLUGIN_LANGUAGE_CONSTANT = 5640756;

/// A function that is null is not offered: the middleware then does without, as told with each. Functions
/// report failure by false or null; the sample at hand is then dropped and the reader goes on.
struct PRESTypePlugin {
    PRESTypePluginVersion version;
    DDS_UnsignedLong languageConstant;

    PRESTypePluginParticipantData (*onParticipantAttached)(void* registrationData,
                                                           const DDS_TypeCode* typeCode);
    void (*onParticipantDetached)(PRESTypePluginParticipantData participantData);
    /// Null refuses the endpoint.
    PRESTypePluginEndpointData (*onEndpointAttached)(PRESTypePluginParticipantData participantData,
                                                     const PRESTypePluginEndpointInfo* info);
    void (*onEndpointDetached)(PRESTypePluginEndpointData endpointData);

    bool (*copySample)(PRESTypePluginEndpointData endpointData, void* target, const void* source);
    void* (*createSample)(PRESTypePluginEndpointData endpointData);
    void (*deleteSample)(PRESTypePluginEndpointData endpointData, void* sample);
    /// A sample for the reader, and back. The reader keeps those that steady traffic needs, so these are
    /// rare.
    void* (*getSample)(PRESTypePluginEndpointData endpointData);
    void (*returnSample)(PRESTypePluginEndpointData endpointData, void* sample);
    /// Bytes that a sample takes, with what belongs to it. Null: its serialized size is counted.
    size_t (*getSampleMemory)(const void* sample);

    /// A buffer of at least `size` bytes for a writer, and back.
    char* (*getBuffer)(PRESTypePluginEndpointData endpointData, DDS_UnsignedLong size);
    void (*returnBuffer)(PRESTypePluginEndpointData endpointData, char* buffer);

    bool (*serialize)(PRESTypePluginEndpointData endpointData, const void* sample, QUIXCdrStream* stream,
                      bool serializeEncapsulation, DDS_UnsignedShort encapsulationId, bool serializeSample);
    /// May replace *sample by another one of the same endpoint. *dropSample set true: received, but not for
    /// the reader.
    bool (*deserialize)(PRESTypePluginEndpointData endpointData, void** sample, bool* dropSample,
                        QUIXCdrStream* stream, bool deserializeEncapsulation, bool deserializeSample);
    DDS_UnsignedLong (*getSerializedSampleMaxSize)(PRESTypePluginEndpointData endpointData,
                                                   bool includeEncapsulation,
                                                   DDS_UnsignedShort encapsulationId,
                                                   DDS_UnsignedLong alignment);

    PRESTypePluginKeyKind (*getKeyKind)();
    bool (*serializeKey)(PRESTypePluginEndpointData endpointData, const void* sample, QUIXCdrStream* stream,
                         bool serializeEncapsulation, DDS_UnsignedShort encapsulationId,
                         bool serializeSample);
    bool (*deserializeKey)(PRESTypePluginEndpointData endpointData, void** sample, bool* dropSample,
                           QUIXCdrStream* stream, bool deserializeEncapsulation, bool deserializeSample);
    DDS_UnsignedLong (*getSerializedKeyMaxSize)(PRESTypePluginEndpointData endpointData,
                                                bool includeEncapsulation, DDS_UnsignedShort encapsulationId,
                                                DDS_UnsignedLong alignment);
    void* (*getKey)(PRESTypePluginEndpointData endpointData);
    void (*returnKey)(PRESTypePluginEndpointData endpointData, void* key);
    bool (*instanceToKey)(PRESTypePluginEndpointData endpointData, void* key, const void* instance);
    bool (*keyToInstance)(PRESTypePluginEndpointData endpointData, void* instance, const void* key);
    bool (*instanceToKeyHash)(PRESTypePluginEndpointData endpointData, PRESKeyHash* keyHash,
                              const void* instance);
    /// From the bytes of a sample or, for a key-only payload, of a key. Used when the writer sent no key
    /// hash.
    bool (*serializedSampleToKeyHash)(PRESTypePluginEndpointData endpointData, QUIXCdrStream* stream,
                                      PRESKeyHash* keyHash, bool deserializeEncapsulation, bool keyOnly);

    const char* endpointTypeName; // under which the plugin identifies itself; lives as long as the process
    const DDS_TypeCode* typeCode; // null when the plugin knows none; must live as long as the registration
    /// Of the registering code; handed to onParticipantAttached.
    void* registrationData;
};

// Default operations. They keep the functions that make and drop samples and keys, and the buffers of a
// writer.

PRESTypePluginParticipantData PRESTypePluginDefaultParticipantData_new(const DDS_TypeCode* typeCode);
void PRESTypePluginDefaultParticipantData_delete(PRESTypePluginParticipantData participantData);

using PRESTypePluginCreateFunction = void* (*)();
using PRESTypePluginDestroyFunction = void (*)(void*);
/// Null when memory is short. The key functions may be null for a type without key.
PRESTypePluginEndpointData PRESTypePluginDefaultEndpointData_new(PRESTypePluginCreateFunction createSample,
                                                                 PRESTypePluginDestroyFunction destroySample,
                                                                 PRESTypePluginCreateFunction createKey,
                                                                 PRESTypePluginDestroyFunction destroyKey);
void PRESTypePluginDefaultEndpointData_delete(PRESTypePluginEndpointData endpointData);
/// Gives a writer's endpoint data buffers of `bufferSize` bytes each, of which a free one is kept; false when
/// memory is short.
bool PRESTypePluginDefaultEndpointData_setBufferSize(PRESTypePluginEndpointData endpointData,
                                                     DDS_UnsignedLong bufferSize);
void* PRESTypePluginDefaultEndpointData_createSample(PRESTypePluginEndpointData endpointData);
void PRESTypePluginDefaultEndpointData_deleteSample(PRESTypePluginEndpointData endpointData, void* sample);
inline constexpr auto& PRESTypePluginDefaultEndpointData_getSample =
    PRESTypePluginDefaultEndpointData_createSample;
inline constexpr auto& PRESTypePluginDefaultEndpointData_returnSample =
    PRESTypePluginDefaultEndpointData_deleteSample;
char* PRESTypePluginDefaultEndpointData_getBuffer(PRESTypePluginEndpointData endpointData,
                                                  DDS_UnsignedLong size);
void PRESTypePluginDefaultEndpointData_returnBuffer(PRESTypePluginEndpointData endpointData, char* buffer);
void* PRESTypePluginDefaultEndpointData_getKey(PRESTypePluginEndpointData endpointData);
void PRESTypePluginDefaultEndpointData_returnKey(PRESTypePluginEndpointData endpointData, void* key);
