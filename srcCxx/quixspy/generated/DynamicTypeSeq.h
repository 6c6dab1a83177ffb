#pragma once

// The sequences of the two opaque types, with their operations as plain functions beside the members.

#include "quixspy/generated/OpaqueTypeSeq.h"

using DynamicTypeSeq = OpaqueTypeSeq<DynamicType>;
using KeyedDynamicTypeSeq = OpaqueTypeSeq<KeyedDynamicType>;

// A macro, because the names of the functions begin with that of the type.
#define OPAQUE_TYPE_SEQ_FUNCTIONS(Sample)                                                                 \
    inline bool Sample##Seq_initialize(Sample##Seq* sequence) {                                           \
        return sequence->initialize();                                                                    \
    }                                                                                                     \
    inline bool Sample##Seq_finalize(Sample##Seq* sequence) {                                             \
        return sequence->finalize();                                                                      \
    }                                                                                                     \
    inline DDS_Long Sample##Seq_get_maximum(const Sample##Seq* sequence) {                                \
        return sequence->maximum();                                                                       \
    }                                                                                                     \
    inline bool Sample##Seq_set_maximum(Sample##Seq* sequence, DDS_Long maximum) {                        \
        return sequence->maximum(maximum);                                                                \
    }                                                                                                     \
    inline DDS_Long Sample##Seq_get_length(const Sample##Seq* sequence) {                                 \
        return sequence->length();                                                                        \
    }                                                                                                     \
    inline bool Sample##Seq_set_length(Sample##Seq* sequence, DDS_Long length) {                          \
        return sequence->length(length);                                                                  \
    }                                                                                                     \
    inline bool Sample##Seq_ensure_length(Sample##Seq* sequence, DDS_Long length, DDS_Long maximum) {     \
        return sequence->ensure_length(length, maximum);                                                  \
    }                                                                                                     \
    inline Sample* Sample##Seq_get_reference(Sample##Seq* sequence, DDS_Long index) {                     \
        return sequence->get_reference(index);                                                            \
    }                                                                                                     \
    inline Sample Sample##Seq_get(const Sample##Seq* sequence, DDS_Long index) {                          \
        return sequence->get(index);                                                                      \
    }                                                                                                     \
    inline bool Sample##Seq_copy(Sample##Seq* target, const Sample##Seq* source) {                        \
        return target->copy(*source);                                                                     \
    }                                                                                                     \
    inline bool Sample##Seq_copy_no_alloc(Sample##Seq* target, const Sample##Seq* source) {               \
        return target->copy_no_alloc(*source);                                                            \
    }                                                                                                     \
    inline bool Sample##Seq_from_array(Sample##Seq* sequence, const Sample* array, DDS_Long count) {      \
        return sequence->from_array(array, count);                                                        \
    }                                                                                                     \
    inline bool Sample##Seq_to_array(const Sample##Seq* sequence, Sample* array, DDS_Long count) {        \
        return sequence->to_array(array, count);                                                          \
    }                                                                                                     \
    inline bool Sample##Seq_loan_contiguous(Sample##Seq* sequence, Sample* buffer, DDS_Long length,       \
                                            DDS_Long maximum) {                                           \
        return sequence->loan_contiguous(buffer, length, maximum);                                        \
    }                                                                                                     \
    inline bool Sample##Seq_loan_discontiguous(Sample##Seq* sequence, Sample** buffer, DDS_Long length,   \
                                               DDS_Long maximum) {                                        \
        return sequence->loan_discontiguous(buffer, length, maximum);                                     \
    }                                                                                                     \
    inline bool Sample##Seq_unloan(Sample##Seq* sequence) {                                               \
        return sequence->unloan();                                                                        \
    }                                                                                                     \
    inline bool Sample##Seq_has_ownership(const Sample##Seq* sequence) {                                  \
        return sequence->has_ownership();                                                                 \
    }                                                                                                     \
    inline Sample* Sample##Seq_get_contiguous_buffer(const Sample##Seq* sequence) {                       \
        return sequence->get_contiguous_buffer();                                                         \
    }                                                                                                     \
    inline Sample** Sample##Seq_get_discontiguous_buffer(const Sample##Seq* sequence) {                   \
        return sequence->get_discontiguous_buffer();                                                      \
    }                                                                                                     \
    inline DDS_Long Sample##Seq_get_absolute_maximum(const Sample##Seq* sequence) {                       \
        return sequence->get_absolute_maximum();                                                          \
    }                                                                                                     \
    inline bool Sample##Seq_set_absolute_maximum(Sample##Seq* sequence, DDS_Long maximum) {               \
        return sequence->set_absolute_maximum(maximum);                                                   \
    }                                                                                                     \
    inline const DDS_TypeAllocationParams_t* Sample##Seq_get_element_allocation_params(                   \
        const Sample##Seq* sequence) {                                                                    \
        return &sequence->get_element_allocation_params();                                                \
    }                                                                                                     \
    inline bool Sample##Seq_set_element_allocation_params(Sample##Seq* sequence,                          \
                                                          const DDS_TypeAllocationParams_t* params) {     \
        return sequence->set_element_allocation_params(*params);                                          \
    }                                                                                                     \
    inline const DDS_TypeDeallocationParams_t* Sample##Seq_get_element_deallocation_params(               \
        const Sample##Seq* sequence) {                                                                    \
        return &sequence->get_element_deallocation_params();                                              \
    }                                                                                                     \
    inline bool Sample##Seq_set_element_deallocation_params(Sample##Seq* sequence,                        \
                                                            const DDS_TypeDeallocationParams_t* params) { \
        return sequence->set_element_deallocation_params(*params);                                        \
    }                                                                                                     \
    inline bool Sample##Seq_get_element_pointers_allocation(const Sample##Seq* sequence) {                \
        return sequence->get_element_pointers_allocation();                                               \
    }                                                                                                     \
    inline bool Sample##Seq_set_element_pointers_allocation(Sample##Seq* sequence, bool allocate) {       \
        return sequence->set_element_pointers_allocation(allocate);                                       \
    }                                                                                                     \
    inline bool Sample##Seq_get_read_tokenI(const Sample##Seq* sequence, void** token1, void** token2) {  \
        return sequence->get_read_tokenI(token1, token2);                                                 \
    }                                                                                                     \
    inline bool Sample##Seq_set_read_tokenI(Sample##Seq* sequence, void* token1, void* token2) {          \
        return sequence->set_read_tokenI(token1, token2);                                                 \
    }

OPAQUE_TYPE_SEQ_FUNCTIONS(DynamicType)
OPAQUE_TYPE_SEQ_FUNCTIONS(KeyedDynamicType)

#undef OPAQUE_TYPE_SEQ_FUNCTIONS
