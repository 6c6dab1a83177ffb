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
