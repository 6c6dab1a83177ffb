#pragma once

// Types from documents for tests, loaded one after the other.

#include <string>
#include <utility>
#include <vector>

#include "types/documents/type_documents.h"

namespace meridian::types {

class TypeDocuments {
  public:
    /// Adds the types of a text. False, with a message in `error` and nothing added, when one cannot be made.
    bool load(const std::string& label, const std::string& text, std::string& error) {
        texts_.emplace_back(label, text);
        xml::Documents documents;
        bool loaded = true;
        for (const auto& [name, source] : texts_)
            loaded = loaded && documents.add_text(name, source, error);
        loaded = loaded && make_types(documents, types_, error);
        if (!loaded)
            texts_.pop_back();
        return loaded;
    }
    /// Replaces everything by the types of a file.
    bool load_file(const std::string& path, std::string& error) {
        xml::Documents documents;
        return documents.add_file(path, error) && make_types(documents, types_, error);
    }

    /// The type of that name, or an empty one.
    TypeRef find(const std::string& name) const {
        const auto found = types_.find(name);
        return found == types_.end() ? TypeRef() : found->second;
    }
    /// Names of all types, sorted.
    std::vector<std::string> names() const {
        std::vector<std::string> result;
        for (const auto& [name, type] : types_)
            result.push_back(name);
        return result;
    }

  private:
    std::vector<std::pair<std::string, std::string>> texts_;
    TypesByName types_;
};

} // namespace meridian::types
