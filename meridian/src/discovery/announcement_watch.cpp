#include "discovery/announcement_watch.h"

#include <algorithm>

namespace meridian::discovery {

AnnouncementWatch::AnnouncementWatch(std::shared_ptr<PublicationCaches> caches, int32_t domain_id,
                                     EndpointCache& own)
    : caches_(std::move(caches)), domain_id_(domain_id), own_(own) {
    MutexLock lock(caches_->mutex);
    caches_->all.emplace_back(domain_id, &own);
}

AnnouncementWatch::~AnnouncementWatch() {
    MutexLock lock(caches_->mutex);
    auto& all = caches_->all;
    all.erase(std::remove(all.begin(), all.end(), std::pair(domain_id_, &own_)), all.end());
}

bool AnnouncementWatch::begin(const rtps::Guid& writer, AnnouncementObserver& observer) {
    if (own_.is_of_interest())
        return own_.await_announcement(writer, observer);
    MutexLock lock(caches_->mutex);
    for (const auto& [domain_id, cache] : caches_->all) {
        if (domain_id == domain_id_ && cache->is_of_interest())
            return cache->await_announcement(writer, observer, true);
    }
    return false;
}

void AnnouncementWatch::give_up(const rtps::Guid& writer, const AnnouncementObserver& observer) {
    MutexLock lock(caches_->mutex);
    for (const auto& entry : caches_->all)
        entry.second->give_up(writer, observer);
}

void AnnouncementWatch::forget(const AnnouncementObserver& observer) {
    MutexLock lock(caches_->mutex);
    for (const auto& entry : caches_->all)
        entry.second->forget(observer);
}

} // namespace meridian::discovery
