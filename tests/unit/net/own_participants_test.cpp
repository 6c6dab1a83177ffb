#include "rtps/net/own_participants.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <set>

#include "rtps/net/receive_thread.h"

namespace meridian::rtps::net {
namespace {

uint32_t word(const GuidPrefix& prefix, size_t index) {
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i)
        value = value << 8 | prefix.bytes[index * 4 + i];
    return value;
}

TEST(OwnParticipants, WordsAreVendorAndHostThenProcessThenUnique) {
    OwnParticipants own;
    const GuidPrefix first = own.choose(0, 0, 0);
    const GuidPrefix second = own.choose(0, 0, 0);
    EXPECT_EQ(first.bytes[0], kOwnVendorId.bytes[0]);
    EXPECT_EQ(first.bytes[1], kOwnVendorId.bytes[1]);
    EXPECT_EQ(word(first, 1), static_cast<uint32_t>(getpid()));
    EXPECT_EQ(word(first, 0), word(second, 0));
    EXPECT_EQ(word(first, 1), word(second, 1));
    EXPECT_NE(word(first, 2), word(second, 2));
    EXPECT_NE(word(first, 2), 0u);
}

TEST(OwnParticipants, TwoProcessesChooseDifferently) {
    OwnParticipants own;
    OwnParticipants other;
    EXPECT_NE(own.choose(0, 0, 0), other.choose(0, 0, 0));
}

TEST(OwnParticipants, GivenWordsStand) {
    OwnParticipants own;
    const GuidPrefix prefix = own.choose(0x01020304, 0x0a0b0c0d, 0xf0f1f2f3);
    EXPECT_EQ(to_string(prefix), "01020304.0a0b0c0d.f0f1f2f3");
    EXPECT_EQ(word(own.choose(0, 4711, 0), 1), 4711u);
}

TEST(OwnParticipants, RemembersAll) {
    OwnParticipants own;
    std::set<GuidPrefix> chosen;
    for (int i = 0; i < 1000; ++i)
        chosen.insert(own.choose(0, 0, 0));
    EXPECT_EQ(chosen.size(), 1000u);
    for (const GuidPrefix& prefix : chosen)
        EXPECT_TRUE(own.contains(prefix));
    EXPECT_FALSE(own.contains(GuidPrefix{}));
    EXPECT_FALSE(own.contains(OwnParticipants().choose(1, 2, 3)));
}

TEST(OwnParticipants, EntitiesAreUniqueAmongAllOfThem) {
    OwnParticipants own;
    const EntityId first = own.new_entity(kUserReaderWithKey);
    const EntityId second = own.new_entity(kUserReaderWithKey);
    EXPECT_EQ(first.value, 0x107u);
    EXPECT_EQ(second.value, 0x207u);
    EXPECT_EQ(own.new_entity(kUserReaderNoKey).value, 0x304u);
}

TEST(OwnParticipants, SocketsAreSharedWhereTheirConfigurationIsTheSame) {
    OwnParticipants own;
    std::string error;
    TransportConfig config;
    config.v4.receive_socket_buffer_size = 65536;
    const auto first = own.receive_thread(config, error);
    ASSERT_TRUE(first) << error;
    EXPECT_EQ(own.receive_thread(config, error), first);
    EXPECT_EQ(first->participant_index(), 0u);

    TransportConfig other = config;
    other.mask = kTransportUdpV4;
    const auto second = own.receive_thread(other, error);
    ASSERT_TRUE(second) << error;
    EXPECT_NE(second, first);
    EXPECT_EQ(second->participant_index(), 1u);
    for (const auto change :
         {+[](TransportConfig& c) { c.domain_id = 1; }, +[](TransportConfig& c) { c.participant_index = 9; },
          +[](TransportConfig& c) { c.v4.multicast_ttl = 2; },
          +[](TransportConfig& c) { c.v6.message_size_max = 1000; },
          +[](TransportConfig& c) { c.v4.allow_interfaces = {"lo"}; },
          +[](TransportConfig& c) { c.receive_buffer_size = 1000; }}) {
        other = config;
        change(other);
        EXPECT_FALSE(other == config);
    }
    EXPECT_EQ(OwnParticipants().receive_thread(config, error)->participant_index(), 2u)
        << "of another process";
}

TEST(OwnParticipants, SocketsAreClosedWithTheLastOfThem) {
    OwnParticipants own;
    std::string error;
    TransportConfig config;
    config.v4.receive_socket_buffer_size = 65536;
    auto thread = own.receive_thread(config, error);
    ASSERT_TRUE(thread) << error;
    thread.reset();
    thread = own.receive_thread(config, error);
    ASSERT_TRUE(thread) << error;
    EXPECT_EQ(thread->participant_index(), 0u);
}

} // namespace
} // namespace meridian::rtps::net
