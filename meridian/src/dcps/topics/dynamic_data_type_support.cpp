#include "meridian/dynamic_data_type_support.h"

#include <algorithm>
#include <new>
#include <string>
#include <utility>

#include "discovery/conversions.h"
#include "meridian/domain_participant.h"
#include "meridian/logger.h"
#include "meridian/type_plugin.h"
#include "platform/log.h"
#include "rtps/wire/guid_key.h"
#include "types/data/dynamic_sample.h"
#include "types/data/key_hasher.h"

using meridian::rtps::ByteView;
using meridian::types::DynamicContext;
using meridian::types::from_type_code;
using meridian::types::KeyHasher;
using meridian::types::SampleSource;
using meridian::types::TypeRef;

namespace {

/// What a participant keeps of a registration, so that the support may go before it.
struct Registration {
    TypeRef type;
    DDS_DynamicDataTypeProperty_t properties;
};

struct Endpoint {
    std::shared_ptr<const DynamicContext> context;
    std::unique_ptr<KeyHasher> hasher;
    bool key_failed = false;
};

Endpoint& endpoint_of(PRESTypePluginEndpointData data) {
    return *static_cast<Endpoint*>(data);
}

ByteView rest_of(const QUIXCdrStream& stream) {
    return {reinterpret_cast<const uint8_t*>(stream.currentPosition), QUIXCdrStream_remaining(&stream)};
}

SampleSource source_of(const QUIXCdrStream& stream) {
    SampleSource source;
    if (stream.source == nullptr)
        return source;
    source.writer = meridian::rtps::guid_of(meridian::discovery::to_key_hash(stream.source->writer.value));
    std::copy_n(stream.source->vendorId, source.vendor.bytes.size(), source.vendor.bytes.begin());
    source.fast_cdr = stream.source->fastCdr;
    return source;
}

PRESTypePluginParticipantData attach_participant(void* registration, const DDS_TypeCode*) {
    return new (std::nothrow) Registration(*static_cast<const Registration*>(registration));
}

void detach_participant(PRESTypePluginParticipantData data) {
    delete static_cast<Registration*>(data);
}

PRESTypePluginEndpointData attach_endpoint(PRESTypePluginParticipantData data,
                                           const PRESTypePluginEndpointInfo* info) {
    if (info->endpointKind != PRES_TYPEPLUGIN_ENDPOINT_READER)
        return nullptr; // samples are received, not built
    const Registration& registration = *static_cast<const Registration*>(data);
    auto endpoint = std::make_unique<Endpoint>();
    endpoint->context = std::make_shared<DynamicContext>(
        registration.type, info->topicName != nullptr ? info->topicName : "", registration.properties);
    endpoint->hasher = std::make_unique<KeyHasher>(endpoint->context->reader);
    return endpoint.release();
}

void detach_endpoint(PRESTypePluginEndpointData data) {
    delete &endpoint_of(data);
}

bool copy_sample(PRESTypePluginEndpointData, void* target, const void* source) {
    *static_cast<DDS_DynamicData*>(target) = *static_cast<const DDS_DynamicData*>(source);
    return true;
}

// The reader keeps those that are free.
void* create_sample(PRESTypePluginEndpointData) {
    return new (std::nothrow) DDS_DynamicData();
}
void delete_sample(PRESTypePluginEndpointData, void* sample) {
    delete static_cast<DDS_DynamicData*>(sample);
}
size_t sample_memory(const void* sample) {
    return sizeof(DDS_DynamicData) + 2 * sizeof(void*) +
           static_cast<const DDS_DynamicData*>(sample)->impl().memory();
}

/// Keeps the bytes, which are decoded on access. A payload that cannot be decoded is a sample all the same,
/// and so is one that is too large: it holds nothing.
bool deserialize(PRESTypePluginEndpointData data, void** sample, bool*, QUIXCdrStream* stream, bool,
                 bool deserialize_sample) {
    if (!deserialize_sample)
        return true;
    const DynamicContext& context = *endpoint_of(data).context;
    const ByteView payload = rest_of(*stream);
    if (!static_cast<DDS_DynamicData*>(*sample)->impl().assign(endpoint_of(data).context, payload,
                                                               source_of(*stream)) &&
        context.too_large.is_first())
        MERIDIAN_LOG_ERROR("dcps",
                           "topic \"%s\": a sample of %zu bytes exceeds the largest serialized size, %u: its "
                           "contents are not shown",
                           context.topic_name.c_str(), payload.size,
                           context.serialization.max_size_serialized);
    return true;
}

bool compute_key_hash(Endpoint& endpoint, ByteView payload, const SampleSource& source, bool key_only,
                      PRESKeyHash& out) {
    meridian::rtps::KeyHash hash{};
    std::string failure;
    // One form for all: a writer that announces no hash of its own and one that sends it without payload then
    // agree.
    if (!endpoint.hasher->compute(payload, key_only, hash, failure, source)) {
        if (!std::exchange(endpoint.key_failed, true))
            MERIDIAN_LOG_WARNING("dcps", "topic \"%s\": the key of a sample cannot be decoded: %s",
                                 endpoint.context->topic_name.c_str(), failure.c_str());
        return false;
    }
    std::copy(hash.begin(), hash.end(), out.value);
    out.length = sizeof out.value;
    return true;
}

bool key_hash(PRESTypePluginEndpointData data, QUIXCdrStream* stream, PRESKeyHash* out, bool, bool key_only) {
    return compute_key_hash(endpoint_of(data), rest_of(*stream), source_of(*stream), key_only, *out);
}

bool instance_to_key_hash(PRESTypePluginEndpointData data, PRESKeyHash* out, const void* instance) {
    const auto& sample = static_cast<const DDS_DynamicData*>(instance)->impl();
    return compute_key_hash(endpoint_of(data), sample.payload(), sample.source(), false, *out);
}

class TypeSupport final : public DDSTypeSupport {
  public:
    DDSDataReader* create_datareaderI(DDSUntypedDataReader* untyped) override {
        return new (std::nothrow) DDSDynamicDataReader(untyped);
    }
    DDS_ReturnCode_t destroy_datareaderI(DDSDataReader* reader) override {
        delete static_cast<DDSDynamicDataReader*>(reader);
        return DDS_RETCODE_OK;
    }
    DDSDataWriter* create_datawriterI(DDSUntypedDataWriter*) override {
        QUIXLog_failure("create_datawriter", "dynamic data is received only");
        return nullptr;
    }
    DDS_ReturnCode_t destroy_datawriterI(DDSDataWriter*) override { return DDS_RETCODE_PRECONDITION_NOT_MET; }
};

PRESTypePlugin plugin_of(Registration& registration) {
    PRESTypePlugin plugin{};
    plugin.version = PRES_TYPEPLUGIN_VERSION;
    plugin.languageConstant = PRES_TYPEPLUGIN_LANGUAGE_CONSTANT;
    plugin.onParticipantAttached = attach_participant;
    plugin.onParticipantDetached = detach_participant;
    plugin.onEndpointAttached = attach_endpoint;
    plugin.onEndpointDetached = detach_endpoint;
    plugin.copySample = copy_sample;
    plugin.createSample = create_sample;
    plugin.deleteSample = delete_sample;
    plugin.getSample = create_sample;
    plugin.returnSample = delete_sample;
    plugin.getSampleMemory = sample_memory;
    plugin.deserialize = deserialize;
    plugin.deserializeKey = deserialize;
    const meridian::types::SampleReader reader(registration.type);
    if (KeyHasher(reader).is_keyed()) {
        plugin.getKeyKind = [] { return PRES_TYPEPLUGIN_USER_KEY; };
        plugin.serializedSampleToKeyHash = key_hash;
        plugin.instanceToKeyHash = instance_to_key_hash;
    } else {
        plugin.getKeyKind = [] { return PRES_TYPEPLUGIN_NO_KEY; };
    }
    plugin.endpointTypeName = "DDS_DynamicData";
    plugin.typeCode = registration.type.get();
    plugin.registrationData = &registration;
    return plugin;
}

} // namespace

