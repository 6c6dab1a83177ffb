#include "rtps/protocol/reliable_writer.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "protocol/captured_output.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr EntityId kWriter{0x00000102};

class ReliableWriterTest : public ::testing::Test {
  protected:
    void make(Durability durability, HistoryKind history = HistoryKind::keep_all, int32_t depth = 1) {
        EndpointQos qos;
        qos.durability = durability;
        qos.history = history;
        qos.history_depth = depth;
        writer = std::make_unique<ReliableWriter>(kWriter, qos, WriterConfig{}, batcher, timers);
    }
    Guid reader_guid(uint8_t participant, uint32_t entity = 0x107) {
        return {prefix(participant), EntityId{entity}};
    }
    void add_reader(const Guid& guid, bool transient_local = false, bool reliable = true,
                    uint8_t quirks = 0) {
        RemoteReader reader;
        reader.guid = guid;
        reader.route = {guid.prefix, {udpv4(guid.prefix.bytes[11])}};
        reader.reliable = reliable;
        reader.transient_local = transient_local;
        reader.quirks.flags = quirks;
        writer->add_reader(reader, now);
    }
    SequenceNumber write(size_t size = 8, uint8_t instance = 0, uint32_t status = 0) {
        const ByteBuffer payload(size, 7);
        WriteRequest request;
        request.payload = payload;
        request.instance = KeyHash{instance};
        request.inline_qos.status_info = status;
        return writer->write(request, Now{now, {1, 0}}).value_or(0);
    }
    SequenceNumber write_for(uint8_t participant) {
        WriteRequest request;
        request.only_for = prefix(participant);
        return writer->write(request, Now{now, {1, 0}}).value_or(0);
    }
    void acknack(const Guid& reader, SequenceNumber base, std::vector<SequenceNumber> missing = {},
                 bool final = true) {
        acknack_with_count(reader, base, missing, final, ++count);
    }
    void acknack_with_count(const Guid& reader, SequenceNumber base,
                            const std::vector<SequenceNumber>& missing, bool final, Count c) {
        AckNack a;
        a.missing.base = base;
        for (SequenceNumber n : missing)
            a.missing.insert(n);
        a.final = final;
        a.count = c;
        writer->on_acknack(reader, a, now);
    }
    Lines sent() {
        timers.run(now);
        batcher.flush();
        return output.take();
    }
    Lines sent_after(Duration pause) {
        now += pause;
        return sent();
    }

    MonotonicTime now = seconds(1);
    Count count = 0;
    CapturedOutput output;
    MessageBatcher batcher{prefix(1), 1400, output};
    TimerQueue timers;
    std::unique_ptr<ReliableWriter> writer;
};

TEST_F(ReliableWriterTest, SaysWhatItHasRightAfterAMatchUntilTheReaderAnswers) {
    make(Durability::transient_local);
    add_reader(reader_guid(2), true);
    EXPECT_EQ(sent(), (Lines{"HEARTBEAT 1..0"}));
    EXPECT_EQ(sent_after(milliseconds(100)), (Lines{"HEARTBEAT 1..0"}));
    EXPECT_EQ(sent_after(milliseconds(99)), Lines{});
    EXPECT_EQ(sent_after(milliseconds(1)), (Lines{"HEARTBEAT 1..0"}));
    acknack(reader_guid(2), 1, {}, true);
    EXPECT_EQ(sent_after(seconds(60)), Lines{});
    EXPECT_EQ(timers.next_deadline(), kNever);
}

// OpenDDS up to 3.13 answers each heartbeat without a number with an ACKNACK that breaks off.
TEST_F(ReliableWriterTest, SaysNothingToAReaderThatKnowsNoEmptyRange) {
    make(Durability::transient_local);
    add_reader(reader_guid(2), true, true, kKnowsNoEmptyRange);
    EXPECT_EQ(sent_after(seconds(60)), Lines{});
    acknack(reader_guid(2), 1, {}, false);
    EXPECT_EQ(sent_after(seconds(60)), Lines{});
    writer->assert_liveliness();
    EXPECT_EQ(sent(), (Lines{"HEARTBEAT 1..0 final liveliness"}));
    write();
    EXPECT_EQ(sent(), (Lines{"DATA 1", "HEARTBEAT 1..1"}));
    acknack(reader_guid(2), 1, {1}, false);
    EXPECT_EQ(sent(), (Lines{"DATA 1", "HEARTBEAT 1..1"}));
}

