#pragma once

// Counts what a test program allocates: by operator new, and by malloc, calloc and realloc of the code that
// is linked into the program. A test program that uses it also builds allocation_counter.cpp and wraps those
// three functions at the linker: see ferret_count_allocations in tests/unit/CMakeLists.txt.

#include <cstdint>

namespace test {

/// Allocations of all threads so far.
uint64_t allocations();

/// Allocations that `work` makes.
template <typename Work>
uint64_t count_allocations(Work work) {
    const uint64_t before = allocations();
    work();
    return allocations() - before;
}

} // namespace test
