#pragma once

// Sequences of the API: a length, a maximum, and a buffer that is owned or on loan. One template serves all
// element types; DDS_StringSeq owns its strings. Not thread-safe; operations that can fail return false and
// log nothing.

#include <algorithm>
#include <new>
#include <utility>

#include "meridian/base.h"
#include "meridian/string.h"

/// How a sequence makes, copies and drops one element. The default serves value types.
template <typename T>
struct DDS_SequenceElement {
    static void initialize(T&) {}
    static void finalize(T&) {}
    static bool copy(T& target, const T& source) {
        target = source;
        return true;
    }
};

/// Strings are owned by the sequence: allocated with DDS_String_dup, freed with DDS_String_free.
template <>
struct DDS_SequenceElement<char*> {
    static void initialize(char*& element) { element = nullptr; }
    static void finalize(char*& element) {
        DDS_String_free(element);
        element = nullptr;
    }
    static bool copy(char*& target, char* const& source) {
        char* copied = DDS_String_dup(source);
        if (source != nullptr && copied == nullptr)
            return false;
        DDS_String_free(target);
        target = copied;
        return true;
    }
};

template <typename T>
class DDS_Sequence {
  public:
    DDS_Sequence() = default;
    explicit DDS_Sequence(DDS_Long new_maximum) { maximum(new_maximum); }
    DDS_Sequence(const DDS_Sequence& other) { copy_from(other); }
    DDS_Sequence& operator=(const DDS_Sequence& other) {
        if (this != &other)
            copy_from(other);
        return *this;
    }
    ~DDS_Sequence() { release(); }

    DDS_Long length() const { return length_; }
    DDS_Long maximum() const { return maximum_; }
    bool has_ownership() const { return loaned_ == nullptr; }

    /// Elements beyond the old length keep what they last held. False above the maximum.
    bool length(DDS_Long new_length) {
        if (new_length < 0 || new_length > maximum_)
            return false;
        length_ = new_length;
        return true;
    }

    /// Reallocates, keeping the elements that fit. False for a negative size, a sequence on loan, or where
    /// memory does not suffice; nothing changes then.
    bool maximum(DDS_Long new_maximum) {
        if (new_maximum < 0 || !has_ownership())
            return false;
        if (new_maximum == maximum_)
            return true;
        T* grown = new_maximum > 0 ? new (std::nothrow) T[static_cast<size_t>(new_maximum)]() : nullptr;
        if (grown == nullptr && new_maximum > 0)
            return false;
        const DDS_Long kept = std::min(length_, new_maximum);
        for (DDS_Long i = 0; i < kept; ++i)
            std::swap(grown[i], owned_[i]);
        for (DDS_Long i = 0; i < maximum_; ++i)
            DDS_SequenceElement<T>::finalize(owned_[i]);
        delete[] owned_;
        owned_ = grown;
        maximum_ = new_maximum;
        length_ = kept;
        return true;
    }

    /// Makes room for new_maximum when new_length does not fit, then sets the length.
    bool ensure_length(DDS_Long new_length, DDS_Long new_maximum) {
        if (new_length > maximum_ && !maximum(std::max(new_length, new_maximum)))
            return false;
        return length(new_length);
    }

    /// The index must be within 0 .. length - 1.
    T& operator[](DDS_Long index) { return loaned_ != nullptr ? *loaned_[index] : owned_[index]; }
    const T& operator[](DDS_Long index) const { return loaned_ != nullptr ? *loaned_[index] : owned_[index]; }

    /// Appends a copy, growing as needed.
    bool append(const T& element) {
        if (length_ == maximum_ && !maximum(maximum_ == 0 ? 4 : maximum_ * 2))
            return false;
        if (!DDS_SequenceElement<T>::copy(owned_[length_], element))
            return false;
        ++length_;
        return true;
    }

    /// Deep copy; a sequence on loan cannot be a target.
    bool copy_from(const DDS_Sequence& other) {
        if (!has_ownership() || !ensure_length(other.length_, other.length_))
            return false;
        for (DDS_Long i = 0; i < other.length_; ++i) {
            if (!DDS_SequenceElement<T>::copy(owned_[i], other[i]))
                return false;
        }
        return true;
    }

    /// Refers to `count` elements that it does not own, until unloan. Only an empty sequence that owns
    /// nothing can borrow.
    bool loan_discontiguous(T** elements, DDS_Long count) {
        if (!has_ownership() || maximum_ != 0 || count < 0 || elements == nullptr)
            return false;
        loaned_ = elements;
        length_ = maximum_ = count;
        return true;
    }
    T** get_discontiguous_buffer() const { return loaned_; }
    bool unloan() {
        if (has_ownership())
            return false;
        loaned_ = nullptr;
        length_ = maximum_ = 0;
        return true;
    }

  private:
    void release() {
        for (DDS_Long i = 0; i < maximum_ && has_ownership(); ++i)
            DDS_SequenceElement<T>::finalize(owned_[i]);
        delete[] owned_;
    }

    T* owned_ = nullptr;
    T** loaned_ = nullptr;
    DDS_Long length_ = 0;
    DDS_Long maximum_ = 0;
};

using DDS_StringSeq = DDS_Sequence<char*>;
using DDS_OctetSeq = DDS_Sequence<DDS_Octet>;

/// Appends a copy of `string`.
inline bool DDS_StringSeq_append(DDS_StringSeq& sequence, const char* string) {
    char* element = const_cast<char*>(string); // only read
    return sequence.append(element);
}
/// Replaces the contents by copies of `count` strings.
bool DDS_StringSeq_from_array(DDS_StringSeq& sequence, const char* const* strings, DDS_Long count);
