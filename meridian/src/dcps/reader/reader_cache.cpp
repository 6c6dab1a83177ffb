#include "dcps/reader/reader_cache.h"

#include <algorithm>
#include <cstring>

#include "dcps/common/instance_keys.h"
#include "discovery/conversions.h"

namespace meridian::dcps {

struct ReaderCache::Entry {
    DDS_SampleInfo info;
    void* sample = nullptr;
    size_t bytes = 0;
    Instance* instance = nullptr; // while stored
    rtps::KeyHash key{};
    Entry* older = nullptr;
    Entry* newer = nullptr;
    Entry* older_of_instance = nullptr;
    Entry* newer_of_instance = nullptr;
    int loans = 0;
    bool stored = false;
    bool was_read = false;
};

struct ReaderCache::Instance {
    rtps::KeyHash key{};
    DDS_InstanceStateMask state = DDS_NOT_ALIVE_NO_WRITERS_INSTANCE_STATE;
    std::vector<rtps::Guid> writers; // those that wrote it and did not unregister it
    std::optional<rtps::Guid> owner; // exclusive ownership
    Entry* oldest = nullptr;
    Entry* newest = nullptr;
    size_t count = 0;
    DDS_Time_t last_source = DDS_TIME_INVALID;
    std::optional<rtps::MonotonicTime> last_accepted; // for the time-based filter
    rtps::MonotonicTime due = rtps::kNever;
    Instance* due_before = nullptr;
    Instance* due_after = nullptr;
};

namespace {

bool earlier(const DDS_Time_t& a, const DDS_Time_t& b) {
    return a.sec != b.sec ? a.sec < b.sec : a.nanosec < b.nanosec;
}

} // namespace

size_t ReaderCache::KeyHasher::operator()(const rtps::KeyHash& key) const noexcept {
    uint64_t high = 0;
    uint64_t low = 0;
    std::memcpy(&high, key.data(), 8);
    std::memcpy(&low, key.data() + 8, 8);
    // Keys are often small numbers in one word of the hash; the multiplication spreads them.
    return static_cast<size_t>((high ^ (low * 0x9e3779b97f4a7c15u)) * 0xff51afd7ed558ccdu >> 16);
}

ReaderCache::ReaderCache(const Settings& settings, SampleOwner& owner) : settings_(settings), owner_(owner) {}

ReaderCache::~ReaderCache() {
    for (Entry& entry : slab_) {
        if (entry.sample != nullptr)
            owner_.release_sample(entry.sample);
    }
}

void ReaderCache::update(const Settings& settings) {
    if (settings.deadline != settings_.deadline) {
        // The order by due time only holds for one period: all start anew with the next sample.
        while (first_due_ != nullptr)
            expect_nothing(*first_due_);
    }
    settings_ = settings;
}

void ReaderCache::add_writer(const rtps::Guid& writer, int32_t strength) {
    strengths_[writer] = strength;
}

int32_t ReaderCache::strength_of(const rtps::Guid& writer) const {
    const auto found = strengths_.find(writer);
    return found == strengths_.end() ? 0 : found->second;
}

bool ReaderCache::writer_gone(const rtps::Guid& writer, DDS_Time_t when, rtps::MonotonicTime now) {
    std::vector<Instance*> written;
    for (const auto& [key, instance] : instances_) {
        if (std::find(instance->writers.begin(), instance->writers.end(), writer) != instance->writers.end())
            written.push_back(instance.get());
    }
    // The table has no order of its own; reported lines must have one that is the same in every run.
    std::sort(written.begin(), written.end(),
              [](const Instance* a, const Instance* b) { return a->key < b->key; });
    bool stored = false;
    for (Instance* instance : written) {
        Change change;
        change.kind = ChangeKind::unregistered;
        change.writer = writer;
        change.key = instance->key;
        change.source_timestamp = when;
        change.received = now;
        stored = unregister(*instance, change) || stored;
        forget_if_idle(*instance);
    }
    return stored;
}

ReaderCache::Instance* ReaderCache::find_or_create(const rtps::KeyHash& key) {
    const auto found = instances_.find(key);
    if (found != instances_.end())
        return found->second.get();
    const DDS_Long limit = settings_.limits.max_instances;
    if (settings_.keyed && limit != DDS_LENGTH_UNLIMITED && instances_.size() >= static_cast<size_t>(limit))
        return nullptr;
    auto instance = std::make_unique<Instance>();
    instance->key = key;
    return instances_.emplace(key, std::move(instance)).first->second.get();
}

bool ReaderCache::wins_ownership(const rtps::Guid& writer, Instance& instance) {
    if (settings_.ownership != DDS_EXCLUSIVE_OWNERSHIP_QOS || instance.owner == writer)
        return true;
    if (instance.owner) {
        const int32_t mine = strength_of(writer);
        const int32_t theirs = strength_of(*instance.owner);
        if (mine < theirs || (mine == theirs && *instance.owner < writer))
            return false;
    }
    instance.owner = writer;
    return true;
}

bool ReaderCache::admits(const Change& change, Instance& instance) {
    if (std::find(instance.writers.begin(), instance.writers.end(), change.writer) == instance.writers.end())
        instance.writers.push_back(change.writer);
    if (!wins_ownership(change.writer, instance))
        return false;
    if (settings_.destination_order == DDS_BY_SOURCE_TIMESTAMP_DESTINATIONORDER_QOS &&
        earlier(change.source_timestamp, instance.last_source))
        return false;
    if (change.kind == ChangeKind::alive && settings_.minimum_separation.count() > 0) {
        if (instance.last_accepted &&
            change.received - *instance.last_accepted < settings_.minimum_separation)
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
    if (reached(stored_, settings_.limits.max_samples))
        return Verdict::rejected_samples;
    if (reached(instance.count, settings_.limits.max_samples_per_instance))
        return Verdict::rejected_samples_per_instance;
    return std::nullopt;
}

void ReaderCache::make_room(Instance& instance, size_t bytes) {
    if (settings_.history.kind == DDS_KEEP_LAST_HISTORY_QOS) {
        while (instance.count >= static_cast<size_t>(std::max<DDS_Long>(settings_.history.depth, 1)))
            drop_oldest_of(instance.oldest);
    }
    while (oldest_ != nullptr && bytes_ + bytes > settings_.maximum_bytes) {
        Instance& other = *oldest_->instance;
        drop_oldest_of(oldest_);
        if (&other != &instance)
            forget_if_idle(other);
    }
}

void ReaderCache::drop_oldest_of(Entry* entry) {
    if (entry->info.valid_data && !entry->was_read)
        ++overwritten_;
    unlink(*entry);
    if (entry->loans == 0)
        recycle(*entry);
}

ReaderCache::Entry& ReaderCache::append(Instance& instance, const Change& change,
                                        DDS_InstanceStateMask state) {
    if (free_entries_.empty()) {
        slab_.emplace_back();
        free_entries_.push_back(&slab_.back());
    }
    Entry& entry = *free_entries_.back();
    free_entries_.pop_back();

    DDS_SampleInfo& info = entry.info;
    info.sample_state = DDS_NOT_READ_SAMPLE_STATE;
    info.view_state =
        instance.state == DDS_ALIVE_INSTANCE_STATE ? DDS_NOT_NEW_VIEW_STATE : DDS_NEW_VIEW_STATE;
    info.instance_state = state;
    info.source_timestamp = change.source_timestamp;
    info.instance_handle = settings_.keyed ? instance_handle(change.key) : DDS_HANDLE_NIL;
    info.publication_handle = discovery::to_handle(change.writer);
    info.valid_data = change.sample != nullptr;
    info.sample_identity = change.identity;
    info.related_sample_identity = change.related_identity;
    info.flag = change.flag;
    entry.sample = change.sample;
    entry.bytes = change.bytes;
    entry.instance = &instance;
    entry.key = change.key;
    entry.stored = true;
    entry.was_read = false;

    entry.older = newest_;
    entry.newer = nullptr;
    (newest_ != nullptr ? newest_->newer : oldest_) = &entry;
    newest_ = &entry;
    entry.older_of_instance = instance.newest;
    entry.newer_of_instance = nullptr;
    (instance.newest != nullptr ? instance.newest->newer_of_instance : instance.oldest) = &entry;
    instance.newest = &entry;
    ++instance.count;
    ++stored_;
    bytes_ += entry.bytes;

    instance.state = state;
    return entry;
}

void ReaderCache::unlink(Entry& entry) {
    Instance& instance = *entry.instance;
    (entry.older != nullptr ? entry.older->newer : oldest_) = entry.newer;
    (entry.newer != nullptr ? entry.newer->older : newest_) = entry.older;
    (entry.older_of_instance != nullptr ? entry.older_of_instance->newer_of_instance : instance.oldest) =
        entry.newer_of_instance;
    (entry.newer_of_instance != nullptr ? entry.newer_of_instance->older_of_instance : instance.newest) =
        entry.older_of_instance;
    --instance.count;
    --stored_;
    bytes_ -= entry.bytes;
    entry.stored = false;
    entry.instance = nullptr;
}

void ReaderCache::recycle(Entry& entry) {
    if (entry.sample != nullptr)
        owner_.release_sample(entry.sample);
    entry.sample = nullptr;
    free_entries_.push_back(&entry);
}

void ReaderCache::forget_if_idle(Instance& instance) {
    // A later sample makes the instance new again either way, so nothing is lost; and a topic whose instances
    // come and go does not grow the table.
    if (instance.state == DDS_ALIVE_INSTANCE_STATE || instance.count != 0)
        return;
    expect_nothing(instance);
    instances_.erase(rtps::KeyHash(instance.key));
}

bool ReaderCache::unregister(Instance& instance, const Change& change) {
    const auto writer = std::find(instance.writers.begin(), instance.writers.end(), change.writer);
    if (writer == instance.writers.end())
        return false;
    instance.writers.erase(writer);
    if (instance.owner == change.writer)
        instance.owner.reset();
    if (!instance.writers.empty() || instance.state != DDS_ALIVE_INSTANCE_STATE)
        return false;
    expect_nothing(instance);
    make_room(instance, 0);
    append(instance, change, DDS_NOT_ALIVE_NO_WRITERS_INSTANCE_STATE);
    return true;
}

ReaderCache::Verdict ReaderCache::add(const Change& change) {
    if (change.kind == ChangeKind::unregistered) {
        const auto found = instances_.find(change.key);
        if (found == instances_.end())
            return Verdict::filtered;
        Instance& instance = *found->second;
        const bool stored = unregister(instance, change);
        forget_if_idle(instance);
        return stored ? Verdict::stored : Verdict::filtered;
    }

    Instance* instance = find_or_create(change.key);
    if (instance == nullptr)
        return Verdict::rejected_instances;
    if (!admits(change, *instance)) {
        forget_if_idle(*instance);
        return Verdict::filtered;
    }
    if (const std::optional<Verdict> exceeded = exceeded_limit(*instance)) {
        forget_if_idle(*instance);
        return *exceeded;
    }
    make_room(*instance, change.bytes);
    instance->last_source = change.source_timestamp;
    if (change.kind == ChangeKind::alive) {
        append(*instance, change, DDS_ALIVE_INSTANCE_STATE);
        expect_nothing(*instance);
        expect_next(*instance, rtps::later(change.received, settings_.deadline));
        return Verdict::stored;
    }
    append(*instance, change, DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE);
    expect_nothing(*instance);
    if (change.kind == ChangeKind::disposed_and_unregistered)
        unregister(*instance, change);
    return Verdict::stored;
}

bool ReaderCache::matches(const Entry& entry, const Selection& selection) const {
    const DDS_SampleStateMask sample_state =
        entry.was_read ? DDS_READ_SAMPLE_STATE : DDS_NOT_READ_SAMPLE_STATE;
    return (sample_state & selection.sample_states) != 0 &&
           (entry.info.view_state & selection.view_states) != 0 &&
           (entry.info.instance_state & selection.instance_states) != 0 &&
           (!selection.instance || *selection.instance == entry.key);
}

bool ReaderCache::has(const Selection& selection) const {
    for (const Entry* entry = oldest_; entry != nullptr; entry = entry->newer) {
        if (matches(*entry, selection))
            return true;
    }
    return false;
}

bool ReaderCache::take(const Selection& selection, Batch& batch) {
    return collect(selection, batch, true);
}

bool ReaderCache::read(const Selection& selection, Batch& batch) {
    return collect(selection, batch, false);
}

bool ReaderCache::collect(const Selection& selection, Batch& batch, bool remove) {
    const size_t most =
        selection.max_samples == DDS_LENGTH_UNLIMITED ? stored_ : static_cast<size_t>(selection.max_samples);
    for (Entry *entry = oldest_, *next = nullptr; entry != nullptr && batch.entries.size() < most;
         entry = next) {
        next = entry->newer;
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
            forget_if_idle(instance);
        }
    }
    return !batch.empty();
}

void ReaderCache::return_batch(Batch& batch) {
    for (Entry* entry : batch.entries) {
        if (--entry->loans == 0 && !entry->stored)
            recycle(*entry);
    }
    batch.samples.clear();
    batch.infos.clear();
    batch.entries.clear();
}

std::optional<rtps::KeyHash> ReaderCache::next_instance(const std::optional<rtps::KeyHash>& previous,
                                                        const Selection& selection) const {
    std::optional<rtps::KeyHash> best;
    for (const Entry* entry = oldest_; entry != nullptr; entry = entry->newer) {
        if ((!previous || *previous < entry->key) && (!best || entry->key < *best) &&
            matches(*entry, selection))
            best = entry->key;
    }
    return best;
}

void ReaderCache::expect_next(Instance& instance, rtps::MonotonicTime due) {
    if (due == rtps::kNever)
        return;
    // Nearly always the last place; only a timer that came late makes one go before others.
    Instance* before = last_due_;
    while (before != nullptr && due < before->due)
        before = before->due_before;
    instance.due = due;
    instance.due_before = before;
    instance.due_after = before != nullptr ? before->due_after : first_due_;
    (before != nullptr ? before->due_after : first_due_) = &instance;
    (instance.due_after != nullptr ? instance.due_after->due_before : last_due_) = &instance;
}

void ReaderCache::expect_nothing(Instance& instance) {
    if (instance.due == rtps::kNever)
        return;
    (instance.due_before != nullptr ? instance.due_before->due_after : first_due_) = instance.due_after;
    (instance.due_after != nullptr ? instance.due_after->due_before : last_due_) = instance.due_before;
    instance.due_before = instance.due_after = nullptr;
    instance.due = rtps::kNever;
}

rtps::MonotonicTime ReaderCache::next_deadline() const {
    return first_due_ != nullptr ? first_due_->due : rtps::kNever;
}

void ReaderCache::on_timer(rtps::MonotonicTime now, std::vector<DDS_InstanceHandle_t>& missed) {
    missed.clear();
    while (first_due_ != nullptr && first_due_->due <= now) {
        Instance& instance = *first_due_;
        missed.push_back(settings_.keyed ? instance_handle(instance.key) : DDS_HANDLE_NIL);
        // A writer that misses the deadline owns the instance no more: another one may take over.
        instance.owner.reset();
        // A period of zero is missed at every look; the next one is a millisecond away, so that time goes on.
        const rtps::Duration period =
            std::max<rtps::Duration>(settings_.deadline, std::chrono::milliseconds(1));
        const rtps::MonotonicTime regular = rtps::later(instance.due, period);
        expect_nothing(instance);
        expect_next(instance, regular > now ? regular : rtps::later(now, period));
    }
}

} // namespace meridian::dcps
