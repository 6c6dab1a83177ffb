#include "rtps/protocol/fragment_assembler.h"

#include <algorithm>
#include <cstring>

namespace meridian::rtps {

namespace {

// A spare of at most this part of the budget is kept, and while half of the budget is used of the other: then
// a writer of small samples goes on, whatever others do.
constexpr size_t kSparePart = 256;
constexpr size_t kSparePartInNeed = 2048;

/// So many bytes may be had of a sample once so many of them have come.
uint64_t reach(uint64_t received_bytes) {
    return 4 * received_bytes + FragmentAssembler::kHeadStart;
}

} // namespace

FragmentAssembler::FragmentAssembler(MemoryShare& share, size_t max_sample_size)
    : share_(share), max_sample_size_(max_sample_size) {}

FragmentAssembler::~FragmentAssembler() {
    clear();
    if (spare_)
        share_.give_back(spare_->charged);
}

FragmentAssembler::Samples::difference_type FragmentAssembler::place(SequenceNumber sequence_number) const {
    return std::lower_bound(
               samples_.begin(), samples_.end(), sequence_number,
               [](const std::unique_ptr<Partial>& p, SequenceNumber n) { return p->sequence_number < n; }) -
           samples_.begin();
}

FragmentAssembler::Partial* FragmentAssembler::find(SequenceNumber sequence_number) const {
    const auto at = samples_.begin() + place(sequence_number);
    return at != samples_.end() && (*at)->sequence_number == sequence_number ? at->get() : nullptr;
}

void FragmentAssembler::retire(std::unique_ptr<Partial> partial) {
    const MemoryBudget& budget = share_.budget();
    const size_t part = budget.used() < budget.limit() / 2 ? kSparePart : kSparePartInNeed;
    if (!spare_ && partial->charged <= budget.limit() / part)
        spare_ = std::move(partial);
    else
        share_.give_back(partial->charged);
}

void FragmentAssembler::erase(Samples::difference_type place) {
    retire(std::move(samples_[static_cast<size_t>(place)]));
    samples_.erase(samples_.begin() + place);
}

std::unique_ptr<FragmentAssembler::Partial> FragmentAssembler::begin(const DataFrag& fragment,
                                                                     WireTime timestamp) {
    std::unique_ptr<Partial> partial = std::move(spare_);
    if (!partial)
        partial = std::make_unique<Partial>();
    static_cast<Sample&>(*partial) = {};
    partial->sequence_number = fragment.sequence_number;
    partial->source_timestamp = timestamp;
    partial->has_payload = true;
    partial->payload_is_key = fragment.payload_is_key;
    partial->sample_size = fragment.sample_size;
    partial->fragment_size = fragment.fragment_size;
    partial->total = (fragment.sample_size - 1) / fragment.fragment_size + 1;
    partial->received = 0;
    partial->first_missing = 0;
    partial->received_bytes = 0;
    partial->have.clear();
    return partial;
}

FragmentAssembler::Result FragmentAssembler::make_room(const DataFrag& fragment, Partial& partial) {
    const uint64_t size = partial.sample_size;
    const uint64_t step = partial.fragment_size;
    const uint64_t first = fragment.first_fragment - uint64_t{1};
    const uint64_t end = first + fragment.fragment_count;
    const uint64_t end_byte = std::min(size, end * step);
    if (end_byte <= partial.bytes.capacity() && end <= partial.have.size())
        return Result::stored;
    const uint64_t bytes = std::min(size, reach(partial.received_bytes + end_byte - first * step));
    if (end_byte > bytes)
        return Result::too_far;
    const size_t fragments = (bytes + step - 1) / step;
    const size_t capacity = std::max<size_t>(partial.bytes.capacity(), bytes);
    // Vectors take up to twice of what they hold.
    const size_t charge = sizeof(Partial) + capacity + fragments / 4;
    if (charge > partial.charged) {
        if (!share_.take(charge - partial.charged))
            return Result::no_memory;
        partial.charged = charge;
    }
    if (!partial.bytes.grow(capacity))
        return Result::no_memory;
    partial.have.resize(std::max(partial.have.size(), fragments));
    return Result::stored;
}

FragmentAssembler::Result FragmentAssembler::check(const DataFrag& fragment) const {
    const uint64_t size = fragment.sample_size;
    const uint64_t step = fragment.fragment_size;
    if (size == 0 || step == 0 || fragment.first_fragment == 0 || fragment.fragment_count == 0)
        return Result::malformed;
    if (size > max_sample_size_)
        return Result::too_large;
    const uint64_t first = fragment.first_fragment - uint64_t{1};
    const uint64_t end = first + fragment.fragment_count;
    if (end > (size + step - 1) / step || fragment.payload.size < std::min(size, end * step) - first * step)
        return Result::malformed;
    return Result::stored;
}

bool FragmentAssembler::copy(const DataFrag& fragment, Partial& partial) {
    const uint64_t size = fragment.sample_size;
    const uint64_t step = fragment.fragment_size;
    const uint64_t first = fragment.first_fragment - uint64_t{1};
    bool news = false;
    for (uint64_t i = first; i < first + fragment.fragment_count; ++i) {
        if (partial.have[i])
            continue;
        partial.have[i] = true;
        ++partial.received;
        news = true;
        const uint64_t from = i * step;
        const uint64_t bytes = std::min(size - from, step);
        partial.received_bytes += bytes;
        std::memcpy(partial.bytes.data() + from, fragment.payload.data + (from - first * step), bytes);
    }
    return news;
}

FragmentAssembler::Result FragmentAssembler::add(const DataFrag& fragment, WireTime timestamp,
                                                 MonotonicTime now) {
    if (const Result result = check(fragment); result != Result::stored)
        return result;
    Partial* known = find(fragment.sequence_number);
    std::unique_ptr<Partial> begun;
    if (known == nullptr) {
        // The one closest to delivery stays: what comes later is asked for again.
        if (samples_.size() == kMaxSamples && fragment.sequence_number > samples_.back()->sequence_number)
            return Result::too_many;
        begun = begin(fragment, timestamp);
    } else if (known->sample_size != fragment.sample_size || known->fragment_size != fragment.fragment_size) {
        // What came first stands: who is right is not known, and starting over would be expensive.
        return Result::malformed;
    }
    Partial& partial = begun ? *begun : *known;
    if (const Result room = make_room(fragment, partial); room != Result::stored) {
        if (begun)
            retire(std::move(begun));
        return room;
    }
    if (begun) {
        if (samples_.size() == kMaxSamples)
            drop_highest_above(fragment.sequence_number);
        samples_.insert(samples_.begin() + place(fragment.sequence_number), std::move(begun));
    }
    if (!fragment.inline_qos.empty())
        decode_inline_qos(fragment.inline_qos, fragment.endianness, partial.inline_qos);
    if (!copy(fragment, partial))
        return Result::duplicate;
    partial.touched = now;
    if (partial.received < partial.total)
        return Result::stored;
    partial.payload = {partial.bytes.data(), partial.sample_size};
    return Result::complete;
}

bool FragmentAssembler::is_whole(SequenceNumber sequence_number) const {
    const Partial* partial = find(sequence_number);
    return partial != nullptr && partial->received == partial->total;
}

GrowingBuffer FragmentAssembler::take(SequenceNumber sequence_number) {
    Partial& partial = *find(sequence_number);
    GrowingBuffer bytes = std::move(partial.bytes);
    partial.charged -= bytes.capacity();
    drop(sequence_number);
    return bytes;
}

bool FragmentAssembler::missing(SequenceNumber sequence_number, FragmentNumberSet& out) {
    Partial* const partial = find(sequence_number);
    if (partial == nullptr)
        return false;
    const std::vector<bool>& have = partial->have;
    while (partial->first_missing < have.size() && have[partial->first_missing])
        ++partial->first_missing;
    out = {};
    out.base = partial->first_missing + 1;
    const uint64_t end =
        std::min<uint64_t>(partial->total, uint64_t{out.base} - 1 + FragmentNumberSet::kMaxBits);
    for (FragmentNumber i = partial->first_missing; i < end; ++i) {
        if (i >= have.size() || !have[i])
            out.insert(i + 1);
    }
    return true;
}

void FragmentAssembler::drop(SequenceNumber sequence_number) {
    if (has(sequence_number))
        erase(place(sequence_number));
}

size_t FragmentAssembler::drop_below(SequenceNumber sequence_number) {
    size_t unfinished = 0;
    while (!samples_.empty() && samples_.front()->sequence_number < sequence_number) {
        unfinished += samples_.front()->received < samples_.front()->total ? 1u : 0u;
        drop_lowest();
    }
    return unfinished;
}

bool FragmentAssembler::drop_lowest() {
    if (samples_.empty())
        return false;
    erase(0);
    return true;
}

bool FragmentAssembler::drop_highest_above(SequenceNumber sequence_number) {
    if (samples_.empty() || samples_.back()->sequence_number <= sequence_number)
        return false;
    erase(samples_.end() - samples_.begin() - 1);
    return true;
}

size_t FragmentAssembler::drop_idle(MonotonicTime before) {
    size_t count = 0;
    for (size_t i = samples_.size(); i-- > 0;) {
        if (samples_[i]->touched > before)
            continue;
        erase(static_cast<Samples::difference_type>(i));
        ++count;
    }
    return count;
}

void FragmentAssembler::clear() {
    while (drop_lowest()) {
    }
}

} // namespace meridian::rtps
