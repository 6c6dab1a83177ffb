#include "rtps/protocol/reliable_reader.h"

#include <algorithm>
#include <array>

#include "rtps/protocol/count.h"

namespace meridian::rtps {

namespace {

constexpr Duration kSameNackPause = std::chrono::milliseconds(10);
constexpr Duration kNackPause = std::chrono::milliseconds(1);
constexpr Duration kStartOverlap = std::chrono::milliseconds(200);
// Heartbeats that name nothing new are answered from a budget: so many at once, then one in each interval.
constexpr int kRepeatedAnswers = 16;
constexpr Duration kRepeatedAnswerInterval = std::chrono::milliseconds(1);
constexpr Duration kFirstPreemptivePause = std::chrono::milliseconds(100);
constexpr Duration kLongestPause = std::chrono::seconds(2);
constexpr Duration kRestartProof = std::chrono::milliseconds(500);
constexpr int kRestartHeartbeats = 3;
constexpr int kRestartLowerEnds = 2;
constexpr size_t kHeldOverhead = 256;
constexpr SequenceNumber kMaxGapMarks = 4096;
constexpr int kMaxNackFrags = 8;
// Fast DDS takes an ACKNACK for pre-emptive only when its base is 0, and then answers at once; others refuse
// base 0.
constexpr VendorId kFastDds{{0x01, 0x0f}};

} // namespace

/// A sample, or the knowledge that it will not come, that waits for those before it.
struct ReliableReader::HeldSample {
    bool deliverable = false;
    Sample sample; // its payload view is not used
    ByteBuffer payload;
};

/// What is known of one matched writer.
struct ReliableReader::WriterProxy final : TimerQueue::Client {
    WriterProxy(ReliableReader& owner, const RemoteWriter& remote)
        : reader(owner),
          writer(remote),
          timer(owner.timers_, *this),
          fragments(owner.budget_, owner.limits_.max_sample_size) {}
    void on_timer(MonotonicTime now) override { reader.on_timer(*this, now); }

    ReliableReader& reader;
    RemoteWriter writer;
    TimerQueue::Timer timer;
    SequenceNumber next = 1;       // everything below was delivered, is irrelevant or lost
    SequenceNumber last_known = 0; // what the writer is known to have written
    bool synchronized = true;      // false: a volatile reader before the first heartbeat
    SequenceNumber start = 0;      // where a volatile reader began; 0: it is past that
    MonotonicTime started_at{0};
    std::map<SequenceNumber, HeldSample> held;
    FragmentAssembler fragments;

    bool heard = false; // a heartbeat came
    Count heartbeat_count = 0;
    SequenceNumber heartbeat_last = 0;
    MonotonicTime heartbeat_time{0};
    bool heard_fragments = false;
    Count fragment_heartbeat_count = 0;
    int old_heartbeats = 0; // in a row, with counts that grow among themselves
    Count old_heartbeat_count = 0;
    MonotonicTime old_since{0};
    int lower_ends = 0; // heartbeats in a row that end below an earlier one

