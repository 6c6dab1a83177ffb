#include "types/lookup/request_pacer.h"

#include <algorithm>

namespace meridian::types {

void RequestPacer::give_turn(const rtps::GuidPrefix& asked, Peer& peer) {
    if (peer.has_turn || !peer.may_ask())
        return;
    peer.has_turn = true;
    turns_.push_back(asked);
}

void RequestPacer::enqueue(const rtps::GuidPrefix& asked, Lookup lookup) {
    Peer& peer = peers_[asked];
    peer.waiting.insert(lookup);
    give_turn(asked, peer);
}

void RequestPacer::withdraw(const rtps::GuidPrefix& asked, Lookup lookup) {
    const auto peer = peers_.find(asked);
    if (peer != peers_.end())
        peer->second.waiting.erase(lookup);
}

std::optional<RequestPacer::Turn> RequestPacer::next(rtps::MonotonicTime now) {
    while (now >= next_time()) {
        const rtps::GuidPrefix asked = turns_.front();
        turns_.pop_front();
        const auto at = peers_.find(asked);
        if (at == peers_.end())
            continue;
        Peer& peer = at->second;
        peer.has_turn = false;
        if (!peer.may_ask())
            continue;
        const Turn turn{asked, *peer.waiting.begin()};
        peer.waiting.erase(peer.waiting.begin());
        ++peer.under_way;
        ++under_way_;
        give_turn(asked, peer);
        earliest_ = std::max(earliest_, now) + kDistance;
        return turn;
    }
    return std::nullopt;
}

void RequestPacer::ended(const rtps::GuidPrefix& asked, bool answered) {
    const auto at = peers_.find(asked);
    if (at == peers_.end() || at->second.under_way == 0)
        return; // it was forgotten meanwhile
    Peer& peer = at->second;
    --peer.under_way;
    --under_way_;
    peer.window = answered ? std::min(peer.window + 1, kLargestWindow) : std::max(peer.window / 2, 1u);
    give_turn(asked, peer);
}

void RequestPacer::forget(const rtps::GuidPrefix& asked) {
    const auto at = peers_.find(asked);
    if (at == peers_.end())
        return;
    under_way_ -= at->second.under_way;
    peers_.erase(at);
}

rtps::MonotonicTime RequestPacer::next_time() const {
    if (turns_.empty() || under_way_ >= kMostUnderWay)
        return rtps::kNever;
    return std::max(earliest_ - kBurst * kDistance, rtps::MonotonicTime{0});
}

} // namespace meridian::types
