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

TEST(KeyAliases, LongestUnusedIsForgottenAtTheLimit) {
    KeyAliases aliases;
    const auto most = static_cast<uint32_t>(KeyAliases::kMost);
    for (uint32_t i = 0; i < most; ++i)
        aliases.note(i % 2 == 0 ? kWriter : kOther, hash(i + 1000), hash(1));
    aliases.note(kWriter, hash(1000), hash(1)); // used again
    aliases.note(kWriter, hash(10), hash(1));
    aliases.note(kWriter, hash(11), hash(1));
    EXPECT_EQ(aliases.instance_of(kWriter, hash(1000)), hash(1));
    EXPECT_EQ(aliases.instance_of(kOther, hash(1001)), hash(1001)) << "pushed out";
    EXPECT_EQ(aliases.instance_of(kWriter, hash(1002)), hash(1002)) << "pushed out";
    EXPECT_EQ(aliases.instance_of(kOther, hash(1003)), hash(1));
    EXPECT_EQ(aliases.instance_of(kWriter, hash(11)), hash(1));
}

TEST(KeyAliases, WritersAreForgotten) {
    MemoryBudget budget(1 << 20);
    KeyAliases aliases(budget);
    aliases.note(kOther, hash(1), hash(2));
    const size_t of_other = budget.used();
    EXPECT_GT(of_other, 0u);
    for (uint32_t i = 0; i < 100; ++i)
        aliases.note(kWriter, hash(i + 1000), hash(1));
    aliases.forget(kWriter);
    EXPECT_EQ(aliases.instance_of(kWriter, hash(1000)), hash(1000));
    EXPECT_EQ(aliases.instance_of(kOther, hash(1)), hash(2));
    EXPECT_EQ(budget.used(), of_other);
}

TEST(KeyAliases, NoMoreAreKeptThanTheBudgetAllows) {
    MemoryBudget budget(20000);
    KeyAliases aliases(budget);
    for (uint32_t i = 0; i < 1000; ++i)
        aliases.note(kWriter, hash(i + 1000), hash(1));
    EXPECT_LE(budget.used(), 10000u);
    EXPECT_EQ(aliases.instance_of(kWriter, hash(1000)), hash(1000));
    EXPECT_EQ(aliases.instance_of(kWriter, hash(1999)), hash(1));
}

} // namespace
} // namespace meridian::dcps
