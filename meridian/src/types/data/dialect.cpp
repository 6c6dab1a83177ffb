#include "types/data/dialect.h"

#include <algorithm>
#include <set>
#include <tuple>

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
    bool sequence_keys = false; // which the serializer with flat keys does not have
};

Disputed find_disputed(const Type& root) {
    Disputed disputed;
    visit_types(&root, [&disputed](const Type& type) {
        const bool optionals = std::any_of(type.members.begin(), type.members.end(),
                                           [](const Member& member) { return member.optional; });
        disputed.wide_text |= type.kind == DDS_TK_WSTRING || type.kind == DDS_TK_WCHAR;
        disputed.long_doubles |= type.kind == DDS_TK_LONGDOUBLE;
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

/// Whether ROS 2 names requests or responses of a service so.
bool belongs_to_service(const std::string& name) {
    const auto ends_with = [&name](const std::string& end) {
        return name.size() > end.size() && name.compare(name.size() - end.size(), end.size(), end) == 0;
    };
    return name.find("::dds_::") != std::string::npos && (ends_with("_Request_") || ends_with("_Response_"));
}

/// A serializer.
struct Row {
    Maker maker; // unknown: the standard's form, or one of several makers
    CdrDialect dialect;
    bool xcdr2 = true; // it knows that version
};

CdrDialect of_dust_dds() {
    CdrDialect dialect;
    dialect.rtps_list_end = true;
    dialect.counts_as_lengths = true;
    return dialect;
}

const std::vector<Row>& serializers() {
    using Wide = CdrDialect::WideText;
    using Headers = CdrDialect::Headers;
    CdrDialect cyclone{Wide::octets, Headers::flat, false};
    cyclone.unsigned_discriminators = true;
    static const std::vector<Row> kRows{
        {Maker::unknown, {Wide::octets, Headers::standard, true}},
        {Maker::cyclone_dds, cyclone},
        {Maker::fast_cdr_2, {Wide::units, Headers::few, true}},
        {Maker::fast_cdr_2, {Wide::units, Headers::dynamic, true, false}},
        {Maker::fast_cdr_1, {Wide::quads, Headers::few, true, false, false}, false},
        {Maker::unknown, {Wide::octets, Headers::few, true}},
        {Maker::unknown, {Wide::units, Headers::standard, true}},
        {Maker::dust_dds, of_dust_dds()},
    };
    return kRows;
}

/// The same where it makes no difference for samples of the type.
CdrDialect without_undisputed(CdrDialect dialect, CdrVersion version, const Disputed& disputed) {
    const CdrDialect standard;
    const bool xcdr1 = version == CdrVersion::xcdr1;
    if (!disputed.wide_text)
        dialect.wide_text = standard.wide_text;
    if (!disputed.headers || xcdr1)
        dialect.headers = standard.headers;
    if (!disputed.lists || !xcdr1)
        dialect.one_origin = standard.one_origin;
    if (!disputed.lists || !xcdr1)
        dialect.lists = standard.lists;
    if (!disputed.mutables || !xcdr1)
        dialect.rtps_list_end = standard.rtps_list_end;
    if (!disputed.mutables || xcdr1)
        dialect.counts_as_lengths = standard.counts_as_lengths;
    if (!disputed.optionals)
        dialect.optional_headers = standard.optional_headers;
    if (!disputed.negative_labels)
        dialect.unsigned_discriminators = standard.unsigned_discriminators;
    return dialect;
}

bool is_fast_cdr(Maker maker) {
    return maker == Maker::fast_cdr || maker == Maker::fast_cdr_1 || maker == Maker::fast_cdr_2;
}

} // namespace

bool operator==(const CdrDialect& a, const CdrDialect& b) {
    const auto values = [](const CdrDialect& d) {
        return std::tie(d.wide_text, d.headers, d.one_origin, d.optional_headers, d.lists, d.x86_long_double,
                        d.bitset_octets, d.flat_keys, d.unsigned_discriminators, d.request_header,
                        d.rtps_list_end, d.counts_as_lengths);
    };
    return values(a) == values(b);
}

Maker maker_of(const SampleSource& source) {
    if (source.vendor == rtps::kFastDds)
        return source.fast_cdr == 1   ? Maker::fast_cdr_1
               : source.fast_cdr == 2 ? Maker::fast_cdr_2
                                      : Maker::fast_cdr;
    return source.vendor == rtps::VendorId{{0x01, 0x10}} ? Maker::cyclone_dds
           : source.vendor == rtps::kDustDds             ? Maker::dust_dds
                                                         : Maker::unknown;
}

std::vector<PossibleDialect> possible_dialects(const Type& type, CdrVersion version, bool key_only,
                                               Maker maker) {
    const Disputed disputed = find_disputed(type);
    const bool request_headers = maker == Maker::cyclone_dds && version == CdrVersion::xcdr1 && !key_only &&
                                 belongs_to_service(type.name);
    std::vector<PossibleDialect> list;
    const bool judge_gaps = disputed.optionals && version == CdrVersion::xcdr2;
    const auto add = [&list, judge_gaps](const CdrDialect& dialect, bool expected) {
        const bool known = std::any_of(
            list.begin(), list.end(), [&](const PossibleDialect& other) { return other.dialect == dialect; });
        if (!known && list.size() < UINT8_MAX)
            list.push_back({dialect, expected, judge_gaps});
    };
    const auto add_forms = [&](CdrDialect dialect, bool expected) {
        dialect.request_header = request_headers && expected;
        for (const bool x86 : {is_fast_cdr(maker), !is_fast_cdr(maker)}) {
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
        for (const Row& row : serializers()) {
            const bool is_own = row.maker == maker || maker == Maker::unknown ||
                                (maker == Maker::fast_cdr && is_fast_cdr(row.maker));
            if (is_own == own && (row.xcdr2 || version == CdrVersion::xcdr1))
                add_forms(without_undisputed(row.dialect, version, disputed), own);
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
