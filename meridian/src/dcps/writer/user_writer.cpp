// The life of a writer comes first, then its statuses, then writing.

#include "dcps/writer/user_writer.h"

#include <algorithm>
#include <utility>

#include "discovery/conversions.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "rtps/wire/guid_key.h"

namespace meridian::dcps {

namespace {

constexpr std::chrono::milliseconds kPollPeriod{1};

/// In the byte order of this machine (DDSI-RTPS 2.5, 10.5; DDS-XTypes 1.3, 7.6.2.1.2).
DDS_UnsignedShort encapsulation_of(const DDS_DataWriterQos& qos) {
    const bool little = rtps::native_endianness() == rtps::Endianness::little;
    const DDS_DataRepresentationIdSeq& wanted = qos.representation.value;
    const bool xcdr2 = wanted.length() > 0 && wanted[0] == DDS_XCDR2_DATA_REPRESENTATION;
    return static_cast<DDS_UnsignedShort>((xcdr2 ? 6 : 0) + (little ? 1 : 0));
}

} // namespace

/// A buffer of the plugin, or of the heap where the plugin has none, and what was serialized into it.
class UserWriter::Buffer {
  public:
    Buffer(UserWriter& writer, DDS_UnsignedLong size)
        : plugin_(writer.plugin()), endpoint_(writer.plugin_data()), size_(size) {
        if (size == 0)
            return;
        if (plugin_.getBuffer != nullptr && plugin_.returnBuffer != nullptr) {
            bytes_ = plugin_.getBuffer(endpoint_, size);
        } else {
            own_.resize(size);
            bytes_ = own_.data();
        }
    }
    ~Buffer() {
        if (bytes_ != nullptr && own_.empty())
            plugin_.returnBuffer(endpoint_, bytes_);
    }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    using Serialize = decltype(PRESTypePlugin::serialize);
    bool fill(Serialize serialize, const void* sample, DDS_UnsignedShort encapsulation) {
        if (bytes_ == nullptr)
            return false;
        QUIXCdrStream stream{};
        QUIXCdrStream_set(&stream, bytes_, size_);
        stream.encapsulationKind = encapsulation;
        if (!serialize(endpoint_, sample, &stream, true, encapsulation, true))
            return false;
        used_ = size_ - QUIXCdrStream_remaining(&stream);
        return true;
    }
    rtps::ByteView view() const { return {reinterpret_cast<const uint8_t*>(bytes_), used_}; }

