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
    /// The type is a structure or union, or an alias of one.
    explicit SampleReader(const TypeRef& type);

    /// Behind all aliases.
    const Type& type() const { return *type_; }

    /// Tells the values of a payload (encapsulation included) to `sink`; null checks only. False with the
    /// reason in `failure`; the sink was then told what stands before it, or, where the payload is not what
    /// the type says and all of that may be wrong, nothing that it was not told to retract.
    bool walk(rtps::ByteView payload, ValueSink* sink, std::string& failure,
              const SampleSource& source = {}) const;

    /// A walker and what it is to walk.
    struct Start {
        CdrWalker walker;
        rtps::ByteReader reader;
    };
    /// For the dialect that a payload is in: of those that fit, beginning with those that its writer's vendor
    /// is known for, the one that the least speaks against; the one that the writer's last sample was in, as
    /// long as it fits; where none fits, that one, or the most likely. Nothing for an unknown encapsulation.
    /// `key_only` payloads consist of the key members alone.
    std::optional<Start> start(rtps::ByteView payload, bool key_only, const SampleSource& source,
                               WalkBuffers& buffers, std::string& failure) const;

  private:
    struct Body;
    struct Found {
        uint8_t dialect = 0;
        bool is_sure = true; // it fits, or the writer's last sample was in it, or there is no other
    };

    static bool open(rtps::ByteView payload, bool key_only, const SampleSource& source, Body& body,
                     std::string& failure);
    Start start_in(const Body& body, const CdrDialect& dialect, WalkBuffers& buffers) const;
    /// What speaks against the dialect; nothing where it does not fit.
    std::optional<uint32_t> objections(const Body& body, const PossibleDialect& dialect,
                                       WalkBuffers& buffers) const;
    Found find_dialect(const Body& body, const SampleSource& source, WalkBuffers& buffers) const;

    TypeRef type_;
    std::array<std::vector<PossibleDialect>, DialectMemory::kLists> dialects_; // see list_of
    mutable DialectMemory memory_;
    Spares<WalkBuffers> buffers_;
};

} // namespace meridian::types
