#include "quixspy/quixSpyIndex.h"

#include <sys/random.h>

#include <chrono>
#include <cstring>

namespace {

/// SipHash-1-3 (Aumasson and Bernstein, 2012) of texts given one after the other.
class Hash {
  public:
    explicit Hash(uint64_t seed)
        : v0_(seed ^ 0x736f6d6570736575U),
          v1_(~seed ^ 0x646f72616e646f6dU),
          v2_(seed ^ 0x6c7967656e657261U),
          v3_(~seed ^ 0x7465646279746573U) {}

    void add(const void* bytes, size_t length) {
        const auto* byte = static_cast<const unsigned char*>(bytes);
        for (; length >= 8; length -= 8, byte += 8) {
            uint64_t word = 0;
            std::memcpy(&word, byte, 8);
            add_word(word);
        }
        // The length in the last word tells where one text ends and the next begins.
        uint64_t word = static_cast<uint64_t>(length) << 56;
        std::memcpy(&word, byte, length);
        add_word(word);
    }

    uint64_t value() {
        v2_ ^= 0xff;
        for (int i = 0; i < 3; ++i)
            round();
        return v0_ ^ v1_ ^ v2_ ^ v3_;
    }

  private:
    static uint64_t turn(uint64_t word, unsigned bits) { return word << bits | word >> (64 - bits); }
    void add_word(uint64_t word) {
        v3_ ^= word;
        round();
        v0_ ^= word;
    }
    void round() {
        v0_ += v1_;
        v1_ = turn(v1_, 13) ^ v0_;
        v0_ = turn(v0_, 32);
        v2_ += v3_;
        v3_ = turn(v3_, 16) ^ v2_;
        v0_ += v3_;
        v3_ = turn(v3_, 21) ^ v0_;
        v2_ += v1_;
        v1_ = turn(v1_, 17) ^ v2_;
        v2_ = turn(v2_, 32);
    }

    uint64_t v0_;
    uint64_t v1_;
    uint64_t v2_;
    uint64_t v3_;
};

} // namespace

uint64_t QUIXSpy_hash(uint64_t seed, const void* bytes, size_t length) {
    Hash hash(seed);
    hash.add(bytes, length);
    return hash.value();
}

uint64_t QUIXSpy_hash(uint64_t seed, std::string_view first, std::string_view second) {
    Hash hash(seed);
    hash.add(first.data(), first.size());
    hash.add(second.data(), second.size());
    return hash.value();
}

uint64_t QUIXSpy_seed() {
    uint64_t seed = 0;
    if (getrandom(&seed, sizeof seed, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof seed))
        seed = static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
    return seed != 0 ? seed : 1;
}
