#include "types/documents/type_declarations.h"

#include <algorithm>
#include <set>

namespace meridian::types {

namespace {

/// Collects the declarations of one document.
class Collector {
  public:
    Collector(const xml::Document& document, DeclarationSet& set, std::string& error)
        : document_(document), set_(set), error_(error) {}

    bool collect(const pugi::xml_node& parent, const std::string& scope) {
        static const std::set<std::string_view> kTypes{"struct",  "valuetype", "union",  "enum",
                                                       "typedef", "bitmask",   "bitset", "const"};
        // Included documents are loaded by now; the other elements declare nothing.
        static const std::set<std::string_view> kIgnored{"include", "forward_dcl", "annotation", "directive"};
        for (const pugi::xml_node& node : parent.children()) {
            const std::string_view element = node.name();
            if (node.type() != pugi::node_element || kIgnored.count(element) != 0)
                continue;
            const std::string name = node.attribute("name").value();
            const bool is_envelope = element == "type"; // around one declaration
            if (!is_envelope && element != "module" && kTypes.count(element) == 0)
                return fail(node, "not an element of types");
            if (!is_envelope && !is_identifier(name))
                return fail(node, "\"" + name + "\" is not a valid name");
            const bool added = is_envelope           ? collect(node, scope)
                               : element == "module" ? collect(node, qualified_name(scope, name))
                                                     : declare(node, scope, qualified_name(scope, name));
            if (!added)
                return false;
        }
        return true;
    }

  private:
    bool fail(const pugi::xml_node& node, const std::string& reason) {
        error_ = document_.message(node, reason);
        return false;
    }

    bool declare(const pugi::xml_node& node, const std::string& scope, const std::string& name) {
        const std::string_view element = node.name();
        auto& declarations = element == "const" ? set_.constants : set_.types;
        const auto [at, added] = declarations.emplace(name, Declaration{node, scope, &document_});
        if (!added) {
            const Declaration& first = at->second;
            return fail(node, "\"" + name + "\" is already defined, see " +
                                  first.document->message(first.node, "there"));
        }
        if (element != "const")
            set_.type_names.push_back(name);
        if (element == "enum") {
            for (const pugi::xml_node& literal : node.children("enumerator"))
                set_.enumerators.emplace(qualified_name(scope, literal.attribute("name").value()), name);
        }
        return true;
    }

    const xml::Document& document_;
    DeclarationSet& set_;
    std::string& error_;
};

} // namespace

bool collect_declarations(const xml::Documents& documents, DeclarationSet& set, std::string& error) {
    for (const auto& document : documents.all()) {
        Collector collector(*document, set, error);
        for (const pugi::xml_node& section : document->type_sections()) {
            if (!collector.collect(section, ""))
                return false;
        }
    }
    return true;
}

std::string qualified_name(const std::string& scope, const std::string& name) {
    return scope.empty() ? name : scope + "::" + name;
}

bool is_identifier(std::string_view name) {
    if (name.empty() || (name[0] >= '0' && name[0] <= '9'))
        return false;
    return std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
    });
}

} // namespace meridian::types
