#include "support/allocation_counter.h"

#include <execinfo.h>
#include <malloc.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <new>

namespace test {

namespace {

constexpr size_t kMostThreads = 64;
constexpr size_t kMostFrames = 24;
constexpr int kOwnFrames = 2; // of this file

struct Slot {
    std::atomic<uint64_t> count{0};
    std::array<void*, kMostFrames> frames{};
    int frame_count = 0;
    char name[16] = "";
    long thread = 0;
};

std::atomic<uint64_t> counted{0};
std::atomic<size_t> bytes{0};
std::atomic<unsigned> round{0}; // odd between start_counting and stop_counting
std::array<Slot, kMostThreads> slots;
std::atomic<size_t> slots_taken{0};

thread_local uint64_t counted_here = 0;
thread_local unsigned slot_round = 0; // of which round the slot is
thread_local size_t slot_index = 0;

void take_slot(unsigned current) {
    slot_round = current;
    slot_index = slots_taken.fetch_add(1);
    if (slot_index >= kMostThreads)
        return;
    Slot& slot = slots[slot_index];
    pthread_getname_np(pthread_self(), slot.name, sizeof slot.name);
    slot.thread = gettid();
    slot.frame_count = backtrace(slot.frames.data(), static_cast<int>(kMostFrames));
}

void note_allocation() {
    counted.fetch_add(1, std::memory_order_relaxed);
    ++counted_here;
    const unsigned current = round.load(std::memory_order_relaxed);
    if (current % 2 == 0)
        return;
    if (slot_round != current)
        take_slot(current);
    if (slot_index < kMostThreads)
        slots[slot_index].count.fetch_add(1, std::memory_order_relaxed);
}

size_t cost_of(void* memory) {
    return memory == nullptr ? 0 : malloc_usable_size(memory) + sizeof(size_t);
}

void* taken(void* memory) {
    bytes.fetch_add(cost_of(memory), std::memory_order_relaxed);
    return memory;
}

void given_back(void* memory) {
    bytes.fetch_sub(cost_of(memory), std::memory_order_relaxed);
}

std::string calls_of(const Slot& slot) {
    std::string text;
    char** names = backtrace_symbols(slot.frames.data(), slot.frame_count);
    for (int i = kOwnFrames; names != nullptr && i < slot.frame_count; ++i)
        text += std::string("    ") + names[i] + "\n";
    std::free(names);
    return text;
}

} // namespace

uint64_t allocations() {
    return counted.load(std::memory_order_relaxed);
}

uint64_t thread_allocations() {
    return counted_here;
}

size_t heap_bytes() {
    return bytes.load(std::memory_order_relaxed);
}

void start_counting() {
    std::array<void*, 1> frames{};
    backtrace(frames.data(), 1); // the first call loads a library
    slots_taken = 0;
    for (Slot& slot : slots)
        slot.count = 0;
    ++round;
}

std::vector<ThreadAllocations> stop_counting() {
    ++round;
    std::vector<ThreadAllocations> found;
    for (size_t i = 0; i < std::min(slots_taken.load(), kMostThreads); ++i)
        found.push_back({slots[i].name, slots[i].thread, slots[i].count, calls_of(slots[i])});
    return found;
}

} // namespace test

// The linker sends calls of malloc to __wrap_malloc, and calls of __real_malloc to malloc.
extern "C" {

void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* memory, size_t size);
void __real_free(void* memory);

void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);
void* __wrap_realloc(void* memory, size_t size);
void __wrap_free(void* memory);

void* __wrap_malloc(size_t size) {
    test::note_allocation();
    return test::taken(__real_malloc(size));
}

void* __wrap_calloc(size_t count, size_t size) {
    test::note_allocation();
    return test::taken(__real_calloc(count, size));
}

void* __wrap_realloc(void* memory, size_t size) {
    test::note_allocation();
    test::given_back(memory);
    return test::taken(__real_realloc(memory, size));
}

void __wrap_free(void* memory) {
    test::given_back(memory);
    __real_free(memory);
}

} // extern "C"

// The forms for aligned memory are not counted.
void* operator new(size_t size) {
    void* memory = __wrap_malloc(size != 0 ? size : 1);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

// Sanitizers have forms of their own for these.
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return __wrap_malloc(size != 0 ? size : 1);
}

void* operator new[](size_t size) {
    return operator new(size);
}

void* operator new[](size_t size, const std::nothrow_t& form) noexcept {
    return operator new(size, form);
}

void operator delete[](void* memory) noexcept {
    __wrap_free(memory);
}

void operator delete[](void* memory, size_t) noexcept {
    __wrap_free(memory);
}

void operator delete(void* memory) noexcept {
    __wrap_free(memory);
}

void operator delete(void* memory, size_t) noexcept {
    __wrap_free(memory);
}
