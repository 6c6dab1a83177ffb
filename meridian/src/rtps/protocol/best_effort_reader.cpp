#include "rtps/protocol/best_effort_reader.h"

#include <algorithm>
#include <utility>

#include "rtps/protocol/count.h"

namespace meridian::rtps {

namespace {

// So many samples at lower numbers, over so long and with nothing higher in between, are what the writer
// sends now.
constexpr int kReturnSamples = 3;
constexpr Duration kReturnProof = std::chrono::milliseconds(300);
// Fewer in a row are lost every day, and may come late. Jumps in quick succession are one.
constexpr SequenceNumber kFew = 32;
constexpr Duration kJumpPause = std::chrono::seconds(5);

} // namespace

/// How far one matched writer has come.
struct BestEffortReader::WriterProgress {
    WriterProgress(const RemoteWriter& writer, MemoryBudget& budget, size_t max_sample_size)
        : guid(writer.guid), quirks(writer.quirks), memory(budget), fragments(memory, max_sample_size) {}

    Guid guid;
    Quirks quirks;
    int low = 0;              // samples in a row from between jumped_from and jumped_to
    SequenceNumber next = 0;  // 0: nothing came yet
    SequenceNumber claim = 0; // a number far ahead that is not believed yet
    // Little in between was delivered; 0: nothing to return to.
    SequenceNumber jumped_from = 0;
    SequenceNumber jumped_to = 0;
    SequenceNumber delivered_end = 0; // after a return: from jumped_to on, this far, all was delivered
    MemoryShare memory;
    FragmentAssembler fragments;
    SequenceNumber refused = 0; // the last one that was told
    MonotonicTime jumped_at{0};
    SequenceNumber low_last = 0;
    MonotonicTime low_since{0};
};

BestEffortReader::BestEffortReader(size_t max_sample_size, MemoryBudget& memory, ReaderSink& sink,
                                   ReaderObserver& observer, TimerQueue& timers)
    : Reader(sink),
      observer_(observer),
      max_sample_size_(max_sample_size),
      memory_(memory),
      timer_(timers, *this) {}

BestEffortReader::~BestEffortReader() = default;

BestEffortReader::WriterProgress* BestEffortReader::find(const Guid& writer) {
    if (last_used_ != nullptr && last_used_->guid == writer)
        return last_used_;
    const auto at = writers_.find(writer);
    if (at == writers_.end())
        return nullptr;
    return last_used_ = at->second.get();
}

void BestEffortReader::add_writer(const RemoteWriter& writer, MonotonicTime) {
    if (find(writer.guid) == nullptr)
        writers_.emplace(writer.guid, std::make_unique<WriterProgress>(writer, memory_, max_sample_size_));
}

void BestEffortReader::remove_writer(const Guid& writer) {
    const auto at = writers_.find(writer);
    if (at == writers_.end())
        return;
    tell_incomplete(*at->second, at->second->fragments.drop_below(kHighestSequenceNumber + 1));
    last_used_ = nullptr;
    writers_.erase(at);
}

bool BestEffortReader::expects(WriterProgress& writer, SequenceNumber number, MonotonicTime now) {
    if (!is_believed(writer.guid, number, observer_))
        return false;
    if (number < writer.next)
        return returns_to(writer, number, now);
    if (number >= writer.jumped_to && number < writer.delivered_end)
        return false;
    writer.low = 0;
    if (writer.next == 0 || number - writer.next <= kFarAhead) {
        writer.claim = 0;
        return true;
    }
    if (writer.claim != 0 && number > writer.claim && number - writer.claim <= kFarAhead)
        return true;
    writer.claim = number;
    return false;
}

bool BestEffortReader::returns_to(WriterProgress& writer, SequenceNumber number, MonotonicTime now) {
    if (writer.jumped_from == 0 || number < writer.jumped_from || number >= writer.jumped_to)
        return false;
    if (writer.low == 0 || number < writer.low_last) {
        writer.low = 1;
        writer.low_since = now;
    } else if (number > writer.low_last) {
        ++writer.low;
    }
    writer.low_last = number;
    if (writer.low < kReturnSamples || now - writer.low_since < kReturnProof)
        return false;
    writer.low = 0;
    writer.jumped_from = 0;
    writer.delivered_end = writer.next;
    writer.next = number;
    return true;
}

void BestEffortReader::tell_incomplete(const WriterProgress& writer, size_t count) {
    if (count > 0)
        sink_.on_not_taken(writer.guid, NotTaken::incomplete, count);
}

void BestEffortReader::not_taken(WriterProgress& writer, NotTaken reason, SequenceNumber number) {
    if (number != std::exchange(writer.refused, number)) // once for all of its fragments
        sink_.on_not_taken(writer.guid, reason, 1);
}

void BestEffortReader::deliver(WriterProgress& writer, const Sample& sample, bool deliverable) {
    const SequenceNumber expected = writer.next;
    writer.next = sample.sequence_number + 1;
    uint64_t lost = deliverable ? 0 : 1;
    if (expected != 0)
        lost += static_cast<uint64_t>(sample.sequence_number - expected);
    if (sample.sequence_number - expected > (expected == 0 ? kFarAhead : kFew)) {
        if (writer.jumped_from == 0 || sample.received - writer.jumped_at > kJumpPause) {
            writer.jumped_from = std::max<SequenceNumber>(expected, 1);
            writer.jumped_at = sample.received;
        }
        writer.jumped_to = sample.sequence_number;
        writer.delivered_end = 0;
    }
    if (lost > 0)
        sink_.on_lost(writer.guid, lost);
    if (deliverable)
        sink_.on_sample(sample);
    if (!writer.fragments.empty())
        tell_incomplete(writer, writer.fragments.drop_below(writer.next));
}

bool BestEffortReader::on_data(const MessageContext& context, const Data& data, MonotonicTime now) {
    WriterProgress* known = find(Guid{context.source, data.writer});
    if (known == nullptr)
        return false;
    if (!expects(*known, data.sequence_number, now))
        return true;
    Sample sample;
    const bool deliverable = make_sample(known->guid, known->quirks, context, data, now, sample);
    deliver(*known, sample, deliverable);
    return true;
}

bool BestEffortReader::on_data_frag(const MessageContext& context, const DataFrag& fragment,
                                    MonotonicTime now) {
    WriterProgress* known = find(Guid{context.source, fragment.writer});
    if (known == nullptr)
        return false;
    const SequenceNumber number = fragment.sequence_number;
    if (!expects(*known, number, now))
        return true;
    using Result = FragmentAssembler::Result;
    const WireTime timestamp = context.timestamp.value_or(kTimeInvalid);
    Result result = known->fragments.add(fragment, timestamp, now);
    // Nothing is sent again for this reader, so the oldest sample is the least likely to become whole.
    while ((result == Result::no_memory || result == Result::too_many) && known->fragments.drop_lowest()) {
        tell_incomplete(*known, 1);
        result = known->fragments.add(fragment, timestamp, now);
    }
    if (result == Result::too_large) {
        observer_.on_oversized_sample(known->guid, fragment.sample_size, max_sample_size_);
        not_taken(*known, NotTaken::too_large, number);
    } else if (result == Result::no_memory) {
        not_taken(*known, NotTaken::no_memory, number);
    } else if (result == Result::complete) {
        const Sample& whole = known->fragments.whole(number);
        deliver(*known, make_sample(known->guid, known->quirks, context.vendor, whole, now),
                !whole.inline_qos.refused);
    }
    if (!known->fragments.empty())
        timer_.wake_at(now + kFragmentTimeout);
    return true;
}

void BestEffortReader::on_timer(MonotonicTime now) {
    for (auto& entry : writers_) {
        FragmentAssembler& fragments = entry.second->fragments;
        tell_incomplete(*entry.second, fragments.drop_idle(now - kFragmentTimeout));
        if (!fragments.empty())
            timer_.wake_at(now + kFragmentTimeout);
    }
}

} // namespace meridian::rtps
