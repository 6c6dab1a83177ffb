#pragma once

// Counts what a test program allocates: by operator new, and by malloc, calloc and realloc of the code that
// is linked into the program. A test program that uses it also builds allocation_counter.cpp and wraps those
// functions at the linker: see ferret_count_allocations in tests/unit/CMakeLists.txt. Any thread.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace test {

/// Allocations of all threads so far, and of the calling one.
uint64_t allocations();
uint64_t thread_allocations();

/// Allocations that `work` makes.
template <typename Work>
uint64_t count_allocations(Work work) {
    const uint64_t before = allocations();
    work();
    return allocations() - before;
}

/// Bytes in use at present, with what the heap keeps beside each block.
size_t heap_bytes();

/// What one thread allocated between start_counting and stop_counting.
struct ThreadAllocations {
    std::string name; // as the system shows it
    long thread = 0;  // as gettid says
    uint64_t count = 0;
    std::string first; // the calls behind the first allocation, one per line
};

void start_counting();
/// Threads that allocated nothing are not listed.
std::vector<ThreadAllocations> stop_counting();

} // namespace test
