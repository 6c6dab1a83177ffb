#include "corpus.h"

#include <gtest/gtest.h>

#include <fstream>

#include "types/network/type_information.h"

namespace test {

using namespace meridian;

rtps::ByteBuffer from_hex(const std::string& hex) {
    rtps::ByteBuffer bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

std::vector<CorpusType> read_corpus(const std::string& file) {
    std::vector<CorpusType> types;
    std::ifstream in(std::string(CORPUS_DIR) + "/" + file);
    EXPECT_TRUE(in.good()) << file;
    std::string line;
    while (std::getline(in, line)) {
        const size_t blank = line.find(' ');
        const std::string label = line.substr(0, blank);
        const std::string rest = blank == std::string::npos ? "" : line.substr(blank + 1);
        if (label == "type") {
            types.emplace_back();
            types.back().name = rest;
        } else if (label == "information") {
            types.back().information = from_hex(rest);
        } else if (label == "mapping") {
            types.back().mapping = from_hex(rest);
        } else if (label == "pair") {
            types.back().pairs.push_back(from_hex(rest));
        } else if (label == "value") {
            types.back().values.emplace_back();
        } else if (label == "peer") {
            const rtps::ByteBuffer text = from_hex(rest);
            types.back().values.back().peer_text.assign(text.begin(), text.end());
        } else if (label == "keyhash") {
            types.back().values.back().key_hash = from_hex(rest);
        } else if (label == "keyhash1") {
            types.back().values.back().xcdr1_key_hash = from_hex(rest);
        } else if (label == "sample" || label == "key") {
            const size_t end = rest.find(' ');
            CorpusValue& value = types.back().values.back();
            (label == "key" ? value.keys : value.samples)
                .push_back({rest.substr(0, end), from_hex(rest.substr(end + 1))});
        }
    }
    return types;
}

std::vector<CorpusType> read_all_corpora() {
    std::vector<CorpusType> types = read_corpus("cyclone.corpus");
    for (CorpusType& type : read_corpus("fastdds.corpus"))
        types.push_back(std::move(type));
    return types;
}

bool read_objects(const CorpusType& type, std::vector<types::TypeObjectPair>& pairs) {
    rtps::ByteReader reader(type.mapping, rtps::Endianness::little, rtps::kXcdr2MaxAlignment);
    if (!type.mapping.empty() && !(types::read_pairs(reader, pairs) && types::read_pairs(reader, pairs)))
        return false;
    for (const rtps::ByteBuffer& bytes : type.pairs) {
        rtps::ByteReader one(bytes, rtps::Endianness::little, rtps::kXcdr2MaxAlignment);
        types::TypeObjectPair pair;
        if (!types::read(one, pair.id) || !types::read_type_object_bytes(one, pair.object))
            return false;
        pairs.push_back(pair);
    }
    return !pairs.empty();
}

types::TypeRef build_type(const CorpusType& type, bool complete) {
    types::TypeLibrary library;
    types::TypeInformation information;
    std::vector<types::TypeObjectPair> pairs;
    if (!types::decode(type.information, rtps::Endianness::little, information) ||
        !read_objects(type, pairs)) {
        ADD_FAILURE() << type.name;
        return types::TypeRef();
    }
    for (const types::TypeObjectPair& pair : pairs)
        library.add(pair.id.hash, pair.object);
    std::string error;
    types::TypeRef built =
        library.build((complete ? information.complete : information.minimal).type.id, error);
    EXPECT_TRUE(built) << type.name << ": " << error;
    return built;
}

} // namespace test
