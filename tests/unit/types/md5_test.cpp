#include "types/model/md5.h"

#include <gtest/gtest.h>

#include <string>

using namespace meridian;

namespace {

std::string digest(const std::string& text) {
    std::string hex;
    for (uint8_t byte : types::md5({reinterpret_cast<const uint8_t*>(text.data()), text.size()})) {
        char buffer[3];
        std::snprintf(buffer, sizeof buffer, "%02x", byte);
        hex += buffer;
    }
    return hex;
}

} // namespace

// The digests are those of RFC 1321, A.5, and of md5sum.
TEST(Md5, KnownDigests) {
    EXPECT_EQ(digest(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(digest("a"), "0cc175b9c0f1b6a831c399e269772661");
    EXPECT_EQ(digest("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(digest("12345678901234567890123456789012345678901234567890123456789012345678901234567890"),
              "57edf4a22be3c955ac49da2e2107b67a");
    EXPECT_EQ(digest(std::string(55, 'x')), "04364420e25c512fd958a70738aa8f72");
    EXPECT_EQ(digest(std::string(56, 'x')), "668a72d5ba17f08e62dabcafad6db14b");
    EXPECT_EQ(digest(std::string(64, 'x')), "c1bb4f81d892b2d57947682aeb252456");
}

// The example of OMG DDS-XTypes 1.3, annex B.
TEST(Md5, NameHash) {
    EXPECT_EQ(types::name_hash("color"), (std::array<uint8_t, 4>{0x70, 0xdd, 0xa5, 0xdf}));
    EXPECT_EQ(types::hashed_member_id("color"), 0x0fa5dd70u);
}
