#pragma once

// The sockets of one domain, and the thread that receives from them and drives the participants behind them.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/mutex.h"
#include "platform/thread.h"
#include "rtps/net/recipients.h"
#include "rtps/net/socket.h"
#include "rtps/net/transport_config.h"
#include "rtps/net/turnstile_mutex.h"
#include "rtps/net/udp_transport.h"
#include "rtps/protocol/participant.h"

namespace meridian::rtps::net {

class OwnParticipants;

/// The reading of both clocks that goes into a participant's calls.
Now now();

/// What a ReceiveThread has run on it besides the participants.
class TaskSource {
  public:
    virtual ~TaskSource() = default;
    /// Runs the tasks that are due, with the thread's mutex held; returns the time of the next one.
    virtual MonotonicTime run_due_tasks(Now now) = 0;
};

/// One mutex serialises all participants of the thread, and their events and sinks with them.
/// Order: lifecycle_, mutex.
class ReceiveThread {
  public:
    /// Opens the sockets; nothing is received before start. nullptr with a text in error: see
    /// UdpTransport::open. own must outlive the thread.
    static std::shared_ptr<ReceiveThread> open(const TransportConfig& config, OwnParticipants& own,
                                               std::string& error);
    /// Ends the thread and tells what was dropped; all participants must have been removed.
    ~ReceiveThread();
    ReceiveThread(const ReceiveThread&) = delete;
    ReceiveThread& operator=(const ReceiveThread&) = delete;

    /// False with a text in error: no thread to be had. Starting twice is success.
    bool start(std::string& error) MERIDIAN_EXCLUDES(mutex_);

    TurnstileMutex& mutex() MERIDIAN_RETURN_CAPABILITY(mutex_) { return mutex_; }
    UdpTransport& transport() MERIDIAN_REQUIRES(mutex_) { return *transport_; }
    uint32_t participant_index() { return sockets().participant_index(); }
    /// Of all its participants; used with the mutex held.
    const std::shared_ptr<CreditLedger>& credits() const { return credits_; }
    const std::shared_ptr<ToldErrors>& told_errors() const { return told_errors_; }
    bool has_participants() const MERIDIAN_REQUIRES(mutex_) { return !task_sources_.empty(); }

    /// From here to remove the participant, which must have been started, gets what is for it, and is called
    /// when it wants to be.
    void add(Participant& participant, TaskSource& tasks) MERIDIAN_REQUIRES(mutex_);
    void remove(Participant& participant, TaskSource& tasks) MERIDIAN_REQUIRES(mutex_);
    /// Makes the thread look at the participant's deadline again, if that is now earlier. To be called after
    /// each call of a participant.
    void reconsider_deadline(const Participant& participant) MERIDIAN_REQUIRES(mutex_);
    /// Makes the thread look for tasks again. Any thread.
    void wake();

  private:
    explicit ReceiveThread(OwnParticipants& own) : own_(own) {}

    void run();
    /// Takes what waits on the data sockets, up to a bound that holds more than their buffers do.
    void drain_data();
    void dispatch(UdpTransport::Traffic traffic);
    void receive(ByteView datagram, const Locator& source, Now now) MERIDIAN_REQUIRES(mutex_);
    void take_interface_changes();
    void tell_of_no_address(MonotonicTime now) MERIDIAN_REQUIRES(mutex_);
    /// Others go on sending to an address that this host had: so the participants leave and come as new ones.
    /// That costs others much, and an address that is back soon, or often, is none that is lost.
    void join_again(Now now) MERIDIAN_REQUIRES(mutex_);
    /// Runs what is due and returns when to wake next; nullopt: stop.
    std::optional<MonotonicTime> run_due();
    /// The sockets may be read without the lock: see UdpTransport::fetch.
    UdpTransport& sockets() MERIDIAN_NO_THREAD_SAFETY_ANALYSIS { return *transport_; }

    OwnParticipants& own_;
    FileDescriptor wake_descriptor_;
    const std::shared_ptr<CreditLedger> credits_ = std::make_shared<CreditLedger>();
    const std::shared_ptr<ToldErrors> told_errors_ = std::make_shared<ToldErrors>();

    Mutex lifecycle_ MERIDIAN_ACQUIRED_BEFORE(mutex_);
    TurnstileMutex mutex_;

    std::unique_ptr<UdpTransport> transport_ MERIDIAN_PT_GUARDED_BY(mutex_); // set once, by open
    Recipients recipients_ MERIDIAN_GUARDED_BY(mutex_);
    std::vector<TaskSource*> task_sources_ MERIDIAN_GUARDED_BY(mutex_);
    // What others know, beyond this host: those who follow changes, and those who do not.
    LocatorList known_addresses_ MERIDIAN_GUARDED_BY(mutex_);
    LocatorList joined_with_ MERIDIAN_GUARDED_BY(mutex_);
    MonotonicTime join_again_at_ MERIDIAN_GUARDED_BY(mutex_) = kNever;
    bool has_no_address_ MERIDIAN_GUARDED_BY(mutex_) = false; // which is still to be told
    MonotonicTime tell_no_address_at_ MERIDIAN_GUARDED_BY(mutex_){0};
    MonotonicTime joined_again_at_ MERIDIAN_GUARDED_BY(mutex_){0};
    Duration join_again_pause_ MERIDIAN_GUARDED_BY(mutex_){0};
    bool stopping_ MERIDIAN_GUARDED_BY(mutex_) = false;
    MonotonicTime sleeping_until_ MERIDIAN_GUARDED_BY(mutex_) = kNever;

    Thread thread_ MERIDIAN_GUARDED_BY(lifecycle_);
};

} // namespace meridian::rtps::net
