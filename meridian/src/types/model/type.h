#pragma once

// The model behind type codes. A Type is a node of a TypeGraph; the graph owns all its nodes, so that
// recursive types need no weak pointers, and is immutable once it is built. A TypeRef holds one node and
// keeps its graph alive.

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "meridian/type_code.h"

namespace meridian::types {

class TypeGraph;
struct Type;

/// Nodes of one graph; a type that needs more is refused. So many are beyond every real data model and take
/// about 25 megabytes without their members.
constexpr size_t kMaxGraphNodes = 100000;
/// Members of all types of one graph together, for the same reason.
constexpr size_t kMaxGraphMembers = 1000000;
/// Depth to which type definitions may nest before recursion; deeper ones are refused instead of exhausting
/// the stack.
constexpr unsigned kMaxTypeDepth = 128;
/// Dimensions of an array.
constexpr size_t kMaxDimensions = 32;

struct Member {
    std::string name;
    std::array<uint8_t, 4> name_hash{}; // of nameless types: begins the MD5 of the name that was not told
    uint32_t id = 0;
    const Type* type = nullptr; // null in enumerations and bit masks
    int64_t value = 0;          // enumerator; bit position of a flag or a bit field
    uint16_t bits = DDS_TYPECODE_NOT_BITFIELD;
    bool key = false;
    bool optional = false;
    bool must_understand = false;
    bool external = false;
    std::vector<int32_t> labels; // of a union member, as announced
};

struct Type final : DDS_TypeCode {
    explicit Type(TypeGraph& owner) : graph(&owner) {}

    TypeGraph* graph;
    DDS_TCKind kind = DDS_TK_NULL;
    DDS_ExtensibilityKind extensibility = DDS_FINAL_EXTENSIBILITY;
    bool nested = false;
    /// Made from a minimal type object: members carry their id as name, the type an empty name.
    bool nameless = false;
    bool discriminator_key = false;
    uint16_t bit_bound = 32;
    uint32_t bound = 0; // 0: unbounded
    int32_t default_index = DDS_TYPECODE_NO_DEFAULT;
    std::string name;
    const Type* base = nullptr;
    const Type* content = nullptr;
    const Type* key = nullptr;
    const Type* discriminator = nullptr;
    std::vector<uint32_t> dimensions;
    std::vector<Member> members;

    bool is_aggregate() const { return kind == DDS_TK_STRUCT || kind == DDS_TK_VALUE; }
};

/// The type behind all aliases; null when they refer to each other in a circle.
const Type* resolve_alias(const Type* type);

/// Size of a primitive value on the wire: 1, 2, 4, 8 or 16; 0 for other kinds. Wide characters count as 2.
size_t primitive_size(DDS_TCKind kind);
/// Whether the values of a primitive kind are whole numbers with a sign.
constexpr bool is_signed(DDS_TCKind kind) {
    return kind == DDS_TK_SHORT || kind == DDS_TK_LONG || kind == DDS_TK_LONGLONG || kind == DDS_TK_INT8;
}
/// Whether a kind is primitive and its values are whole numbers, truth values or characters.
inline bool is_whole_number(DDS_TCKind kind) {
    return primitive_size(kind) != 0 && kind != DDS_TK_FLOAT && kind != DDS_TK_DOUBLE &&
           kind != DDS_TK_LONGDOUBLE;
}
/// Whether values of the type, behind its aliases, have no parts.
bool is_scalar(const Type* type);
/// The same for a primitive type, enumeration, bit mask or bit set; 0 for others. Not looking behind aliases.
size_t number_size(const Type& type);
/// Whether the type, behind its aliases, is a primitive one.
bool is_primitive(const Type* type);

/// Calls visit(member) for each member of a structure in the order of the wire, those of the outermost base
/// first, until it returns false.
template <typename Visit>
bool visit_members(const Type& type, Visit visit) {
    if (type.base != nullptr && !visit_members(*type.base, visit))
        return false;
    return std::all_of(type.members.begin(), type.members.end(), visit);
}
/// Whether the type is a structure, and it or one of its bases has key members.
bool has_key_members(const Type& type);
/// The member of a union that a discriminator selects: the one with that label, else the default one, else
/// null.
const Member* select_union_member(const Type& type, int64_t discriminator);
/// The enumerator or flag with that value; null when none has it.
const Member* find_enumerator(const Type& type, int64_t value);

/// Structural equality; equal recursive types compare equal.
bool equal(const Type& a, const Type& b);
/// Whether the same samples are of both, with the same names of members as far as is told: names of types,
/// aliases, bounds and the like may differ.
bool have_equal_samples(const Type& a, const Type& b);

/// Owner of nodes, counted. Built by one thread, then never changed.
class TypeGraph {
  public:
    /// With one reference, which adopt() passes on.
    static TypeGraph* create() { return new TypeGraph; }
    TypeGraph(const TypeGraph&) = delete;
    TypeGraph& operator=(const TypeGraph&) = delete;

    /// A new node; null when the graph is full.
    Type* add(DDS_TCKind kind = DDS_TK_NULL);
    /// The node of a primitive kind, made once per graph.
    const Type* primitive(DDS_TCKind kind);
    /// A string or wide string; bound 0: any length.
    const Type* text(DDS_TCKind kind, uint32_t bound);
    /// Counts members against the limit.
    bool count_members(size_t count) {
        members_ += count;
        return members_ <= kMaxGraphMembers;
    }
    size_t size() const { return nodes_.size(); }
    /// Bytes that it takes in memory, but for names.
    size_t memory() const { return nodes_.size() * sizeof(Type) + members_ * sizeof(Member); }

    void acquire() const { references_.fetch_add(1, std::memory_order_relaxed); }
    void release() const {
        if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }

  private:
    TypeGraph() = default;
    ~TypeGraph() = default;

    mutable std::atomic<uint32_t> references_{1};
    std::deque<Type> nodes_; // addresses stay
    size_t members_ = 0;
    const Type* primitives_[DDS_TK_MAP + 1] = {};
};

/// Shared ownership of a node's graph. Copies are cheap and may be made on any thread.
class TypeRef {
  public:
    TypeRef() = default;
    explicit TypeRef(const Type* type) : type_(type) {
        if (type_ != nullptr)
            type_->graph->acquire();
    }
    /// Takes over the reference that TypeGraph::create made. `type` is a node of that graph.
    static TypeRef adopt(const Type* type) {
        TypeRef ref;
        ref.type_ = type;
        return ref;
    }
    TypeRef(const TypeRef& other) : TypeRef(other.type_) {}
    TypeRef(TypeRef&& other) noexcept : type_(other.type_) { other.type_ = nullptr; }
    TypeRef& operator=(TypeRef other) noexcept {
        const Type* mine = type_;
        type_ = other.type_;
        other.type_ = mine;
        return *this;
    }
    ~TypeRef() {
        if (type_ != nullptr)
            type_->graph->release();
    }

    explicit operator bool() const { return type_ != nullptr; }
    const Type* get() const { return type_; }
    const Type& operator*() const { return *type_; }
    const Type* operator->() const { return type_; }

  private:
    const Type* type_ = nullptr;
};

/// The node behind a type code that the API handed out.
inline const Type* from_type_code(const DDS_TypeCode* tc) {
    return static_cast<const Type*>(tc);
}

} // namespace meridian::types
