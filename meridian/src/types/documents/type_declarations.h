#pragma once

// What type documents declare, before types are made of it.

#include <algorithm>
#include <cstddef>
#include <map>
#include <memory>
#include <pugixml.hpp>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace meridian::types {

/// One parsed document; declarations point into it.
struct DocumentSource {
    std::string label;
    std::vector<size_t> line_ends;
    pugi::xml_document tree;

    std::string message(const pugi::xml_node& node, const std::string& reason) const {
        return message_at(node.offset_debug(), "element <" + std::string(node.name()) + ">: " + reason);
    }
    std::string message_at(ptrdiff_t offset, const std::string& reason) const {
        const auto end = std::lower_bound(line_ends.begin(), line_ends.end(),
                                          static_cast<size_t>(std::max<ptrdiff_t>(offset, 0)));
        return label + ":" + std::to_string(end - line_ends.begin() + 1) + ": " + reason;
    }
};

struct Declaration {
    pugi::xml_node node;
    std::string scope; // qualified name of the module around it
    const DocumentSource* source = nullptr;
};

/// Copied before it is changed, so that a document with a mistake leaves nothing behind.
struct DeclarationSet {
    std::vector<std::shared_ptr<const DocumentSource>> sources;
    std::map<std::string, Declaration> types;
    std::map<std::string, Declaration> constants;
    std::map<std::string, std::pair<std::string, Declaration>> enumerators; // name -> its enumeration
    std::set<std::string> files;                                            // read so far, by canonical path
};

/// Adds the declarations of a document, and of those that it includes, to a set. After a failure the set is
/// of no use.
class DeclarationCollector {
  public:
    DeclarationCollector(DeclarationSet& set, std::string& error) : set_(set), error_(error) {}

    /// The <types> sections of a document; its includes are relative to `folder`.
    bool add(const std::string& label, const std::string& text, const std::string& folder, unsigned depth);
    bool add_file(const std::string& path, unsigned depth);

    /// Names of the types that were added.
    const std::vector<std::string>& added() const { return added_; }

  private:
    bool fail(const std::string& message) {
        error_ = message;
        return false;
    }
    bool collect(const DocumentSource& source, const pugi::xml_node& parent, const std::string& scope,
                 const std::string& folder, unsigned module_depth, unsigned depth);
    bool declare(const DocumentSource& source, const pugi::xml_node& node, const std::string& scope);

    DeclarationSet& set_;
    std::string& error_;
    std::vector<std::string> added_;
};

/// "scope::name", or the name alone outside of modules.
std::string qualified_name(const std::string& scope, const std::string& name);
/// Whether the text is an identifier.
bool is_identifier(std::string_view name);

} // namespace meridian::types
