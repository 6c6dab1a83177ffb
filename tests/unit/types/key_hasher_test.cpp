#include "types/data/key_hasher.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "corpus.h"
#include "support/type_documents.h"

using namespace meridian;
using namespace meridian::types;

namespace {

std::string hex(const rtps::KeyHash& hash) {
    std::string text;
    for (uint8_t octet : hash) {
        char buffer[3];
        std::snprintf(buffer, sizeof buffer, "%02x", octet);
        text += buffer;
    }
    return text;
}

} // namespace

// Whatever the encoding of the sample, its XCDR2 key hash is the one that the peer computes.
TEST(KeyHash, IsThatOfThePeer) {
    size_t checked = 0;
    size_t keys = 0;
    size_t xcdr1 = 0;
    for (const test::CorpusType& type : test::read_all_corpora()) {
        const SampleReader reader(test::build_type(type));
        const KeyHasher hasher(reader);
        for (const test::CorpusValue& value : type.values) {
            EXPECT_EQ(hasher.is_keyed(), !value.key_hash.empty()) << type.name;
            for (const test::CorpusSample& key : value.keys) {
                std::vector<rtps::KeyHash> all;
                std::string failure;
                ASSERT_TRUE(hasher.compute_all(key.payload, true, all, failure))
                    << type.name << " " << key.encoding << " " << failure;
                const rtps::KeyHash& hash = all.front();
                EXPECT_TRUE(std::equal(hash.begin(), hash.end(), value.key_hash.begin()))
                    << type.name << " key " << key.encoding << " " << hex(hash);
                ++keys;
            }
            for (const test::CorpusSample& sample : value.samples) {
                std::vector<rtps::KeyHash> all;
                std::string failure;
                const bool computed = hasher.compute_all(sample.payload, false, all, failure);
                ASSERT_EQ(computed, hasher.is_keyed()) << type.name << ": " << failure;
                if (!computed)
                    continue;
                const rtps::KeyHash& hash = all.front();
                rtps::KeyHash other{};
                EXPECT_TRUE(hasher.compute(sample.payload, false, other, failure));
                EXPECT_TRUE(!hasher.forms_agree() || hash == other) << type.name;
                if (!value.xcdr1_key_hash.empty()) {
                    EXPECT_TRUE(std::equal(other.begin(), other.end(), value.xcdr1_key_hash.begin()))
                        << type.name << " " << hex(other);
                    ++xcdr1;
                }
                EXPECT_NE(std::find(all.begin(), all.end(), other), all.end()) << type.name;
                rtps::KeyHash expected{};
                std::copy_n(value.key_hash.begin(), expected.size(), expected.begin());
                EXPECT_NE(std::find(all.begin(), all.end(), expected), all.end())
                    << type.name << " " << sample.encoding << " " << hex(hash);
                // Dynamic types of Fast DDS never digest a short key.
                if (type.name != "fast::KeyText") {
                    EXPECT_EQ(hex(hash), hex(expected)) << type.name << " " << sample.encoding;
                }
                ++checked;
            }
        }
    }
    EXPECT_GT(checked, 50u);
    EXPECT_GT(keys, 25u);
    EXPECT_GT(xcdr1, 25u);
}

// What stands behind the key may be anything.
TEST(KeyHash, IsThatOfASampleThatEndsBehindItsKey) {
    TypeDocuments documents;
    std::string failure;
    ASSERT_TRUE(documents.load("keyed.xml", R"(<types>
        <struct name="Keyed" extensibility="final">
            <member name="before" type="uint16"/>
            <member name="id" type="int32" key="true"/>
            <member name="text" type="string"/>
        </struct></types>)",
                               failure))
        << failure;
    const SampleReader reader(documents.find("Keyed"));
    const KeyHasher hasher(reader);
    const rtps::ByteBuffer payload{0,  1, 0, 0, // CDR, little-endian
                                   1,  0, 0, 0, // before, padding
                                   4,  0, 0, 0, // id
                                   9,  0, 0, 0, // text of 9 characters, of which
                                   'a'};        // one is there
    for (size_t size = 0; size <= payload.size(); ++size) {
        rtps::KeyHash hash{};
        const bool whole_key = size >= 12;
        EXPECT_EQ(hasher.compute(rtps::ByteView(payload.data(), size), false, hash, failure), whole_key)
            << size;
        EXPECT_EQ(hex(hash), whole_key ? "00000004000000000000000000000000" : std::string(32, '0')) << size;
        EXPECT_FALSE(reader.walk(rtps::ByteView(payload.data(), size), nullptr, failure)) << size;
    }
}

