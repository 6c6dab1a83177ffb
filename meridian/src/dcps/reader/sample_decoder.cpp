#include "dcps/reader/sample_decoder.h"

#include <algorithm>

#include "dcps/reader/payload_stream.h"
#include "discovery/conversions.h"
#include "platform/clock.h"

namespace meridian::dcps {

namespace {

DDS_SequenceNumber_t to_sequence_number(rtps::SequenceNumber number) {
    if (number == rtps::kSequenceNumberUnknown)
        return DDS_SEQUENCE_NUMBER_UNKNOWN;
    return {static_cast<DDS_Long>(number >> 32), static_cast<DDS_UnsignedLong>(number & 0xffffffff)};
}

ChangeKind kind_of(const rtps::Sample& sample) {
    switch (sample.inline_qos.status_info & (rtps::kDisposed | rtps::kUnregistered)) {
        case rtps::kDisposed | rtps::kUnregistered:
            return ChangeKind::disposed_and_unregistered;
        case rtps::kDisposed:
            return ChangeKind::disposed;
        case rtps::kUnregistered:
            return ChangeKind::unregistered;
        default:
            return ChangeKind::alive;
    }
}

/// A writer may write and dispose, or unregister, in one go.
bool brings_data(const rtps::Sample& sample) {
    return sample.has_payload && !sample.payload_is_key;
}

} // namespace

SampleDecoder::SampleDecoder(const RegisteredType& type, PRESTypePluginEndpointData endpoint,
                             SampleStock& stock)
    : type_(type),
      deserialize_(type.plugin().deserialize),
      endpoint_(endpoint),
      stock_(stock),
      keyed_(type.is_keyed()),
      key_forms_(keyed_ ? KeyForms::of(type.plugin().typeCode) : nullptr) {}

SampleDecoder::Result SampleDecoder::decode(const rtps::Sample& sample, Change& change) {
    change.kind = kind_of(sample);
    // Without a payload it may end a coherent set. With a key alone it registers an instance (OpenDDS).
    if (change.kind == ChangeKind::alive && !brings_data(sample))
        return Result::ignored;
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
    if (!alive && !brings_data(sample))
        return Result::decoded;
    if (!deserialize(sample, change.sample))
        return Result::undecodable;
    if (change.sample != nullptr)
        change.bytes = stock_.memory_of(change.sample, change.bytes);
    return alive && change.sample == nullptr ? Result::ignored : Result::decoded;
}

bool SampleDecoder::deserialize(const rtps::Sample& sample, void*& made) {
    made = stock_.get();
    if (made == nullptr)
        return false;
    PayloadStream stream(sample);
    bool drop = false;
    const bool readable = deserialize_(endpoint_, &made, &drop, stream.get(), true, true);
    if (!readable || drop) {
        stock_.put_back(made);
        made = nullptr;
    }
    return readable;
}

rtps::KeyHash SampleDecoder::key_hash(const rtps::Sample& sample) {
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
    PayloadStream stream(sample);
    PRESKeyHash hash{};
    std::copy(key.begin(), key.end(), hash.value);
    hash.length = sizeof hash.value;
    if (plugin().serializedSampleToKeyHash(endpoint_, stream.get(), &hash, true, sample.payload_is_key))
        key = discovery::to_key_hash(hash.value);
    if (sample.inline_qos.key_hash)
        aliases_.note(sample.writer, *sample.inline_qos.key_hash, key);
    else if (key_forms_ != nullptr)
        key_forms_->note({sample.writer, sample.vendor, sample.fast_cdr}, sample.payload,
                         sample.payload_is_key, key, aliases_);
    return key;
}

} // namespace meridian::dcps
