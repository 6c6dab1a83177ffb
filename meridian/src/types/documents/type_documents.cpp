#include "types/documents/type_documents.h"

#include "types/documents/type_declarations.h"
#include "types/documents/type_document_builder.h"

namespace meridian::types {

bool make_types(const xml::Documents& documents, TypesByName& types, std::string& error) {
    DeclarationSet declarations;
    if (!collect_declarations(documents, declarations, error))
        return false;
    TypeGraph* graph = TypeGraph::create();
    DocumentBuilder builder(declarations, *graph);
    TypesByName made;
    builder.check_constants();
    for (const std::string& name : declarations.type_names) {
        const Type* type = builder.make(name);
        if (type == nullptr)
            break;
        made.emplace(name, TypeRef(type));
    }
    graph->release(); // the references that were made keep it
    error = builder.error();
    if (!error.empty())
        return false;
    types = std::move(made);
    return true;
}

} // namespace meridian::types
