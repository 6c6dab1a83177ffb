#pragma once

// What a reader has received and what was not taken yet: samples in order of reception, and the instances
// they belong to (OMG DDS 1.4, 2.2.2.5 and the reader's QoS policies of 2.2.3). A plain data structure: not
// thread-safe, no clock, no locks; the reader that owns it serialises all calls and says what time it is.
//
// View and instance state are those of the moment at which the sample arrived, not of the moment at which it
// is read: a watcher of the topic wants to know which sample created the instance and which one modified it.
//
// Samples are opaque here: pointers that come from the reader's type plugin and go back to SampleOwner.

#include <array>
#include <deque>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "meridian/qos.h"
#include "meridian/sample_info.h"
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
    unregistered, // the writer will not write this instance any more, no data
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
    size_t bytes = 0;       // serialized size of the sample, for the limit on memory
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
        /// Serialized bytes held at most; beyond it the oldest samples go, however deep the history is. A
        /// terminal that stands still must not make the process eat all memory.
        size_t maximum_bytes = size_t{256} << 20;
    };

    enum class Verdict {
        stored,
        filtered,         // not for this reader: time-based filter, ownership, destination order, nothing new
        rejected_samples, // resource limits; the sample is lost
        rejected_instances,
        rejected_samples_per_instance,
    };

    struct Entry;

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

    /// `owner` must outlive the cache.
    ReaderCache(const Settings& settings, SampleOwner& owner);
    /// Releases all samples, those of batches that were never returned included.
    ~ReaderCache();
    ReaderCache(const ReaderCache&) = delete;
    ReaderCache& operator=(const ReaderCache&) = delete;

    /// Changes what can change while in use; samples already held are kept.
    void update(const Settings& settings);

    /// A writer that matches now, with its ownership strength; a known one takes the new strength.
    void add_writer(const rtps::Guid& writer, int32_t strength);
    /// The writer does not match any more: its strength is forgotten. writer_gone comes first.
    void forget_writer(const rtps::Guid& writer) { strengths_.erase(writer); }
    /// The writer is gone or not alive: instances without another writer lose their last one, which is
    /// one sample without data each. True when such a sample was stored.
    bool writer_gone(const rtps::Guid& writer, DDS_Time_t when, rtps::MonotonicTime now);

    /// Stores, or says why not. Unless the verdict is `stored`, the sample stays the caller's. An
    /// unregistration that changes nothing is `filtered`.
    Verdict add(const Change& change);

    /// True when a sample that matches is held; take and read fill the batch (which must be empty) with them.
    /// False when there was none. Entries that were read stay in the cache, those taken leave it.
    bool has(const Selection& selection) const;
    bool take(const Selection& selection, Batch& batch);
    bool read(const Selection& selection, Batch& batch);
    /// The samples of the batch may be released; the batch is empty afterwards.
    void return_batch(Batch& batch);

    bool knows_instance(const rtps::KeyHash& key) const { return instances_.count(key) != 0; }
    /// The instance after `previous` (or the first one) in the order of their keys that holds a sample of
    /// `selection`.
    std::optional<rtps::KeyHash> next_instance(const std::optional<rtps::KeyHash>& previous,
                                               const Selection& selection) const;

    /// When on_timer wants to be called next (deadlines); kNever without.
    rtps::MonotonicTime next_deadline() const;
    /// Puts the instances that missed their deadline by now into `missed`, once per period.
    void on_timer(rtps::MonotonicTime now, std::vector<DDS_InstanceHandle_t>& missed);

    size_t sample_count() const { return stored_; }
    /// Samples with data that later ones pushed out before they were taken.
    uint64_t overwritten() const { return overwritten_; }

  private:
    struct Instance;
    struct KeyHasher {
        size_t operator()(const rtps::KeyHash& key) const noexcept;
    };

    Instance* find_or_create(const rtps::KeyHash& key);
    bool admits(const Change& change, Instance& instance);
    bool wins_ownership(const rtps::Guid& writer, Instance& instance);
    std::optional<Verdict> exceeded_limit(const Instance& instance) const;
    void make_room(Instance& instance, size_t bytes);
    Entry& append(Instance& instance, const Change& change, DDS_InstanceStateMask state);
    bool unregister(Instance& instance, const Change& change);
    void unlink(Entry& entry);
    void recycle(Entry& entry);
    void drop_oldest_of(Entry* entry);
    void forget_if_idle(Instance& instance);
    bool collect(const Selection& selection, Batch& batch, bool remove);
    bool matches(const Entry& entry, const Selection& selection) const;
    int32_t strength_of(const rtps::Guid& writer) const;
    void expect_next(Instance& instance, rtps::MonotonicTime due);
    void expect_nothing(Instance& instance);

    Settings settings_;
    SampleOwner& owner_;
    std::unordered_map<rtps::KeyHash, std::unique_ptr<Instance>, KeyHasher> instances_;
    std::unordered_map<rtps::Guid, int32_t> strengths_;
    Entry* oldest_ = nullptr;
    Entry* newest_ = nullptr;
    size_t stored_ = 0;
    size_t bytes_ = 0;
    uint64_t overwritten_ = 0;
    // Alive instances in order of their deadline. All periods are equal, so the last one written is due last.
    Instance* first_due_ = nullptr;
    Instance* last_due_ = nullptr;
    std::deque<Entry> slab_; // grows only, so that addresses are stable
    std::vector<Entry*> free_entries_;
};

} // namespace meridian::dcps
