#include "rtps/protocol/early_packets.h"

#include <gtest/gtest.h>

namespace meridian::rtps {
namespace {

using std::chrono::milliseconds;

Guid writer(uint32_t entity) {
    return {GuidPrefix{{1}}, EntityId{entity}};
}

std::vector<int> taken(EarlyPackets& packets, uint32_t entity, MonotonicTime now) {
    std::vector<int> first_bytes;
    for (const EarlyPackets::Packet& packet : packets.take(writer(entity), now))
        first_bytes.push_back(packet.datagram->at(0));
    return first_bytes;
}

TEST(EarlyPackets, ArriveInOrderAndOnce) {
    EarlyPackets packets;
    for (uint8_t i = 0; i < 4; ++i)
        packets.add({writer(i % 2u)}, ByteBuffer{i}, Locator{}, milliseconds(i));
    EXPECT_EQ(taken(packets, 0, milliseconds(10)), (std::vector<int>{0, 2}));
    EXPECT_EQ(taken(packets, 0, milliseconds(10)), (std::vector<int>{}));
    EXPECT_EQ(taken(packets, 1, milliseconds(10)), (std::vector<int>{1, 3}));
    EXPECT_TRUE(packets.empty());
}

TEST(EarlyPackets, OneDatagramMayBeOfSeveralWriters) {
    EarlyPackets packets;
    packets.add({writer(1), writer(2)}, ByteBuffer{7}, Locator{}, milliseconds(0));
    EXPECT_EQ(taken(packets, 1, milliseconds(1)), (std::vector<int>{7}));
    EXPECT_EQ(taken(packets, 2, milliseconds(1)), (std::vector<int>{7}));
}

TEST(EarlyPackets, AreForgottenAfterTheirLife) {
    EarlyPackets packets;
    packets.add({writer(1)}, ByteBuffer{7}, Locator{}, milliseconds(0));
    packets.add({writer(1)}, ByteBuffer{8}, Locator{}, milliseconds(500));
    EXPECT_EQ(taken(packets, 1, milliseconds(2501)), (std::vector<int>{8}));
}

TEST(EarlyPackets, TheOldestGiveWay) {
    EarlyPackets packets;
    for (size_t i = 0; i < EarlyPackets::kMaxPackets + 3; ++i)
        packets.add({writer(1)}, ByteBuffer{static_cast<uint8_t>(i & 0xff)}, Locator{}, milliseconds(0));
    const auto kept = taken(packets, 1, milliseconds(0));
    EXPECT_EQ(kept.size(), EarlyPackets::kMaxPackets);
    EXPECT_EQ(kept.front(), 3);

    for (int i = 0; i < 200; ++i)
        packets.add({writer(1)}, ByteBuffer(60000, static_cast<uint8_t>(i)), Locator{}, milliseconds(0));
    EXPECT_LE(taken(packets, 1, milliseconds(0)).size(), EarlyPackets::kMaxBytes / 60000);
}

TEST(EarlyPackets, TakeOfTheBudgetWhatTheyNeed) {
    MemoryBudget& budget = MemoryBudget::of_process();
    const size_t before = budget.used();
    EarlyPackets packets;
    packets.add({writer(1)}, ByteBuffer(5000), Locator{}, milliseconds(0));
    packets.add({writer(2)}, ByteBuffer(5000), Locator{}, milliseconds(0));
    EXPECT_GE(budget.used(), before + 10000);
    taken(packets, 1, milliseconds(1));
    EXPECT_LT(budget.used(), before + 10000);
    packets.add({writer(2)}, ByteBuffer(5000), Locator{}, milliseconds(5000));
    taken(packets, 2, milliseconds(5000));
    EXPECT_EQ(budget.used(), before);
}

} // namespace
} // namespace meridian::rtps
