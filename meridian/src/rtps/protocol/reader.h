#pragma once

// What the reliable and the best-effort reader have in common: the operations by which the participant hands
// them submessages of matched writers.

#include <utility>

#include "rtps/protocol/count.h"
#include "rtps/protocol/fragment_assembler.h"
#include "rtps/protocol/makers.h"
#include "rtps/protocol/message_batcher.h"
#include "rtps/protocol/sinks.h"
#include "rtps/wire/message.h"

namespace meridian::rtps {

/// An unfinished sample to which no fragment was added for this long is given up.
constexpr Duration kFragmentTimeout = std::chrono::seconds(3);

/// A matched writer, as a reader needs to know it.
struct RemoteWriter {
    Guid guid;
    Route route; // where acknowledgements go
    Quirks quirks;
};

/// What a reader tells the participant beyond samples. Not called back into the reader.
class ReaderObserver {
  public:
    virtual ~ReaderObserver() = default;
    /// The writer began anew with the same GUID: its sequence numbers start over, and so did delivery.
    virtual void on_writer_restarted(const Guid& writer) = 0;
    virtual void on_oversized_sample(const Guid& writer, size_t size, size_t limit) = 0;
    /// A sample of a reliable writer came too early to be delivered, and could not be kept until its turn.
    /// Once for a reader.
    virtual void on_memory_used_up(const Guid& writer) = 0;
    /// A number above kHighestSequenceNumber, which is not believed (see count.h).
    virtual void on_number_too_high(const Guid& writer) = 0;
};

class Reader {
  public:
    /// The sink must outlive the reader.
    explicit Reader(ReaderSink& sink) : sink_(sink) {}
    virtual ~Reader() = default;
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    /// Begins a batch of submessages for it; false: that has begun before.
    bool begin_batch() { return !std::exchange(in_batch_, true); }
    void end_batch() {
        in_batch_ = false;
        sink_.on_batch_end();
    }

    /// A known writer only gets its route changed.
    virtual void add_writer(const RemoteWriter& writer, MonotonicTime now) = 0;
    virtual void remove_writer(const Guid& writer) = 0;

    /// Submessages of writers that were not added are ignored. now is the time of reception.
    /// False: the writer is not one of this reader's.
    virtual bool on_data(const MessageContext& context, const Data& data, MonotonicTime now) = 0;
    virtual bool on_data_frag(const MessageContext& context, const DataFrag& fragment, MonotonicTime now) = 0;
    virtual void on_heartbeat(const Guid& /*writer*/, const Heartbeat&, MonotonicTime) {}
    virtual void on_heartbeat_frag(const Guid& /*writer*/, const HeartbeatFrag&, MonotonicTime) {}
    virtual void on_gap(const Guid& /*writer*/, const Gap&, MonotonicTime) {}

  protected:
    ReaderSink& sink_;

  private:
    bool in_batch_ = false;
};

/// Whether a writer's number is plausible. The observer is told of one that is too high.
inline bool is_believed(const Guid& writer, SequenceNumber number, ReaderObserver& observer) {
    if (number > kHighestSequenceNumber)
        observer.on_number_too_high(writer);
    return plausible(number);
}
/// The sample of a DATA submessage. False when its inline QoS is malformed or asks to be refused.
bool make_sample(const Guid& writer, Quirks quirks, const MessageContext& context, const Data& data,
                 MonotonicTime now, Sample& out);
/// The sample that fragments have made up, with what the assembler does not know.
Sample make_sample(const Guid& writer, Quirks quirks, VendorId vendor, const Sample& whole,
                   MonotonicTime now);

} // namespace meridian::rtps
