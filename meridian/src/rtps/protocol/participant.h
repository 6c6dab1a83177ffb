#pragma once

// An RTPS participant as a pure state machine: it discovers participants and endpoints, announces its own,
// and moves samples between local endpoints and remote ones (OMG DDSI-RTPS 2.5, clauses 8.4 and 8.5). Bytes
// and times come in through receive, on_timer and the other calls; messages go out through Output, news of
// others through Events, and what concerns a local endpoint through its sink.
//
// Not thread-safe: the caller serialises all calls. Output, Events and the sinks are called from within these
// calls, must outlive the participant (sinks: until remove_endpoint), and must not call back into it. After
// every call the caller asks next_deadline() and calls on_timer() not before that time; later is harmless.

#include <optional>
#include <string>
#include <vector>

#include "rtps/protocol/config.h"
#include "rtps/protocol/endpoint_discovery.h"
#include "rtps/protocol/events.h"
#include "rtps/protocol/liveliness.h"
#include "rtps/protocol/local_endpoints.h"
#include "rtps/protocol/message_batcher.h"
#include "rtps/protocol/message_router.h"
#include "rtps/protocol/output.h"
#include "rtps/protocol/participant_discovery.h"
#include "rtps/protocol/sinks.h"
#include "rtps/protocol/timer_queue.h"
#include "rtps/protocol/warn_once.h"
#include "rtps/wire/discovery_data.h"