  private:
    const PRESTypePlugin& plugin_;
    const PRESTypePluginEndpointData endpoint_;
    const DDS_UnsignedLong size_;
    std::vector<char> own_;
    char* bytes_ = nullptr;
    size_t used_ = 0;
};

std::unique_ptr<UserWriter> UserWriter::create(WriterOwner& publisher, TopicImpl& topic,
                                               TypeRegistry::Type type, const rtps::Guid& guid,
                                               const DDS_DataWriterQos& qos) {
    const PRESTypePlugin& plugin = type->plugin();
    if (plugin.serialize == nullptr || plugin.getSerializedSampleMaxSize == nullptr ||
        (type->is_keyed() && plugin.instanceToKeyHash == nullptr)) {
        MERIDIAN_LOG_ERROR("dcps", "writer of topic \"%s\": the plugin of type \"%s\" does not serialize",
                           topic.get_name(), topic.get_type_name());
        return nullptr;
    }
    std::unique_ptr<UserWriter> writer(new UserWriter(publisher, topic, std::move(type), guid, qos));
    return writer->is_attached() ? std::move(writer) : nullptr;
}

UserWriter::UserWriter(WriterOwner& publisher, TopicImpl& topic, TypeRegistry::Type type,
                       const rtps::Guid& guid, const DDS_DataWriterQos& qos)
    : UserEndpoint(topic, std::move(type), guid, qos), publisher_(publisher) {}

UserWriter::~UserWriter() {
    stop();
}

bool UserWriter::start(rtps::net::Runtime& runtime, const DDS_GroupPolicies& group) {
    return join(runtime, group, [this](rtps::Participant& participant, rtps::Now now) {
        return participant.add_writer(endpoint_data(), config(), *this, now);
    });
}

void UserWriter::stop() {
    leave();
    MutexLock lock(mutex_);
    stopped_.notify_all();
}

DDS_ReturnCode_t UserWriter::enable() {
    return publisher_.enable_endpoint(*this);
}

rtps::WriterConfig UserWriter::config() {
    rtps::WriterConfig config;
    MutexLock lock(mutex_);
    if (qos_.resource_limits.max_samples != DDS_LENGTH_UNLIMITED)
        config.max_samples = static_cast<size_t>(qos_.resource_limits.max_samples);
    return config;
}

// -- Statuses

DDS_ReturnCode_t UserWriter::get_matched_subscriptions(DDS_InstanceHandleSeq& subscriptions) {
    if (!subscriptions.has_ownership())
        return DDS_RETCODE_BAD_PARAMETER;
    MutexLock lock(mutex_);
    subscriptions.length(0);
    for (const auto& [remote, alive] : statuses_.remotes()) {
        if (!subscriptions.append(discovery::to_handle(remote)))
            return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    return DDS_RETCODE_OK;
}

void UserWriter::matched(const rtps::RemoteEndpoint& remote) {
    MutexLock lock(mutex_);
    if (statuses_.matched(remote.guid))
        status_condition().set_changed(DDS_PUBLICATION_MATCHED_STATUS);
}

void UserWriter::unmatched(const rtps::Guid& remote) {
    MutexLock lock(mutex_);
    if (statuses_.unmatched(remote))
        status_condition().set_changed(DDS_PUBLICATION_MATCHED_STATUS);
}

void UserWriter::incompatible(const rtps::RemoteEndpoint& remote, const std::vector<uint32_t>& policies) {
    MutexLock lock(mutex_);
    if (count_incompatible(remote, policies))
        status_condition().set_changed(DDS_OFFERED_INCOMPATIBLE_QOS_STATUS);
}

// -- Writing

DDS_ReturnCode_t UserWriter::key_of(const void* sample, const DDS_InstanceHandle_t& handle,
                                    rtps::KeyHash& key) {
    key = {};
    if (!keyed_)
        return handle.isValid ? DDS_RETCODE_BAD_PARAMETER : DDS_RETCODE_OK;
    PRESKeyHash hash{};
    if (!plugin().instanceToKeyHash(plugin_data(), &hash, sample))
        return DDS_RETCODE_ERROR;
    key = discovery::to_key_hash(hash.value);
    if (!handle.isValid)
        return DDS_RETCODE_OK;
    const rtps::KeyHash given = discovery::to_key_hash(handle.keyHash);
    if (instances_.count(given) == 0)
        return DDS_RETCODE_BAD_PARAMETER;
    return given == key ? DDS_RETCODE_OK : DDS_RETCODE_PRECONDITION_NOT_MET;
}

DDS_ReturnCode_t UserWriter::add_instance(const rtps::KeyHash& key) {
    if (!keyed_ || instances_.count(key) != 0)
        return DDS_RETCODE_OK;
    DDS_DataWriterQos qos;
    get_qos(qos);
    const DDS_Long most = qos.resource_limits.max_instances;
    if (most != DDS_LENGTH_UNLIMITED && instances_.size() >= static_cast<size_t>(most))
        return DDS_RETCODE_OUT_OF_RESOURCES;
    instances_.insert(key);
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t UserWriter::fill_in(const DDS_WriteParams_t& params, const rtps::KeyHash& key,
                                     rtps::WriteRequest& request) const {
    if (!(params.source_timestamp.sec == DDS_TIME_INVALID.sec &&
          params.source_timestamp.nanosec == DDS_TIME_INVALID.nanosec)) {
        request.source_timestamp = discovery::to_wire_time(params.source_timestamp);
        if (!request.source_timestamp)
            return DDS_RETCODE_BAD_PARAMETER;
    }
    if (keyed_) {
        request.instance = key;
        request.inline_qos.key_hash = key;
    }
    const DDS_SampleIdentity_t& related = params.related_sample_identity;
    if (related.writer_guid != DDS_GUID_UNKNOWN) {
        request.inline_qos.related_writer = rtps::guid_of(discovery::to_key_hash(related.writer_guid.value));
        request.inline_qos.related_sequence_number = static_cast<rtps::SequenceNumber>(
            static_cast<uint64_t>(static_cast<uint32_t>(related.sequence_number.high)) << 32 |
            related.sequence_number.low);
    }
    request.inline_qos.sample_flags = params.flag;
    return DDS_RETCODE_OK;
}

template <typename Done>
DDS_ReturnCode_t UserWriter::poll(const DDS_Duration_t& longest, Done done) {
    const std::chrono::nanoseconds deadline = deadline_after(monotonic_now(), longest);
    while (rtps::net::Runtime* const joined = runtime()) {
        if (joined->with_participant(done))
            return DDS_RETCODE_OK;
        const std::chrono::nanoseconds now = monotonic_now();
        if (now >= deadline)
            return DDS_RETCODE_TIMEOUT;
        MutexLock lock(mutex_);
        if (runtime() != nullptr)
            stopped_.wait_until(mutex_, std::min(deadline, now + kPollPeriod));
    }
    return DDS_RETCODE_ALREADY_DELETED;
}

DDS_ReturnCode_t UserWriter::send(const rtps::WriteRequest& request, const DDS_Duration_t& longest) {
    return poll(longest, [this, &request](rtps::Participant& participant, rtps::Now now) {
        return participant.write(guid().entity, request, now).has_value();
    });
}

DDS_ReturnCode_t UserWriter::write(const void* sample, const DDS_WriteParams_t& params, Kind kind) {
    const bool is_data = kind == Kind::data;
    const bool unregisters = kind == Kind::unregistration;
    if (!is_enabled())
        return DDS_RETCODE_NOT_ENABLED;
    if (sample == nullptr)
        return DDS_RETCODE_BAD_PARAMETER;
    if (!is_data && !keyed_)
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    DDS_DataWriterQos qos;
    get_qos(qos);
    MutexLock lock(writing_);
    rtps::KeyHash key;
    rtps::WriteRequest request;
    DDS_ReturnCode_t result = key_of(sample, params.handle, key);
    if (result == DDS_RETCODE_OK)
        result = fill_in(params, key, request);
    if (result == DDS_RETCODE_OK && unregisters && instances_.count(key) == 0)
        result = DDS_RETCODE_PRECONDITION_NOT_MET;
    if (result == DDS_RETCODE_OK)
        result = add_instance(key);
    if (result != DDS_RETCODE_OK)
        return result;
    if (!is_data) {
        const bool disposes = !unregisters || qos.writer_data_lifecycle.autodispose_unregistered_instances;
        request.inline_qos.status_info =
            (disposes ? rtps::kDisposed : 0u) | (unregisters ? rtps::kUnregistered : 0u);
        request.payload_is_key = true;
    }

    const DDS_UnsignedShort encapsulation = encapsulation_of(qos);
    const auto serialize = is_data ? plugin().serialize : plugin().serializeKey;
    const auto size_of = is_data ? plugin().getSerializedSampleMaxSize : plugin().getSerializedKeyMaxSize;
    const DDS_UnsignedLong size =
        serialize != nullptr && size_of != nullptr ? size_of(plugin_data(), true, encapsulation, 0) : 0;
    Buffer buffer(*this, size);
    if ((is_data || size > 0) && !buffer.fill(serialize, sample, encapsulation))
        return DDS_RETCODE_ERROR;
    request.payload = buffer.view(); // empty at the end of an instance: the key hash says it all
    result = send(request, qos.reliability.max_blocking_time);
    if (result == DDS_RETCODE_OK && unregisters)
        instances_.erase(key);
    return result;
}

DDS_ReturnCode_t UserWriter::write_untyped(const void* sample, const DDS_WriteParams_t& params) {
    return write(sample, params, Kind::data);
}

DDS_InstanceHandle_t UserWriter::register_instance_untyped(const void* sample,
                                                           const DDS_WriteParams_t& params) {
    if (!is_enabled() || sample == nullptr || !keyed_)
        return DDS_HANDLE_NIL;
    MutexLock lock(writing_);
    rtps::KeyHash key;
    if (key_of(sample, params.handle, key) != DDS_RETCODE_OK || add_instance(key) != DDS_RETCODE_OK)
        return DDS_HANDLE_NIL;
    return discovery::to_handle(key);
}

DDS_ReturnCode_t UserWriter::unregister_instance_untyped(const void* sample,
                                                         const DDS_WriteParams_t& params) {
    return write(sample, params, Kind::unregistration);
}

DDS_ReturnCode_t UserWriter::dispose_untyped(const void* sample, const DDS_WriteParams_t& params) {
    return write(sample, params, Kind::disposal);
}

DDS_ReturnCode_t UserWriter::get_key_value_untyped(void* /*holder*/, const DDS_InstanceHandle_t& handle) {
    return handle.isValid ? DDS_RETCODE_UNSUPPORTED : DDS_RETCODE_BAD_PARAMETER;
}

DDS_InstanceHandle_t UserWriter::lookup_instance_untyped(const void* holder) {
    if (!keyed_ || holder == nullptr)
        return DDS_HANDLE_NIL;
    MutexLock lock(writing_);
    rtps::KeyHash key;
    if (key_of(holder, DDS_HANDLE_NIL, key) != DDS_RETCODE_OK || instances_.count(key) == 0)
        return DDS_HANDLE_NIL;
    return discovery::to_handle(key);
}

DDS_ReturnCode_t UserWriter::wait_for_acknowledgments(const DDS_Duration_t& max_wait) {
    if (!is_enabled())
        return DDS_RETCODE_NOT_ENABLED;
    return poll(max_wait, [this](rtps::Participant& participant, rtps::Now /*now*/) {
        return participant.all_acknowledged(guid().entity);
    });
}

DDS_ReturnCode_t UserWriter::assert_liveliness() {
    rtps::net::Runtime* const joined = runtime();
    if (joined == nullptr)
        return DDS_RETCODE_NOT_ENABLED;
    DDS_DataWriterQos qos;
    get_qos(qos);
    joined->with_participant([this, &qos](rtps::Participant& participant, rtps::Now now) {
        if (qos.liveliness.kind == DDS_MANUAL_BY_TOPIC_LIVELINESS_QOS)
            participant.assert_liveliness(guid().entity, now);
        else if (qos.liveliness.kind == DDS_MANUAL_BY_PARTICIPANT_LIVELINESS_QOS)
            participant.assert_liveliness(now);
    });
    return DDS_RETCODE_OK;
}

} // namespace meridian::dcps
