#pragma once

// Access to the recorded corpora in data/: types and samples of other makers' serializers.

#include <string>
#include <vector>

#include "rtps/wire/types.h"
#include "types/network/type_library.h"

namespace test {

struct CorpusSample {
    std::string encoding; // "xcdr1-le" and the like
    meridian::rtps::ByteBuffer payload;
};

/// One value of a type, in several encodings.
struct CorpusValue {
    std::string peer_text;               // how the peer itself prints it
    meridian::rtps::ByteBuffer key_hash; // as writers of XCDR2 send it
    meridian::rtps::ByteBuffer
        xcdr1_key_hash; // as writers of XCDR1 do; empty where the type has no such form
    std::vector<CorpusSample> samples;
    std::vector<CorpusSample> keys; // payloads of disposes
};

struct CorpusType {
    std::string name;
    meridian::rtps::ByteBuffer information;
    meridian::rtps::ByteBuffer mapping;            // as Cyclone DDS compiles it
    std::vector<meridian::rtps::ByteBuffer> pairs; // identifiers and type objects of Fast DDS
    std::vector<CorpusValue> values;
};

/// The types of all corpora.
std::vector<CorpusType> read_all_corpora();
/// The types of data/`file`; empty, with a test failure, when it cannot be read.
std::vector<CorpusType> read_corpus(const std::string& file);
meridian::rtps::ByteBuffer from_hex(const std::string& hex);

/// All type objects of a type and its dependencies, minimal and complete.
bool read_objects(const CorpusType& type, std::vector<meridian::types::TypeObjectPair>& pairs);
/// The type code of a corpus type, from its complete or minimal type object. Empty after a test failure.
meridian::types::TypeRef build_type(const CorpusType& type, bool complete = true);

} // namespace test
