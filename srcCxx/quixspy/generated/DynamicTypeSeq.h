#pragma once

// The sequences of the two opaque types, with their operations as plain functions beside the members.

#include "quixspy/generated/OpaqueTypeSeq.h"

using DynamicTypeSeq = OpaqueTypeSeq<DynamicType>;
using KeyedDynamicTypeSeq = OpaqueTypeSeq<KeyedDynamicType>;

namespace opaque_type_seq {

template <typename S>
bool initialize(OpaqueTypeSeq<S>* sequence) {
    return sequence->initialize();
}
template <typename S>
bool finalize(OpaqueTypeSeq<S>* sequence) {
    return sequence->finalize();
}
template <typename S>
DDS_Long get_maximum(const OpaqueTypeSeq<S>* sequence) {
    return sequence->maximum();
}
template <typename S>
bool set_maximum(OpaqueTypeSeq<S>* sequence, DDS_Long maximum) {
    return sequence->maximum(maximum);
}
template <typename S>
DDS_Long get_length(const OpaqueTypeSeq<S>* sequence) {
    return sequence->length();
}
template <typename S>
bool set_length(OpaqueTypeSeq<S>* sequence, DDS_Long length) {
    return sequence->length(length);
}
template <typename S>
bool ensure_length(OpaqueTypeSeq<S>* sequence, DDS_Long length, DDS_Long maximum) {
    return sequence->ensure_length(length, maximum);
}
template <typename S>
S* get_reference(OpaqueTypeSeq<S>* sequence, DDS_Long index) {
    return sequence->get_reference(index);
}
template <typename S>
S get(const OpaqueTypeSeq<S>* sequence, DDS_Long index) {
    return sequence->get(index);
}
template <typename S>
bool copy(OpaqueTypeSeq<S>* target, const OpaqueTypeSeq<S>* source) {
    return target->copy(*source);
}
template <typename S>
bool copy_no_alloc(OpaqueTypeSeq<S>* target, const OpaqueTypeSeq<S>* source) {
    return target->copy_no_alloc(*source);
}
template <typename S>
bool from_array(OpaqueTypeSeq<S>* sequence, const S* array, DDS_Long count) {
    return sequence->from_array(array, count);
}
template <typename S>
bool to_array(const OpaqueTypeSeq<S>* sequence, S* array, DDS_Long count) {
    return sequence->to_array(array, count);
}
template <typename S>
bool loan_contiguous(OpaqueTypeSeq<S>* sequence, S* buffer, DDS_Long length, DDS_Long maximum) {
    return sequence->loan_contiguous(buffer, length, maximum);
}
template <typename S>
bool loan_discontiguous(OpaqueTypeSeq<S>* sequence, S** buffer, DDS_Long length, DDS_Long maximum) {
    return sequence->loan_discontiguous(buffer, length, maximum);
}
template <typename S>
bool unloan(OpaqueTypeSeq<S>* sequence) {
    return sequence->unloan();
}
template <typename S>
bool has_ownership(const OpaqueTypeSeq<S>* sequence) {
    return sequence->has_ownership();
}
template <typename S>
S* get_contiguous_buffer(const OpaqueTypeSeq<S>* sequence) {
    return sequence->get_contiguous_buffer();
}
template <typename S>
S** get_discontiguous_buffer(const OpaqueTypeSeq<S>* sequence) {
    return sequence->get_discontiguous_buffer();
}
template <typename S>
DDS_Long get_absolute_maximum(const OpaqueTypeSeq<S>* sequence) {
    return sequence->get_absolute_maximum();
}
template <typename S>
bool set_absolute_maximum(OpaqueTypeSeq<S>* sequence, DDS_Long maximum) {
    return sequence->set_absolute_maximum(maximum);
}
template <typename S>
const DDS_TypeAllocationParams_t* get_element_allocation_params(const OpaqueTypeSeq<S>* sequence) {
    return &sequence->get_element_allocation_params();
}
template <typename S>
bool set_element_allocation_params(OpaqueTypeSeq<S>* sequence, const DDS_TypeAllocationParams_t* params) {
    return sequence->set_element_allocation_params(*params);
}
template <typename S>
const DDS_TypeDeallocationParams_t* get_element_deallocation_params(const OpaqueTypeSeq<S>* sequence) {
    return &sequence->get_element_deallocation_params();
}
template <typename S>
bool set_element_deallocation_params(OpaqueTypeSeq<S>* sequence, const DDS_TypeDeallocationParams_t* params) {
    return sequence->set_element_deallocation_params(*params);
}
template <typename S>
bool get_element_pointers_allocation(const OpaqueTypeSeq<S>* sequence) {
    return sequence->get_element_pointers_allocation();
}
template <typename S>
bool set_element_pointers_allocation(OpaqueTypeSeq<S>* sequence, bool allocate) {
    return sequence->set_element_pointers_allocation(allocate);
}
template <typename S>
bool get_read_tokenI(const OpaqueTypeSeq<S>* sequence, void** token1, void** token2) {
    return sequence->get_read_tokenI(token1, token2);
}
template <typename S>
bool set_read_tokenI(OpaqueTypeSeq<S>* sequence, void* token1, void* token2) {
    return sequence->set_read_tokenI(token1, token2);
}

} // namespace opaque_type_seq

