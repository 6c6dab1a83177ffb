#pragma once

// Whom a datagram is for, among participants that share the socket it came through.

#include <utility>
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

    /// Calls receive(Participant&, bool is_first), which returns a ReadStatus, for each participant that the
    /// datagram can be for: for more than can use it where it names none, never for fewer. Returns what the
    /// datagram is.
    template <typename Receive>
    ReadStatus deliver(ByteView datagram, Receive receive) {
        if (all_.size() == 1) // it decides by itself, in the same walk through the datagram
            return receive(*all_.front().participant, true);
        const ReadStatus status = select(datagram);
        bool is_first = true;
        for (const Entry& entry : all_) {
            if (entry.selected)
                receive(*entry.participant, std::exchange(is_first, false));
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
    bool wants(const MessageContext& context, EntityId to, EntityId from) override;
    void on_secured(const MessageContext& context, uint8_t kind) override;

    std::vector<Entry> all_;
};

} // namespace meridian::rtps::net
