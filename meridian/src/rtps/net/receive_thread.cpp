#include "rtps/net/receive_thread.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/clock.h"
#include "platform/log.h"
#include "rtps/net/own_participants.h"

namespace meridian::rtps::net {

namespace {

/// Per socket. Smallest datagrams take some 800 bytes of a receive buffer each.
constexpr int kMostDrainedBatches = 256;
/// Where the prefix of the sender stands in the header of a message.
constexpr size_t kPrefixOffset = 8;
/// Before this side joins again: an address may be back soon.
constexpr Duration kPatience = std::chrono::seconds(1);
/// Between two times where addresses come and go all the time. Until then writers that follow no new address
/// may wait for acknowledgements.
constexpr Duration kLongestPause = std::chrono::seconds(10);
constexpr Duration kTellAgain = std::chrono::minutes(1);

WireTime to_wire_time(std::chrono::nanoseconds since_1970) {
    constexpr int64_t kSecond = 1000000000;
    const int64_t count = std::max<int64_t>(since_1970.count(), 0);
    WireTime time;
    time.seconds =
        static_cast<int32_t>(static_cast<uint32_t>(count / kSecond)); // unsigned on the wire since 2038
    time.fraction = fraction_from_nanoseconds(static_cast<uint32_t>(count % kSecond));
    return time;
}

void warn(const std::string& text) {
    MERIDIAN_LOG_WARNING("net", "%s", text.c_str());
}

void tell_error(const std::string& text) {
    MERIDIAN_LOG_ERROR("net", "%s", text.c_str());
}

LocatorList beyond_this_host(LocatorList locators) {
    const auto is_loopback = [](const Locator& locator) {
        const std::optional<IpAddress> address = address_of(locator);
        return address && address->is_loopback();
    };
    locators.erase(std::remove_if(locators.begin(), locators.end(), is_loopback), locators.end());
    return locators;
}

GuidPrefix sender_of(ByteView datagram) {
    GuidPrefix prefix;
    if (datagram.size >= kHeaderSize)
        std::copy_n(datagram.data + kPrefixOffset, prefix.bytes.size(), prefix.bytes.begin());
    return prefix;
}

} // namespace

Now now() {
    return {monotonic_now(), to_wire_time(wall_now())};
}

std::shared_ptr<ReceiveThread> ReceiveThread::open(const TransportConfig& config, OwnParticipants& own,
                                                   std::string& error) MERIDIAN_NO_THREAD_SAFETY_ANALYSIS {
    // No other thread knows it yet, so no lock is needed.
    std::shared_ptr<ReceiveThread> thread(new ReceiveThread(own));
    thread->wake_descriptor_ = FileDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!thread->wake_descriptor_) {
        error = describe_error("cannot make an event descriptor", errno);
        return nullptr;
    }
    thread->transport_ = UdpTransport::open(config, Messages{warn, tell_error}, error);
    if (!thread->transport_)
        return nullptr;
    return thread;
}

ReceiveThread::~ReceiveThread() {
    {
        const TurnstileLock lock(mutex_);
        stopping_ = true;
    }
    wake();
    thread_.join();
    if (transport_)
        transport_->drops().tell_totals();
}

bool ReceiveThread::start(std::string& error) {
    const MutexLock lifecycle(lifecycle_);
    return thread_.is_started() || thread_.start(
                                       "rtps", [this] { run(); }, error);
}

void ReceiveThread::add(Participant& participant, TaskSource& tasks) {
    if (recipients_.size() == 0)
        known_addresses_ = joined_with_ = beyond_this_host(transport_->own_locators().default_unicast);
    recipients_.add(participant);
    task_sources_.push_back(&tasks);
    wake();
}

void ReceiveThread::remove(Participant& participant, TaskSource& tasks) {
    recipients_.remove(participant);
    task_sources_.erase(std::remove(task_sources_.begin(), task_sources_.end(), &tasks), task_sources_.end());
}

void ReceiveThread::reconsider_deadline(const Participant& participant) {
    const MonotonicTime next = participant.next_deadline();
    if (next < sleeping_until_) {
        sleeping_until_ = next;
        wake();
    }
}

void ReceiveThread::wake() {
    const uint64_t one = 1;
    // A full counter fails, and is readable all the same.
    [[maybe_unused]] const ssize_t written = write(wake_descriptor_.get(), &one, sizeof one);
}

