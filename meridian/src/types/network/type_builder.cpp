// How a library makes the types of the model out of type objects.

#include <algorithm>
#include <iterator>
#include <utility>

#include "meridian/utf8.h"
#include "platform/text.h"
#include "types/network/type_library.h"

namespace meridian::types {

namespace {

/// Turns identifiers and objects into the nodes of one graph.
class TypeBuilder {
  public:
    TypeBuilder(const TypeLibrary& library, TypeGraph& graph) : library_(library), graph_(graph) {}

    const Type* type_of(const TypeIdentifier& id, unsigned depth);
    const std::string& error() const { return error_; }

  private:
    const Type* fail(const std::string& reason) {
        if (error_.empty())
            error_ = reason;
        return nullptr;
    }
    /// What the graph made: null, and then a reason, when it is full.
    template <typename Node>
    Node* checked(Node* made) {
        if (made == nullptr)
            fail("more than " + std::to_string(kMaxGraphNodes) + " types");
        return made;
    }
    const Type* collection(const TypeIdentifier& id, unsigned depth);
    const Type* hashed(const TypeHash& hash, unsigned depth);
    bool fill(Type& type, const TypeObject& object, unsigned depth);
    bool fill_structure(Type& type, const TypeObject& object, unsigned depth);
    bool fill_union(Type& type, const TypeObject& object, unsigned depth);
    bool fill_typed_members(Type& type, const TypeObject& object, unsigned depth);
    bool fill_enumerated(Type& type, const TypeObject& object);
    bool fill_bitset(Type& type, const TypeObject& object);
    bool fill_collection(Type& type, const TypeObject& object, unsigned depth);
    /// The types of elements and, where there are keys, of those.
    bool fill_parts(Type& type, const TypeIdentifier& element, const TypeIdentifier* key, unsigned depth);
    static Member member_of(const TypeObject& object, const TypeObjectMember& source, int64_t number);