// Keys that stand at the same place in every sample are not walked to. They are the same all the same, which
// compute_all, that always walks, shows.
TEST(KeyHash, IsTheSameWithoutAWalk) {
    TypeDocuments documents;
    std::string failure;
    ASSERT_TRUE(documents.load("fixed.xml", R"(<types>
        <struct name="Base" extensibility="final">
            <member name="flag" type="boolean"/>
            <member name="base_key" type="int16" id="9" key="true"/>
        </struct>
        <struct name="Fixed" baseType="Base" extensibility="appendable">
            <member name="real" type="float64"/>
            <member name="letter" type="char8" id="30" key="true"/>
            <member name="number" type="uint64" id="20" key="true"/>
            <member name="text" type="string"/>
        </struct></types>)",
                               failure))
        << failure;
    const SampleReader reader(documents.find("Fixed"));
    const KeyHasher hasher(reader);
    uint8_t octet = 0;
    for (const uint8_t kind : std::initializer_list<uint8_t>{
             0, 1, 6, 7, 8, 9}) { // CDR, CDR2 and delimited CDR2, big- and little-endian
        rtps::ByteBuffer payload{0, kind, 0, 0};
        const bool delimited = kind >= 8;
        const bool little = (kind & 1) != 0;
        constexpr uint8_t kBody = 40;
        if (delimited)
            payload.insert(payload.end(), {little ? kBody : uint8_t{0}, 0, 0, little ? uint8_t{0} : kBody});
        const size_t body = payload.size();
        while (payload.size() < body + kBody)
            payload.push_back(++octet);
        payload[body] = 1; // the flag
        rtps::KeyHash hash{};
        ASSERT_TRUE(hasher.compute(payload, false, hash, failure)) << int{kind} << failure;
        std::vector<rtps::KeyHash> walked;
        ASSERT_TRUE(hasher.compute_all(payload, false, walked, failure)) << int{kind} << failure;
        EXPECT_EQ(hex(hash), hex(walked.at(1))) << int{kind};
        // Of a sample that ends within its key there is none.
        const size_t key_end = body + (kind <= 1 ? 32 : 24);
        EXPECT_FALSE(hasher.compute({payload.data(), key_end - 1}, false, hash, failure));
    }
}

// Payloads as Cyclone DDS sends them with a disposal: 0.10 keeps the headers of the type to samples with
// data, 11 does not.
TEST(KeyHash, IsTheSameOfKeyPayloadsWithAndWithoutHeaders) {
    for (const char* const extensibility : {"appendable", "mutable"}) {
        TypeDocuments documents;
        std::string failure;
        ASSERT_TRUE(documents.load("keyed.xml",
                                   std::string(R"(<types><struct name="Keyed" extensibility=")") +
                                       extensibility + R"("><member name="id" type="string" key="true"/>
            <member name="count" type="int32"/></struct></types>)",
                                   failure))
            << failure;
        const TypeRef type = documents.find("Keyed");
        const SampleReader reader(type);
        const KeyHasher hasher(reader);
        const auto hash_of = [&](const char* payload, bool key_only) {
            rtps::KeyHash hash{};
            const SampleSource cyclone{{rtps::GuidPrefix{{1}}, rtps::EntityId{0x102}},
                                       rtps::VendorId{{1, 16}}};
            EXPECT_TRUE(hasher.compute(test::from_hex(payload), key_only, hash, failure, cyclone)) << failure;
            return hex(hash);
        };
        const bool is_mutable = extensibility == std::string("mutable");
        const std::string data =
            hash_of(is_mutable ? "000b000014000000000000d0040000007e5d58000100002000000080"
                               : "000900000c000000040000007e5d580000000080",
                    false);
        EXPECT_EQ(hash_of(is_mutable ? "000b00000c00000000000050040000007e5d5800"
                                     : "0009000008000000040000007e5d5800",
                          true),
                  data);
        EXPECT_EQ(hash_of(is_mutable ? "000b0000040000007e5d5800" : "00090000040000007e5d5800", true), data);
        EXPECT_EQ(hash_of(is_mutable ? "000b000309000000000000500100000000000000"
                                     : "00090003050000000100000000000000",
                          true),
                  "113b7f2f33d9035e4d9c5f52fc8b54d6")
            << "an empty text";
    }
}

