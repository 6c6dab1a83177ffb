#pragma once

// Whether the application has been given the announcement of a writer, whichever of its participants it takes
// announcements from: an application with several participants takes them from one.

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "discovery/endpoint_cache.h"
#include "platform/mutex.h"

namespace meridian::discovery {

/// The caches of remote publications of all participants of a process, by domain. Any thread.
struct PublicationCaches {
    Mutex mutex;
    std::vector<std::pair<int32_t, EndpointCache*>> all MERIDIAN_GUARDED_BY(mutex);
};

/// For the readers of one participant. Any thread; not to be called with the lock of an observer held, which
/// observers take when they are told.
class AnnouncementWatch {
  public:
    /// `own` is the cache of the participant, and must outlive this.
    AnnouncementWatch(std::shared_ptr<PublicationCaches> caches, int32_t domain_id, EndpointCache& own);
    ~AnnouncementWatch();
    AnnouncementWatch(const AnnouncementWatch&) = delete;
    AnnouncementWatch& operator=(const AnnouncementWatch&) = delete;

    /// True when the application is still to be given the announcement: the observer is then told of it once.
    /// The participant that the application takes it from may not even have it yet.
    bool begin(const rtps::Guid& writer, AnnouncementObserver& observer);
    /// The observer waits no more for this one.
    void give_up(const rtps::Guid& writer, const AnnouncementObserver& observer);
    /// The observer is not called any more when this returns.
    void forget(const AnnouncementObserver& observer);

  private:
    const std::shared_ptr<PublicationCaches> caches_;
    const int32_t domain_id_;
    EndpointCache& own_;
};

} // namespace meridian::discovery
