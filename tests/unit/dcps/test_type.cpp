#include "test_type.h"

#include <cstring>
#include <memory>

namespace meridian::dcps::test {

namespace {

constexpr DDS_UnsignedLong kMaxSize = 4096;

void* create_sample() {
    ++counters().samples;
    return new TestSample;
}
void destroy_sample(void* sample) {
    --counters().samples;
    delete static_cast<TestSample*>(sample);
}

PRESTypePluginParticipantData attach_participant(void*, const DDS_TypeCode* type_code) {
    ++counters().participants;
    return PRESTypePluginDefaultParticipantData_new(type_code);
}
void detach_participant(PRESTypePluginParticipantData data) {
    --counters().participants;
    PRESTypePluginDefaultParticipantData_delete(data);
}
PRESTypePluginEndpointData attach_endpoint(PRESTypePluginParticipantData,
                                           const PRESTypePluginEndpointInfo* info) {
    if (info->topicName != nullptr && std::strcmp(info->topicName, kRefused) == 0)
        return nullptr;
    PRESTypePluginEndpointData data =
        PRESTypePluginDefaultEndpointData_new(create_sample, destroy_sample, create_sample, destroy_sample);
    if (data != nullptr && info->endpointKind == PRES_TYPEPLUGIN_ENDPOINT_WRITER)
        PRESTypePluginDefaultEndpointData_setBufferSize(data, kMaxSize);
    ++counters().endpoints;
    return data;
}
void detach_endpoint(PRESTypePluginEndpointData data) {
    --counters().endpoints;
    PRESTypePluginDefaultEndpointData_delete(data);
}

bool copy(PRESTypePluginEndpointData, void* target, const void* source) {
    *static_cast<TestSample*>(target) = *static_cast<const TestSample*>(source);
    return true;
}

void put(QUIXCdrStream& stream, const void* bytes, size_t count) {
    std::memcpy(stream.currentPosition, bytes, count);
    stream.currentPosition += count;
}
void put_header(QUIXCdrStream& stream, DDS_UnsignedShort encapsulation) {
    const uint8_t header[] = {static_cast<uint8_t>(encapsulation >> 8), static_cast<uint8_t>(encapsulation),
                              0, 0};
    put(stream, header, sizeof header);
}

bool serialize(PRESTypePluginEndpointData, const void* data, QUIXCdrStream* stream, bool,
               DDS_UnsignedShort encapsulation, bool) {
    const auto& sample = *static_cast<const TestSample*>(data);
    if (sample.text == kEmpty)
        return true;
    if (sample.text == kRefused || sample.text.size() + 13 > QUIXCdrStream_remaining(stream))
        return false;
    put_header(*stream, encapsulation);
    put(*stream, &sample.id, 4);
    const auto length = static_cast<uint32_t>(sample.text.size() + 1);
    put(*stream, &length, 4);
    put(*stream, sample.text.c_str(), length);
    return true;
}
bool serialize_key(PRESTypePluginEndpointData, const void* data, QUIXCdrStream* stream, bool,
                   DDS_UnsignedShort encapsulation, bool) {
    put_header(*stream, encapsulation);
    put(*stream, &static_cast<const TestSample*>(data)->id, 4);
    return true;
}
DDS_UnsignedLong max_size(PRESTypePluginEndpointData, bool, DDS_UnsignedShort, DDS_UnsignedLong) {
    return kMaxSize;
}
DDS_UnsignedLong max_key_size(PRESTypePluginEndpointData, bool, DDS_UnsignedShort, DDS_UnsignedLong) {
    return 8;
}

bool deserialize(PRESTypePluginEndpointData, void** target, bool* drop, QUIXCdrStream* stream, bool, bool) {
    auto& sample = **reinterpret_cast<TestSample**>(target);
    uint32_t header = 0;
    const char* text = nullptr;
    if (!QUIXCdrStream_read4(stream, &header) || !QUIXCdrStream_read4(stream, &sample.id) ||
        !QUIXCdrStream_readString(stream, &text, kMaxSize))
        return false;
    sample.text = text;
    *drop = sample.text == kDropped;
    return sample.text != kUndecodable;
}

void hash_of(uint32_t id, PRESKeyHash& hash) {
    hash = {};
    hash.length = sizeof hash.value;
    for (size_t i = 0; i < 4; ++i)
        hash.value[i] = static_cast<DDS_Octet>(id >> (24 - 8 * i));
}
bool instance_to_key_hash(PRESTypePluginEndpointData, PRESKeyHash* hash, const void* sample) {
    hash_of(static_cast<const TestSample*>(sample)->id, *hash);
    return true;
}
bool serialized_to_key_hash(PRESTypePluginEndpointData, QUIXCdrStream* stream, PRESKeyHash* hash, bool,
                            bool) {
    uint32_t header = 0;
    uint32_t id = 0;
    if (!QUIXCdrStream_read4(stream, &header) || !QUIXCdrStream_read4(stream, &id))
        return false;
    hash_of(id, *hash);
    return true;
}

} // namespace

TestTypeCounters& counters() {
    static TestTypeCounters all;
    return all;
}

PRESTypePlugin test_plugin(bool keyed) {
    PRESTypePlugin plugin{};
    plugin.version = PRES_TYPEPLUGIN_VERSION;
    plugin.languageConstant = PRES_TYPEPLUGIN_LANGUAGE_CONSTANT;
    plugin.onParticipantAttached = attach_participant;
    plugin.onParticipantDetached = detach_participant;
    plugin.onEndpointAttached = attach_endpoint;
    plugin.onEndpointDetached = detach_endpoint;
    plugin.copySample = copy;
    plugin.getSample = PRESTypePluginDefaultEndpointData_getSample;
    plugin.returnSample = PRESTypePluginDefaultEndpointData_returnSample;
    plugin.getBuffer = PRESTypePluginDefaultEndpointData_getBuffer;
    plugin.returnBuffer = PRESTypePluginDefaultEndpointData_returnBuffer;
    plugin.serialize = serialize;
    plugin.deserialize = deserialize;
    plugin.getSerializedSampleMaxSize = max_size;
    plugin.endpointTypeName = keyed ? "Keyed" : "Keyless";
    if (!keyed) {
        plugin.getKeyKind = [] { return PRES_TYPEPLUGIN_NO_KEY; };
        return plugin;
    }
    plugin.getKeyKind = [] { return PRES_TYPEPLUGIN_USER_KEY; };
    plugin.serializeKey = serialize_key;
    plugin.getSerializedKeyMaxSize = max_key_size;
    plugin.instanceToKeyHash = instance_to_key_hash;
    plugin.serializedSampleToKeyHash = serialized_to_key_hash;
    return plugin;
}

DDSDataReader* TestTypeSupport::create_datareaderI(DDSUntypedDataReader* untyped) {
    return new TestReader(untyped);
}
DDS_ReturnCode_t TestTypeSupport::destroy_datareaderI(DDSDataReader* reader) {
    delete dynamic_cast<TestReader*>(reader);
    return DDS_RETCODE_OK;
}
DDSDataWriter* TestTypeSupport::create_datawriterI(DDSUntypedDataWriter* untyped) {
    return new TestWriter(untyped);
}
DDS_ReturnCode_t TestTypeSupport::destroy_datawriterI(DDSDataWriter* writer) {
    delete dynamic_cast<TestWriter*>(writer);
    return DDS_RETCODE_OK;
}

bool register_test_types(DDSDomainParticipant& participant) {
    for (const bool keyed : {true, false}) {
        const PRESTypePlugin plugin = test_plugin(keyed);
        if (participant.register_type(plugin.endpointTypeName, &plugin, new TestTypeSupport) !=
            DDS_RETCODE_OK)
            return false;
    }
    return true;
}

} // namespace meridian::dcps::test
