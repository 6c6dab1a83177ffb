// <types> documents as users write them.

#include <cstdlib>

#include "types/documents/type_documents.h"

using namespace meridian::types;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    TypeDocuments documents;
    std::string error;
    const bool loaded = documents.load("document", text, "/nonexistent", error);
    if (loaded != error.empty())
        std::abort();
    for (const std::string& name : documents.names()) {
        if (!equal(*documents.find(name), *documents.find(name)))
            std::abort();
    }
    return 0;
}
