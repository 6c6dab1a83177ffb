#include "rtps/net/runtime.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cerrno>

#include "platform/clock.h"
#include "platform/log.h"
#include "rtps/net/peers.h"

namespace meridian::rtps::net {

namespace {

/// Per socket. Smallest datagrams take some 800 bytes of a receive buffer each.
constexpr int kMostDrainedBatches = 256;

WireTime to_wire_time(std::chrono::nanoseconds since_1970) {
    constexpr int64_t kSecond = 1000000000;
    const int64_t count = std::max<int64_t>(since_1970.count(), 0);
    WireTime time;
    time.seconds =
        static_cast<int32_t>(static_cast<uint32_t>(count / kSecond)); // unsigned on the wire since 2038
    time.fraction = fraction_from_nanoseconds(static_cast<uint32_t>(count % kSecond));
    return time;
}

std::optional<LocatorList> destinations(const RuntimeConfig& config, std::string& error) {
    if (config.peers.empty())
        return default_peers(config.transport);
    return resolve_peers(config.peers, config.transport, error);
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

void warn(const std::string& text) {
    MERIDIAN_LOG_WARNING("net", "%s", text.c_str());
}

} // namespace

Now now() {
    return {monotonic_now(), to_wire_time(wall_now())};
}

bool Runtime::check(const RuntimeConfig& config, std::string& error) {
    return net::check(config.transport, error) && destinations(config, error).has_value();
}

std::unique_ptr<Runtime> Runtime::create(RuntimeConfig config, Events& events, std::string& error) {
    assert(config.own_participants);
    std::unique_ptr<Runtime> runtime(new Runtime(std::move(config), events));
    return runtime->open(error) ? std::move(runtime) : nullptr;
}

Runtime::Runtime(RuntimeConfig config, Events& events) : config_(std::move(config)), events_(events) {}

bool Runtime::open(std::string& error) {
    const std::optional<LocatorList> peers = destinations(config_, error);
    if (!peers)
        return false;
    wake_descriptor_ = FileDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!wake_descriptor_) {
        error = describe_error("cannot make an event descriptor", errno);
        return false;
    }
    transport_ = UdpTransport::open(config_.transport, warn, error);
    if (!transport_)
        return false;

