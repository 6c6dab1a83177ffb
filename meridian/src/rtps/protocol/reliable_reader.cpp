#include "rtps/protocol/reliable_reader.h"

#include <algorithm>
#include <array>
#include <utility>

#include "rtps/protocol/count.h"
#include "rtps/protocol/heartbeat_judge.h"

namespace meridian::rtps {

namespace {

constexpr Duration kSameNackPause = std::chrono::milliseconds(10);
constexpr Duration kNackPause = std::chrono::milliseconds(1);
constexpr Duration kStartOverlap = std::chrono::milliseconds(200);
constexpr Duration kStartPause = std::chrono::milliseconds(50);
// Heartbeats that name nothing new are answered from a budget: so many at once, then one in each interval.
// A writer without samples may answer each acknowledgement with a heartbeat that wants the next one:
// embeddedRTPS, on processors that have better to do.
constexpr int kRepeatedAnswers = 16;
constexpr Duration kRepeatedAnswerInterval = std::chrono::milliseconds(20);
constexpr Duration kFirstPreemptivePause = std::chrono::milliseconds(100);
constexpr Duration kLongestPause = std::chrono::seconds(2);
// A writer in doubt is asked so often, for so long.
constexpr Duration kAskPause = kFirstPreemptivePause;
constexpr Duration kAskFor = std::chrono::seconds(1);
// For so long after a jump the reader can return; jumps in quick succession are one.
constexpr Duration kJumpDoubt = std::chrono::seconds(30);
constexpr Duration kOneJump = std::chrono::seconds(1);
constexpr int kMaxNackFrags = 8;

} // namespace

/// A sample that waits for those before it.
struct ReliableReader::HeldSample {
    Sample sample; // its payload points into the other one
    GrowingBuffer payload;

    static size_t overhead() { return sizeof(HeldSample) + 64; } // with its place in the map
    size_t charge() const { return overhead() + payload.capacity(); }
};

/// What is known of one matched writer.
struct ReliableReader::WriterProxy final : TimerQueue::Client {
    WriterProxy(ReliableReader& owner, const RemoteWriter& remote)
        : reader(owner),
          writer(remote),
          timer(owner.timers_, *this),
          memory(*owner.limits_.memory),
          fragments(memory, owner.limits_.max_sample_size) {}
    void on_timer(MonotonicTime now) override { reader.on_timer(*this, now); }
    /// Number 1 is said of nothing too, and meant where it came.
    bool says_nothing(const Heartbeat& heartbeat) const {
        return writer.quirks.has(kKnowsNoEmptyRange) && heartbeat.first == 1 && heartbeat.last == 1 &&
               next != 2 && held.count(1) == 0 && !fragments.has(1);
    }

    ReliableReader& reader;
    RemoteWriter writer;
    TimerQueue::Timer timer;
    SequenceNumber next = 1;       // everything below was delivered, is irrelevant or lost
    SequenceNumber last_known = 0; // what the writer has written by its latest heartbeat
    bool synchronized = true;      // false: a volatile reader before the first heartbeat
    bool fragments_nacked = false;
    SequenceNumber start = 0; // where a volatile reader began; 0: it is past that
    MonotonicTime started_at{0};
    MemoryShare memory;
    std::map<SequenceNumber, HeldSample> held;
    FragmentAssembler fragments;
    NumberIntervals irrelevant; // and not to be waited for
    MonotonicTime fragments_checked_at = kNever;

