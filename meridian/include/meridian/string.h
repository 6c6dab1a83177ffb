#pragma once

// Strings of the API: NUL-terminated, owned by the holder of the pointer, allocated and freed only by these
// functions. Every operation may be called on any thread.

#include <cstddef>

/// Room for `length` characters and the terminator, all zero; null when memory is short.
char* DDS_String_alloc(size_t length);
/// A copy; null for a null source or when memory is short.
char* DDS_String_dup(const char* source);
/// Frees; null is allowed.
void DDS_String_free(char* string);