// Without headers the first would be a text of four characters, the last two of them NUL, and the second a
// longer sequence.
TEST(KeyHash, OfKeyPayloadsThatFitWithoutTheirHeadersToo) {
    constexpr const char* kKeys[][2] = {
        {"type=\"wstring\" id=\"367\"", "000b0000080000006f01005000000000"},
        {"type=\"byte\" sequenceMaxLength=\"-1\" id=\"2\"", "000b00010b000000020000500300000000004900"}};
    for (const auto& [member, bytes] : kKeys) {
        TypeDocuments documents;
        std::string failure;
        ASSERT_TRUE(documents.load("keyed.xml",
                                   std::string("<types><struct name='Keyed' extensibility='mutable'>"
                                               "<member name='id' key='true' ") +
                                       member + "/></struct></types>",
                                   failure))
            << failure;
        const TypeRef type = documents.find("Keyed");
        const SampleReader reader(type);
        const SampleSource cyclone{{rtps::GuidPrefix{{1}}, rtps::EntityId{0x102}}, rtps::VendorId{{1, 16}}};
        rtps::KeyHash sample{};
        rtps::KeyHash key{};
        const rtps::ByteBuffer payload = test::from_hex(bytes);
        EXPECT_TRUE(KeyHasher(reader).compute(payload, false, sample, failure, cyclone)) << failure;
        EXPECT_TRUE(KeyHasher(reader).compute(payload, true, key, failure, cyclone)) << failure;
        EXPECT_EQ(hex(key), hex(sample)) << member;
    }
}

TEST(KeyHash, FormsDifferWhereAlignmentDoes) {
    for (const test::CorpusType& type : test::read_corpus("cyclone.corpus")) {
        const SampleReader reader(test::build_type(type));
        const KeyHasher hasher(reader);
        rtps::KeyHash hash{};
        std::string failure;
        const rtps::ByteBuffer& payload = type.values.front().samples.front().payload;
        if (type.name == "corpus::KeyEight") {
            ASSERT_TRUE(hasher.compute(payload, false, hash, failure)) << failure;
            EXPECT_EQ(hex(hash), "00000001000000004004000000000000");
            EXPECT_FALSE(hasher.forms_agree());
        } else if (type.name == "corpus::KeyLong") {
            ASSERT_TRUE(hasher.compute(payload, false, hash, failure)) << failure;
            EXPECT_EQ(hex(hash), "01020304000000000000000000000000");
            EXPECT_TRUE(hasher.forms_agree());
        } else if (type.name == "corpus::KeyTwo") {
            EXPECT_FALSE(hasher.is_digest());
        } else if (type.name == "corpus::KeyString") {
            EXPECT_TRUE(hasher.is_digest());
            EXPECT_TRUE(hasher.forms_agree());
        } else if (type.name == "corpus::KeyLarge") {
            EXPECT_FALSE(hasher.forms_agree());
            EXPECT_TRUE(hasher.is_digest());
        }
    }
}

