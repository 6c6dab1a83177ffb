#pragma once

// Serialized samples of one type: the encapsulation is understood, the dialect of the serializer found out,
// and the values walked.

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "types/data/cdr_walker.h"
#include "types/data/dialect.h"
#include "types/data/spares.h"

namespace meridian::types {

/// Any thread. Steady traffic of equal size allocates nothing.
class SampleReader {
  public:
    explicit SampleReader(TypeRef type);

    const Type& type() const { return *type_; }

    /// Tells the values of a payload (encapsulation included) to `sink`; null checks only. False with the
    /// reason in `failure`; the sink was then told what stands before it.
    bool walk(rtps::ByteView payload, ValueSink* sink, std::string& failure,
              const SampleSource& source = {}) const;

    /// A walker and what it is to walk.
    struct Start {
        CdrWalker walker;
        rtps::ByteReader reader;
    };
    /// For the dialect that a payload is in: the first that fits, beginning with the one that its writer's
    /// last sample was in; where none fits, that one. Nothing for an unknown encapsulation. `key_only`
    /// payloads consist of the key members alone.
    std::optional<Start> start(rtps::ByteView payload, bool key_only, const SampleSource& source,
                               WalkBuffers& buffers, std::string& failure) const;

  private:
    struct Body;

    static bool open(rtps::ByteView payload, bool key_only, Body& body, std::string& failure);
    Start start_in(const Body& body, const CdrDialect& dialect, WalkBuffers& buffers) const;
    bool fits(const Body& body, const CdrDialect& dialect, bool zeros, WalkBuffers& buffers) const;
    uint8_t find_dialect(const Body& body, const SampleSource& source, WalkBuffers& buffers) const;

    TypeRef type_;
    std::array<std::vector<CdrDialect>, DialectMemory::kLists> dialects_; // see Body::list
    mutable DialectMemory memory_;
    Spares<WalkBuffers> buffers_;
};

} // namespace meridian::types
