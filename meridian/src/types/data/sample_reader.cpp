#include "types/data/sample_reader.h"

#include <set>
#include <utility>

namespace meridian::types {

using rtps::ByteReader;
using rtps::ByteView;
using rtps::Encoding;

namespace {

/// A payload is padded to a multiple of four octets.
constexpr size_t kMaxPadding = 3;

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

bool has_optional_member(const Type& type) {
    for (const Member& member : type.members) {
        if (member.optional)
            return true;
    }
    return false;
}

/// Whether collections of such elements have a header in one dialect only.
bool is_disputed_element(const Type* type) {
    type = resolve_alias(type);
    return type != nullptr &&
           (type->kind == DDS_TK_ENUM || type->kind == DDS_TK_BITMASK || type->kind == DDS_TK_ARRAY);
}

/// Whether what a walk left can only be padding.
bool is_padding(ByteReader reader, bool zeros) {
    if (reader.remaining() > kMaxPadding)
        return false;
    uint8_t octet = 0;
    while (zeros && octet == 0 && reader.remaining() != 0)
        reader.read(octet);
    return octet == 0;
}

/// What a type contains that serializers write differently.
struct Disputed {
    bool wide_text = false;
    bool headers = false;
    bool lists = false;
    bool optionals = false;
};

std::vector<CdrDialect> dialects(CdrWalker::Version version, const Disputed& disputed) {
    using WideText = CdrDialect::WideText;
    using Headers = CdrDialect::Headers;
    const bool xcdr1 = version == CdrWalker::Version::xcdr1;
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

SampleReader::SampleReader(TypeRef type) : type_(std::move(type)) {
    Disputed disputed;
    visit_types(type_.get(), [&disputed](const Type& part) {
        disputed.wide_text |= part.kind == DDS_TK_WSTRING || part.kind == DDS_TK_WCHAR;
        disputed.optionals |= has_optional_member(part);
        disputed.lists |= part.extensibility == DDS_MUTABLE_EXTENSIBILITY || has_optional_member(part);
        disputed.headers |=
            part.kind == DDS_TK_MAP || ((part.kind == DDS_TK_SEQUENCE || part.kind == DDS_TK_ARRAY) &&
                                        is_disputed_element(part.content));
    });
    xcdr1_dialects_ = dialects(CdrWalker::Version::xcdr1, disputed);
    xcdr2_dialects_ = dialects(CdrWalker::Version::xcdr2, disputed);
}

std::vector<SampleReader::Setup> SampleReader::setups(ByteView payload, bool key_only,
                                                      std::string& failure) const {
    std::vector<Setup> result;
    rtps::Encapsulation encapsulation;
    ByteView body;
    if (!rtps::read_encapsulation(payload, encapsulation, body)) {
        failure = "a payload without an encapsulation header";
        return result;
    }
    CdrWalker::Version version = CdrWalker::Version::xcdr2;
    DDS_ExtensibilityKind outer = DDS_FINAL_EXTENSIBILITY;
    switch (encapsulation.encoding()) {
        case Encoding::cdr:
            version = CdrWalker::Version::xcdr1;
            break;
        case Encoding::pl_cdr:
            version = CdrWalker::Version::xcdr1;
            outer = DDS_MUTABLE_EXTENSIBILITY;
            break;
        case Encoding::cdr2:
            break;
        case Encoding::delimited_cdr2:
            outer = DDS_EXTENSIBLE_EXTENSIBILITY;
            break;
        case Encoding::pl_cdr2:
            outer = DDS_MUTABLE_EXTENSIBILITY;
            break;
        default:
            failure = "an encapsulation of unknown kind " + std::to_string(encapsulation.identifier);
            return result;
    }
    const bool xcdr1 = version == CdrWalker::Version::xcdr1;
    const ByteReader reader(body, encapsulation.endianness(),
                            xcdr1 ? rtps::kXcdr1MaxAlignment : rtps::kXcdr2MaxAlignment);
    for (const CdrDialect& dialect : xcdr1 ? xcdr1_dialects_ : xcdr2_dialects_) {
        CdrWalker walker(version, dialect, body.size);
        walker.set_outer_extensibility(outer);
        if (key_only) {
            walker.set_key_only();
            CdrDialect flat = dialect;
            flat.flat_keys = true;
            CdrWalker flat_walker(version, flat, body.size);
            flat_walker.set_key_only();
            result.push_back({std::move(flat_walker), reader});
        }
        result.push_back({std::move(walker), reader});
    }
    // Where serializers differ, the one that was at work is told by the sample being used up exactly: up to
    // zeros that pad it and its wide strings, or, where none fits so, up to padding of any kind.
    for (bool zeros : {true, false}) {
        for (size_t i = 0; i < result.size() && result.size() > 1; ++i) {
            Setup trial = result[i];
            trial.walker.set_strict();
            if (zeros)
                trial.walker.set_zeros_behind_wide_text();
            if (trial.walker.walk(trial.reader, *type_, nullptr) && is_padding(trial.reader, zeros)) {
                std::swap(result[0], result[i]);
                return result;
            }
        }
    }
    return result;
}

bool SampleReader::walk(ByteView payload, ValueSink* sink, std::string& failure) const {
    std::vector<Setup> candidates = setups(payload, false, failure);
    if (candidates.empty())
        return false;
    Setup& best = candidates.front();
    if (best.walker.walk(best.reader, *type_, sink))
        return true;
    failure = best.walker.failure();
    return false;
}

} // namespace meridian::types