void ReceiveThread::run() {
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

void ReceiveThread::drain_data() {
    const size_t first = sockets().discovery_descriptor_count();
    for (size_t position = first; position < sockets().descriptors().size(); ++position) {
        for (int batches = 0; batches < kMostDrainedBatches && sockets().fetch(position); ++batches)
            dispatch(UdpTransport::Traffic::data);
    }
}

void ReceiveThread::dispatch(UdpTransport::Traffic traffic) {
    const TurnstileLock lock(mutex_);
    const Now received_at = now();
    recipients_.for_all([](Participant& participant) { participant.begin_batch(); });
    transport_->dispatch(traffic, [&](ByteView datagram, const Locator& source)
                                      MERIDIAN_NO_THREAD_SAFETY_ANALYSIS { // this call holds the lock
                                          receive(datagram, source, received_at);
                                      });
    recipients_.for_all([&](Participant& participant) { participant.end_batch(received_at); });
}

void ReceiveThread::receive(ByteView datagram, const Locator& source, Now now) {
    // Participants do not hear their own process; where there are many, this saves asking each of them.
    if (recipients_.size() > 1 && own_.contains(sender_of(datagram)))
        return;
    uint64_t secured = 0; // each participant counts the same ones
    const ReadStatus status = recipients_.deliver(datagram, [&](Participant& participant, bool is_first) {
        const uint64_t before = participant.secured_submessages();
        const ReadStatus result = participant.receive(datagram, source, now, is_first);
        secured = std::max(secured, participant.secured_submessages() - before);
        return result;
    });
    DropReport& drops = transport_->drops();
    drops.add(DropReport::Kind::secured, secured);
    if (status == ReadStatus::not_rtps)
        drops.note(DropReport::Kind::not_rtps, source);
    else if (status == ReadStatus::malformed)
        drops.note(DropReport::Kind::malformed, source);
}

void ReceiveThread::take_interface_changes() {
    const TurnstileLock lock(mutex_);
    if (!transport_->update_interfaces())
        return;
    MERIDIAN_LOG_LOCAL("net", "the network interfaces changed; in use: %s", transport_->describe().c_str());
    const OwnLocators locators = transport_->own_locators();
    const LocatorList present = beyond_this_host(locators.default_unicast);
    const auto is_used = [&](const Locator& address) MERIDIAN_NO_THREAD_SAFETY_ANALYSIS {
        return transport_->uses(address); // this call holds the lock
    };
    const auto none_used = [&](const LocatorList& addresses) {
        return !addresses.empty() && std::none_of(addresses.begin(), addresses.end(), is_used);
    };
    const bool lost =
        !std::all_of(known_addresses_.begin(), known_addresses_.end(), is_used) || none_used(joined_with_);
    const Now at = now();
    const MonotonicTime since_before = std::exchange(join_again_at_, kNever);
    has_no_address_ = lost && present.empty(); // one that comes back is as good as before
    if (has_no_address_)
        return;
    recipients_.for_all([&](Participant& participant) { participant.set_locators(locators, at); });
    if (lost) {
        join_again_at_ =
            std::min(since_before, std::max(at.monotonic + kPatience, joined_again_at_ + join_again_pause_));
        return;
    }
    if (!present.empty())
        known_addresses_ = present;
    if (joined_with_.empty())
        joined_with_ = present;
}

void ReceiveThread::tell_of_no_address(MonotonicTime now) {
    tell_no_address_at_ = now + kTellAgain;
    has_no_address_ = false;
    tell_error(
        "no network interface but loopback has an address; nothing comes from other hosts until one has");
}

void ReceiveThread::join_again(Now now) {
    const bool is_frequent = now.monotonic - joined_again_at_ < 2 * kLongestPause;
    join_again_pause_ = is_frequent ? std::min(2 * join_again_pause_ + kPatience, kLongestPause) : kPatience;
    joined_again_at_ = now.monotonic;
    join_again_at_ = kNever;
    const OwnLocators locators = transport_->own_locators();
    recipients_.for_all([&](Participant& participant) {
        participant.join_again(own_.another(participant.guid().prefix), locators, now);
    });
    known_addresses_ = joined_with_ = beyond_this_host(locators.default_unicast);
    tell_error("the addresses of this host changed, in use now: " + transport_->describe() +
               "; left the domain and joined it again, since others would go on sending to the old ones");
}

std::optional<MonotonicTime> ReceiveThread::run_due() {
    const TurnstileLock lock(mutex_);
    if (stopping_)
        return std::nullopt;
    const Now current = now();
    if (join_again_at_ <= current.monotonic)
        join_again(current);
    if (has_no_address_ && tell_no_address_at_ <= current.monotonic)
        tell_of_no_address(current.monotonic);
    MonotonicTime next = has_no_address_ ? std::min(join_again_at_, tell_no_address_at_) : join_again_at_;
    for (TaskSource* tasks : task_sources_)
        next = std::min(next, tasks->run_due_tasks(current));
    recipients_.for_all([&](Participant& participant) {
        if (participant.next_deadline() <= current.monotonic)
            participant.on_timer(current);
        next = std::min(next, participant.next_deadline());
    });
    sleeping_until_ = next;
    return next;
}

} // namespace meridian::rtps::net
