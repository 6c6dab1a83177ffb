#include "rtps/protocol/best_effort_reader.h"

#include "rtps/protocol/count.h"

namespace meridian::rtps {

namespace {

// A sample without a new fragment for this long is given up.
constexpr Duration kFragmentTimeout = std::chrono::seconds(3);

} // namespace

struct BestEffortReader::Proxy {
    Proxy(const Guid& guid, MemoryBudget& budget, size_t max_sample_size)
        : writer(guid), fragments(budget, max_sample_size) {}

    Guid writer;
    SequenceNumber next = 0; // 0: nothing came yet
    FragmentAssembler fragments;
};

BestEffortReader::BestEffortReader(size_t max_sample_size, size_t max_memory, SampleSink& sink,
                                   ReaderObserver& observer)
    : max_sample_size_(max_sample_size), sink_(sink), observer_(observer) {
    budget_.limit = max_memory;
}

BestEffortReader::~BestEffortReader() = default;

BestEffortReader::Proxy* BestEffortReader::find(const Guid& writer) {
    if (last_used_ != nullptr && last_used_->writer == writer)
        return last_used_;
    const auto at = proxies_.find(writer);
    if (at == proxies_.end())
        return nullptr;
    return last_used_ = at->second.get();
}

void BestEffortReader::add_writer(const RemoteWriter& writer, MonotonicTime) {
    if (find(writer.guid) == nullptr)
        proxies_.emplace(writer.guid, std::make_unique<Proxy>(writer.guid, budget_, max_sample_size_));
}

void BestEffortReader::remove_writer(const Guid& writer) {
    last_used_ = nullptr;
    proxies_.erase(writer);
}

void BestEffortReader::deliver(Proxy& proxy, const Sample& sample, bool deliverable) {
    const SequenceNumber expected = proxy.next;
    proxy.next = sample.sequence_number + 1;
    uint64_t lost = deliverable ? 0 : 1;
    if (expected != 0)
        lost += static_cast<uint64_t>(sample.sequence_number - expected);
    if (lost > 0)
        sink_.on_lost(proxy.writer, lost);
    if (deliverable)
        sink_.on_sample(sample);
    if (!proxy.fragments.empty())
        proxy.fragments.drop_below(proxy.next);
}

bool BestEffortReader::on_data(const MessageContext& context, const Data& data, MonotonicTime now) {
    Proxy* proxy = find(Guid{context.source, data.writer});
    if (proxy == nullptr)
        return false;
    if (data.sequence_number < proxy->next || !plausible(data.sequence_number))
        return true;
    Sample sample;
    const bool deliverable = make_sample(proxy->writer, context, data, now, sample);
    deliver(*proxy, sample, deliverable);
    return true;
}

bool BestEffortReader::on_data_frag(const MessageContext& context, const DataFrag& fragment,
                                    MonotonicTime now) {
    Proxy* proxy = find(Guid{context.source, fragment.writer});
    if (proxy == nullptr)
        return false;
    if (fragment.sequence_number < proxy->next || !plausible(fragment.sequence_number))
        return true;
    const WireTime timestamp = context.timestamp.value_or(kTimeInvalid);
    FragmentAssembler::Result result = proxy->fragments.add(fragment, timestamp, now);
    // Nothing is sent again for this reader, so the oldest sample is the least likely to become whole.
    while (result == FragmentAssembler::Result::no_memory && proxy->fragments.drop_lowest())
        result = proxy->fragments.add(fragment, timestamp, now);
    if (result == FragmentAssembler::Result::too_large) {
        observer_.on_oversized_sample(proxy->writer, fragment.sample_size);
    } else if (result == FragmentAssembler::Result::complete) {
        FragmentAssembler::Assembled whole = proxy->fragments.take(fragment.sequence_number);
        Sample sample;
        sample.writer = proxy->writer;
        sample.vendor = context.vendor;
        sample.sequence_number = fragment.sequence_number;
        sample.source_timestamp = whole.timestamp;
        sample.received = now;
        sample.inline_qos = whole.inline_qos;
        sample.has_payload = true;
        sample.payload_is_key = whole.payload_is_key;
        sample.payload = whole.payload;
        deliver(*proxy, sample, !whole.inline_qos.refused);
        proxy->fragments.recycle(std::move(whole.payload));
    }
    if (!proxy->fragments.empty())
        wake_at(now + kFragmentTimeout);
    return true;
}

void BestEffortReader::on_timer(MonotonicTime now) {
    if (now < deadline_)
        return;
    deadline_ = kNever;
    for (auto& entry : proxies_) {
        FragmentAssembler& fragments = entry.second->fragments;
        if (now > kFragmentTimeout)
            fragments.drop_idle(now - kFragmentTimeout);
        if (!fragments.empty())
            wake_at(now + kFragmentTimeout);
    }
}

} // namespace meridian::rtps
