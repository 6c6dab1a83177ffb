// Unions, enumerations, bit masks and bit sets.

#include <algorithm>
#include <utility>

#include "types/documents/type_document_builder.h"

namespace meridian::types {

namespace {

struct Range {
    int64_t min;
    int64_t max;
};

/// The values of a discriminator that is not an enumeration.
Range range_of(DDS_TCKind kind) {
    const size_t size = primitive_size(kind);
    if (size == 0 || kind == DDS_TK_LONGLONG)
        return {INT32_MIN, UINT32_MAX};
    const int64_t beyond =
        kind == DDS_TK_BOOLEAN ? 2 : int64_t{1} << 8 * std::min<size_t>(size, 4); // labels have 32 bits
    return is_signed(kind) ? Range{-beyond / 2, beyond / 2 - 1} : Range{0, beyond - 1};
}

} // namespace

bool DocumentBuilder::check_range(const pugi::xml_node& node, const std::string& what, int64_t value,
                                  DDS_TCKind kind) {
    const Range range = range_of(kind);
    if (value < range.min || value > range.max)
        fail(node, what + " is out of range (" + std::to_string(range.min) + " to " +
                       std::to_string(range.max) + ")");
    return reader_.ok();
}

void DocumentBuilder::check_constants() {
    for (const auto& [name, declaration] : set_.constants) {
        const DeclarationScope scope(*this, declaration);
        const pugi::xml_node& node = declaration.node;
        if (!holds_only(node, {"name", "type", "nonBasicTypeName", "stringMaxLength", "value"}, {},
                        "a constant"))
            return;
        const Type* type =
            resolve_alias(scalar_type(node, node.attribute("type").value(),
                                      node.attribute("nonBasicTypeName").value(), "stringMaxLength", 0));
        // Characters may stand without quotes, and numbers of 64 bits without a sign are beyond expressions.
        if (type == nullptr || !is_whole_number(type->kind) || type->kind == DDS_TK_BOOLEAN ||
            type->kind == DDS_TK_CHAR || type->kind == DDS_TK_WCHAR || type->kind == DDS_TK_ULONGLONG)
            continue;
        const std::optional<int64_t> value = number(node, node.attribute("value").value());
        if (value && type->kind != DDS_TK_LONGLONG)
            check_range(node, "the value " + std::to_string(*value), *value, type->kind);
    }
}

bool DocumentBuilder::read_label(const Type& type, const pugi::xml_node& node, Member& member) {
    const std::string text = node.attribute("value").value();
    const Type* discriminator = resolve_alias(type.discriminator);
    // An enumerator of the discriminator's own type needs no further name.
    const Member* own = member_named(*discriminator, text);
    const std::optional<int64_t> value = own != nullptr ? own->value : number(node, text);
    if (!value)
        return false;
    const std::string label = "the label " + std::to_string(*value);
    if (discriminator->kind == DDS_TK_ENUM && find_enumerator(*discriminator, *value) == nullptr)
        fail(node, label + " is not the value of an enumerator");
    else
        check_range(node, label, *value, discriminator->kind);
    const auto kept = static_cast<int32_t>(*value);
    const auto has_it = [kept](const Member& other) {
        return std::find(other.labels.begin(), other.labels.end(), kept) != other.labels.end();
    };
    if (has_it(member) || std::any_of(type.members.begin(), type.members.end(), has_it))
        fail(node, label + " appears twice");
    member.labels.push_back(kept);
    return reader_.ok();
}

bool DocumentBuilder::fill_case(Type& type, const pugi::xml_node& node, unsigned depth) {
    if (!holds_only(node, {}, {"caseDiscriminator", "member"}, "a case"))
        return false;
    const auto members = node.children("member");
    if (std::distance(members.begin(), members.end()) != 1)
        fail(node, "a case needs one member");
    if (!node.child("caseDiscriminator"))
        fail(node, "a case without a label");
    Member member;
    member.id = static_cast<uint32_t>(type.members.size() + 1);
    if (!reader_.ok() || !read_member(node.child("member"), member, depth) ||
        !is_new_in(type, member, &Member::id, "id", node.child("member")))
        return false;
    for (const pugi::xml_node& label : node.children("caseDiscriminator")) {
        if (!holds_only(label, {"value"}, {}, "a label"))
            return false;
        if (std::string_view(label.attribute("value").value()) != "default") {
            if (!read_label(type, label, member))
                return false;
        } else if (std::exchange(type.default_index, static_cast<int32_t>(type.members.size())) !=
                   DDS_TYPECODE_NO_DEFAULT)
            return refuse(label, "a second default");
    }
    type.members.push_back(std::move(member));
    return true;
}

bool DocumentBuilder::fill_union(Type& type, const pugi::xml_node& node, unsigned depth) {
    if (!holds_only(node, {"name", "extensibility", "autoid", "nested", "topLevel"},
                    {"discriminator", "case"}, "a union") ||
        !read_extensibility(type, node))
        return false;
    const pugi::xml_node discriminator = node.child("discriminator");
    if (!discriminator)
        return refuse(node, "a union without a discriminator");
    if (const pugi::xml_node second = discriminator.next_sibling("discriminator"))
        return refuse(second, "a second discriminator");
    if (!holds_only(discriminator, {"type", "nonBasicTypeName", "key"}, {}, "a discriminator"))
        return false;
    type.discriminator = scalar_type(discriminator, discriminator.attribute("type").value(),
                                     discriminator.attribute("nonBasicTypeName").value(), "", depth);
    reader_.boolean_attribute(discriminator, "key", type.discriminator_key);
    const Type* kind = resolve_alias(type.discriminator);
    if (kind == nullptr || (kind->kind != DDS_TK_ENUM && !is_whole_number(kind->kind)))
        fail(discriminator, "not a type of whole numbers");
    if (!reader_.ok())
        return false;
    const auto cases = node.children("case");
    return std::all_of(cases.begin(), cases.end(),
                       [&](const pugi::xml_node& branch) { return fill_case(type, branch, depth); });
}

bool DocumentBuilder::read_value(const pugi::xml_node& node, const char* name, int64_t& value) {
    const pugi::xml_attribute given = node.attribute(name);
    const std::optional<int64_t> read = given ? number(node, given.value()) : value;
    value = read.value_or(value);
    return read.has_value();
}

bool DocumentBuilder::read_bit_bound(Type& type, const pugi::xml_node& node, uint16_t limit) {
    const pugi::xml_attribute attribute = attribute_of(node, {"bitBound", "bit_bound"});
    int64_t value = type.bit_bound;
    if (attribute && (!read_value(node, attribute.name(), value) || value < 1 || value > limit))
        fail(node, "the bit bound is not between 1 and " + std::to_string(limit));
    type.bit_bound = static_cast<uint16_t>(value);
    return reader_.ok();
}

bool DocumentBuilder::fill_enumeration(Type& type, const pugi::xml_node& node) {
    if (!holds_only(node, {"name", "bitBound", "bit_bound", "extensibility", "nested"}, {"enumerator"},
                    "an enumeration") ||
        !read_bit_bound(type, node, 32))
        return false;
    const int64_t beyond = int64_t{1} << type.bit_bound; // of unsigned values; signed ones have half of it
    int64_t next = 0;
    for (const pugi::xml_node& child : node.children("enumerator")) {
        Member literal;
        literal.name = child.attribute("name").value();
        if (!holds_only(child, {"name", "value", "default", "defaultLiteral"}, {}, "an enumerator") ||
            !read_value(child, "value", next))
            return false;
        if (!is_identifier(literal.name) || next < INT32_MIN || next > INT32_MAX)
            fail(child, "an enumerator needs a name, and a value of 32 bits");
        if (next < -beyond / 2 || next >= beyond)
            fail(child, "the value " + std::to_string(next) + " needs more than " +
                            std::to_string(type.bit_bound) + " bits");
        literal.value = next++;
        if (!reader_.ok() || !is_new_in(type, literal, &Member::value, "value", child))
            return false;
        type.members.push_back(std::move(literal));
    }
    return count_members(node, type.members.size());
}

bool DocumentBuilder::fill_bitmask(Type& type, const pugi::xml_node& node) {
    if (!holds_only(node, {"name", "bitBound", "bit_bound", "extensibility", "nested"}, {"flag", "bit_value"},
                    "a bit mask") ||
        !read_bit_bound(type, node, 64))
        return false;
    int64_t next = 0;
    for (const pugi::xml_node& child : node.children()) {
        if (std::string_view(child.name()) == "annotate" || child.type() != pugi::node_element)
            continue;
        Member flag;
        flag.name = child.attribute("name").value();
        if (!holds_only(child, {"name", "position"}, {}, "a flag") || !read_value(child, "position", next))
            return false;
        if (!is_identifier(flag.name) || next < 0 || next >= type.bit_bound)
            fail(child, "a flag needs a name, and a position below the bit bound");
        flag.value = next++;
        if (!reader_.ok() || !is_new_in(type, flag, &Member::value, "position", child))
            return false;
        type.members.push_back(std::move(flag));
    }
    return count_members(node, type.members.size());
}

bool DocumentBuilder::fill_bitset(Type& type, const pugi::xml_node& node) {
    if (!holds_only(node, {"name", "extensibility", "nested"}, {"bitfield"}, "a bit set"))
        return false;
    int64_t next = 0;
    int64_t used = 0;
    for (const pugi::xml_node& child : node.children("bitfield")) {
        if (!holds_only(child, {"name", "type", "bitBound", "bit_bound", "bits", "mask"}, {}, "a bit field"))
            return false;
        Member field;
        field.name = child.attribute("name").value();
        int64_t bits = 0;
        if (const pugi::xml_attribute given = attribute_of(child, {"bitBound", "bit_bound", "bits"})) {
            bits = number(child, given.value()).value_or(0);
        } else if (const int64_t mask = number(child, child.attribute("mask").value()).value_or(0);
                   mask > 0) {
            next = __builtin_ctzll(static_cast<unsigned long long>(mask));
            bits = __builtin_popcountll(static_cast<unsigned long long>(mask));
        }
        if (bits < 1 || next + bits > 64)
            return refuse(child, "a bit field needs a width, and all together at most 64 bits");
        // By default the smallest type that holds the field.
        DDS_TCKind holder = bits == 1    ? DDS_TK_BOOLEAN
                            : bits <= 8  ? DDS_TK_UINT8
                            : bits <= 16 ? DDS_TK_USHORT
                            : bits <= 32 ? DDS_TK_ULONG
                                         : DDS_TK_ULONGLONG;
        if (const pugi::xml_attribute given = child.attribute("type");
            given && (!primitive_named(given.value(), holder) || !is_whole_number(holder)))
            return refuse(child, "the type of a bit field is one of whole numbers");
        if (static_cast<size_t>(bits) > 8 * primitive_size(holder))
            return refuse(child, "the type of a bit field has fewer bits than the field");
        field.value = next;
        field.bits = static_cast<uint16_t>(bits);
        field.type = graph_.primitive(holder);
        next += bits;
        used = std::max(used, next);
        if (field.name.empty()) // only takes room
            continue;
        if (!is_new_in(type, field, &Member::value, "position", child))
            return false;
        type.members.push_back(std::move(field));
    }
    type.bit_bound = static_cast<uint16_t>(used);
    if (used == 0)
        return refuse(node, "a bit set without bit fields");
    return count_members(node, type.members.size());
}

} // namespace meridian::types
