#include "rtps/protocol/fragment_assembler.h"

#include <algorithm>
#include <cstring>

namespace meridian::rtps {

FragmentAssembler::FragmentAssembler(AssemblyBudget& budget, size_t max_sample_size)
    : budget_(budget), max_sample_size_(max_sample_size) {}

FragmentAssembler::~FragmentAssembler() {
    clear();
}

FragmentAssembler::Place FragmentAssembler::lower_bound(SequenceNumber sequence_number) {
    return std::lower_bound(samples_.begin(), samples_.end(), sequence_number,
                            [](const Partial& p, SequenceNumber n) { return p.sequence_number < n; });
}

FragmentAssembler::Place FragmentAssembler::find(SequenceNumber sequence_number) {
    const auto at = lower_bound(sequence_number);
    return at != samples_.end() && at->sequence_number == sequence_number ? at : samples_.end();
}

bool FragmentAssembler::has(SequenceNumber sequence_number) const {
    return std::any_of(samples_.begin(), samples_.end(),
                       [&](const Partial& p) { return p.sequence_number == sequence_number; });
}

FragmentAssembler::Place FragmentAssembler::erase(Place at) {
    budget_.give_back(at->sample_size);
    recycle(std::move(at->payload));
    spare_have_ = std::move(at->have);
    return samples_.erase(at);
}

void FragmentAssembler::recycle(ByteBuffer&& buffer) {
    if (buffer.capacity() > spare_bytes_.capacity())
        spare_bytes_ = std::move(buffer);
}

FragmentAssembler::Result FragmentAssembler::add(const DataFrag& fragment, WireTime timestamp,
                                                 MonotonicTime now) {
    const uint64_t size = fragment.sample_size;
    const uint64_t step = fragment.fragment_size;
    if (size == 0 || step == 0 || fragment.first_fragment == 0 || fragment.fragment_count == 0)
        return Result::malformed;
    if (size > max_sample_size_)
        return Result::too_large;
    const uint64_t total = (size + step - 1) / step;
    const uint64_t first = fragment.first_fragment - uint64_t{1};
    const uint64_t end = first + fragment.fragment_count;
    if (end > total)
        return Result::malformed;
    const uint64_t begin_byte = first * step;
    const uint64_t end_byte = std::min(size, end * step);
    if (fragment.payload.size < end_byte - begin_byte)
        return Result::malformed;

    auto at = find(fragment.sequence_number);
    if (at != samples_.end() &&
        (at->sample_size != fragment.sample_size || at->fragment_size != fragment.fragment_size)) {
        // The writer changed its mind about this sample: only the newer form can become whole.
        erase(at);
        at = samples_.end();
    }
    if (at == samples_.end()) {
        if (samples_.size() == kMaxSamples) {
            // The one closest to delivery stays: what comes later is asked for again.
            if (fragment.sequence_number > samples_.back().sequence_number)
                return Result::no_memory;
            erase(std::prev(samples_.end()));
        }
        if (!budget_.take(fragment.sample_size))
            return Result::no_memory;
        Partial partial;
        partial.sequence_number = fragment.sequence_number;
        partial.sample_size = fragment.sample_size;
        partial.fragment_size = fragment.fragment_size;
        partial.total = static_cast<FragmentNumber>(total);
        partial.payload_is_key = fragment.payload_is_key;
        partial.timestamp = timestamp;
        partial.payload = std::move(spare_bytes_);
        partial.have = std::move(spare_have_);
        spare_bytes_ = {};
        spare_have_ = {};
        partial.payload.resize(fragment.sample_size);
        partial.have.assign(total, false);
        at = samples_.insert(lower_bound(fragment.sequence_number), std::move(partial));
    }
    if (!fragment.inline_qos.empty())
        decode_inline_qos(fragment.inline_qos, fragment.endianness, at->inline_qos);
    at->touched = now;
    bool news = false;
    for (uint64_t i = first; i < end; ++i) {
        if (at->have[i])
            continue;
        at->have[i] = true;
        ++at->received;
        news = true;
        const uint64_t from = i * step;
        std::memcpy(at->payload.data() + from, fragment.payload.data + (from - begin_byte),
                    std::min(size - from, step));
    }
    if (at->received == at->total)
        return Result::complete;
    return news ? Result::stored : Result::duplicate;
}

FragmentAssembler::Assembled FragmentAssembler::take(SequenceNumber sequence_number) {
    const auto at = find(sequence_number);
    if (at == samples_.end())
        return {};
    Assembled result = std::move(*at);
    at->payload = {};
    erase(at);
    return result;
}

bool FragmentAssembler::missing(SequenceNumber sequence_number, FragmentNumberSet& out) const {
    const auto at = std::find_if(samples_.begin(), samples_.end(),
                                 [&](const Partial& p) { return p.sequence_number == sequence_number; });
    if (at == samples_.end())
        return false;
    out = {};
    for (FragmentNumber i = 0; i < at->total; ++i) {
        if (at->have[i])
            continue;
        if (out.num_bits == 0)
            out.base = i + 1;
        if (!out.insert(i + 1))
            break;
    }
    return true;
}

void FragmentAssembler::drop(SequenceNumber sequence_number) {
    const auto at = find(sequence_number);
    if (at != samples_.end())
        erase(at);
}

void FragmentAssembler::drop_below(SequenceNumber sequence_number) {
    while (!samples_.empty() && samples_.front().sequence_number < sequence_number)
        erase(samples_.begin());
}

bool FragmentAssembler::drop_lowest() {
    if (samples_.empty())
        return false;
    erase(samples_.begin());
    return true;
}

bool FragmentAssembler::drop_highest_above(SequenceNumber sequence_number) {
    if (samples_.empty() || samples_.back().sequence_number <= sequence_number)
        return false;
    erase(std::prev(samples_.end()));
    return true;
}

void FragmentAssembler::drop_idle(MonotonicTime before) {
    for (auto at = samples_.begin(); at != samples_.end();)
        at = at->touched >= before ? std::next(at) : erase(at);
}

void FragmentAssembler::clear() {
    while (drop_lowest()) {
    }
}

} // namespace meridian::rtps