struct DDSDynamicDataTypeSupport::Impl : Registration {};

DDSDynamicDataTypeSupport::DDSDynamicDataTypeSupport(const DDS_TypeCode* type,
                                                     const DDS_DynamicDataTypeProperty_t& properties)
    : impl_(std::make_unique<Impl>(Impl{{TypeRef(from_type_code(type)), properties}})) {}

DDSDynamicDataTypeSupport::~DDSDynamicDataTypeSupport() = default;

DDS_Boolean DDSDynamicDataTypeSupport::is_valid() const {
    const meridian::types::Type* type = meridian::types::resolve_alias(impl_->type.get());
    return type != nullptr && (type->is_aggregate() || type->kind == DDS_TK_UNION);
}

DDS_ReturnCode_t DDSDynamicDataTypeSupport::register_type(DDSDomainParticipant* participant,
                                                          const char* type_name) {
    if (participant == nullptr || type_name == nullptr) {
        QUIXLog_badParameter("DDSDynamicDataTypeSupport::register_type",
                             participant == nullptr ? "participant" : "type_name");
        return DDS_RETCODE_BAD_PARAMETER;
    }
    if (!is_valid()) {
        QUIXLog_failure("DDSDynamicDataTypeSupport::register_type", "the type is no structure or union");
        return DDS_RETCODE_ERROR;
    }
    const PRESTypePlugin plugin = plugin_of(*impl_);
    auto support = std::make_unique<TypeSupport>();
    const bool known = participant->get_typecode(type_name) != nullptr;
    const DDS_ReturnCode_t result =
        participant->register_type(type_name, &plugin, known ? nullptr : support.get());
    if (result == DDS_RETCODE_OK && !known)
        static_cast<void>(support.release()); // the participant's now
    return result;
}