    HeartbeatJudge heartbeats;
    SequenceNumber jumped_from = 0; // where the latest jump began; 0: there was none
    MonotonicTime jumped_at{0};
    SenderCount fragment_heartbeats;
    MonotonicTime acknowledge_at = kNever;
    MonotonicTime preempt_at = kNever;
    MonotonicTime preempted_at = -kAskPause;
    MonotonicTime asked_until{0};
    MonotonicTime retry_at = kNever;
    Duration preempt_pause = kFirstPreemptivePause;
    Duration retry_pause{0};
    SequenceNumber acknowledged_below = 0; // by the last answer; 0: there was none
    MonotonicTime answered_at = kNever;    // the latest time
    MonotonicTime answers_paid_until{0};   // the budget for heartbeats that name nothing new
    MonotonicTime nacked_at = -kSameNackPause;
    SequenceNumber nacked_base = 0; // 0: nothing asked for at present
    MonotonicTime fragments_nacked_at{0};
};

ReliableReader::ReliableReader(EntityId id, bool is_volatile, const ReaderConfig& config,
                               const Limits& limits, ReaderSink& sink, ReaderObserver& observer,
                               MessageBatcher& batcher, TimerQueue& timers)
    : Reader(sink),
      id_(id),
      is_volatile_(is_volatile),
      config_(config),
      limits_(limits),
      observer_(observer),
      batcher_(batcher),
      timers_(timers) {
    if (config.builtin_peer) {
        limits_.memory = &builtin_memory_;
        limits_.max_sample_size = std::min(limits_.max_sample_size, kLargestAnnouncement);
    }
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
    last_used_ = nullptr;
    proxies_.erase(writer);
}

bool ReliableReader::on_data(const MessageContext& context, const Data& data, MonotonicTime now) {
    WriterProxy* proxy = find(Guid{context.source, data.writer});
    if (proxy == nullptr)
        return false;
    if (!is_believed(proxy->writer.guid, data.sequence_number, observer_) ||
        is_old(*proxy, data.sequence_number, now))
        return true;
    Sample sample;
    const bool deliverable =
        make_sample(proxy->writer.guid, proxy->writer.quirks, context, data, now, sample);
    accept(*proxy, sample, deliverable);
    return true;
}

/// A writer may announce a sample by the heartbeat that answers the match before it sends the sample itself:
/// what comes right behind that heartbeat is new, as long as nothing later has been delivered. What is
/// further ahead than any writer would be is not taken either: a heartbeat must name it first.
bool ReliableReader::is_old(WriterProxy& proxy, SequenceNumber number, MonotonicTime now) {
    if (number >= proxy.next)
        return proxy.heartbeats.heard() && number - proxy.next > kFarAhead;
    if (proxy.jumped_from != 0 && number >= proxy.jumped_from && now - proxy.jumped_at < kJumpDoubt)
        ask(proxy, now); // it was jumped over, and comes all the same
    if (proxy.next != proxy.start || now > proxy.started_at + kStartOverlap)
        return true;
    proxy.next = proxy.start = std::max<SequenceNumber>(number, 1);
    return false;
}

void ReliableReader::accept(WriterProxy& proxy, const Sample& sample, bool deliverable) {
    const SequenceNumber number = sample.sequence_number;
    if (!proxy.synchronized || number != proxy.next) {
        if (deliverable)
            hold(proxy, sample);
        else
            mark_irrelevant(proxy, number, number + 1);
        return;
    }
    ++proxy.next;
    proxy.last_known = std::max(proxy.last_known, number);
    proxy.retry_pause = Duration(0);
    if (deliverable)
        sink_.on_sample(sample);
    else
        sink_.on_lost(proxy.writer.guid, 1);
    if (!proxy.held.empty() || !proxy.irrelevant.empty() || !proxy.fragments.empty())
        drain(proxy);
}

/// What is furthest from delivery gives way; it is asked for again when its turn comes.
bool ReliableReader::give_way(WriterProxy& proxy, SequenceNumber sequence_number) {
    if (!config_.builtin_peer && !std::exchange(memory_told_, true))
        observer_.on_memory_used_up(proxy.writer.guid);
    if (!proxy.held.empty() && proxy.held.rbegin()->first > sequence_number) {
        drop_held_from(proxy, proxy.held.rbegin()->first);
        return true;
    }
    return proxy.fragments.drop_highest_above(sequence_number);
}

void ReliableReader::drop_held_from(WriterProxy& proxy, SequenceNumber sequence_number) {
    while (!proxy.held.empty() && proxy.held.rbegin()->first >= sequence_number) {
        const auto last = std::prev(proxy.held.end());
        proxy.memory.give_back(last->second.charge());
        proxy.held.erase(last);
    }
}

void ReliableReader::hold(WriterProxy& proxy, const Sample& sample) {
    const SequenceNumber number = sample.sequence_number;
    if (proxy.held.count(number) != 0)
        return;
    const bool is_assembled = proxy.fragments.is_whole(number);
    const size_t bytes = HeldSample::overhead() + (is_assembled ? 0 : sample.payload.size);
    while (!proxy.memory.take(bytes)) {
        if (!give_way(proxy, number))
            return;
    }
    GrowingBuffer payload;
    if (is_assembled) {
        payload = proxy.fragments.take(number);
    } else if (!payload.grow(sample.payload.size)) {
        proxy.memory.give_back(bytes);
        return;
    } else {
        std::copy(sample.payload.begin(), sample.payload.end(), payload.data());
        proxy.fragments.drop(number);
    }
    HeldSample& held = proxy.held[number];
    held.sample = sample;
    held.payload = std::move(payload);
    held.sample.payload.data = held.payload.data();
}

void ReliableReader::mark_irrelevant(WriterProxy& proxy, SequenceNumber from, SequenceNumber end) {
    irrelevant_.assign(1, {from, end});
    proxy.irrelevant.add(irrelevant_, irrelevant_room_);
}

/// Or drops it where its number has been passed.
void ReliableReader::deliver_first_held(WriterProxy& proxy) {
    const auto first = proxy.held.begin();
    if (first->first >= proxy.next) {
        proxy.next = first->first + 1;
        proxy.retry_pause = Duration(0);
        sink_.on_sample(first->second.sample);
    }
    proxy.memory.give_back(first->second.charge());
    proxy.held.erase(first);
}

void ReliableReader::drain(WriterProxy& proxy) {
    for (;;) {
        const SequenceNumber relevant = proxy.irrelevant.first_outside(proxy.next);
        if (!proxy.held.empty() && proxy.held.begin()->first <= proxy.next) {
            deliver_first_held(proxy);
        } else if (relevant > proxy.next) {
            proxy.next = relevant;
            proxy.retry_pause = Duration(0);
        } else {
            break;
        }
    }
    proxy.irrelevant.remove_below(proxy.next);
    proxy.fragments.drop_below(proxy.next);
}

void ReliableReader::advance(WriterProxy& proxy, SequenceNumber to, bool count_losses) {
    uint64_t lost = 0;
    while (proxy.next < to) {
        const SequenceNumber held = proxy.held.empty() ? to : proxy.held.begin()->first;
        if (held <= proxy.next) {
            deliver_first_held(proxy);
            continue;
        }
        const SequenceNumber known = proxy.irrelevant.first_inside(proxy.next, to);
        const SequenceNumber lost_end = std::min({held, known, to});
        lost += static_cast<uint64_t>(lost_end - proxy.next);
        proxy.next = std::min(std::max(lost_end, proxy.irrelevant.first_outside(lost_end)), to);
        proxy.retry_pause = Duration(0);
    }
    if (count_losses && lost > 0)
        sink_.on_lost(proxy.writer.guid, lost);
    drain(proxy);
}

bool ReliableReader::on_data_frag(const MessageContext& context, const DataFrag& fragment,
                                  MonotonicTime now) {
    WriterProxy* proxy = find(Guid{context.source, fragment.writer});
    if (proxy == nullptr)
        return false;
    const SequenceNumber number = fragment.sequence_number;
    if (!is_believed(proxy->writer.guid, number, observer_) || is_old(*proxy, number, now) ||
        proxy->held.count(number) != 0 || proxy->irrelevant.first_outside(number) != number)
        return true;
    using Result = FragmentAssembler::Result;
    const WireTime timestamp = context.timestamp.value_or(kTimeInvalid);
    Result result = proxy->fragments.add(fragment, timestamp, now);
    while (result == Result::no_memory && give_way(*proxy, number))
        result = proxy->fragments.add(fragment, timestamp, now);
    if (result == Result::stored) {
        proxy->retry_pause = Duration(0);
        if (proxy->fragments_checked_at == kNever) {
            proxy->fragments_checked_at = now + kFragmentTimeout;
            proxy->timer.wake_at(proxy->fragments_checked_at);
        }
    } else if (result == Result::too_large) {
        observer_.on_oversized_sample(proxy->writer.guid, fragment.sample_size, limits_.max_sample_size);
        sink_.on_not_taken(proxy->writer.guid, NotTaken::too_large, 1);
        Sample lost;
        lost.sequence_number = number;
        accept(*proxy, lost, false);
    } else if (result == Result::complete) {
        const Sample& whole = proxy->fragments.whole(number);
        accept(*proxy, make_sample(proxy->writer.guid, proxy->writer.quirks, context.vendor, whole, now),
               !whole.inline_qos.refused);
        proxy->fragments.drop(number); // where it could not be held
    }
    return true;
}

/// Fragments that are never completed must not keep their memory, nor a first one that contradicts the others
/// keep these out.
void ReliableReader::drop_idle_fragments(WriterProxy& p, MonotonicTime now) {
    if (p.fragments.drop_idle(now - kFragmentTimeout) > 0 && p.next <= p.last_known) {
        p.retry_pause = Duration(0);
        p.retry_at = now;
    }
    p.fragments_checked_at = p.fragments.empty() ? kNever : now + kFragmentTimeout / 3;
}

void ReliableReader::on_heartbeat(const Guid& writer, const Heartbeat& heartbeat, MonotonicTime now) {
    WriterProxy* proxy = find(writer);
    if (proxy == nullptr || heartbeat.first < 1 || heartbeat.last < heartbeat.first - 1 ||
        !is_believed(writer, std::max(heartbeat.first, heartbeat.last), observer_))
        return;
    WriterProxy& p = *proxy;
    if (p.says_nothing(heartbeat)) {
        if (p.next == 1)
            p.synchronized = true; // the questions go on, as to one that says nothing
        else
            p.preempt_at = kNever;
        return;
    }
    const bool first_contact = !p.heartbeats.heard();
    switch (p.heartbeats.judge(heartbeat, std::max(p.last_known, p.next - 1), now)) {
        case HeartbeatJudge::Verdict::believed:
            break;
        case HeartbeatJudge::Verdict::ignored:
            return;
        case HeartbeatJudge::Verdict::doubtful:
            ask(p, now);
            return;
        case HeartbeatJudge::Verdict::began_anew:
            begin_anew(p, heartbeat, now);
            return;
    }
    p.preempt_at = kNever;
    if (!p.synchronized) {
        p.synchronized = true;
        p.next = heartbeat.last + 1;
        if (!p.held.empty())
            p.next = std::min(p.next, p.held.begin()->first);
        if (!p.fragments.empty())
            p.next = std::min(p.next, p.fragments.lowest());
        p.start = p.next;
        p.started_at = now;
    }
    if (!first_contact && heartbeat.first > std::max(p.last_known + 1, p.next) &&
        (p.jumped_from == 0 || now - p.jumped_at > kOneJump)) {
        p.jumped_from = p.next;
        p.jumped_at = now;
        ask(p, now);
    }
    p.last_known = heartbeat.last;
    drop_held_from(p, heartbeat.last + kFarAhead);
    if (heartbeat.first > p.next)
        advance(p, heartbeat.first, !first_contact);
    else
        drain(p);
    if (!heartbeat.final || p.next <= p.last_known)
        want_acknowledgement(p, now);
}

/// The writer's numbers are lower than was believed: it began anew, or never had come so far.
void ReliableReader::begin_anew(WriterProxy& p, const Heartbeat& heartbeat, MonotonicTime now) {
    const bool returns =
        p.jumped_from != 0 && now - p.jumped_at < kJumpDoubt && heartbeat.last >= p.jumped_from - 1;
    drop_held_from(p, 0);
    p.fragments.clear();
    p.irrelevant.clear();
    // It was matched all the time, so everything of its new life is for this reader.
    p.next = returns ? std::max(p.jumped_from, heartbeat.first) : heartbeat.first;
    p.last_known = heartbeat.last;
    p.jumped_from = 0;
    p.start = 0;
    p.preempt_at = kNever;
    p.fragment_heartbeats = {};
    p.nacked_base = 0;
    p.retry_pause = Duration(0);
    want_acknowledgement(p, now);
    if (!returns)
        observer_.on_writer_restarted(p.writer.guid); // last: it may remove this writer
}

/// Wants a heartbeat of the writer, whatever its state is.
void ReliableReader::ask(WriterProxy& p, MonotonicTime now) {
    p.asked_until = now + kAskFor;
    if (p.preempt_at != kNever)
        return;
    p.preempt_pause = kAskPause;
    p.preempt_at = std::max(now, p.preempted_at + kAskPause);
    p.timer.wake_at(p.preempt_at);
}

void ReliableReader::on_heartbeat_frag(const Guid& writer, const HeartbeatFrag& heartbeat,
                                       MonotonicTime now) {
    WriterProxy* p = find(writer);
    if (p == nullptr || !p->synchronized || heartbeat.sequence_number < p->next ||
        p->held.count(heartbeat.sequence_number) != 0)
        return;
    if (p->heartbeats.heard() && heartbeat.sequence_number - p->next > kFarAhead)
        return;
    if (!p->fragment_heartbeats.is_new(heartbeat.count, now))
        return;
    p->fragment_heartbeats.take(heartbeat.count, now);
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
    // Beyond what a heartbeat has named there is nothing to leave out; it is told again when it is asked for.
    if (p == nullptr || !p->heartbeats.heard() || !plausible(gap.start) || !plausible(gap.list.base))
        return;
    irrelevant_.clear();
    const auto add = [&](SequenceNumber first, SequenceNumber end) {
        first = std::max(first, p->next);
        end = std::min(end, p->last_known + 1);
        if (first >= end)
            return;
        if (!irrelevant_.empty() && irrelevant_.back().end == first)
            irrelevant_.back().end = end;
        else
            irrelevant_.push_back({first, end});
    };
    add(gap.start, gap.list.base);
    for (uint32_t bit = 0; bit < gap.list.num_bits && gap.list.base + bit <= p->last_known; ++bit) {
        if (gap.list.contains(gap.list.base + bit))
            add(gap.list.base + bit, gap.list.base + bit + 1);
    }
    if (irrelevant_.empty())
        return;
    p->irrelevant.add(irrelevant_, irrelevant_room_);
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
    // What a volatile reader starts behind may be on its way: the writer would not send it any more.
    if (p.start > 1 && p.next == p.start)
        when = std::max(when, p.started_at + kStartPause);
    // What was jumped over is acknowledged when nothing spoke against the jump.
    if (p.jumped_from != 0)
        when = std::max(when, p.jumped_at + kAskPause);
    p.acknowledge_at = std::min(p.acknowledge_at, when);
    p.timer.wake_at(p.acknowledge_at);
}

void ReliableReader::send_preemptive(WriterProxy& p, MonotonicTime now) {
    AckNack acknack;
    acknack.reader = id_;
    acknack.writer = p.writer.guid.entity;
    acknack.missing.base = p.writer.quirks.has(kPreemptedByZero) ? 0 : 1;
    // A bit that is not set brings the sample if there is one. Asked for number 1 outright, the writer would
    // leave it out for good, and use it later.
    acknack.missing.num_bits = p.writer.quirks.has(kKnowsNoEmptyRange) ? 1 : 0;
    acknack.final = false;
    acknack_count_ = acknack.count = next_count(acknack_count_);
    batcher_.add(p.writer.route, acknack);
    p.preempted_at = now;
    p.preempt_at = now + p.preempt_pause;
    if (!p.heartbeats.heard())
        p.preempt_pause = std::min(p.preempt_pause * 2, kLongestPause);
}

void ReliableReader::send_nack_frag(WriterProxy& p, SequenceNumber sequence_number,
                                    const FragmentNumberSet& missing) {
    FragmentNumberSet wanted = missing;
    if (p.writer.quirks.has(kSendsFragmentsBehind) && missing.base > 1) {
        // Asked for with those before them, the right ones come too.
        wanted = {};
        wanted.base = missing.base - 1;
        for (uint32_t i = 0; i < missing.num_bits; ++i) {
            const FragmentNumber number = missing.base + i;
            if (missing.contains(number)) {
                wanted.insert(number - 1);
                wanted.insert(number);
            }
        }
    }
    nackfrag_count_ = next_count(nackfrag_count_);
    batcher_.add(p.writer.route,
                 NackFrag{id_, p.writer.guid.entity, sequence_number, wanted, nackfrag_count_});
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
        if ((held != p.held.end() && held->first == number) || p.irrelevant.first_outside(number) != number)
            continue;
        if (!p.fragments.empty() && p.fragments.has(number)) {
            // Its fragments are asked for one by one; when there are too many such samples, later.
            if (unfinished_count < unfinished.size())
                unfinished[unfinished_count++] = number;
            FragmentNumberSet missing;
            if (p.writer.quirks.has(kSendsFragmentsBehind) && p.fragments.missing(number, missing) &&
                missing.base == 1)
                acknack.missing.insert(number); // no fragment is before it
            continue;
        }
        acknack.missing.insert(number);
    }
    const bool incomplete = p.next <= p.last_known;
    acknack.final = !incomplete;
    acknack_count_ = acknack.count = next_count(acknack_count_);
    const bool may_wait = !incomplete && !config_.builtin_peer && p.next == p.acknowledged_below + 1 &&
                          now - p.answered_at > 2 * MessageBatcher::kLongestWait;
    p.answered_at = now;
    batcher_.add(p.writer.route, acknack, may_wait ? Haste::may_wait : Haste::now);
    for (size_t i = 0; i < unfinished_count; ++i) {
        FragmentNumberSet missing;
        if (p.fragments.missing(unfinished[i], missing) && !missing.empty())
            send_nack_frag(p, unfinished[i], missing);
    }
    p.acknowledge_at = kNever;
    if (!incomplete && p.next == p.acknowledged_below)
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
    if (p.preempt_at <= now && p.heartbeats.heard() && p.asked_until <= now)
        p.preempt_at = kNever;
    if (p.preempt_at <= now)
        send_preemptive(p, now);
    if (p.fragments_checked_at <= now)
        drop_idle_fragments(p, now);
    if (p.retry_at <= now && p.next > p.last_known)
        p.retry_at = kNever;
    if (p.acknowledge_at <= now || p.retry_at <= now)
        send_acknack(p, now);
    p.timer.wake_at(std::min({p.preempt_at, p.acknowledge_at, p.retry_at, p.fragments_checked_at}));
}

} // namespace meridian::rtps
