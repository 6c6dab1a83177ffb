#include "platform/heap_trimmer.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <vector>

namespace meridian {
namespace {

size_t resident() {
    size_t all = 0;
    size_t pages = 0;
    std::ifstream("/proc/self/statm") >> all >> pages;
    return pages * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

TEST(HeapTrimmer, GivesBackWhatAPeakHasLeftOnceInAPause) {
    if (mallinfo2().uordblks == 0)
        GTEST_SKIP() << "the allocator is another one"; // of a sanitizer
    constexpr size_t kPiece = 64 * 1024;
    constexpr size_t kPieces = 512;
    MemoryBudget budget(size_t{256} << 20);
    MemoryShare share(budget);
    HeapTrimmer trimmer(budget);
    std::vector<void*> kept; // between what is freed
    const auto peak = [&](std::chrono::nanoseconds now) {
        std::vector<void*> freed;
        ASSERT_TRUE(share.take(kPieces * kPiece));
        for (size_t i = 0; i < kPieces; ++i) {
            freed.push_back(std::malloc(kPiece));
            std::memset(freed.back(), 1, kPiece);
            kept.push_back(std::malloc(16));
        }
        trimmer.look(now);
        for (void* piece : freed)
            std::free(piece);
        share.give_back(kPieces * kPiece);
    };
    const size_t before = resident();
    peak(std::chrono::seconds(1));
    ASSERT_GT(resident(), before + kPieces * kPiece / 2);
    trimmer.look(std::chrono::seconds(1));
    EXPECT_LT(resident(), before + kPieces * kPiece / 2);
    peak(std::chrono::seconds(2));
    trimmer.look(std::chrono::seconds(2));
    EXPECT_GT(resident(), before + kPieces * kPiece / 2);
    trimmer.look(std::chrono::seconds(6));
    EXPECT_LT(resident(), before + kPieces * kPiece / 2);
    for (void* piece : kept)
        std::free(piece);
}

} // namespace
} // namespace meridian
