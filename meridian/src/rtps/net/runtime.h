#pragma once

// A living participant: the protocol state machine, its sockets, and the thread that feeds it.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "rtps/net/own_participants.h"
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
class Runtime {
  public:
    using Task = std::function<void(Participant&, Now)>;

    /// Says why a participant could not be made from this configuration, without opening anything: false with
    /// a text in error. Looks up the names of peers.
    static bool check(const RuntimeConfig& config, std::string& error);

    /// Opens the sockets and makes the participant, which does nothing yet; endpoints can be added. nullptr
    /// with a text in error. events must outlive the runtime; events.warning may be called during create
    /// already.
    static std::unique_ptr<Runtime> create(RuntimeConfig config, Events& events, std::string& error);
    /// Stops.
    ~Runtime();
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
    void defer(Task task);
    void run_at(MonotonicTime time, Task task);

    uint32_t participant_index() const;
    const GuidPrefix& prefix() const;
    TransportStatistics transport_statistics();
    /// Interfaces in use, for logs.
    std::string describe_interfaces();

  private:
    class Implementation;

    /// The participant, locked for the life of this object.
    class Access {
      public:
        explicit Access(Runtime& runtime);
        ~Access();
        Access(const Access&) = delete;
        Access& operator=(const Access&) = delete;
        Participant& participant();
        const UdpTransport& transport() const;
        Now now() const { return now_; }

      private:
        Implementation& implementation_;
        Now now_;
    };

    explicit Runtime(std::unique_ptr<Implementation> implementation);
    std::unique_ptr<Implementation> implementation_;
};

} // namespace meridian::rtps::net
