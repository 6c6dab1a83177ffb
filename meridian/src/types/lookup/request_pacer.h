#pragma once

// Which lookups may ask whom, and when. Each participant has a window of requests that are under way: it
// grows as the participant answers and shrinks as it does not, so that one which names types without telling
// them gets few. All of them together have a limit and a rate, and participants take turns. Not thread-safe.

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>

#include "rtps/protocol/times.h"
#include "rtps/wire/types.h"

namespace meridian::types {

class RequestPacer {
  public:
    static constexpr unsigned kFirstWindow = 8;
    static constexpr unsigned kLargestWindow = 64;
    static constexpr unsigned kMostUnderWay = 256;
    /// Requests of a longer time follow each other at this distance; so many may come at once.
    static constexpr rtps::Duration kDistance = std::chrono::milliseconds(1);
    static constexpr unsigned kBurst = 256;

    using Lookup = uint64_t;
    struct Turn {
        rtps::GuidPrefix asked;
        Lookup lookup = 0;
    };

    /// The lookup wants to ask that participant. Older lookups (smaller numbers) come first with it.
    void enqueue(const rtps::GuidPrefix& asked, Lookup lookup);
    void withdraw(const rtps::GuidPrefix& asked, Lookup lookup);
    /// A request that is to be sent now; it is under way until it ended. Nothing: none may.
    std::optional<Turn> next(rtps::MonotonicTime now);
    void ended(const rtps::GuidPrefix& asked, bool answered);
    /// The participant is gone, with what waits for it and what is under way to it.
    void forget(const rtps::GuidPrefix& asked);
    /// When next() is to be called again because of the rate.
    rtps::MonotonicTime next_time() const;

  private:
    struct Peer {
        std::set<Lookup> waiting;
        unsigned window = kFirstWindow;
        unsigned under_way = 0;
        bool has_turn = false; // stands in turns_

        bool may_ask() const { return !waiting.empty() && under_way < window; }
    };

    void give_turn(const rtps::GuidPrefix& asked, Peer& peer);

    std::map<rtps::GuidPrefix, Peer> peers_;
    std::deque<rtps::GuidPrefix> turns_;
    unsigned under_way_ = 0;
    rtps::MonotonicTime earliest_{0}; // of the next request, were there no bursts
};

} // namespace meridian::types
