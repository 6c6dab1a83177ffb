#include "types/documents/type_documents.h"

#include <utility>

#include "types/documents/type_declarations.h"
#include "types/documents/type_document_builder.h"

namespace meridian::types {

TypeDocuments::TypeDocuments() : set_(std::make_unique<DeclarationSet>()) {}
TypeDocuments::~TypeDocuments() = default;

bool TypeDocuments::adopt(std::unique_ptr<DeclarationSet> pending, const std::vector<std::string>& added,
                          std::string& error) {
    TypeGraph* graph = TypeGraph::create();
    DocumentBuilder builder(*pending, *graph);
    std::map<std::string, TypeRef> made;
    for (const std::string& name : added) {
        const Type* type = builder.type_named(name, 0);
        if (type == nullptr)
            break;
        made.emplace(name, TypeRef(type));
    }
    graph->release(); // the references that were made keep it
    if (made.size() != added.size()) {
        error = builder.error();
        return false;
    }
    types_.merge(made);
    set_ = std::move(pending);
    return true;
}

bool TypeDocuments::load(const std::string& label, const std::string& source, const std::string& folder,
                         std::string& error) {
    auto pending = std::make_unique<DeclarationSet>(*set_);
    DeclarationCollector collector(*pending, error);
    return collector.add(label, source, folder, 0) && adopt(std::move(pending), collector.added(), error);
}

bool TypeDocuments::load_file(const std::string& path, std::string& error) {
    auto pending = std::make_unique<DeclarationSet>(*set_);
    DeclarationCollector collector(*pending, error);
    return collector.add_file(path, 0) && adopt(std::move(pending), collector.added(), error);
}

TypeRef TypeDocuments::find(const std::string& name) const {
    const auto found = types_.find(name);
    return found == types_.end() ? TypeRef() : found->second;
}

std::vector<std::string> TypeDocuments::names() const {
    std::vector<std::string> result;
    for (const auto& [name, type] : types_)
        result.push_back(name);
    return result;
}

} // namespace meridian::types
