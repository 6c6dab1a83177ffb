#include "meridian/type_code.h"

#include "types/model/type.h"

using meridian::types::from_type_code;
using meridian::types::Member;
using meridian::types::Type;

namespace {

constexpr unsigned mask(DDS_TCKind kind) {
    return 1u << kind;
}
constexpr unsigned kAggregates = mask(DDS_TK_STRUCT) | mask(DDS_TK_VALUE);
constexpr unsigned kEnumerated = mask(DDS_TK_ENUM) | mask(DDS_TK_BITMASK);
constexpr unsigned kWithTypedMembers = kAggregates | mask(DDS_TK_UNION) | mask(DDS_TK_BITSET);
constexpr unsigned kWithMembers = kWithTypedMembers | kEnumerated;

/// The node, when its kind is among `kinds`; else null and an exception.
const Type* node(const DDS_TypeCode* tc, unsigned kinds, DDS_ExceptionCode_t& ex) {
    const Type* type = from_type_code(tc);
    const bool fits = (mask(type->kind) & kinds) != 0;
    ex = fits ? DDS_NO_EXCEPTION_CODE : DDS_BADKIND_EXCEPTION_CODE;
    return fits ? type : nullptr;
}

const Member* member(const DDS_TypeCode* tc, unsigned kinds, DDS_UnsignedLong index,
                     DDS_ExceptionCode_t& ex) {
    const Type* type = node(tc, kinds, ex);
    if (type == nullptr)
        return nullptr;
    if (index >= type->members.size()) {
        ex = DDS_BOUNDS_EXCEPTION_CODE;
        return nullptr;
    }
    return &type->members[index];
}

} // namespace

DDS_TCKind DDS_TypeCode::kind(DDS_ExceptionCode_t& ex) const {
    ex = DDS_NO_EXCEPTION_CODE;
    return from_type_code(this)->kind;
}

DDS_Boolean DDS_TypeCode::equal(const DDS_TypeCode* other, DDS_ExceptionCode_t& ex) const {
    ex = other == nullptr ? DDS_BAD_PARAM_EXCEPTION_CODE : DDS_NO_EXCEPTION_CODE;
    return other != nullptr && meridian::types::equal(*from_type_code(this), *from_type_code(other));
}

DDS_ExtensibilityKind DDS_TypeCode::extensibility_kind(DDS_ExceptionCode_t& ex) const {
    const Type* type = node(this, kAggregates | mask(DDS_TK_UNION) | kEnumerated, ex);
    return type == nullptr ? DDS_FINAL_EXTENSIBILITY : type->extensibility;
}

DDS_UnsignedLong DDS_TypeCode::member_count(DDS_ExceptionCode_t& ex) const {
    const Type* type = node(this, kWithMembers, ex);
    return type == nullptr ? 0 : static_cast<DDS_UnsignedLong>(type->members.size());
}

const char* DDS_TypeCode::member_name(DDS_UnsignedLong index, DDS_ExceptionCode_t& ex) const {
    const Member* found = member(this, kWithMembers, index, ex);
    return found == nullptr ? nullptr : found->name.c_str();
}

const DDS_TypeCode* DDS_TypeCode::member_type(DDS_UnsignedLong index, DDS_ExceptionCode_t& ex) const {
    const Member* found = member(this, kWithTypedMembers, index, ex);
    return found == nullptr ? nullptr : found->type;
}

DDS_Boolean DDS_TypeCode::has_key() const {
    const Type* type = meridian::types::resolve_alias(from_type_code(this));
    return type != nullptr && meridian::types::has_key_members(*type);
}

DDS_Boolean DDS_TypeCode::is_member_optional(DDS_UnsignedLong index, DDS_ExceptionCode_t& ex) const {
    const Member* found = member(this, kAggregates, index, ex);
    return found != nullptr && found->optional;
}

DDS_UnsignedShort DDS_TypeCode::member_bitfield_bits(DDS_UnsignedLong index, DDS_ExceptionCode_t& ex) const {
    const Member* found = member(this, kWithTypedMembers, index, ex);
    return found == nullptr ? DDS_TYPECODE_NOT_BITFIELD : found->bits;
}

DDS_Long DDS_TypeCode::member_ordinal(DDS_UnsignedLong index, DDS_ExceptionCode_t& ex) const {
    const Member* found = member(this, kEnumerated | mask(DDS_TK_BITSET), index, ex);
    return found == nullptr ? 0 : static_cast<DDS_Long>(found->value);
}

