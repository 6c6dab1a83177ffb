#include "meridian/string.h"

#include <cstdint>
#include <cstring>

#include "meridian/heap.h"
#include "meridian/sequence.h"

char* DDS_String_alloc(size_t length) {
    // A length that leaves no room for the terminator is passed on as it is, and fails there with a message.
    const size_t size = length == SIZE_MAX ? length : length + 1;
    return static_cast<char*>(QUIXHeap_allocate(size, "string"));
}

char* DDS_String_dup(const char* source) {
    if (source == nullptr)
        return nullptr;
    const size_t length = std::strlen(source);
    char* copy = DDS_String_alloc(length);
    if (copy != nullptr)
        std::memcpy(copy, source, length);
    return copy;
}

void DDS_String_free(char* string) {
    QUIXHeap_free(string);
}

bool DDS_String_append(char** string, const char* suffix) {
    if (string == nullptr)
        return false;
    const size_t old_length = *string == nullptr ? 0 : std::strlen(*string);
    const size_t suffix_length = suffix == nullptr ? 0 : std::strlen(suffix);
    // A new buffer rather than a grown one: the suffix may be part of the old one.
    char* joined = DDS_String_alloc(old_length + suffix_length);
    if (joined != nullptr) {
        if (old_length != 0)
            std::memcpy(joined, *string, old_length);
        if (suffix_length != 0)
            std::memcpy(joined + old_length, suffix, suffix_length);
    }
    DDS_String_free(*string);
    *string = joined;
    return joined != nullptr;
}

bool DDS_StringSeq_from_array(DDS_StringSeq& sequence, const char* const* strings, DDS_Long count) {
    if (count < 0 || (count > 0 && strings == nullptr) || !sequence.has_ownership())
        return false;
    if (!sequence.ensure_length(count, count))
        return false;
    for (DDS_Long i = 0; i < count; ++i) {
        char* const source = const_cast<char*>(strings[i]); // only read
        if (!DDS_SequenceElement<char*>::copy(sequence[i], source))
            return false;
    }
    return true;
}
