#pragma once

// Collects submessages and sends those for one destination together, in the order they were added, in as few
// datagrams as the message size allows. INFO_DST and INFO_TS are written where they change.
//
// What may wait goes along with what goes there anyway, and at the latest kLongestWait after the datagram
// before it: applications whose many writers write seldom get one datagram for all of them, instead of being
// woken for each.

#include <memory>
#include <optional>
#include <vector>

#include "rtps/protocol/credit.h"
#include "rtps/protocol/output.h"
#include "rtps/protocol/times.h"
#include "rtps/wire/message.h"

namespace meridian::rtps {

/// Which participant gets a submessage (unknown: all) and at which addresses.
struct Route {
    GuidPrefix prefix;
    LocatorList locators;
    std::shared_ptr<Credit> credit = nullptr; // null: no limit
    friend bool operator==(const Route& a, const Route& b) {
        return a.prefix == b.prefix && a.locators == b.locators;
    }
};

enum class Haste : uint8_t { now, may_wait };

class MessageBatcher {
  public:
    static constexpr Duration kLongestWait = std::chrono::milliseconds(10);

    /// output must outlive the batcher.
    MessageBatcher(const GuidPrefix& source, size_t max_size, Output& output);
    ~MessageBatcher();

    /// Submessages that exceed a whole message are dropped; use max_payload to avoid that. So are those for
    /// which there is no credit.
    void add(const Route& to, const Data& data, std::optional<WireTime> timestamp, Haste haste = Haste::now);
    void add(const Route& to, const DataFrag& data, std::optional<WireTime> timestamp);
    void add(const Route& to, const Heartbeat& heartbeat, Haste haste = Haste::now);
    void add(const Route& to, const AckNack& acknack, Haste haste = Haste::now);
    void add(const Route& to, const NackFrag& nack);
    void add(const Route& to, const Gap& gap);

    /// Largest payload of a DATA or DATA_FRAG with that much inline QoS.
    size_t max_payload(size_t inline_qos_size) const;

    /// From whom messages are from now on. Nothing may be collected.
    void set_source(const GuidPrefix& source);
    const GuidPrefix& source() const { return source_; }

    /// Sends everything collected.
    void flush();
    /// Leaves what may wait. To be called again at next_deadline(), kNever when nothing waits.
    void flush_due(MonotonicTime now);
    MonotonicTime next_deadline() const { return next_deadline_; }

  private:
    struct Open;

    Open& open(const Locator& destination);
    template <typename TryAppend>
    void append_to_one(const Route& to, const Locator& locator, Haste haste, TryAppend try_append);
    void send(Open& message);
    template <typename Append>
    void append(const Route& to, const std::optional<WireTime>* timestamp, Append append_to,
                Haste haste = Haste::now);

    GuidPrefix source_;
    size_t max_size_;
    Output& output_;
    std::vector<std::unique_ptr<Open>> messages_; // of the latest destinations; many are empty
    size_t latest_ = 0;                           // of them
    MonotonicTime next_deadline_ = kNever;
};

} // namespace meridian::rtps
