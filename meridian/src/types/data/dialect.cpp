#include "types/data/dialect.h"

#include <algorithm>
#include <set>
#include <tuple>

namespace meridian::types {

namespace {

using Headers = CdrDialect::Headers;
using WideText = CdrDialect::WideText;

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

/// Whether the headers of such collections differ, their own or those of mutable members.
bool has_disputed_header(const Type& collection) {
    const bool is_array = collection.kind == DDS_TK_ARRAY;
    if (!is_array && collection.kind != DDS_TK_SEQUENCE)
        return collection.kind == DDS_TK_MAP;
    const Type* type = resolve_alias(collection.content);
    return type != nullptr &&
           (type->kind == DDS_TK_ENUM || type->kind == DDS_TK_BITMASK || type->kind == DDS_TK_ARRAY ||
            type->kind == DDS_TK_WCHAR || (type->kind == DDS_TK_BOOLEAN && is_array));
}

bool has_narrow_negative_label(const Type& type) {
    const Type* const of = resolve_alias(type.discriminator);
    return of != nullptr && number_size(*of) < 4 &&
           std::any_of(type.members.begin(), type.members.end(), [](const Member& member) {
               return std::any_of(member.labels.begin(), member.labels.end(),
                                  [](int32_t label) { return label < 0; });
           });
}

/// Whether ROS 2 names requests or responses of a service so.
bool belongs_to_service(const std::string& name) {
    const auto ends_with = [&name](const std::string& end) {
        return name.size() > end.size() && name.compare(name.size() - end.size(), end.size(), end) == 0;
    };
    return name.find("::dds_::") != std::string::npos && (ends_with("_Request_") || ends_with("_Response_"));
}

/// What a type contains that serializers write differently.
struct Disputed {
    bool wide_text = false;
    bool headers = false;
    bool lists = false;
    bool optionals = false;
    bool long_doubles = false;
    bool bitsets = false;
    bool negative_labels = false;
    bool mutables = false;
    bool requests = false;
    bool long_numbers = false;
    bool sequence_keys = false; // which the serializer with flat keys does not have
};

Disputed find_disputed(const Type& root) {
    Disputed disputed;
    disputed.requests = belongs_to_service(root.name);
    visit_types(&root, [&disputed](const Type& type) {
        const bool optionals = std::any_of(type.members.begin(), type.members.end(),
                                           [](const Member& member) { return member.optional; });
        disputed.wide_text |= type.kind == DDS_TK_WSTRING || type.kind == DDS_TK_WCHAR;
        disputed.long_doubles |= type.kind == DDS_TK_LONGDOUBLE;
        disputed.long_numbers |= primitive_size(type.kind) >= 8;
        disputed.bitsets |= type.kind == DDS_TK_BITSET && number_size(type) < 8;
        disputed.optionals |= optionals;
        disputed.sequence_keys |=
            std::any_of(type.members.begin(), type.members.end(), [](const Member& member) {
                const Type* const of = resolve_alias(member.type);
                return member.key && of != nullptr && of->kind == DDS_TK_SEQUENCE;
            });
        const bool is_mutable = type.extensibility == DDS_MUTABLE_EXTENSIBILITY;
        disputed.lists |= optionals || is_mutable;
        disputed.mutables |= is_mutable;
        disputed.headers |= has_disputed_header(type);
        disputed.negative_labels |= has_narrow_negative_label(type);
    });
    return disputed;
}

/// A serializer.
struct Row {
    Maker maker; // unknown: one that several makers may have
    void (*differ)(CdrDialect& standard);
    bool xcdr2 = true; // it knows that version
};

constexpr Row kSerializers[] = {
    {Maker::unknown, [](CdrDialect&) {}},
    {Maker::cyclone_dds,
     [](CdrDialect& d) {
         d.headers = Headers::flat;
         d.one_origin = false;
         d.unsigned_discriminators = true;
         d.request_header = true;
     }},
    {Maker::fast_cdr_2,
     [](CdrDialect& d) {
         d.wide_text = WideText::units;
         d.headers = Headers::few;
         d.x86_long_double = true;
     }},
    {Maker::fast_cdr_2, // dynamic types of Fast DDS 3
     [](CdrDialect& d) {
         d.wide_text = WideText::units;
         d.headers = Headers::dynamic;
         d.optional_headers = false;
         d.x86_long_double = true;
     }},
    {Maker::fast_cdr_1,
     [](CdrDialect& d) {
         d.wide_text = WideText::quads;
         d.headers = Headers::few;
         d.optional_headers = false;
         d.lists = false;
         d.x86_long_double = true;
     },
     false},
    {Maker::unknown, [](CdrDialect& d) { d.headers = Headers::few; }},
    {Maker::unknown, [](CdrDialect& d) { d.wide_text = WideText::units; }},
    {Maker::open_dds_1,
     [](CdrDialect& d) {
         d.wide_text = WideText::big;
         d.origin_at_header = true;
     },
     false},
    {Maker::open_dds_1, [](CdrDialect& d) { d.wide_text = WideText::big; }, false},
    {Maker::dust_dds,
     [](CdrDialect& d) {
         d.rtps_list_end = true;
         d.counts_as_lengths = true;
     }},
};

/// The same where it makes no difference for samples of the type.
CdrDialect without_undisputed(CdrDialect dialect, CdrVersion version, const Disputed& disputed) {
    const auto keep_if = [&dialect](bool is_disputed, auto CdrDialect::*field) {
        if (!is_disputed)
            dialect.*field = CdrDialect().*field;
    };
    const bool xcdr1 = version == CdrVersion::xcdr1;
    keep_if(disputed.wide_text, &CdrDialect::wide_text);
    keep_if(disputed.headers && !xcdr1, &CdrDialect::headers);
    keep_if(disputed.lists && xcdr1, &CdrDialect::one_origin);
    keep_if(disputed.lists && xcdr1, &CdrDialect::lists);
    keep_if(disputed.mutables && xcdr1, &CdrDialect::rtps_list_end);
    keep_if(disputed.mutables && !xcdr1, &CdrDialect::counts_as_lengths);
    keep_if(disputed.optionals, &CdrDialect::optional_headers);
    keep_if(disputed.negative_labels, &CdrDialect::unsigned_discriminators);
    keep_if(disputed.long_doubles, &CdrDialect::x86_long_double);
    keep_if(disputed.requests && xcdr1, &CdrDialect::request_header);
    keep_if(disputed.long_numbers, &CdrDialect::origin_at_header);
    return dialect;
}

bool is_fast_cdr(Maker maker) {
    return maker == Maker::fast_cdr_1 || maker == Maker::fast_cdr_2;
}

} // namespace

bool operator==(const CdrDialect& a, const CdrDialect& b) {
    const auto values = [](const CdrDialect& d) {
        return std::tie(d.wide_text, d.headers, d.one_origin, d.optional_headers, d.lists, d.x86_long_double,
                        d.bitset_octets, d.flat_keys, d.unsigned_discriminators, d.request_header,
                        d.origin_at_header, d.rtps_list_end, d.counts_as_lengths);
    };
    return values(a) == values(b);
}

Maker maker_of(const SampleSource& source) {
    if (source.vendor == rtps::kFastDds)
        return source.fast_cdr == 1   ? Maker::fast_cdr_1
               : source.fast_cdr == 2 ? Maker::fast_cdr_2
                                      : Maker::fast_cdr;
    if (source.vendor == rtps::kOpenDds && source.fast_cdr == 1)
        return Maker::open_dds_1;
    return source.vendor == rtps::kCycloneDds ? Maker::cyclone_dds
           : source.vendor == rtps::kDustDds  ? Maker::dust_dds
                                              : Maker::unknown;
}

std::vector<PossibleDialect> possible_dialects(const Type& type, CdrVersion version, bool key_only,
                                               Maker maker) {
    const Disputed disputed = find_disputed(type);
    std::vector<PossibleDialect> list;
    const bool judge_gaps = disputed.optionals && version == CdrVersion::xcdr2;
    const auto add = [&list, judge_gaps](const CdrDialect& dialect, bool expected) {
        const bool known = std::any_of(
            list.begin(), list.end(), [&](const PossibleDialect& other) { return other.dialect == dialect; });
        if (!known && list.size() < UINT8_MAX)
            list.push_back({dialect, expected, judge_gaps});
    };
    const auto add_forms = [&](const Row& row, bool expected) {
        CdrDialect dialect;
        row.differ(dialect);
        // Nothing in a payload tells a request's header from its content: only the maker's is taken off.
        dialect.request_header &= row.maker == maker && !key_only;
        dialect.origin_at_header &= row.maker == maker;
        dialect = without_undisputed(dialect, version, disputed);
        for (const bool x86 : {dialect.x86_long_double, !dialect.x86_long_double}) {
            dialect.x86_long_double = x86 && disputed.long_doubles;
            for (uint8_t shift = 0; shift < (disputed.bitsets ? 4 : 1); ++shift) {
                dialect.bitset_octets = static_cast<uint8_t>(1u << shift);
                for (const bool flat : {!disputed.sequence_keys, disputed.sequence_keys}) {
                    dialect.flat_keys = key_only && flat;
                    add(dialect, expected);
                }
            }
        }
    };
    for (const bool own : {true, false}) {
        for (const Row& row : kSerializers) {
            const bool is_own = row.maker == maker || maker == Maker::unknown ||
                                (maker == Maker::fast_cdr && is_fast_cdr(row.maker));
            if (is_own == own && (row.xcdr2 || version == CdrVersion::xcdr1))
                add_forms(row, own);
        }
    }
    return list;
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