TEST_F(ReliableWriterTest, SendsAtOnceWithAHeartbeatAndRepeatsItWithGrowingPauses) {
    make(Durability::volatile_);
    add_reader(reader_guid(2));
    acknack(reader_guid(2), 1);
    sent();
    EXPECT_EQ(write(), 1);
    EXPECT_EQ(sent(), (Lines{"DATA 1", "HEARTBEAT 1..1"}));
    EXPECT_EQ(write(), 2);
    EXPECT_EQ(sent(), (Lines{"DATA 2"}));
    EXPECT_EQ(sent_after(milliseconds(100)), (Lines{"HEARTBEAT 1..2"}));
    EXPECT_EQ(sent_after(milliseconds(100)), (Lines{"HEARTBEAT 1..2"}));
    EXPECT_EQ(sent_after(milliseconds(100)), Lines{});
    EXPECT_EQ(sent_after(milliseconds(100)), (Lines{"HEARTBEAT 1..2"}));
    acknack(reader_guid(2), 3);
    EXPECT_EQ(sent_after(seconds(60)), Lines{});
    EXPECT_TRUE(writer->all_acknowledged());
    EXPECT_EQ(writer->kept_samples(), 0u);
}

TEST_F(ReliableWriterTest, FlagsThatNoParameterCarriesMakeNoParameterList) {
    make(Durability::volatile_);
    add_reader(reader_guid(2), false, false);
    const auto size_with_flags = [this](uint32_t flags) {
        WriteRequest request;
        request.inline_qos.sample_flags = flags;
        writer->write(request, Now{now, {1, 0}});
        batcher.flush();
        const size_t size = output.messages.back().bytes.size();
        output.messages.clear();
        return size;
    };
    const size_t plain = size_with_flags(0);
    EXPECT_EQ(size_with_flags(1), plain);
}

TEST_F(ReliableWriterTest, EverySixteenthSampleCarriesAHeartbeat) {
    make(Durability::volatile_);
    add_reader(reader_guid(2));
    sent();
    for (int i = 0; i < 33; ++i)
        write();
    const Lines lines = sent();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(), [](const std::string& l) { return l[0] == 'H'; }), 3);
}

TEST_F(ReliableWriterTest, AnswersAPreemptiveAcknowledgementAtOnce) {
    make(Durability::transient_local);
    write();
    add_reader(reader_guid(2), true);
    sent();
    acknack(reader_guid(2), 1, {}, false);
    EXPECT_EQ(sent(), (Lines{"HEARTBEAT 1..1"}));
}

TEST_F(ReliableWriterTest, FastDdsBeginsWithBaseZero) {
    make(Durability::transient_local);
    write();
    add_reader(reader_guid(2), true);
    sent();
    acknack_with_count(reader_guid(2), 0, {}, false, 0);
    EXPECT_EQ(sent(), (Lines{"HEARTBEAT 1..1"}));
    EXPECT_FALSE(writer->all_acknowledged());
}

TEST_F(ReliableWriterTest, SendsAgainWhatIsAskedForAndGapsForWhatIsGone) {
    make(Durability::transient_local, HistoryKind::keep_last, 1);
    add_reader(reader_guid(2), true);
    write(8, 1);
    write(8, 2);
    write(8, 1); // replaces 1
    write(8, 3);
    write(8, 3); // replaces 4
    sent();
    acknack(reader_guid(2), 1, {1, 2, 3, 4, 5, 6}, false);
    EXPECT_EQ(sent(), (Lines{"DATA 2", "DATA 3", "DATA 5", "GAP 1..1 {4}", "HEARTBEAT 2..5"}));
}

TEST_F(ReliableWriterTest, NeighbouringGapsShareASubmessage) {
    make(Durability::volatile_);
    for (int i = 0; i < 10; ++i)
        write();
    add_reader(reader_guid(2));
    write();
    sent();
    acknack(reader_guid(2), 2, {2, 3, 4, 6, 9, 11}, false);
    EXPECT_EQ(sent(), (Lines{"DATA 11", "GAP 2..10 {}", "HEARTBEAT 11..11"}));
}

