#pragma once

// The changes of remote writers (or readers) that wait to be taken by a builtin reader, each with the states
// it had when it happened.

#include <cstddef>
#include <deque>
#include <list>
#include <memory>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "discovery/remote_participant.h"
#include "meridian/builtin_topics.h"
#include "meridian/sample_info.h"
#include "platform/mutex.h"
#include "rtps/wire/types.h"

namespace meridian::discovery {

/// Told whether changes wait. Called with the cache locked: must not call back.
class EndpointCacheObserver {
  public:
    virtual void data_available(bool available) = 0;

  protected:
    ~EndpointCacheObserver() = default;
};

/// Bounds for a reader whose changes are not taken. What they drop is counted (see lost()).
struct EndpointCacheLimits {
    size_t changes_per_endpoint = 16;     // beyond it the oldest ones are dropped
    size_t unseen_gone_endpoints = 10000; // endpoints that came and went before a take
};

/// Thread-safe. Data is DDS_PublicationBuiltinTopicData or DDS_SubscriptionBuiltinTopicData; records are
/// shared with other holders and do not change any more.
template <typename Data>
class EndpointCache {
  public:
    struct Instance;
    struct Change {
        std::shared_ptr<Data> data; // never null; only the keys are filled where the endpoint is gone
        DDS_SampleInfo info;
        std::shared_ptr<Instance> instance;
    };
    struct States {
        DDS_SampleStateMask sample = DDS_ANY_SAMPLE_STATE;
        DDS_ViewStateMask view = DDS_ANY_VIEW_STATE;
        DDS_InstanceStateMask instance = DDS_ANY_INSTANCE_STATE;
    };

    explicit EndpointCache(EndpointCacheLimits limits = {}) : limits_(limits) {}
    /// Logs how much was lost, if anything was.
    ~EndpointCache();
    EndpointCache(const EndpointCache&) = delete;
    EndpointCache& operator=(const EndpointCache&) = delete;

    /// Null ends the observation. A new observer is told the present state at once.
    void set_observer(EndpointCacheObserver* observer);

    /// The endpoint appeared, or changed: new when it was not there. `info` needs source_timestamp and
    /// publication_handle.
    void put(const rtps::Guid& endpoint, const std::shared_ptr<RemoteParticipant>& participant,
             std::shared_ptr<Data> data, const DDS_SampleInfo& info);
    /// The endpoint is gone; nothing happens when it is not there.
    void remove(const rtps::Guid& endpoint, const DDS_SampleInfo& info);

    /// Takes the oldest changes that match, at most `limit`; empty without one. Data counts as read
    /// from then on unless `limit` left something behind. Endpoints whose end was taken by an earlier call
    /// are forgotten, unless they are on loan: those of changes taken with `on_loan` until give_back.
    std::vector<Change> take(size_t limit, const States& states, bool on_loan);
    void give_back(const std::vector<Change>& changes);

    /// The participant of an endpoint that is alive, whose end was not taken yet, or whose end was among the
    /// last changes taken or is on loan. Null for others.
    std::shared_ptr<RemoteParticipant> participant_of(const rtps::Guid& endpoint) const;

    /// Changes that were dropped because they were not taken.
    size_t lost() const;

  private:
    using Queue = std::list<Change>;
    using Iterator = typename Queue::iterator;

    void enqueue(const std::shared_ptr<Instance>& instance, Change change) MERIDIAN_REQUIRES(mutex_);
    void drop(Instance& instance, size_t index) MERIDIAN_REQUIRES(mutex_);
    void drop_oldest(Instance& instance) MERIDIAN_REQUIRES(mutex_);
    void drop_unseen() MERIDIAN_REQUIRES(mutex_);
    void mark_seen(Instance& instance) MERIDIAN_REQUIRES(mutex_);
    void forget_taken() MERIDIAN_REQUIRES(mutex_);

    const EndpointCacheLimits limits_;
    mutable Mutex mutex_;
    EndpointCacheObserver* observer_ MERIDIAN_GUARDED_BY(mutex_) = nullptr;
    bool available_ MERIDIAN_GUARDED_BY(mutex_) = false;
    Queue queue_ MERIDIAN_GUARDED_BY(mutex_);
    std::unordered_map<rtps::Guid, std::shared_ptr<Instance>> instances_ MERIDIAN_GUARDED_BY(mutex_);
    /// Endpoints whose end was taken.
    std::vector<std::shared_ptr<Instance>> taken_gone_ MERIDIAN_GUARDED_BY(mutex_);
    /// Endpoints that went before anything of them was taken, oldest first (some may have come back).
    std::list<std::shared_ptr<Instance>> unseen_gone_ MERIDIAN_GUARDED_BY(mutex_);
    size_t lost_ MERIDIAN_GUARDED_BY(mutex_) = 0;
};

extern template class EndpointCache<DDS_PublicationBuiltinTopicData>;
extern template class EndpointCache<DDS_SubscriptionBuiltinTopicData>;

} // namespace meridian::discovery