namespace meridian::rtps {

class Participant final : private ReaderObserver,
                          private ParticipantDiscovery::Listener,
                          private EndpointDiscovery::Listener {
  public:
    Participant(ParticipantConfig config, Output& output, Events& events);
    Participant(const Participant&) = delete;
    Participant& operator=(const Participant&) = delete;

    Guid guid() const { return {config_.prefix, entity::participant}; }
    /// What is announced of this participant at present.
    const ParticipantData& announced() const { return participants_.announcer().announced(); }

    /// Begins to announce. Endpoints may be added before and after. Before start and after stop, receive and
    /// on_timer do nothing.
    void start(Now now);
    /// Says farewell: disposes the own endpoints and the participant (best effort, sent once), and forgets
    /// every remote one, reported as GoneReason::stopped.
    void stop(Now now);

    /// Takes one datagram as it came from source. Malformed ones are dropped, but for what stands before the
    /// fault. is_first: no other participant with the same credits took it before.
    ReadStatus receive(ByteView datagram, const Locator& source, Now now, bool is_first = true);

    /// For a caller with several datagrams at hand: once for all of them, in end_batch, readers are told that
    /// no more samples come for now, and answers are sent. Without a batch every call does so.
    void begin_batch() { in_batch_ = true; }
    void end_batch(Now now);

    /// Whether a submessage may be for this participant, for those who receive for several: local is the
    /// endpoint here that it names, entity::unknown where it names none, and remote the endpoint that it
    /// comes from.
    bool may_be_for(const GuidPrefix& destination, EntityId local, const Guid& remote) const {
        return router_.may_be_for(destination, local, remote);
    }

    /// When on_timer wants to be called next; kNever when there is nothing to do.
    MonotonicTime next_deadline() const;
    void on_timer(Now now);

    /// Forgets this participant and drops whatever comes from it from now on.
    void ignore_participant(const GuidPrefix& prefix, Now now);
    /// The interfaces changed: announces the new addresses at once.
    void set_locators(const OwnLocators& locators, Now now);
    /// Others know addresses that this host has no more: says farewell and joins again as another participant
    /// for them, with these addresses and all endpoints. What is known of the others stays, and nothing is
    /// told of it again. Callers go on naming their endpoints as before.
    void join_again(const GuidPrefix& prefix, const OwnLocators& locators, Now now);
    /// Changes what is announced of this participant, announces it at once, and matches all endpoints again.
    void set_announcement(const std::string& name, const std::vector<Property>& properties,
                          const ByteBuffer& user_data, Now now);

    /// Adds a local reader or writer, and announces it (unless it has a builtin peer). data.guid must have
    /// this participant's prefix and an entity id of the right kind that is not in use; false otherwise. The
    /// sink is told of matches during this call already, and must stay until remove_endpoint returned.
    bool add_reader(const EndpointData& data, const ReaderConfig& config, ReaderSink& sink, Now now);
    bool add_writer(const EndpointData& data, const WriterConfig& config, EndpointSink& sink, Now now);
    /// Changes a local endpoint (its partitions, user data, deadline and other changeable QoS), announces it
    /// and matches again. False: it does not exist, or its topic is another one.
    bool update_endpoint(const EndpointData& data, Now now);
    /// Disposes and forgets a local endpoint. False: it does not exist.
    bool remove_endpoint(EntityId entity, Now now);

    /// Who finds the types of publications; without one they have none. Set before start; must outlive the
    /// participant.
    void set_type_settler(TypeSettler& settler) { endpoints_.set_type_settler(settler); }
    /// The type that the settler was waiting for; null: there is none. Without effect for what does not wait.
    void settle_type(const Guid& publication, const EndpointTypeRef& type, Now now);

    /// Writes one sample; nullopt when there is no such writer or its history is full of unacknowledged
    /// samples.
    std::optional<SequenceNumber> write(EntityId writer, const WriteRequest& request, Now now);
    /// True when every matched reliable reader has acknowledged everything written.
    bool all_acknowledged(EntityId writer) const;
    /// Asserts the liveliness of all MANUAL_BY_PARTICIPANT writers, or of one MANUAL_BY_TOPIC writer.
    void assert_liveliness(Now now);
    void assert_liveliness(EntityId writer, Now now);

    /// So many were skipped.
    uint64_t secured_submessages() const { return router_.secured_submessages(); }

  private:
    /// A sink that hands the samples of a builtin reader to one operation.
    class BuiltinSink final : public ReaderSink {
      public:
        using Operation = void (Participant::*)(const Sample&);
        BuiltinSink(Participant& participant, Operation operation)
            : participant_(participant), operation_(operation) {}
        void on_sample(const Sample& sample) override { (participant_.*operation_)(sample); }

      private:
        Participant& participant_;
        const Operation operation_;
    };
    void on_publication(const Sample& sample) { endpoints_.on_sample(sample, true); }
    void on_subscription(const Sample& sample) { endpoints_.on_sample(sample, false); }
    void on_participant_message(const Sample& sample);
    /// Where this process was stopped, or had no processor, until others forgot it.
    void tell_of_pause();
    void on_relayed(const Sample& sample) { participants_.on_relayed(sample, now_); }
    void tell_servers(Now now);
    void say_farewell(Now now);

    /// What all builtin endpoints except those for participants are (DDSI-RTPS 2.5, 8.4.13.3 and 8.5.4.2).
    EndpointData builtin_data(EntityId id) const;
    void add_builtin_reader(EntityId id, BuiltinPeer peer, ReaderSink& sink);
    void add_builtin_writer(EntityId id, BuiltinPeer peer);
    /// False where an endpoint with this id cannot be added.
    bool can_add(const Guid& guid, bool is_reader) const;
    void add(std::unique_ptr<LocalEndpoint> endpoint, Now now);
    ReliableWriter& builtin_writer(EntityId id) { return *locals_.find(id)->writer; }
    ReliableWriter& announcer_of(EntityId id) {
        return builtin_writer(id.is_writer() ? entity::publications_writer : entity::subscriptions_writer);
    }
    void announce(const EndpointData& data, Now now, const Guid* only_for = nullptr);
    /// Announces the endpoints here once more to a participant that needs it to match this one of its.
    void announce_for(DiscoveredEndpoint& remote, Now now);
    void dispose(const Guid& endpoint, Now now);
    void write_participant_message(uint32_t kind);
    /// Ends every call: sends what became due and what was collected.
    void finish(Now now);

    void on_writer_restarted(const Guid& writer) override;
    void on_oversized_sample(const Guid& writer, size_t size, size_t limit) override;
    void on_memory_used_up(const Guid& writer) override;
    void on_number_too_high(const Guid& writer) override;
    void on_liveliness_changed(const Guid& writer, bool alive);
    void on_participant_discovered(RemoteParticipant& remote, Now now) override;
    void on_participant_changed(RemoteParticipant& remote, Now now) override;
    void on_participant_to_match(RemoteParticipant& remote, Now now) override;
    void on_participant_gone(RemoteParticipant& remote, GoneReason reason, Now now) override;
    void on_participant_doubted(RemoteParticipant& remote) override;
    bool is_admitted(const RemoteParticipant& remote) const override {
        return events_.admits(remote.data->guid.prefix);
    }
    bool wants(const std::string& topic_name) const override;
    void on_endpoint_discovered(DiscoveredEndpoint& endpoint) override;
    void on_endpoint_changed(DiscoveredEndpoint& endpoint) override;
    void on_endpoint_gone(DiscoveredEndpoint& endpoint, GoneReason reason, WireTime timestamp) override;

    ParticipantConfig config_;
    const GuidPrefix given_prefix_; // which callers use, whatever it has become since
    Events& events_;
    TimerQueue timers_;
    MessageBatcher batcher_;
    WarnOnce warnings_;
    ParticipantDiscovery participants_;
    EndpointDiscovery endpoints_;
    Liveliness liveliness_;
    LocalEndpoints locals_;
    MessageRouter router_;
    BuiltinSink publications_{*this, &Participant::on_publication};
    BuiltinSink subscriptions_{*this, &Participant::on_subscription};
    BuiltinSink participant_messages_{*this, &Participant::on_participant_message};
    BuiltinSink relays_{*this, &Participant::on_relayed};
    SequenceNumber told_servers_ = 0; // version of the announcement
    EndpointSink no_news_;
    bool running_ = false;
    bool in_batch_ = false;
    Now now_;                           // of the call in progress
    std::vector<GuidPrefix> restarted_; // participants whose builtin writers began anew
};

} // namespace meridian::rtps