TEST_F(ReliableWriterTest, AVolatileReaderThatComesLateIsToldToStartAfterThePast) {
    make(Durability::transient_local);
    write();
    write();
    add_reader(reader_guid(2), false);
    EXPECT_EQ(sent(), (Lines{"HEARTBEAT 3..2"}));
    EXPECT_TRUE(writer->all_acknowledged());
    add_reader(reader_guid(3), true);
    EXPECT_EQ(sent(), (Lines{"HEARTBEAT 1..2"}));
}

TEST_F(ReliableWriterTest, AVolatileReaderGetsGapsWhenItAsksForThePast) {
    make(Durability::transient_local);
    write();
    write();
    add_reader(reader_guid(2), false);
    write();
    sent();
    acknack(reader_guid(2), 1, {1, 2, 3}, false);
    EXPECT_EQ(sent(), (Lines{"DATA 3", "GAP 1..2 {}", "HEARTBEAT 3..3"}));
}

TEST_F(ReliableWriterTest, RepeatedAndOldAcknowledgementsAreIgnored) {
    make(Durability::transient_local);
    write();
    add_reader(reader_guid(2), true);
    sent();
    acknack_with_count(reader_guid(2), 1, {1}, false, 5);
    EXPECT_EQ(sent(), (Lines{"DATA 1", "HEARTBEAT 1..1"}));
    acknack_with_count(reader_guid(2), 1, {1}, false, 5);
    acknack_with_count(reader_guid(2), 1, {1}, false, 4);
    EXPECT_EQ(sent(), Lines{});
    now += milliseconds(100);
    acknack_with_count(reader_guid(2), 1, {1}, false, 6);
    EXPECT_EQ(sent(), (Lines{"DATA 1", "HEARTBEAT 1..1"}));
}

TEST_F(ReliableWriterTest, AForgedCountKeepsRequestsOutForAMoment) {
    make(Durability::transient_local);
    write(3000);
    add_reader(reader_guid(2), true);
    sent();
    acknack_with_count(reader_guid(2), 1, {}, true, 1 << 30);
    now += milliseconds(900);
    acknack_with_count(reader_guid(2), 1, {1}, true, 5);
    sent();
    now += milliseconds(100);
    acknack_with_count(reader_guid(2), 1, {1}, true, 6);
    EXPECT_EQ(sent().size(), 4u); // three fragments and a heartbeat
    NackFrag nack{EntityId{0x107}, kWriter, 1, {}, 1 << 30};
    nack.missing.base = 1;
    nack.missing.insert(2);
    writer->on_nack_frag(reader_guid(2), nack, now);
    sent();
    sent_after(seconds(1));
    nack.count = 3;
    writer->on_nack_frag(reader_guid(2), nack, now);
    EXPECT_EQ(sent().size(), 2u); // one fragment and a heartbeat
}

TEST_F(ReliableWriterTest, WhatIsAskedForAgainAndAgainIsSentAsOftenAsAllOfItInAPeriod) {
    make(Durability::transient_local);
    for (int i = 0; i < 4; ++i)
        write();
    add_reader(reader_guid(2), true);
    sent();
    const auto count_of = [](const Lines& lines, const char* line) {
        return std::count(lines.begin(), lines.end(), line);
    };
    for (int i = 0; i < 1000; ++i)
        acknack(reader_guid(2), 1, {1, 2}, false);
    const Lines answers = sent();
    EXPECT_EQ(count_of(answers, "DATA 1"), 2);
    EXPECT_EQ(count_of(answers, "DATA 2"), 2);
    EXPECT_LE(answers.size(), 8u);
    now += milliseconds(100);
    sent();
    acknack(reader_guid(2), 1, {1, 2}, false);
    EXPECT_EQ(sent(), (Lines{"DATA 1", "DATA 2", "HEARTBEAT 1..4"}));
}

TEST_F(ReliableWriterTest, RequestsForAHeartbeatAreAnsweredOncePerPeriod) {
    make(Durability::transient_local);
    write();
    add_reader(reader_guid(2), true);
    sent();
    for (int i = 0; i < 1000; ++i)
        acknack(reader_guid(2), 1, {}, false);
    EXPECT_EQ(sent(), (Lines{"HEARTBEAT 1..1"}));
    EXPECT_EQ(sent_after(milliseconds(100)), (Lines{"HEARTBEAT 1..1"}));
}

