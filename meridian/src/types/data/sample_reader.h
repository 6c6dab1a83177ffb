#pragma once

// Serialized samples of one type: the encapsulation is understood, the dialect of the serializer found out,
// and the values walked.

#include <string>
#include <vector>

#include "types/data/cdr_walker.h"

namespace meridian::types {

class SampleReader {
  public:
    explicit SampleReader(TypeRef type);

    const Type& type() const { return *type_; }

    /// Tells the values of a payload (encapsulation included) to `sink`; null checks only. False with the
    /// reason in `failure`; the sink was then told what stands before it. Any thread.
    bool walk(rtps::ByteView payload, ValueSink* sink, std::string& failure) const;

    /// What a walk of a payload needs. `key_only` payloads consist of the key members alone.
    struct Setup {
        CdrWalker walker;
        rtps::ByteReader reader;
    };
    /// Setups for each dialect that the payload may be in, the one that fits first, if one does. Empty for an
    /// unknown encapsulation.
    std::vector<Setup> setups(rtps::ByteView payload, bool key_only, std::string& failure) const;

  private:
    TypeRef type_;
    /// In which a serializer may have written this type, the most likely first.
    std::vector<CdrDialect> xcdr1_dialects_;
    std::vector<CdrDialect> xcdr2_dialects_;
};

} // namespace meridian::types