    const TypeLibrary& library_;
    TypeGraph& graph_;
    std::map<TypeHash, Type*> nodes_;
    std::string error_;
};

struct WireKind {
    uint8_t wire;
    DDS_TCKind kind;
};
constexpr WireKind kPrimitives[] = {
    {tk::kBoolean, DDS_TK_BOOLEAN},     {tk::kByte, DDS_TK_OCTET},    {tk::kInt8, DDS_TK_INT8},
    {tk::kUint8, DDS_TK_UINT8},         {tk::kInt16, DDS_TK_SHORT},   {tk::kInt32, DDS_TK_LONG},
    {tk::kInt64, DDS_TK_LONGLONG},      {tk::kUint16, DDS_TK_USHORT}, {tk::kUint32, DDS_TK_ULONG},
    {tk::kUint64, DDS_TK_ULONGLONG},    {tk::kFloat32, DDS_TK_FLOAT}, {tk::kFloat64, DDS_TK_DOUBLE},
    {tk::kFloat128, DDS_TK_LONGDOUBLE}, {tk::kChar8, DDS_TK_CHAR},    {tk::kChar16, DDS_TK_WCHAR}};
/// Of type objects; annotations are not among them, as they have no values.
constexpr WireKind kConstructed[] = {
    {tk::kAlias, DDS_TK_ALIAS},   {tk::kStructure, DDS_TK_STRUCT},  {tk::kUnion, DDS_TK_UNION},
    {tk::kBitset, DDS_TK_BITSET}, {tk::kSequence, DDS_TK_SEQUENCE}, {tk::kArray, DDS_TK_ARRAY},
    {tk::kMap, DDS_TK_MAP},       {tk::kEnum, DDS_TK_ENUM},         {tk::kBitmask, DDS_TK_BITMASK}};

/// DDS_TK_NULL for what is not among the kinds.
template <size_t count>
DDS_TCKind kind_among(const WireKind (&kinds)[count], uint8_t wire) {
    const auto* found = std::find_if(std::begin(kinds), std::end(kinds),
                                     [wire](const WireKind& known) { return known.wire == wire; });
    return found == std::end(kinds) ? DDS_TK_NULL : found->kind;
}

DDS_ExtensibilityKind extensibility_of(uint16_t flags) {
    if ((flags & kTypeIsMutable) != 0)
        return DDS_MUTABLE_EXTENSIBILITY;
    return (flags & kTypeIsAppendable) != 0 ? DDS_EXTENSIBLE_EXTENSIBILITY : DDS_FINAL_EXTENSIBILITY;
}

DDS_TCKind kind_of(const TypeObject& object) {
    const DDS_TCKind kind = kind_among(kConstructed, object.kind);
    return kind == DDS_TK_STRUCT && !object.base.is_none() ? DDS_TK_VALUE : kind;
}

/// Longer names are not valid (DDS-XTypes 1.3: MemberName, QualifiedTypeName), and would make long texts of
/// short samples.
constexpr size_t kMaxName = 256;

bool has_long_name(const TypeObject& object) {
    bool found = object.name.size() > kMaxName;
    for (const TypeObjectMember& member : object.members)
        found = found || member.name.size() > kMaxName;
    return found;
}

/// Names come from the network and end up on terminals.
std::string printable(const std::string& name) {
    std::string valid;
    append_utf8(valid, name);
    std::string clean;
    for (std::string_view rest = valid; !rest.empty();) {
        const QUIXCharacter character = QUIXCharacter_first(rest);
        clean += character.is_control() || character.is_format() ? "_" : rest.substr(0, character.length);
        rest.remove_prefix(character.length);
    }
    return clean;
}

const Type* TypeBuilder::type_of(const TypeIdentifier& id, unsigned depth) {
    if (depth > kMaxTypeDepth)
        return fail("types nest deeper than " + std::to_string(kMaxTypeDepth));
    if (id.is_hashed())
        return hashed(id.hash, depth);
    if (id.element != nullptr)
        return collection(id, depth);
    if (const DDS_TCKind kind = kind_among(kPrimitives, id.kind); kind != DDS_TK_NULL)
        return checked(graph_.primitive(kind));
    if (id.kind == tk::kString8Small || id.kind == tk::kString8Large)
        return checked(graph_.text(DDS_TK_STRING, id.bound));
    if (id.kind == tk::kString16Small || id.kind == tk::kString16Large)
        return checked(graph_.text(DDS_TK_WSTRING, id.bound));
    return fail("a type identifier of kind " + std::to_string(id.kind) + " is used as a type");
}

const Type* TypeBuilder::collection(const TypeIdentifier& id, unsigned depth) {
    DDS_TCKind kind = DDS_TK_SEQUENCE;
    if (id.key != nullptr)
        kind = DDS_TK_MAP;
    else if (!id.dimensions.empty())
        kind = DDS_TK_ARRAY;
    Type* made = checked(graph_.add(kind));
    if (made == nullptr)
        return nullptr;
    made->bound = id.bound;
    made->dimensions = id.dimensions;
    return fill_parts(*made, *id.element, id.key.get(), depth) ? made : nullptr;
}

bool TypeBuilder::fill_parts(Type& type, const TypeIdentifier& element, const TypeIdentifier* key,
                             unsigned depth) {
    type.content = type_of(element, depth + 1);
    if (type.content != nullptr && key != nullptr)
        type.key = type_of(*key, depth + 1);
    return type.content != nullptr && (key == nullptr || type.key != nullptr);
}

const Type* TypeBuilder::hashed(const TypeHash& hash, unsigned depth) {
    const auto known = nodes_.find(hash);
    if (known != nodes_.end())
        return known->second;
    const TypeObject* object = library_.find(hash);
    if (object == nullptr)
        return fail("the type object " + to_string(hash) + " is missing");
    const DDS_TCKind kind = kind_of(*object);
    if (kind == DDS_TK_NULL)
        return fail("an annotation is used as a type");
    Type* made = checked(graph_.add(kind));
    if (made == nullptr)
        return nullptr;
    nodes_.emplace(hash, made); // before its members, which may refer back to it
    return fill(*made, *object, depth) ? made
                                       : fail("the type object " + to_string(hash) + " contradicts itself");
}

bool TypeBuilder::fill(Type& type, const TypeObject& object, unsigned depth) {
    if (has_long_name(object)) {
        fail("a name of more than " + std::to_string(kMaxName) + " characters");
        return false;
    }
    type.name = printable(object.name);
    type.nameless = !object.complete;
    type.extensibility = extensibility_of(object.flags);
    type.nested = (object.flags & kTypeIsNested) != 0;
    if (!graph_.count_members(object.members.size())) {
        fail("more than " + std::to_string(kMaxGraphMembers) + " members");
        return false;
    }
    type.members.reserve(object.members.size());
    switch (type.kind) {
        case DDS_TK_STRUCT:
        case DDS_TK_VALUE:
            return fill_structure(type, object, depth);
        case DDS_TK_UNION:
            return fill_union(type, object, depth);
        case DDS_TK_ENUM:
        case DDS_TK_BITMASK:
            return fill_enumerated(type, object);
        case DDS_TK_BITSET:
            return fill_bitset(type, object);
        default:
            return fill_collection(type, object, depth);
    }
}

Member TypeBuilder::member_of(const TypeObject& object, const TypeObjectMember& source, int64_t number) {
    Member member;
    member.name = object.complete ? printable(source.name) : std::to_string(number);
    member.name_hash = source.name_hash;
    member.id = source.id;
    member.key = (source.flags & kMemberIsKey) != 0;
    member.optional = (source.flags & kMemberIsOptional) != 0;
    // Keys have to be understood in any case; not every maker says so.
    member.must_understand = member.key || (source.flags & kMemberIsMustUnderstand) != 0;
    member.external = (source.flags & kMemberIsExternal) != 0;
    return member;
}

bool TypeBuilder::fill_structure(Type& type, const TypeObject& object, unsigned depth) {
    if (type.kind == DDS_TK_VALUE) {
        type.base = type_of(object.base, depth + 1);
        // The base of a structure may be named through an alias.
        const Type* base = resolve_alias(type.base);
        if (base == nullptr || !base->is_aggregate())
            return false;
        type.base = base;
        unsigned chain = 0;
        for (; base != nullptr; base = base->base) {
            if (base == &type || ++chain > kMaxTypeDepth)
                return false;
        }
    }
    return fill_typed_members(type, object, depth);
}

bool TypeBuilder::fill_union(Type& type, const TypeObject& object, unsigned depth) {
    type.discriminator = type_of(object.discriminator, depth + 1);
    type.discriminator_key = (object.discriminator_flags & kMemberIsKey) != 0;
    return type.discriminator != nullptr && fill_typed_members(type, object, depth);
}

bool TypeBuilder::fill_typed_members(Type& type, const TypeObject& object, unsigned depth) {
    for (const TypeObjectMember& source : object.members) {
        Member member = member_of(object, source, source.id);
        member.type = type_of(source.type, depth + 1);
        if (member.type == nullptr)
            return false;
        member.labels = source.labels;
        if (type.kind == DDS_TK_UNION && (source.flags & kMemberIsDefault) != 0)
            type.default_index = static_cast<int32_t>(type.members.size());
        type.members.push_back(std::move(member));
    }
    return true;
}

bool TypeBuilder::fill_enumerated(Type& type, const TypeObject& object) {
    const uint16_t limit = type.kind == DDS_TK_ENUM ? 32 : 64;
    if (object.bit_bound == 0 || object.bit_bound > limit)
        return false;
    type.bit_bound = object.bit_bound;
    type.extensibility =
        DDS_FINAL_EXTENSIBILITY; // has no effect on the wire, and peers announce it differently
    for (const TypeObjectMember& source : object.members) {
        if (type.kind == DDS_TK_BITMASK && (source.value < 0 || source.value >= object.bit_bound))
            return false;
        Member member = member_of(object, source, source.value);
        member.value = source.value;
        type.members.push_back(std::move(member));
    }
    return true;
}

bool TypeBuilder::fill_bitset(Type& type, const TypeObject& object) {
    unsigned used = 0;
    for (const TypeObjectMember& source : object.members) {
        Member member = member_of(object, source, source.value);
        const DDS_TCKind holder = kind_among(kPrimitives, source.holder);
        if (source.bit_count == 0 || holder == DDS_TK_NULL)
            return false;
        const unsigned end = static_cast<unsigned>(source.value) + source.bit_count;
        if (source.value < 0 || end > 64)
            return false;
        used = std::max(used, end);
        member.value = source.value;
        member.bits = source.bit_count;
        member.type = graph_.primitive(holder);
        type.members.push_back(std::move(member));
    }
    type.bit_bound = static_cast<uint16_t>(used);
    type.extensibility = DDS_FINAL_EXTENSIBILITY;
    return true;
}

bool TypeBuilder::fill_collection(Type& type, const TypeObject& object, unsigned depth) {
    type.extensibility = DDS_FINAL_EXTENSIBILITY;
    type.bound = object.bound;
    type.dimensions = object.dimensions;
    if (type.kind == DDS_TK_ARRAY && type.dimensions.empty())
        return false;
    if (!fill_parts(type, object.element, type.kind == DDS_TK_MAP ? &object.key : nullptr, depth))
        return false;
    return type.kind != DDS_TK_ALIAS || resolve_alias(&type) != nullptr;
}

} // namespace

TypeRef TypeLibrary::build(const TypeIdentifier& root, std::string& error) const {
    TypeGraph* graph = TypeGraph::create();
    TypeBuilder builder(*this, *graph);
    const Type* type = builder.type_of(root, 0);
    if (type == nullptr) {
        error = builder.error();
        graph->release();
        return TypeRef();
    }
    return TypeRef::adopt(type);
}

} // namespace meridian::types
