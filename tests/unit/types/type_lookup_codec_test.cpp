#include "types/lookup/type_lookup_codec.h"

#include <gtest/gtest.h>

#include "types/corpus.h"

namespace meridian::types {
namespace {

// What ddsperf of Cyclone DDS 0.10.2 answered to requests of ours for its types CPUStats and KeyedSeq.
const char* const kCpuStatsReply =
    "000700001d0a1001b557c491a575e515c3010300000000000100000000000000" // PLAIN_CDR2, the identity, no
                                                                       // exception
    "2c010000d3528201"                                                 // union with DHEADER: getTypes
    "2401000000000000"                                                 // union with DHEADER: ok
    "1c010000d14a8052" // mutable structure, member "types" and its length
    "0601000001000000f259c345a058a7fd92f6669f2a279b00ee000000f2510100110000000000000009000000"
    "435055537461747300000000ce0000000700000017000000000000003100700009000000686f73746e616d65"
    "00000000120000000100000031000700040000007069640000000000150000000200000001000a0007000000"
    "6d61787273730000000000001300000003000000010007000500000076637377000000001400000004000000"
    "010007000600000069766373770000001900000005000000010001000b000000736f6d655f61626f76650000"
    "000000002600000006000000010080f2010000f28383ddd15723cf04f58796fd2fb900000400000063707500"
    "0000000077658e5b0400000000000000";

TypeHash hash(uint8_t first) {
    TypeHash made;
    made.kind = tk::kComplete;
    made.bytes[0] = first;
    return made;
}

TEST(TypeLookupCodec, InstanceNameIsTheGuidOfTheAskedParticipant) {
    rtps::GuidPrefix prefix;
    for (uint8_t i = 0; i < 12; ++i)
        prefix.bytes[i] = static_cast<uint8_t>(0xa0 + i);
    EXPECT_EQ(type_lookup_instance_name(prefix), "dds.builtin.TOS.a0a1a2a3a4a5a6a7a8a9aaab000001c1");
}

TEST(TypeLookupCodec, RequestStandsAsPeersReadIt) {
    TypeLookupRequest request;
    request.writer = {rtps::GuidPrefix{{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}},
                      rtps::entity::type_lookup_request_writer};
    request.number = 7;
    request.hashes = {hash(0x55)};
    const rtps::ByteBuffer expected = test::from_hex(
        "00070000"                         // PLAIN_CDR2, little-endian
        "0102030405060708090a0b0c000300c3" // the request writer
        "0000000007000000"                 // sequence number: high, low
        "31000000"                         // instance name, 49 octets with its terminator
        "6464732e6275696c74696e2e544f532e" // "dds.builtin.TOS."
        "303030303030303030303030303030303030303030303030303030303031633100"
        "000000"   // padding
        "27000000" // DHEADER of the call
        "d3528201" // getTypes
        "1f000000" // DHEADER of its parameters
        "6560534c" // member "type_ids", its length follows
        "17000000"
        "13000000" // DHEADER of the sequence
        "01000000" // one identifier: complete, 14 octets of hash
        "f25500000000000000000000000000");
    EXPECT_EQ(encode(request), expected);
}

TEST(TypeLookupCodec, ReadsTheReplyOfAPeer) {
    const rtps::ByteBuffer payload = test::from_hex(kCpuStatsReply);
    TypeLookupReply reply;
    ASSERT_TRUE(decode(payload, reply));
    ASSERT_EQ(reply.types.size(), 1u);
    EXPECT_EQ(reply.types[0].id.kind, tk::kComplete);
    EXPECT_EQ(hash_of(reply.types[0].object, true), reply.types[0].id.hash)
        << "the object is what its identifier says";
}

TEST(TypeLookupCodec, ExceptionsAreReadAsSuch) {
    rtps::ByteBuffer payload = test::from_hex(kCpuStatsReply);
    payload[28] = 1; // REMOTE_EX_UNSUPPORTED
    TypeLookupReply reply;
    ASSERT_TRUE(decode(payload, reply));
    EXPECT_TRUE(reply.types.empty());
    EXPECT_TRUE(reply.types.empty());
}

TEST(TypeLookupCodec, EveryPrefixAndBitFlipIsReadOrRefused) {
    const rtps::ByteBuffer payload = test::from_hex(kCpuStatsReply);
    for (size_t length = 0; length < payload.size(); ++length) {
        const rtps::ByteBuffer cut(payload.begin(), payload.begin() + static_cast<std::ptrdiff_t>(length));
        TypeLookupReply reply;
        // The last bytes hold the second, empty member; from there on the answer is whole.
        EXPECT_TRUE(!decode(cut, reply) || length + 12 >= payload.size() || reply.types.empty()) << length;
    }
    for (size_t bit = 0; bit < payload.size() * 8; ++bit) {
        rtps::ByteBuffer flipped = payload;
        flipped[bit / 8] = static_cast<uint8_t>(flipped[bit / 8] ^ (1u << bit % 8));
        TypeLookupReply reply;
        decode(flipped, reply);
    }
}

} // namespace
} // namespace meridian::types
