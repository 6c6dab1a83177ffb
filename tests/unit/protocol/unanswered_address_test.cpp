// What is sent to addresses that participants announce, before an answer shows that they are their own.

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <numeric>

#include "protocol/participant_fixture.h"
#include "protocol/silent_reader.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class UnansweredAddress : public ParticipantTest {
  protected:
    /// With so many readers to tell of, and a participant whose address is that of another.
    void start_with_readers(uint32_t count) {
        config.secret_begin = 4711;
        start();
        run_until(time + seconds(1));
        for (uint32_t i = 0; i < count; ++i)
            EXPECT_TRUE(participant->add_reader(publication(1, (i << 8) + 7), {}, sink, now()));
        output.messages.clear();
        received_bytes = 0;
        ParticipantData data = remote(2);
        data.lease = kDurationInfinite;
        announce(data);
    }
    SilentReader sink;
};

TEST_F(UnansweredAddress, GetsAtMostThreeTimesWhatCameAndThenNothing) {
    start_with_readers(100);
    run_until(time + seconds(600));
    EXPECT_GT(bytes_sent_to(udpv4(2)), 0u);
    EXPECT_LE(bytes_sent_to(udpv4(2)), 3 * received_bytes);
    output.messages.clear();
    run_until(time + seconds(600));
    EXPECT_EQ(bytes_sent_to(udpv4(2)), 0u);
}

TEST_F(UnansweredAddress, GetsNoMoreForRequestsThatNameNothingOfWhatWasSent) {
    start_with_readers(100);
    std::vector<SequenceNumber> all(256);
    std::iota(all.begin(), all.end(), 1);
    acknowledge(2, 1, all, 1000);
    acknowledge(2, 1);
    acknowledge(2, 101);
    run_until(time + seconds(10));
    EXPECT_LE(bytes_sent_to(udpv4(2)), 3 * received_bytes);
    EXPECT_LE(bytes_sent_to(udpv4(2)), 4000u);
}

TEST_F(UnansweredAddress, IsConfirmedByAnAcknowledgementOfWhatWasSent) {
    start_with_readers(100);
    acknowledge(2, 4712);
    output.messages.clear();
    std::vector<SequenceNumber> all(100);
    std::iota(all.begin(), all.end(), 4712);
    acknowledge(2, 4712, all);
    EXPECT_GT(bytes_sent_to(udpv4(2)), 10000u);
    output.messages.clear();
    acknowledge(2, 4712, all, 1000);
    run_until(time + milliseconds(99));
    EXPECT_LE(bytes_sent_to(udpv4(2)), 1000u);
}

TEST_F(UnansweredAddress, IsNotConfirmedByGuesses) {
    start_with_readers(100);
    for (SequenceNumber guess = 4700; guess < 4720; ++guess)
        acknowledge(2, guess);
    run_until(time + seconds(10));
    EXPECT_LE(bytes_sent_to(udpv4(2)), 3 * received_bytes);
}

TEST_F(UnansweredAddress, GetsNoMoreFromSeveralParticipantsThatHearTheSame) {
    config.secret_begin = 4711;
    config.credits = std::make_shared<CreditLedger>();
    std::vector<std::unique_ptr<Participant>> all;
    for (uint8_t id = 101; id < 150; ++id) {
        config.prefix = prefix(id);
        all.push_back(std::make_unique<Participant>(config, output, recorder));
        all.back()->start(now());
    }
    output.messages.clear();
    ParticipantData data = remote(2);
    data.lease = kDurationInfinite;
    for (int repetition = 0; repetition < 3; ++repetition) {
        const ByteBuffer datagram = first_announcement(data);
        received_bytes += datagram.size();
        for (const auto& one : all)
            one->receive(datagram, udpv4(2, source_port), now(), one == all.front());
        for (const MonotonicTime end = time + seconds(60); time < end; time += milliseconds(100)) {
            for (const auto& one : all)
                one->on_timer(now());
        }
        EXPECT_GT(bytes_sent_to(udpv4(2)), received_bytes);
        EXPECT_LE(bytes_sent_to(udpv4(2)), 3 * received_bytes);
    }
}

TEST_F(UnansweredAddress, CountsNothingTwiceWhenAWriterBeginsAnew) {
    start_with_readers(100);
    const auto heartbeat = [this](SequenceNumber first, SequenceNumber last, Count count) {
        receive(2, [&](MessageWriter& writer) {
            writer.add_heartbeat(heartbeat_of(entity::publications_writer, first, last, count));
        });
    };
    for (Count i = 1; i < 200; i += 2) {
        heartbeat(1, 10, i);
        heartbeat(1, 0, i + 1);
    }
    run_until(time + seconds(10));
    EXPECT_LE(bytes_sent_to(udpv4(2)), 3 * received_bytes);
}

TEST_F(ParticipantTest, WhatOneAnswerCostsDoesNotGrowWithTheParticipants) {
    config.secret_begin = 4711;
    const auto time_for = [this](uint32_t others) {
        start();
        for (uint32_t i = 0; i < others; ++i) {
            ParticipantData data = remote(2);
            data.guid.prefix.bytes[1] = static_cast<uint8_t>(1 + i / 250);
            data.guid.prefix.bytes[2] = static_cast<uint8_t>(1 + i % 250);
            data.lease = kDurationInfinite;
            participant->receive(first_announcement(data), udpv4(2), now());
        }
        announce(remote(3));
        output.messages.clear();
        const std::clock_t begin = std::clock(); // of the processor: other processes do not count
        for (int i = 0; i < 20000; ++i)
            acknowledge(3, 4712);
        return static_cast<double>(std::clock() - begin);
    };
    const double few = time_for(10);
    EXPECT_LT(time_for(5000), 10 * few);
}

} // namespace
} // namespace meridian::rtps::test