    const MutexLock lock(mutex_);
    participant_index_ = transport_->participant_index();
    ParticipantConfig participant = config_.participant;
    participant.is_own = [own = config_.own_participants](const GuidPrefix& prefix) {
        return own->contains(prefix);
    };
    participant.domain_id = config_.transport.domain_id;
    participant.locators = transport_->own_locators();
    participant.initial_peers = *peers;
    participant.max_message_size = max_message_size(config_.transport);
    participant.seed = seed_from(prefix());
    // Not even a restart with the same prefix makes the same one.
    participant.incarnation = static_cast<uint64_t>(std::max<int64_t>(wall_now().count(), 1));
    participant_ = std::make_unique<Participant>(std::move(participant), *transport_, events_);
    MERIDIAN_LOG_LOCAL("net", "participant %s has index %u of domain %u; interfaces in use: %s",
                       to_string(prefix()).c_str(), participant_index_, config_.transport.domain_id,
                       transport_->describe().c_str());
    return true;
}

bool Runtime::start(std::string& error) {
    const MutexLock lifecycle(lifecycle_);
    if (stopped_) {
        error = "the participant was stopped";
        return false;
    }
    if (started_)
        return true;
    if (!thread_.start(
            "rtps", [this] { run(); }, error))
        return false;
    started_ = true;
    lock();
    participant_->start(now());
    reconsider_deadline();
    unlock();
    return true;
}

void Runtime::stop() {
    const MutexLock lifecycle(lifecycle_);
    if (stopped_)
        return;
    stopped_ = true;
    lock();
    if (started_)
        participant_->stop(now());
    stopping_ = true;
    unlock();
    wake();
    thread_.join();
    if (started_)
        tell_drops();
    // What a task holds is let go outside of the lock: its destructor may do anything.
    std::multimap<MonotonicTime, Task> dropped;
    const MutexLock tasks(tasks_mutex_);
    tasks_closed_ = true;
    dropped.swap(tasks_);
}

void Runtime::lock() {
    // A callback that calls back would wait for itself for ever; better to say so at once.
    assert(holder_.load(std::memory_order_relaxed) != std::this_thread::get_id());
    const MutexLock turnstile(gate_);
    mutex_.lock();
    holder_.store(std::this_thread::get_id(), std::memory_order_relaxed);
}

void Runtime::unlock() {
    holder_.store(std::thread::id(), std::memory_order_relaxed);
    mutex_.unlock();
}

void Runtime::reconsider_deadline() {
    const MonotonicTime next = participant_->next_deadline();
    if (next < sleeping_until_) {
        sleeping_until_ = next;
        wake();
    }
}

void Runtime::run_at(MonotonicTime time, Task task) {
    {
        const MutexLock lock(tasks_mutex_);
        if (tasks_closed_)
            return;
        tasks_.emplace(time, std::move(task));
    }
    wake();
}

void Runtime::wake() {
    const uint64_t one = 1;
    // A full counter fails, and is readable all the same.
    [[maybe_unused]] const ssize_t written = write(wake_descriptor_.get(), &one, sizeof one);
}

void Runtime::run() {
    std::vector<pollfd> polled;
    const std::vector<int>& descriptors = sockets().descriptors();
    for (const int descriptor : descriptors)
        polled.push_back({descriptor, POLLIN, 0});
    polled.push_back({wake_descriptor_.get(), POLLIN, 0});
    polled.push_back({sockets().change_descriptor(), POLLIN, 0}); // poll passes over -1
    const size_t wake_position = descriptors.size();
    const size_t change_position = wake_position + 1;

    while (const std::optional<MonotonicTime> deadline = run_due()) {
        timespec timeout{};
        const timespec* limit = nullptr;
        if (*deadline != kNever) {
            const auto wait = std::max(*deadline - monotonic_now(), MonotonicTime{0});
            timeout.tv_sec = static_cast<time_t>(wait.count() / 1000000000);
            timeout.tv_nsec = static_cast<long>(wait.count() % 1000000000);
            limit = &timeout;
        }
        if (ppoll(polled.data(), polled.size(), limit, nullptr) <= 0)
            continue;
        // One batch of each socket per round: a flood of data on one holds up no other.
        const size_t first_data = sockets().discovery_descriptor_count();
        for (size_t position = 0; position < first_data; ++position) {
            if (polled[position].revents == 0 || !sockets().fetch(position))
                continue;
            // What a writer sent before its farewell must not be overtaken by it on the way through another
            // socket.
            drain_data();
            dispatch(UdpTransport::Traffic::discovery);
        }
        for (size_t position = first_data; position < descriptors.size(); ++position) {
            if (polled[position].revents != 0 && sockets().fetch(position))
                dispatch(UdpTransport::Traffic::data);
        }
        if (polled[wake_position].revents != 0) {
            uint64_t count = 0;
            [[maybe_unused]] const ssize_t size = read(wake_descriptor_.get(), &count, sizeof count);
        }
        if (polled[change_position].revents != 0)
            take_interface_changes();
    }
}

void Runtime::drain_data() {
    const size_t first = sockets().discovery_descriptor_count();
    for (size_t position = first; position < sockets().descriptors().size(); ++position) {
        for (int batches = 0; batches < kMostDrainedBatches && sockets().fetch(position); ++batches)
            dispatch(UdpTransport::Traffic::data);
    }
}

void Runtime::dispatch(UdpTransport::Traffic traffic) {
    lock();
    const Now received_at = now();
    Participant& participant = *participant_;
    participant.begin_batch();
    DropReport& drops = transport_->drops();
    transport_->dispatch(traffic, [&](ByteView datagram, const Locator& source) {
        const ReadStatus status = participant.receive(datagram, source, received_at);
        if (status == ReadStatus::not_rtps)
            drops.note(DropReport::Kind::not_rtps, source);
        else if (status == ReadStatus::malformed)
            drops.note(DropReport::Kind::malformed, source);
    });
    participant.end_batch(received_at);
    unlock();
}

void Runtime::tell_drops() {
    lock();
    transport_->drops().add(DropReport::Kind::secured, participant_->secured_submessages());
    transport_->drops().tell_totals();
    unlock();
}

void Runtime::take_interface_changes() {
    lock();
    if (transport_->update_interfaces()) {
        participant_->set_locators(transport_->own_locators(), now());
        MERIDIAN_LOG_LOCAL("net", "the network interfaces changed; in use: %s",
                           transport_->describe().c_str());
    }
    unlock();
}

std::optional<MonotonicTime> Runtime::run_due() {
    std::optional<MonotonicTime> next;
    lock();
    if (!stopping_) {
        const Now current = now();
        const MonotonicTime next_task = run_due_tasks(current);
        if (participant_->next_deadline() <= current.monotonic)
            participant_->on_timer(current);
        next = std::min(next_task, participant_->next_deadline());
        sleeping_until_ = *next;
    }
    unlock();
    return next;
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
        task(*participant_, current);
    return next; // tasks added meanwhile have woken the thread
}

TransportStatistics Runtime::transport_statistics() {
    const Access access(*this);
    return access.transport().statistics();
}

std::string Runtime::describe_interfaces() {
    const Access access(*this);
    return access.transport().describe();
}

Runtime::Access::Access(Runtime& runtime) MERIDIAN_NO_THREAD_SAFETY_ANALYSIS : runtime_(runtime) {
    runtime_.lock();
    now_ = net::now();
}

Runtime::Access::~Access() MERIDIAN_NO_THREAD_SAFETY_ANALYSIS {
    runtime_.reconsider_deadline();
    runtime_.unlock();
}

} // namespace meridian::rtps::net
