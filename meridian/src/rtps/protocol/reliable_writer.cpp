#include "rtps/protocol/reliable_writer.h"

#include <algorithm>
#include <utility>

#include "rtps/protocol/count.h"

namespace meridian::rtps {

namespace {

constexpr unsigned kSamplesPerHeartbeat = 16;
constexpr Duration kHeartbeatPeriod = std::chrono::milliseconds(100); // while something is unacknowledged
constexpr Duration kLongestHeartbeatPause = std::chrono::seconds(2);
constexpr size_t kKeptDisposals = 1000;
constexpr size_t kSampleOverhead = 64; // of a message with one sample
constexpr unsigned kMostGapAnswers = 4;

bool is_preemptive(const AckNack& acknack) {
    return acknack.missing.base <= 1 && acknack.missing.empty() && !acknack.final;
}

size_t size_of(const ByteBuffer& payload) {
    return kSampleOverhead + payload.size();
}

bool says_something(const InlineQos& qos) {
    return qos.key_hash || qos.status_info != 0 || qos.original_writer || qos.related_writer;
}

} // namespace

ReliableWriter::ReliableWriter(EntityId id, const EndpointQos& qos, const WriterConfig& config,
                               MessageBatcher& batcher, TimerQueue& timers)
    : id_(id),
      transient_local_(qos.durability != Durability::volatile_),
      keep_all_(qos.history == HistoryKind::keep_all),
      depth_(qos.history_depth > 0 ? static_cast<size_t>(qos.history_depth) : 1),
      config_(config),
      batcher_(batcher),
      timers_(timers),
      last_(config.secret_begin.value_or(0)) {}

ReliableWriter::ReaderProxy* ReliableWriter::find(const Guid& reader) {
    const auto at = proxies_.find(reader);
    return at != proxies_.end() ? &at->second : nullptr;
}

ReliableWriter::ReaderProxy::Period& ReliableWriter::ReaderProxy::period(MonotonicTime now) {
    if (now >= last_period.end) {
        last_period = {};
        last_period.end = later(now, kHeartbeatPeriod);
    }
    return last_period;
}

bool ReliableWriter::ReaderProxy::may_begin_anew(MonotonicTime now) {
    return acknowledged_below == first_relevant || !std::exchange(period(now).began_anew, true);
}

bool ReliableWriter::ReaderProxy::may_answer(size_t bytes, MonotonicTime now) {
    size_t& answered = period(now).answered_bytes;
    if (answered + bytes > writer.history_bytes_)
        return false;
    answered += bytes;
    return true;
}

bool ReliableWriter::ReaderProxy::may_answer_with_gaps(MonotonicTime now) {
    return ++period(now).gap_answers <= kMostGapAnswers;
}

void ReliableWriter::add_reader(const RemoteReader& reader, MonotonicTime now) {
    if (ReaderProxy* known = find(reader.guid)) {
        known->reader = reader;
        return;
    }
    ReaderProxy& added = proxies_
                             .emplace(std::piecewise_construct, std::forward_as_tuple(reader.guid),
                                      std::forward_as_tuple(*this, reader))
                             .first->second;
    if (!transient_local_ || !reader.transient_local)
        added.first_relevant = last_ + 1;
    added.acknowledged_below = added.first_relevant;
    if (reader.reliable) {
        send_heartbeat(added, false, false);
        restart_heartbeats(added, now);
    }
}

void ReliableWriter::remove_reader(const Guid& reader) {
    if (proxies_.erase(reader) != 0)
        forget_acknowledged();
}

void ReliableWriter::begin_anew(bool forgets, MonotonicTime now) {
    if (forgets) {
        history_.clear();
        history_bytes_ = 0;
        instances_.clear();
        disposals_.clear();
    }
    for (auto& [guid, proxy] : proxies_) {
        proxy.acknowledged_below = proxy.first_relevant = first_available(proxy);
        proxy.acknacks = proxy.nack_frags = {};
        if (proxy.reader.reliable) {
            send_heartbeat(proxy, false, false);
            restart_heartbeats(proxy, now);
        }
    }
}

bool ReliableWriter::outstanding(const ReaderProxy& proxy) const {
    return proxy.reader.reliable && (!proxy.acknacks.heard() || proxy.acknowledged_below <= last_);
}

bool ReliableWriter::all_acknowledged() const {
    return std::none_of(proxies_.begin(), proxies_.end(), [this](const auto& entry) {
        return entry.second.reader.reliable && entry.second.acknowledged_below <= last_;
    });
}

void ReliableWriter::forget(SequenceNumber number) {
    const auto at = history_.find(number);
    if (at == history_.end())
        return;
    const auto instance = instances_.find(at->second.instance);
    if (instance != instances_.end()) {
        auto& numbers = instance->second;
        numbers.erase(std::remove(numbers.begin(), numbers.end(), number), numbers.end());
        if (numbers.empty())
            instances_.erase(instance);
    }
    history_bytes_ -= size_of(at->second.payload);
    history_.erase(at);
}

void ReliableWriter::withdraw(const KeyHash& instance) {
    const auto at = instances_.find(instance);
    if (at == instances_.end())
        return;
    const std::deque<SequenceNumber> numbers = at->second;
    for (const SequenceNumber number : numbers)
        forget(number);
}

void ReliableWriter::forget_acknowledged() {
    if (transient_local_ || history_.empty())
        return;
    SequenceNumber end = last_ + 1;
    for (const auto& [guid, p] : proxies_) {
        if (p.reader.reliable)
            end = std::min(end, p.acknowledged_below);
    }
    while (!history_.empty() && history_.begin()->first < end)
        forget(history_.begin()->first);
}

bool ReliableWriter::make_room(const WriteRequest& request) {
    if (!keep_all_) {
        const auto instance = instances_.find(request.instance.value_or(KeyHash{}));
        while (instance != instances_.end() && instance->second.size() >= depth_) {
            const bool last_one = instance->second.size() == 1;
            forget(instance->second.front());
            if (last_one)
                break;
        }
    }
    return history_.size() < config_.max_samples;
}

std::optional<SequenceNumber> ReliableWriter::write(const WriteRequest& request, Now now) {
    if (!make_room(request))
        return std::nullopt;
    const SequenceNumber number = ++last_;
    Change change = change_of(request, now.wall);
    const Haste haste = config_.may_wait ? Haste::may_wait : Haste::now;
    send_to_all(number, change, haste);

    instances_[change.instance].push_back(number);
    history_bytes_ += size_of(change.payload);
    const Change& kept = history_.emplace(number, std::move(change)).first->second;
    if (transient_local_ && (request.inline_qos.status_info & kUnregistered) != 0) {
        disposals_.push_back(number);
        if (disposals_.size() > kKeptDisposals) {
            forget(disposals_.front()); // if a later sample of its instance has not replaced it
            disposals_.pop_front();
        }
    }
    for (auto& [guid, proxy] : proxies_) {
        if (proxy.reader.reliable)
            await_acknowledgement(proxy, number, kept, haste, now.monotonic);
    }
    forget_acknowledged();
    return number;
}

ReliableWriter::Change ReliableWriter::change_of(const WriteRequest& request, WireTime written) const {
    Change change;
    change.payload.assign(request.payload.begin(), request.payload.end());
    InlineQos inline_qos = request.inline_qos;
    if (config_.names_itself) {
        inline_qos.related_writer = Guid{batcher_.source(), id_};
        inline_qos.related_sequence_number = last_;
    }
    if (says_something(inline_qos))
        change.inline_qos = encode(inline_qos);
    change.payload_is_key = request.payload_is_key;
    change.expects_answers = request.expects_answers;
    change.timestamp = request.source_timestamp.value_or(written);
    change.instance = request.instance.value_or(KeyHash{});
    change.only_for = request.only_for;
    return change;
}

void ReliableWriter::send_to_all(SequenceNumber number, const Change& change, Haste haste) {
    for (auto at = proxies_.begin(); at != proxies_.end();) {
        const RemoteReader& reader = at->second.reader;
        const bool alone = ++at == proxies_.end() || !(at->second.reader.route == reader.route);
        while (at != proxies_.end() && at->second.reader.route == reader.route)
            ++at;
        if (is_for(reader, change))
            send_change(reader.route, alone ? reader.guid.entity : entity::unknown, number, change, haste);
    }
}

void ReliableWriter::await_acknowledgement(ReaderProxy& proxy, SequenceNumber number, const Change& change,
                                           Haste haste, MonotonicTime now) {
    const bool is_first = proxy.acknowledged_below == number;
    if (!change.concerns(proxy.reader)) {
        // Its next heartbeat begins behind this sample. A gap tells, where others are open before it.
        if (is_first)
            proxy.acknowledged_below = proxy.first_relevant = number + 1;
        return;
    }
    if (is_first || ++proxy.since_heartbeat >= kSamplesPerHeartbeat)
        send_heartbeat(proxy, false, false, haste);
    if (is_first || proxy.heartbeat_timer.due() == kNever)
        restart_heartbeats(proxy, now);
}

size_t ReliableWriter::fragment_size(const Change& change) const {
    // A multiple of 4 keeps primitives of the payload whole; 16 bits hold it.
    return std::min<size_t>(batcher_.max_payload(change.inline_qos.size()), 0xfffc) & ~size_t{3};
}

void ReliableWriter::send_change(const Route& route, EntityId reader, SequenceNumber number,
                                 const Change& change, Haste haste) {
    if (change.payload.size() > batcher_.max_payload(change.inline_qos.size())) {
        send_fragments(route, reader, number, change, nullptr);
        return;
    }
    Data data;
    data.reader = reader;
    data.writer = id_;
    data.sequence_number = number;
    data.inline_qos = change.inline_qos;
    data.has_payload = !change.payload.empty();
    data.payload_is_key = change.payload_is_key;
    data.payload = change.payload;
    batcher_.add(route, data, change.timestamp, haste);
}

void ReliableWriter::send_fragments(const Route& route, EntityId reader, SequenceNumber number,
                                    const Change& change, const FragmentNumberSet* wanted) {
    const size_t step = fragment_size(change);
    if (step == 0)
        return;
    DataFrag fragment;
    fragment.reader = reader;
    fragment.writer = id_;
    fragment.sequence_number = number;
    fragment.inline_qos = change.inline_qos;
    fragment.payload_is_key = change.payload_is_key;
    fragment.fragment_size = static_cast<uint16_t>(step);
    fragment.sample_size = static_cast<uint32_t>(change.payload.size());
    fragment.first_fragment = 1;
    for (size_t from = 0; from < change.payload.size(); from += step, ++fragment.first_fragment) {
        if (wanted != nullptr && !wanted->contains(fragment.first_fragment))
            continue;
        fragment.payload = {change.payload.data() + from, std::min(step, change.payload.size() - from)};
        batcher_.add(route, fragment, change.timestamp);
    }
}

SequenceNumber ReliableWriter::first_available(const ReaderProxy& proxy) const {
    const SequenceNumber oldest = history_.empty() ? last_ + 1 : history_.begin()->first;
    return std::max(oldest, proxy.first_relevant);
}

SequenceNumber ReliableWriter::first_told(const ReaderProxy& proxy) const {
    const SequenceNumber first = first_available(proxy);
    const bool names_one = last_ > 0 && proxy.reader.quirks.has(kKnowsNoEmptyRange);
    return names_one ? std::min(first, last_) : first;
}

void ReliableWriter::send_heartbeat(ReaderProxy& proxy, bool final, bool liveliness, Haste haste) {
    if (last_ == 0 && !liveliness && proxy.reader.quirks.has(kKnowsNoEmptyRange))
        return;
    Heartbeat heartbeat;
    heartbeat.reader = proxy.reader.guid.entity;
    heartbeat.writer = id_;
    heartbeat.first = first_told(proxy);
    heartbeat.last = last_;
    heartbeat.count = heartbeat_count_ = next_count(heartbeat_count_);
    heartbeat.final = final;
    heartbeat.liveliness = liveliness;
    batcher_.add(proxy.reader.route, heartbeat, haste);
    proxy.since_heartbeat = 0;
}

void ReliableWriter::restart_heartbeats(ReaderProxy& proxy, MonotonicTime now) {
    proxy.heartbeat_pause = kHeartbeatPeriod;
    proxy.heartbeat_timer.cancel();
    proxy.heartbeat_timer.wake_at(later(now, proxy.heartbeat_pause));
}

void ReliableWriter::answer_with_heartbeat(ReaderProxy& proxy, bool final, bool at_once, MonotonicTime now) {
    if (at_once || !std::exchange(proxy.period(now).answered_with_heartbeat, true))
        send_heartbeat(proxy, final, false);
    else
        proxy.heartbeat_timer.wake_at(proxy.period(now).end);
}

void ReliableWriter::ask(const Guid& reader) {
    if (ReaderProxy* proxy = find(reader))
        send_heartbeat(*proxy, false, false);
}

void ReliableWriter::assert_liveliness() {
    for (auto& [guid, p] : proxies_) {
        if (p.reader.reliable)
            send_heartbeat(p, true, true);
    }
}

void ReliableWriter::send_gaps(const ReaderProxy& proxy, const std::vector<Hole>& holes) {
    for (auto hole = holes.begin(); hole != holes.end();) {
        Gap gap;
        gap.reader = proxy.reader.guid.entity;
        gap.writer = id_;
        gap.start = hole->first;
        gap.list.base = hole->end;
        for (++hole; hole != holes.end() && hole->first == gap.list.base; ++hole)
            gap.list.base = hole->end;
        for (; hole != holes.end() && hole->end <= gap.list.base + SequenceNumberSet::kMaxBits; ++hole) {
            for (SequenceNumber number = hole->first; number < hole->end; ++number)
                gap.list.insert(number);
        }
        batcher_.add(proxy.reader.route, gap);
    }
}

void ReliableWriter::judge_address(const Guid& reader, const Route& route, const AckNack& acknack) {
    const std::optional<bool> is_right = knows_what_was_told(reader, acknack);
    if (!is_right || route.credit == nullptr)
        return;
    if (!*is_right)
        return route.credit->doubt();
    for (const Locator& address : route.locators)
        route.credit->confirm(address);
}

std::optional<bool> ReliableWriter::knows_what_was_told(const Guid& reader, const AckNack& acknack) const {
    const auto proxy = proxies_.find(reader);
    const SequenceNumber base = acknack.missing.base;
    if (!config_.secret_begin || proxy == proxies_.end() || base <= 1)
        return std::nullopt;
    // The first answer comes when nothing was read yet, and later ones mostly when all was. A number between
    // the two may be right, but beside many samples it is easily guessed.
    if (base == first_told(proxy->second) || base == last_ + 1)
        return true;
    return base >= *config_.secret_begin && base <= last_ ? std::nullopt : std::optional<bool>(false);
}

void ReliableWriter::on_acknack(const Guid& reader, const AckNack& acknack, MonotonicTime now) {
    ReaderProxy* proxy = find(reader);
    if (proxy == nullptr || !proxy->reader.reliable)
        return;
    // A reader that began anew counts from the start again; it shows by its pre-emptive form.
    const bool preemptive = is_preemptive(acknack) && proxy->may_begin_anew(now);
    if (!preemptive && !proxy->acknacks.is_new(acknack.count, now))
        return;
    const Route& route = proxy->reader.route;
    judge_address(reader, route, acknack);
    if (acknack.missing.base > last_ + 1)
        return; // it thinks of an earlier life of this writer: heartbeats go on until it notices
    const SequenceNumber before = proxy->acknowledged_below;
    const bool progress = !proxy->acknacks.heard() || acknack.missing.base > before;
    proxy->acknacks.take(acknack.count, now);
    if (preemptive)
        proxy->acknowledged_below = proxy->first_relevant;
    else
        proxy->acknowledged_below = std::max(proxy->acknowledged_below, acknack.missing.base);

    std::vector<Hole> holes;
    const bool sent = send_again(*proxy, acknack.missing, holes, now);
    if (!holes.empty() && !proxy->may_answer_with_gaps(now))
        holes.clear();
    send_gaps(*proxy, holes);
    const bool open = proxy->acknowledged_below <= last_;
    if (!open)
        proxy->heartbeat_timer.cancel();
    else if (progress || sent)
        restart_heartbeats(*proxy, now);
    const bool answers = sent || !holes.empty();
    if (answers || !acknack.final)
        answer_with_heartbeat(*proxy, !open, answers, now);
    if (progress && !history_.empty() && before <= history_.begin()->first)
        forget_acknowledged(); // else another reader keeps the oldest
}

bool ReliableWriter::send_again(ReaderProxy& proxy, const SequenceNumberSet& missing,
                                std::vector<Hole>& holes, MonotonicTime now) {
    bool sent = false;
    auto change = history_.lower_bound(missing.base);
    for (uint32_t bit = 0; bit < missing.num_bits; ++bit) {
        const SequenceNumber number = missing.base + bit;
        if (number < 1 || number > last_ || !missing.contains(number) ||
            (!holes.empty() && number < holes.back().end))
            continue;
        while (change != history_.end() && change->first < number)
            ++change;
        // A late reader would ask for a long hole piece by piece.
        if (number < proxy.first_relevant) {
            holes.push_back({number, proxy.first_relevant});
        } else if (change == history_.end() || change->first != number) {
            holes.push_back({number, change == history_.end() ? last_ + 1 : change->first});
        } else if (!is_for(proxy.reader, change->second)) {
            holes.push_back({number, number + 1});
        } else if (proxy.may_answer(size_of(change->second.payload), now)) {
            send_change(proxy.reader.route, proxy.reader.guid.entity, number, change->second);
            sent = true;
        }
    }
    return sent;
}

void ReliableWriter::on_nack_frag(const Guid& reader, const NackFrag& nack, MonotonicTime now) {
    ReaderProxy* proxy = find(reader);
    if (proxy == nullptr || !proxy->reader.reliable)
        return;
    if (!proxy->nack_frags.is_new(nack.count, now))
        return;
    proxy->nack_frags.take(nack.count, now);
    const auto change = history_.find(nack.sequence_number);
    if (nack.sequence_number < 1 || nack.sequence_number > last_)
        return;
    if (change == history_.end() || nack.sequence_number < proxy->first_relevant ||
        !is_for(proxy->reader, change->second)) {
        if (proxy->may_answer_with_gaps(now))
            send_gaps(*proxy, {{nack.sequence_number, nack.sequence_number + 1}});
        return;
    }
    FragmentNumberSet wanted;
    wanted.base = nack.missing.base;
    for (uint32_t bit = 0; bit < nack.missing.num_bits; ++bit) {
        const FragmentNumber fragment = nack.missing.base + bit;
        const size_t from = (size_t{fragment} - 1) * fragment_size(change->second);
        const size_t size = change->second.payload.size();
        if (nack.missing.contains(fragment) && from < size &&
            proxy->may_answer(std::min(fragment_size(change->second), size - from), now))
            wanted.insert(fragment);
    }
    if (wanted.empty())
        return;
    if (change->second.payload.size() > batcher_.max_payload(change->second.inline_qos.size()))
        send_fragments(proxy->reader.route, reader.entity, nack.sequence_number, change->second, &wanted);
    else
        send_change(proxy->reader.route, reader.entity, nack.sequence_number, change->second);
    send_heartbeat(*proxy, false, false);
}

void ReliableWriter::on_heartbeat_due(ReaderProxy& proxy, MonotonicTime now) {
    if (!outstanding(proxy))
        return;
    send_heartbeat(proxy, false, false);
    proxy.heartbeat_timer.wake_at(later(now, proxy.heartbeat_pause));
    proxy.heartbeat_pause = std::min(proxy.heartbeat_pause * 2, kLongestHeartbeatPause);
}

} // namespace meridian::rtps
