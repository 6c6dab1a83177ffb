#pragma once

// Sequence of opaque samples: one implementation for DynamicType and KeyedDynamicType.
//
// Opaque samples cannot be copied, so operations that must copy elements fail; sequences of them are made to
// borrow samples from a reader. Failures are logged with the name of the operation. Not thread-safe.

#include <cstdio>
#include <new>

#include "meridian/logger.h"
#include "quixspy/DynamicTypePlugin.h"

template <typename Sample>
class OpaqueTypeSeq {
  public:
    static constexpr DDS_Long kInitialized = 29508;
    static constexpr DDS_Long kLargestMaximum = 2147483647;

    OpaqueTypeSeq() { initialize(); }
    explicit OpaqueTypeSeq(DDS_Long new_maximum) : OpaqueTypeSeq() { maximum(new_maximum); }
    OpaqueTypeSeq(const OpaqueTypeSeq& other) : OpaqueTypeSeq() { copy(other); }
    OpaqueTypeSeq& operator=(const OpaqueTypeSeq& other) {
        if (this != &other)
            copy(other);
        return *this;
    }
    ~OpaqueTypeSeq() { finalize(); }

    /// Empty, owning nothing. What it held before is forgotten, not freed.
    bool initialize() {
        contiguous_ = nullptr;
        discontiguous_ = nullptr;
        read_token1_ = read_token2_ = nullptr;
        maximum_ = length_ = 0;
        owned_ = true;
        allocation_ = DDS_TYPE_ALLOCATION_PARAMS_DEFAULT;
        absolute_maximum_ = kLargestMaximum;
        deallocation_ = DDS_TYPE_DEALLOCATION_PARAMS_DEFAULT;
        marker_ = kInitialized;
        return true;
    }
    /// Frees what is owned; false for a sequence on loan, which must be given back first.
    bool finalize() {
        ensure_initialized();
        if (!owned_)
            return fail("finalize", "buffer must not be loaned");
        free_elements(contiguous_, maximum_);
        contiguous_ = nullptr;
        maximum_ = length_ = 0;
        return true;
    }

    DDS_Long maximum() const { return marker_ == kInitialized ? maximum_ : 0; }
    DDS_Long length() const { return marker_ == kInitialized ? length_ : 0; }
    bool has_ownership() const { return marker_ != kInitialized || owned_; }

    bool maximum(DDS_Long new_maximum) {
        ensure_initialized();
        if (!allocation_.allocate_memory)
            return fail("set_maximum", "allocate_memory must be true");
        if (new_maximum < 0)
            return fail("set_maximum", "max size must be positive");
        if (new_maximum > absolute_maximum_)
            return fail("set_maximum", "new max cannot be larger than absolute maximum");
        if (!owned_)
            return fail("set_maximum", "buffer must not be loaned");
        if (new_maximum == maximum_)
            return true;
        Sample* elements = nullptr;
        if (new_maximum > 0) {
            elements = new (std::nothrow) Sample[static_cast<size_t>(new_maximum)];
            if (elements == nullptr)
                return fail("set_maximum", "out of memory");
            for (DDS_Long i = 0; i < new_maximum; ++i)
                DynamicType_initialize_ex(&elements[i], allocation_.allocate_pointers,
                                          allocation_.allocate_memory);
        }
        const DDS_Long kept = length_ < new_maximum ? length_ : new_maximum;
        for (DDS_Long i = 0; i < kept; ++i) {
            if (!DynamicType_copy(&elements[i], &contiguous_[i])) {
                free_elements(elements, new_maximum);
                return fail("set_maximum", "copy contiguous buffer");
            }
        }
        free_elements(contiguous_, maximum_);
        contiguous_ = elements;
        maximum_ = new_maximum;
        length_ = kept;
        return true;
    }
    bool length(DDS_Long new_length) {
        ensure_initialized();
        if (new_length < 0 || new_length > maximum_)
            return fail("set_length", "length");
        length_ = new_length;
        return true;
    }
    bool ensure_length(DDS_Long new_length, DDS_Long new_maximum) {
        ensure_initialized();
        if (new_length < 0 || new_length > new_maximum)
            return fail("ensure_length", "length");
        if (new_length > maximum_ && !maximum(new_maximum))
            return false;
        return length(new_length);
    }

