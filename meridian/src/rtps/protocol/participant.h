#pragma once

// An RTPS participant as a pure state machine: it discovers participants and endpoints, announces its own,
// and moves samples between local endpoints and remote ones (OMG DDSI-RTPS 2.5, clauses 8.4 and 8.5). Bytes
// and times come in through receive, on_timer and the other calls; messages go out through Output, news
// through Events and SampleSink.
//
// Not thread-safe: the caller serialises all calls. Output, Events and the sinks are called from within these
// calls, must outlive the participant (sinks: until remove_endpoint), and must not call back into it. After
// every call the caller asks next_deadline() and calls on_timer() not before that time; later is harmless.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "rtps/protocol/interfaces.h"
#include "rtps/wire/discovery_data.h"
#include "rtps/wire/message.h"
#include "rtps/wire/types.h"

namespace meridian::rtps {

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
    /// Larger fragmented samples are dropped with a warning.
    size_t max_sample_size = size_t{16} << 20;
    /// All fragments and out-of-order samples held for one reader together; beyond it nothing new is held,
    /// and reliable ones are asked for again later.
    size_t max_reassembly_memory = size_t{64} << 20;
    /// Discovered participants beyond this many are not taken (a guard against hostile networks), likewise
    /// endpoints.
    size_t max_remote_participants = 10000;
    size_t max_remote_endpoints = 200000;
};

/// The counterpart of a builtin endpoint that is not announced through endpoint discovery: it exists where a
/// participant announces this bit.
struct BuiltinPeer {
    EntityId remote;
    uint32_t remote_bit = 0; // BuiltinEndpoint
};

struct ReaderConfig {
    std::optional<BuiltinPeer> builtin_peer; // set: matched by it, and not announced
    /// Shortest time between two acknowledgements of one writer's heartbeats, against storms. The first is
    /// immediate.
    Duration heartbeat_suppression = std::chrono::milliseconds(1);
    /// A missing sample is asked for again when it did not come within this time.
    Duration nack_retry = std::chrono::milliseconds(50);
};

struct WriterConfig {
    std::optional<BuiltinPeer> builtin_peer;                    // set: matched by it, and not announced
    Duration heartbeat_period = std::chrono::milliseconds(100); // while something is unacknowledged
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
    InlineQos inline_qos;                     // sent where anything in it is set
    std::optional<WireTime> source_timestamp; // default: Now::wall
};

class Participant {
  public:
    Participant(ParticipantConfig config, Output& output, Events& events);
    ~Participant();
    Participant(const Participant&) = delete;
    Participant& operator=(const Participant&) = delete;

    const ParticipantConfig& config() const;
    Guid guid() const;
    /// What is announced of this participant at present.
    const ParticipantData& announced() const;

    /// Begins to announce. Endpoints may be added before and after. Before start and after stop, receive and
    /// on_timer do nothing.
    void start(Now now);
    /// Says farewell: disposes the own endpoints and the participant (best effort, sent once), and forgets
    /// every remote one, reported as GoneReason::stopped.
    void stop(Now now);

    /// Takes one datagram as it came from source. Malformed ones are dropped (their good part stands) and
    /// counted.
    ReadStatus receive(ByteView datagram, const Locator& source, Now now);

    /// When on_timer wants to be called next; kNever when there is nothing to do.
    MonotonicTime next_deadline() const;
    void on_timer(Now now);

    /// Forgets this participant and drops whatever comes from it from now on.
    void ignore_participant(const GuidPrefix& prefix, Now now);
    /// The interfaces changed: announces the new addresses at once.
    void set_locators(const OwnLocators& locators, Now now);
    /// Changes what is announced of this participant, announces it at once, and matches all endpoints again.
    void set_announcement(const std::string& name, const std::vector<Property>& properties,
                          const ByteBuffer& user_data, Now now);
    /// One more destination of announcements; announces there at once. Known ones are not added twice.
    void add_peer(const Locator& destination, Now now);

    /// Adds a local reader or writer, and announces it (unless it has a builtin peer). data.guid must have
    /// this participant's prefix and an entity id of the right kind that is not in use; false otherwise. The
    /// sink gets samples during receive from then on, and must stay until remove_endpoint returned.
    bool add_reader(const EndpointData& data, const ReaderConfig& config, SampleSink& sink, Now now);
    bool add_writer(const EndpointData& data, const WriterConfig& config, Now now);
    /// Changes a local endpoint (its partitions, user data, deadline and other changeable QoS), announces it
    /// and matches again.
    bool update_endpoint(const EndpointData& data, Now now);
    /// Something changed about a remote endpoint that Events::types_fit goes by.
    void match_again(const Guid& remote, Now now);
    /// Disposes and forgets a local endpoint. False: there is none.
    bool remove_endpoint(EntityId entity, Now now);

    /// Writes one sample; nullopt when there is no such writer or its history is full of unacknowledged
    /// samples.
    std::optional<SequenceNumber> write(EntityId writer, const WriteRequest& request, Now now);
    /// True when every matched reliable reader has acknowledged everything written.
    bool all_acknowledged(EntityId writer) const;
    /// Asserts the liveliness of all MANUAL_BY_PARTICIPANT writers, or of one MANUAL_BY_TOPIC writer.
    void assert_liveliness(Now now);
    void assert_liveliness(EntityId writer, Now now);

    /// What is known of others; nullptr when unknown. Valid until the next call that is not const.
    const ParticipantData* find_participant(const GuidPrefix& prefix) const;
    const EndpointData* find_endpoint(const Guid& guid) const;
    std::vector<GuidPrefix> participants() const;
    std::vector<Guid> endpoints() const;
    std::vector<Guid> matched_remotes(EntityId local) const;

    struct Statistics {
        uint64_t datagrams = 0;
        uint64_t not_rtps = 0;
        uint64_t malformed = 0;
        uint64_t secured_submessages = 0;
    };
    const Statistics& statistics() const;

  private:
    class Implementation;
    std::unique_ptr<Implementation> implementation_;
};

} // namespace meridian::rtps
