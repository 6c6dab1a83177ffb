#include "support/allocation_counter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<uint64_t> counted{0};

} // namespace

uint64_t test::allocations() {
    return counted.load(std::memory_order_relaxed);
}

// The linker sends calls of malloc to __wrap_malloc, and calls of __real_malloc to malloc.
extern "C" {

void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* memory, size_t size);

void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);
void* __wrap_realloc(void* memory, size_t size);

void* __wrap_malloc(size_t size) {
    counted.fetch_add(1, std::memory_order_relaxed);
    return __real_malloc(size);
}

void* __wrap_calloc(size_t count, size_t size) {
    counted.fetch_add(1, std::memory_order_relaxed);
    return __real_calloc(count, size);
}

void* __wrap_realloc(void* memory, size_t size) {
    counted.fetch_add(1, std::memory_order_relaxed);
    return __real_realloc(memory, size);
}

} // extern "C"

// The other forms of the standard library call these.
void* operator new(size_t size) {
    void* memory = __wrap_malloc(size != 0 ? size : 1);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}
