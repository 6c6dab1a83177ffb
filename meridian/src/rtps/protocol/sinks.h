#pragma once

// How a local endpoint speaks to its owner. A sink is called during calls of the participant, must not call
// back into it, and must outlive its endpoint (see Participant::remove_endpoint). References and views are
// valid during the call only.

#include <cstdint>
#include <vector>

#include "rtps/protocol/remote_endpoint.h"
#include "rtps/protocol/times.h"
#include "rtps/wire/discovery_data.h"

namespace meridian::rtps {

/// One received sample. The views point into the packet (or the assembled fragments).
struct Sample {
    Guid writer;
    VendorId vendor;      // of the software that wrote it
    uint8_t fast_cdr = 0; // see Quirks
    SequenceNumber sequence_number = 0;
    WireTime source_timestamp = kTimeInvalid;
    MonotonicTime received{0};
    InlineQos inline_qos;
    bool has_payload = false;
    bool payload_is_key = false;
    ByteView payload; // with its encapsulation header
};

/// What a local writer is told, and what readers and writers have in common. Endpoints with a builtin peer
/// are told nothing of matches.
class EndpointSink {
  public:
    virtual ~EndpointSink() = default;

    /// The endpoint and a compatible remote one found each other, or lost each other again.
    virtual void matched(const RemoteEndpoint& /*remote*/) {}
    virtual void unmatched(const Guid& /*remote*/) {}
    /// A matched remote endpoint announced something else than before, and still matches.
    virtual void match_changed(const RemoteEndpoint& /*remote*/) {}
    /// Same topic and type, but these QoS policies (DDS policy ids, see qos_matching.h) do not fit. Told once
    /// per pair and change.
    virtual void incompatible(const RemoteEndpoint& /*remote*/, const std::vector<uint32_t>& /*policies*/) {}
};

/// Why a sample that came was not delivered, although its writer has done its part.
enum class NotTaken {
    incomplete, // not all of its fragments came
    too_large,  // beyond ParticipantConfig::max_sample_size
    no_memory,  // what all may hold together is used up
    count
};

/// Takes what a local reader receives. For reliable readers: every sample exactly once, in order of each
/// writer. For best-effort readers: never twice and never out of order.
class ReaderSink : public EndpointSink {
  public:
    virtual void on_sample(const Sample& sample) = 0;
    /// No more samples for now: what was put off since the first one can be done for all of them. After every
    /// on_sample at the latest when the call of the participant ends, or its batch (see
    /// Participant::begin_batch); sometimes without samples.
    virtual void on_batch_end() {}
    /// count samples of this writer will never come (the writer no longer has them, or they passed us by).
    virtual void on_lost(const Guid& /*writer*/, uint64_t /*count*/) {}
    /// count samples came and were not taken. Best-effort readers tell them as lost too, once a later one
    /// comes.
    virtual void on_not_taken(const Guid& /*writer*/, NotTaken /*reason*/, uint64_t /*count*/) {}
    /// A matched writer missed its announced liveliness lease, or was heard again.
    virtual void liveliness_changed(const Guid& /*writer*/, bool /*alive*/) {}
    /// Asked before the reader is matched, or stays matched, with a writer that fits in all that the protocol
    /// knows of: whether the type of its samples is one that the reader can take.
    virtual bool accepts_type(const RemoteEndpoint& /*writer*/) { return true; }
};

} // namespace meridian::rtps
