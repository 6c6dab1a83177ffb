#pragma once

// Whom a datagram is for, among participants that share the socket it came through.

#include <vector>

#include "rtps/protocol/participant.h"
#include "rtps/wire/message.h"

namespace meridian::rtps::net {

/// Not thread-safe.
class Recipients final : private MessageVisitor {
  public:
    void add(Participant& participant) { all_.push_back({&participant, false}); }
    void remove(const Participant& participant);
    size_t size() const { return all_.size(); }

    /// Calls receive(Participant&), which returns a ReadStatus, for each participant that the datagram can be
    /// for: for more than can use it where it names none, never for fewer. Returns what the datagram is.
    template <typename Receive>
    ReadStatus deliver(ByteView datagram, Receive receive) {
        if (all_.size() == 1) // it decides by itself, in the same walk through the datagram
            return receive(*all_.front().participant);
        const ReadStatus status = select(datagram);
        for (const Entry& entry : all_) {
            if (entry.selected)
                receive(*entry.participant);
        }
        return status;
    }
    template <typename Function>
    void for_all(Function function) const {
        for (const Entry& entry : all_)
            function(*entry.participant);
    }

  private:
    struct Entry {
        Participant* participant;
        bool selected;
    };

    ReadStatus select(ByteView datagram);
    /// local: the endpoint here that a submessage names, remote: the one that it comes from.
    void select(const GuidPrefix& destination, EntityId local, const Guid& remote);

    void on_data(const MessageContext& context, const Data& data) override;
    void on_data_frag(const MessageContext& context, const DataFrag& fragment) override;
    void on_heartbeat(const MessageContext& context, const Heartbeat& heartbeat) override;
    void on_heartbeat_frag(const MessageContext& context, const HeartbeatFrag& heartbeat) override;
    void on_acknack(const MessageContext& context, const AckNack& acknack) override;
    void on_nack_frag(const MessageContext& context, const NackFrag& nack) override;
    void on_gap(const MessageContext& context, const Gap& gap) override;
    void on_secured(const MessageContext& context, uint8_t kind) override;

    std::vector<Entry> all_;
};

} // namespace meridian::rtps::net
