#pragma once

// What ParticipantDiscovery keeps of each participant. Only its own files include this one.

#include <algorithm>

#include "rtps/protocol/participant_discovery.h"

namespace meridian::rtps {

constexpr const char* kNoMemoryForParticipants =
    "the announcements of participants take too much memory: those that were not heard again are forgotten";

constexpr const char* kNoMemoryForFurther =
    "many participants in the domain, and many here for topics with several types: further types are read of "
    "some applications only";

constexpr size_t kMaxOtherSources = 4;

inline bool contains(const LocatorList& list, const Locator& locator) {
    return std::find(list.begin(), list.end(), locator) != list.end();
}

/// What a participant announced, as it came.
struct ParticipantDiscovery::Announcement {
    ParticipantRef data; // null: a farewell
    ByteView payload;
    SequenceNumber number = 0;
    Locator source;
    GuidPrefix manager = kUnknownPrefix; // that speaks for it
};

/// What is said in the name of a participant from an address that it was not heard from.
struct ParticipantDiscovery::Doubt {
    Announcement said;
    ByteBuffer payload; // of it
    int asked = 0;
    int refusals = 0;
    bool answered = false; // the address it has spoke since it was asked first
    MonotonicTime ask_at{0};
    MemoryShare memory{MemoryBudget::of_process()};
};

struct ParticipantDiscovery::Remote final : RemoteParticipant, TimerQueue::Client {
    explicit Remote(ParticipantDiscovery& owner) : discovery(owner), timer(owner.timers_, *this) {}
    void on_timer(MonotonicTime) override { discovery.on_timer_of(*this); }
    // What is kept of a participant: its places in tables, with what builtin readers and writers know of its
    // own, and of its announcement per byte at most.
    static constexpr size_t kPlaces = 4096;
    static constexpr size_t kKeptPerByte = 6;
    static constexpr Duration kShortestLease = std::chrono::milliseconds(100);

    const GuidPrefix& prefix() const { return data->guid.prefix; }

    ParticipantDiscovery& discovery;
    TimerQueue::Timer timer;
    Duration lease{0};
    MonotonicTime expires = kNever;
    MonotonicTime ask_at = kNever; // for a sign of life, where no server watches
    MonotonicTime match_at = kNever;
    MonotonicTime matched_at = -kMatchPause;
    MonotonicTime discovered_at{0};
    bool is_stranger = true;
    bool has_spoken = false;    // something came from it that is no announcement of itself
    RemoteList::iterator place; // in the list of its kind
    MonotonicTime placed_at{0};
    bool is_steady = false;       // it announced itself from that address more than once
    LocatorList other_sources;    // it was heard from there too, while nothing was in doubt
    LocatorList endpoint_sources; // what it tells of its endpoints counts from there too
    // Wrong answers from sockets of its host and from others: so many right ones count for nothing.
    int guesses_at_home = 0;
    int guesses_elsewhere = 0;
    MonotonicTime ask_source_at{0};
    std::unique_ptr<Doubt> doubt;
    GuidPrefix manager = kUnknownPrefix; // that announced it; see manager_of
    MemoryShare memory{MemoryBudget::of_process()};

    /// False where there is no memory for it; nothing changes then.
    bool set(const Announcement& announced, MonotonicTime now) {
        const size_t needed = kPlaces + kKeptPerByte * announced.payload.size;
        if (!memory.take(needed))
            return false;
        memory.give_back(memory.held() - needed);
        data = announced.data;
        announcement.assign(announced.payload.begin(), announced.payload.end());
        // The server watches over those that it tells of, as long as it is there.
        ask_at = kNever;
        lease = is_relayed ? kNever : std::max(to_duration(data->lease), kShortestLease);
        renew(now);
        return true;
    }
    bool announced(ByteView payload) const {
        return announcement.size() == payload.size &&
               std::equal(announcement.begin(), announcement.end(), payload.begin());
    }
    /// Those whose address cannot be confirmed, or not be told anything, are taken as they are.
    bool tells_of_endpoints_from(const Locator& source) const {
        return credit == nullptr || is_relayed || metatraffic.locators.empty() || surely_speaks_from(source);
    }
    bool surely_speaks_from(const Locator& source) const {
        return source == announced_from || contains(endpoint_sources, source);
    }
    void add_endpoint_source(const Locator& source) {
        if (endpoint_sources.size() == kMaxOtherSources)
            endpoint_sources.erase(endpoint_sources.begin());
        endpoint_sources.push_back(source);
    }
    void renew(MonotonicTime now) {
        expires = later(now, lease);
        timer.wake_at(expires); // it is not put off: on_timer looks again
    }
};

} // namespace meridian::rtps
