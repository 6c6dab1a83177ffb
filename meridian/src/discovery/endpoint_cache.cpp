#include "discovery/endpoint_cache.h"

#include <algorithm>
#include <iterator>

#include "discovery/conversions.h"
#include "platform/log.h"

namespace meridian::discovery {

/// Guarded by the cache's mutex. There is one per endpoint, so it is kept small.
struct EndpointCache::Instance {
    rtps::RemoteEndpointRef endpoint; // the last record
    rtps::ParticipantRef participant;
    std::vector<Iterator> waiting;                                             // its changes, oldest first
    std::optional<std::list<std::shared_ptr<Instance>>::iterator> unseen_gone; // its place there
    uint32_t on_loan = 0;
    uint32_t life = 0; // counts how often it appeared
    bool alive = false;
    bool seen = false;  // something of it was taken
    bool given = false; // the application has been given the first change of this life
};

EndpointCache::~EndpointCache() {
    if (lost() > 0) {
        MERIDIAN_LOG_WARNING("discovery", "%zu discovery changes were dropped because no reader took them",
                             lost());
    }
}

void EndpointCache::set_observer(EndpointCacheObserver* observer) {
    MutexLock lock(mutex_);
    observer_ = observer;
    if (observer_ != nullptr)
        observer_->data_available(available_);
}

void EndpointCache::put(const rtps::RemoteEndpointRef& endpoint, const rtps::ParticipantRef& participant,
                        const DDS_SampleInfo& info) {
    MutexLock lock(mutex_);
    std::shared_ptr<Instance>& instance = instances_[endpoint->guid];
    if (instance == nullptr)
        instance = std::make_shared<Instance>();
    if (!instance->alive) {
        ++instance->life;
        instance->given = false;
    }
    instance->endpoint = endpoint;
    instance->participant = participant;
    Change change{endpoint, info, instance, instance->life};
    change.info.view_state = instance->alive ? DDS_NOT_NEW_VIEW_STATE : DDS_NEW_VIEW_STATE;
    change.info.instance_state = DDS_ALIVE_INSTANCE_STATE;
    change.info.valid_data = true;
    instance->alive = true;
    enqueue(instance, std::move(change));
}

void EndpointCache::remove(const rtps::Guid& endpoint, const rtps::ParticipantRef& participant,
                           const DDS_SampleInfo& info) {
    MutexLock lock(mutex_);
    const auto found = instances_.find(endpoint);
    if (found == instances_.end() || !found->second->alive)
        return;
    const std::shared_ptr<Instance> instance = found->second;
    if (observer_ != nullptr && !has_interest()) {
        forget_unasked(*instance);
        return;
    }
    instance->alive = false;
    instance->participant = participant;
    Change change{instance->endpoint, info, instance, instance->life};
    change.info.view_state = DDS_NOT_NEW_VIEW_STATE;
    change.info.instance_state = DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE;
    change.info.valid_data = false;
    enqueue(instance, std::move(change));
    if (!instance->seen && !instance->unseen_gone) {
        instance->unseen_gone = unseen_gone_.insert(unseen_gone_.end(), instance);
        drop_unseen();
    }
}

void EndpointCache::enqueue(const std::shared_ptr<Instance>& instance, Change change) {
    change.info.sample_state = DDS_NOT_READ_SAMPLE_STATE;
    change.info.instance_handle = to_handle(instance->endpoint->guid);
    instance->waiting.push_back(queue_.insert(queue_.end(), std::move(change)));
    if (instance->waiting.size() > limits_.changes_per_endpoint)
        drop_oldest(*instance);
    available_ = true;
    if (observer_ != nullptr)
        observer_->data_available(true);
}

void EndpointCache::drop(Instance& instance, size_t index) {
    const auto position = instance.waiting.begin() + static_cast<std::ptrdiff_t>(index);
    const Iterator change = *position;
    instance.waiting.erase(position);
    queue_.erase(change);
    if (lost_++ == 0) {
        MERIDIAN_LOG_WARNING("discovery", "discovery changes are dropped because no reader takes them");
    }
}

/// Keeps what remains well formed: an endpoint's first change stays a new one, and one whose whole life is
/// dropped is not reported gone. The end of a life that was seen is kept.
void EndpointCache::drop_oldest(Instance& instance) {
    const size_t index = instance.waiting.front()->info.valid_data ? 0 : 1;
    const bool was_new = instance.waiting[index]->info.view_state == DDS_NEW_VIEW_STATE;
    drop(instance, index);
    if (!was_new || index >= instance.waiting.size())
        return;
    if (instance.waiting[index]->info.valid_data)
        instance.waiting[index]->info.view_state = DDS_NEW_VIEW_STATE;
    else
        drop(instance, index);
}

/// Nothing was ever taken. Who begins to do it sees what is there then.
void EndpointCache::forget_unasked(Instance& instance) {
    for (const Iterator& change : instance.waiting)
        queue_.erase(change);
    instances_.erase(instance.endpoint->guid);
    available_ = !queue_.empty();
    observer_->data_available(available_);
}

void EndpointCache::drop_unseen() {
    while (unseen_gone_.size() > limits_.unseen_gone_endpoints) {
        const std::shared_ptr<Instance> instance = unseen_gone_.front();
        unseen_gone_.pop_front();
        instance->unseen_gone.reset();
        if (instance->alive)
            continue;
        while (!instance->waiting.empty())
            drop(*instance, instance->waiting.size() - 1);
        instances_.erase(instance->endpoint->guid);
    }
}

void EndpointCache::mark_seen(Instance& instance) {
    instance.seen = true;
    if (instance.unseen_gone)
        unseen_gone_.erase(*instance.unseen_gone);
    instance.unseen_gone.reset();
}

void EndpointCache::forget_taken() {
    const auto forgettable = [this](const std::shared_ptr<Instance>& instance) MERIDIAN_REQUIRES(mutex_) {
        if (instance->alive || !instance->waiting.empty())
            return true; // it came back: listed again when it goes
        if (instance->on_loan > 0)
            return false;
        instances_.erase(instance->endpoint->guid);
        return true;
    };
    taken_gone_.erase(std::remove_if(taken_gone_.begin(), taken_gone_.end(), forgettable), taken_gone_.end());
}

std::vector<EndpointCache::Change> EndpointCache::take(size_t limit) {
    MutexLock lock(mutex_);
    was_taken_from_ = true;
    forget_taken();
    std::vector<Change> taken;
    while (!queue_.empty() && taken.size() < limit) {
        taken.push_back(std::move(queue_.front()));
        queue_.pop_front();
        const Change& change = taken.back();
        Instance& instance = *change.instance;
        if (instance.waiting.size() > 1)
            instance.waiting.erase(instance.waiting.begin());
        else
            std::vector<Iterator>().swap(instance.waiting); // most endpoints never change again
        mark_seen(instance);
        ++instance.on_loan;
        if (!change.info.valid_data)
            taken_gone_.push_back(change.instance);
    }
    available_ = !queue_.empty();
    if (observer_ != nullptr)
        observer_->data_available(available_);
    return taken;
}

void EndpointCache::give_back(const std::vector<Change>& changes) {
    MutexLock telling(telling_);
    Told told;
    {
        MutexLock lock(mutex_);
        for (const Change& change : changes) {
            --change.instance->on_loan;
            mark_given(change, told);
        }
    }
    for (const auto& [endpoint, observer] : told)
        observer->announcement_given(endpoint);
}

void EndpointCache::mark_given(const Change& change, Told& told) {
    Instance& instance = *change.instance;
    if (instance.given || change.life != instance.life)
        return;
    instance.given = true;
    const auto [first, last] = awaited_.equal_range(instance.endpoint->guid);
    told.insert(told.end(), first, last);
    awaited_.erase(first, last);
}

bool EndpointCache::is_of_interest() const {
    MutexLock lock(mutex_);
    return has_interest();
}

bool EndpointCache::await_announcement(const rtps::Guid& endpoint, AnnouncementObserver& observer,
                                       bool may_come) {
    MutexLock lock(mutex_);
    if (!has_interest())
        return false;
    const auto found = instances_.find(endpoint);
    const bool is_there = found != instances_.end() && found->second->alive;
    if (is_there ? found->second->given : !may_come)
        return false;
    awaited_.emplace(endpoint, &observer);
    return true;
}

void EndpointCache::give_up(const rtps::Guid& endpoint, const AnnouncementObserver& observer) {
    MutexLock lock(mutex_);
    const auto [first, last] = awaited_.equal_range(endpoint);
    for (auto awaited = first; awaited != last;)
        awaited = awaited->second == &observer ? awaited_.erase(awaited) : std::next(awaited);
}

void EndpointCache::forget(const AnnouncementObserver& observer) {
    MutexLock telling(telling_);
    MutexLock lock(mutex_);
    for (auto awaited = awaited_.begin(); awaited != awaited_.end();)
        awaited = awaited->second == &observer ? awaited_.erase(awaited) : std::next(awaited);
}

rtps::ParticipantRef EndpointCache::participant_of(const rtps::Guid& endpoint) const {
    MutexLock lock(mutex_);
    const auto found = instances_.find(endpoint);
    return found != instances_.end() ? found->second->participant : nullptr;
}

size_t EndpointCache::lost() const {
    MutexLock lock(mutex_);
    return lost_;
}

} // namespace meridian::discovery
