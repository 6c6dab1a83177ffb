#pragma once

// What the protocol layer gets from and gives to its surroundings. Everything in rtps/protocol is a pure
// state machine: bytes, times and calls go in, bytes and calls come out. No clocks, threads, locks or system
// calls; the layer above serialises all calls on one object.

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "rtps/wire/discovery_data.h"
#include "rtps/wire/types.h"

namespace meridian::rtps {

/// A point on a clock that never jumps; its epoch is the caller's choice, but values are not negative.
using MonotonicTime = std::chrono::nanoseconds;
using Duration = std::chrono::nanoseconds;
constexpr MonotonicTime kNever = MonotonicTime::max();

/// The two clocks, read by the caller right before a call.
struct Now {
    MonotonicTime monotonic{0};
    WireTime wall; // for source timestamps only
};

/// kDurationInfinite (and anything beyond range) becomes kNever; negative values become 0.
Duration to_duration(WireDuration duration);
WireDuration to_wire(Duration duration);
/// base + delta, kNever where that overflows or either is kNever.
MonotonicTime later(MonotonicTime base, Duration delta);

/// Where messages go. Implemented by the net layer (and by the simulator in tests).
class Output {
  public:
    virtual ~Output() = default;

    /// Sends one datagram; destination may be a multicast address. Best effort: failure is the network's
    /// business. The view is valid during the call only.
    virtual void send(ByteView message, const Locator& destination) = 0;

    /// How good a unicast locator is for reaching the participant whose announcements come from
    /// announced_from (kind kLocatorInvalid where that is unknown). 0 or less: cannot be reached from here;
    /// higher is better. Messages go to one locator per peer, the best one: two would double all traffic.
    /// Among equals an address equal to announced_from wins, then the order of announcement. A peer that
    /// announces 127.0.0.1 among others is reached there only if it lives on this host, which is what
    /// announced_from is for.
    virtual int preference(const Locator& locator, const Locator& announced_from) const = 0;

    /// True when nothing sent there leaves this host. Such destinations are announced the loopback addresses
    /// too.
    virtual bool stays_on_host(const Locator& /*destination*/) const { return false; }

    bool reachable(const Locator& locator, const Locator& announced_from) const {
        return preference(locator, announced_from) > 0;
    }
};

enum class TypeMatch { fits, differs, undecided };

enum class GoneReason {
    disposed,      // it said so
    lease_expired, // it was silent for longer than its lease
    ignored,       // ignore_participant was called for it
    replaced,      // the same prefix came back as another participant (other endpoints, other process)
    stopped,       // this side stopped
};

/// What happened, told during the call that caused it. An implementation must not call back into the
/// participant, and the references are valid during the call only. Nothing about own participants is ever
/// told. Order: participant_discovered, then its endpoints; all its endpoints are gone before
/// participant_gone.
class Events {
  public:
    virtual ~Events() = default;

    virtual void participant_discovered(const ParticipantData&) {}
    /// An announcement with another content than before.
    virtual void participant_changed(const ParticipantData&) {}
    virtual void participant_gone(const ParticipantData&, GoneReason) {}

    /// Asked, not told: whether endpoints of the user's may match those of this participant, which was told
    /// of before. One that is not admitted hears nothing of the endpoints here, while its own are told of all
    /// the same. The answer may change with a change of the participant, and with what set_announcement
    /// announces of this one; what was announced to it before is not taken back then.
    virtual bool admits(const GuidPrefix&) const { return true; }

    /// source_timestamp: INFO_TS of the announcement, kTimeInvalid where none was sent.
    virtual void endpoint_discovered(const EndpointData&, WireTime /*source_timestamp*/) {}
    virtual void endpoint_changed(const EndpointData&, WireTime /*source_timestamp*/) {}
    /// source_timestamp: of the dispose; kTimeInvalid when the endpoint went with its participant.
    virtual void endpoint_gone(const EndpointData&, GoneReason, WireTime /*source_timestamp*/) {}

    /// A local endpoint and a compatible remote one found each other, or lost each other again.
    virtual void matched(const Guid& /*local*/, const EndpointData& /*remote*/) {}
    virtual void unmatched(const Guid& /*local*/, const Guid& /*remote*/) {}
    /// Same topic and type, but these QoS policies (DDS policy ids, see qos_matching.h) do not fit. Told once
    /// per pair and change.
    virtual void incompatible(const Guid& /*local*/, const EndpointData& /*remote*/,
                              const std::vector<uint32_t>& /*policies*/) {}
    /// Asked before a local endpoint is matched, or stays matched, with a remote one that fits in all that
    /// the protocol knows of. Undecided: not matched yet; Participant::match_again asks again, soon.
    virtual TypeMatch types_fit(const Guid& /*local*/, const EndpointData& /*remote*/) {
        return TypeMatch::fits;
    }
    /// A matched remote writer missed its announced liveliness lease, or was heard again.
    virtual void liveliness_changed(const Guid& /*writer*/, bool /*alive*/) {}

    /// Something an operator should know; each cause is told once, so this never floods.
    virtual void warning(const std::string& /*text*/) {}
};

/// One received sample. The views point into the packet (or the assembled fragments) and are valid during the
/// call only.
struct Sample {
    Guid writer;
    VendorId vendor; // of the software that wrote it
    SequenceNumber sequence_number = 0;
    WireTime source_timestamp = kTimeInvalid;
    MonotonicTime received{0};
    InlineQos inline_qos;
    bool has_payload = false;
    bool payload_is_key = false;
    ByteView payload; // with its encapsulation header
};

/// Takes what a local reader receives. For reliable readers: every sample exactly once, in order of each
/// writer. For best-effort readers: never twice and never out of order. An implementation must not call back
/// into the participant.
class SampleSink {
  public:
    virtual ~SampleSink() = default;
    virtual void on_sample(const Sample& sample) = 0;
    /// count samples of this writer will never come (the writer no longer has them, or they passed us by).
    virtual void on_lost(const Guid& /*writer*/, uint64_t /*count*/) {}
};

} // namespace meridian::rtps
