#include "xml/documents.h"

#include <cstring>

#include "platform/file.h"

namespace meridian::xml {

namespace {

/// Collects the <include> elements of a section, also those inside modules.
class IncludeFinder : public pugi::xml_tree_walker {
  public:
    bool for_each(pugi::xml_node& node) override {
        if (std::strcmp(node.name(), "include") == 0)
            found.push_back(node);
        return true;
    }
    std::vector<pugi::xml_node> found;
};

std::string relative_to(const std::string& file, const std::string& path) {
    const size_t slash = file.rfind('/');
    return path[0] == '/' || slash == std::string::npos ? path : file.substr(0, slash + 1) + path;
}

} // namespace

bool Documents::add_file(const std::string& path, std::string& error) {
    const size_t first_new = all_.size();
    return add(read(path, error), first_new, error);
}

bool Documents::add_text(const std::string& label, std::string text, std::string& error) {
    const size_t first_new = all_.size();
    return add(parse(label, std::move(text), error), first_new, error);
}

bool Documents::add(const Document* named, size_t first_new, std::string& error) {
    if (named == nullptr)
        return false;
    named_.push_back(named);
    for (size_t i = first_new; i < all_.size(); ++i) { // what is included is appended meanwhile
        if (!include(*all_[i], error))
            return false;
    }
    return true;
}

bool Documents::include(const Document& from, std::string& error) {
    IncludeFinder finder;
    for (pugi::xml_node section : from.type_sections())
        section.traverse(finder);
    for (const pugi::xml_node element : finder.found) {
        const std::string path = element.attribute("file").value();
        std::string reason = "needs a file";
        if (path.empty() || read(relative_to(from.label(), path), reason) == nullptr) {
            error = from.message(element, reason);
            return false;
        }
    }
    return true;
}

const Document* Documents::read(const std::string& path, std::string& error) {
    const std::string resolved = resolved_path(path);
    if (const auto known = files_.find(resolved); known != files_.end())
        return known->second;
    std::string text;
    if (!read_file(path, kMaxSize, text, error)) {
        error = path + ": " + error;
        return nullptr;
    }
    const Document* document = parse(path, std::move(text), error);
    files_.emplace(resolved, document);
    return document;
}

const Document* Documents::parse(const std::string& label, std::string text, std::string& error) {
    size_ += text.size();
    if (text.size() > kMaxSize)
        error = label + ": is larger than " + std::to_string(kMaxSize) + " bytes";
    else if (size_ > kMaxSizeInAll)
        error =
            label + ": all documents together are larger than " + std::to_string(kMaxSizeInAll) + " bytes";
    else if (all_.size() >= kMaxCount)
        error = label + ": more than " + std::to_string(kMaxCount) + " documents";
    else if (std::unique_ptr<Document> document = Document::parse(label, std::move(text), error))
        return all_.emplace_back(std::move(document)).get();
    return nullptr;
}

} // namespace meridian::xml
