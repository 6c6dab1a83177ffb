#pragma once

// Other key hashes by which writers know instances. What the type says of a payload identifies an instance
// (makers form hashes differently, and Fast DDS 3.1 even lets stale padding into its own, so that one
// instance has several). But disposes may carry nothing but the writer's hash: it then means the instance of
// the sample that came with the same hash. Not thread-safe.

#include <memory>
#include <unordered_map>
#include <vector>

#include "dcps/reader/instances.h"
#include "platform/memory_budget.h"
#include "platform/seeded_hash.h"
#include "rtps/wire/types.h"
#include "types/data/key_hasher.h"

namespace meridian::dcps {

class KeyAliases {
  public:
    /// Kept for one reader, as many as instances; the longest unused one is forgotten for a further one, or
    /// when memory is short. It goes when its instance does: both are used by the same samples.
    static constexpr size_t kMost = Instances::kMost;

    /// The budget must outlive this.
    explicit KeyAliases(MemoryBudget& budget = MemoryBudget::of_process()) : share_(budget) {}

    /// The writer sent a sample of instance `key` with a hash of its own.
    void note(const rtps::Guid& writer, const rtps::KeyHash& sent, const rtps::KeyHash& key);
    /// The instance that the writer means by a hash: `sent` itself when nothing else is known.
    rtps::KeyHash instance_of(const rtps::Guid& writer, const rtps::KeyHash& sent) const;
    void forget(const rtps::Guid& writer);

  private:
    struct Alias;
    using OfWriter = std::unordered_map<rtps::KeyHash, Alias, SeededHash>;
    struct Alias {
        rtps::KeyHash key{};
        const rtps::KeyHash* sent = nullptr;
        OfWriter* of_writer = nullptr;
        Links<Alias> by_use;
    };
    static constexpr size_t kBytes = sizeof(rtps::KeyHash) + sizeof(Alias) + 4 * sizeof(void*);

    void drop(Alias& alias);

    MemoryShare share_;
    std::unordered_map<rtps::Guid, OfWriter> writers_;
    Chain<Alias> by_use_;
    size_t count_ = 0;
};

/// The hashes by which a writer may know the instances of its samples although it sends none with them: Fast
/// DDS 3 hashes in the XCDR2 form, and its disposes carry nothing else. Not thread-safe.
class KeyForms {
  public:
    /// Null for types without key, or whose keys all makers hash alike: their samples need no further work.
    static std::unique_ptr<KeyForms> of(const DDS_TypeCode* type);

    /// The writer sent a sample of instance `key` without hash. A payload that does not have this key by its
    /// type tells nothing.
    void note(const types::SampleSource& source, rtps::ByteView payload, bool key_only,
              const rtps::KeyHash& key, KeyAliases& aliases);

  private:
    explicit KeyForms(const types::Type& type) : reader_(types::TypeRef(&type)), hasher_(reader_) {}

    const types::SampleReader reader_;
    const types::KeyHasher hasher_;
    std::vector<rtps::KeyHash> hashes_;
};

} // namespace meridian::dcps
