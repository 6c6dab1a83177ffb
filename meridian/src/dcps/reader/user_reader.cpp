// A reader of the user's topics: its life, and the way of a sample from the protocol into the cache.

#include "dcps/reader/user_reader.h"

#include <algorithm>
#include <utility>

#include "dcps/common/qos_change.h"
#include "dcps/entities/participant.h"
#include "dcps/entities/subscriber.h"
#include "dcps/reader/payload_stream.h"
#include "dcps/reader/read_condition.h"
#include "discovery/conversions.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "types/lookup/endpoint_type.h"

namespace meridian::dcps {

namespace {

constexpr uint32_t kDisposed = 1; // bits of the status info
constexpr uint32_t kUnregistered = 2;
constexpr DDS_Long kInitialSamples = 16;

DDS_GUID_t to_guid_t(const rtps::Guid& guid) {
    DDS_GUID_t out{};
    const DDS_InstanceHandle_t handle = discovery::to_handle(guid);
    std::copy(std::begin(handle.keyHash), std::end(handle.keyHash), out.value);
    return out;
}

DDS_SequenceNumber_t to_sequence_number(rtps::SequenceNumber number) {
    if (number == rtps::kSequenceNumberUnknown)
        return DDS_SEQUENCE_NUMBER_UNKNOWN;
    return {static_cast<DDS_Long>(number >> 32), static_cast<DDS_UnsignedLong>(number & 0xffffffff)};
}

ChangeKind kind_of(const rtps::Sample& sample) {
    switch (sample.inline_qos.status_info & (kDisposed | kUnregistered)) {
        case kDisposed | kUnregistered:
            return ChangeKind::disposed_and_unregistered;
        case kDisposed:
            return ChangeKind::disposed;
        case kUnregistered:
            return ChangeKind::unregistered;
        default:
            return ChangeKind::alive;
    }
}

/// A writer may write and dispose in one go.
bool brings_data(ChangeKind kind, const rtps::Sample& sample) {
    return (kind == ChangeKind::disposed || kind == ChangeKind::disposed_and_unregistered) &&
           sample.has_payload && !sample.payload_is_key;
}

} // namespace

std::unique_ptr<UserReader> UserReader::create(SubscriberImpl& subscriber, TopicImpl& topic,
                                               TypeRegistry::Type type, const rtps::Guid& guid,
                                               const DDS_DataReaderQos& qos, DeliveryThread& delivery) {
    std::unique_ptr<UserReader> reader(
        new UserReader(subscriber, topic, std::move(type), guid, qos, delivery));
    const PRESTypePluginEndpointInfo info{PRES_TYPEPLUGIN_ENDPOINT_READER, kInitialSamples,
                                          DDS_LENGTH_UNLIMITED, topic.get_name()};
    reader->endpoint_ = reader->plugin().onEndpointAttached(reader->type_->participant_data(), &info);
    if (reader->endpoint_ == nullptr) {
        MERIDIAN_LOG_ERROR("dcps", "reader of topic \"%s\": the plugin of type \"%s\" refused it",
                           topic.get_name(), topic.get_type_name());
        return nullptr;
    }
    return reader;
}

UserReader::UserReader(SubscriberImpl& subscriber, TopicImpl& topic, TypeRegistry::Type type,
                       const rtps::Guid& guid, const DDS_DataReaderQos& qos, DeliveryThread& delivery)
    : EntityImpl(guid),
      subscriber_(subscriber),
      topic_(topic),
      type_(std::move(type)),
      keyed_(type_->is_keyed()),
      key_forms_(keyed_ ? KeyForms::of(plugin().typeCode) : nullptr),
      delivery_(delivery),
      qos_(qos),
      cache_(std::make_unique<ReaderCache>(cache_settings(qos), static_cast<SampleOwner&>(*this))) {}

UserReader::~UserReader() {
    stop();
    {
        MutexLock lock(mutex_);
        tell_overwritten(true);
        for (const WithheldSamples::Withheld& withheld : withheld_.release_due(rtps::kNever)) {
            for (const Change& change : withheld.changes) {
                if (change.sample != nullptr)
                    release_sample(change.sample);
            }
        }
        conditions_.clear();
        loans_.clear();
        cache_.reset(); // gives its samples back to the plugin
    }
    if (endpoint_ != nullptr)
        plugin().onEndpointDetached(endpoint_);
}

bool UserReader::start(rtps::net::Runtime& runtime, const GroupQos& group) {
    {
        MutexLock lock(mutex_);
        group_ = group;
    }
    return membership_.join(runtime, guid().entity, [this](rtps::Participant& participant, rtps::Now now) {
        if (!participant.add_reader(endpoint_data(), {}, *this, now))
            return false;
        set_enabled(); // under the lock: the first sample must find the reader enabled
        return true;
    });
}

void UserReader::stop() {
    membership_.leave();
    subscriber_.publications().forget(*this);
    delivery_.remove(*this);
}

DDS_ReturnCode_t UserReader::enable() {
    return subscriber_.enable_reader(*this);
}

void UserReader::set_group(const GroupQos& group) {
    {
        MutexLock lock(mutex_);
        group_ = group;
    }
    membership_.announce([this] { return endpoint_data(); });
}

DDS_ReturnCode_t UserReader::set_qos(const DDS_DataReaderQos& qos) {
    {
        MutexLock lock(mutex_);
        const DDS_ReturnCode_t result = change_qos(qos_, qos, is_enabled(), "reader");
        if (result != DDS_RETCODE_OK)
            return result;
        cache_->update(cache_settings(qos_));
    }
    membership_.announce([this] { return endpoint_data(); });
    return DDS_RETCODE_OK;
}

ReaderCache::Settings UserReader::cache_settings(const DDS_DataReaderQos& qos) const {
    ReaderCache::Settings settings;
    settings.keyed = keyed_;
    settings.history = qos.history;
    settings.limits = qos.resource_limits;
    settings.ownership = qos.ownership.kind;
    settings.destination_order = qos.destination_order.kind;
    settings.minimum_separation =
        rtps::to_duration(discovery::to_wire(qos.time_based_filter.minimum_separation));
    settings.deadline = rtps::to_duration(discovery::to_wire(qos.deadline.period));
    return settings;
}

rtps::EndpointQos UserReader::endpoint_qos() {
    DDS_TopicQos topic;
    topic_.get_qos(topic);
    return to_endpoint_qos(qos_, group_, topic);
}

rtps::EndpointData UserReader::endpoint_data() {
    MutexLock lock(mutex_);
    return to_endpoint_data(guid(), topic_, endpoint_qos(), qos_.subscription_name, qos_.property);
}

// -- From the protocol into the cache

bool UserReader::deserialize(const rtps::Sample& sample, void*& made) {
    made = nullptr;
    if (!sample.has_payload || sample.payload_is_key)
        return false;
    made = plugin().getSample(endpoint_);
    if (made == nullptr)
        return false;
    QUIXCdrStream stream;
    bind_stream(sample.payload, stream);
    bool drop = false;
    const bool readable = plugin().deserialize(endpoint_, &made, &drop, &stream, true, true);
    if (!readable || drop) {
        plugin().returnSample(endpoint_, made);
        made = nullptr;
    }
    return readable;
}

rtps::KeyHash UserReader::key_hash(const rtps::Sample& sample) {
    rtps::KeyHash key{};
    if (!keyed_)
        return key;
    if (sample.inline_qos.key_hash)
        key = *sample.inline_qos.key_hash;
    if (plugin().serializedSampleToKeyHash == nullptr)
        return key;
    if (!sample.has_payload)
        return aliases_.instance_of(sample.writer, key);
    // What the type says of the payload counts more than the writer's own hash: makers form it differently,
    // and the instances of all writers of a topic are to agree.
    QUIXCdrStream stream;
    bind_stream(sample.payload, stream);
    PRESKeyHash hash{};
    std::copy(key.begin(), key.end(), hash.value);
    hash.length = sizeof hash.value;
    if (plugin().serializedSampleToKeyHash(endpoint_, &stream, &hash, true, sample.payload_is_key))
        key = to_key(hash);
    if (sample.inline_qos.key_hash)
        aliases_.note(sample.writer, *sample.inline_qos.key_hash, key);
    else if (key_forms_ != nullptr)
        key_forms_->note(sample.writer, sample.payload, sample.payload_is_key, key, aliases_);
    return key;
}

void UserReader::on_sample(const rtps::Sample& sample) {
    Change change;
    change.kind = kind_of(sample);
    if (change.kind == ChangeKind::alive && !sample.has_payload)
        return; // it says nothing of an instance; writers may end a coherent set with it
    change.writer = sample.writer;
    change.source_timestamp = sample.source_timestamp == rtps::kTimeInvalid
                                  ? wall_time()
                                  : discovery::to_time(sample.source_timestamp);
    change.received = sample.received;
    const bool original = sample.inline_qos.original_writer.has_value();
    change.identity.writer_guid = to_guid_t(original ? *sample.inline_qos.original_writer : sample.writer);
    change.identity.sequence_number =
        to_sequence_number(original ? sample.inline_qos.original_sequence_number : sample.sequence_number);
    if (sample.inline_qos.related_writer) {
        change.related_identity.writer_guid = to_guid_t(*sample.inline_qos.related_writer);
        change.related_identity.sequence_number =
            to_sequence_number(sample.inline_qos.related_sequence_number);
    }
    change.flag = sample.inline_qos.sample_flags;
    change.bytes = sample.payload.size;
    change.key = key_hash(sample);
    const bool alive = change.kind == ChangeKind::alive;
    bool readable = true;
    if (alive || brings_data(change.kind, sample)) {
        readable = deserialize(sample, change.sample);
        if (alive && readable && change.sample == nullptr)
            return; // the plugin has no use for it
    }
    MutexLock lock(mutex_);
    if (!readable && undecodable_++ == 0)
        MERIDIAN_LOG_WARNING("dcps",
                             "topic \"%s\": a sample of %s (%zu bytes) is not what its type \"%s\" says",
                             topic_.get_name(), rtps::to_string(sample.writer).c_str(), sample.payload.size,
                             topic_.get_type_name());
    if (readable || !alive)
        store(change);
    else
        changed(statuses_.samples_lost(1));
}

void UserReader::store(const Change& change) {
    switch (withheld_.empty() ? WithheldSamples::Added::no : withheld_.add(change)) {
        case WithheldSamples::Added::no:
            store_now(change);
            break;
        case WithheldSamples::Added::yes:
            break;
        case WithheldSamples::Added::full:
            store_withheld(change.writer);
            break;
    }
}

void UserReader::store_now(const Change& change) {
    const ReaderCache::Verdict verdict = cache_->add(change);
    if (verdict == ReaderCache::Verdict::stored) {
        changed(DDS_DATA_AVAILABLE_STATUS);
        arm_timer();
        tell_overwritten(false);
        return;
    }
    if (change.sample != nullptr)
        release_sample(change.sample);
    DDS_SampleRejectedStatusKind reason = DDS_NOT_REJECTED;
    switch (verdict) {
        case ReaderCache::Verdict::rejected_samples:
            reason = DDS_REJECTED_BY_SAMPLES_LIMIT;
            break;
        case ReaderCache::Verdict::rejected_instances:
            reason = DDS_REJECTED_BY_INSTANCES_LIMIT;
            break;
        case ReaderCache::Verdict::rejected_samples_per_instance:
            reason = DDS_REJECTED_BY_SAMPLES_PER_INSTANCE_LIMIT;
            break;
        default:
            return;
    }
    changed(statuses_.sample_rejected(reason, keyed_ ? instance_handle(change.key) : DDS_HANDLE_NIL));
}

void UserReader::release_sample(void* sample) {
    plugin().returnSample(endpoint_, sample);
}

void UserReader::on_lost(const rtps::Guid& writer, uint64_t count) {
    MutexLock lock(mutex_);
    MERIDIAN_LOG_ALL("dcps", "topic \"%s\": %llu samples of %s were lost", topic_.get_name(),
                     static_cast<unsigned long long>(count), rtps::to_string(writer).c_str());
    changed(statuses_.samples_lost(count));
}

void UserReader::matched(const rtps::RemoteEndpoint& remote) {
    {
        MutexLock lock(mutex_);
        store_withheld(remote.guid); // of an earlier life
        cache_->add_writer(remote.guid, remote.qos->ownership_strength);
        withheld_.begin(remote.guid, monotonic_now());
        changed(statuses_.writer_matched(remote.guid));
    }
    const bool awaits = subscriber_.publications().await_announcement(remote.guid, *this);
    MutexLock lock(mutex_);
    if (awaits)
        arm_timer();
    else
        store_withheld(remote.guid);
}

void UserReader::match_changed(const rtps::RemoteEndpoint& remote) {
    MutexLock lock(mutex_);
    cache_->add_writer(remote.guid, remote.qos->ownership_strength);
}

void UserReader::unmatched(const rtps::Guid& remote) {
    aliases_.forget(remote);
    MutexLock lock(mutex_);
    const WithheldSamples::End end{wall_time(), monotonic_now()};
    if (!withheld_.add_end(remote, end))
        store_end(remote, end);
    changed(statuses_.writer_unmatched(remote));
}

void UserReader::announcement_given(const rtps::Guid& writer) {
    MutexLock lock(mutex_);
    store_withheld(writer);
}

void UserReader::store_withheld(const rtps::Guid& writer) {
    if (const auto withheld = withheld_.release(writer))
        store_all(*withheld);
}

void UserReader::store_all(const WithheldSamples::Withheld& withheld) {
    for (const Change& change : withheld.changes)
        store_now(change);
    if (withheld.end)
        store_end(withheld.writer, *withheld.end);
}

void UserReader::store_end(const rtps::Guid& writer, const WithheldSamples::End& end) {
    if (cache_->writer_gone(writer, end.when, end.received))
        changed(DDS_DATA_AVAILABLE_STATUS);
    cache_->forget_writer(writer);
}

void UserReader::incompatible(const rtps::RemoteEndpoint& remote, const std::vector<uint32_t>& policies) {
    MutexLock lock(mutex_);
    const std::vector<uint32_t> counted = without_partition(policies);
    if (counted.empty())
        return;
    MERIDIAN_LOG_WARNING("dcps", "topic \"%s\": writer %s does not match the reader: %s", topic_.get_name(),
                         rtps::to_string(remote.guid).c_str(),
                         describe_incompatibility(*remote.qos, endpoint_qos(), counted).c_str());
    changed(statuses_.incompatible(counted));
}

bool UserReader::accepts_type(const rtps::RemoteEndpoint& writer) {
    const DDS_TypeCode* const own = plugin().typeCode;
    const DDS_TypeCode* const type = rtps::type_of(writer);
    if (own == nullptr || type == nullptr)
        return true;
    {
        MutexLock lock(mutex_);
        if (qos_.type_consistency.kind != DDS_DISALLOW_TYPE_COERCION)
            return true;
    }
    DDS_ExceptionCode_t exception = DDS_NO_EXCEPTION_CODE;
    if (own->equal(type, exception))
        return true;
    MERIDIAN_LOG_LOCAL("dcps", "topic \"%s\": the type \"%s\" of writer %s is not the reader's",
                       topic_.get_name(), topic_.get_type_name(), rtps::to_string(writer.guid).c_str());
    return false;
}

void UserReader::liveliness_changed(const rtps::Guid& remote, bool alive) {
    MutexLock lock(mutex_);
    const bool stored = !alive && cache_->writer_gone(remote, wall_time(), monotonic_now());
    changed(statuses_.writer_alive(remote, alive) | (stored ? DDS_DATA_AVAILABLE_STATUS : 0));
}

// -- Telling

void UserReader::changed(DDS_StatusMask statuses) {
    const DDS_StatusMask unsignalled = statuses & ~signalled_;
    if (unsignalled != 0) {
        signalled_ |= unsignalled;
        status_condition().set_changed(unsignalled);
    }
    if ((statuses & DDS_DATA_AVAILABLE_STATUS) != 0)
        update_conditions();
    const DDS_StatusMask untold = statuses & ~to_tell_;
    if (untold != 0) {
        to_tell_ |= untold;
        delivery_.notify(*this);
    }
}

void UserReader::arm_timer() {
    const rtps::MonotonicTime due = std::min(cache_->next_deadline(), withheld_.next_deadline());
    if (due >= armed_)
        return;
    armed_ = due;
    delivery_.wake_at(*this, due);
}

void UserReader::tell_overwritten(bool at_end) {
    const uint64_t overwritten = cache_->overwritten();
    if (overwritten == 0 || (!at_end && overwritten_told_ != 0))
        return;
    // The total is an error: whoever relies on what was reported has to know, at every verbosity but silence.
    if (at_end)
        MERIDIAN_LOG_ERROR("dcps",
                           "topic \"%s\": %llu samples were overwritten before they could be reported",
                           topic_.get_name(), static_cast<unsigned long long>(overwritten));
    else
        MERIDIAN_LOG_WARNING("dcps",
                             "topic \"%s\": samples come faster than they are reported; the oldest are lost",
                             topic_.get_name());
    overwritten_told_ = overwritten;
}

void UserReader::deliver() {
    std::shared_ptr<ListenerLink> link;
    DDS_StatusMask statuses = 0;
    {
        MutexLock lock(mutex_);
        const rtps::MonotonicTime now = monotonic_now();
        if (armed_ <= now) {
            armed_ = rtps::kNever;
            for (const WithheldSamples::Withheld& withheld : withheld_.release_due(now))
                store_all(withheld);
            for (const DDS_InstanceHandle_t& instance : cache_->on_timer(now)) {
                const DDS_StatusMask bit = statuses_.deadline_missed(instance);
                to_tell_ |= bit;
                signalled_ |= bit;
                status_condition().set_changed(bit);
            }
            arm_timer();
        }
        link = listener_;
        statuses = to_tell_;
        to_tell_ = 0;
        if (link == nullptr)
            return;
        statuses &= listener_mask_;
    }
    if (statuses == 0)
        return;
    if (DDSDataReaderListener* listener = link->enter()) {
        call_listener(*listener, statuses);
        link->leave();
    }
}

void UserReader::call_listener(DDSDataReaderListener& listener, DDS_StatusMask statuses) {
    if ((statuses & DDS_SUBSCRIPTION_MATCHED_STATUS) != 0) {
        DDS_SubscriptionMatchedStatus status;
        get_subscription_matched_status(status);
        listener.on_subscription_matched(face_, status);
    }
    if ((statuses & DDS_REQUESTED_INCOMPATIBLE_QOS_STATUS) != 0) {
        DDS_RequestedIncompatibleQosStatus status;
        get_requested_incompatible_qos_status(status);
        listener.on_requested_incompatible_qos(face_, status);
    }
    if ((statuses & DDS_LIVELINESS_CHANGED_STATUS) != 0) {
        DDS_LivelinessChangedStatus status;
        get_liveliness_changed_status(status);
        listener.on_liveliness_changed(face_, status);
    }
    if ((statuses & DDS_SAMPLE_LOST_STATUS) != 0) {
        DDS_SampleLostStatus status;
        get_sample_lost_status(status);
        listener.on_sample_lost(face_, status);
    }
    if ((statuses & DDS_SAMPLE_REJECTED_STATUS) != 0) {
        DDS_SampleRejectedStatus status;
        get_sample_rejected_status(status);
        listener.on_sample_rejected(face_, status);
    }
    if ((statuses & DDS_REQUESTED_DEADLINE_MISSED_STATUS) != 0) {
        DDS_RequestedDeadlineMissedStatus status;
        get_requested_deadline_missed_status(status);
        listener.on_requested_deadline_missed(face_, status);
    }
    if ((statuses & DDS_DATA_AVAILABLE_STATUS) != 0)
        listener.on_data_available(face_);
}

} // namespace meridian::dcps
