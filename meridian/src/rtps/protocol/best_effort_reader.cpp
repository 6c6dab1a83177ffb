#include "rtps/protocol/best_effort_reader.h"

#include "rtps/protocol/count.h"

namespace meridian::rtps {

namespace {

// A sample without a new fragment for this long is given up.
constexpr Duration kFragmentTimeout = std::chrono::seconds(3);

} // namespace

/// How far one matched writer has come.
struct BestEffortReader::WriterProgress {
    WriterProgress(const Guid& writer, AssemblyBudget& budget, size_t max_sample_size)
        : guid(writer), fragments(budget, max_sample_size) {}

    Guid guid;
    SequenceNumber next = 0; // 0: nothing came yet
    FragmentAssembler fragments;
};

BestEffortReader::BestEffortReader(size_t max_sample_size, size_t max_memory, ReaderSink& sink,
                                   ReaderObserver& observer, TimerQueue& timers)
    : max_sample_size_(max_sample_size), sink_(sink), observer_(observer), timer_(timers, *this) {
    budget_.limit = max_memory;
}

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
        writers_.emplace(writer.guid,
                         std::make_unique<WriterProgress>(writer.guid, budget_, max_sample_size_));
}

void BestEffortReader::remove_writer(const Guid& writer) {
    last_used_ = nullptr;
    writers_.erase(writer);
}

void BestEffortReader::deliver(WriterProgress& writer, const Sample& sample, bool deliverable) {
    const SequenceNumber expected = writer.next;
    writer.next = sample.sequence_number + 1;
    uint64_t lost = deliverable ? 0 : 1;
    if (expected != 0)
        lost += static_cast<uint64_t>(sample.sequence_number - expected);
    if (lost > 0)
        sink_.on_lost(writer.guid, lost);
    if (deliverable)
        sink_.on_sample(sample);
    if (!writer.fragments.empty())
        writer.fragments.drop_below(writer.next);
}

bool BestEffortReader::on_data(const MessageContext& context, const Data& data, MonotonicTime now) {
    WriterProgress* known = find(Guid{context.source, data.writer});
    if (known == nullptr)
        return false;
    if (data.sequence_number < known->next || !plausible(data.sequence_number))
        return true;
    Sample sample;
    const bool deliverable = make_sample(known->guid, context, data, now, sample);
    deliver(*known, sample, deliverable);
    return true;
}

bool BestEffortReader::on_data_frag(const MessageContext& context, const DataFrag& fragment,
                                    MonotonicTime now) {
    WriterProgress* known = find(Guid{context.source, fragment.writer});
    if (known == nullptr)
        return false;
    if (fragment.sequence_number < known->next || !plausible(fragment.sequence_number))
        return true;
    const WireTime timestamp = context.timestamp.value_or(kTimeInvalid);
    FragmentAssembler::Result result = known->fragments.add(fragment, timestamp, now);
    // Nothing is sent again for this reader, so the oldest sample is the least likely to become whole.
    while (result == FragmentAssembler::Result::no_memory && known->fragments.drop_lowest())
        result = known->fragments.add(fragment, timestamp, now);
    if (result == FragmentAssembler::Result::too_large) {
        observer_.on_oversized_sample(known->guid, fragment.sample_size);
    } else if (result == FragmentAssembler::Result::complete) {
        FragmentAssembler::Assembled whole = known->fragments.take(fragment.sequence_number);
        deliver(*known, make_sample(known->guid, context.vendor, whole, now), !whole.inline_qos.refused);
        known->fragments.recycle(std::move(whole.payload));
    }
    if (!known->fragments.empty())
        timer_.wake_at(now + kFragmentTimeout);
    return true;
}

void BestEffortReader::on_timer(MonotonicTime now) {
    for (auto& entry : writers_) {
        FragmentAssembler& fragments = entry.second->fragments;
        if (now > kFragmentTimeout)
            fragments.drop_idle(now - kFragmentTimeout);
        if (!fragments.empty())
            timer_.wake_at(now + kFragmentTimeout);
    }
}

} // namespace meridian::rtps
