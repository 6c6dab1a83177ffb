#include "types/documents/type_declarations.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "types/documents/type_documents.h"

namespace meridian::types {

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

bool DeclarationCollector::add_file(const std::string& path, unsigned depth) {
    std::error_code code;
    const std::string canonical = std::filesystem::weakly_canonical(path, code).string();
    if (!set_.files.insert(code ? path : canonical).second)
        return true; // included a second time
    if (set_.files.size() > kMaxIncludedFiles)
        return fail(path + ": more than " + std::to_string(kMaxIncludedFiles) + " files");
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    if (!in || !std::filesystem::is_regular_file(path, code))
        return fail(path + ": cannot be read");
    if (std::filesystem::file_size(path, code) > kMaxDocumentSize || code)
        return fail(path + ": too large");
    text << in.rdbuf();
    return add(path, text.str(), std::filesystem::path(path).parent_path().string(), depth);
}

bool DeclarationCollector::add(const std::string& label, const std::string& text, const std::string& folder,
                               unsigned depth) {
    if (text.size() > kMaxDocumentSize)
        return fail(label + ": too large");
    auto source = std::make_shared<DocumentSource>();
    source->label = label;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n')
            source->line_ends.push_back(i);
    }
    const pugi::xml_parse_result parsed = source->tree.load_buffer(text.data(), text.size());
    if (!parsed)
        return fail(source->message_at(parsed.offset, parsed.description()));
    const DocumentSource& kept = *source;
    set_.sources.push_back(std::move(source));
    const pugi::xml_node root = kept.tree.document_element();
    if (std::string_view(root.name()) == "types")
        return collect(kept, root, "", folder, 0, depth);
    for (const pugi::xml_node& section : root.children("types")) {
        if (!collect(kept, section, "", folder, 0, depth))
            return false;
    }
    return true;
}

bool DeclarationCollector::declare(const DocumentSource& source, const pugi::xml_node& node,
                                   const std::string& scope) {
    const std::string name = node.attribute("name").value();
    if (!is_identifier(name))
        return fail(source.message(node, "its name \"" + name + "\" is none"));
    const std::string full = qualified_name(scope, name);
    const bool constant = std::string_view(node.name()) == "const";
    auto& declarations = constant ? set_.constants : set_.types;
    const auto [at, added] = declarations.emplace(full, Declaration{node, scope, &source});
    if (!added) {
        const Declaration& first = at->second;
        return fail(source.message(
            node, "\"" + full + "\" is defined already, see " + first.source->message(first.node, "there")));
    }
    if (!constant)
        added_.push_back(full);
    if (std::string_view(node.name()) == "enum") {
        for (const pugi::xml_node& literal : node.children("enumerator"))
            set_.enumerators.emplace(qualified_name(scope, literal.attribute("name").value()),
                                     std::make_pair(full, Declaration{node, scope, &source}));
    }
    return true;
}

bool DeclarationCollector::collect(const DocumentSource& source, const pugi::xml_node& parent,
                                   const std::string& scope, const std::string& folder, unsigned module_depth,
                                   unsigned depth) {
    static const std::set<std::string_view> kTypes{"struct",  "valuetype", "union",  "enum",
                                                   "typedef", "bitmask",   "bitset", "const"};
    static const std::set<std::string_view> kIgnored{"forward_dcl", "annotation", "directive"};
    if (module_depth > kMaxModuleDepth)
        return fail(source.message(parent, "modules nest too deeply"));
    for (const pugi::xml_node& node : parent.children()) {
        const std::string_view element = node.name();
        if (node.type() != pugi::node_element || kIgnored.count(element) != 0)
            continue;
        if (kTypes.count(element) != 0) {
            if (!declare(source, node, scope))
                return false;
        } else if (element == "type") { // an envelope around one declaration
            if (!collect(source, node, scope, folder, module_depth + 1, depth))
                return false;
        } else if (element == "module") {
            const std::string name = node.attribute("name").value();
            if (!is_identifier(name))
                return fail(source.message(node, "its name \"" + name + "\" is none"));
            if (!collect(source, node, qualified_name(scope, name), folder, module_depth + 1, depth))
                return false;
        } else if (element == "include") {
            const std::filesystem::path file = node.attribute("file").value();
            if (file.empty())
                return fail(source.message(node, "it names no file"));
            if (depth + 1 > kMaxIncludeDepth)
                return fail(source.message(node, "files include each other too deeply"));
            const std::filesystem::path path =
                file.is_absolute() ? file : std::filesystem::path(folder) / file;
            if (!add_file(path.string(), depth + 1)) {
                error_ = source.message(node, error_);
                return false;
            }
        } else {
            return fail(source.message(node, "not an element of types"));
        }
    }
    return true;
}

} // namespace meridian::types
