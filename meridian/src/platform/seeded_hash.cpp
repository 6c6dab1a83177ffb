#include "platform/seeded_hash.h"

#include <sys/random.h>

#include <chrono>
#include <cstring>

namespace meridian {

namespace {

__extension__ using Product = unsigned __int128;

struct Seeds {
    uint64_t first = 0;
    uint64_t second = 0;
};

Seeds draw() {
    Seeds seeds;
    if (getrandom(&seeds, sizeof seeds, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof seeds)) {
        seeds.first = static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
        seeds.second = reinterpret_cast<uintptr_t>(&seeds);
    }
    return seeds;
}

/// Both halves of the product. What a difference of the words does to it depends on the seeds in them.
uint64_t fold(uint64_t a, uint64_t b) {
    const Product product = Product{a} * b;
    return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

} // namespace

size_t seeded_hash(const void* bytes, size_t size) noexcept {
    static const Seeds seeds = draw();
    const auto* byte = static_cast<const unsigned char*>(bytes);
    uint64_t hash = seeds.first ^ size;
    uint64_t words[2];
    for (; size > sizeof words; size -= sizeof words, byte += sizeof words) {
        std::memcpy(words, byte, sizeof words);
        hash = fold(words[0] ^ seeds.second, words[1] ^ hash);
    }
    words[0] = words[1] = 0;
    if (size > 0)
        std::memcpy(words, byte, size);
    return static_cast<size_t>(fold(words[0] ^ seeds.second, words[1] ^ hash));
}

} // namespace meridian
