// A reader of a topic: its life, and what the protocol tells it.

#include "dcps/reader/user_reader.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "dcps/reader/read_condition.h"
#include "discovery/conversions.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "rtps/protocol/qos_matching.h"
#include "types/lookup/endpoint_type.h"

namespace meridian::dcps {

namespace {

/// Samples that wait for the end of their batch; so many make the lock cheap, and bound the memory.
constexpr size_t kMostReceived = 64;
/// What a reader takes with its topic, its announcements and who uses it, though nothing was sent to it:
/// others choose how many topics there are.
constexpr size_t kQuietMemory = size_t{7} << 10;
constexpr size_t kCopiesOfNames = 8;
constexpr size_t kMostBytesReceived = size_t{1} << 20;
/// More samples that wait would leave the processor's cache.
constexpr DDS_Long kMostInARest = 32;

/// So many samples end a rest of the delivery thread: at most half of what there is room for.
size_t most_in_a_rest(const DDS_DataReaderQos& qos) {
    DDS_Long room = 2 * kMostInARest;
    const auto limit = [&room](DDS_Long most) {
        if (most != DDS_LENGTH_UNLIMITED)
            room = std::min(room, most);
    };
    if (qos.history.kind == DDS_KEEP_LAST_HISTORY_QOS)
        limit(qos.history.depth);
    limit(qos.resource_limits.max_samples);
    limit(qos.resource_limits.max_samples_per_instance);
    return static_cast<size_t>(std::max(room / 2, DDS_Long{1}));
}

} // namespace

thread_local std::vector<std::vector<UserReader::Received>> UserReader::spare_received_;

std::unique_ptr<UserReader> UserReader::create(ReaderOwner& subscriber, TopicImpl& topic,
                                               TypeRegistry::Type type, const rtps::Guid& guid,
                                               const DDS_DataReaderQos& qos, DeliveryThread& delivery) {
    std::unique_ptr<UserReader> reader(
        new UserReader(subscriber, topic, std::move(type), guid, qos, delivery));
    const size_t names = std::strlen(topic.get_name()) + std::strlen(topic.get_type_name());
    const bool has_memory = reader->share_.take(kQuietMemory + kCopiesOfNames * names);
    return has_memory && reader->is_attached() ? std::move(reader) : nullptr;
}

UserReader::UserReader(ReaderOwner& subscriber, TopicImpl& topic, TypeRegistry::Type type,
                       const rtps::Guid& guid, const DDS_DataReaderQos& qos, DeliveryThread& delivery)
    : UserEndpoint(topic, std::move(type), guid, qos),
      subscriber_(subscriber),
      delivery_(delivery),
      share_(MemoryBudget::of_process()),
      stock_(plugin(), plugin_data(), share_),
      decoder_(*type_, plugin_data(), stock_),
      cache_(cache_settings(qos), stock_, share_),
      withheld_(share_),
      notices_(status_condition(), delivery, *this),
      most_in_a_rest_(most_in_a_rest(qos)) {}

UserReader::~UserReader() {
    stop();
    MutexLock lock(mutex_);
    for (const Received& received : received_) {
        if (received.change.sample != nullptr)
            stock_.release_sample(received.change.sample);
    }
    for (const WithheldSamples::Withheld& withheld : withheld_.release_due(rtps::kNever)) {
        for (const Change& change : withheld.changes) {
            if (change.sample != nullptr)
                stock_.release_sample(change.sample);
        }
    }
    tell_overwritten(true);
    not_taken_.tell_totals(topic_.get_name());
}

bool UserReader::start(rtps::net::Runtime& runtime, const DDS_GroupPolicies& group) {
    return join(runtime, group, [this](rtps::Participant& participant, rtps::Now now) {
        return participant.add_reader(endpoint_data(), {}, *this, now);
    });
}

void UserReader::stop() {
    leave();
    subscriber_.announcements().forget(*this);
    delivery_.remove(*this);
}

DDS_ReturnCode_t UserReader::enable() {
    return subscriber_.enable_endpoint(*this);
}

void UserReader::qos_changed() {
    cache_.update(cache_settings(qos_));
    most_in_a_rest_ = most_in_a_rest(qos_);
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

// -- From the protocol into the cache

void UserReader::on_sample(const rtps::Sample& sample) {
    if (received_.capacity() == 0 && !spare_received_.empty()) {
        received_ = std::move(spare_received_.back());
        spare_received_.pop_back();
    }
    Received& received = received_.emplace_back();
    const SampleDecoder::Result result = decoder_.decode(sample, received.change);
    received.undecodable = result == SampleDecoder::Result::undecodable;
    if (result == SampleDecoder::Result::ignored) {
        received_.pop_back();
        if (received_.empty())
            spare_received_.push_back(std::exchange(received_, {}));
        return;
    }
    bytes_received_ += received.change.bytes;
    if (received_.size() >= kMostReceived || bytes_received_ >= kMostBytesReceived)
        on_batch_end();
}

void UserReader::on_batch_end() {
    if (received_.empty())
        return;
    const NotingLock lock(mutex_, delivery_);
    store_received();
}

void UserReader::store_received() {
    if (received_.empty())
        return;
    DDS_StatusMask statuses = DDS_STATUS_MASK_NONE;
    for (const Received& received : received_) {
        if (received.undecodable)
            tell_undecodable(received.change);
        if (received.undecodable && received.change.kind == ChangeKind::alive)
            statuses |= statuses_.samples_lost(1);
        else
            statuses |= store(received.change);
    }
    received_.clear();
    spare_received_.push_back(std::exchange(received_, {}));
    bytes_received_ = 0;
    stock_.collect();
    stored(statuses);
}

void UserReader::stored(DDS_StatusMask statuses) {
    changed(statuses);
    if ((statuses & DDS_DATA_AVAILABLE_STATUS) != 0) {
        if (cache_.sample_count() >= most_in_a_rest_)
            delivery_.end_rest();
        arm_timer();
        tell_overwritten(false);
    }
}

void UserReader::tell_undecodable(const Change& change) {
    if (undecodable_++ == 0)
        MERIDIAN_LOG_ERROR(
            "dcps", "topic \"%s\": a sample of %s (%zu bytes) is not what its type \"%s\" says",
            topic_.get_name(), rtps::to_string(change.writer).c_str(), change.bytes, topic_.get_type_name());
}

DDS_StatusMask UserReader::store(const Change& change) {
    switch (withheld_.empty() ? WithheldSamples::Added::no : withheld_.add(change)) {
        case WithheldSamples::Added::no:
            return store_now(change);
        case WithheldSamples::Added::full:
            return store_withheld(change.writer) | store_now(change);
        case WithheldSamples::Added::yes:
            break;
    }
    return DDS_STATUS_MASK_NONE;
}

DDS_StatusMask UserReader::store_withheld(const rtps::Guid& writer) {
    const auto withheld = withheld_.release(writer);
    return withheld ? store_all(*withheld) : DDS_STATUS_MASK_NONE;
}

DDS_StatusMask UserReader::store_all(const WithheldSamples::Withheld& withheld) {
    DDS_StatusMask statuses = DDS_STATUS_MASK_NONE;
    for (const Change& change : withheld.changes)
        statuses |= store_now(change);
    if (withheld.end)
        statuses |= store_end(withheld.writer, *withheld.end);
    return statuses;
}

DDS_StatusMask UserReader::store_end(const rtps::Guid& writer, const WithheldSamples::End& end) {
    const bool stored = cache_.writer_gone(writer, end.when, end.received);
    cache_.forget_writer(writer);
    return stored ? DDS_DATA_AVAILABLE_STATUS : DDS_STATUS_MASK_NONE;
}

DDS_StatusMask UserReader::store_now(const Change& change) {
    const ReaderCache::Verdict verdict = cache_.add(change);
    if (verdict == ReaderCache::Verdict::stored)
        return DDS_DATA_AVAILABLE_STATUS;
    if (change.sample != nullptr)
        stock_.release_sample(change.sample);
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
            return DDS_STATUS_MASK_NONE;
    }
    return statuses_.sample_rejected(reason, keyed_ ? discovery::to_handle(change.key) : DDS_HANDLE_NIL);
}

void UserReader::on_lost(const rtps::Guid& writer, uint64_t count) {
    const NotingLock lock(mutex_, delivery_);
    store_received();
    MERIDIAN_LOG_ALL("dcps", "topic \"%s\": %llu samples of %s were lost", topic_.get_name(),
                     static_cast<unsigned long long>(count), rtps::to_string(writer).c_str());
    changed(statuses_.samples_lost(count));
}

void UserReader::on_not_taken(const rtps::Guid&, rtps::NotTaken reason, uint64_t count) {
    not_taken_.add(topic_.get_name(), reason, count);
}

void UserReader::matched(const rtps::RemoteEndpoint& remote) {
    {
        const NotingLock lock(mutex_, delivery_);
        store_received();
        stored(store_withheld(remote.guid)); // of an earlier life
        cache_.add_writer(remote.guid, remote.qos->ownership_strength);
        withheld_.begin(remote.guid, monotonic_now());
        changed(statuses_.writer_matched(remote.guid));
    }
    const bool awaits = subscriber_.announcements().begin(remote.guid, *this);
    const NotingLock lock(mutex_, delivery_);
    if (awaits)
        arm_timer();
    else
        stored(store_withheld(remote.guid));
}

void UserReader::match_changed(const rtps::RemoteEndpoint& remote) {
    const NotingLock lock(mutex_, delivery_);
    store_received();
    cache_.add_writer(remote.guid, remote.qos->ownership_strength);
}

void UserReader::unmatched(const rtps::Guid& remote) {
    decoder_.forget(remote);
    const NotingLock lock(mutex_, delivery_);
    store_received();
    const WithheldSamples::End end{wall_time(), monotonic_now()};
    if (!withheld_.add_end(remote, end))
        stored(store_end(remote, end));
    changed(statuses_.writer_unmatched(remote));
}

void UserReader::announcement_given(const rtps::Guid& writer) {
    const NotingLock lock(mutex_, delivery_);
    stored(store_withheld(writer));
}

void UserReader::incompatible(const rtps::RemoteEndpoint& remote, const std::vector<uint32_t>& policies) {
    const NotingLock lock(mutex_, delivery_);
    if (count_incompatible(remote, policies))
        changed(DDS_REQUESTED_INCOMPATIBLE_QOS_STATUS);
}

char* UserReader::describe_incompatibility(const DDS_EndpointPolicies& writer,
                                           const DDS_GroupPolicies& publisher) {
    const rtps::EndpointQos offered = to_endpoint_qos(writer, publisher);
    MutexLock lock(mutex_);
    const rtps::EndpointQos requested = endpoint_qos();
    std::vector<uint32_t> policies = rtps::incompatible_policies(offered, requested);
    if (!offered.partitions.empty() &&
        std::all_of(offered.partitions.begin(), offered.partitions.end(), rtps::is_partition_pattern))
        policies = without_partition(policies);
    return DDS_String_dup(dcps::describe_incompatibility(offered, requested, policies).c_str());
}

bool UserReader::accepts_type(const rtps::RemoteEndpoint& writer) {
    const DDS_TypeCode* const own = plugin().typeCode;
    const DDS_TypeCode* const type = rtps::type_of(writer);
    if (own == nullptr)
        return true;
    {
        MutexLock lock(mutex_);
        if (type == nullptr)
            return !qos_.type_consistency.force_type_validation;
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
    const NotingLock lock(mutex_, delivery_);
    store_received();
    const bool stored = !alive && cache_.writer_gone(remote, wall_time(), monotonic_now());
    changed(statuses_.writer_alive(remote, alive) | (stored ? DDS_DATA_AVAILABLE_STATUS : 0));
}

// -- Telling

DDS_ReturnCode_t UserReader::read_status(const DDSReaderStatus& status) {
    MutexLock lock(mutex_);
    notices_.read(statuses_.take(status));
    return DDS_RETCODE_OK;
}

void UserReader::changed(DDS_StatusMask statuses) {
    notices_.changed(statuses);
    if ((statuses & DDS_DATA_AVAILABLE_STATUS) != 0)
        update_conditions();
}

void UserReader::arm_timer() {
    const rtps::MonotonicTime due = std::min(cache_.next_deadline(), withheld_.next_deadline());
    if (due >= armed_)
        return;
    armed_ = due;
    delivery_.wake_at(*this, due);
}

void UserReader::tell_overwritten(bool at_end) {
    const uint64_t overwritten = cache_.overwritten();
    if (overwritten == 0 || (!at_end && overwritten_told_ != 0))
        return;
    // The total is an error: what was reported is not all there was, which must show at every verbosity but
    // silence.
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

void UserReader::deliver(rtps::MonotonicTime now) {
    ReaderNotices::Call call;
    std::vector<rtps::Guid> given_up;
    {
        MutexLock lock(mutex_);
        if (armed_ <= now) {
            armed_ = rtps::kNever;
            for (const WithheldSamples::Withheld& withheld : withheld_.release_due(now)) {
                stored(store_all(withheld));
                given_up.push_back(withheld.writer);
            }
            cache_.on_timer(now, missed_);
            for (const DDS_InstanceHandle_t& instance : missed_)
                notices_.changed_in_call(statuses_.deadline_missed(instance));
            arm_timer();
        }
        call = notices_.next_call();
    }
    for (const rtps::Guid& writer : given_up)
        subscriber_.announcements().give_up(writer, *this);
    if (call.link != nullptr && call.statuses != 0)
        call.link->call([&](DDSDataReaderListener& listener) { call_listener(listener, call.statuses); });
}

void UserReader::on_deliveries_end() {
    std::shared_ptr<ListenerLink> link;
    {
        MutexLock lock(mutex_);
        link = notices_.link();
    }
    if (link != nullptr)
        link->call([](DDSDataReaderListener& listener) { listener.on_deliveries_end(); });
}

void UserReader::call_listener(DDSDataReaderListener& listener, DDS_StatusMask statuses) {
    using Listener = DDSDataReaderListener;
    const auto tell = [&](DDS_StatusMask bit, auto status, auto call) {
        if ((statuses & bit) == 0)
            return;
        read_status(&status);
        (listener.*call)(face_, status);
    };
    tell(DDS_SUBSCRIPTION_MATCHED_STATUS, DDS_SubscriptionMatchedStatus(),
         &Listener::on_subscription_matched);
    tell(DDS_REQUESTED_INCOMPATIBLE_QOS_STATUS, DDS_RequestedIncompatibleQosStatus(),
         &Listener::on_requested_incompatible_qos);
    tell(DDS_LIVELINESS_CHANGED_STATUS, DDS_LivelinessChangedStatus(), &Listener::on_liveliness_changed);
    tell(DDS_SAMPLE_LOST_STATUS, DDS_SampleLostStatus(), &Listener::on_sample_lost);
    tell(DDS_SAMPLE_REJECTED_STATUS, DDS_SampleRejectedStatus(), &Listener::on_sample_rejected);
    tell(DDS_REQUESTED_DEADLINE_MISSED_STATUS, DDS_RequestedDeadlineMissedStatus(),
         &Listener::on_requested_deadline_missed);
    if ((statuses & DDS_DATA_AVAILABLE_STATUS) != 0)
        listener.on_data_available(face_);
}

} // namespace meridian::dcps
