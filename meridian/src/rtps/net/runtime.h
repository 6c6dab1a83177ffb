#pragma once

// A living participant: the protocol state machine behind the sockets and on the thread that it shares with
// the participants of this process that are configured alike.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/mutex.h"
#include "rtps/net/own_participants.h"
#include "rtps/net/receive_thread.h"
#include "rtps/net/transport_config.h"
#include "rtps/net/turnstile_mutex.h"
#include "rtps/net/udp_transport.h"
#include "rtps/protocol/participant.h"

namespace meridian::rtps::net {

struct RuntimeConfig {
    /// prefix (from OwnParticipants::choose), name, tag, properties, user data, lease, periods and limits
    /// count; is_own, domain_id, locators, initial_peers, max_message_size, seed, secret_begin and
    /// incarnation are filled in by the runtime.
    ParticipantConfig participant;
    TransportConfig transport; // the domain id stands here
    /// As resolve_peers takes them; empty: default_peers.
    std::vector<std::string> peers;
    /// Shared by all participants of the process. Required.
    std::shared_ptr<OwnParticipants> own_participants;
};

/// One mutex serialises all participants of the receive thread. Events and sinks are called with it held,
/// mostly on that thread: they may call defer, run_at and wake-ups of other threads; they must not call
/// with_participant, stop or the destructor of any of these participants, nor wait for a thread that does,
/// and should return soon. All public operations may be called by any thread. Order: lifecycle_, the mutex of
/// the receive thread, tasks_mutex_.
class Runtime final : private TaskSource {
  public:
    using Task = std::function<void(Participant&, Now)>;

    /// Says why a participant could not be made from this configuration, without opening anything: false with
    /// a text in error. Looks up the names of peers.
    static bool check(const RuntimeConfig& config, std::string& error);

    /// Opens the sockets, or shares those of a participant of this process with the same transport, and makes
    /// the participant, which does nothing yet; endpoints can be added. nullptr with a text in error. events
    /// must outlive the runtime.
    static std::unique_ptr<Runtime> create(RuntimeConfig config, Events& events, std::string& error);
    ~Runtime() override { stop(); }
    Runtime(const Runtime&) = delete;
    Runtime& operator=(const Runtime&) = delete;

    /// Starts the thread where it does not run yet, and announces the participant. False with a text in
    /// error: no thread to be had, or stopped before. Starting twice is success.
    bool start(std::string& error);
    /// Says farewell to the peers and drops the tasks that did not run. Idempotent. After it returned no
    /// event or sink is called any more, except from with_participant.
    void stop();

    /// Calls function(Participant&, Now) with the participant locked and returns what it returns. Waits for
    /// the batch in progress at most, even under heavy traffic. Not from events, sinks and tasks.
    template <typename Function>
    auto with_participant(Function&& function) {
        Access access(*this);
        return std::forward<Function>(function)(participant_, access.now());
    }

    /// Runs the task on the receive thread with the participant locked, soon, or not before a time of the
    /// clock of now().monotonic. This is how events and sinks call the participant. Tasks run in the order of
    /// their times, equal ones in the order of the calls; they may defer others. After stop they are dropped.
    void defer(Task task) { run_at(MonotonicTime{0}, std::move(task)); }
    void run_at(MonotonicTime time, Task task);

    uint32_t participant_index() const { return thread_->participant_index(); }
    const GuidPrefix& prefix() const { return prefix_; }
    /// Of the sockets, for all who share them.
    TransportStatistics transport_statistics();
    /// Interfaces in use, for logs.
    std::string describe_interfaces();

  private:
    /// The participant, locked for the life of this object.
    class Access {
      public:
        explicit Access(Runtime& runtime);
        ~Access();
        Access(const Access&) = delete;
        Access& operator=(const Access&) = delete;
        Now now() const { return now_; }

      private:
        Runtime& runtime_;
        Now now_;
    };

    Runtime(ParticipantConfig config, std::shared_ptr<OwnParticipants> own,
            std::shared_ptr<ReceiveThread> thread, Events& events);
    MonotonicTime run_due_tasks(Now now) override;

    const std::shared_ptr<OwnParticipants> own_; // outlives the thread
    const GuidPrefix prefix_;
    const std::shared_ptr<ReceiveThread> thread_;
    Participant participant_; // guarded by the mutex of the thread

    Mutex lifecycle_;
    bool started_ MERIDIAN_GUARDED_BY(lifecycle_) = false;
    bool stopped_ MERIDIAN_GUARDED_BY(lifecycle_) = false;

    Mutex tasks_mutex_;
    std::multimap<MonotonicTime, Task> tasks_ MERIDIAN_GUARDED_BY(tasks_mutex_);
    bool tasks_closed_ MERIDIAN_GUARDED_BY(tasks_mutex_) = false;
};

} // namespace meridian::rtps::net