    bool fragments_nacked = false;
    MonotonicTime acknowledge_at = kNever;
    MonotonicTime preempt_at = kNever;
    MonotonicTime retry_at = kNever;
    Duration preempt_pause = kFirstPreemptivePause;
    Duration retry_pause{0};
    SequenceNumber acknowledged_below = 0; // by the last answer; 0: there was none
    MonotonicTime answers_paid_until{0};   // the budget for heartbeats that name nothing new
    MonotonicTime nacked_at = -kSameNackPause;
    SequenceNumber nacked_base = 0; // 0: nothing asked for at present
    MonotonicTime fragments_nacked_at{0};
};

ReliableReader::ReliableReader(EntityId id, bool is_volatile, const ReaderConfig& config,
                               const Limits& limits, ReaderSink& sink, ReaderObserver& observer,
                               MessageBatcher& batcher, TimerQueue& timers)
    : id_(id),
      is_volatile_(is_volatile),
      config_(config),
      limits_(limits),
      sink_(sink),
      observer_(observer),
      batcher_(batcher),
      timers_(timers) {
    budget_.limit = limits.max_memory;
}

ReliableReader::~ReliableReader() = default;

ReliableReader::WriterProxy* ReliableReader::find(const Guid& writer) {
    if (last_used_ != nullptr && last_used_->writer.guid == writer)
        return last_used_;
    const auto at = proxies_.find(writer);
    if (at == proxies_.end())
        return nullptr;
    return last_used_ = at->second.get();
}

void ReliableReader::add_writer(const RemoteWriter& writer, MonotonicTime now) {
    if (WriterProxy* known = find(writer.guid)) {
        known->writer = writer;
        return;
    }
    auto proxy = std::make_unique<WriterProxy>(*this, writer);
    proxy->synchronized = !is_volatile_;
    proxy->preempt_at = now;
    proxy->timer.wake_at(now);
    proxies_.emplace(writer.guid, std::move(proxy));
}

void ReliableReader::remove_writer(const Guid& writer) {
    const auto at = proxies_.find(writer);
    if (at == proxies_.end())
        return;
    for (const auto& held : at->second->held)
        release(held.second);
    last_used_ = nullptr;
    proxies_.erase(at);
}

bool ReliableReader::on_data(const MessageContext& context, const Data& data, MonotonicTime now) {
    WriterProxy* proxy = find(Guid{context.source, data.writer});
    if (proxy == nullptr)
        return false;
    if (is_old(*proxy, data.sequence_number, now) || !plausible(data.sequence_number))
        return true;
    Sample sample;
    const bool deliverable = make_sample(proxy->writer.guid, context, data, now, sample);
    accept(*proxy, sample, deliverable);
    return true;
}

/// A writer may announce a sample by the heartbeat that answers the match before it sends the sample itself:
/// what comes right behind that heartbeat is new, as long as nothing later has been delivered.
bool ReliableReader::is_old(WriterProxy& proxy, SequenceNumber number, MonotonicTime now) {
    if (number >= proxy.next)
        return false;
    if (proxy.next != proxy.start || now > proxy.started_at + kStartOverlap)
        return true;
    proxy.start = 0;
    proxy.next = std::max<SequenceNumber>(number, 1);
    return false;
}

void ReliableReader::accept(WriterProxy& proxy, const Sample& sample, bool deliverable) {
    const SequenceNumber number = sample.sequence_number;
    if (!proxy.synchronized || number != proxy.next) {
        hold(proxy, deliverable ? &sample : nullptr, number);
        return;
    }
    ++proxy.next;
    proxy.last_known = std::max(proxy.last_known, number);
    proxy.retry_pause = Duration(0);
    if (deliverable)
        sink_.on_sample(sample);
    else
        sink_.on_lost(proxy.writer.guid, 1);
    if (!proxy.held.empty() || !proxy.fragments.empty())
        drain(proxy);
}

void ReliableReader::release(const HeldSample& held) {
    budget_.give_back(held.payload.size() + kHeldOverhead);
}

bool ReliableReader::make_room(WriterProxy& proxy, SequenceNumber sequence_number, size_t bytes) {
    while (!budget_.take(bytes)) {
        // What is furthest from delivery gives way; it is asked for again when its turn comes.
        if (!proxy.held.empty() && proxy.held.rbegin()->first > sequence_number) {
            const auto last = std::prev(proxy.held.end());
            release(last->second);
            proxy.held.erase(last);
        } else if (!proxy.fragments.drop_highest_above(sequence_number)) {
            return false;
        }
    }
    return true;
}

void ReliableReader::hold(WriterProxy& proxy, const Sample* sample, SequenceNumber sequence_number) {
    proxy.last_known = std::max(proxy.last_known, sequence_number);
    if (proxy.held.count(sequence_number) != 0)
        return;
    const size_t size = sample != nullptr ? sample->payload.size : 0;
    if (!make_room(proxy, sequence_number, size + kHeldOverhead))
        return;
    HeldSample& held = proxy.held[sequence_number];
    proxy.fragments.drop(sequence_number);
    if (sample == nullptr)
        return;
    held.deliverable = true;
    held.sample = *sample;
    held.payload.assign(sample->payload.begin(), sample->payload.end());
}

void ReliableReader::deliver_held(WriterProxy& proxy, HeldSample& held, SequenceNumber sequence_number) {
    proxy.next = sequence_number + 1;
    proxy.retry_pause = Duration(0);
    release(held);
    if (!held.deliverable)
        return;
    held.sample.payload = held.payload;
    sink_.on_sample(held.sample);
}

void ReliableReader::drain(WriterProxy& proxy) {
    while (!proxy.held.empty() && proxy.held.begin()->first <= proxy.next) {
        const auto first = proxy.held.begin();
        if (first->first == proxy.next)
            deliver_held(proxy, first->second, first->first);
        else
            release(first->second);
        proxy.held.erase(first);
    }
    proxy.fragments.drop_below(proxy.next);
}

void ReliableReader::advance(WriterProxy& proxy, SequenceNumber to, bool count_losses) {
    uint64_t lost = 0;
    while (!proxy.held.empty() && proxy.held.begin()->first < to) {
        const auto first = proxy.held.begin();
        if (first->first >= proxy.next) {
            lost += static_cast<uint64_t>(first->first - proxy.next);
            deliver_held(proxy, first->second, first->first);
        } else {
            release(first->second);
        }
        proxy.held.erase(first);
    }
    if (proxy.next < to) {
        lost += static_cast<uint64_t>(to - proxy.next);
        proxy.next = to;
        proxy.retry_pause = Duration(0);
    }
    if (count_losses && lost > 0)
        sink_.on_lost(proxy.writer.guid, lost);
    drain(proxy);
}

void ReliableReader::mark_irrelevant(WriterProxy& proxy, SequenceNumber from, SequenceNumber to) {
    // A gap far ahead is not noted in full: what is forgotten is asked for later, and told again.
    to = std::min(to, from + kMaxGapMarks);
    for (SequenceNumber number = std::max(from, proxy.next); number < to; ++number)
        hold(proxy, nullptr, number);
}

bool ReliableReader::on_data_frag(const MessageContext& context, const DataFrag& fragment,
                                  MonotonicTime now) {
    WriterProxy* proxy = find(Guid{context.source, fragment.writer});
    if (proxy == nullptr)
        return false;
    const SequenceNumber number = fragment.sequence_number;
    if (is_old(*proxy, number, now) || !plausible(number) || proxy->held.count(number) != 0)
        return true;
    const WireTime timestamp = context.timestamp.value_or(kTimeInvalid);
    FragmentAssembler::Result result = proxy->fragments.add(fragment, timestamp, now);
    if (result == FragmentAssembler::Result::no_memory && make_room(*proxy, number, fragment.sample_size)) {
        budget_.give_back(fragment.sample_size);
        result = proxy->fragments.add(fragment, timestamp, now);
    }
    if (result == FragmentAssembler::Result::stored)
        proxy->retry_pause = Duration(0);
    if (result == FragmentAssembler::Result::too_large) {
        observer_.on_oversized_sample(proxy->writer.guid, fragment.sample_size);
        Sample lost;
        lost.sequence_number = number;
        accept(*proxy, lost, false);
    } else if (result == FragmentAssembler::Result::complete) {
        FragmentAssembler::Assembled whole = proxy->fragments.take(number);
        accept(*proxy, make_sample(proxy->writer.guid, context.vendor, whole, now),
               !whole.inline_qos.refused);
        proxy->fragments.recycle(std::move(whole.payload));
    }
    return true;
}

void ReliableReader::on_heartbeat(const Guid& writer, const Heartbeat& heartbeat, MonotonicTime now) {
    WriterProxy* proxy = find(writer);
    if (proxy == nullptr || !plausible(heartbeat.first) || heartbeat.last < heartbeat.first - 1 ||
        heartbeat.last > kHighestSequenceNumber)
        return;
    WriterProxy& p = *proxy;
    if (p.heard && !newer(heartbeat.count, p.heartbeat_count)) {
        if (p.old_heartbeats == 0)
            p.old_since = now;
        else if (!newer(heartbeat.count, p.old_heartbeat_count))
            return;
        p.old_heartbeat_count = heartbeat.count;
        ++p.old_heartbeats;
        // Delayed and repeated packets look old too, but not for so long while nothing newer comes.
        if (p.old_heartbeats < kRestartHeartbeats || now - p.old_since < kRestartProof ||
            now - p.heartbeat_time < kRestartProof)
            return;
        restart(p, heartbeat, now);
        return;
    }
    p.lower_ends = p.heard && heartbeat.last < p.heartbeat_last ? p.lower_ends + 1 : 0;
    if (p.lower_ends >= kRestartLowerEnds) {
        restart(p, heartbeat, now);
        return;
    }
    const bool first_contact = !p.heard;
    p.heard = true;
    p.preempt_at = kNever;
    p.old_heartbeats = 0;
    p.heartbeat_count = heartbeat.count;
    p.heartbeat_last = std::max(p.heartbeat_last, heartbeat.last);
    p.heartbeat_time = now;
    if (!p.synchronized) {
        p.synchronized = true;
        p.next = heartbeat.last + 1;
        if (!p.held.empty())
            p.next = std::min(p.next, p.held.begin()->first);
        p.start = p.next;
        p.started_at = now;
    }
    p.last_known = std::max(p.last_known, heartbeat.last);
    if (heartbeat.first > p.next)
        advance(p, heartbeat.first, !first_contact);
    else
        drain(p);
    if (!heartbeat.final || p.next <= p.last_known)
        want_acknowledgement(p, now);
}

void ReliableReader::restart(WriterProxy& p, const Heartbeat& heartbeat, MonotonicTime now) {
    for (const auto& held : p.held)
        release(held.second);
    p.held.clear();
    p.fragments.clear();
    p.next = is_volatile_ ? heartbeat.last + 1 : heartbeat.first;
    p.last_known = heartbeat.last;
    p.heartbeat_count = heartbeat.count;
    p.heartbeat_last = heartbeat.last;
    p.heartbeat_time = now;
    p.heard_fragments = false;
    p.old_heartbeats = 0;
    p.lower_ends = 0;
    p.nacked_base = 0;
    p.retry_pause = Duration(0);
    want_acknowledgement(p, now);
    observer_.on_writer_restarted(p.writer.guid); // last: it may remove this writer
}

void ReliableReader::on_heartbeat_frag(const Guid& writer, const HeartbeatFrag& heartbeat,
                                       MonotonicTime now) {
    WriterProxy* p = find(writer);
    if (p == nullptr || !p->synchronized || heartbeat.sequence_number < p->next ||
        p->held.count(heartbeat.sequence_number) != 0)
        return;
    if (p->heard_fragments && !newer(heartbeat.count, p->fragment_heartbeat_count))
        return;
    p->heard_fragments = true;
    p->fragment_heartbeat_count = heartbeat.count;
    if (p->fragments_nacked && now - p->fragments_nacked_at < kSameNackPause)
        return;
    FragmentNumberSet missing;
    if (p->fragments.missing(heartbeat.sequence_number, missing)) {
        if (missing.base > heartbeat.last_fragment)
            return; // those that were sent have come
    } else {
        missing.base = 1;
        for (FragmentNumber i = 1; i <= std::min<FragmentNumber>(heartbeat.last_fragment, 256); ++i)
            missing.insert(i);
    }
    if (missing.empty())
        return;
    p->fragments_nacked = true;
    p->fragments_nacked_at = now;
    send_nack_frag(*p, heartbeat.sequence_number, missing);
}

void ReliableReader::on_gap(const Guid& writer, const Gap& gap, MonotonicTime) {
    WriterProxy* p = find(writer);
    // Before the first heartbeat a volatile reader has no position that a gap could move.
    if (p == nullptr || !p->synchronized || !plausible(gap.start) || !plausible(gap.list.base) ||
        gap.list.base < gap.start)
        return;
    if (gap.start <= p->next)
        advance(*p, std::max(p->next, gap.list.base), false);
    else
        mark_irrelevant(*p, gap.start, gap.list.base);
    for (uint32_t bit = 0; bit < gap.list.num_bits; ++bit) {
        const SequenceNumber number = gap.list.base + bit;
        if (number >= p->next && gap.list.contains(number))
            hold(*p, nullptr, number);
    }
    drain(*p);
}

void ReliableReader::want_acknowledgement(WriterProxy& p, MonotonicTime now) {
    // What has come is acknowledged at once: the writer may be waiting for it. Only what was said before
    // waits.
    MonotonicTime when = now;
    if (p.next <= p.last_known)
        when = std::max(when, p.nacked_at + (p.nacked_base == p.next ? kSameNackPause : kNackPause));
    else if (p.next == p.acknowledged_below)
        when = std::max(when, p.answers_paid_until - kRepeatedAnswers * kRepeatedAnswerInterval);
    p.acknowledge_at = std::min(p.acknowledge_at, when);
    p.timer.wake_at(p.acknowledge_at);
}

void ReliableReader::send_preemptive(WriterProxy& p, MonotonicTime now) {
    AckNack acknack;
    acknack.reader = id_;
    acknack.writer = p.writer.guid.entity;
    acknack.missing.base = p.writer.vendor == kFastDds ? 0 : 1;
    acknack.final = false;
    acknack_count_ = acknack.count = next_count(acknack_count_);
    batcher_.add(p.writer.route, acknack);
    p.preempt_at = now + p.preempt_pause;
    p.preempt_pause = std::min(p.preempt_pause * 2, kLongestPause);
}

void ReliableReader::send_nack_frag(WriterProxy& p, SequenceNumber sequence_number,
                                    const FragmentNumberSet& missing) {
    nackfrag_count_ = next_count(nackfrag_count_);
    batcher_.add(p.writer.route,
                 NackFrag{id_, p.writer.guid.entity, sequence_number, missing, nackfrag_count_});
}

void ReliableReader::send_acknack(WriterProxy& p, MonotonicTime now) {
    AckNack acknack;
    acknack.reader = id_;
    acknack.writer = p.writer.guid.entity;
    acknack.missing.base = p.next;
    std::array<SequenceNumber, kMaxNackFrags> unfinished{};
    size_t unfinished_count = 0;
    auto held = p.held.begin();
    const SequenceNumber end = std::min(p.last_known, p.next + (SequenceNumberSet::kMaxBits - 1));
    for (SequenceNumber number = p.next; number <= end; ++number) {
        while (held != p.held.end() && held->first < number)
            ++held;
        if (held != p.held.end() && held->first == number)
            continue;
        if (!p.fragments.empty() && p.fragments.has(number)) {
            // Its fragments are asked for one by one; when there are too many such samples, later.
            if (unfinished_count < unfinished.size())
                unfinished[unfinished_count++] = number;
            continue;
        }
        acknack.missing.insert(number);
    }
    const bool incomplete = p.next <= p.last_known;
    acknack.final = !incomplete;
    acknack_count_ = acknack.count = next_count(acknack_count_);
    batcher_.add(p.writer.route, acknack);
    for (size_t i = 0; i < unfinished_count; ++i) {
        FragmentNumberSet missing;
        if (p.fragments.missing(unfinished[i], missing) && !missing.empty())
            send_nack_frag(p, unfinished[i], missing);
    }
    p.acknowledge_at = kNever;
    if (p.next == p.acknowledged_below)
        p.answers_paid_until = std::max(p.answers_paid_until, now) + kRepeatedAnswerInterval;
    p.acknowledged_below = p.next;
    p.nacked_base = incomplete ? p.next : 0;
    p.retry_at = kNever;
    if (incomplete) {
        p.nacked_at = now;
        p.retry_pause =
            p.retry_pause == Duration(0) ? config_.nack_retry : std::min(p.retry_pause * 2, kLongestPause);
        p.retry_at = now + p.retry_pause;
    }
}

void ReliableReader::on_timer(WriterProxy& p, MonotonicTime now) {
    if (p.preempt_at <= now)
        send_preemptive(p, now);
    if (p.retry_at <= now && p.next > p.last_known)
        p.retry_at = kNever;
    if (p.acknowledge_at <= now || p.retry_at <= now)
        send_acknack(p, now);
    p.timer.wake_at(std::min({p.preempt_at, p.acknowledge_at, p.retry_at}));
}

} // namespace meridian::rtps
