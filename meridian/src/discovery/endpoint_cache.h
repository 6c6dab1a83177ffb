#pragma once

// The changes of remote writers (or readers) that wait to be taken by a builtin reader, each with the states
// it had when it happened.

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "meridian/sample_info.h"
#include "platform/mutex.h"
#include "rtps/protocol/events.h"

namespace meridian::discovery {

/// The reader of a cache. Called with the cache locked: must not call back.
class EndpointCacheObserver {
  public:
    /// Whether changes wait.
    virtual void data_available(bool available) = 0;
    /// Whether the application waits for changes, even if it has not taken any so far.
    virtual bool is_watched() = 0;

  protected:
    ~EndpointCacheObserver() = default;
};

/// Told when the application has been given the first change of an endpoint. Called by the thread of the
/// application, without a lock of the cache.
class AnnouncementObserver {
  public:
    virtual void announcement_given(const rtps::Guid& endpoint) = 0;

  protected:
    ~AnnouncementObserver() = default;
};

/// Bounds for a reader that is taken from too rarely. What they drop is counted (see lost()).
struct EndpointCacheLimits {
    size_t changes_per_endpoint = 16;     // beyond it the oldest ones are dropped
    size_t unseen_gone_endpoints = 10000; // endpoints that came and went between two takes
};

/// Thread-safe.
class EndpointCache {
  public:
    struct Instance;
    struct Change {
        rtps::RemoteEndpointRef endpoint; // never null; the last record where the endpoint is gone
        DDS_SampleInfo info;
        std::shared_ptr<Instance> instance;
        uint32_t life = 0; // of the instance
    };

    explicit EndpointCache(EndpointCacheLimits limits = {}) : limits_(limits) {}
    /// Logs how much was lost, if anything was.
    ~EndpointCache();
    EndpointCache(const EndpointCache&) = delete;
    EndpointCache& operator=(const EndpointCache&) = delete;

    /// Null ends the observation. A new observer is told the present state at once.
    void set_observer(EndpointCacheObserver* observer);

    /// The endpoint appeared, or changed: new when it was not there. `info` needs source_timestamp and
    /// publication_handle. `participant`: its last announcement.
    void put(const rtps::RemoteEndpointRef& endpoint, const rtps::ParticipantRef& participant,
             const DDS_SampleInfo& info);
    /// The endpoint is gone; nothing happens when it is not there. It leaves nothing behind as long as there
    /// is a reader in whose changes the application takes no interest.
    void remove(const rtps::Guid& endpoint, const rtps::ParticipantRef& participant,
                const DDS_SampleInfo& info);

    /// Takes the oldest changes, at most `limit`, on loan until give_back; empty without one. Endpoints whose
    /// end was taken by an earlier call are forgotten, unless they are on loan.
    std::vector<Change> take(size_t limit);
    /// The application has been given these now.
    void give_back(const std::vector<Change>& changes);

    /// The last announcement of the participant of an endpoint that is alive, whose end was not taken yet, or
    /// whose end was among the last changes taken or is on loan. Null for others.
    rtps::ParticipantRef participant_of(const rtps::Guid& endpoint) const;

    /// Whether the application takes changes, or waits for them.
    bool is_of_interest() const;
    /// True when the application is still to be given the first change of an endpoint that is there, or, with
    /// `may_come`, is not there yet; the observer is then told of it once. Always false while the application
    /// takes no interest in the changes.
    bool await_announcement(const rtps::Guid& endpoint, AnnouncementObserver& observer,
                            bool may_come = false);
    /// The observer does not await that one any more; it may just be told all the same.
    void give_up(const rtps::Guid& endpoint, const AnnouncementObserver& observer);
    /// The observer is not called any more when this returns.
    void forget(const AnnouncementObserver& observer);

    /// Changes that were dropped because nothing took them.
    size_t lost() const;

  private:
    using Queue = std::list<Change>;
    using Iterator = typename Queue::iterator;
    using Told = std::vector<std::pair<rtps::Guid, AnnouncementObserver*>>;

    void enqueue(const std::shared_ptr<Instance>& instance, Change change) MERIDIAN_REQUIRES(mutex_);
    void drop(Instance& instance, size_t index) MERIDIAN_REQUIRES(mutex_);
    void drop_oldest(Instance& instance) MERIDIAN_REQUIRES(mutex_);
    void forget_unasked(Instance& instance) MERIDIAN_REQUIRES(mutex_);
    void drop_unseen() MERIDIAN_REQUIRES(mutex_);
    void mark_seen(Instance& instance) MERIDIAN_REQUIRES(mutex_);
    bool has_interest() const MERIDIAN_REQUIRES(mutex_) {
        return was_taken_from_ || (observer_ != nullptr && observer_->is_watched());
    }
    /// Moves those who await this change to `told`.
    void mark_given(const Change& change, Told& told) MERIDIAN_REQUIRES(mutex_);
    void forget_taken() MERIDIAN_REQUIRES(mutex_);

    const EndpointCacheLimits limits_;
    Mutex telling_ MERIDIAN_ACQUIRED_BEFORE(mutex_); // held while observers of announcements are called
    mutable Mutex mutex_;
    EndpointCacheObserver* observer_ MERIDIAN_GUARDED_BY(mutex_) = nullptr;
    bool available_ MERIDIAN_GUARDED_BY(mutex_) = false;
    bool was_taken_from_ MERIDIAN_GUARDED_BY(mutex_) = false;
    Queue queue_ MERIDIAN_GUARDED_BY(mutex_);
    std::unordered_map<rtps::Guid, std::shared_ptr<Instance>> instances_ MERIDIAN_GUARDED_BY(mutex_);
    /// Endpoints whose end was taken.
    std::vector<std::shared_ptr<Instance>> taken_gone_ MERIDIAN_GUARDED_BY(mutex_);
    /// Endpoints that went before anything of them was taken, oldest first (some may have come back).
    std::list<std::shared_ptr<Instance>> unseen_gone_ MERIDIAN_GUARDED_BY(mutex_);
    std::unordered_multimap<rtps::Guid, AnnouncementObserver*> awaited_ MERIDIAN_GUARDED_BY(mutex_);
    size_t lost_ MERIDIAN_GUARDED_BY(mutex_) = 0;
};

} // namespace meridian::discovery
