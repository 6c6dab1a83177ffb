#include "types/network/type_library.h"

#include <algorithm>
#include <array>
#include <utility>

namespace meridian::types {

using rtps::ByteReader;
using rtps::ByteView;

TypeLibrary::Added TypeLibrary::add(const TypeHash& hash, ByteView bytes, rtps::Endianness order) {
    if (has(hash))
        return Added::known;
    if (bytes.size > kMaxObjectSize)
        return Added::too_large;
    ByteReader reader(bytes, order, rtps::kXcdr2MaxAlignment);
    Entry entry;
    if (!read(reader, entry.object) || entry.object.complete != (hash.kind == tk::kComplete))
        return Added::malformed;
    entry.size = bytes.size;
    if (hash.component_length != 0)
        entry.canonical = canonical(bytes, order);
    entries_.emplace(hash, std::move(entry));
    return Added::yes;
}

TypeLibrary::Added TypeLibrary::add(const TypeHash& hash, TypeObject object, size_t size) {
    if (object.complete != (hash.kind == tk::kComplete))
        return Added::malformed;
    return entries_.try_emplace(hash, Entry{std::move(object), size, {}}).second ? Added::yes : Added::known;
}

TypeLibrary::Added TypeLibrary::add_genuine(const TypeHash& hash, ByteView bytes, rtps::Endianness order) {
    // As it came first: peers may know annotations that are not understood here.
    const bool complete = hash.kind == tk::kComplete;
    const bool genuine = hash.component_length != 0 ||
                         (order == rtps::Endianness::little && hash_of(bytes, complete) == hash) ||
                         hash_of(canonical(bytes, order), complete) == hash;
    return genuine ? add(hash, bytes, order) : Added::not_genuine;
}

size_t TypeLibrary::memory_of(const TypeHash& hash) const {
    const Entry* entry = entry_of(hash);
    return entry != nullptr ? sizeof(Entry) + entry->canonical.size() + types::memory_of(entry->object) : 0;
}

/// The hash of a set was made over all of its objects in their order, while zeros stood where they refer to
/// each other (7.3.4.9).
bool TypeLibrary::is_genuine_cycle(TypeHash member) const {
    const bool complete = member.kind == tk::kComplete;
    std::array<uint8_t, 15> reference{member.kind};
    std::copy(member.bytes.begin(), member.bytes.end(), reference.begin() + 1);
    rtps::ByteBuffer bytes;
    rtps::ByteWriter writer(bytes, rtps::Endianness::little, rtps::kXcdr2MaxAlignment);
    writer.write(uint32_t{0});
    writer.write(static_cast<uint32_t>(member.component_length));
    for (int32_t index = 1; index <= member.component_length; ++index) {
        member.component_index = index;
        const Entry* entry = entry_of(member);
        if (entry == nullptr)
            return false;
        writer.align(4);
        writer.write_bytes(entry->canonical);
    }
    for (auto at = bytes.begin();; at += reference.size()) {
        at = std::search(at, bytes.end(), reference.begin(), reference.end());
        if (at == bytes.end())
            break;
        std::fill_n(at + 1, reference.size() - 1, uint8_t{0});
    }
    writer.patch(0, static_cast<uint32_t>(bytes.size() - 4));
    // Some peers leave the length of the whole out.
    return hash_of(bytes, complete).bytes == member.bytes ||
           hash_of(ByteView(bytes.data() + 4, bytes.size() - 4), complete).bytes == member.bytes;
}

std::vector<TypeHash> TypeLibrary::forged_cycles(const TypeIdentifier& root) const {
    std::vector<TypeHash> forged;
    for (const TypeHash& hash : closure(root)) {
        if (hash.component_length != 0 && !is_genuine_cycle(hash))
            forged.push_back(hash);
    }
    return forged;
}

const TypeLibrary::Entry* TypeLibrary::entry_of(const TypeHash& hash) const {
    const auto found = entries_.find(hash);
    return found == entries_.end() ? nullptr : &found->second;
}

const TypeObject* TypeLibrary::find(const TypeHash& hash) const {
    const Entry* entry = entry_of(hash);
    return entry != nullptr ? &entry->object : nullptr;
}

std::set<TypeHash> TypeLibrary::closure(const TypeIdentifier& root) const {
    std::set<TypeHash> seen;
    std::vector<TypeHash> open;
    collect_hashes(root, open);
    while (!open.empty()) {
        const TypeHash hash = open.back();
        open.pop_back();
        if (!seen.insert(hash).second)
            continue;
        if (const TypeObject* object = find(hash))
            collect_hashes(*object, open);
    }
    return seen;
}

std::vector<TypeHash> TypeLibrary::missing(const TypeIdentifier& root) const {
    std::vector<TypeHash> result;
    for (const TypeHash& hash : closure(root)) {
        if (!has(hash))
            result.push_back(hash);
    }
    return result;
}

uint64_t TypeLibrary::closure_size(const TypeIdentifier& root) const {
    uint64_t total = 0;
    for (const TypeHash& hash : closure(root)) {
        if (const Entry* entry = entry_of(hash))
            total += entry->size;
    }
    return total;
}

} // namespace meridian::types
