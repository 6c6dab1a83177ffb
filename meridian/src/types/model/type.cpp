#include "types/model/type.h"

#include <algorithm>
#include <set>
#include <utility>

#include "types/model/md5.h"

namespace meridian::types {

const Type* resolve_alias(const Type* type) {
    for (unsigned depth = 0; type != nullptr && type->kind == DDS_TK_ALIAS; ++depth) {
        if (depth >= kMaxTypeDepth)
            return nullptr;
        type = type->content;
    }
    return type;
}

size_t primitive_size(DDS_TCKind kind) {
    switch (kind) {
        case DDS_TK_BOOLEAN:
        case DDS_TK_CHAR:
        case DDS_TK_OCTET:
        case DDS_TK_INT8:
        case DDS_TK_UINT8:
            return 1;
        case DDS_TK_SHORT:
        case DDS_TK_USHORT:
        case DDS_TK_WCHAR:
            return 2;
        case DDS_TK_LONG:
        case DDS_TK_ULONG:
        case DDS_TK_FLOAT:
            return 4;
        case DDS_TK_LONGLONG:
        case DDS_TK_ULONGLONG:
        case DDS_TK_DOUBLE:
            return 8;
        case DDS_TK_LONGDOUBLE:
            return 16;
        default:
            return 0;
    }
}

size_t number_size(const Type& type) {
    if (type.kind != DDS_TK_ENUM && type.kind != DDS_TK_BITMASK && type.kind != DDS_TK_BITSET)
        return primitive_size(type.kind);
    if (type.bit_bound <= 8)
        return 1;
    if (type.bit_bound <= 16)
        return 2;
    return type.bit_bound <= 32 ? 4 : 8;
}

bool is_primitive(const Type* type) {
    type = resolve_alias(type);
    return type != nullptr && primitive_size(type->kind) != 0;
}

bool is_scalar(const Type* type) {
    type = resolve_alias(type);
    if (type == nullptr)
        return false;
    switch (type->kind) {
        case DDS_TK_STRUCT:
        case DDS_TK_VALUE:
        case DDS_TK_UNION:
        case DDS_TK_SEQUENCE:
        case DDS_TK_ARRAY:
        case DDS_TK_MAP:
        case DDS_TK_BITSET:
            return false;
        default:
            return true;
    }
}

bool has_key_members(const Type& type) {
    return type.is_aggregate() && !visit_members(type, [](const Member& member) { return !member.key; });
}

const Member* select_union_member(const Type& type, int64_t discriminator) {
    // Labels are announced as int32, so only the lower 32 bits of others: those from 2^31 on as negative
    // ones.
    discriminator = static_cast<int32_t>(static_cast<uint32_t>(discriminator));
    for (const Member& member : type.members) {
        if (std::find(member.labels.begin(), member.labels.end(), discriminator) != member.labels.end())
            return &member;
    }
    if (type.default_index < 0)
        return nullptr;
    return &type.members[static_cast<size_t>(type.default_index)];
}

const Member* find_enumerator(const Type& type, int64_t value) {
    for (const Member& member : type.members) {
        if (member.value == value)
            return &member;
    }
    return nullptr;
}

namespace {

class Comparison {
  public:
    explicit Comparison(bool of_samples) : of_samples_(of_samples) {}

    bool same(const Type* a, const Type* b) {
        if (of_samples_) {
            a = resolve_alias(a);
            b = resolve_alias(b);
        }
        if (a == b)
            return true;
        if (a == nullptr || b == nullptr)
            return false;
        // A pair that is being compared further up counts as equal: only a difference elsewhere can refute
        // it.
        if (!seen_.emplace(a, b).second)
            return true;
        if (++depth_ > 4 * kMaxTypeDepth)
            return false;
        const bool result = same_shape(*a, *b) && same_members(*a, *b) && same(a->base, b->base) &&
                            same(a->content, b->content) && same(a->key, b->key) &&
                            same(a->discriminator, b->discriminator);
        --depth_;
        return result;
    }

  private:
    bool same_shape(const Type& a, const Type& b) const {
        const bool is_extensible = a.is_aggregate() || a.kind == DDS_TK_UNION;
        return a.kind == b.kind && ((of_samples_ && !is_extensible) || a.extensibility == b.extensibility) &&
               a.bit_bound == b.bit_bound && a.default_index == b.default_index &&
               a.discriminator_key == b.discriminator_key && a.dimensions == b.dimensions &&
               a.members.size() == b.members.size() &&
               (of_samples_ || (a.bound == b.bound && a.nameless == b.nameless && a.name == b.name));
    }

    bool same_members(const Type& a, const Type& b) {
        // Samples of other unions hold no ids, and makers count them from 0 or from 1.
        const bool has_ids = a.kind != DDS_TK_UNION || a.extensibility == DDS_MUTABLE_EXTENSIBILITY;
        for (size_t i = 0; i < a.members.size(); ++i) {
            const Member& m = a.members[i];
            const Member& n = b.members[i];
            if ((has_ids && m.id != n.id) || m.value != n.value || m.bits != n.bits || m.key != n.key ||
                m.optional != n.optional || m.labels != n.labels || !same(m.type, n.type) ||
                !same_names(a, m, b, n) || (!of_samples_ && m.must_understand != n.must_understand))
                return false;
        }
        return true;
    }

    static bool same_names(const Type& a, const Member& m, const Type& b, const Member& n) {
        if (a.nameless == b.nameless)
            return m.name == n.name && m.name_hash == n.name_hash;
        return a.nameless ? m.name_hash == name_hash(n.name) : name_hash(m.name) == n.name_hash;
    }

    const bool of_samples_;
    std::set<std::pair<const Type*, const Type*>> seen_;
    unsigned depth_ = 0;
};

} // namespace

bool equal(const Type& a, const Type& b) {
    return Comparison(false).same(&a, &b);
}

bool have_equal_samples(const Type& a, const Type& b) {
    return Comparison(true).same(&a, &b);
}

Type* TypeGraph::add(DDS_TCKind kind) {
    if (nodes_.size() >= kMaxGraphNodes)
        return nullptr;
    Type& made = nodes_.emplace_back(*this);
    made.kind = kind;
    return &made;
}

const Type* TypeGraph::primitive(DDS_TCKind kind) {
    const Type*& slot = primitives_[kind];
    if (slot == nullptr)
        slot = add(kind);
    return slot;
}

const Type* TypeGraph::text(DDS_TCKind kind, uint32_t bound) {
    if (bound == 0)
        return primitive(kind);
    Type* made = add(kind);
    if (made != nullptr)
        made->bound = bound;
    return made;
}

} // namespace meridian::types
