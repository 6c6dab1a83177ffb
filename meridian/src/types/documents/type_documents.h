#pragma once

// Types that users describe in <types> sections of XML documents (OMG DDS-XML 1.0, building block Types), for
// applications that announce a type's name only. docs/type-documents.md lists what is understood. A type may
// be used before it is defined, also in another document, and may be recursive through sequences.

#include <map>
#include <string>

#include "types/model/type.h"
#include "xml/documents.h"

namespace meridian::types {

/// By qualified name ("module::Type").
using TypesByName = std::map<std::string, TypeRef>;

/// Replaces `types` by all types that the documents describe. False, with "label:line: element <x>: reason"
/// in `error` and `types` untouched, when one of them cannot be made. The types do not refer to the
/// documents. Any thread.
bool make_types(const xml::Documents& documents, TypesByName& types, std::string& error);

} // namespace meridian::types