    /// Null, and logged, for an index outside 0 .. length - 1.
    Sample* get_reference(DDS_Long index) { return const_cast<Sample*>(element("get_reference", index)); }
    const Sample* get_reference(DDS_Long index) const { return element("get_reference", index); }
    /// The element itself, not a copy of what it holds; an empty one for an index out of bounds.
    Sample get(DDS_Long index) const {
        const Sample* found = element("get", index);
        return found != nullptr ? *found : Sample{};
    }
    /// The index must be within 0 .. length - 1.
    Sample& operator[](DDS_Long index) { return *get_reference(index); }
    const Sample& operator[](DDS_Long index) const { return *get_reference(index); }

    /// Makes room for the elements of `source` as needed, then copies them.
    bool copy(const OpaqueTypeSeq& source) {
        ensure_initialized();
        if (source.length() > maximum_ && !maximum(source.length()))
            return false;
        return copy_no_alloc(source);
    }
    bool copy_no_alloc(const OpaqueTypeSeq& source) {
        ensure_initialized();
        const DDS_Long count = source.length();
        if (count > maximum_)
            return fail("copy_no_alloc", "length");
        if (count > 0 && !source.owned_ && source.contiguous_ == nullptr && source.discontiguous_ == nullptr)
            return fail("copy_no_alloc", "Unexpected NULL discontiguous buffer in the sequence");
        for (DDS_Long i = 0; i < count; ++i) {
            if (!DynamicType_copy(slot(i), source.slot(i)))
                return fail("copy_no_alloc", "copy element");
        }
        length_ = count;
        return true;
    }
    bool from_array(const Sample* array, DDS_Long count) {
        OpaqueTypeSeq borrowed;
        if (!borrowed.loan_contiguous(const_cast<Sample*>(array), count, count))
            return fail("from_array", "copy array sequence");
        const bool copied = copy(borrowed);
        if (!borrowed.unloan())
            return fail("from_array", "unloan contiguous array");
        return copied || fail("from_array", "copy array sequence");
    }
    bool to_array(Sample* array, DDS_Long count) const {
        OpaqueTypeSeq borrowed;
        if (!borrowed.loan_contiguous(array, 0, count))
            return fail("to_array", "copying array sequence");
        const bool copied = borrowed.copy_no_alloc(*this);
        if (!borrowed.unloan())
            return fail("to_array", "unloan contiguous array");
        return copied || fail("to_array", "copying array sequence");
    }

    /// Refers to the caller's buffer until unloan.
    bool loan_contiguous(Sample* buffer, DDS_Long new_length, DDS_Long new_maximum) {
        if (!can_borrow("loan_contiguous", buffer != nullptr, new_length, new_maximum))
            return false;
        contiguous_ = buffer;
        return borrow(new_length, new_maximum);
    }
    bool loan_discontiguous(Sample** buffer, DDS_Long new_length, DDS_Long new_maximum) {
        if (!can_borrow("loan_discontiguous", buffer != nullptr, new_length, new_maximum))
            return false;
        discontiguous_ = buffer;
        return borrow(new_length, new_maximum);
    }
    bool loan_discontiguous(Sample** buffer, DDS_Long count) {
        return loan_discontiguous(buffer, count, count);
    }
    bool unloan() {
        ensure_initialized();
        if (owned_)
            return fail("unloan", "buffer must be loaned");
        contiguous_ = nullptr;
        discontiguous_ = nullptr;
        maximum_ = length_ = 0;
        owned_ = true;
        return true;
    }
    Sample* get_contiguous_buffer() const { return marker_ == kInitialized ? contiguous_ : nullptr; }
    Sample** get_discontiguous_buffer() const { return marker_ == kInitialized ? discontiguous_ : nullptr; }