TEST_F(ReliableWriterTest, AcknowledgementCountsWrapAround) {
    make(Durability::transient_local);
    write();
    add_reader(reader_guid(2), true);
    sent();
    acknack_with_count(reader_guid(2), 1, {1}, false, 0x7fffffff);
    now += milliseconds(100);
    acknack_with_count(reader_guid(2), 1, {1}, false, static_cast<Count>(0x80000000u));
    EXPECT_EQ(sent(), (Lines{"DATA 1", "HEARTBEAT 1..1", "DATA 1", "HEARTBEAT 1..1"}));
}

TEST_F(ReliableWriterTest, AReaderThatBeganAnewIsServedFromTheStart) {
    make(Durability::transient_local);
    write();
    add_reader(reader_guid(2), true);
    acknack_with_count(reader_guid(2), 2, {}, true, 100);
    sent();
    acknack_with_count(reader_guid(2), 1, {}, false, 1);
    EXPECT_EQ(sent(), (Lines{"HEARTBEAT 1..1"}));
    acknack_with_count(reader_guid(2), 1, {1}, false, 2);
    EXPECT_EQ(sent(), (Lines{"DATA 1", "HEARTBEAT 1..1"}));
}

TEST_F(ReliableWriterTest, AnAcknowledgementFromAnEarlierLifeDoesNotEndTheHeartbeats) {
    make(Durability::transient_local);
    write();
    add_reader(reader_guid(2), true);
    sent();
    acknack(reader_guid(2), 50);
    EXPECT_EQ(sent_after(milliseconds(100)), (Lines{"HEARTBEAT 1..1"}));
    EXPECT_FALSE(writer->all_acknowledged());
}

TEST_F(ReliableWriterTest, LargeSamplesGoAsFragmentsAndSingleOnesAgain) {
    make(Durability::volatile_);
    add_reader(reader_guid(2));
    acknack(reader_guid(2), 1);
    sent();
    write(3000);
    EXPECT_EQ(sent(), (Lines{"DATA_FRAG 1 1", "DATA_FRAG 1 2", "DATA_FRAG 1 3", "HEARTBEAT 1..1"}));
    NackFrag nack;
    nack.sequence_number = 1;
    nack.missing.base = 2;
    nack.missing.insert(2);
    nack.count = 1;
    writer->on_nack_frag(reader_guid(2), nack, now);
    writer->on_nack_frag(reader_guid(2), nack, now); // repeated
    EXPECT_EQ(sent(), (Lines{"DATA_FRAG 1 2", "HEARTBEAT 1..1"}));
    nack.count = 2;
    nack.sequence_number = 99;
    writer->on_nack_frag(reader_guid(2), nack, now); // never written
    EXPECT_EQ(sent(), Lines{});
    acknack(reader_guid(2), 2);
    nack.count = 3;
    nack.sequence_number = 1;
    writer->on_nack_frag(reader_guid(2), nack, now); // gone
    EXPECT_EQ(sent(), (Lines{"GAP 1..1 {}"}));
}

TEST_F(ReliableWriterTest, FragmentsHoldThePayloadAndFitTheMessageSize) {
    class Reassembly final : public MessageVisitor {
      public:
        ByteBuffer bytes;
        void on_data_frag(const MessageContext&, const DataFrag& f) override {
            bytes.insert(bytes.end(), f.payload.begin(), f.payload.end());
            if (bytes.size() > f.sample_size)
                bytes.resize(f.sample_size);
        }
    };
    make(Durability::volatile_);
    add_reader(reader_guid(2));
    ByteBuffer payload(5001);
    for (size_t i = 0; i < payload.size(); ++i)
        payload[i] = static_cast<uint8_t>(i * 7 + i / 256);
    WriteRequest request;
    request.payload = payload;
    writer->write(request, Now{now, {1, 0}});
    batcher.flush();
    Reassembly reassembly;
    for (const auto& message : output.messages) {
        EXPECT_LE(message.bytes.size(), 1400u);
        EXPECT_EQ(read_message(message.bytes, reassembly), ReadStatus::ok);
    }
    EXPECT_EQ(reassembly.bytes, payload);
}

TEST_F(ReliableWriterTest, ReadersOfOneParticipantShareACopy) {
    make(Durability::volatile_);
    add_reader(reader_guid(2, 0x107), false, false);
    add_reader(reader_guid(2, 0x207), false, false);
    add_reader(reader_guid(3, 0x107), false, false);
    write();
    EXPECT_EQ(sent(), (Lines{"DATA 1", "DATA 1"}));
}

