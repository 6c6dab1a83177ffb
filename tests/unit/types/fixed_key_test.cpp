#include "types/data/fixed_key.h"

#include <gtest/gtest.h>

#include "corpus.h"
#include "rtps/wire/encapsulation.h"
#include "support/type_documents.h"
#include "types/data/key_hasher.h"

using namespace meridian;
using namespace meridian::types;
using rtps::ByteBuffer;

namespace {

class FixedKeyTest : public testing::Test {
  protected:
    FixedKeyTest() {
        std::string error;
        EXPECT_TRUE(documents_.load("doc", R"(<types>
<struct name="Base"><member name="a" type="uint8"/></struct>
<struct name="Mixed" baseType="Base">
  <member name="b" type="int64" key="true" id="9"/><member name="c" type="int16" key="true" id="3"/>
  <member name="d" type="string"/>
</struct>
<struct name="BehindText"><member name="d" type="string"/><member name="k" type="int32" key="true"/></struct>
<struct name="BehindOptional"><member name="o" type="int32" optional="true"/>
  <member name="k" type="int32" key="true"/></struct>
<struct name="Text"><member name="k" type="string" key="true"/></struct>
<struct name="Wide"><member name="k" type="wchar" key="true"/></struct>
<struct name="None"><member name="k" type="int32"/></struct>
</types>)",
                                    error))
            << error;
    }
    std::optional<FixedKey> key_of(const std::string& name) {
        held_ = documents_.find(name);
        EXPECT_TRUE(held_) << name;
        return FixedKey::of(*held_);
    }
    /// { a = 1, b = 2, c = 3 }, without d, in big-endian order.
    static ByteBuffer mixed(rtps::Encoding encoding) {
        const bool xcdr1 = encoding == rtps::Encoding::cdr;
        ByteBuffer bytes;
        rtps::write_encapsulation(bytes, encoding, rtps::Endianness::big);
        rtps::ByteWriter writer(bytes, rtps::Endianness::big,
                                xcdr1 ? rtps::kXcdr1MaxAlignment : rtps::kXcdr2MaxAlignment);
        if (encoding == rtps::Encoding::delimited_cdr2)
            writer.write(uint32_t{14});
        writer.write(uint8_t{1});
        writer.write(int64_t{2});
        writer.write(int16_t{3});
        return bytes;
    }
    static bool write(const FixedKey& key, const ByteBuffer& payload, ByteBuffer& out) {
        out.clear();
        rtps::ByteWriter writer(out, rtps::Endianness::big);
        return key.write(payload, writer);
    }

    TypeDocuments documents_;
    TypeRef held_;
};

} // namespace

TEST_F(FixedKeyTest, ExistsOnlyForNumbersBehindNumbers) {
    EXPECT_TRUE(key_of("Mixed"));
    for (const char* name : {"BehindText", "BehindOptional", "Text", "Wide", "None"})
        EXPECT_FALSE(key_of(name)) << name;
}

TEST_F(FixedKeyTest, IsWrittenInOrderOfTheIdsFromEveryPlainEncoding) {
    const std::optional<FixedKey> key = key_of("Mixed");
    ASSERT_TRUE(key);
    ByteBuffer out;
    for (const rtps::Encoding encoding :
         {rtps::Encoding::cdr, rtps::Encoding::cdr2, rtps::Encoding::delimited_cdr2}) {
        ASSERT_TRUE(write(*key, mixed(encoding), out));
        EXPECT_EQ(out, (ByteBuffer{0, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2}));
    }
    EXPECT_FALSE(write(*key, mixed(rtps::Encoding::pl_cdr), out));
    EXPECT_FALSE(write(*key, mixed(rtps::Encoding::pl_cdr2), out));
}

TEST_F(FixedKeyTest, NeedsAllBytesUpToTheLastKeyMember) {
    const std::optional<FixedKey> key = key_of("Mixed");
    ASSERT_TRUE(key);
    ByteBuffer out;
    for (const rtps::Encoding encoding :
         {rtps::Encoding::cdr, rtps::Encoding::cdr2, rtps::Encoding::delimited_cdr2}) {
        ByteBuffer payload = mixed(encoding);
        while (!payload.empty()) {
            payload.pop_back();
            EXPECT_FALSE(write(*key, payload, out)) << payload.size();
        }
    }
    ByteBuffer shorter = mixed(rtps::Encoding::delimited_cdr2);
    shorter[7] = 13; // the header says that the last octet belongs to somebody else
    EXPECT_FALSE(write(*key, shorter, out));
}

// What other makers hash is compared in key_hash_test; here only that some of their types come this way.
TEST_F(FixedKeyTest, ServesTypesOfOtherMakers) {
    size_t fixed = 0;
    for (const test::CorpusType& type : test::read_all_corpora())
        fixed += FixedKey::of(*test::build_type(type)) ? 1u : 0u;
    EXPECT_GE(fixed, 3u);
}
