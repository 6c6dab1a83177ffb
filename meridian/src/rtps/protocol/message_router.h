#pragma once

// Takes datagrams apart: decides which submessages are for this participant and come from one that it hears,
// and hands each to the endpoints that it is for. A submessage costs the same however many endpoints there
// are.

#include <cstdint>
#include <vector>

#include "rtps/protocol/early_packets.h"
#include "rtps/protocol/endpoint_discovery.h"
#include "rtps/protocol/liveliness.h"
#include "rtps/protocol/local_endpoints.h"
#include "rtps/protocol/participant_discovery.h"
#include "rtps/protocol/warn_once.h"
#include "rtps/wire/message.h"

namespace meridian::rtps {

class MessageRouter final : private MessageVisitor {
  public:
    /// The references must outlive the router.
    MessageRouter(const GuidPrefix& own_prefix, ParticipantDiscovery& participants,
                  EndpointDiscovery& endpoints, const LocalEndpoints& locals, Liveliness& liveliness,
                  WarnOnce& warnings);

    /// Malformed datagrams are dropped, but for what stands before the fault.
    ReadStatus receive(ByteView datagram, const Locator& source, Now now, bool is_first = true);

    /// See Participant::may_be_for.
    bool may_be_for(const GuidPrefix& destination, EntityId local, const Guid& remote) const;

    /// This writer can be matched from now on: what it sent before is taken by the next replay, which happens
    /// at the end of each datagram at the latest.
    void writer_known(const Guid& writer) { newly_known_writers_.push_back(writer); }
    void replay(Now now);
    /// Tells the readers that were handed something since the last time that no more comes for now.
    void end_batch();

    uint64_t secured_submessages() const { return secured_submessages_; }

  private:
    /// False for submessages that are not for us or come from those we do not hear.
    bool wants(const MessageContext& context, EntityId to, EntityId sender) override;
    void on_data(const MessageContext& context, const Data& data) override;
    void on_data_frag(const MessageContext& context, const DataFrag& fragment) override;
    void on_heartbeat(const MessageContext& context, const Heartbeat& heartbeat) override;
    void on_heartbeat_frag(const MessageContext& context, const HeartbeatFrag& heartbeat) override;
    void on_acknack(const MessageContext& context, const AckNack& acknack) override;
    void on_nack_frag(const MessageContext& context, const NackFrag& nack) override;
    void on_gap(const MessageContext& context, const Gap& gap) override;
    void on_secured(const MessageContext& context, uint8_t kind) override;

    /// uncounted: bytes of it, for the credit of those who sent them.
    ReadStatus take(ByteView datagram, const Locator& source, size_t uncounted, bool is_replayed);
    /// Calls function for the readers that a submessage is meant for; false when none of them knows the
    /// writer.
    template <typename Function>
    bool for_readers(EntityId reader, const Guid& writer, Function function);
    /// Hands a submessage to one reader.
    template <typename Function>
    bool hand_to(Reader& reader, Function& function);
    template <typename Sample>
    void take_sample(const MessageContext& context, const Sample& sample,
                     bool (Reader::*operation)(const MessageContext&, const Sample&, MonotonicTime));
    template <typename Submessage>
    void tell_readers(const MessageContext& context, const Submessage& submessage,
                      void (Reader::*operation)(const Guid&, const Submessage&, MonotonicTime));
    template <typename Submessage>
    void tell_writer(const MessageContext& context, const Submessage& submessage,
                     void (ReliableWriter::*operation)(const Guid&, const Submessage&, MonotonicTime));
    bool from_server(const MessageContext& context) const;
    /// Of one datagram: it is taken again for each of them.
    static constexpr size_t kMostUnknownWriters = 16;
    bool hears_everything() const { return datagram_.hearing == ParticipantDiscovery::Hearing::everything; }
    /// Notes a writer of the present datagram that may be matched soon.
    void note_unknown_writer(const Guid& writer);
    void assert_liveliness(const Guid& writer);

    const GuidPrefix& own_prefix_;
    ParticipantDiscovery& participants_;
    EndpointDiscovery& endpoints_;
    const LocalEndpoints& locals_;
    Liveliness& liveliness_;
    WarnOnce& warnings_;
    uint64_t secured_submessages_ = 0;
    EarlyPackets early_packets_;
    std::vector<Reader*> touched_;          // since end_batch
    std::vector<Guid> unknown_writers_;     // of the datagram being received
    std::vector<Guid> newly_known_writers_; // since the last replay
    Now now_;                               // of the call in progress
    struct Datagram {
        Locator source;
        size_t uncounted = 0;    // bytes, as long as no participant was found in whose name they came
        bool is_checked = false; // wants() was asked for `checked`
        GuidPrefix checked;
        ParticipantDiscovery::Hearing hearing = ParticipantDiscovery::Hearing::nothing;
        bool is_replayed = false; // all but samples of user writers was taken when it came
    };
    Datagram datagram_; // being received
};

} // namespace meridian::rtps
