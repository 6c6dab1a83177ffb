#include "platform/seeded_hash.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <set>

namespace meridian {
namespace {

using Key = std::array<uint8_t, 16>;

Key key(uint64_t high, uint64_t low) {
    Key made{};
    std::memcpy(made.data(), &high, 8);
    std::memcpy(made.data() + 8, &low, 8);
    return made;
}

TEST(SeededHash, IsTheSameForEqualBytesOfAnyLength) {
    const std::string text(100, 'x');
    for (size_t size = 0; size <= text.size(); ++size)
        EXPECT_EQ(seeded_hash(text.data(), size), SeededHash()(text.substr(0, size)));
}

TEST(SeededHash, TellsLengthsApart) {
    std::set<size_t> hashes;
    for (size_t size = 0; size <= 64; ++size)
        hashes.insert(SeededHash()(std::string(size, '\0')));
    EXPECT_EQ(hashes.size(), 65u);
}

// Differences that a multiplication by a known number passes on whatever was added before.
TEST(SeededHash, SpreadsKeysThatWereChosenForOneBucket) {
    std::map<size_t, int> buckets;
    constexpr uint64_t kKeys = 20000;
    for (uint64_t i = 0; i < kKeys; ++i) {
        ++buckets[SeededHash()(key(i * 0x9e3779b97f4a7c15u, i)) % kKeys];
        ++buckets[SeededHash()(key(i << 48, 0)) % kKeys];
    }
    for (const auto& [bucket, count] : buckets)
        EXPECT_LT(count, 40) << bucket;
}

// Run as a program of its own by the next one.
TEST(SeededHash, DISABLED_Print) {
    std::printf("hash=%zu\n", SeededHash()(std::string("a topic")));
}

TEST(SeededHash, IsAnotherOneInEachProcess) {
    char program[4096] = {};
    ASSERT_GT(readlink("/proc/self/exe", program, sizeof program - 1), 0);
    const std::string command = std::string("'") + program +
                                "' --gtest_also_run_disabled_tests --gtest_filter=SeededHash.DISABLED_Print";
    std::set<std::string> hashes;
    for (int run = 0; run < 2; ++run) {
        FILE* const output = popen(command.c_str(), "r");
        ASSERT_NE(output, nullptr);
        char line[256];
        while (std::fgets(line, sizeof line, output) != nullptr) {
            if (std::strncmp(line, "hash=", 5) == 0)
                hashes.insert(line);
        }
        pclose(output);
    }
    EXPECT_EQ(hashes.size(), 2u);
}

} // namespace
} // namespace meridian
