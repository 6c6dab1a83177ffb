#pragma once

// A best-effort reader (DDSI-RTPS 2.5, 8.4.12.1): delivers what comes, never twice and never out of order,
// and counts what passed it by.
//
// - A number far ahead is believed when a second one follows it.
// - Where the writer goes on at numbers far below, that were never delivered, the reader returns to
//   them: what came in between was not the writer's word.

#include <memory>
#include <unordered_map>

#include "rtps/protocol/fragment_assembler.h"
#include "rtps/protocol/reader.h"
#include "rtps/protocol/timer_queue.h"

namespace meridian::rtps {

class BestEffortReader final : public Reader, private TimerQueue::Client {
  public:
    /// The references must outlive the reader.
    BestEffortReader(size_t max_sample_size, MemoryBudget& memory, ReaderSink& sink, ReaderObserver& observer,
                     TimerQueue& timers);
    ~BestEffortReader() override;

    void add_writer(const RemoteWriter& writer, MonotonicTime now) override;
    void remove_writer(const Guid& writer) override;
    bool on_data(const MessageContext& context, const Data& data, MonotonicTime now) override;
    bool on_data_frag(const MessageContext& context, const DataFrag& fragment, MonotonicTime now) override;

  private:
    struct WriterProgress;
    /// Gives the memory of samples back whose fragments stopped coming.
    void on_timer(MonotonicTime now) override;
    WriterProgress* find(const Guid& writer);
    bool expects(WriterProgress& writer, SequenceNumber number, MonotonicTime now);
    static bool returns_to(WriterProgress& writer, SequenceNumber number, MonotonicTime now);
    void not_taken(WriterProgress& writer, NotTaken reason, SequenceNumber number);
    void tell_incomplete(const WriterProgress& writer, size_t count);
    void deliver(WriterProgress& writer, const Sample& sample, bool deliverable);

    // What every sample needs comes first: with many topics it must be fetched from afar.
    WriterProgress* last_used_ = nullptr; // packets of one writer come in rows
    ReaderObserver& observer_;
    size_t max_sample_size_;
    MemoryBudget& memory_;
    std::unordered_map<Guid, std::unique_ptr<WriterProgress>> writers_;
    TimerQueue::Timer timer_;
};

} // namespace meridian::rtps
