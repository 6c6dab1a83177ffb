#include "meridian/heap.h"

#include <cstdlib>

#include "platform/log.h"

void* QUIXHeap_allocate(size_t size, const char* structureName) {
    void* memory = std::calloc(1, size == 0 ? 1 : size);
    if (memory == nullptr) {
        MERIDIAN_LOG_ERROR("platform", "out of memory: %zu bytes for %s", size,
                           structureName == nullptr ? "a structure without name" : structureName);
    }
    return memory;
}

void QUIXHeap_free(void* memory) {
    std::free(memory);
}
