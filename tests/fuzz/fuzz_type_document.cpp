// <types> documents as users write them.

#include <cstdlib>

#include "types/documents/type_documents.h"

using namespace meridian::types;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    meridian::xml::Documents documents;
    TypesByName types;
    std::string error;
    const bool made = documents.add_text("document", text, error) && make_types(documents, types, error);
    if (made != error.empty())
        std::abort();
    for (const auto& [name, type] : types) {
        if (!equal(*type, *type))
            std::abort();
    }
    return 0;
}
