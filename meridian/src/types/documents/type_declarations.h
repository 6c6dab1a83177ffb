#pragma once

// What type documents declare, before types are made of it.

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "meridian/type_code.h"
#include "xml/documents.h"

namespace meridian::types {

struct Declaration {
    pugi::xml_node node;
    std::string scope; // qualified name of the module around it
    const xml::Document* document = nullptr;
};

/// By qualified name. Refers to the documents.
struct DeclarationSet {
    std::map<std::string, Declaration> types;
    std::vector<std::string> type_names; // in the order of the documents
    std::map<std::string, Declaration> constants;
    std::map<std::string, std::string> enumerators; // the name of their enumeration
};

/// Adds the declarations of all documents. False, with one line in `error`, at the first that cannot be one.
bool collect_declarations(const xml::Documents& documents, DeclarationSet& set, std::string& error);

/// The kind of type that an element of that name declares; DDS_TK_NULL: none.
DDS_TCKind declared_kind(std::string_view element);
/// "scope::name", or the name alone outside of modules.
std::string qualified_name(const std::string& scope, const std::string& name);
/// Whether the text is an identifier.
bool is_identifier(std::string_view name);

} // namespace meridian::types
