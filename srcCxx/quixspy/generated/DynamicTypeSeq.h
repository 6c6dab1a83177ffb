#pragma once

// The sequences of the two opaque types, with their operations as plain functions beside the members.

#include "quixspy/generated/OpaqueTypeSeq.h"

using DynamicTypeSeq = OpaqueTypeSeq<DynamicType>;
using KeyedDynamicTypeSeq = OpaqueTypeSeq<KeyedDynamicType>;

// Macros, because the names of the functions begin with that of the type. Each function takes a pointer to
// the sequence, and what the member takes: by value, or by pointer where the member has a reference.

#define OPAQUE_TYPE_SEQ_FUNCTION_AS(name, ...)                 \
    inline constexpr auto DynamicTypeSeq_##name = __VA_ARGS__; \
    inline constexpr auto& KeyedDynamicTypeSeq_##name = DynamicTypeSeq_##name;
#define OPAQUE_TYPE_SEQ_FUNCTION(name, member) \
    OPAQUE_TYPE_SEQ_FUNCTION_AS(               \
        name, [](auto* sequence, auto... arguments) { return sequence->member(arguments...); })
#define OPAQUE_TYPE_SEQ_SETTER(name)  \
    OPAQUE_TYPE_SEQ_FUNCTION_AS(name, \
                                [](auto* sequence, const auto* value) { return sequence->name(*value); })
#define OPAQUE_TYPE_SEQ_GETTER(name) \
    OPAQUE_TYPE_SEQ_FUNCTION_AS(name, [](const auto* sequence) { return &sequence->name(); })

OPAQUE_TYPE_SEQ_FUNCTION(initialize, initialize)
OPAQUE_TYPE_SEQ_FUNCTION(finalize, finalize)
OPAQUE_TYPE_SEQ_FUNCTION(get_maximum, maximum)
OPAQUE_TYPE_SEQ_FUNCTION(set_maximum, maximum)
OPAQUE_TYPE_SEQ_FUNCTION(get_length, length)
OPAQUE_TYPE_SEQ_FUNCTION(set_length, length)
OPAQUE_TYPE_SEQ_FUNCTION(ensure_length, ensure_length)
OPAQUE_TYPE_SEQ_FUNCTION(get_reference, get_reference)
OPAQUE_TYPE_SEQ_FUNCTION(get, get)
OPAQUE_TYPE_SEQ_SETTER(copy)
OPAQUE_TYPE_SEQ_SETTER(copy_no_alloc)
OPAQUE_TYPE_SEQ_FUNCTION(from_array, from_array)
OPAQUE_TYPE_SEQ_FUNCTION(to_array, to_array)
OPAQUE_TYPE_SEQ_FUNCTION(loan_contiguous, loan_contiguous)
OPAQUE_TYPE_SEQ_FUNCTION(loan_discontiguous, loan_discontiguous)
OPAQUE_TYPE_SEQ_FUNCTION(unloan, unloan)
OPAQUE_TYPE_SEQ_FUNCTION(has_ownership, has_ownership)
OPAQUE_TYPE_SEQ_FUNCTION(get_contiguous_buffer, get_contiguous_buffer)
OPAQUE_TYPE_SEQ_FUNCTION(get_discontiguous_buffer, get_discontiguous_buffer)
OPAQUE_TYPE_SEQ_FUNCTION(get_absolute_maximum, get_absolute_maximum)
OPAQUE_TYPE_SEQ_FUNCTION(set_absolute_maximum, set_absolute_maximum)
OPAQUE_TYPE_SEQ_GETTER(get_element_allocation_params)
OPAQUE_TYPE_SEQ_SETTER(set_element_allocation_params)
OPAQUE_TYPE_SEQ_GETTER(get_element_deallocation_params)
OPAQUE_TYPE_SEQ_SETTER(set_element_deallocation_params)
OPAQUE_TYPE_SEQ_FUNCTION(get_element_pointers_allocation, get_element_pointers_allocation)
OPAQUE_TYPE_SEQ_FUNCTION(set_element_pointers_allocation, set_element_pointers_allocation)
OPAQUE_TYPE_SEQ_FUNCTION(get_read_tokenI, get_read_tokenI)
OPAQUE_TYPE_SEQ_FUNCTION(set_read_tokenI, set_read_tokenI)

#undef OPAQUE_TYPE_SEQ_FUNCTION_AS
#undef OPAQUE_TYPE_SEQ_FUNCTION
#undef OPAQUE_TYPE_SEQ_SETTER
#undef OPAQUE_TYPE_SEQ_GETTER
