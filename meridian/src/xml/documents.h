#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "xml/document.h"

namespace meridian::xml {

/// The documents of one load: those that are named, and those that they include (<include file="..."/> in a
/// <types> section, relative to the including document). Each file is read and parsed once, by whatever paths
/// it is named, so that files may include each other. Every document passes the same checks. One thread;
/// after a failure the object is of no use.
class Documents {
  public:
    /// Limits, in bytes and documents: of one document, of all together, and how many there may be.
    static constexpr size_t kMaxSize = size_t{4} << 20;
    static constexpr size_t kMaxSizeInAll = size_t{16} << 20;
    static constexpr size_t kMaxCount = 200;

    /// Adds a document and what it includes. False, with one line in `error`, when one of them cannot be
    /// used: "label:line: element <x>: reason", without line and element where there is none.
    bool add_file(const std::string& path, std::string& error);
    /// The same for a text that is in no file. Its includes are relative to the working directory.
    bool add_text(const std::string& label, std::string text, std::string& error);

    /// The documents that were added by name, one for each call.
    const std::vector<const Document*>& named() const { return named_; }
    /// All documents, each once.
    const std::vector<std::unique_ptr<Document>>& all() const { return all_; }

  private:
    const Document* read(const std::string& path, std::string& error);
    const Document* parse(const std::string& label, std::string text, std::string& error);
    bool add(const Document* named, size_t first_new, std::string& error);
    bool include(const Document& from, std::string& error);

    std::vector<const Document*> named_;
    std::vector<std::unique_ptr<Document>> all_;
    std::map<std::string, const Document*> files_; // by resolved path
    size_t size_ = 0;
};

} // namespace meridian::xml
