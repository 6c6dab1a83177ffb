#pragma once

// A reliable stateful reader (DDSI-RTPS 2.5, 8.4.12.2): delivers every sample of each matched writer exactly
// once and in order, asks for what is missing, and reports what can no longer come.
//
// - Right after a match it speaks first: an ACKNACK with an empty set that wants an answer, repeated until
//   the first heartbeat of the writer.
// - A volatile reader starts at that heartbeat: earlier samples are not asked for. Samples that came before
//   it, after the match, are held and delivered, also where only fragments came; so are those that come right
//   behind it, for which the first acknowledgement waits.
// - What a heartbeat names and is here is acknowledged at the end of the batch that it came in, without a
//   pause: a reader must not be what a writer waits for. The answer for a single sample, where the answer
//   before is longer ago than this one could wait, may wait for others to the same application (see
//   message_batcher.h): such a writer writes seldom. Heartbeats that name nothing new are answered from a
//   budget, against storms. Requests for what is missing are paced: 1 ms between two, 10 ms for the same
//   samples, and growing pauses for what does not come.
// - Which heartbeats are believed is decided in heartbeat_judge.h. A heartbeat in doubt makes the reader ask
//   the writer for another one, in a way that acknowledges nothing.
// - What the writer has written is what its latest heartbeat says: gaps and data beyond it move nothing.
//   Where a heartbeat moved the reader over numbers that no earlier one had named, and later ones show that
//   this was not the writer's word, the reader returns to where it was.

#include <memory>
#include <unordered_map>

#include "rtps/protocol/config.h"
#include "rtps/protocol/fragment_assembler.h"
#include "rtps/protocol/number_intervals.h"
#include "rtps/protocol/reader.h"
#include "rtps/protocol/timer_queue.h"

namespace meridian::rtps {

class ReliableReader final : public Reader {
  public:
    struct Limits {
        size_t max_sample_size = size_t{16} << 20;
        /// For fragments and samples out of order of all writers. Builtin readers take of their own: see
        /// kBuiltinMemory.
        MemoryBudget* memory = &MemoryBudget::of_process();
    };
    /// Announcements are small: a builtin reader holds at most this much, and takes no larger ones than
    /// kLargestAnnouncement, so that one of them always finds room.
    static constexpr size_t kBuiltinMemory = size_t{1} << 20;
    static constexpr size_t kLargestAnnouncement = kBuiltinMemory * 3 / 8;

    /// The references must outlive the reader. is_volatile: the durability of this reader.
    ReliableReader(EntityId id, bool is_volatile, const ReaderConfig& config, const Limits& limits,
                   ReaderSink& sink, ReaderObserver& observer, MessageBatcher& batcher, TimerQueue& timers);
    ~ReliableReader() override;

    void add_writer(const RemoteWriter& writer, MonotonicTime now) override;
    void remove_writer(const Guid& writer) override;

    bool on_data(const MessageContext& context, const Data& data, MonotonicTime now) override;
    bool on_data_frag(const MessageContext& context, const DataFrag& fragment, MonotonicTime now) override;
    void on_heartbeat(const Guid& writer, const Heartbeat& heartbeat, MonotonicTime now) override;
    void on_heartbeat_frag(const Guid& writer, const HeartbeatFrag& heartbeat, MonotonicTime now) override;
    void on_gap(const Guid& writer, const Gap& gap, MonotonicTime now) override;

  private:
    struct HeldSample;
    struct WriterProxy;

    WriterProxy* find(const Guid& writer);
    bool is_old(WriterProxy& proxy, SequenceNumber number, MonotonicTime now);
    void accept(WriterProxy& proxy, const Sample& sample, bool deliverable);
    void hold(WriterProxy& proxy, const Sample& sample);
    void mark_irrelevant(WriterProxy& proxy, SequenceNumber from, SequenceNumber end);
    bool give_way(WriterProxy& proxy, SequenceNumber sequence_number);
    void deliver_first_held(WriterProxy& proxy);
    void drop_held_from(WriterProxy& proxy, SequenceNumber sequence_number);
    void drain(WriterProxy& proxy);
    void advance(WriterProxy& proxy, SequenceNumber to, bool count_losses);
    void begin_anew(WriterProxy& proxy, const Heartbeat& heartbeat, MonotonicTime now);
    void ask(WriterProxy& proxy, MonotonicTime now);
    void drop_idle_fragments(WriterProxy& proxy, MonotonicTime now);
    void want_acknowledgement(WriterProxy& proxy, MonotonicTime now);
    void on_timer(WriterProxy& proxy, MonotonicTime now);
    void send_preemptive(WriterProxy& proxy, MonotonicTime now);
    void send_acknack(WriterProxy& proxy, MonotonicTime now);
    void send_nack_frag(WriterProxy& proxy, SequenceNumber sequence_number, const FragmentNumberSet& missing);

    // What every sample needs comes first: with many topics it must be fetched from afar.
    EntityId id_;
    Count acknack_count_ =
        0; // of the reader, not of one writer: it must grow when one is lost and found again
    WriterProxy* last_used_ = nullptr; // packets of one writer come in rows
    bool is_volatile_;
    ReaderConfig config_;
    Limits limits_;
    ReaderObserver& observer_;
    MessageBatcher& batcher_;
    TimerQueue& timers_;
    MemoryBudget builtin_memory_{kBuiltinMemory};
    std::unordered_map<Guid, std::unique_ptr<WriterProxy>> proxies_;
    Count nackfrag_count_ = 0;                          // like acknack_count_
    std::vector<NumberIntervals::Interval> irrelevant_; // of one submessage; kept for its memory
    std::vector<NumberIntervals::Interval> irrelevant_room_;
    bool memory_told_ = false; // that something waits, because it is used up
};

} // namespace meridian::rtps
