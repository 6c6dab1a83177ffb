// Which addresses messages go to, and what is put into one datagram.

#include <gtest/gtest.h>

#include "protocol/captured_output.h"
#include "rtps/protocol/locator_choice.h"
#include "rtps/protocol/message_batcher.h"

namespace meridian::rtps::test {
namespace {

/// Reaches 10.x.x.x well, 127.0.0.1 even better but only for peers on this host (announced from 127.0.0.1).
class Ranking final : public Output {
  public:
    void send(ByteView, const Locator&) override {}
    int preference(const Locator& locator, const Locator& announced_from) const override {
        if (locator.address[12] == 127)
            return announced_from.address[12] == 127 ? 2 : 0;
        return locator.address[12] == 10 ? 1 : 0;
    }
};

Locator loopback() {
    Locator locator = udpv4(1);
    locator.address[12] = 127;
    return locator;
}

Locator of_kind(int32_t kind) {
    Locator locator = udpv4(1);
    locator.kind = kind;
    return locator;
}

TEST(LocatorChoice, OneGoodAddressIsChosen) {
    const Ranking output;
    const LocatorList announced{loopback(), udpv4(5), udpv4(6)};
    EXPECT_EQ(choose_locators(announced, loopback(), output), (LocatorList{loopback()}));
    EXPECT_EQ(choose_locators(announced, udpv4(9), output), (LocatorList{udpv4(5)}));
    EXPECT_EQ(choose_locators(announced, udpv4(6, 1234), output), (LocatorList{udpv4(6)}));
    EXPECT_EQ(choose_locators({}, udpv4(6), output), LocatorList{});
}

TEST(LocatorChoice, TheChoiceStaysWhileItIsAsGoodAsAnother) {
    const Ranking output;
    const LocatorList announced{udpv4(5), udpv4(6), udpv4(7)};
    EXPECT_EQ(choose_locators(announced, udpv4(7), output, {udpv4(6)}), (LocatorList{udpv4(6)}));
    EXPECT_EQ(choose_locators({udpv4(5), udpv4(7)}, udpv4(7), output, {udpv4(6)}), (LocatorList{udpv4(7)}));
    EXPECT_EQ(choose_locators({udpv4(6), loopback()}, loopback(), output, {udpv4(6)}),
              (LocatorList{loopback()}));
}

TEST(LocatorChoice, WhatIsNoUsableUdpAddressIsSkipped) {
    const Ranking output;
    Locator group = udpv4(1);
    group.address = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 239, 255, 0, 1};
    const LocatorList announced{of_kind(16), of_kind(0x01000000), of_kind(4),      of_kind(-1),
                                group,       udpv4(3, 0),         udpv4(3, 70000), udpv4(3)};
    EXPECT_EQ(choose_locators(announced, {}, output), (LocatorList{udpv4(3)}));
}

class MessageBatcherTest : public ::testing::Test {
  protected:
    Data data(SequenceNumber number, const ByteBuffer& bytes) {
        Data d;
        d.sequence_number = number;
        d.has_payload = true;
        d.payload = bytes;
        return d;
    }
    static AckNack acknack(SequenceNumber base) {
        AckNack a;
        a.missing.base = base;
        return a;
    }
    CapturedOutput output;
    MessageBatcher batcher{prefix(1), 1000, output};
    ByteBuffer payload = ByteBuffer(300);
};

TEST_F(MessageBatcherTest, OneDatagramPerDestinationWhileThereIsRoom) {
    const Route a{prefix(2), {udpv4(2)}};
    const Route b{prefix(3), {udpv4(3)}};
    for (SequenceNumber n = 1; n <= 4; ++n) {
        batcher.add(a, data(n, payload), WireTime{1, 1});
        batcher.add(b, Heartbeat{});
    }
    EXPECT_EQ(output.messages.size(), 1u); // the first one to a was full
    batcher.flush();
    ASSERT_EQ(output.messages.size(), 3u);
    for (const auto& message : output.messages)
        EXPECT_LE(message.bytes.size(), 1000u);
    EXPECT_EQ(output.take(), (Lines{"DATA 1", "DATA 2", "DATA 3", "DATA 4", "HEARTBEAT 1..0",
                                    "HEARTBEAT 1..0", "HEARTBEAT 1..0", "HEARTBEAT 1..0"}));
    batcher.flush();
    EXPECT_TRUE(output.messages.empty());
}

TEST_F(MessageBatcherTest, TheDestinationIsSaidForEachParticipantBehindOneAddress) {
    batcher.add(Route{prefix(2), {udpv4(2)}}, Heartbeat{});
    batcher.add(Route{prefix(3), {udpv4(2)}}, Heartbeat{});
    batcher.add(Route{kUnknownPrefix, {udpv4(2)}}, Heartbeat{});
    batcher.flush();
    ASSERT_EQ(output.messages.size(), 1u);
    EXPECT_EQ(output.parse().destinations, (std::vector<GuidPrefix>{prefix(2), prefix(3), kUnknownPrefix}));
}

TEST_F(MessageBatcherTest, EachSampleKeepsItsTimestamp) {
    class Times final : public MessageVisitor {
      public:
        std::vector<std::optional<WireTime>> times;
        void on_data(const MessageContext& context, const Data&) override {
            times.push_back(context.timestamp);
        }
    };
    const Route route{prefix(2), {udpv4(2)}};
    const ByteBuffer small(4);
    const std::vector<std::optional<WireTime>> expected{WireTime{1, 0}, WireTime{1, 0}, std::nullopt,
                                                        WireTime{2, 0}};
    for (const auto& time : expected)
        batcher.add(route, data(1, small), time);
    batcher.flush();
    Times times;
    read_message(output.messages.at(0).bytes, times);
    EXPECT_EQ(times.times, expected);
}

TEST_F(MessageBatcherTest, APayloadOfTheLargestSizeFitsAndALargerMessageIsDropped) {
    const Route route{prefix(2), {udpv4(2)}};
    const ByteBuffer largest(batcher.max_payload(0));
    batcher.add(route, data(1, largest), WireTime{1, 0});
    const ByteBuffer too_large(1000);
    batcher.add(route, data(2, too_large), WireTime{1, 0});
    batcher.add(route, Heartbeat{});
    batcher.flush();
    EXPECT_EQ(output.take(), (Lines{"DATA 1", "HEARTBEAT 1..0"}));
}

TEST_F(MessageBatcherTest, ManyDestinationsAreAllServed) {
    for (uint32_t port = 1; port <= 300; ++port)
        batcher.add(Route{prefix(2), {udpv4(2, port)}}, Heartbeat{});
    batcher.flush();
    EXPECT_EQ(output.messages.size(), 300u);
}

TEST_F(MessageBatcherTest, WhatMayWaitGoesAtTheLatestAPauseAfterTheDatagramBefore) {
    const Route route{prefix(2), {udpv4(2)}};
    const MonotonicTime start = std::chrono::seconds(1);
    batcher.add(route, acknack(1), Haste::may_wait);
    batcher.flush_due(start);
    EXPECT_EQ(output.take(), (Lines{"ACKNACK 1 {}"})); // there was no datagram before
    EXPECT_EQ(batcher.next_deadline(), kNever);

    const MonotonicTime due = start + MessageBatcher::kLongestWait;
    batcher.add(route, acknack(2), Haste::may_wait);
    batcher.add(route, acknack(3), Haste::may_wait);
    EXPECT_EQ(batcher.next_deadline(), due);
    batcher.flush_due(due - MonotonicTime{1});
    EXPECT_TRUE(output.messages.empty());
    EXPECT_EQ(batcher.next_deadline(), due);
    batcher.flush_due(due);
    EXPECT_EQ(output.messages.size(), 1u);
    EXPECT_EQ(output.take(), (Lines{"ACKNACK 2 {}", "ACKNACK 3 {}"}));
}

TEST_F(MessageBatcherTest, WhatMayWaitGoesWithWhatMustNot) {
    const Route route{prefix(2), {udpv4(2)}};
    const MonotonicTime start = std::chrono::seconds(1);
    batcher.add(route, acknack(1));
    batcher.flush_due(start);
    batcher.add(route, acknack(2), Haste::may_wait);
    batcher.add(Route{prefix(3), {udpv4(3)}}, Heartbeat{});
    batcher.flush_due(start);
    EXPECT_EQ(output.take(), (Lines{"ACKNACK 1 {}", "HEARTBEAT 1..0"}));
    batcher.add(route, Heartbeat{});
    batcher.flush_due(start);
    EXPECT_EQ(output.take(), (Lines{"ACKNACK 2 {}", "HEARTBEAT 1..0"}));
    EXPECT_EQ(batcher.next_deadline(), kNever);
}

TEST_F(MessageBatcherTest, NothingThatWaitsIsForgottenWhereThereAreManyDestinations) {
    for (int round = 1; round <= 2; ++round) {
        for (uint32_t port = 1; port <= 300; ++port)
            batcher.add(Route{prefix(2), {udpv4(2, port)}}, acknack(round), Haste::may_wait);
        batcher.flush_due(std::chrono::seconds(1));
    }
    batcher.flush_due(std::chrono::seconds(2));
    EXPECT_EQ(output.messages.size(), 600u);
}

} // namespace
} // namespace meridian::rtps::test
