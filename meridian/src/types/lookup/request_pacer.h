#pragma once

// Which lookups may ask whom, and when, and which requests are under way. Each participant has a window: it
// grows as the participant answers and shrinks as it does not, so that one which names types without telling
// them gets few. All of them together have a limit and a rate, and participants take turns. Not thread-safe.

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <vector>

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
    struct Request {
        int64_t number = 0; // counts from 1
        rtps::GuidPrefix asked;
        Lookup lookup = 0;
    };
    /// retry: how long a request may be under way.
    explicit RequestPacer(rtps::Duration retry) : retry_(retry) {}

    /// The lookup wants to ask that participant. Older lookups (smaller numbers) come first with it.
    void enqueue(const rtps::GuidPrefix& asked, Lookup lookup);
    void withdraw(const rtps::GuidPrefix& asked, Lookup lookup);
    /// A request that is to be sent now, and is under way from now on. Nothing: none may.
    std::optional<Request> next(rtps::MonotonicTime now);
    /// It is under way no longer, if it was.
    void answered(int64_t number);
    /// One that was under way for too long, and is no longer.
    std::optional<Request> overdue(rtps::MonotonicTime now);
    /// The participant is gone, with what waits for it and what was under way to it, which is returned.
    std::vector<Request> forget(const rtps::GuidPrefix& asked);
    /// When next() or overdue() is to be called again.
    rtps::MonotonicTime next_time() const;

  private:
    struct Peer {
        std::set<Lookup> waiting;
        unsigned window = kFirstWindow;
        unsigned under_way = 0;
        bool has_turn = false; // stands in turns_

        bool may_ask() const { return !waiting.empty() && under_way < window; }
    };

    struct UnderWay {
        Request request;
        rtps::MonotonicTime until{0};
    };

    void give_turn(const rtps::GuidPrefix& asked, Peer& peer);
    /// When the rate lets one more go out.
    rtps::MonotonicTime turn_time() const;
    Request end(std::map<int64_t, UnderWay>::iterator request, bool answered);

    const rtps::Duration retry_;
    std::map<rtps::GuidPrefix, Peer> peers_;
    std::deque<rtps::GuidPrefix> turns_;
    std::map<int64_t, UnderWay> under_way_; // by number, so the oldest first
    int64_t last_number_ = 0;
    rtps::MonotonicTime earliest_{0}; // of the next request, were there no bursts
};

} // namespace meridian::types
