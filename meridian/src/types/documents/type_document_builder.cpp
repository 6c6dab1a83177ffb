#include "types/documents/type_document_builder.h"

#include <algorithm>
#include <sstream>
#include <string_view>
#include <utility>

#include "types/model/md5.h"

namespace meridian::types {

namespace {

bool is_true(const pugi::xml_attribute& attribute) {
    const std::string_view text = attribute.value();
    return text == "true" || text == "1" || text == "TRUE" || text == "True";
}

/// The first attribute of that name that is there; peers' tools spell some of them differently.
pugi::xml_attribute attribute_of(const pugi::xml_node& node, std::initializer_list<const char*> names) {
    for (const char* name : names) {
        if (const pugi::xml_attribute found = node.attribute(name))
            return found;
    }
    return {};
}

bool primitive_named(std::string_view name, DDS_TCKind& kind) {
    static const std::map<std::string_view, DDS_TCKind> kKinds{{"boolean", DDS_TK_BOOLEAN},
                                                               {"byte", DDS_TK_OCTET},
                                                               {"octet", DDS_TK_OCTET},
                                                               {"int8", DDS_TK_INT8},
                                                               {"uint8", DDS_TK_UINT8},
                                                               {"int16", DDS_TK_SHORT},
                                                               {"uint16", DDS_TK_USHORT},
                                                               {"int32", DDS_TK_LONG},
                                                               {"uint32", DDS_TK_ULONG},
                                                               {"int64", DDS_TK_LONGLONG},
                                                               {"uint64", DDS_TK_ULONGLONG},
                                                               {"float32", DDS_TK_FLOAT},
                                                               {"float64", DDS_TK_DOUBLE},
                                                               {"float128", DDS_TK_LONGDOUBLE},
                                                               {"char8", DDS_TK_CHAR},
                                                               {"char16", DDS_TK_WCHAR},
                                                               {"short", DDS_TK_SHORT},
                                                               {"unsignedShort", DDS_TK_USHORT},
                                                               {"long", DDS_TK_LONG},
                                                               {"unsignedLong", DDS_TK_ULONG},
                                                               {"longLong", DDS_TK_LONGLONG},
                                                               {"float", DDS_TK_FLOAT},
                                                               {"unsignedLongLong", DDS_TK_ULONGLONG},
                                                               {"double", DDS_TK_DOUBLE},
                                                               {"longDouble", DDS_TK_LONGDOUBLE},
                                                               {"char", DDS_TK_CHAR},
                                                               {"wchar", DDS_TK_WCHAR}};
    const auto found = kKinds.find(name);
    if (found == kKinds.end())
        return false;
    kind = found->second;
    return true;
}

std::optional<int64_t> parse_integer(std::string_view text) {
    const bool negative = !text.empty() && text[0] == '-';
    if (negative || (!text.empty() && text[0] == '+'))
        text.remove_prefix(1);
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    } else if (text.size() > 1 && text[0] == '0') {
        base = 8; // as in IDL
        text.remove_prefix(1);
    }
    if (text.empty() || text.size() > 18)
        return std::nullopt;
    int64_t value = 0;
    for (char c : text) {
        int digit = base;
        if (c >= '0' && c <= '9')
            digit = c - '0';
        else if (c >= 'a' && c <= 'f')
            digit = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F')
            digit = c - 'A' + 10;
        if (digit >= base || value > (INT64_MAX - digit) / base)
            return std::nullopt;
        value = value * base + digit;
    }
    return negative ? -value : value;
}

} // namespace

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

