#include "rtps/protocol/early_packets.h"

#include <algorithm>

namespace meridian::rtps {

void EarlyPackets::add(const std::vector<Guid>& writers, ByteView datagram, const Locator& source,
                       MonotonicTime now) {
    while (!entries_.empty() && later(entries_.front().arrived, kLifetime) < now)
        drop_oldest();
    const Packet packet{std::make_shared<const ByteBuffer>(datagram.begin(), datagram.end()), source};
    for (const Guid& writer : writers) {
        const Entry entry{writer, packet, now};
        while (!entries_.empty() &&
               (entries_.size() >= kMaxPackets || memory_.held() + entry.charge() > kMaxBytes))
            drop_oldest();
        if (memory_.take(entry.charge()))
            entries_.push_back(entry);
    }
}

std::vector<EarlyPackets::Packet> EarlyPackets::take(const Guid& writer, MonotonicTime now) {
    std::vector<Packet> taken;
    const auto rest = std::stable_partition(entries_.begin(), entries_.end(),
                                            [&writer](const Entry& entry) { return entry.writer != writer; });
    for (auto entry = rest; entry != entries_.end(); ++entry) {
        give_back(*entry);
        if (later(entry->arrived, kLifetime) >= now)
            taken.push_back(std::move(entry->packet));
    }
    entries_.erase(rest, entries_.end());
    return taken;
}

void EarlyPackets::drop_oldest() {
    give_back(entries_.front());
    entries_.pop_front();
}

} // namespace meridian::rtps
