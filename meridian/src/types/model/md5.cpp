#include "types/model/md5.h"

#include <cmath>
#include <cstring>

namespace meridian::types {

namespace {

struct Table {
    std::array<uint32_t, 64> sines{};
    Table() {
        for (size_t i = 0; i < 64; ++i)
            sines[i] = static_cast<uint32_t>(
                std::floor(std::fabs(std::sin(static_cast<double>(i + 1))) * 4294967296.0));
    }
};

constexpr uint8_t kRotations[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

using State = std::array<uint32_t, 4>;

void add_block(State& state, const uint8_t* block) {
    static const Table table;
    uint32_t words[16];
    for (size_t i = 0; i < 16; ++i)
        words[i] = uint32_t{block[4 * i]} | uint32_t{block[4 * i + 1]} << 8 |
                   uint32_t{block[4 * i + 2]} << 16 | uint32_t{block[4 * i + 3]} << 24;
    auto [a, b, c, d] = state;
    for (size_t i = 0; i < 64; ++i) {
        uint32_t mixed = 0;
        size_t word = 0;
        switch (i / 16) {
            case 0:
                mixed = (b & c) | (~b & d);
                word = i;
                break;
            case 1:
                mixed = (d & b) | (~d & c);
                word = (5 * i + 1) % 16;
                break;
            case 2:
                mixed = b ^ c ^ d;
                word = (3 * i + 5) % 16;
                break;
            default:
                mixed = c ^ (b | ~d);
                word = (7 * i) % 16;
                break;
        }
        const uint32_t sum = a + mixed + table.sines[i] + words[word];
        const uint8_t rotation = kRotations[i / 16][i % 4];
        a = d;
        d = c;
        c = b;
        b += sum << rotation | sum >> (32 - rotation);
    }
    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
}

} // namespace

std::array<uint8_t, 16> md5(rtps::ByteView bytes) {
    State state{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    size_t done = 0;
    for (; bytes.size - done >= 64; done += 64)
        add_block(state, bytes.data + done);

    // The last bytes, one set bit, zeros, and the length in bits in the last eight bytes of a block.
    uint8_t tail[128] = {};
    const size_t rest = bytes.size - done;
    if (rest > 0)
        std::memcpy(tail, bytes.data + done, rest);
    tail[rest] = 0x80;
    const size_t tail_size = rest < 56 ? 64 : 128;
    const uint64_t bits = uint64_t{bytes.size} * 8;
    for (size_t i = 0; i < 8; ++i)
        tail[tail_size - 8 + i] = static_cast<uint8_t>(bits >> (8 * i));
    for (size_t offset = 0; offset < tail_size; offset += 64)
        add_block(state, tail + offset);

    std::array<uint8_t, 16> digest{};
    for (size_t i = 0; i < 16; ++i)
        digest[i] = static_cast<uint8_t>(state[i / 4] >> (8 * (i % 4)));
    return digest;
}

std::array<uint8_t, 4> name_hash(std::string_view name) {
    const auto digest = md5({reinterpret_cast<const uint8_t*>(name.data()), name.size()});
    return {digest[0], digest[1], digest[2], digest[3]};
}

uint32_t hashed_member_id(std::string_view name) {
    const auto hash = name_hash(name);
    return (uint32_t{hash[0]} | uint32_t{hash[1]} << 8 | uint32_t{hash[2]} << 16 | uint32_t{hash[3]} << 24) &
           0x0fffffff;
}

} // namespace meridian::types