// As of a structure that is a key member itself: the rest of an element is not sent where keys stand alone.
TEST(KeyHash, OfCollectionsOfStructuresTakesTheirKeyMembersOnly) {
    TypeDocuments documents;
    std::string error;
    ASSERT_TRUE(documents.load("text",
                               R"(<types>
        <struct name="Base" extensibility="final"><member name="id" type="int32" key="true"/></struct>
        <struct name="Part" extensibility="final" baseType="Base"><member name="rest" type="int32"/></struct>
        <struct name="Loose" extensibility="mutable"><member name="rest" type="int32" id="1"/>
            <member name="id" type="int32" id="2" key="true"/></struct>
        <struct name="Whole" extensibility="final"><member name="a" type="int32"/></struct>
        <struct name="Array" extensibility="final">
            <member name="parts" type="nonBasic" nonBasicTypeName="Part" arrayDimensions="2" key="true"/>
            </struct>
        <struct name="Sequence" extensibility="final">
            <member name="parts" type="nonBasic" nonBasicTypeName="Loose" sequenceMaxLength="-1" key="true"/>
            </struct>
        <struct name="Keyless" extensibility="final">
            <member name="parts" type="nonBasic" nonBasicTypeName="Whole" arrayDimensions="2" key="true"/>
            </struct></types>)",
                               error))
        << error;
    const auto hash_of = [&](const char* name, const char* payload, bool key_only) {
        const SampleReader reader(documents.find(name));
        rtps::KeyHash hash{};
        std::string failure;
        EXPECT_TRUE(KeyHasher(reader).compute(test::from_hex(payload), key_only, hash, failure)) << failure;
        return hex(hash);
    };
    EXPECT_EQ(hash_of("Array", "0001000001000000770000000200000077000000", false),
              "00000001000000020000000000000000");
    EXPECT_EQ(hash_of("Array", "000100000100000002000000", true), "00000001000000020000000000000000");
    EXPECT_EQ(hash_of("Keyless", "000100000100000002000000", false), "00000001000000020000000000000000");
    EXPECT_EQ(hash_of("Sequence", "000100000100000001000400770000000200040009000000023f0000", false),
              hash_of("Sequence", "00010000010000000200040009000000023f0000", true));
}

// A topic may be of a typedef: its instances are those of the type behind it.
TEST(KeyHash, OfATypedefIsThatOfItsStructure) {
    TypeDocuments documents;
    std::string error;
    ASSERT_TRUE(documents.load("text",
                               R"(<types>
        <struct name="Keyed"><member name="id" type="int32" key="true"/></struct>
        <typedef name="Other" type="nonBasic" nonBasicTypeName="Keyed"/>
        <typedef name="Alias" type="nonBasic" nonBasicTypeName="Other"/>
        </types>)",
                               error))
        << error;
    const SampleReader reader(documents.find("Alias"));
    const KeyHasher hasher(reader);
    EXPECT_TRUE(hasher.is_keyed());
    EXPECT_TRUE(hasher.forms_agree());
    const rtps::ByteBuffer payload{0, 1, 0, 0, 4, 3, 2, 1};
    rtps::KeyHash hash{};
    std::string failure;
    ASSERT_TRUE(hasher.compute(payload, false, hash, failure)) << failure;
    EXPECT_EQ(hex(hash), "01020304000000000000000000000000");
}

// Structures of two members each, down to an empty one: as many paths as no program can walk.
TEST(KeyHash, OfTypesWithEndlesslyManyEmptyParts) {
    std::string types = "<struct name='E'/>";
    std::string below = "E";
    for (int i = 0; i < 60; ++i) {
        const std::string member = "type='nonBasic' nonBasicTypeName='" + below + "'";
        below = "S" + std::to_string(i);
        types += "<struct name='" + below + "'><member name='a' " + member + "/><member name='b' " + member +
                 " arrayDimensions='9'/></struct>";
    }
    TypeDocuments documents;
    std::string failure;
    ASSERT_TRUE(documents.load("doc",
                               "<types>" + types +
                                   "<struct name='T'><member name='k' key='true' type='nonBasic' "
                                   "nonBasicTypeName='" +
                                   below + "'/></struct></types>",
                               failure))
        << failure;
    const SampleReader reader(documents.find("T"));
    const KeyHasher hasher(reader);
    EXPECT_TRUE(hasher.is_keyed());
    EXPECT_FALSE(hasher.is_digest()) << "nothing is no more than 16 octets";
}
