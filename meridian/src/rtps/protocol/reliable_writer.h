#pragma once

// A stateful writer (DDSI-RTPS 2.5, 8.4.9.2) for best-effort and reliable readers: keeps samples until every
// reliable reader has them (or, transient local, as history depth says), announces them with heartbeats,
// sends again what is asked for, and says with gaps what no longer exists.
//
// - New samples go out at once; a heartbeat goes with the first unacknowledged one and with every 16th. While
//   anything is unacknowledged, heartbeats follow with pauses that double up to 2 s, anew after progress.
// - What is asked for is sent again, but in one heartbeat period no more to one reader than all that is kept.
// - Readers of one participant at the same address share one copy.
// - A reader that joins late and is volatile gets heartbeats that begin after what was written before it, and
//   gaps when it asks for that all the same. A transient-local one asks for what it wants.
// - Of disposed instances the last 1000 stay for late joiners too: a reader may still be there that this side
//   had lost when the instance was disposed, and only the disposal ends the instance for it.

#include <deque>
#include <map>
#include <optional>
#include <vector>

#include "rtps/protocol/config.h"
#include "rtps/protocol/count.h"
#include "rtps/protocol/makers.h"
#include "rtps/protocol/message_batcher.h"
#include "rtps/protocol/timer_queue.h"
#include "rtps/wire/message.h"

namespace meridian::rtps {

/// A matched reader, as a writer needs to know it.
struct RemoteReader {
    Guid guid;
    Route route;
    bool reliable = true;
    bool transient_local = false;
    /// What its participant's writers ask of readers here can be answered. A reliable reader that never
    /// acknowledges would keep them waiting: such participants are not told of it.
    bool answerable = true;
    Quirks quirks;
    /// Of what is announced it gets what is for it only: see Participant::announce_for.
    bool told_singly = false;
};

class ReliableWriter final {
  public:
    /// qos: durability, history and reliability of the writer. batcher and timers must outlive it.
    ReliableWriter(EntityId id, const EndpointQos& qos, const WriterConfig& config, MessageBatcher& batcher,
                   TimerQueue& timers);

    /// A known reader only gets its route changed.
    void add_reader(const RemoteReader& reader, MonotonicTime now);
    void remove_reader(const Guid& reader);
    /// This writer is another one for all readers, which know nothing of it. forgets: nor has it written
    /// anything.
    void begin_anew(bool forgets, MonotonicTime now);

    /// nullopt when max_samples are kept and none may go.
    std::optional<SequenceNumber> write(const WriteRequest& request, Now now);

    /// Forgets what is kept of the instance; no reader is told.
    void withdraw(const KeyHash& instance);

    void on_acknack(const Guid& reader, const AckNack& acknack, MonotonicTime now);
    void on_nack_frag(const Guid& reader, const NackFrag& nack, MonotonicTime now);
    /// Whether it names a number that only those know who were sent it; nullopt: nothing follows from it.
    std::optional<bool> knows_what_was_told(const Guid& reader, const AckNack& acknack) const;

    /// A heartbeat to this reader, if it is matched: a reliable one answers with an acknowledgement. None
    /// goes to who knows no empty range from a writer that never had a number.
    void ask(const Guid& reader);
    /// A heartbeat with the liveliness flag to every reliable reader.
    void assert_liveliness();

    bool all_acknowledged() const;
    size_t kept_samples() const { return history_.size(); }

  private:
    struct Change {
        ByteBuffer payload;
        ByteBuffer inline_qos;
        bool payload_is_key = false;
        bool expects_answers = false;
        WireTime timestamp;
        KeyHash instance{};
        std::optional<GuidPrefix> only_for;