    DDS_Long get_absolute_maximum() const {
        return marker_ == kInitialized ? absolute_maximum_ : kLargestMaximum;
    }
    bool set_absolute_maximum(DDS_Long new_absolute_maximum) {
        ensure_initialized();
        if (new_absolute_maximum < maximum_)
            return fail("set_absolute_maximum", "new absolute max cannot be smaller than max");
        absolute_maximum_ = new_absolute_maximum;
        return true;
    }
    const DDS_TypeAllocationParams_t& get_element_allocation_params() const { return allocation_; }
    bool set_element_allocation_params(const DDS_TypeAllocationParams_t& params) {
        ensure_initialized();
        if (maximum_ != 0)
            return fail("set_element_allocation_params",
                        "Member allocation parameters can be configured only when the maximum size of the "
                        "sequence is 0");
        allocation_ = params;
        return true;
    }
    const DDS_TypeDeallocationParams_t& get_element_deallocation_params() const { return deallocation_; }
    bool set_element_deallocation_params(const DDS_TypeDeallocationParams_t& params) {
        ensure_initialized();
        deallocation_ = params;
        return true;
    }
    bool get_element_pointers_allocation() const { return allocation_.allocate_pointers; }
    bool set_element_pointers_allocation(bool allocate) {
        ensure_initialized();
        if (maximum_ != 0)
            return fail("set_element_pointers_allocation",
                        "Pointers allocation policy can be configured only when the maximum size of the "
                        "sequence is 0");
        allocation_.allocate_pointers = allocate;
        return true;
    }

    /// The reader's note on a loan.
    bool get_read_tokenI(void** token1, void** token2) const {
        if (token1 == nullptr || token2 == nullptr) {
            QUIXLog_badParameter("TSeq::get_read_tokenI", "token (NULL)");
            return false;
        }
        *token1 = read_token1_;
        *token2 = read_token2_;
        return true;
    }
    bool set_read_tokenI(void* token1, void* token2) {
        ensure_initialized();
        read_token1_ = token1;
        read_token2_ = token2;
        return true;
    }

  private:
    static bool fail(const char* operation, const char* reason) {
        char method[64];
        std::snprintf(method, sizeof method, "TSeq::%s", operation);
        QUIXLog_failure(method, reason);
        return false;
    }
    void ensure_initialized() {
        if (marker_ != kInitialized)
            initialize();
    }
    static void free_elements(Sample* elements, DDS_Long count) {
        for (DDS_Long i = 0; i < count; ++i)
            DynamicType_finalize_ex(&elements[i], true);
        delete[] elements;
    }
    Sample* slot(DDS_Long index) const {
        return discontiguous_ != nullptr ? discontiguous_[index] : &contiguous_[index];
    }
    const Sample* element(const char* operation, DDS_Long index) const {
        if (index < 0 || index >= length()) {
            fail(operation, "index out of bounds");
            return nullptr;
        }
        return slot(index);
    }
    bool can_borrow(const char* operation, bool has_buffer, DDS_Long new_length, DDS_Long new_maximum) {
        ensure_initialized();
        if (new_length < 0 || new_maximum < new_length)
            return fail(operation, "negative argument");
        if (maximum_ != 0 || !owned_)
            return fail(operation, "max size must be 0");
        if (!has_buffer && new_maximum > 0)
            return fail(operation, "NULL buffer can't have non-zero maximum");
        if (new_maximum > absolute_maximum_)
            return fail(operation, "new max cannot be larger than absolute maximum");
        return true;
    }
    bool borrow(DDS_Long new_length, DDS_Long new_maximum) {
        length_ = new_length;
        maximum_ = new_maximum;
        owned_ = false;
        return true;
    }

    Sample* contiguous_;
    Sample** discontiguous_;
    void* read_token1_;
    void* read_token2_;
    DDS_Long maximum_;
    DDS_Long length_;
    DDS_Long marker_;
    bool owned_;
    DDS_TypeAllocationParams_t allocation_;
    DDS_Long absolute_maximum_;
    DDS_TypeDeallocationParams_t deallocation_;
};
