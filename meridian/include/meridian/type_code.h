#pragma once

// Type codes: types as they were discovered or read from a document.
//
// A type code is a node of an immutable graph. What an operation returns by pointer (names, member types,
// content types) belongs to that graph and lives as long as any type code of it does. Type codes are held and
// released through DDS_TypeCodeFactory only; all operations may be called on any thread.
//
// Operations report through their last argument: DDS_NO_EXCEPTION_CODE, or the reason why there is no answer;
// they then return null, 0 or the stated value. Recursive types are graphs with cycles: who walks one limits
// the depth.

#include "meridian/base.h"

/// The kinds of the classic type-code model have the numbers 0 to 22; those after them are what OMG
/// DDS-XTypes 1.3 adds.
enum DDS_TCKind : DDS_Long {
    DDS_TK_NULL = 0,
    DDS_TK_SHORT = 1,
    DDS_TK_LONG = 2,
    DDS_TK_USHORT = 3,
    DDS_TK_ULONG = 4,
    DDS_TK_FLOAT = 5,
    DDS_TK_DOUBLE = 6,
    DDS_TK_BOOLEAN = 7,
    DDS_TK_CHAR = 8,
    DDS_TK_OCTET = 9,
    DDS_TK_STRUCT = 10,
    DDS_TK_UNION = 11,
    DDS_TK_ENUM = 12,
    DDS_TK_STRING = 13,
    DDS_TK_SEQUENCE = 14,
    DDS_TK_ARRAY = 15,
    DDS_TK_ALIAS = 16,
    DDS_TK_LONGLONG = 17,
    DDS_TK_ULONGLONG = 18,
    DDS_TK_LONGDOUBLE = 19,
    DDS_TK_WCHAR = 20,
    DDS_TK_WSTRING = 21,
    /// A structure with a base type.
    DDS_TK_VALUE = 22,
    DDS_TK_INT8 = 23,
    DDS_TK_UINT8 = 24,
    DDS_TK_BITMASK = 25,
    DDS_TK_BITSET = 26,
    DDS_TK_MAP = 27,
};

using DDS_ExceptionCode_t = DDS_Long;
constexpr DDS_ExceptionCode_t DDS_NO_EXCEPTION_CODE = 0;
constexpr DDS_ExceptionCode_t DDS_BADKIND_EXCEPTION_CODE = 1;   // a type of this kind has no such thing
constexpr DDS_ExceptionCode_t DDS_BOUNDS_EXCEPTION_CODE = 2;    // an index beyond the end
constexpr DDS_ExceptionCode_t DDS_BAD_PARAM_EXCEPTION_CODE = 3; // a null argument

/// What length() says of a string, sequence or map without a bound.
constexpr DDS_UnsignedLong DDS_TYPECODE_UNBOUNDED = 0x7fffffff;
/// What member_bitfield_bits() says of a member that is not a bit field.
constexpr DDS_UnsignedShort DDS_TYPECODE_NOT_BITFIELD = 0xffff;
/// What default_index() says of a union without a default member.
constexpr DDS_Long DDS_TYPECODE_NO_DEFAULT = -1;

enum DDS_ExtensibilityKind : DDS_Long {
    DDS_FINAL_EXTENSIBILITY = 0,
    DDS_EXTENSIBLE_EXTENSIBILITY = 1, // "appendable"
    DDS_MUTABLE_EXTENSIBILITY = 2,
};

class DDS_TypeCode {
  public:
    DDS_TypeCode(const DDS_TypeCode&) = delete;
    DDS_TypeCode& operator=(const DDS_TypeCode&) = delete;

    DDS_TCKind kind(DDS_ExceptionCode_t& ex) const;
    /// Whether topics of the type have a key: behind all aliases it is a structure, and it or one of its
    /// bases has key members.
    DDS_Boolean has_key() const;
    /// Structural equality: kinds, names of types and members, order, ids, flags, labels, bounds, dimensions.
    DDS_Boolean equal(const DDS_TypeCode* other, DDS_ExceptionCode_t& ex) const;

    /// Structures, values, unions, bit masks.
    DDS_ExtensibilityKind extensibility_kind(DDS_ExceptionCode_t& ex) const;

    /// Members of structures and values (without those of the base), unions, enumerations, bit masks (its
    /// flags) and bit sets (its named fields).
    DDS_UnsignedLong member_count(DDS_ExceptionCode_t& ex) const;
    const char* member_name(DDS_UnsignedLong index, DDS_ExceptionCode_t& ex) const;
    /// Structures, values, unions, bit sets (the integer type that holds the field).
    const DDS_TypeCode* member_type(DDS_UnsignedLong index, DDS_ExceptionCode_t& ex) const;
    /// Structures and values.
    DDS_Boolean is_member_optional(DDS_UnsignedLong index, DDS_ExceptionCode_t& ex) const;
    /// DDS_TYPECODE_NOT_BITFIELD for a member that is not a bit field.
    DDS_UnsignedShort member_bitfield_bits(DDS_UnsignedLong index, DDS_ExceptionCode_t& ex) const;
    /// Value of an enumerator; bit position of a flag or bit field.
    DDS_Long member_ordinal(DDS_UnsignedLong index, DDS_ExceptionCode_t& ex) const;

    /// Unions. A default member may have labels of its own too.
    DDS_UnsignedLong member_label_count(DDS_UnsignedLong index, DDS_ExceptionCode_t& ex) const;
    DDS_Long member_label(DDS_UnsignedLong index, DDS_UnsignedLong label_index,
                          DDS_ExceptionCode_t& ex) const;
    DDS_Long default_index(DDS_ExceptionCode_t& ex) const;
    const DDS_TypeCode* discriminator_type(DDS_ExceptionCode_t& ex) const;

    /// Aliases, sequences, arrays, maps (the type of the elements).
    const DDS_TypeCode* content_type(DDS_ExceptionCode_t& ex) const;
    /// Bound of a string, wide string, sequence or map; number of elements in the first dimension of an
    /// array.
    DDS_UnsignedLong length(DDS_ExceptionCode_t& ex) const;
    DDS_UnsignedLong array_dimension_count(DDS_ExceptionCode_t& ex) const;
    DDS_UnsignedLong array_dimension(DDS_UnsignedLong index, DDS_ExceptionCode_t& ex) const;
    /// Values and bit sets; null without an exception when there is no base.
    const DDS_TypeCode* concrete_base_type(DDS_ExceptionCode_t& ex) const;
    /// Enumerations and bit masks: 1 to 32, or 1 to 64. Bit sets: the bits that it occupies.
    DDS_UnsignedShort bit_bound(DDS_ExceptionCode_t& ex) const;

  protected:
    DDS_TypeCode() = default;
    ~DDS_TypeCode() = default;
};

/// Holds and releases type codes. The instance lives as long as the process; all operations on any thread.
class DDS_TypeCodeFactory {
  public:
    static DDS_TypeCodeFactory* get_instance();

    /// A type code equal to `tc`, to be released with delete_tc. Costs a counter, whatever the size of the
    /// type. Null with DDS_BAD_PARAM_EXCEPTION_CODE for null.
    DDS_TypeCode* clone_tc(const DDS_TypeCode* tc, DDS_ExceptionCode_t& ex);
    /// Releases what clone_tc gave.
    void delete_tc(DDS_TypeCode* tc, DDS_ExceptionCode_t& ex);

  private:
    DDS_TypeCodeFactory() = default;
};
