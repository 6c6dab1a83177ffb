#pragma once

// Makes types of declarations.

#include <initializer_list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "types/documents/type_declarations.h"
#include "types/model/type.h"
#include "xml/element_reader.h"

namespace meridian::types {

/// Makes the types of a set in one graph. Both outlive the builder.
class DocumentBuilder {
  public:
    DocumentBuilder(const DeclarationSet& set, TypeGraph& graph) : set_(set), graph_(graph) {}

    /// The type of that qualified name, which the set must hold; null, and a reason in error(), when it is
    /// not sound.
    const Type* make(const std::string& full);
    /// Refuses constants that are not sound, used or not.
    void check_constants();
    const std::string& error() const { return reader_.error(); }

  private:
    /// The declaration that is being made, while this object lives.
    class DeclarationScope {
      public:
        DeclarationScope(DocumentBuilder& builder, const Declaration& declaration)
            : builder_(builder), outer_(builder.declaration_) {
            set(&declaration);
        }
        ~DeclarationScope() { set(outer_); }
        DeclarationScope(const DeclarationScope&) = delete;
        DeclarationScope& operator=(const DeclarationScope&) = delete;

      private:
        void set(const Declaration* declaration) {
            builder_.declaration_ = declaration;
            if (declaration != nullptr)
                builder_.reader_.set_document(*declaration->document);
        }

        DocumentBuilder& builder_;
        const Declaration* outer_;
    };

    // Both keep the reason: for what would have answered with a pointer, and with true.
    std::nullptr_t fail(const pugi::xml_node& node, const std::string& reason) {
        reader_.fail(node, reason);
        return nullptr;
    }
    bool refuse(const pugi::xml_node& node, const std::string& reason) {
        reader_.fail(node, reason);
        return false;
    }

    /// The first attribute of that name that is there; peers' tools spell some of them differently.
    static pugi::xml_attribute attribute_of(const pugi::xml_node& node,
                                            std::initializer_list<const char*> names);
    static bool primitive_named(std::string_view name, DDS_TCKind& kind);
    static const Member* member_named(const Type& type, const std::string& name);

    template <typename Map>
    const typename Map::value_type* lookup(const Map& map, const std::string& name) const;
    /// The value of a constant expression.
    std::optional<int64_t> number(const pugi::xml_node& node, const std::string& text, unsigned depth = 0);
    /// Refuses a value that a whole number of that kind cannot hold.
    bool check_range(const pugi::xml_node& node, const std::string& what, int64_t value, DDS_TCKind kind);
    std::optional<int64_t> value_of_name(const std::string& name, unsigned depth);
    bool bound(const pugi::xml_node& node, std::initializer_list<const char*> names, uint32_t& value);
    bool dimensions(const pugi::xml_node& node, std::vector<uint32_t>& values);

    bool count_members(const pugi::xml_node& node, size_t count);
    /// What the graph made for the node: null, and then a reason, when it is full.
    template <typename Node>
    Node* checked(Node* made, const pugi::xml_node& node) {
        if (made == nullptr)
            fail(node, "more than " + std::to_string(kMaxGraphNodes) + " types");
        return made;
    }
    const Type* scalar_type(const pugi::xml_node& node, std::string name, const std::string& other,
                            const char* bound_name, unsigned depth);
    const Type* member_type(const pugi::xml_node& node, unsigned depth);
    bool read_member(const pugi::xml_node& node, Member& member, unsigned depth);
    /// Refuses a member whose name, or whose value of that kind, another one has. Empty names differ.
    template <typename Value>
    bool is_new_in(const Type& type, const Member& member, Value Member::*value, const char* kind,
                   const pugi::xml_node& node) {
        for (const Member& other : type.members) {
            if (other.*value == member.*value || (other.name == member.name && !member.name.empty()))
                return refuse(node,
                              std::string("has the name or the ") + kind + " of \"" + other.name + "\"");
        }
        return true;
    }

    const Type* type_named(const std::string& full, unsigned depth);
    bool fill(Type& type, const pugi::xml_node& node, unsigned depth);
    /// Refuses text, and attributes and elements that are not in the lists, but for annotations.
    bool holds_only(const pugi::xml_node& node, std::initializer_list<const char*> attributes,
                    std::initializer_list<std::string_view> elements, const char* what,
                    std::initializer_list<const char*> more_attributes = {});
    /// The type, or a part of it, whose values hold values of the same type without end; else null.
    const Type* endless_part(const Type& type);
    bool fill_structure(Type& type, const pugi::xml_node& node, unsigned depth);
    bool fill_union(Type& type, const pugi::xml_node& node, unsigned depth);
    bool fill_case(Type& type, const pugi::xml_node& node, unsigned depth);
    bool read_label(const Type& type, const pugi::xml_node& node, Member& member);
    bool fill_enumeration(Type& type, const pugi::xml_node& node);
    bool fill_bitmask(Type& type, const pugi::xml_node& node);
    bool fill_bitset(Type& type, const pugi::xml_node& node);
    bool read_extensibility(Type& type, const pugi::xml_node& node);
    bool read_bit_bound(Type& type, const pugi::xml_node& node, uint16_t limit);
    bool read_value(const pugi::xml_node& node, const char* name, int64_t& value);

    const DeclarationSet& set_;
    TypeGraph& graph_;
    std::map<std::string, Type*> nodes_;
    std::set<const Type*> finite_;
    std::set<const Type*> entered_; // by endless_part
    const Declaration* declaration_ = nullptr;
    xml::ElementReader reader_; // of its document; keeps the first error
};

} // namespace meridian::types
