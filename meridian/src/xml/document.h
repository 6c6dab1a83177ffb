#pragma once

#include <cstddef>
#include <memory>
#include <pugixml.hpp>
#include <string>
#include <vector>

namespace meridian::xml {

/// One XML document with the root <dds> or <types>, and the lines of its elements. Does not change once
/// it is made.
class Document {
  public:
    /// Elements may nest this deep, the root counted: far above what any document needs.
    static constexpr int kMaxDepth = 100;

    /// `label` names the document in messages. The source is UTF-8 or UTF-16. Null, and one line in `error`,
    /// when it is not a well-formed document with such a root.
    static std::unique_ptr<Document> parse(std::string label, std::string source, std::string& error);

    pugi::xml_node root() const { return root_; }
    const std::string& label() const { return label_; }
    /// The <types> sections: the root itself, or those below it.
    std::vector<pugi::xml_node> type_sections() const;
    /// "label:line: element <x>: reason"
    std::string message(pugi::xml_node element, const std::string& reason) const;

  private:
    explicit Document(std::string label) : label_(std::move(label)) {}
    size_t line_at(size_t offset) const;
    std::string message_at(size_t offset, const std::string& reason) const;
    bool load(const std::string& source, std::string& error);
    bool find_root(std::string& error);

    std::string label_;
    std::vector<size_t> line_ends_;
    pugi::xml_document tree_;
    pugi::xml_node root_;
};

} // namespace meridian::xml
