#include "types/documents/type_declarations.h"

#include <algorithm>
#include <set>

#include "xml/element_reader.h"

namespace meridian::types {

namespace {

/// Collects the declarations of one document.
class Collector {
  public:
    Collector(const xml::Document& document, DeclarationSet& set) : document_(document), set_(set) {
        reader_.set_document(document);
    }

    void collect(const pugi::xml_node& parent, const std::string& scope) {
        for (const pugi::xml_node& node : reader_.children(parent, xml::ElementReader::Attributes::any)) {
            collect_one(node, scope);
            if (!reader_.ok())
                return;
        }
    }
    const std::string& error() const { return reader_.error(); }

  private:
    void collect_one(const pugi::xml_node& node, const std::string& scope) {
        // Included documents are loaded by now; the other elements declare nothing.
        static const std::set<std::string_view> kIgnored{"include", "forward_dcl", "annotation", "directive"};
        const std::string_view element = node.name();
        if (kIgnored.count(element) != 0)
            return;
        if (element == "type") // around one declaration
            return collect(node, scope);
        const std::string name = node.attribute("name").value();
        const std::string full = qualified_name(scope, name);
        if (element == "module")
            reader_.check_attributes(node, {"name"});
        else if (element != "const" && declared_kind(element) == DDS_TK_NULL)
            reader_.fail(node, "not an element of types");
        if (reader_.ok() && !is_identifier(name))
            reader_.fail(node, "\"" + name + "\" is not a valid name");
        if (!reader_.ok())
            return;
        if (element == "module")
            collect(node, full);
        else
            declare(node, scope, full);
    }

    void declare(const pugi::xml_node& node, const std::string& scope, const std::string& name) {
        const std::string_view element = node.name();
        auto& declarations = element == "const" ? set_.constants : set_.types;
        const auto [at, added] = declarations.emplace(name, Declaration{node, scope, &document_});
        const Declaration& first = at->second;
        if (!added)
            return reader_.fail(node, "\"" + name + "\" is already defined, see " +
                                          first.document->message(first.node, "there"));
        if (element != "const")
            set_.type_names.push_back(name);
        if (element == "enum") {
            for (const pugi::xml_node& literal : node.children("enumerator"))
                set_.enumerators.emplace(qualified_name(scope, literal.attribute("name").value()), name);
        }
    }

    const xml::Document& document_;
    DeclarationSet& set_;
    xml::ElementReader reader_; // keeps the first error
};

} // namespace

bool collect_declarations(const xml::Documents& documents, DeclarationSet& set, std::string& error) {
    for (const auto& document : documents.all()) {
        Collector collector(*document, set);
        for (const pugi::xml_node& section : document->type_sections())
            collector.collect(section, "");
        error = collector.error();
        if (!error.empty())
            return false;
    }
    return true;
}

DDS_TCKind declared_kind(std::string_view element) {
    static const std::map<std::string_view, DDS_TCKind> kKinds{
        {"struct", DDS_TK_STRUCT}, {"valuetype", DDS_TK_STRUCT}, {"union", DDS_TK_UNION},
        {"enum", DDS_TK_ENUM},     {"typedef", DDS_TK_ALIAS},    {"bitmask", DDS_TK_BITMASK},
        {"bitset", DDS_TK_BITSET}};
    const auto found = kKinds.find(element);
    return found == kKinds.end() ? DDS_TK_NULL : found->second;
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