/// A literal, or the name of a constant or enumerator, in parentheses or not.
std::optional<int64_t> DocumentBuilder::number(const pugi::xml_node& node, std::string text, unsigned depth) {
    const auto strip = [&text](std::string_view left, std::string_view right) {
        text.erase(0, text.find_first_not_of(left));
        const size_t last = text.find_last_not_of(right);
        text.resize(last == std::string::npos ? 0 : last + 1);
    };
    strip(" \t\n(", " \t\n)");
    if (const std::optional<int64_t> literal = parse_integer(text))
        return literal;
    if (text.size() == 3 && text.front() == '\'' && text.back() == '\'')
        return static_cast<unsigned char>(text[1]);
    if (text == "true" || text == "TRUE")
        return 1;
    if (text == "false" || text == "FALSE")
        return 0;
    if (const auto* constant = lookup(set_.constants, text); constant != nullptr && depth < 16) {
        const Declaration* here = std::exchange(declaration_, &constant->second);
        const std::optional<int64_t> value =
            number(constant->second.node, constant->second.node.attribute("value").value(), depth + 1);
        declaration_ = here;
        return value;
    }
    // "RED" as well as "Color::RED"
    const auto* enumerator = lookup(set_.enumerators, text);
    std::string literal = text;
    std::string enumeration;
    if (enumerator != nullptr) {
        enumeration = "::" + enumerator->second.first;
        literal = text.substr(text.rfind(':') + 1);
    } else if (const size_t colons = text.rfind("::"); colons != std::string::npos) {
        enumeration = text.substr(0, colons);
        literal = text.substr(colons + 2);
    }
    const auto* named = enumeration.empty() ? nullptr : lookup(set_.types, enumeration);
    if (named != nullptr) {
        const Type* type = type_named(named->first, 1);
        for (size_t i = 0; type != nullptr && i < type->members.size(); ++i) {
            if (type->members[i].name == literal && type->kind == DDS_TK_ENUM)
                return type->members[i].value;
        }
    }
    fail(node, "\"" + text + "\" is no number, constant or enumerator");
    return std::nullopt;
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
    if (*parsed != -1 && (*parsed <= 0 || *parsed > INT32_MAX)) {
        fail(node, std::string(attribute.name()) + " must be positive, or -1 for none");
        return false;
    }
    value = *parsed == -1 || *parsed == INT32_MAX ? 0 : static_cast<uint32_t>(*parsed);
    return true;
}

bool DocumentBuilder::dimensions(const pugi::xml_node& node, std::vector<uint32_t>& values) {
    std::istringstream list(attribute_of(node, {"arrayDimensions"}).value());
    std::string part;
    while (std::getline(list, part, ',')) {
        const std::optional<int64_t> value = number(node, part);
        if (!value)
            return false;
        if (*value <= 0 || *value > INT32_MAX || values.size() >= kMaxDimensions) {
            fail(node, "arrayDimensions must be positive numbers, at most " + std::to_string(kMaxDimensions));
            return false;
        }
        values.push_back(static_cast<uint32_t>(*value));
    }
    return true;
}

Type* DocumentBuilder::node_of(DDS_TCKind kind, const pugi::xml_node& at) {
    Type* made = graph_.add();
    if (made == nullptr)
        fail(at, "more than " + std::to_string(kMaxGraphNodes) + " types");
    else
        made->kind = kind;
    return made;
}

/// A primitive, string or named type. `other` is the name where `name` is "nonBasic".
const Type* DocumentBuilder::scalar_type(const pugi::xml_node& node, std::string name,
                                         const std::string& other, const char* bound_name, unsigned depth) {
    DDS_TCKind kind = DDS_TK_NULL;
    if (primitive_named(name, kind))
        return graph_.primitive(kind);
    if (name == "string" || name == "wstring") {
        uint32_t limit = 0;
        if (!bound(node, {bound_name}, limit))
            return nullptr;
        kind = name == "string" ? DDS_TK_STRING : DDS_TK_WSTRING;
        if (limit == 0)
            return graph_.primitive(kind);
        Type* made = node_of(kind, node);
        if (made != nullptr)
            made->bound = limit;
        return made;
    }
    if (name == "nonBasic")
        name = other;
    if (name.empty())
        return fail(node, "it has no type");
    const auto* named = lookup(set_.types, name);
    if (named == nullptr)
        return fail(node, "there is no type \"" + name + "\"");
    return type_named(named->first, depth + 1);
}

