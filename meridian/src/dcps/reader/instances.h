#pragma once

// The instances that a reader knows, and the writers that wrote them. Those that are in no use are forgotten
// at a limit, the longest unused first: a writer of ever new keys must not take ever more memory. A plain
// data structure: not thread-safe; the cache that owns it locks.

#include <limits>
#include <unordered_map>
#include <vector>

#include "meridian/sample_info.h"
#include "platform/chain.h"
#include "platform/memory_budget.h"
#include "platform/seeded_hash.h"
#include "rtps/protocol/times.h"
#include "rtps/wire/types.h"

namespace meridian::dcps {

struct CacheEntry;
struct Instance;
struct InstanceWriter;

/// A writer wrote an instance and did not unregister it.
struct Registration {
    InstanceWriter* writer = nullptr;
    Instance* instance = nullptr;
    Links<Registration> of_writer;
    Registration* next = nullptr; // of the instance
};

struct InstanceWriter {
    rtps::Guid guid;
    int32_t strength = 0;
    Chain<Registration> registrations;
};

/// There are many, so it is kept small.
struct Instance {
    static constexpr rtps::MonotonicTime kNeverYet{std::numeric_limits<int64_t>::min()};

    const rtps::KeyHash* key = nullptr;
    DDS_InstanceStateMask state = DDS_NOT_ALIVE_NO_WRITERS_INSTANCE_STATE;
    uint32_t count = 0; // of its samples
    Chain<CacheEntry> samples;
    Registration* registrations = nullptr; // the latest writer first
    Links<Instance> by_use;
    bool unused = false;
    DDS_Time_t last_source = DDS_TIME_INVALID;
    rtps::MonotonicTime due = rtps::kNever; // deadline
    Links<Instance> by_due;
    const InstanceWriter* owner = nullptr;         // exclusive ownership; one of those that are registered
    rtps::MonotonicTime last_accepted = kNeverYet; // for the time-based filter
};

class Instances {
  public:
    /// Beyond it the longest unused ones are to be forgotten.
    static constexpr size_t kMost = 65536;
    /// Of each instance those that wrote it last are remembered.
    static constexpr size_t kMostWritersOfInstance = 1024;
    /// What an instance and a registration take, with what the allocator adds.
    static constexpr size_t kBytes = sizeof(Instance) + sizeof(rtps::KeyHash) + 4 * sizeof(void*);
    static constexpr size_t kRegistrationBytes = sizeof(Registration) + sizeof(void*);

    /// Gives back to the share, which must outlive this; what is made was taken from it before.
    explicit Instances(MemoryShare& share) : share_(share) {}
    ~Instances();
    Instances(const Instances&) = delete;
    Instances& operator=(const Instances&) = delete;

    Instance* find(const rtps::KeyHash& key);
    bool knows(const rtps::KeyHash& key) const { return instances_.count(key) != 0; }
    /// `key` is not known, and kBytes were taken.
    Instance& create(const rtps::KeyHash& key);
    /// It has no samples.
    void forget(Instance& instance);
    size_t size() const { return instances_.size(); }

    /// Whether it may be forgotten: nothing may be done with an instance that is not in use.
    void set_used(Instance& instance, bool used);
    /// Of those that have ended, if there is any. Null when all are in use.
    Instance* longest_unused() const { return by_use_.first(); }

    /// Known from its first mention on.
    InstanceWriter& writer(const rtps::Guid& guid);
    void forget_writer(const rtps::Guid& guid);
    /// Whether the writer is registered with the instance, and then the latest of it.
    static bool recall(Instance& instance, const InstanceWriter& writer);
    /// It is not, and kRegistrationBytes were taken.
    void enrol(Instance& instance, InstanceWriter& writer);
    /// False: it was not registered.
    bool unregister(Instance& instance, const rtps::Guid& writer);
    /// In the order of their keys.
    std::vector<rtps::KeyHash> written_by(const rtps::Guid& writer) const;

  private:
    /// Takes what `place` points at out of its lists and gives it back.
    void drop(Registration** place);

    MemoryShare& share_;
    std::unordered_map<rtps::KeyHash, Instance, SeededHash> instances_;
    std::unordered_map<rtps::Guid, InstanceWriter> writers_;
    // Most samples are of the instance and the writer of the one before.
    Instance* last_found_ = nullptr;
    InstanceWriter* last_writer_ = nullptr;
    Chain<Instance> by_use_; // those that have ended, then the others; of each the longest unused first
    Instance* last_ended_ = nullptr; // of those, in by_use_
};

} // namespace meridian::dcps