inline constexpr auto& DynamicTypeSeq_initialize = opaque_type_seq::initialize<DynamicType>;
inline constexpr auto& DynamicTypeSeq_finalize = opaque_type_seq::finalize<DynamicType>;
inline constexpr auto& DynamicTypeSeq_get_maximum = opaque_type_seq::get_maximum<DynamicType>;
inline constexpr auto& DynamicTypeSeq_set_maximum = opaque_type_seq::set_maximum<DynamicType>;
inline constexpr auto& DynamicTypeSeq_get_length = opaque_type_seq::get_length<DynamicType>;
inline constexpr auto& DynamicTypeSeq_set_length = opaque_type_seq::set_length<DynamicType>;
inline constexpr auto& DynamicTypeSeq_ensure_length = opaque_type_seq::ensure_length<DynamicType>;
inline constexpr auto& DynamicTypeSeq_get_reference = opaque_type_seq::get_reference<DynamicType>;
inline constexpr auto& DynamicTypeSeq_get = opaque_type_seq::get<DynamicType>;
inline constexpr auto& DynamicTypeSeq_copy = opaque_type_seq::copy<DynamicType>;
inline constexpr auto& DynamicTypeSeq_copy_no_alloc = opaque_type_seq::copy_no_alloc<DynamicType>;
inline constexpr auto& DynamicTypeSeq_from_array = opaque_type_seq::from_array<DynamicType>;
inline constexpr auto& DynamicTypeSeq_to_array = opaque_type_seq::to_array<DynamicType>;
inline constexpr auto& DynamicTypeSeq_loan_contiguous = opaque_type_seq::loan_contiguous<DynamicType>;
inline constexpr auto& DynamicTypeSeq_loan_discontiguous = opaque_type_seq::loan_discontiguous<DynamicType>;
inline constexpr auto& DynamicTypeSeq_unloan = opaque_type_seq::unloan<DynamicType>;
inline constexpr auto& DynamicTypeSeq_has_ownership = opaque_type_seq::has_ownership<DynamicType>;
inline constexpr auto& DynamicTypeSeq_get_contiguous_buffer =
    opaque_type_seq::get_contiguous_buffer<DynamicType>;
inline constexpr auto& DynamicTypeSeq_get_discontiguous_buffer =
    opaque_type_seq::get_discontiguous_buffer<DynamicType>;
inline constexpr auto& DynamicTypeSeq_get_absolute_maximum =
    opaque_type_seq::get_absolute_maximum<DynamicType>;
inline constexpr auto& DynamicTypeSeq_set_absolute_maximum =
    opaque_type_seq::set_absolute_maximum<DynamicType>;
inline constexpr auto& DynamicTypeSeq_get_element_allocation_params =
    opaque_type_seq::get_element_allocation_params<DynamicType>;
inline constexpr auto& DynamicTypeSeq_set_element_allocation_params =
    opaque_type_seq::set_element_allocation_params<DynamicType>;
inline constexpr auto& DynamicTypeSeq_get_element_deallocation_params =
    opaque_type_seq::get_element_deallocation_params<DynamicType>;
inline constexpr auto& DynamicTypeSeq_set_element_deallocation_params =
    opaque_type_seq::set_element_deallocation_params<DynamicType>;
inline constexpr auto& DynamicTypeSeq_get_element_pointers_allocation =
    opaque_type_seq::get_element_pointers_allocation<DynamicType>;
inline constexpr auto& DynamicTypeSeq_set_element_pointers_allocation =
    opaque_type_seq::set_element_pointers_allocation<DynamicType>;
inline constexpr auto& DynamicTypeSeq_get_read_tokenI = opaque_type_seq::get_read_tokenI<DynamicType>;
inline constexpr auto& DynamicTypeSeq_set_read_tokenI = opaque_type_seq::set_read_tokenI<DynamicType>;

inline constexpr auto& KeyedDynamicTypeSeq_initialize = opaque_type_seq::initialize<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_finalize = opaque_type_seq::finalize<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_get_maximum = opaque_type_seq::get_maximum<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_set_maximum = opaque_type_seq::set_maximum<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_get_length = opaque_type_seq::get_length<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_set_length = opaque_type_seq::set_length<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_ensure_length = opaque_type_seq::ensure_length<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_get_reference = opaque_type_seq::get_reference<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_get = opaque_type_seq::get<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_copy = opaque_type_seq::copy<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_copy_no_alloc = opaque_type_seq::copy_no_alloc<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_from_array = opaque_type_seq::from_array<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_to_array = opaque_type_seq::to_array<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_loan_contiguous =
    opaque_type_seq::loan_contiguous<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_loan_discontiguous =
    opaque_type_seq::loan_discontiguous<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_unloan = opaque_type_seq::unloan<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_has_ownership = opaque_type_seq::has_ownership<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_get_contiguous_buffer =
    opaque_type_seq::get_contiguous_buffer<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_get_discontiguous_buffer =
    opaque_type_seq::get_discontiguous_buffer<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_get_absolute_maximum =
    opaque_type_seq::get_absolute_maximum<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_set_absolute_maximum =
    opaque_type_seq::set_absolute_maximum<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_get_element_allocation_params =
    opaque_type_seq::get_element_allocation_params<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_set_element_allocation_params =
    opaque_type_seq::set_element_allocation_params<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_get_element_deallocation_params =
    opaque_type_seq::get_element_deallocation_params<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_set_element_deallocation_params =
    opaque_type_seq::set_element_deallocation_params<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_get_element_pointers_allocation =
    opaque_type_seq::get_element_pointers_allocation<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_set_element_pointers_allocation =
    opaque_type_seq::set_element_pointers_allocation<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_get_read_tokenI =
    opaque_type_seq::get_read_tokenI<KeyedDynamicType>;
inline constexpr auto& KeyedDynamicTypeSeq_set_read_tokenI =
    opaque_type_seq::set_read_tokenI<KeyedDynamicType>;