/// The type that the attributes of a member or typedef describe: the basic one, in a sequence or map, in an
/// array.
const Type* DocumentBuilder::member_type(const pugi::xml_node& node, unsigned depth) {
    const Type* type =
        scalar_type(node, node.attribute("type").value(), attribute_of(node, {"nonBasicTypeName"}).value(),
                    "stringMaxLength", depth);
    if (type == nullptr)
        return nullptr;
    const pugi::xml_attribute key = attribute_of(node, {"mapKeyType", "key_type"});
    const pugi::xml_attribute sequence = attribute_of(node, {"sequenceMaxLength"});
    if (key || sequence) {
        Type* collection = node_of(key ? DDS_TK_MAP : DDS_TK_SEQUENCE, node);
        if (collection == nullptr)
            return nullptr;
        collection->content = type;
        if (!bound(node, {key ? "mapMaxLength" : "sequenceMaxLength"}, collection->bound))
            return nullptr;
        if (key) {
            collection->key =
                scalar_type(node, key.value(), attribute_of(node, {"mapKeyNonBasicTypeName"}).value(),
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
        Type* array = node_of(DDS_TK_ARRAY, node);
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
    const std::string_view element = declaration.node.name();
    const Declaration* outer = std::exchange(declaration_, &declaration);
    DDS_TCKind kind = DDS_TK_STRUCT;
    if (element == "union")
        kind = DDS_TK_UNION;
    else if (element == "enum")
        kind = DDS_TK_ENUM;
    else if (element == "typedef")
        kind = DDS_TK_ALIAS;
    else if (element == "bitmask")
        kind = DDS_TK_BITMASK;
    else if (element == "bitset")
        kind = DDS_TK_BITSET;
    Type* made = nullptr;
    if (depth > kMaxTypeDepth)
        fail(declaration.node, "types nest deeper than " + std::to_string(kMaxTypeDepth));
    else
        made = node_of(kind, declaration.node);
    if (made != nullptr) {
        made->name = full;
        nodes_.emplace(full, made); // before its members, which may refer back to it
        if (!fill(*made, declaration.node, depth))
            made = nullptr;
    }
    declaration_ = outer;
    return made;
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
            type.content = member_type(node, depth);
            if (type.content != nullptr && resolve_alias(&type) == nullptr)
                type.content = fail(node, "it stands for itself");
            return type.content != nullptr;
    }
}

bool DocumentBuilder::read_extensibility(Type& type, const pugi::xml_node& node) {
    const std::string_view text = node.attribute("extensibility").value();
    type.nested = is_true(node.attribute("nested"));
    if (text == "final" || text == "FINAL" || text == "FINAL_EXTENSIBILITY")
        type.extensibility = DDS_FINAL_EXTENSIBILITY;
    else if (text == "mutable" || text == "MUTABLE" || text == "MUTABLE_EXTENSIBILITY")
        type.extensibility = DDS_MUTABLE_EXTENSIBILITY;
    else if (text.empty() || text == "appendable" || text == "APPENDABLE" || text == "extensible" ||
             text == "EXTENSIBLE_EXTENSIBILITY")
        type.extensibility = DDS_EXTENSIBLE_EXTENSIBILITY;
    else {
        fail(node, "extensibility is final, appendable or mutable");
        return false;
    }
    return true;
}

bool DocumentBuilder::read_member(const pugi::xml_node& node, Member& member, unsigned depth) {
    member.name = node.attribute("name").value();
    if (!is_identifier(member.name)) {
        fail(node, "its name \"" + member.name + "\" is none");
        return false;
    }
    member.key = is_true(node.attribute("key"));
    member.optional = is_true(node.attribute("optional"));
    member.must_understand = member.key || is_true(node.attribute("mustUnderstand"));
    member.external = is_true(node.attribute("external"));
    member.type = member_type(node, depth);
    return member.type != nullptr && graph_.count_members(1);
}

bool DocumentBuilder::holds_only(const pugi::xml_node& node, std::initializer_list<std::string_view> elements,
                                 const char* what) {
    for (const pugi::xml_node& child : node.children()) {
        const std::string_view name = child.name();
        if (child.type() != pugi::node_element || name == "annotate" ||
            std::find(elements.begin(), elements.end(), name) != elements.end())
            continue;
        fail(child, std::string("not an element of ") + what);
        return false;
    }
    return true;
}

bool DocumentBuilder::fill_structure(Type& type, const pugi::xml_node& node, unsigned depth) {
    if (!read_extensibility(type, node))
        return false;
    uint32_t next_id = 0;
    if (const pugi::xml_attribute base = attribute_of(node, {"baseType", "baseClass"})) {
        const auto* named = lookup(set_.types, base.value());
        const Type* found = named == nullptr ? nullptr : resolve_alias(type_named(named->first, depth + 1));
        for (const Type* up = found; up != nullptr; up = up->base)
            found = up == &type ? nullptr : found;
        if (found == nullptr || !found->is_aggregate()) {
            fail(node, "its base type \"" + std::string(base.value()) + "\" is no other structure");
            return false;
        }
        type.kind = DDS_TK_VALUE;
        type.base = found;
        for (const Type* up = found; up != nullptr; up = up->base) {
            for (const Member& member : up->members)
                next_id = std::max(next_id, member.id + 1);
        }
    }
    if (!holds_only(node, {"member"}, "a structure"))
        return false;
    const std::string_view autoid = node.attribute("autoid").value();
    const bool hashed = autoid == "hash" || autoid == "HASH";
    for (const pugi::xml_node& child : node.children("member")) {
        Member member;
        if (!read_member(child, member, depth))
            return false;
        member.id = hashed ? hashed_member_id(member.name) : next_id;
        if (const pugi::xml_attribute hashid = attribute_of(child, {"hashid", "hashId"}))
            member.id = hashed_member_id(*hashid.value() == '\0' ? member.name.c_str() : hashid.value());
        if (const pugi::xml_attribute id = attribute_of(child, {"id"})) {
            const std::optional<int64_t> value = number(child, id.value());
            if (!value || *value < 0 || *value > 0x0fffffff) {
                fail(child, "its id is not between 0 and 0x0fffffff");
                return false;
            }
            member.id = static_cast<uint32_t>(*value);
        }
        for (const Member& other : type.members) {
            if (other.id == member.id || other.name == member.name) {
                fail(child, "it has the name or the id of \"" + other.name + "\"");
                return false;
            }
        }
        next_id = member.id + 1;
        type.members.push_back(std::move(member));
    }
    return true;
}

bool DocumentBuilder::fill_case(Type& type, const pugi::xml_node& node, unsigned depth) {
    if (!holds_only(node, {"caseDiscriminator", "member"}, "a case"))
        return false;
    Member member;
    const pugi::xml_node described = node.child("member");
    if (!described) {
        fail(node, "a case without a member");
        return false;
    }
    if (!read_member(described, member, depth))
        return false;
    for (const pugi::xml_node& label : node.children("caseDiscriminator")) {
        const std::string text = label.attribute("value").value();
        if (text == "default") {
            type.default_index = static_cast<int32_t>(type.members.size());
            continue;
        }
        // An enumerator of the discriminator's own type needs no further name.
        const Type* discriminator = resolve_alias(type.discriminator);
        const auto own = std::find_if(discriminator->members.begin(), discriminator->members.end(),
                                      [&text](const Member& literal) { return literal.name == text; });
        const std::optional<int64_t> value =
            own != discriminator->members.end() ? own->value : number(label, text);
        if (!value)
            return false;
        if (*value < INT32_MIN || *value > UINT32_MAX) {
            fail(label, "a label needs 32 bits at most");
            return false;
        }
        member.labels.push_back(static_cast<int32_t>(*value));
    }
    member.id = static_cast<uint32_t>(type.members.size() + 1);
    type.members.push_back(std::move(member));
    return true;
}

bool DocumentBuilder::fill_union(Type& type, const pugi::xml_node& node, unsigned depth) {
    if (!read_extensibility(type, node) || !holds_only(node, {"discriminator", "case"}, "a union"))
        return false;
    const pugi::xml_node discriminator = node.child("discriminator");
    if (!discriminator) {
        fail(node, "a union without a discriminator");
        return false;
    }
    type.discriminator =
        scalar_type(discriminator, discriminator.attribute("type").value(),
                    discriminator.attribute("nonBasicTypeName").value(), "stringMaxLength", depth);
    type.discriminator_key = is_true(discriminator.attribute("key"));
    const Type* kind = resolve_alias(type.discriminator);
    if (kind == nullptr || (primitive_size(kind->kind) == 0 && kind->kind != DDS_TK_ENUM) ||
        kind->kind == DDS_TK_FLOAT || kind->kind == DDS_TK_DOUBLE || kind->kind == DDS_TK_LONGDOUBLE) {
        fail(discriminator, "not a type of whole numbers");
        return false;
    }
    for (const pugi::xml_node& branch : node.children("case")) {
        if (!fill_case(type, branch, depth))
            return false;
    }
    return true;
}

bool DocumentBuilder::read_bit_bound(Type& type, const pugi::xml_node& node, uint16_t limit) {
    const pugi::xml_attribute attribute = attribute_of(node, {"bitBound", "bit_bound"});
    if (!attribute)
        return true;
    const std::optional<int64_t> value = number(node, attribute.value());
    if (!value || *value < 1 || *value > limit) {
        fail(node, "its bit bound is not between 1 and " + std::to_string(limit));
        return false;
    }
    type.bit_bound = static_cast<uint16_t>(*value);
    return true;
}

bool DocumentBuilder::fill_enumeration(Type& type, const pugi::xml_node& node) {
    if (!read_bit_bound(type, node, 32) || !holds_only(node, {"enumerator"}, "an enumeration"))
        return false;
    int64_t next = 0;
    for (const pugi::xml_node& child : node.children("enumerator")) {
        Member literal;
        literal.name = child.attribute("name").value();
        if (const pugi::xml_attribute given = attribute_of(child, {"value"})) {
            const std::optional<int64_t> value = number(child, given.value());
            if (!value)
                return false;
            next = *value;
        }
        if (!is_identifier(literal.name) || next < INT32_MIN || next > INT32_MAX) {
            fail(child, "an enumerator needs a name, and a value of 32 bits");
            return false;
        }
        literal.value = next++;
        type.members.push_back(std::move(literal));
    }
    return graph_.count_members(type.members.size());
}

bool DocumentBuilder::fill_bitmask(Type& type, const pugi::xml_node& node) {
    if (!read_bit_bound(type, node, 64) || !holds_only(node, {"flag", "bit_value"}, "a bit mask"))
        return false;
    int64_t next = 0;
    for (const pugi::xml_node& child : node.children()) {
        if (std::string_view(child.name()) == "annotate" || child.type() != pugi::node_element)
            continue;
        Member flag;
        flag.name = child.attribute("name").value();
        if (const pugi::xml_attribute given = attribute_of(child, {"position"})) {
            const std::optional<int64_t> value = number(child, given.value());
            if (!value)
                return false;
            next = *value;
        }
        if (!is_identifier(flag.name) || next < 0 || next >= type.bit_bound) {
            fail(child, "a flag needs a name, and a position below the bit bound");
            return false;
        }
        flag.value = next++;
        type.members.push_back(std::move(flag));
    }
    return graph_.count_members(type.members.size());
}

bool DocumentBuilder::fill_bitset(Type& type, const pugi::xml_node& node) {
    if (!holds_only(node, {"bitfield"}, "a bit set"))
        return false;
    int64_t next = 0;
    int64_t used = 0;
    for (const pugi::xml_node& child : node.children("bitfield")) {
        Member field;
        field.name = child.attribute("name").value();
        int64_t bits = 0;
        if (const pugi::xml_attribute given = attribute_of(child, {"bitBound", "bit_bound", "bits"})) {
            bits = number(child, given.value()).value_or(0);
        } else if (const std::optional<int64_t> mask = parse_integer(child.attribute("mask").value());
                   mask && *mask > 0) {
            next = __builtin_ctzll(static_cast<unsigned long long>(*mask));
            bits = __builtin_popcountll(static_cast<unsigned long long>(*mask));
        }
        if (bits < 1 || next + bits > 64) {
            fail(child, "a bit field needs a width, and all together at most 64 bits");
            return false;
        }
        // By default the smallest type that holds the field.
        DDS_TCKind holder = DDS_TK_ULONGLONG;
        if (bits == 1)
            holder = DDS_TK_BOOLEAN;
        else if (bits <= 8)
            holder = DDS_TK_UINT8;
        else if (bits <= 16)
            holder = DDS_TK_USHORT;
        else if (bits <= 32)
            holder = DDS_TK_ULONG;
        if (const pugi::xml_attribute given = attribute_of(child, {"type"});
            given && !primitive_named(given.value(), holder)) {
            fail(child, "the type of a bit field is a primitive one");
            return false;
        }
        field.value = next;
        field.bits = static_cast<uint16_t>(bits);
        field.type = graph_.primitive(holder);
        next += bits;
        used = std::max(used, next);
        if (!field.name.empty()) // one without a name only takes room
            type.members.push_back(std::move(field));
    }
    type.bit_bound = static_cast<uint16_t>(used);
    if (used == 0) {
        fail(node, "a bit set without bit fields");
        return false;
    }
    return graph_.count_members(type.members.size());
}

} // namespace meridian::types
