#pragma once

// What a reader has received and what was not taken yet: samples in order of reception, and the instances
// they belong to (OMG DDS 1.4, 2.2.2.5 and the reader's QoS policies of 2.2.3). A plain data structure: not
// thread-safe, no clock, no locks; the reader that owns it serialises all calls and says what time it is.
//
// View and instance state are those of the moment at which the sample arrived, not of the moment at which it
// is read: a watcher of the topic wants to know which sample created the instance and which one modified it.
//
// Samples are opaque here: pointers that come from the reader's type plugin and go back to SampleOwner. All
// that is kept is taken from the reader's share of memory; where that is used up, the longest unused
// instances are forgotten first, and then the oldest samples.

#include <memory>
#include <optional>
#include <vector>

#include "dcps/reader/instances.h"
#include "meridian/qos.h"
#include "meridian/sample_info.h"
#include "platform/memory_budget.h"
#include "rtps/protocol/times.h"

namespace meridian::dcps {

/// Takes samples back that the cache holds no more.
class SampleOwner {
  public:
    virtual ~SampleOwner() = default;
    virtual void release_sample(void* sample) = 0;
};

enum class ChangeKind {
    alive,        // a sample with data
    disposed,     // the instance was disposed, with or without data
    unregistered, // the writer will not write this instance any more; with data, that was the last
    disposed_and_unregistered,
};

/// One change of an instance by one writer, as it was received.
struct Change {
    ChangeKind kind = ChangeKind::alive;
    rtps::Guid writer;
    rtps::KeyHash key{}; // all zero for topics without key
    DDS_Time_t source_timestamp = DDS_TIME_INVALID;
    rtps::MonotonicTime received{0};
    DDS_SampleIdentity_t identity;
    DDS_SampleIdentity_t related_identity;
    DDS_UnsignedLong flag = 0;
    void* sample = nullptr; // adopted by the cache when it stores the change; null without data
    size_t bytes = 0;       // that the sample takes
};

class ReaderCache {
  public:
    struct Settings {
        bool keyed = true;
        DDS_HistoryQosPolicy history;
        DDS_ResourceLimitsQosPolicy limits;
        DDS_OwnershipQosPolicyKind ownership = DDS_SHARED_OWNERSHIP_QOS;
        DDS_DestinationOrderQosPolicyKind destination_order = DDS_BY_RECEPTION_TIMESTAMP_DESTINATIONORDER_QOS;
        rtps::Duration minimum_separation{0}; // of the samples of one instance
        rtps::Duration deadline = rtps::kNever;
    };

    enum class Verdict {
        stored,
        filtered,         // not for this reader: time-based filter, ownership, destination order, nothing new
        lost,             // no memory, even without all that waited; counted as overwritten
        rejected_samples, // resource limits; the sample is lost
        rejected_instances,
        rejected_samples_per_instance,
    };

    using Entry = CacheEntry;

    /// Samples handed to a caller, in order of reception. `samples[i]` is null where infos[i] has no valid
    /// data.
    struct Batch {
        std::vector<void*> samples;
        std::vector<DDS_SampleInfo*> infos;
        std::vector<Entry*> entries;
        bool empty() const { return infos.empty(); }
    };

    struct Selection {
        DDS_Long max_samples = DDS_LENGTH_UNLIMITED;
        DDS_SampleStateMask sample_states = DDS_ANY_SAMPLE_STATE;
        DDS_ViewStateMask view_states = DDS_ANY_VIEW_STATE;
        DDS_InstanceStateMask instance_states = DDS_ANY_INSTANCE_STATE;
        std::optional<rtps::KeyHash> instance; // only samples of this one
    };

    /// `owner` and `share` must outlive the cache.
    ReaderCache(const Settings& settings, SampleOwner& owner, MemoryShare& share);
    /// Releases all samples, those of batches that were never returned included.
    ~ReaderCache();
    ReaderCache(const ReaderCache&) = delete;
    ReaderCache& operator=(const ReaderCache&) = delete;

