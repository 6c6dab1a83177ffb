#include "dcps/reader/reader_cache.h"

#include <algorithm>

#include "discovery/conversions.h"

namespace meridian::dcps {

struct CacheEntry {
    DDS_SampleInfo info;
    void* sample = nullptr;
    Instance* instance = nullptr; // while stored
    Links<CacheEntry> in_order;
    Links<CacheEntry> of_instance;
    size_t bytes = 0; // of the sample
    int loans = 0;
    bool was_read = false;
};

namespace {

/// An entry as the allocator gives it, with its places in the lists of a loan.
constexpr size_t kEntryBytes = sizeof(CacheEntry) + 4 * sizeof(void*);
/// Entries kept for the next samples.
constexpr size_t kMostSpareEntries = 1024;

bool earlier(const DDS_Time_t& a, const DDS_Time_t& b) {
    return a.sec != b.sec ? a.sec < b.sec : a.nanosec < b.nanosec;
}

} // namespace

ReaderCache::ReaderCache(const Settings& settings, SampleOwner& owner, MemoryShare& share)
    : settings_(settings), owner_(owner), share_(share), instances_(share) {}

ReaderCache::~ReaderCache() {
    for (Chain<Entry>* entries : {&stored_, &loaned_}) {
        while (Entry* const entry = entries->first()) {
            entries->remove(*entry, &Entry::in_order);
            recycle(*entry);
        }
    }
    share_.give_back(spare_entries_.size() * kEntryBytes);
}

void ReaderCache::update(const Settings& settings) {
    if (settings.deadline != settings_.deadline) {
        // The order by due time only holds for one period: all start anew with the next sample.
        while (Instance* const instance = by_due_.first())
            expect_nothing(*instance);
    }
    settings_ = settings;
}

bool ReaderCache::writer_gone(const rtps::Guid& writer, DDS_Time_t when, rtps::MonotonicTime now) {
    bool stored = false;
    // In an order that is the same in every run. Those behind may have to be forgotten for those in front.
    for (const rtps::KeyHash& key : instances_.written_by(writer)) {
        Instance* const instance = instances_.find(key);
        if (instance == nullptr)
            continue;
        Change change;
        change.kind = ChangeKind::unregistered;
        change.writer = writer;
        change.key = key;
        change.source_timestamp = when;
        change.received = now;
        instances_.set_used(*instance, true);
        stored = unregister(*instance, change, true) || stored;
        settle(*instance);
    }
    return stored;
}

/// Nothing is dropped of `spared`, which something is being stored in.
bool ReaderCache::take_memory(size_t bytes, const Instance* spared) {
    while (!share_.take(bytes)) {
        if (!spare_entries_.empty()) {
            spare_entries_.pop_back();
            share_.give_back(kEntryBytes);
        } else if (Instance* const unused = instances_.longest_unused()) {
            forget(*unused);
        } else if (Entry* const oldest = stored_.first()) {
            Instance& instance = *oldest->instance;
            drop_oldest_of(oldest);
            if (&instance != spared)
                settle(instance);
        } else {
            return false;
        }
    }
    return true;
}

/// The instance is in use afterwards.
Instance* ReaderCache::find_or_create(const rtps::KeyHash& key, Verdict& failure) {
    if (Instance* const known = instances_.find(key)) {
        instances_.set_used(*known, true);
        return known;
    }
    const DDS_Long limit = settings_.limits.max_instances;
    if (settings_.keyed && limit != DDS_LENGTH_UNLIMITED && instances_.size() >= static_cast<size_t>(limit)) {
        Instance* const unused = instances_.longest_unused();
        if (unused == nullptr || unused->state == DDS_ALIVE_INSTANCE_STATE) {
            failure = Verdict::rejected_instances;
            return nullptr;
        }
        forget(*unused);
    }
    if (!take_memory(Instances::kBytes, nullptr)) {
        failure = Verdict::lost;
        return nullptr;
    }
    return &instances_.create(key);
}

bool ReaderCache::wins_ownership(const InstanceWriter& writer, Instance& instance) {
    if (settings_.ownership != DDS_EXCLUSIVE_OWNERSHIP_QOS || instance.owner == &writer)
        return true;
    if (const InstanceWriter* const owner = instance.owner) {
        if (writer.strength < owner->strength ||
            (writer.strength == owner->strength && owner->guid < writer.guid))
            return false;
    }
    instance.owner = &writer;
    return true;
}

bool ReaderCache::admits(const Change& change, Instance& instance, InstanceWriter& writer) {
    if (!wins_ownership(writer, instance))
        return false;
    if (settings_.destination_order == DDS_BY_SOURCE_TIMESTAMP_DESTINATIONORDER_QOS &&
        earlier(change.source_timestamp, instance.last_source))
        return false;
    if (change.kind == ChangeKind::alive && settings_.minimum_separation.count() > 0) {
        if (instance.last_accepted != Instance::kNeverYet &&
            change.received - instance.last_accepted < settings_.minimum_separation)
            return false;
        instance.last_accepted = change.received;
    }
    return true;
}

std::optional<ReaderCache::Verdict> ReaderCache::exceeded_limit(const Instance& instance) const {
    const auto reached = [](size_t count, DDS_Long limit) {
        return limit != DDS_LENGTH_UNLIMITED && count >= static_cast<size_t>(limit);
    };
    const bool replaces_oldest = settings_.history.kind == DDS_KEEP_LAST_HISTORY_QOS &&
                                 instance.count >= static_cast<size_t>(settings_.history.depth);
    if (replaces_oldest)
        return std::nullopt;
    if (reached(count_, settings_.limits.max_samples))
        return Verdict::rejected_samples;
    if (reached(instance.count, settings_.limits.max_samples_per_instance))
        return Verdict::rejected_samples_per_instance;
    return std::nullopt;
}

void ReaderCache::make_room(Instance& instance) {
    if (settings_.history.kind != DDS_KEEP_LAST_HISTORY_QOS)
        return;
    while (instance.count >= static_cast<size_t>(std::max<DDS_Long>(settings_.history.depth, 1)))
        drop_oldest_of(instance.samples.first());
}

void ReaderCache::drop_oldest_of(Entry* entry) {
    if (entry->info.valid_data && !entry->was_read)
        ++overwritten_;
    unlink(*entry);
    if (entry->loans == 0)
        recycle(*entry);
    else
        loaned_.append(*entry, &Entry::in_order);
}

/// Null without memory for it and its sample.
ReaderCache::Entry* ReaderCache::new_entry(size_t bytes, const Instance& instance) {
    if (!spare_entries_.empty() && share_.take(bytes)) {
        Entry* const spare = spare_entries_.back().release();
        spare_entries_.pop_back();
        return spare;
    }
    return take_memory(bytes + kEntryBytes, &instance) ? new Entry : nullptr;
}

bool ReaderCache::append(Instance& instance, const Change& change, DDS_InstanceStateMask state) {
    Entry* const made = new_entry(change.bytes, instance);
    if (made == nullptr)
        return false;
    Entry& entry = *made;
    DDS_SampleInfo& info = entry.info;
    info.sample_state = DDS_NOT_READ_SAMPLE_STATE;
    info.view_state =
        instance.state == DDS_ALIVE_INSTANCE_STATE ? DDS_NOT_NEW_VIEW_STATE : DDS_NEW_VIEW_STATE;
    info.instance_state = state;
    info.source_timestamp = change.source_timestamp;
    info.instance_handle = settings_.keyed ? discovery::to_handle(change.key) : DDS_HANDLE_NIL;
    info.publication_handle = discovery::to_handle(change.writer);
    info.valid_data = change.sample != nullptr;
    info.sample_identity = change.identity;
    info.related_sample_identity = change.related_identity;
    info.flag = change.flag;
    entry.sample = change.sample;
    entry.bytes = change.bytes;
    entry.instance = &instance;
    entry.was_read = false;
    stored_.append(entry, &Entry::in_order);
    instance.samples.append(entry, &Entry::of_instance);
    ++instance.count;
    ++count_;
    instance.state = state;
    return true;
}

void ReaderCache::unlink(Entry& entry) {
    stored_.remove(entry, &Entry::in_order);
    entry.instance->samples.remove(entry, &Entry::of_instance);
    --entry.instance->count;
    --count_;
    entry.instance = nullptr;
}

void ReaderCache::recycle(Entry& entry) {
    std::unique_ptr<Entry> spare(&entry);
    share_.give_back(entry.bytes);
    if (entry.sample != nullptr)
        owner_.release_sample(entry.sample);
    entry.sample = nullptr;
    if (spare_entries_.size() < kMostSpareEntries && share_.budget().is_ample())
        spare_entries_.push_back(std::move(spare));
    else
        share_.give_back(kEntryBytes);
}

/// Says that nothing is done with the instance for now. One that has ended is forgotten at once, as a later
/// sample makes it new again either way, unless it matters then whose it is: a disposal ends no registration.
void ReaderCache::settle(Instance& instance) {
    if (instance.count != 0)
        return;
    const Registration* const latest = instance.registrations;
    const bool is_shared =
        latest != nullptr && (latest->next != nullptr || settings_.ownership == DDS_EXCLUSIVE_OWNERSHIP_QOS);
    if (instance.state != DDS_ALIVE_INSTANCE_STATE && !is_shared) {
        forget(instance);
        return;
    }
    instances_.set_used(instance, false);
    while (instances_.size() > Instances::kMost && instances_.longest_unused() != nullptr)
        forget(*instances_.longest_unused());
}

void ReaderCache::forget(Instance& instance) {
    expect_nothing(instance);
    instances_.forget(instance);
}

bool ReaderCache::unregister(Instance& instance, const Change& change, bool has_room) {
    if (!instances_.unregister(instance, change.writer) || instance.registrations != nullptr ||
        instance.state != DDS_ALIVE_INSTANCE_STATE)
        return false;
    expect_nothing(instance);
    if (has_room) {
        make_room(instance);
        if (append(instance, change, DDS_NOT_ALIVE_NO_WRITERS_INSTANCE_STATE))
            return true;
    }
    instance.state = DDS_NOT_ALIVE_NO_WRITERS_INSTANCE_STATE;
    return false;
}

ReaderCache::Verdict ReaderCache::add(const Change& change) {
    if (change.kind == ChangeKind::unregistered && change.sample == nullptr) {
        Instance* const instance = instances_.find(change.key);
        if (instance == nullptr)
            return Verdict::filtered;
        instances_.set_used(*instance, true);
        const bool stored = unregister(*instance, change, true);
        settle(*instance);
        return stored ? Verdict::stored : Verdict::filtered;
    }
    Verdict verdict = Verdict::lost;
    if (Instance* const instance = find_or_create(change.key, verdict)) {
        verdict = store(change, *instance);
        settle(*instance);
    }
    if (verdict == Verdict::lost && change.sample != nullptr)
        ++overwritten_;
    return verdict;
}

ReaderCache::Verdict ReaderCache::store(const Change& change, Instance& instance) {
    InstanceWriter& writer = instances_.writer(change.writer);
    if (!Instances::recall(instance, writer)) {
        if (!take_memory(Instances::kRegistrationBytes, &instance))
            return Verdict::lost;
        instances_.enrol(instance, writer);
    }
    if (!admits(change, instance, writer))
        return Verdict::filtered;
    if (const std::optional<Verdict> exceeded = exceeded_limit(instance))
        return *exceeded;
    make_room(instance);
    instance.last_source = change.source_timestamp;
    const bool disposes =
        change.kind == ChangeKind::disposed || change.kind == ChangeKind::disposed_and_unregistered;
    if (disposes)
        instance.last_accepted = Instance::kNeverYet; // what makes it new again is not filtered
    const bool stored =
        append(instance, change, disposes ? DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE : DDS_ALIVE_INSTANCE_STATE);
    expect_nothing(instance);
    if (!stored)
        return Verdict::lost;
    if (change.kind == ChangeKind::alive)
        expect_next(instance, rtps::later(change.received, settings_.deadline));
    if (change.kind == ChangeKind::unregistered || change.kind == ChangeKind::disposed_and_unregistered) {
        Change end = change;
        end.sample = nullptr;
        // Where there is room for one only, the end must not take the place of the sample that came with it.
        unregister(instance, end,
                   settings_.history.kind != DDS_KEEP_LAST_HISTORY_QOS || settings_.history.depth > 1);
    }
    return Verdict::stored;
}

bool ReaderCache::matches(const Entry& entry, const Selection& selection) const {
    const DDS_SampleStateMask sample_state =
        entry.was_read ? DDS_READ_SAMPLE_STATE : DDS_NOT_READ_SAMPLE_STATE;
    return (sample_state & selection.sample_states) != 0 &&
           (entry.info.view_state & selection.view_states) != 0 &&
           (entry.info.instance_state & selection.instance_states) != 0 &&
           (!selection.instance || *selection.instance == *entry.instance->key);
}

bool ReaderCache::has(const Selection& selection) const {
    for (const Entry* entry = stored_.first(); entry != nullptr; entry = entry->in_order.after) {
        if (matches(*entry, selection))
            return true;
    }
    return false;
}

bool ReaderCache::collect(const Selection& selection, Batch& batch, bool remove) {
    const size_t most =
        selection.max_samples == DDS_LENGTH_UNLIMITED ? count_ : static_cast<size_t>(selection.max_samples);
    for (Entry *entry = stored_.first(), *next = nullptr; entry != nullptr && batch.entries.size() < most;
         entry = next) {
        next = entry->in_order.after;
        if (!matches(*entry, selection))
            continue;
        entry->info.sample_state = entry->was_read ? DDS_READ_SAMPLE_STATE : DDS_NOT_READ_SAMPLE_STATE;
        entry->was_read = true;
        ++entry->loans;
        batch.entries.push_back(entry);
        batch.samples.push_back(entry->sample);
        batch.infos.push_back(&entry->info);
        if (remove) {
            Instance& instance = *entry->instance;
            unlink(*entry);
            loaned_.append(*entry, &Entry::in_order);
            settle(instance);
        }
    }
    return !batch.empty();
}

void ReaderCache::return_batch(Batch& batch) {
    for (Entry* entry : batch.entries) {
        if (--entry->loans > 0 || entry->instance != nullptr)
            continue;
        loaned_.remove(*entry, &Entry::in_order);
        recycle(*entry);
    }
    if (batch.entries.capacity() > kMostSpareEntries) {
        batch = {};
        return;
    }
    batch.samples.clear();
    batch.infos.clear();
    batch.entries.clear();
}

std::optional<rtps::KeyHash> ReaderCache::next_instance(const std::optional<rtps::KeyHash>& previous,
                                                        const Selection& selection) const {
    std::optional<rtps::KeyHash> best;
    for (const Entry* entry = stored_.first(); entry != nullptr; entry = entry->in_order.after) {
        const rtps::KeyHash& key = *entry->instance->key;
        if ((!previous || *previous < key) && (!best || key < *best) && matches(*entry, selection))
            best = key;
    }
    return best;
}

void ReaderCache::expect_next(Instance& instance, rtps::MonotonicTime due) {
    if (due == rtps::kNever)
        return;
    // Nearly always the last place; only a timer that came late makes one go before others.
    Instance* before = by_due_.last();
    while (before != nullptr && due < before->due)
        before = before->by_due.before;
    instance.due = due;
    by_due_.insert_behind(before, instance, &Instance::by_due);
}

void ReaderCache::expect_nothing(Instance& instance) {
    if (instance.due == rtps::kNever)
        return;
    by_due_.remove(instance, &Instance::by_due);
    instance.due = rtps::kNever;
}

rtps::MonotonicTime ReaderCache::next_deadline() const {
    return by_due_.first() != nullptr ? by_due_.first()->due : rtps::kNever;
}

void ReaderCache::on_timer(rtps::MonotonicTime now, std::vector<DDS_InstanceHandle_t>& missed) {
    missed.clear();
    while (by_due_.first() != nullptr && by_due_.first()->due <= now) {
        Instance& instance = *by_due_.first();
        missed.push_back(settings_.keyed ? discovery::to_handle(*instance.key) : DDS_HANDLE_NIL);
        // A writer that misses the deadline owns the instance no more: another one may take over.
        instance.owner = nullptr;
        // A period of zero is missed at every look; the next one is a millisecond away, so that time goes on.
        const rtps::Duration period =
            std::max<rtps::Duration>(settings_.deadline, std::chrono::milliseconds(1));
        const rtps::MonotonicTime regular = rtps::later(instance.due, period);
        expect_nothing(instance);
        expect_next(instance, regular > now ? regular : rtps::later(now, period));
    }
}

} // namespace meridian::dcps