DDS_UnsignedLong DDS_TypeCode::member_label_count(DDS_UnsignedLong index, DDS_ExceptionCode_t& ex) const {
    const Member* found = member(this, mask(DDS_TK_UNION), index, ex);
    return found == nullptr ? 0 : static_cast<DDS_UnsignedLong>(found->labels.size());
}

DDS_Long DDS_TypeCode::member_label(DDS_UnsignedLong index, DDS_UnsignedLong label_index,
                                    DDS_ExceptionCode_t& ex) const {
    const Member* found = member(this, mask(DDS_TK_UNION), index, ex);
    if (found == nullptr)
        return 0;
    if (label_index >= found->labels.size()) {
        ex = DDS_BOUNDS_EXCEPTION_CODE;
        return 0;
    }
    return found->labels[label_index];
}

DDS_Long DDS_TypeCode::default_index(DDS_ExceptionCode_t& ex) const {
    const Type* type = node(this, mask(DDS_TK_UNION), ex);
    return type == nullptr ? DDS_TYPECODE_NO_DEFAULT : type->default_index;
}

const DDS_TypeCode* DDS_TypeCode::discriminator_type(DDS_ExceptionCode_t& ex) const {
    const Type* type = node(this, mask(DDS_TK_UNION), ex);
    return type == nullptr ? nullptr : type->discriminator;
}

const DDS_TypeCode* DDS_TypeCode::content_type(DDS_ExceptionCode_t& ex) const {
    const Type* type =
        node(this, mask(DDS_TK_ALIAS) | mask(DDS_TK_SEQUENCE) | mask(DDS_TK_ARRAY) | mask(DDS_TK_MAP), ex);
    return type == nullptr ? nullptr : type->content;
}

DDS_UnsignedLong DDS_TypeCode::length(DDS_ExceptionCode_t& ex) const {
    const Type* type = node(this,
                            mask(DDS_TK_STRING) | mask(DDS_TK_WSTRING) | mask(DDS_TK_SEQUENCE) |
                                mask(DDS_TK_MAP) | mask(DDS_TK_ARRAY),
                            ex);
    if (type == nullptr)
        return 0;
    if (type->kind == DDS_TK_ARRAY)
        return type->dimensions.empty() ? 0 : type->dimensions.front();
    return type->bound == 0 || type->bound > DDS_TYPECODE_UNBOUNDED ? DDS_TYPECODE_UNBOUNDED : type->bound;
}

DDS_UnsignedLong DDS_TypeCode::array_dimension_count(DDS_ExceptionCode_t& ex) const {
    const Type* type = node(this, mask(DDS_TK_ARRAY), ex);
    return type == nullptr ? 0 : static_cast<DDS_UnsignedLong>(type->dimensions.size());
}

DDS_UnsignedLong DDS_TypeCode::array_dimension(DDS_UnsignedLong index, DDS_ExceptionCode_t& ex) const {
    const Type* type = node(this, mask(DDS_TK_ARRAY), ex);
    if (type == nullptr)
        return 0;
    if (index >= type->dimensions.size()) {
        ex = DDS_BOUNDS_EXCEPTION_CODE;
        return 0;
    }
    return type->dimensions[index];
}

const DDS_TypeCode* DDS_TypeCode::concrete_base_type(DDS_ExceptionCode_t& ex) const {
    const Type* type = node(this, kAggregates | mask(DDS_TK_BITSET), ex);
    return type == nullptr ? nullptr : type->base;
}

DDS_UnsignedShort DDS_TypeCode::bit_bound(DDS_ExceptionCode_t& ex) const {
    const Type* type = node(this, kEnumerated | mask(DDS_TK_BITSET), ex);
    return type == nullptr ? DDS_UnsignedShort{0} : type->bit_bound;
}

DDS_TypeCodeFactory* DDS_TypeCodeFactory::get_instance() {
    static DDS_TypeCodeFactory instance; // without state
    return &instance;
}

DDS_TypeCode* DDS_TypeCodeFactory::clone_tc(const DDS_TypeCode* tc, DDS_ExceptionCode_t& ex) {
    ex = tc == nullptr ? DDS_BAD_PARAM_EXCEPTION_CODE : DDS_NO_EXCEPTION_CODE;
    if (tc == nullptr)
        return nullptr;
    from_type_code(tc)->graph->acquire();
    return const_cast<DDS_TypeCode*>(tc); // offers only const operations
}

void DDS_TypeCodeFactory::delete_tc(DDS_TypeCode* tc, DDS_ExceptionCode_t& ex) {
    ex = tc == nullptr ? DDS_BAD_PARAM_EXCEPTION_CODE : DDS_NO_EXCEPTION_CODE;
    if (tc != nullptr)
        from_type_code(tc)->graph->release();
}
