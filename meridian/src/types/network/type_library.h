#pragma once

// Type objects that were received, and the type codes made of them. A client of the type lookup service adds
// what peers answer, asks for a type, and looks up what is reported missing until nothing is.
//
// Not thread-safe: callers on several threads must lock. The TypeRefs that it makes are independent of it.

#include <map>
#include <set>
#include <string>
#include <vector>

#include "types/model/type.h"
#include "types/network/type_object.h"

namespace meridian::types {

class TypeLibrary {
  public:
    /// A larger type object is refused.
    static constexpr size_t kMaxObjectSize = 4 << 20;

    enum class Added { yes, known, malformed, too_large, not_genuine };

    /// Decodes and keeps a serialized type object under `hash`, without a look at whether that is its hash.
    /// `bytes` are not needed afterwards.
    Added add(const TypeHash& hash, rtps::ByteView bytes, rtps::Endianness order = rtps::Endianness::little);
    /// The same, only when the hash was made of the object. For one of a set of types that refer to each
    /// other in cycles see forged_cycles: their hash covers all of them.
    Added add_genuine(const TypeHash& hash, rtps::ByteView bytes, rtps::Endianness order);
    /// Keeps one that was decoded already, of that serialized size.
    Added add(const TypeHash& hash, TypeObject object, size_t size);
    void remove(const TypeHash& hash) { entries_.erase(hash); }
    bool has(const TypeHash& hash) const { return entries_.count(hash) != 0; }
    /// Null where it was not added.
    const TypeObject* find(const TypeHash& hash) const;
    /// Bytes that an object which was added takes in memory.
    size_t memory_of(const TypeHash& hash) const;

    /// What is still to be asked for before `root` can be built, without duplicates.
    std::vector<TypeHash> missing(const TypeIdentifier& root) const;
    /// Summed serialized size of the objects of `root` and all it depends on, as far as they are here.
    uint64_t closure_size(const TypeIdentifier& root) const;
    /// Those objects of `root`, of which nothing is missing, that are of a set with another hash than theirs.
    std::vector<TypeHash> forged_cycles(const TypeIdentifier& root) const;

    /// The type code of `root`. Empty, with the reason in `error`, while something is missing, or when the
    /// objects do not make a type, or exceed the limits of type.h.
    TypeRef build(const TypeIdentifier& root, std::string& error) const;

  private:
    struct Entry {
        TypeObject object;
        size_t size = 0;
        rtps::ByteBuffer canonical; // of those in cycles
    };

    const Entry* entry_of(const TypeHash& hash) const;
    std::set<TypeHash> closure(const TypeIdentifier& root) const;
    bool is_genuine_cycle(TypeHash member) const;

    std::map<TypeHash, Entry> entries_;
};

} // namespace meridian::types
