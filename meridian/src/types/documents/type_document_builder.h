#pragma once

// Makes types of declarations.

#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "types/documents/type_declarations.h"
#include "types/model/type.h"

namespace meridian::types {

/// Makes the types of a set in one graph. Both outlive the builder.
class DocumentBuilder {
  public:
    DocumentBuilder(const DeclarationSet& set, TypeGraph& graph) : set_(set), graph_(graph) {}

    /// The type of that qualified name, which the set must hold; null, and a reason in error(), when it is
    /// not sound.
    const Type* type_named(const std::string& full, unsigned depth);
    const std::string& error() const { return error_; }

  private:
    std::nullptr_t fail(const pugi::xml_node& node, const std::string& reason) {
        if (error_.empty())
            error_ = declaration_->source->message(node, reason);
        return nullptr;
    }

    template <typename Map>
    const typename Map::value_type* lookup(const Map& map, const std::string& name) const;
    std::optional<int64_t> number(const pugi::xml_node& node, std::string text, unsigned depth = 0);
    bool bound(const pugi::xml_node& node, std::initializer_list<const char*> names, uint32_t& value);
    bool dimensions(const pugi::xml_node& node, std::vector<uint32_t>& values);

    Type* node_of(DDS_TCKind kind, const pugi::xml_node& at);
    const Type* scalar_type(const pugi::xml_node& node, std::string name, const std::string& other,
                            const char* bound_name, unsigned depth);
    const Type* member_type(const pugi::xml_node& node, unsigned depth);
    bool read_member(const pugi::xml_node& node, Member& member, unsigned depth);

    bool fill(Type& type, const pugi::xml_node& node, unsigned depth);
    /// Refuses elements that would be passed over, but for annotations.
    bool holds_only(const pugi::xml_node& node, std::initializer_list<std::string_view> elements,
                    const char* what);
    bool fill_structure(Type& type, const pugi::xml_node& node, unsigned depth);
    bool fill_union(Type& type, const pugi::xml_node& node, unsigned depth);
    bool fill_case(Type& type, const pugi::xml_node& node, unsigned depth);
    bool fill_enumeration(Type& type, const pugi::xml_node& node);
    bool fill_bitmask(Type& type, const pugi::xml_node& node);
    bool fill_bitset(Type& type, const pugi::xml_node& node);
    bool read_extensibility(Type& type, const pugi::xml_node& node);
    bool read_bit_bound(Type& type, const pugi::xml_node& node, uint16_t limit);

    const DeclarationSet& set_;
    TypeGraph& graph_;
    std::map<std::string, Type*> nodes_;
    const Declaration* declaration_ = nullptr; // that is being made
    std::string error_;
};

} // namespace meridian::types
