#pragma once

// The heap of the middleware: zeroed structures with a name, which shows in the logger when memory runs
// short. Every operation may be called on any thread.

#include <cstddef>

/// `size` zeroed bytes aligned for any type, or null.
void* QUIXHeap_allocate(size_t size, const char* structureName);
/// Frees; null is allowed.
void QUIXHeap_free(void* memory);

/// One zeroed T without running a constructor: for plain records only. Null when memory is short.
template <typename T>
T* QUIXHeap_allocateStructure(const char* structureName) {
    return static_cast<T*>(QUIXHeap_allocate(sizeof(T), structureName));
}
