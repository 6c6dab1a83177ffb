#include "rtps/net/runtime.h"

#include <algorithm>
#include <cassert>

#include "platform/clock.h"
#include "platform/log.h"
#include "rtps/net/peers.h"

namespace meridian::rtps::net {

namespace {

/// False with the reasons where no peer is left.
bool find_peers(const RuntimeConfig& config, Peers& peers, std::string& error) {
    if (config.peers.empty())
        peers.destinations = default_peers(config.transport);
    else
        peers = resolve_peers(config.peers, config.transport);
    if (!peers.destinations.empty() || !peers.with_port.empty())
        return true;
    for (const std::string& reason : peers.unusable)
        error += (error.empty() ? "" : "; ") + reason;
    return false;
}

/// The transports carry messages of one size, since a message may go to peers of both families.
size_t max_message_size(const TransportConfig& config) {
    int size = kLargestDatagram;
    if (config.uses_v4())
        size = std::min(size, config.v4.message_size_max);
    if (config.uses_v6())
        size = std::min(size, config.v6.message_size_max);
    return static_cast<size_t>(size);
}

uint64_t seed_from(const GuidPrefix& prefix) {
    return std::hash<GuidPrefix>{}(prefix);
}

} // namespace

bool Runtime::check(const RuntimeConfig& config, std::string& error) {
    Peers peers;
    return net::check(config.transport, error) && find_peers(config, peers, error);
}

std::unique_ptr<Runtime> Runtime::create(RuntimeConfig config, Events& events, std::string& error) {
    assert(config.own_participants);
    const std::shared_ptr<OwnParticipants> own = std::move(config.own_participants);
    Peers peers;
    if (!find_peers(config, peers, error))
        return nullptr;
    const std::shared_ptr<ReceiveThread> thread = own->receive_thread(config.transport, error);
    if (!thread)
        return nullptr;
    const bool is_first = thread.use_count() == 1; // it is not told again for further participants
    for (const std::string& reason : peers.unusable) {
        if (is_first)
            MERIDIAN_LOG_ERROR("net", "%s; the others are used", reason.c_str());
    }

    ParticipantConfig participant = std::move(config.participant);
    participant.is_own = [own](const GuidPrefix& prefix) { return own->contains(prefix); };
    participant.domain_id = config.transport.domain_id;
    participant.initial_peers = peers.destinations;
    participant.servers = peers.with_port;
    participant.max_message_size = max_message_size(config.transport);
    participant.seed = seed_from(participant.prefix);
    participant.secret_begin = 1000 + random_word() % 1024;
    participant.credits = thread->credits();
    participant.told_errors = thread->told_errors();
    // Not even a restart with the same prefix makes the same one.
    participant.incarnation = static_cast<uint64_t>(std::max<int64_t>(wall_now().count(), 1));
    const TurnstileLock lock(thread->mutex()); // the sockets may be in use already
    participant.is_further = thread->has_participants();
    MERIDIAN_LOG_LOCAL("net", "participant %s has index %u of domain %u; interfaces in use: %s",
                       to_string(participant.prefix).c_str(), thread->participant_index(),
                       config.transport.domain_id, thread->transport().describe().c_str());
    return std::unique_ptr<Runtime>(new Runtime(std::move(participant), own, thread, events));
}

Runtime::Runtime(ParticipantConfig config, std::shared_ptr<OwnParticipants> own,
                 std::shared_ptr<ReceiveThread> thread, Events& events) MERIDIAN_NO_THREAD_SAFETY_ANALYSIS
    : own_(std::move(own)),
      prefix_(config.prefix),
      thread_(std::move(thread)),
      participant_(std::move(config), thread_->transport(), events) {}

bool Runtime::start(std::string& error) {
    const MutexLock lifecycle(lifecycle_);
    if (stopped_) {
        error = "the participant was stopped";
        return false;
    }
    if (started_)
        return true;
    if (!thread_->start(error))
        return false;
    started_ = true;
    const TurnstileLock lock(thread_->mutex());
    const Now at = now();
    participant_.set_locators(thread_->transport().own_locators(), at); // those of now, not of the creation
    participant_.start(at);
    thread_->add(participant_, *this);
    return true;
}

void Runtime::stop() {
    const MutexLock lifecycle(lifecycle_);
    if (stopped_)
        return;
    stopped_ = true;
    if (started_) {
        const TurnstileLock lock(thread_->mutex());
        participant_.stop(now());
        thread_->remove(participant_, *this);
    }
    // What a task holds is let go outside of the lock: its destructor may do anything.
    std::multimap<MonotonicTime, Task> dropped;
    const MutexLock tasks(tasks_mutex_);
    tasks_closed_ = true;
    dropped.swap(tasks_);
}

void Runtime::run_at(MonotonicTime time, Task task) {
    {
        const MutexLock lock(tasks_mutex_);
        if (tasks_closed_)
            return;
        tasks_.emplace(time, std::move(task));
    }
    thread_->wake();
}

MonotonicTime Runtime::run_due_tasks(Now current) {
    std::vector<Task> due;
    MonotonicTime next = kNever;
    {
        const MutexLock lock(tasks_mutex_);
        const auto end = tasks_.upper_bound(current.monotonic);
        for (auto it = tasks_.begin(); it != end; ++it)
            due.push_back(std::move(it->second));
        tasks_.erase(tasks_.begin(), end);
        if (!tasks_.empty())
            next = tasks_.begin()->first;
    }
    for (const Task& task : due)
        task(participant_, current);
    return next; // tasks added meanwhile have woken the thread
}

TransportStatistics Runtime::transport_statistics() {
    const TurnstileLock lock(thread_->mutex());
    return thread_->transport().statistics();
}

std::string Runtime::describe_interfaces() {
    const TurnstileLock lock(thread_->mutex());
    return thread_->transport().describe();
}

// The lock spans the object's life, which the analysis cannot follow.
Runtime::Access::Access(Runtime& runtime) MERIDIAN_NO_THREAD_SAFETY_ANALYSIS : runtime_(runtime) {
    runtime_.thread_->mutex().lock();
    now_ = net::now();
}

Runtime::Access::~Access() MERIDIAN_NO_THREAD_SAFETY_ANALYSIS {
    runtime_.thread_->reconsider_deadline(runtime_.participant_);
    runtime_.thread_->mutex().unlock();
}

} // namespace meridian::rtps::net
