#include "types/documents/type_document_builder.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "platform/text.h"
#include "types/documents/constant_expression.h"
#include "types/model/md5.h"

namespace meridian::types {

namespace {

// Attributes by the element that they belong to; the last group of each says nothing about the form of data.

constexpr std::initializer_list<const char*> kStructureAttributes = {
    "name", "baseType", "baseClass", "extensibility", "autoid", "nested", "topLevel"};
/// Of what has a name and a type.
constexpr std::initializer_list<const char*> kTypedefAttributes = {"name",
                                                                   "type",
                                                                   "nonBasicTypeName",
                                                                   "stringMaxLength",
                                                                   "sequenceMaxLength",
                                                                   "mapKeyType",
                                                                   "key_type",
                                                                   "mapKeyNonBasicTypeName",
                                                                   "mapKeyStringMaxLength",
                                                                   "mapMaxLength",
                                                                   "arrayDimensions",
                                                                   "default",
                                                                   "min",
                                                                   "max",
                                                                   "unit"};
/// Of members beyond those.
constexpr std::initializer_list<const char*> kMemberAttributes = {
    "key", "optional", "mustUnderstand", "external", "id", "hashid", "hashId", "tryConstruct", "visibility"};

} // namespace

pugi::xml_attribute DocumentBuilder::attribute_of(const pugi::xml_node& node,
                                                  std::initializer_list<const char*> names) {
    for (const char* name : names) {
        if (const pugi::xml_attribute found = node.attribute(name))
            return found;
    }
    return {};
}

bool DocumentBuilder::primitive_named(std::string_view name, DDS_TCKind& kind) {
    // clang-format off
    static const std::map<std::string_view, DDS_TCKind> kKinds{
        {"boolean", DDS_TK_BOOLEAN}, {"byte", DDS_TK_OCTET}, {"octet", DDS_TK_OCTET}, {"int8", DDS_TK_INT8},
        {"uint8", DDS_TK_UINT8}, {"int16", DDS_TK_SHORT}, {"uint16", DDS_TK_USHORT}, {"int32", DDS_TK_LONG},
        {"uint32", DDS_TK_ULONG}, {"int64", DDS_TK_LONGLONG}, {"uint64", DDS_TK_ULONGLONG},
        {"float32", DDS_TK_FLOAT}, {"float64", DDS_TK_DOUBLE}, {"float128", DDS_TK_LONGDOUBLE},
        {"char8", DDS_TK_CHAR}, {"char16", DDS_TK_WCHAR}, {"short", DDS_TK_SHORT},
        {"unsignedShort", DDS_TK_USHORT}, {"long", DDS_TK_LONG}, {"unsignedLong", DDS_TK_ULONG},
        {"longLong", DDS_TK_LONGLONG}, {"float", DDS_TK_FLOAT}, {"unsignedLongLong", DDS_TK_ULONGLONG},
        {"double", DDS_TK_DOUBLE}, {"longDouble", DDS_TK_LONGDOUBLE}, {"char", DDS_TK_CHAR},
        {"wchar", DDS_TK_WCHAR}};
    // clang-format on
    const auto found = kKinds.find(name);
    if (found == kKinds.end())
        return false;
    kind = found->second;
    return true;
}

/// A name is looked for in the module around the declaration, then further and further out.
template <typename Map>
const typename Map::value_type* DocumentBuilder::lookup(const Map& map, const std::string& name) const {
    if (name.compare(0, 2, "::") == 0) {
        const auto found = map.find(name.substr(2));
        return found == map.end() ? nullptr : &*found;
    }
    std::string scope = declaration_->scope;
    while (true) {
        const auto found = map.find(qualified_name(scope, name));
        if (found != map.end())
            return &*found;
        if (scope.empty())
            return nullptr;
        const size_t end = scope.rfind("::");
        scope.resize(end == std::string::npos ? 0 : end);
    }
}

std::optional<int64_t> DocumentBuilder::number(const pugi::xml_node& node, const std::string& text,
                                               unsigned depth) {
    const std::optional<int64_t> value = evaluate_constant(
        text, [&](std::string_view name) { return value_of_name(std::string(name), depth); });
    if (!value)
        fail(node, "\"" + text + "\" is not a number, constant or enumerator");
    return value;
}

std::optional<int64_t> DocumentBuilder::value_of_name(const std::string& name, unsigned depth) {
    constexpr unsigned kMaxConstantDepth = 16;
    if (name == "true" || name == "TRUE")
        return 1;
    if (name == "false" || name == "FALSE")
        return 0;
    if (const auto* constant = lookup(set_.constants, name);
        constant != nullptr && depth < kMaxConstantDepth) {
        const DeclarationScope scope(*this, constant->second);
        const pugi::xml_node& node = constant->second.node;
        return number(node, node.attribute("value").value(), depth + 1);
    }
    // "RED" as well as "Color::RED"
    const auto* enumerator = lookup(set_.enumerators, name);
    const size_t colons = name.rfind("::");
    const std::string literal = colons == std::string::npos ? name : name.substr(colons + 2);
    std::string enumeration;
    if (enumerator != nullptr)
        enumeration = "::" + enumerator->second;
    else if (colons != std::string::npos)
        enumeration = name.substr(0, colons);
    const auto* named = enumeration.empty() ? nullptr : lookup(set_.types, enumeration);
    const Type* type = named == nullptr ? nullptr : type_named(named->first, 1);
    if (type == nullptr || type->kind != DDS_TK_ENUM)
        return std::nullopt;
    const Member* found = member_named(*type, literal);
    return found == nullptr ? std::nullopt : std::optional<int64_t>(found->value);
}

/// A bound; absent or -1 means none.
bool DocumentBuilder::bound(const pugi::xml_node& node, std::initializer_list<const char*> names,
                            uint32_t& value) {
    const pugi::xml_attribute attribute = attribute_of(node, names);
    value = 0;
    if (!attribute)
        return true;
    const std::optional<int64_t> parsed = number(node, attribute.value());
    if (!parsed)
        return false;
    if (*parsed != -1 && (*parsed <= 0 || *parsed > INT32_MAX))
        return refuse(node, std::string(attribute.name()) + " must be positive, or -1 for none");
    value = *parsed == -1 || *parsed == INT32_MAX ? 0 : static_cast<uint32_t>(*parsed);
    return true;
}

bool DocumentBuilder::dimensions(const pugi::xml_node& node, std::vector<uint32_t>& values) {
    const pugi::xml_attribute attribute = node.attribute("arrayDimensions");
    if (!attribute)
        return true;
    for (const std::string& part : split(attribute.value(), ",")) {
        const std::optional<int64_t> value = number(node, part);
        if (!value)
            return false;
        if (*value <= 0 || *value > INT32_MAX || values.size() >= kMaxDimensions)
            return refuse(
                node, "arrayDimensions must be positive numbers, at most " + std::to_string(kMaxDimensions));
        values.push_back(static_cast<uint32_t>(*value));
    }
    return true;
}

const Member* DocumentBuilder::member_named(const Type& type, const std::string& name) {
    const auto found = std::find_if(type.members.begin(), type.members.end(),
                                    [&name](const Member& member) { return member.name == name; });
    return found == type.members.end() ? nullptr : &*found;
}

bool DocumentBuilder::count_members(const pugi::xml_node& node, size_t count) {
    return graph_.count_members(count) ||
           refuse(node, "more than " + std::to_string(kMaxGraphMembers) + " members");
}

/// A primitive, string or named type. `other` is the name where `name` is "nonBasic".
const Type* DocumentBuilder::scalar_type(const pugi::xml_node& node, std::string name,
                                         const std::string& other, const char* bound_name, unsigned depth) {
    DDS_TCKind kind = DDS_TK_NULL;
    if (primitive_named(name, kind))
        return checked(graph_.primitive(kind), node);
    if (name == "string" || name == "wstring") {
        uint32_t limit = 0;
        if (!bound(node, {bound_name}, limit))
            return nullptr;
        return checked(graph_.text(name == "string" ? DDS_TK_STRING : DDS_TK_WSTRING, limit), node);
    }
    if (name == "nonBasic")
        name = other;
    if (name.empty())
        return fail(node, "needs a type");
    const auto* named = lookup(set_.types, name);
    if (named == nullptr)
        return fail(node, "there is no type \"" + name + "\"");
    return type_named(named->first, depth + 1);
}

/// The type that the attributes of a member or typedef describe: the basic one, in a sequence or map, in an
/// array.
const Type* DocumentBuilder::member_type(const pugi::xml_node& node, unsigned depth) {
    const Type* type = scalar_type(node, node.attribute("type").value(),
                                   node.attribute("nonBasicTypeName").value(), "stringMaxLength", depth);
    if (type == nullptr)
        return nullptr;
    const pugi::xml_attribute key = attribute_of(node, {"mapKeyType", "key_type"});
    const pugi::xml_attribute sequence = node.attribute("sequenceMaxLength");
    if (key && sequence)
        return fail(node, "a map and a sequence at once");
    if (key || sequence) {
        Type* collection = checked(graph_.add(key ? DDS_TK_MAP : DDS_TK_SEQUENCE), node);
        if (collection == nullptr)
            return nullptr;
        collection->content = type;
        if (!bound(node, {key ? "mapMaxLength" : "sequenceMaxLength"}, collection->bound))
            return nullptr;
        if (key) {
            collection->key = scalar_type(node, key.value(), node.attribute("mapKeyNonBasicTypeName").value(),
                                          "mapKeyStringMaxLength", depth);
            if (collection->key == nullptr)
                return nullptr;
        }
        type = collection;
    }
    std::vector<uint32_t> sizes;
    if (!dimensions(node, sizes))
        return nullptr;
    if (!sizes.empty()) {
        Type* array = checked(graph_.add(DDS_TK_ARRAY), node);
        if (array == nullptr)
            return nullptr;
        array->content = type;
        array->dimensions = std::move(sizes);
        type = array;
    }
    return type;
}

const Type* DocumentBuilder::type_named(const std::string& full, unsigned depth) {
    const auto known = nodes_.find(full);
    if (known != nodes_.end())
        return known->second;
    const Declaration& declaration = set_.types.at(full);
    const DeclarationScope scope(*this, declaration);
    if (depth > kMaxTypeDepth)
        return fail(declaration.node, "types nest deeper than " + std::to_string(kMaxTypeDepth));
    Type* made = checked(graph_.add(declared_kind(declaration.node.name())), declaration.node);
    if (made == nullptr)
        return nullptr;
    made->name = full;
    nodes_.emplace(full, made); // before its members, which may refer back to it
    return fill(*made, declaration.node, depth) ? made : nullptr;
}

bool DocumentBuilder::fill(Type& type, const pugi::xml_node& node, unsigned depth) {
    switch (type.kind) {
        case DDS_TK_STRUCT:
            return fill_structure(type, node, depth);
        case DDS_TK_UNION:
            return fill_union(type, node, depth);
        case DDS_TK_ENUM:
            return fill_enumeration(type, node);
        case DDS_TK_BITMASK:
            return fill_bitmask(type, node);
        case DDS_TK_BITSET:
            return fill_bitset(type, node);
        default:
            type.content =
                holds_only(node, kTypedefAttributes, {}, "a typedef") ? member_type(node, depth) : nullptr;
            if (type.content != nullptr && resolve_alias(&type) == nullptr)
                type.content = fail(node, "typedef refers to itself");
            return type.content != nullptr;
    }
}

bool DocumentBuilder::read_extensibility(Type& type, const pugi::xml_node& node) {
    const std::string_view text = node.attribute("extensibility").value();
    reader_.boolean_attribute(node, "nested", type.nested);
    if (text == "final" || text == "FINAL" || text == "FINAL_EXTENSIBILITY")
        type.extensibility = DDS_FINAL_EXTENSIBILITY;
    else if (text == "mutable" || text == "MUTABLE" || text == "MUTABLE_EXTENSIBILITY")
        type.extensibility = DDS_MUTABLE_EXTENSIBILITY;
    else if (text.empty() || text == "appendable" || text == "APPENDABLE" || text == "extensible" ||
             text == "EXTENSIBLE_EXTENSIBILITY")
        type.extensibility = DDS_EXTENSIBLE_EXTENSIBILITY;
    else
        return refuse(node, "extensibility is final, appendable or mutable");
    return true;
}

bool DocumentBuilder::read_member(const pugi::xml_node& node, Member& member, unsigned depth) {
    if (!holds_only(node, kTypedefAttributes, {}, "a member", kMemberAttributes))
        return false;
    member.name = node.attribute("name").value();
    if (!is_identifier(member.name))
        return refuse(node, "\"" + member.name + "\" is not a valid name");
    reader_.boolean_attribute(node, "key", member.key);
    reader_.boolean_attribute(node, "optional", member.optional);
    reader_.boolean_attribute(node, "mustUnderstand", member.must_understand);
    reader_.boolean_attribute(node, "external", member.external);
    member.must_understand = member.must_understand || member.key;
    member.type = reader_.ok() ? member_type(node, depth) : nullptr;
    return member.type != nullptr && count_members(node, 1);
}

bool DocumentBuilder::holds_only(const pugi::xml_node& node, std::initializer_list<const char*> attributes,
                                 std::initializer_list<std::string_view> elements, const char* what,
                                 std::initializer_list<const char*> more_attributes) {
    reader_.check_attributes(node, attributes, more_attributes);
    for (const pugi::xml_node& child : reader_.children(node, xml::ElementReader::Attributes::any)) {
        const std::string_view name = child.name();
        if (name != "annotate" && std::find(elements.begin(), elements.end(), name) == elements.end())
            fail(child, std::string("not an element of ") + what);
    }
    return reader_.ok();
}

const Type* DocumentBuilder::endless_part(const Type& type) {
    const bool has_parts = type.is_aggregate() || type.kind == DDS_TK_ALIAS || type.kind == DDS_TK_ARRAY;
    if (!has_parts || finite_.count(&type) != 0)
        return nullptr;
    if (!entered_.insert(&type).second)
        return &type;
    const Type* endless = type.content != nullptr ? endless_part(*type.content) : nullptr;
    if (endless == nullptr && type.base != nullptr)
        endless = endless_part(*type.base);
    for (size_t i = 0; endless == nullptr && i < type.members.size(); ++i) {
        if (!type.members[i].optional)
            endless = endless_part(*type.members[i].type);
    }
    entered_.erase(&type);
    finite_.insert(&type);
    return endless;
}

const Type* DocumentBuilder::make(const std::string& full) {
    const Type* type = type_named(full, 0);
    const Type* endless = type == nullptr ? nullptr : endless_part(*type);
    if (endless == nullptr)
        return type;
    const DeclarationScope scope(*this, set_.types.at(full));
    return fail(declaration_->node, "\"" + endless->name + "\" holds itself");
}

bool DocumentBuilder::fill_structure(Type& type, const pugi::xml_node& node, unsigned depth) {
    if (!holds_only(node, kStructureAttributes, {"member"}, "a structure") || !read_extensibility(type, node))
        return false;
    uint32_t next_id = 0;
    if (const pugi::xml_attribute base = attribute_of(node, {"baseType", "baseClass"})) {
        const auto* named = lookup(set_.types, base.value());
        const Type* found = named == nullptr ? nullptr : resolve_alias(type_named(named->first, depth + 1));
        for (const Type* up = found; up != nullptr; up = up->base)
            found = up == &type ? nullptr : found;
        if (found == nullptr || !found->is_aggregate())
            return refuse(node,
                          "the base type \"" + std::string(base.value()) + "\" is not another structure");
        type.kind = DDS_TK_VALUE;
        type.base = found;
        for (const Type* up = found; up != nullptr; up = up->base) {
            for (const Member& member : up->members)
                next_id = std::max(next_id, member.id + 1);
        }
    }
    const std::string_view autoid = node.attribute("autoid").value();
    const bool hashed = autoid == "hash" || autoid == "HASH";
    if (!hashed && !autoid.empty() && autoid != "sequential" && autoid != "SEQUENTIAL")
        return refuse(node, "autoid is sequential or hash");
    for (const pugi::xml_node& child : node.children("member")) {
        Member member;
        if (!read_member(child, member, depth))
            return false;
        member.id = hashed ? hashed_member_id(member.name) : next_id;
        if (const pugi::xml_attribute hashid = attribute_of(child, {"hashid", "hashId"}))
            member.id = hashed_member_id(*hashid.value() == '\0' ? member.name.c_str() : hashid.value());
        if (const pugi::xml_attribute id = child.attribute("id")) {
            const std::optional<int64_t> value = number(child, id.value());
            if (!value || *value < 0 || *value > 0x0fffffff)
                return refuse(child, "the id is not between 0 and 0x0fffffff");
            member.id = static_cast<uint32_t>(*value);
        }
        for (const Type* up = &type; up != nullptr; up = up->base) {
            if (!is_new_in(*up, member, &Member::id, "id", child))
                return false;
        }
        next_id = member.id + 1;
        type.members.push_back(std::move(member));
    }
    return true;
}

} // namespace meridian::types
