#include "types/data/dialect.h"

#include <algorithm>
#include <set>

namespace meridian::types {

namespace {

/// Calls visit(type) for each type that `root` is made of.
template <typename Visit>
void visit_types(const Type* root, Visit visit) {
    std::set<const Type*> seen;
    std::vector<const Type*> open{root};
    while (!open.empty()) {
        const Type* type = open.back();
        open.pop_back();
        if (type == nullptr || !seen.insert(type).second)
            continue;
        visit(*type);
        open.insert(open.end(), {type->base, type->content, type->key, type->discriminator});
        for (const Member& member : type->members)
            open.push_back(member.type);
    }
}

/// Whether collections of such elements have a header in one dialect only.
bool is_disputed_element(const Type* type) {
    type = resolve_alias(type);
    return type != nullptr &&
           (type->kind == DDS_TK_ENUM || type->kind == DDS_TK_BITMASK || type->kind == DDS_TK_ARRAY);
}

/// What a type contains that serializers write differently.
struct Disputed {
    bool wide_text = false;
    bool headers = false;
    bool lists = false;
    bool optionals = false;
};

Disputed find_disputed(const Type& root) {
    Disputed disputed;
    visit_types(&root, [&disputed](const Type& type) {
        const bool optionals = std::any_of(type.members.begin(), type.members.end(),
                                           [](const Member& member) { return member.optional; });
        disputed.wide_text |= type.kind == DDS_TK_WSTRING || type.kind == DDS_TK_WCHAR;
        disputed.optionals |= optionals;
        disputed.lists |= optionals || type.extensibility == DDS_MUTABLE_EXTENSIBILITY;
        disputed.headers |=
            type.kind == DDS_TK_MAP || ((type.kind == DDS_TK_SEQUENCE || type.kind == DDS_TK_ARRAY) &&
                                        is_disputed_element(type.content));
    });
    return disputed;
}

std::vector<CdrDialect> dialects_of_samples(CdrVersion version, const Disputed& disputed) {
    using WideText = CdrDialect::WideText;
    using Headers = CdrDialect::Headers;
    const bool xcdr1 = version == CdrVersion::xcdr1;
    // Each list starts with the standard's form.
    std::vector<WideText> wide_texts{WideText::octets};
    std::vector<Headers> headers{Headers::standard};
    if (disputed.wide_text)
        wide_texts.push_back(WideText::units);
    if (disputed.wide_text && xcdr1)
        wide_texts.push_back(WideText::quads);
    if (disputed.headers && !xcdr1)
        headers.insert(headers.end(), {Headers::flat, Headers::few});
    std::vector<CdrDialect> result;
    for (WideText wide_text : wide_texts) {
        for (Headers header : headers) {
            CdrDialect dialect;
            dialect.wide_text = wide_text;
            dialect.headers = header;
            result.push_back(dialect);
            if (xcdr1 && disputed.lists) {
                dialect.origin_stays = false;
                result.push_back(dialect);
                dialect.origin_stays = true;
            }
            if (disputed.optionals) {
                dialect.optional_headers = false;
                result.push_back(dialect);
            }
            if (xcdr1 && disputed.lists) {
                dialect.optional_headers = false;
                dialect.lists = false;
                result.push_back(dialect);
            }
        }
    }
    return result;
}

} // namespace

std::vector<CdrDialect> possible_dialects(const Type& type, CdrVersion version, bool key_only) {
    std::vector<CdrDialect> result;
    for (CdrDialect dialect : dialects_of_samples(version, find_disputed(type))) {
        if (key_only) {
            CdrDialect flat = dialect;
            flat.flat_keys = true;
            result.push_back(flat);
        }
        result.push_back(dialect);
    }
    return result;
}

std::optional<DialectMemory::Choice> DialectMemory::expected(const SampleSource& source, size_t list) const {
    if (!source.is_known())
        return std::nullopt;
    MutexLock lock(mutex_);
    if (const auto writer = writers_.find(source.writer); writer != writers_.end() && writer->second[list])
        return writer->second[list];
    const auto vendor = vendors_.find(source.vendor.bytes);
    return vendor != vendors_.end() ? vendor->second[list] : std::nullopt;
}

void DialectMemory::note(const SampleSource& source, size_t list, const Choice& choice) {
    if (!source.is_known())
        return;
    MutexLock lock(mutex_);
    if (writers_.size() >= kMaxWriters || vendors_.size() >= kMaxWriters) {
        writers_.clear();
        vendors_.clear();
    }
    writers_[source.writer][list] = choice;
    vendors_[source.vendor.bytes][list] = choice;
}

} // namespace meridian::types
