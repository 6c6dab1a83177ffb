#pragma once

// Other key hashes by which writers know instances. What the type says of a payload identifies an instance
// (makers form hashes differently, and Fast DDS 3.1 even lets stale padding into its own, so that one
// instance has several). But disposes may carry nothing but the writer's hash: it then means the instance of
// the sample that came with the same hash. Not thread-safe.

#include <unordered_map>

#include "rtps/wire/types.h"

namespace meridian::dcps {

class KeyAliases {
  public:
    /// Kept for each writer; a writer with more starts anew.
    static constexpr size_t kMaxPerWriter = size_t{1} << 18;

    /// The writer sent a sample of instance `key` with a hash of its own.
    void note(const rtps::Guid& writer, const rtps::KeyHash& sent, const rtps::KeyHash& key);
    /// The instance that the writer means by a hash: `sent` itself when nothing else is known.
    rtps::KeyHash instance_of(const rtps::Guid& writer, const rtps::KeyHash& sent) const;
    void forget(const rtps::Guid& writer) { writers_.erase(writer); }

  private:
    struct Hasher {
        size_t operator()(const rtps::KeyHash& key) const noexcept;
    };
    std::unordered_map<rtps::Guid, std::unordered_map<rtps::KeyHash, rtps::KeyHash, Hasher>> writers_;
};

} // namespace meridian::dcps
