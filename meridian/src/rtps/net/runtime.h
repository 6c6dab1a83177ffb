#pragma once

// A living participant: the protocol state machine, its sockets, and the thread that feeds it.

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/mutex.h"
#include "platform/thread.h"
#include "rtps/net/own_participants.h"
#include "rtps/net/socket.h"
#include "rtps/net/transport_config.h"
#include "rtps/net/udp_transport.h"
#include "rtps/protocol/participant.h"

namespace meridian::rtps::net {

struct RuntimeConfig {
    /// prefix (from OwnParticipants::choose), name, tag, properties, user data, lease, periods and limits
    /// count; is_own, domain_id, locators, initial_peers, max_message_size, seed and incarnation are filled
    /// in by the runtime.
    ParticipantConfig participant;
    TransportConfig transport; // the domain id stands here
    /// As resolve_peers takes them; empty: default_peers.
    std::vector<std::string> peers;
    /// Shared by all participants of the process. Required.
    std::shared_ptr<OwnParticipants> own_participants;
};

/// The reading of both clocks that goes into the participant's calls.
Now now();

/// One mutex serialises the participant. Events and sample sinks are called with it held, mostly on the
/// runtime's thread: they may call defer, run_at and wake-ups of other threads; they must not call
/// with_participant, stop or the destructor, nor wait for a thread that does, and should return soon.
/// All public operations may be called by any thread.
///
/// Locking: gate_ is a turnstile in front of mutex_. A thread that wants mutex_ passes it first, so the
/// runtime's thread, which takes mutex_ again and again under load, cannot overtake a waiting caller. Order:
/// lifecycle_, gate_, mutex_, tasks_mutex_.
class Runtime {
  public:
    using Task = std::function<void(Participant&, Now)>;

    /// Says why a participant could not be made from this configuration, without opening anything: false with
    /// a text in error. Looks up the names of peers.
    static bool check(const RuntimeConfig& config, std::string& error);

    /// Opens the sockets and makes the participant, which does nothing yet; endpoints can be added. nullptr
    /// with a text in error. events must outlive the runtime.
    static std::unique_ptr<Runtime> create(RuntimeConfig config, Events& events, std::string& error);
    ~Runtime() { stop(); }
    Runtime(const Runtime&) = delete;
    Runtime& operator=(const Runtime&) = delete;

    /// Starts the thread and announces the participant. False with a text in error: no thread to be had, or
    /// stopped before. Starting twice is success.
    bool start(std::string& error);
    /// Says farewell to the peers, ends the thread and drops the tasks that did not run. Idempotent. After it
    /// returned no event or sink is called any more, except from with_participant.
    void stop();

    /// Calls function(Participant&, Now) with the participant locked and returns what it returns. Waits for
    /// the batch in progress at most, even under heavy traffic. Not from events, sinks and tasks.
    template <typename Function>
    auto with_participant(Function&& function) {
        Access access(*this);
        return std::forward<Function>(function)(access.participant(), access.now());
    }

    /// Runs the task on the runtime's thread with the participant locked, soon, or not before a time of the
    /// clock of now().monotonic. This is how events and sinks call the participant. Tasks run in the order of
    /// their times, equal ones in the order of the calls; they may defer others. After stop they are dropped.
    void defer(Task task) { run_at(MonotonicTime{0}, std::move(task)); }
    void run_at(MonotonicTime time, Task task);

    uint32_t participant_index() const { return participant_index_; }
    const GuidPrefix& prefix() const { return config_.participant.prefix; }
    TransportStatistics transport_statistics();
    /// Interfaces in use, for logs.
    std::string describe_interfaces();

  private:
    /// The participant, locked for the life of this object, which the analysis cannot follow.
    class Access {
      public:
        explicit Access(Runtime& runtime);
        ~Access();
        Access(const Access&) = delete;
        Access& operator=(const Access&) = delete;
        Participant& participant() MERIDIAN_NO_THREAD_SAFETY_ANALYSIS { return *runtime_.participant_; }
        const UdpTransport& transport() const MERIDIAN_NO_THREAD_SAFETY_ANALYSIS {
            return *runtime_.transport_;
        }
        Now now() const { return now_; }

      private:
        Runtime& runtime_;
        Now now_;
    };

    Runtime(RuntimeConfig config, Events& events);
    bool open(std::string& error);

    void lock() MERIDIAN_ACQUIRE(mutex_);
    void unlock() MERIDIAN_RELEASE(mutex_);
    /// Makes the thread look at the participant's deadline again, if that is now earlier.
    void reconsider_deadline() MERIDIAN_REQUIRES(mutex_);

    void run();
    /// Takes what waits on the data sockets, up to a bound that holds more than their buffers do.
    void drain_data();
    void dispatch(UdpTransport::Traffic traffic);
    void tell_drops();
    void take_interface_changes();
    /// Runs what is due and returns when to wake next; nullopt: stop.
    std::optional<MonotonicTime> run_due();
    MonotonicTime run_due_tasks(Now now) MERIDIAN_REQUIRES(mutex_);
    void wake();
    /// The sockets may be read without the lock: see UdpTransport::fetch.
    UdpTransport& sockets() MERIDIAN_NO_THREAD_SAFETY_ANALYSIS { return *transport_; }

    const RuntimeConfig config_;
    Events& events_;
    FileDescriptor wake_descriptor_;
    uint32_t participant_index_ = 0;

    Mutex lifecycle_ MERIDIAN_ACQUIRED_BEFORE(gate_);
    Mutex gate_ MERIDIAN_ACQUIRED_BEFORE(mutex_);
    Mutex mutex_;
    Mutex tasks_mutex_ MERIDIAN_ACQUIRED_AFTER(mutex_);

    std::unique_ptr<UdpTransport> transport_ MERIDIAN_PT_GUARDED_BY(mutex_); // set once, by open
    std::unique_ptr<Participant> participant_ MERIDIAN_PT_GUARDED_BY(mutex_);
    std::atomic<std::thread::id> holder_{std::thread::id()}; // of mutex_
    bool stopping_ MERIDIAN_GUARDED_BY(mutex_) = false;
    MonotonicTime sleeping_until_ MERIDIAN_GUARDED_BY(mutex_) = kNever;

    std::multimap<MonotonicTime, Task> tasks_ MERIDIAN_GUARDED_BY(tasks_mutex_);
    bool tasks_closed_ MERIDIAN_GUARDED_BY(tasks_mutex_) = false;

    bool started_ MERIDIAN_GUARDED_BY(lifecycle_) = false;
    bool stopped_ MERIDIAN_GUARDED_BY(lifecycle_) = false;
    Thread thread_ MERIDIAN_GUARDED_BY(lifecycle_);
};

} // namespace meridian::rtps::net
