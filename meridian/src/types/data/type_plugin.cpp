#include "meridian/type_plugin.h"

#include <memory>
#include <new>

namespace {

struct ParticipantData {
    const DDS_TypeCode* type_code;
};

struct EndpointData {
    const PRESTypePluginCreateFunction create_sample;
    const PRESTypePluginDestroyFunction destroy_sample;
    const PRESTypePluginCreateFunction create_key;
    const PRESTypePluginDestroyFunction destroy_key;
    DDS_UnsignedLong buffer_size; // of a writer
    std::unique_ptr<char[]> free_buffer;
};

EndpointData& endpoint(PRESTypePluginEndpointData data) {
    return *static_cast<EndpointData*>(data);
}

std::unique_ptr<char[]> make_buffer(DDS_UnsignedLong size) {
    return std::unique_ptr<char[]>(new (std::nothrow) char[size]);
}

} // namespace

PRESTypePluginParticipantData PRESTypePluginDefaultParticipantData_new(const DDS_TypeCode* typeCode) {
    return new (std::nothrow) ParticipantData{typeCode};
}

void PRESTypePluginDefaultParticipantData_delete(PRESTypePluginParticipantData participantData) {
    delete static_cast<ParticipantData*>(participantData);
}

PRESTypePluginEndpointData PRESTypePluginDefaultEndpointData_new(PRESTypePluginCreateFunction createSample,
                                                                 PRESTypePluginDestroyFunction destroySample,
                                                                 PRESTypePluginCreateFunction createKey,
                                                                 PRESTypePluginDestroyFunction destroyKey) {
    return new (std::nothrow) EndpointData{createSample, destroySample, createKey, destroyKey, 0, nullptr};
}

void PRESTypePluginDefaultEndpointData_delete(PRESTypePluginEndpointData endpointData) {
    delete static_cast<EndpointData*>(endpointData);
}

bool PRESTypePluginDefaultEndpointData_setBufferSize(PRESTypePluginEndpointData endpointData,
                                                     DDS_UnsignedLong bufferSize) {
    EndpointData& data = endpoint(endpointData);
    data.free_buffer = make_buffer(bufferSize);
    data.buffer_size = bufferSize;
    return data.free_buffer != nullptr;
}

void* PRESTypePluginDefaultEndpointData_createSample(PRESTypePluginEndpointData endpointData) {
    return endpoint(endpointData).create_sample();
}

void PRESTypePluginDefaultEndpointData_deleteSample(PRESTypePluginEndpointData endpointData, void* sample) {
    endpoint(endpointData).destroy_sample(sample);
}

char* PRESTypePluginDefaultEndpointData_getBuffer(PRESTypePluginEndpointData endpointData,
                                                  DDS_UnsignedLong size) {
    EndpointData& data = endpoint(endpointData);
    if (size > data.buffer_size)
        return nullptr;
    if (data.free_buffer == nullptr)
        data.free_buffer = make_buffer(data.buffer_size);
    return data.free_buffer.release();
}

void PRESTypePluginDefaultEndpointData_returnBuffer(PRESTypePluginEndpointData endpointData, char* buffer) {
    endpoint(endpointData).free_buffer.reset(buffer);
}

void* PRESTypePluginDefaultEndpointData_getKey(PRESTypePluginEndpointData endpointData) {
    const EndpointData& data = endpoint(endpointData);
    return data.create_key != nullptr ? data.create_key() : nullptr;
}

void PRESTypePluginDefaultEndpointData_returnKey(PRESTypePluginEndpointData endpointData, void* key) {
    const EndpointData& data = endpoint(endpointData);
    if (data.destroy_key != nullptr)
        data.destroy_key(key);
}
