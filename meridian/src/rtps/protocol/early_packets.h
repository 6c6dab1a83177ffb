#pragma once

// Packets with data of writers that cannot be matched yet. Data and discovery come through different sockets:
// a writer that already knows a reader of ours may write before its announcement is taken here, or while its
// type is still asked for. What it sent is kept for a moment and taken again when it is decided. Bounded, so
// that a flood of strangers costs little.

#include <deque>
#include <memory>
#include <vector>

#include "platform/memory_budget.h"
#include "rtps/protocol/times.h"

namespace meridian::rtps {

class EarlyPackets {
  public:
    static constexpr size_t kMaxPackets = 1000;
    /// Also charged to the budget of the process.
    static constexpr size_t kMaxBytes = size_t{4} << 20;
    /// A little longer than a publication waits for its type.
    static constexpr Duration kLifetime = std::chrono::milliseconds(2500);

    struct Packet {
        std::shared_ptr<const ByteBuffer> datagram;
        Locator source;
    };

    /// Keeps a copy for the writers in question; the oldest packets give way.
    void add(const std::vector<Guid>& writers, ByteView datagram, const Locator& source, MonotonicTime now);
    /// The packets of that writer that are not too old, in the order of their arrival; they are kept no more.
    std::vector<Packet> take(const Guid& writer, MonotonicTime now);
    bool empty() const { return entries_.empty(); }

  private:
    struct Entry {
        Guid writer;
        Packet packet;
        MonotonicTime arrived;
        size_t charge() const { return sizeof(Entry) + packet.datagram->size(); }
    };
    void give_back(const Entry& entry) { memory_.give_back(entry.charge()); }
    void drop_oldest();

    std::deque<Entry> entries_;
    MemoryShare memory_{MemoryBudget::of_process()}; // a packet is charged for each of its writers
};

} // namespace meridian::rtps