    /// Changes what can change while in use; samples already held are kept.
    void update(const Settings& settings);

    /// A writer that matches now, with its ownership strength; a known one takes the new strength.
    void add_writer(const rtps::Guid& writer, int32_t strength) {
        instances_.writer(writer).strength = strength;
    }
    /// The writer does not match any more: its strength is forgotten. writer_gone comes first.
    void forget_writer(const rtps::Guid& writer) { instances_.forget_writer(writer); }
    /// The writer is gone or not alive: instances without another writer lose their last one, which is
    /// one sample without data each. True when such a sample was stored.
    bool writer_gone(const rtps::Guid& writer, DDS_Time_t when, rtps::MonotonicTime now);

    /// Stores, or says why not. Unless the verdict is `stored`, the sample stays the caller's. An
    /// unregistration that changes nothing is `filtered`.
    Verdict add(const Change& change);

    /// True when a sample that matches is held; take and read fill the batch (which must be empty) with them.
    /// False when there was none. Entries that were read stay in the cache, those taken leave it.
    bool has(const Selection& selection) const;
    bool take(const Selection& selection, Batch& batch) { return collect(selection, batch, true); }
    bool read(const Selection& selection, Batch& batch) { return collect(selection, batch, false); }
    /// The samples of the batch may be released; the batch is empty afterwards.
    void return_batch(Batch& batch);

    /// False also for one that was forgotten: its next sample is new again.
    bool knows_instance(const rtps::KeyHash& key) const { return instances_.knows(key); }
    /// The instance after `previous` (or the first one) in the order of their keys that holds a sample of
    /// `selection`.
    std::optional<rtps::KeyHash> next_instance(const std::optional<rtps::KeyHash>& previous,
                                               const Selection& selection) const;

    /// When on_timer wants to be called next (deadlines); kNever without.
    rtps::MonotonicTime next_deadline() const;
    /// Puts the instances that missed their deadline by now into `missed`, once per period.
    void on_timer(rtps::MonotonicTime now, std::vector<DDS_InstanceHandle_t>& missed);

    size_t sample_count() const { return count_; }
    /// Samples with data that later ones pushed out before they were taken, or that found no memory.
    uint64_t overwritten() const { return overwritten_; }

  private:
    bool take_memory(size_t bytes, const Instance* spared);
    Instance* find_or_create(const rtps::KeyHash& key, Verdict& failure);
    Verdict store(const Change& change, Instance& instance);
    bool admits(const Change& change, Instance& instance, InstanceWriter& writer);
    bool wins_ownership(const InstanceWriter& writer, Instance& instance);
    std::optional<Verdict> exceeded_limit(const Instance& instance) const;
    void make_room(Instance& instance);
    Entry* new_entry(size_t bytes, const Instance& instance);
    bool append(Instance& instance, const Change& change, DDS_InstanceStateMask state);
    bool unregister(Instance& instance, const Change& change, bool has_room);
    void unlink(Entry& entry);
    void recycle(Entry& entry);
    void drop_oldest_of(Entry* entry);
    void settle(Instance& instance);
    void forget(Instance& instance);
    bool collect(const Selection& selection, Batch& batch, bool remove);
    bool matches(const Entry& entry, const Selection& selection) const;
    void expect_next(Instance& instance, rtps::MonotonicTime due);
    void expect_nothing(Instance& instance);

    Settings settings_;
    SampleOwner& owner_;
    MemoryShare& share_;
    Instances instances_;
    Chain<Entry> stored_; // in order of reception
    Chain<Entry> loaned_; // that were taken and not given back
    size_t count_ = 0;    // of those that are stored
    uint64_t overwritten_ = 0;
    // Alive instances in order of their deadline. All periods are equal, so the last one written is due last.
    Chain<Instance> by_due_;
    std::vector<std::unique_ptr<Entry>> spare_entries_;
};

} // namespace meridian::dcps
