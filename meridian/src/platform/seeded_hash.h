#pragma once

// Hashes for tables whose keys come from the network. Who sends chosen keys must not be able to make them
// all fall into one bucket, so the hash depends on a number that each process draws for itself.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace meridian {

/// The same for equal bytes as long as the process lives, and not to be foreseen. Any thread.
size_t seeded_hash(const void* bytes, size_t size) noexcept;

/// For unordered containers.
struct SeededHash {
    size_t operator()(const std::string& text) const noexcept {
        return seeded_hash(text.data(), text.size());
    }
    template <size_t Size>
    size_t operator()(const std::array<uint8_t, Size>& bytes) const noexcept {
        return seeded_hash(bytes.data(), Size);
    }
    size_t operator()(uint32_t number) const noexcept { return seeded_hash(&number, sizeof number); }
};

} // namespace meridian
