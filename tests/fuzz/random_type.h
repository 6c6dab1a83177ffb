#pragma once

// Types made of fuzzer input, so that the walkers of serialized data meet every combination of types.

#include <string>

#include "input.h"
#include "types/model/type.h"

namespace fuzz {

class TypeMaker {
  public:
    TypeMaker(Input& input, meridian::types::TypeGraph& graph) : input_(input), graph_(graph) {}

    /// A structure or union.
    const meridian::types::Type* make() { return aggregate(0); }

  private:
    using Type = meridian::types::Type;
    using Member = meridian::types::Member;

    const Type* any(unsigned depth) {
        static constexpr DDS_TCKind kPrimitives[] = {
            DDS_TK_SHORT,      DDS_TK_LONG,  DDS_TK_USHORT,  DDS_TK_ULONG,  DDS_TK_FLOAT,    DDS_TK_DOUBLE,
            DDS_TK_BOOLEAN,    DDS_TK_CHAR,  DDS_TK_OCTET,   DDS_TK_STRING, DDS_TK_LONGLONG, DDS_TK_INT8,
            DDS_TK_LONGDOUBLE, DDS_TK_WCHAR, DDS_TK_WSTRING, DDS_TK_UINT8};
        const uint8_t choice = input_.next();
        if (choice < 128 || depth > 6)
            return graph_.primitive(kPrimitives[choice % std::size(kPrimitives)]);
        switch (choice % 9) {
            case 0:
            case 1:
                return aggregate(depth);
            case 2:
                return collection(DDS_TK_SEQUENCE, depth);
            case 3:
                return collection(DDS_TK_ARRAY, depth);
            case 4:
                return collection(DDS_TK_MAP, depth);
            case 5:
                return enumerated(DDS_TK_ENUM);
            case 6:
                return enumerated(DDS_TK_BITMASK);
            case 7:
                return collection(DDS_TK_ALIAS, depth);
            default:
                return last_ != nullptr ? last_ : graph_.primitive(DDS_TK_OCTET); // recursion
        }
    }

    const Type* aggregate(unsigned depth) {
        Type* type = graph_.add();
        const uint8_t shape = input_.next();
        type->kind = (shape & 3) == 3 ? DDS_TK_UNION : DDS_TK_STRUCT;
        type->extensibility = static_cast<DDS_ExtensibilityKind>((shape >> 2) % 3);
        last_ = type;
        if (type->kind == DDS_TK_UNION)
            type->discriminator =
                (shape & 0x40) != 0 ? enumerated(DDS_TK_ENUM) : graph_.primitive(DDS_TK_LONG);
        const unsigned count = input_.next() % 6;
        for (unsigned i = 0; i < count; ++i) {
            const uint8_t flags = input_.next();
            Member member;
            member.name = "m" + std::to_string(i);
            member.id = (flags & 8) != 0 ? 0x3f00u + i : i;
            member.key = (flags & 1) != 0;
            member.optional = (flags & 6) == 6;
            member.labels = {static_cast<int32_t>(i)};
            member.type = any(depth + 1);
            type->members.push_back(member);
        }
        if (type->kind == DDS_TK_UNION && count != 0 && (shape & 0x80) != 0)
            type->default_index = 0;
        return type;
    }

    const Type* collection(DDS_TCKind kind, unsigned depth) {
        Type* type = graph_.add();
        type->kind = kind;
        if (kind == DDS_TK_ARRAY) {
            type->dimensions.push_back(1u + input_.next() % 4u);
            if ((input_.next() & 1) != 0)
                type->dimensions.push_back(input_.next() * 70000u + 1);
        }
        if (kind == DDS_TK_MAP)
            type->key = any(depth + 1);
        type->content = any(depth + 1);
        return type;
    }

    const Type* enumerated(DDS_TCKind kind) {
        Type* type = graph_.add();
        type->kind = kind;
        type->bit_bound = static_cast<uint16_t>(1 + input_.next() % (kind == DDS_TK_ENUM ? 32 : 64));
        Member member;
        member.name = "E";
        type->members.push_back(member);
        return type;
    }

    Input& input_;
    meridian::types::TypeGraph& graph_;
    const Type* last_ = nullptr;
};

} // namespace fuzz
