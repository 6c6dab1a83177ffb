#include "discovery/endpoint_cache.h"

#include <algorithm>

#include "discovery/conversions.h"
#include "platform/log.h"

namespace meridian::discovery {

/// Guarded by the cache's mutex, except `guid`.
template <typename Data>
struct EndpointCache<Data>::Instance {
    rtps::Guid guid;
    std::shared_ptr<RemoteParticipant> participant;
    bool alive = false;
    bool seen = false; // something of it was taken
    std::optional<typename std::list<std::shared_ptr<Instance>>::iterator> unseen_gone; // its place there
    size_t on_loan = 0;
    std::deque<Iterator> waiting; // its changes, oldest first
};

template <typename Data>
EndpointCache<Data>::~EndpointCache() {
    if (lost() > 0) {
        MERIDIAN_LOG_WARNING("discovery", "%zu discovery changes were dropped because no reader took them",
                             lost());
    }
}

template <typename Data>
void EndpointCache<Data>::set_observer(EndpointCacheObserver* observer) {
    MutexLock lock(mutex_);
    observer_ = observer;
    if (observer_ != nullptr)
        observer_->data_available(available_);
}

template <typename Data>
void EndpointCache<Data>::put(const rtps::Guid& endpoint,
                              const std::shared_ptr<RemoteParticipant>& participant,
                              std::shared_ptr<Data> data, const DDS_SampleInfo& info) {
    MutexLock lock(mutex_);
    std::shared_ptr<Instance>& instance = instances_[endpoint];
    if (instance == nullptr) {
        instance = std::make_shared<Instance>();
        instance->guid = endpoint;
    }
    Change change{std::move(data), info, instance};
    change.info.view_state = instance->alive ? DDS_NOT_NEW_VIEW_STATE : DDS_NEW_VIEW_STATE;
    change.info.instance_state = DDS_ALIVE_INSTANCE_STATE;
    change.info.valid_data = true;
    instance->alive = true;
    instance->participant = participant;
    enqueue(instance, std::move(change));
}

template <typename Data>
void EndpointCache<Data>::remove(const rtps::Guid& endpoint, const DDS_SampleInfo& info) {
    MutexLock lock(mutex_);
    const auto found = instances_.find(endpoint);
    if (found == instances_.end() || !found->second->alive)
        return;
    const std::shared_ptr<Instance> instance = found->second;
    instance->alive = false;
    Change change{std::make_shared<Data>(), info, instance};
    change.data->key = to_key(endpoint);
    change.data->participant_key = to_key({instance->participant->prefix(), rtps::entity::participant});
    change.info.view_state = DDS_NOT_NEW_VIEW_STATE;
    change.info.instance_state = DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE;
    change.info.valid_data = false;
    enqueue(instance, std::move(change));
    if (!instance->seen && !instance->unseen_gone) {
        instance->unseen_gone = unseen_gone_.insert(unseen_gone_.end(), instance);
        drop_unseen();
    }
}

template <typename Data>
void EndpointCache<Data>::enqueue(const std::shared_ptr<Instance>& instance, Change change) {
    change.info.sample_state = DDS_NOT_READ_SAMPLE_STATE;
    change.info.instance_handle = to_handle(instance->guid);
    instance->waiting.push_back(queue_.insert(queue_.end(), std::move(change)));
    if (instance->waiting.size() > limits_.changes_per_endpoint)
        drop_oldest(*instance);
    available_ = true;
    if (observer_ != nullptr)
        observer_->data_available(true);
}

template <typename Data>
void EndpointCache<Data>::drop(Instance& instance, size_t index) {
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
template <typename Data>
void EndpointCache<Data>::drop_oldest(Instance& instance) {
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

template <typename Data>
void EndpointCache<Data>::drop_unseen() {
    while (unseen_gone_.size() > limits_.unseen_gone_endpoints) {
        const std::shared_ptr<Instance> instance = unseen_gone_.front();
        unseen_gone_.pop_front();
        instance->unseen_gone.reset();
        if (instance->alive)
            continue;
        while (!instance->waiting.empty())
            drop(*instance, instance->waiting.size() - 1);
        instances_.erase(instance->guid);
    }
}

template <typename Data>
void EndpointCache<Data>::mark_seen(Instance& instance) {
    instance.seen = true;
    if (instance.unseen_gone)
        unseen_gone_.erase(*instance.unseen_gone);
    instance.unseen_gone.reset();
}

template <typename Data>
void EndpointCache<Data>::forget_taken() {
    const auto forgettable = [this](const std::shared_ptr<Instance>& instance) MERIDIAN_REQUIRES(mutex_) {
        if (instance->alive || !instance->waiting.empty())
            return true; // it came back: listed again when it goes
        if (instance->on_loan > 0)
            return false;
        instances_.erase(instance->guid);
        return true;
    };
    taken_gone_.erase(std::remove_if(taken_gone_.begin(), taken_gone_.end(), forgettable), taken_gone_.end());
}

template <typename Data>
std::vector<typename EndpointCache<Data>::Change> EndpointCache<Data>::take(size_t limit,
                                                                            const States& states,
                                                                            bool on_loan) {
    MutexLock lock(mutex_);
    forget_taken();
    const auto matches = [&states](const DDS_SampleInfo& info) {
        return (info.sample_state & states.sample) != 0 && (info.view_state & states.view) != 0 &&
               (info.instance_state & states.instance) != 0;
    };
    std::vector<Change> taken;
    bool left_behind = false;
    for (Iterator change = queue_.begin(); change != queue_.end();) {
        if (!matches(change->info)) {
            ++change;
            continue;
        }
        if (taken.size() >= limit) {
            left_behind = true;
            break;
        }
        Instance& instance = *change->instance;
        instance.waiting.erase(std::find(instance.waiting.begin(), instance.waiting.end(), change));
        mark_seen(instance);
        if (on_loan)
            ++instance.on_loan;
        if (!change->info.valid_data)
            taken_gone_.push_back(change->instance);
        taken.push_back(std::move(*change));
        change = queue_.erase(change);
    }
    available_ = left_behind;
    if (observer_ != nullptr)
        observer_->data_available(left_behind);
    return taken;
}

template <typename Data>
void EndpointCache<Data>::give_back(const std::vector<Change>& changes) {
    MutexLock lock(mutex_);
    for (const Change& change : changes)
        --change.instance->on_loan;
}

template <typename Data>
std::shared_ptr<RemoteParticipant> EndpointCache<Data>::participant_of(const rtps::Guid& endpoint) const {
    MutexLock lock(mutex_);
    const auto found = instances_.find(endpoint);
    return found != instances_.end() ? found->second->participant : nullptr;
}

template <typename Data>
size_t EndpointCache<Data>::lost() const {
    MutexLock lock(mutex_);
    return lost_;
}

template class EndpointCache<DDS_PublicationBuiltinTopicData>;
template class EndpointCache<DDS_SubscriptionBuiltinTopicData>;

} // namespace meridian::discovery