TEST_F(ReliableWriterTest, BestEffortReadersGetNoHeartbeatsAndHoldNothing) {
    make(Durability::volatile_);
    add_reader(reader_guid(2), false, false);
    write();
    EXPECT_EQ(sent(), (Lines{"DATA 1"}));
    EXPECT_EQ(sent_after(seconds(10)), Lines{});
    EXPECT_EQ(writer->kept_samples(), 0u);
    acknack(reader_guid(2), 1, {1}, false);
    EXPECT_EQ(sent(), Lines{});
}

TEST_F(ReliableWriterTest, ASampleIsKeptUntilTheSlowestReaderHasIt) {
    make(Durability::volatile_);
    add_reader(reader_guid(2));
    add_reader(reader_guid(3));
    write();
    acknack(reader_guid(2), 2);
    EXPECT_EQ(writer->kept_samples(), 1u);
    EXPECT_FALSE(writer->all_acknowledged());
    writer->remove_reader(reader_guid(3));
    EXPECT_EQ(writer->kept_samples(), 0u);
    EXPECT_TRUE(writer->all_acknowledged());
}

TEST_F(ReliableWriterTest, OnlyTheLastThousandDisposalsAreKept) {
    make(Durability::transient_local, HistoryKind::keep_last, 1);
    for (int i = 0; i < 1200; ++i) {
        KeyHash instance{};
        instance[0] = static_cast<uint8_t>(i);
        instance[1] = static_cast<uint8_t>(i >> 8);
        WriteRequest request;
        request.instance = instance;
        writer->write(request, Now{now, {1, 0}});
        request.inline_qos.status_info = 3;
        writer->write(request, Now{now, {1, 0}});
    }
    EXPECT_EQ(writer->kept_samples(), 1000u);
}

TEST_F(ReliableWriterTest, LivelinessIsAssertedByAHeartbeat) {
    make(Durability::volatile_);
    add_reader(reader_guid(2));
    sent();
    writer->assert_liveliness();
    EXPECT_EQ(sent(), (Lines{"HEARTBEAT 1..0 final liveliness"}));
}

TEST_F(ReliableWriterTest, WhatIsForOneParticipantReachesNoOther) {
    make(Durability::volatile_, HistoryKind::keep_last, 2);
    add_reader(reader_guid(2));
    add_reader(reader_guid(3));
    acknack(reader_guid(2), 1);
    acknack(reader_guid(3), 1);
    sent();
    EXPECT_EQ(write_for(2), 1);
    batcher.flush();
    ASSERT_EQ(output.messages.size(), 1u);
    EXPECT_EQ(output.messages[0].destination, udpv4(2));
    EXPECT_EQ(sent(), (Lines{"DATA 1", "HEARTBEAT 1..1"}));
    // The first stays unacknowledged; the next is the first that the other one hears of.
    EXPECT_EQ(write_for(3), 2);
    batcher.flush();
    ASSERT_EQ(output.messages.size(), 1u);
    EXPECT_EQ(output.messages[0].destination, udpv4(3));
    EXPECT_EQ(sent(), (Lines{"DATA 2", "HEARTBEAT 2..2"}));
    acknack(reader_guid(3), 3);
    EXPECT_EQ(sent(), Lines{});
    acknack(reader_guid(2), 1, {1, 2});
    EXPECT_EQ(sent(), (Lines{"DATA 1", "GAP 2..2 {}", "HEARTBEAT 1..2"}));
    for (int i = 0; i < 5; ++i)
        write_for(2);
    EXPECT_EQ(writer->kept_samples(), 2u) << "those without acknowledgement make room";
}

TEST_F(ReliableWriterTest, ALongHoleIsToldInOneGap) {
    make(Durability::transient_local, HistoryKind::keep_last);
    write(8, 1);
    for (int i = 0; i < 2000; ++i)
        write(8, 2);
    write(8, 3);
    add_reader(reader_guid(2), true);
    sent();
    acknack(reader_guid(2), 1, {1, 2, 3}, false);
    EXPECT_EQ(sent(), (Lines{"DATA 1", "GAP 2..2000 {}", "HEARTBEAT 1..2002"}));
}

} // namespace
} // namespace meridian::rtps::test
