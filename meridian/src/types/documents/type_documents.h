#pragma once

// Types that users describe in <types> sections of XML documents (OMG DDS-XML 1.0, building block Types), for
// applications that announce a type's name only.
//
// Constructs: struct, union, enum, typedef, bitmask, bitset, const, module, include, forward declarations;
// keys, optional members, ids, extensibility, bounds and arrays. A type may be used before it is defined, and
// may be recursive through sequences. The older spellings of type names that are in use ("long", "octet",
// "unsignedShort") are understood.
//
// Loading is for one thread; find() may be called from any thread once loading is over.

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "types/model/type.h"

namespace meridian::types {

/// Files that include each other may go this deep, and this many may be read for one document.
constexpr unsigned kMaxIncludeDepth = 16;
constexpr size_t kMaxIncludedFiles = 200;
/// A larger document is refused.
constexpr size_t kMaxDocumentSize = 16 << 20;
/// Modules may nest this deep.
constexpr unsigned kMaxModuleDepth = 32;

struct DeclarationSet;

class TypeDocuments {
  public:
    TypeDocuments();
    ~TypeDocuments();
    TypeDocuments(const TypeDocuments&) = delete;
    TypeDocuments& operator=(const TypeDocuments&) = delete;

    /// Takes the <types> sections below the root element (or the root itself) of a document; one without any
    /// adds nothing. Included files are looked for relative to `folder`. False, with "label:line: element
    /// <x>: reason" in `error` and nothing added, when a type in it or in what it includes cannot be made.
    bool load(const std::string& label, const std::string& source, const std::string& folder,
              std::string& error);
    /// The same for a file.
    bool load_file(const std::string& path, std::string& error);

    /// The type of that qualified name ("module::Type"), or an empty one.
    TypeRef find(const std::string& name) const;
    /// Names of all types, sorted.
    std::vector<std::string> names() const;

  private:
    bool adopt(std::unique_ptr<DeclarationSet> pending, const std::vector<std::string>& added,
               std::string& error);

    std::unique_ptr<DeclarationSet> set_;
    std::map<std::string, TypeRef> types_;
};

} // namespace meridian::types
