#include "types/data/sample_reader.h"

#include <utility>

#include "rtps/wire/encapsulation.h"

namespace meridian::types {

using rtps::ByteReader;
using rtps::ByteView;
using rtps::Encoding;

namespace {

/// A payload is padded to a multiple of four octets.
constexpr size_t kMaxPadding = 3;

/// Whether what a walk left can only be padding.
bool is_padding(ByteReader reader, bool zeros) {
    if (reader.remaining() > kMaxPadding)
        return false;
    uint8_t octet = 0;
    while (zeros && octet == 0 && reader.remaining() != 0)
        reader.read(octet);
    return octet == 0;
}

/// Which list of dialects counts.
constexpr size_t list_of(CdrVersion version, bool key_only) {
    return (version == CdrVersion::xcdr2 ? 2u : 0u) + (key_only ? 1u : 0u);
}

} // namespace

/// What the encapsulation of a payload tells of it.
struct SampleReader::Body {
    CdrVersion version = CdrVersion::xcdr2;
    DDS_ExtensibilityKind outer = DDS_FINAL_EXTENSIBILITY;
    bool key_only = false;
    ByteReader reader; // of all behind the encapsulation

    size_t list() const { return list_of(version, key_only); }
};

SampleReader::SampleReader(TypeRef type) : type_(std::move(type)) {
    for (const CdrVersion version : {CdrVersion::xcdr1, CdrVersion::xcdr2}) {
        for (const bool key_only : {false, true})
            dialects_[list_of(version, key_only)] = possible_dialects(*type_, version, key_only);
    }
}

bool SampleReader::open(ByteView payload, bool key_only, Body& body, std::string& failure) {
    rtps::Encapsulation encapsulation;
    ByteView bytes;
    if (!rtps::read_encapsulation(payload, encapsulation, bytes)) {
        failure = "a payload without an encapsulation header";
        return false;
    }
    body.key_only = key_only;
    switch (encapsulation.encoding()) {
        case Encoding::cdr:
            body.version = CdrVersion::xcdr1;
            break;
        case Encoding::pl_cdr:
            body.version = CdrVersion::xcdr1;
            body.outer = DDS_MUTABLE_EXTENSIBILITY;
            break;
        case Encoding::cdr2:
            break;
        case Encoding::delimited_cdr2:
            body.outer = DDS_EXTENSIBLE_EXTENSIBILITY;
            break;
        case Encoding::pl_cdr2:
            body.outer = DDS_MUTABLE_EXTENSIBILITY;
            break;
        default:
            failure = "an encapsulation of unknown kind " + std::to_string(encapsulation.identifier);
            return false;
    }
    const bool xcdr1 = body.version == CdrVersion::xcdr1;
    body.reader = ByteReader(bytes, encapsulation.endianness(),
                             xcdr1 ? rtps::kXcdr1MaxAlignment : rtps::kXcdr2MaxAlignment);
    return true;
}

SampleReader::Start SampleReader::start_in(const Body& body, const CdrDialect& dialect,
                                           WalkBuffers& buffers) const {
    Start start{CdrWalker(body.version, dialect, body.reader.remaining(), buffers), body.reader};
    start.walker.set_outer_extensibility(body.outer);
    if (body.key_only)
        start.walker.set_key_only();
    return start;
}

bool SampleReader::fits(const Body& body, const CdrDialect& dialect, bool zeros, WalkBuffers& buffers) const {
    Start trial = start_in(body, dialect, buffers);
    trial.walker.set_strict();
    if (zeros)
        trial.walker.set_zeros_behind_wide_text();
    return trial.walker.walk(trial.reader, *type_, nullptr) && is_padding(trial.reader, zeros);
}

uint8_t SampleReader::find_dialect(const Body& body, const SampleSource& source, WalkBuffers& buffers) const {
    const std::vector<CdrDialect>& dialects = dialects_[body.list()];
    if (dialects.size() == 1)
        return 0;
    const std::optional<DialectMemory::Choice> expected = memory_.expected(source, body.list());
    if (expected && fits(body, dialects[expected->dialect], expected->zeros, buffers))
        return expected->dialect;
    // Where serializers differ, the one that was at work is told by the sample being used up exactly: up to
    // zeros that pad it and its wide strings, or, where none fits so, up to padding of any kind.
    for (bool zeros : {true, false}) {
        for (uint8_t i = 0; i < dialects.size(); ++i) {
            const DialectMemory::Choice choice{i, zeros};
            if (expected == choice || !fits(body, dialects[i], zeros, buffers))
                continue;
            memory_.note(source, body.list(), choice);
            return i;
        }
    }
    return expected ? expected->dialect : 0;
}

std::optional<SampleReader::Start> SampleReader::start(ByteView payload, bool key_only,
                                                       const SampleSource& source, WalkBuffers& buffers,
                                                       std::string& failure) const {
    Body body;
    if (!open(payload, key_only, body, failure))
        return std::nullopt;
    const uint8_t dialect = find_dialect(body, source, buffers);
    return start_in(body, dialects_[body.list()][dialect], buffers);
}

bool SampleReader::walk(ByteView payload, ValueSink* sink, std::string& failure,
                        const SampleSource& source) const {
    const Borrowed<WalkBuffers> buffers(buffers_);
    std::optional<Start> begin = start(payload, false, source, *buffers, failure);
    if (!begin)
        return false;
    if (begin->walker.walk(begin->reader, *type_, sink))
        return true;
    failure = begin->walker.failure();
    return false;
}

} // namespace meridian::types
