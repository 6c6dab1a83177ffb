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
/// Of larger samples a printer may have given away text before the end is reached.
constexpr size_t kMaxRetracted = 4096;

/// Which list of dialects counts.
constexpr size_t list_of(CdrVersion version, bool key_only, Maker maker) {
    return static_cast<size_t>(maker) * 4u + (version == CdrVersion::xcdr2 ? 2u : 0u) + (key_only ? 1u : 0u);
}

} // namespace

/// What the encapsulation of a payload tells of it.
struct SampleReader::Body {
    CdrVersion version = CdrVersion::xcdr2;
    DDS_ExtensibilityKind outer = DDS_FINAL_EXTENSIBILITY;
    bool key_only = false;
    ByteReader reader; // of all behind the encapsulation
    size_t list = 0;   // of dialects
};

SampleReader::SampleReader(const TypeRef& type) : type_(resolve_alias(type.get())) {
    for (size_t i = 0; i < kMakers; ++i) {
        const auto maker = static_cast<Maker>(i);
        for (const CdrVersion version : {CdrVersion::xcdr1, CdrVersion::xcdr2}) {
            for (const bool key_only : {false, true})
                dialects_[list_of(version, key_only, maker)] =
                    possible_dialects(*type_, version, key_only, maker);
        }
    }
}

bool SampleReader::open(ByteView payload, bool key_only, const SampleSource& source, Body& body,
                        std::string& failure) {
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
    body.list = list_of(body.version, key_only, maker_of(source));
    return true;
}

SampleReader::Start SampleReader::start_in(const Body& body, const CdrDialect& dialect,
                                           WalkBuffers& buffers) const {
    Start start{CdrWalker(body.version, dialect, body.reader.remaining(), buffers), body.reader};
    start.walker.set_outer_extensibility(body.outer);
    if (body.key_only)
        start.walker.set_key_only();
    if (dialect.origin_at_header)
        start.reader.set_origin(rtps::kEncapsulationSize);
    if (dialect.request_header)
        start.reader.skip(CdrDialect::kRequestHeaderSize);
    return start;
}

std::optional<uint32_t> SampleReader::objections(const Body& body, const PossibleDialect& dialect,
                                                 WalkBuffers& buffers) const {
    constexpr uint32_t kUnexpected = 1u << 20;
    Start trial = start_in(body, dialect.dialect, buffers);
    trial.walker.set_trial(dialect.judge_gaps);
    if (!trial.walker.walk(trial.reader, *type_, nullptr) || trial.reader.remaining() > kMaxPadding)
        return std::nullopt;
    const bool zeros = trial.reader.zeros_follow(kMaxPadding);
    return trial.walker.objections() + (zeros ? 0 : 1) + (dialect.expected ? 0 : kUnexpected);
}

SampleReader::Found SampleReader::find_dialect(const Body& body, const SampleSource& source,
                                               WalkBuffers& buffers) const {
    const std::vector<PossibleDialect>& possible = dialects_[body.list];
    if (possible.size() == 1)
        return {};
    const std::optional<DialectMemory::Choice> last = memory_.expected(source, body.list);
    if (last) {
        const auto count = objections(body, possible[last->dialect], buffers);
        if (count && (*count == 0 || !last->clean))
            return {last->dialect};
    }
    std::optional<uint32_t> least;
    DialectMemory::Choice best;
    for (uint8_t i = 0; i < possible.size() && least != 0u; ++i) {
        const auto count = objections(body, possible[i], buffers);
        if (count && (!least || *count < *least)) {
            least = count;
            best = {i, *count == 0};
        }
    }
    if (!least)
        return {last ? last->dialect : uint8_t{0}, last.has_value()};
    if (!(last == best))
        memory_.note(source, body.list, best);
    return {best.dialect};
}

std::optional<SampleReader::Start> SampleReader::start(ByteView payload, bool key_only,
                                                       const SampleSource& source, WalkBuffers& buffers,
                                                       std::string& failure) const {
    Body body;
    if (!open(payload, key_only, source, body, failure))
        return std::nullopt;
    const Found found = find_dialect(body, source, buffers);
    return start_in(body, dialects_[body.list][found.dialect].dialect, buffers);
}

bool SampleReader::walk(ByteView payload, ValueSink* sink, std::string& failure,
                        const SampleSource& source) const {
    const Borrowed<WalkBuffers> buffers(buffers_);
    Body body;
    if (!open(payload, false, source, body, failure))
        return false;
    const Found found = find_dialect(body, source, *buffers);
    const std::vector<PossibleDialect>& possible = dialects_[body.list];
    Start begin = start_in(body, possible[found.dialect].dialect, *buffers);
    // The text of a large sample cannot be retracted.
    if (payload.size > kMaxRetracted && possible.size() == 1 && sink != nullptr) {
        Start trial = begin;
        if (trial.walker.walk(trial.reader, *type_, nullptr) && trial.reader.remaining() > kMaxPadding)
            sink = nullptr;
    }
    if (!begin.walker.walk(begin.reader, *type_, found.is_sure ? sink : nullptr)) {
        failure = begin.walker.failure();
        return false;
    }
    const size_t left = begin.reader.remaining();
    if (left <= kMaxPadding && found.is_sure)
        return true;
    if (sink != nullptr)
        sink->retract();
    failure = (left > kMaxPadding ? std::to_string(left) + " octets are left" : "some octets fit no value") +
              ": the type is not what was sent";
    return false;
}

} // namespace meridian::types
