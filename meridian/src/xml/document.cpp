#include "xml/document.h"

#include <algorithm>
#include <cstring>

#include "xml/source_text.h"

namespace meridian::xml {

namespace {

/// Finds the first element that is nested too deep. The parser walks the tree without recursion, which a
/// document of many levels would turn into a stack overflow.
class DepthWalker : public pugi::xml_tree_walker {
  public:
    bool for_each(pugi::xml_node& node) override {
        if (node.type() != pugi::node_element || depth() < Document::kMaxDepth)
            return true;
        too_deep = node;
        return false;
    }
    pugi::xml_node too_deep;
};

bool is_supported_encoding(std::string name) {
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) {
        return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    });
    return name.empty() || name == "utf-8" || name == "utf8" || name == "utf-16" || name == "us-ascii" ||
           name == "ascii";
}

} // namespace

std::unique_ptr<Document> Document::parse(std::string label, std::string source, std::string& error) {
    std::unique_ptr<Document> document(new Document(std::move(label)));
    TextProblem problem;
    const bool decoded = to_utf8(source, problem);
    for (size_t at = source.find('\n'); at != std::string::npos; at = source.find('\n', at + 1))
        document->line_ends_.push_back(at);
    if (decoded)
        problem = check_characters(source);
    if (problem.reason.empty())
        problem = check_markup(source);
    if (!problem.reason.empty()) {
        error = document->message_at(problem.offset, problem.reason);
        return nullptr;
    }
    if (!document->load(source, error) || !document->find_root(error))
        return nullptr;
    return document;
}

bool Document::load(const std::string& source, std::string& error) {
    // As a fragment, so that text beside the root is kept and can be refused.
    const unsigned int options = pugi::parse_default | pugi::parse_declaration | pugi::parse_fragment;
    const pugi::xml_parse_result result =
        tree_.load_buffer(source.data(), source.size(), options, pugi::encoding_utf8);
    if (!result) {
        const size_t offset = result.offset < 0 ? 0 : static_cast<size_t>(result.offset);
        error = message_at(std::min(offset, source.size()),
                           std::string("not well-formed: ") + result.description());
        return false;
    }
    DepthWalker walker;
    tree_.traverse(walker);
    if (walker.too_deep) {
        error = message(walker.too_deep, "nested deeper than " + std::to_string(kMaxDepth) + " levels");
        return false;
    }
    return true;
}

bool Document::find_root(std::string& error) {
    for (const pugi::xml_node node : tree_.children()) {
        if (node.type() == pugi::node_declaration) {
            const std::string encoding = node.attribute("encoding").value();
            if (!is_supported_encoding(encoding)) {
                error = message_at(0, "encoding \"" + encoding + "\" is not supported; use UTF-8");
                return false;
            }
        } else if (node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata) {
            const size_t start = static_cast<size_t>(std::max<ptrdiff_t>(node.offset_debug(), 0));
            error =
                message_at(start + std::strspn(node.value(), " \t\r\n"), "text outside of the root element");
            return false;
        } else if (node.type() == pugi::node_element) {
            if (root_) {
                error = message(node, "a second root element");
                return false;
            }
            root_ = node;
        }
    }
    if (!root_) {
        error = message_at(0, "no element in the document");
        return false;
    }
    if (std::strcmp(root_.name(), "dds") != 0 && std::strcmp(root_.name(), "types") != 0) {
        error = message(root_, "the root element must be <dds> or <types>");
        return false;
    }
    return true;
}

std::vector<pugi::xml_node> Document::type_sections() const {
    if (std::strcmp(root_.name(), "types") == 0)
        return {root_};
    const auto sections = root_.children("types");
    return {sections.begin(), sections.end()};
}

size_t Document::line_at(size_t offset) const {
    const auto line_end = std::lower_bound(line_ends_.begin(), line_ends_.end(), offset);
    return static_cast<size_t>(line_end - line_ends_.begin()) + 1;
}

std::string Document::message_at(size_t offset, const std::string& reason) const {
    std::string line = label_ + ":" + std::to_string(line_at(offset)) + ": " + reason;
    // A value that is quoted in the reason may have lines of its own.
    std::replace_if(
        line.begin(), line.end(), [](char c) { return c == '\n' || c == '\r' || c == '\t'; }, ' ');
    return line;
}

std::string Document::message(pugi::xml_node element, const std::string& reason) const {
    const ptrdiff_t offset = element.offset_debug();
    return message_at(offset < 0 ? 0 : static_cast<size_t>(offset),
                      std::string("element <") + element.name() + ">: " + reason);
}

} // namespace meridian::xml