        bool concerns(const RemoteReader& reader) const {
            return only_for ? *only_for == reader.guid.prefix : !reader.told_singly || payload_is_key;
        }
    };
    /// What is known of one matched reader.
    struct ReaderProxy final : TimerQueue::Client {
        ReaderProxy(ReliableWriter& owner, const RemoteReader& remote)
            : writer(owner), reader(remote), heartbeat_timer(owner.timers_, *this) {}
        void on_timer(MonotonicTime now) override { writer.on_heartbeat_due(*this, now); }
        /// What was answered in the present period.
        struct Period {
            MonotonicTime end{0};
            size_t answered_bytes = 0;
            unsigned gap_answers = 0;
            bool answered_with_heartbeat = false;
            bool began_anew = false;
        };
        /// False where so many bytes more are too many for the present period.
        bool may_answer(size_t bytes, MonotonicTime now);
        bool may_answer_with_gaps(MonotonicTime now);
        /// Otherwise each acknowledgement could be progress, which costs time.
        bool may_begin_anew(MonotonicTime now);
        Period& period(MonotonicTime now);

        ReliableWriter& writer;
        RemoteReader reader;
        SequenceNumber first_relevant = 1;
        SequenceNumber acknowledged_below = 1; // everything below is acknowledged
        SenderCount acknacks;
        SenderCount nack_frags;
        TimerQueue::Timer heartbeat_timer;
        Duration heartbeat_pause{0};
        unsigned since_heartbeat = 0; // samples written
        Period last_period;
    };

    void on_heartbeat_due(ReaderProxy& proxy, MonotonicTime now);
    ReaderProxy* find(const Guid& reader);
    static bool is_for(const RemoteReader& reader, const Change& change) {
        return (reader.answerable || !change.expects_answers) && change.concerns(reader);
    }
    bool outstanding(const ReaderProxy& proxy) const;
    Change change_of(const WriteRequest& request, WireTime written) const;
    /// Once to those behind the same addresses.
    void send_to_all(SequenceNumber number, const Change& change, Haste haste);
    /// Of a sample that was just sent.
    void await_acknowledgement(ReaderProxy& proxy, SequenceNumber number, const Change& change, Haste haste,
                               MonotonicTime now);
    void send_change(const Route& route, EntityId reader, SequenceNumber number, const Change& change,
                     Haste haste = Haste::now);
    void send_fragments(const Route& route, EntityId reader, SequenceNumber number, const Change& change,
                        const FragmentNumberSet* wanted);
    void send_heartbeat(ReaderProxy& proxy, bool final, bool liveliness, Haste haste = Haste::now);
    void restart_heartbeats(ReaderProxy& proxy, MonotonicTime now);
    /// At once, or at the end of the period where one was asked for in it before.
    void answer_with_heartbeat(ReaderProxy& proxy, bool final, bool at_once, MonotonicTime now);
    /// Learns from it whether the addresses of the route are the reader's.
    void judge_address(const Guid& reader, const Route& route, const AckNack& acknack);
    /// Numbers from `first` on that do not come any more.
    struct Hole {
        SequenceNumber first;
        SequenceNumber end; // behind the last one
    };
    /// Sends what the reader misses, and adds the holes among it. False: nothing could be sent.
    bool send_again(ReaderProxy& proxy, const SequenceNumberSet& missing, std::vector<Hole>& holes,
                    MonotonicTime now);
    /// Ascending ones.
    void send_gaps(const ReaderProxy& proxy, const std::vector<Hole>& holes);
    SequenceNumber first_available(const ReaderProxy& proxy) const;
    /// What heartbeats name: who knows no empty range gets the last number, and a gap where it asks for it.
    SequenceNumber first_told(const ReaderProxy& proxy) const;
    bool make_room(const WriteRequest& request);
    void forget(SequenceNumber number);
    void forget_acknowledged();
    size_t fragment_size(const Change& change) const;

    EntityId id_;
    bool transient_local_;
    bool keep_all_;
    size_t depth_;
    WriterConfig config_;
    MessageBatcher& batcher_;
    TimerQueue& timers_;
    SequenceNumber last_;
    std::map<SequenceNumber, Change> history_;
    size_t history_bytes_ = 0; // as may_answer counts them
    std::map<KeyHash, std::deque<SequenceNumber>> instances_;
    std::deque<SequenceNumber> disposals_;
    std::map<Guid, ReaderProxy> proxies_; // so those of one participant stand together
    Count heartbeat_count_ = 0;
};

} // namespace meridian::rtps
