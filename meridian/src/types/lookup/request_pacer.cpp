#include "types/lookup/request_pacer.h"

#include <algorithm>
#include <iterator>

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

std::optional<RequestPacer::Request> RequestPacer::next(rtps::MonotonicTime now) {
    while (now >= turn_time()) {
        const rtps::GuidPrefix asked = turns_.front();
        turns_.pop_front();
        const auto at = peers_.find(asked);
        if (at == peers_.end())
            continue;
        Peer& peer = at->second;
        peer.has_turn = false;
        if (!peer.may_ask())
            continue;
        const Request request{++last_number_, asked, *peer.waiting.begin()};
        peer.waiting.erase(peer.waiting.begin());
        ++peer.under_way;
        under_way_[request.number] = {request, rtps::later(now, retry_)};
        give_turn(asked, peer);
        earliest_ = std::max(earliest_, now) + kDistance;
        return request;
    }
    return std::nullopt;
}

RequestPacer::Request RequestPacer::end(std::map<int64_t, UnderWay>::iterator at, bool answered) {
    const Request request = at->second.request;
    under_way_.erase(at);
    Peer& peer = peers_.at(request.asked);
    --peer.under_way;
    peer.window = answered ? std::min(peer.window + 1, kLargestWindow) : std::max(peer.window / 2, 1u);
    give_turn(request.asked, peer);
    return request;
}

void RequestPacer::answered(int64_t number) {
    const auto at = under_way_.find(number);
    if (at != under_way_.end())
        end(at, true);
}

std::optional<RequestPacer::Request> RequestPacer::overdue(rtps::MonotonicTime now) {
    if (under_way_.empty() || under_way_.begin()->second.until > now)
        return std::nullopt;
    return end(under_way_.begin(), false);
}

std::vector<RequestPacer::Request> RequestPacer::forget(const rtps::GuidPrefix& asked) {
    std::vector<Request> unanswered;
    for (auto at = under_way_.begin(); at != under_way_.end();) {
        const bool is_of_it = at->second.request.asked == asked;
        if (is_of_it)
            unanswered.push_back(at->second.request);
        at = is_of_it ? under_way_.erase(at) : std::next(at);
    }
    peers_.erase(asked);
    return unanswered;
}

rtps::MonotonicTime RequestPacer::turn_time() const {
    if (turns_.empty() || under_way_.size() >= kMostUnderWay)
        return rtps::kNever;
    return std::max(earliest_ - kBurst * kDistance, rtps::MonotonicTime{0});
}

rtps::MonotonicTime RequestPacer::next_time() const {
    return under_way_.empty() ? turn_time() : std::min(turn_time(), under_way_.begin()->second.until);
}

} // namespace meridian::types
