#include "dcps/reader/key_aliases.h"

#include <gtest/gtest.h>

namespace meridian::dcps {
namespace {

rtps::KeyHash hash(uint32_t number) {
    rtps::KeyHash made{};
    for (size_t i = 0; i < 4; ++i)
        made[i] = static_cast<uint8_t>(number >> 8 * i);
    return made;
}

const rtps::Guid kWriter{rtps::GuidPrefix{{1}}, rtps::EntityId{0x102}};
const rtps::Guid kOther{rtps::GuidPrefix{{2}}, rtps::EntityId{0x102}};

TEST(KeyAliases, AHashMeansTheInstanceOfTheSampleThatItCameWith) {
    KeyAliases aliases;
    aliases.note(kWriter, hash(1), hash(100));
    aliases.note(kWriter, hash(2), hash(100)); // the same instance by another name
    aliases.note(kWriter, hash(3), hash(3));
    EXPECT_EQ(aliases.instance_of(kWriter, hash(1)), hash(100));
    EXPECT_EQ(aliases.instance_of(kWriter, hash(2)), hash(100));
    EXPECT_EQ(aliases.instance_of(kWriter, hash(3)), hash(3));
    EXPECT_EQ(aliases.instance_of(kWriter, hash(4)), hash(4));
    EXPECT_EQ(aliases.instance_of(kOther, hash(1)), hash(1)) << "names are the writer's own";
}

TEST(KeyAliases, TheLatestSampleCounts) {
    KeyAliases aliases;
    aliases.note(kWriter, hash(1), hash(100));
    aliases.note(kWriter, hash(1), hash(200));
    EXPECT_EQ(aliases.instance_of(kWriter, hash(1)), hash(200));
    aliases.note(kWriter, hash(1), hash(1));
    EXPECT_EQ(aliases.instance_of(kWriter, hash(1)), hash(1));
}

TEST(KeyAliases, WritersAreForgottenAndHeldToALimit) {
    KeyAliases aliases;
    aliases.note(kOther, hash(1), hash(2));
    for (uint32_t i = 0; i <= KeyAliases::kMaxPerWriter; ++i)
        aliases.note(kWriter, hash(i + 1000), hash(1));
    EXPECT_EQ(aliases.instance_of(kWriter, hash(1000)), hash(1000)) << "pushed out";
    const uint32_t last = KeyAliases::kMaxPerWriter + 1000;
    EXPECT_EQ(aliases.instance_of(kWriter, hash(last)), hash(1));
    EXPECT_EQ(aliases.instance_of(kOther, hash(1)), hash(2));
    aliases.forget(kWriter);
    EXPECT_EQ(aliases.instance_of(kWriter, hash(last)), hash(last));
}

} // namespace
} // namespace meridian::dcps
