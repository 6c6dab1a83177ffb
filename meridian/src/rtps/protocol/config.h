#pragma once

// What a participant and its endpoints are made with, and what is written.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "rtps/protocol/credit.h"
#include "rtps/protocol/times.h"
#include "rtps/wire/discovery_data.h"

namespace meridian::rtps {

struct ToldErrors;

/// The addresses a participant announces as its own.
struct OwnLocators {
    LocatorList metatraffic_unicast;
    LocatorList metatraffic_multicast;
    LocatorList default_unicast;
    LocatorList default_multicast;
    /// Addresses that only this host can use, announced besides the others where Output::stays_on_host says
    /// so: peers may be bound to loopback, but others would send to their own loopback what is meant for us.
    LocatorList host_metatraffic_unicast;
    LocatorList host_default_unicast;
};

struct ParticipantConfig {
    GuidPrefix prefix;
    /// True for participants of this process; they are never reported and never matched. May be empty: only
    /// this participant itself is own then. Must be callable for as long as the participant lives.
    std::function<bool(const GuidPrefix&)> is_own;
    uint32_t domain_id = 0;
    std::string domain_tag;
    std::string name;
    std::vector<Property> properties; // announced as they stand
    ByteBuffer user_data;
    WireDuration lease{6, 0x80000000};
    Duration announce_period = std::chrono::seconds(2);
    int initial_announcements = 5; // the burst at start
    Duration initial_announcement_period = std::chrono::milliseconds(100);
    OwnLocators locators;
    /// Where participant announcements go: multicast groups and unicast peers, with their ports.
    LocatorList initial_peers;
    /// Further ones, where a discovery server may listen: a participant there that says it is one speaks for
    /// others.
    LocatorList servers;
    /// Largest datagram sent; larger samples go as fragments. At least 576.
    size_t max_message_size = 14720;
    /// Builtin endpoints beyond those that this class always has (participants, publications, subscriptions
    /// and participant messages), as BuiltinEndpoint bits; their readers and writers are added with
    /// add_reader and add_writer.
    uint32_t additional_builtin_endpoints = 0;
    /// Differs for every life of a process that may come back with the same prefix; announced, so that others
    /// of this library notice at once. 0: not announced.
    uint64_t incarnation = 0;
    uint64_t seed = 1; // for the jitter of periodic announcements
    /// Where the numbers of the writers for endpoints begin. Others must not know it: see Credit. 0:
    /// addresses cannot be confirmed, and what is sent to them has no limit. Small, because there are readers
    /// that count up to where a writer begins.
    SequenceNumber secret_begin = 0;
    /// Of all participants that share the sockets. Not null.
    std::shared_ptr<CreditLedger> credits = std::make_shared<CreditLedger>();
    std::shared_ptr<ToldErrors> told_errors;
    /// Another participant that shares the sockets sees everything. Once a quarter of the memory is used,
    /// this one takes no new participants, and of the others only endpoints of topics that it has an endpoint
    /// of: many like it would leave nothing for what the other one sees.
    bool is_further = false;
    /// Larger fragmented samples are dropped with a warning.
    size_t max_sample_size = size_t{16} << 20;
    /// Guards against hostile networks. Where there are more participants, some are forgotten (see
    /// participant_discovery.h). No participant gets more endpoints than are left for all others afterwards.
    size_t max_remote_participants = 10000;
    size_t max_remote_endpoints = 200000;
    size_t max_endpoints_of_participant = 10000;
};

/// The counterpart of a builtin endpoint that is not announced through endpoint discovery: it exists where a
/// participant announces this bit.
struct BuiltinPeer {
    EntityId remote;
    uint32_t remote_bit = 0; // BuiltinEndpoint
};

struct ReaderConfig {
    std::optional<BuiltinPeer> builtin_peer; // set: matched by it, and not announced
    /// A missing sample is asked for again when it did not come within this time.
    Duration nack_retry = std::chrono::milliseconds(50);
};

struct WriterConfig {
    std::optional<BuiltinPeer> builtin_peer; // set: matched by it, and not announced
    /// Set: the first sample has the number behind this one, which no other participant knows. So an
    /// acknowledgement shows that who sends it reads what is sent to the reader's address.
    std::optional<SequenceNumber> secret_begin;
    /// What is written may wait for more that goes to the same readers (see MessageBatcher).
    bool may_wait = false;
    /// Each sample names its writer and number as what it is related to, as discovery servers want it.
    bool names_itself = false;
    /// Samples that wait for acknowledgement (or are kept for late joiners) at most; write fails beyond it.
    /// With keep-last history older samples of the instance make room first.
    size_t max_samples = 100000;
};

/// One sample to write. The views need to live during the call only.
struct WriteRequest {
    ByteView payload; // with its encapsulation header
    bool payload_is_key = false;
    /// The instance, for keep-last history; without it all samples are of one instance.
    std::optional<KeyHash> instance;
    InlineQos inline_qos; // sent where anything in it is set
    /// Not for readers that are not answerable (see RemoteReader); they are told that it is irrelevant.
    bool expects_answers = false;
    std::optional<WireTime> source_timestamp; // default: Now::wall
    std::optional<GuidPrefix> only_for;       // readers of this participant; no other is told anything
};

} // namespace meridian::rtps
