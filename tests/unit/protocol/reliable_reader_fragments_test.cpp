// Fragments, and the memory that a reliable reader takes.

#include "protocol/reliable_reader_fixture.h"
#include "support/allocation_counter.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

TEST_F(ReliableReaderTest, FragmentsBecomeASample) {
    make(false);
    fragment(1, 3);
    fragment(1, 1);
    EXPECT_TRUE(sink.numbers.empty());
    fragment(1, 2);
    fragment(1, 2);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{1}));
    EXPECT_EQ(sink.sizes, (std::vector<size_t>{25}));
}

TEST_F(ReliableReaderTest, MissingFragmentsAreAskedForOneByOne) {
    make(false);
    sent();
    fragment(1, 2);
    heartbeat(1, 2);
    EXPECT_EQ(sent(), (Lines{"ACKNACK 1 {2}", "NACK_FRAG 1 {1 3}"}));
}

// Of fragment N it sends N + 1, and of the whole sample the first one.
TEST_F(ReliableReaderTest, DustDdsIsAskedForTheFragmentsBeforeThoseThatAreMissing) {
    make(false, {}, kSendsFragmentsBehind);
    sent();
    fragment(1, 1, 60);
    fragment(1, 4, 60);
    heartbeat(1, 1);
    EXPECT_EQ(sent(), (Lines{"ACKNACK 1 {}", "NACK_FRAG 1 {1 2 3 4 5 6}"}));
    for (const FragmentNumber number : {2u, 3u, 5u, 6u})
        fragment(1, number, 60);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{1}));
    now += seconds(1);
    fragment(2, 2);
    heartbeat(1, 2);
    EXPECT_EQ(sent(), (Lines{"ACKNACK 2 {2}", "NACK_FRAG 2 {1 3}"}));
}

TEST_F(ReliableReaderTest, AHeartbeatFragIsAnsweredForWhatWasSent) {
    make(false);
    sent();
    HeartbeatFrag h;
    h.writer = kWriter;
    h.sequence_number = 1;
    h.last_fragment = 2;
    h.count = 1;
    reader->on_heartbeat_frag(writer, h, now);
    EXPECT_EQ(sent(), (Lines{"NACK_FRAG 1 {1 2}"}));
    fragment(1, 1);
    fragment(1, 2);
    now += milliseconds(20);
    h.count = 2;
    reader->on_heartbeat_frag(writer, h, now);
    EXPECT_EQ(sent(), Lines{});
    h.last_fragment = 3;
    reader->on_heartbeat_frag(writer, h, now); // an old count
    EXPECT_EQ(sent(), Lines{});
    h.count = 3;
    reader->on_heartbeat_frag(writer, h, now);
    EXPECT_EQ(sent(), (Lines{"NACK_FRAG 1 {3}"}));
}

TEST_F(ReliableReaderTest, AnOversizedSampleIsLostAndTheNextOneComes) {
    make(false, ReliableReader::Limits{100, &memory});
    fragment(1, 1, 101);
    EXPECT_EQ(observer.oversized, (std::vector<size_t>{101}));
    EXPECT_EQ(sink.lost, 1u);
    data(2);
    EXPECT_EQ(sink.numbers, (std::vector<SequenceNumber>{2}));
}

TEST_F(ReliableReaderTest, MemoryIsBoundedAndNothingIsLostByIt) {
    make(false, ReliableReader::Limits{5000, &memory});
    sent();
    data(2, 1000);
    EXPECT_EQ(observer.memory_used_up, 0);
    for (SequenceNumber n = 3; n <= 100; ++n)
        data(n, 1000);
    EXPECT_EQ(observer.memory_used_up, 1) << "told once";
    heartbeat(1, 100);
    const Lines lines = sent();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("{1 "), std::string::npos);
    fragment(1, 1, 4000, 2000); // needs room that the samples ahead must give
    fragment(1, 2, 4000, 2000);
    ASSERT_FALSE(sink.numbers.empty());
    EXPECT_EQ(sink.numbers.front(), 1);
    for (SequenceNumber n = sink.numbers.back() + 1; n <= 100; ++n)
        data(n, 1000);
    EXPECT_EQ(sink.numbers.size(), 100u);
    EXPECT_EQ(sink.lost, 0u);
}

TEST_F(ReliableReaderTest, FragmentsOfOlderOpenSpliceHaveTheFlagOfKeysForData) {
    fragments_are_of_keys = true;
    for (const uint16_t quirks : {uint16_t{0}, uint16_t{kMarksDataAsKeys}}) {
        make(false, {}, quirks);
        for (FragmentNumber n = 1; n <= 3; ++n)
            fragment(1, n);
    }
    EXPECT_EQ(sink.keys, (std::vector<bool>{true, false}));
}

TEST_F(ReliableReaderTest, UnfinishedSamplesAreGivenUpAndAskedForAgain) {
    make(false, ReliableReader::Limits{5000, &memory});
    fragment(1, 1);
    heartbeat(1, 1);
    EXPECT_EQ(sent_after(seconds(2)), (Lines{"ACKNACK 1 {}", "NACK_FRAG 1 {2 3}"}));
    fragment(1, 1, 26);
    EXPECT_EQ(sent_after(seconds(1)), (Lines{"ACKNACK 1 {1}"})) << "all of it";
    EXPECT_LE(memory.used(), 1000u);
    for (FragmentNumber n = 1; n <= 3; ++n)
        fragment(1, n, 26);
    EXPECT_EQ(sink.sizes, (std::vector<size_t>{26}));
}

TEST_F(ReliableReaderTest, SamplesOutOfOrderAreMovedAndNotCopied) {
    make(false);
    for (FragmentNumber number = 1; number <= 3; ++number)
        fragment(2, number, 150000, 50000);
    data(1);
    EXPECT_EQ(sink.sizes, (std::vector<size_t>{8, 150000}));
}

TEST_F(ReliableReaderTest, ABuiltinReaderHoldsLittle) {
    ReaderConfig config;
    config.builtin_peer = BuiltinPeer{};
    make(false, {}, 0, config);
    const size_t before = MemoryBudget::of_process().used();
    const size_t heap = ::test::heap_bytes();
    for (SequenceNumber n = 2; n < 3000; ++n)
        data(n, 1000);
    EXPECT_EQ(observer.memory_used_up, 0) << "announcements have little of their own";
    EXPECT_LE(::test::heap_bytes() - heap, ReliableReader::kBuiltinMemory);
    EXPECT_EQ(MemoryBudget::of_process().used(), before);
    fragment(1, 1, ReliableReader::kLargestAnnouncement + 1, 50000);
    EXPECT_EQ(observer.oversized.size(), 1u) << "nothing waits for it";
    EXPECT_GT(sink.numbers.size(), 100u);
}

TEST_F(ReliableReaderTest, TheLargestAnnouncementFindsRoom) {
    ReaderConfig config;
    config.builtin_peer = BuiltinPeer{};
    make(false, {}, 0, config);
    for (SequenceNumber n = 2; n < 3000; ++n)
        data(n, 1000);
    for (FragmentNumber n = 1; n * 50000 < ReliableReader::kLargestAnnouncement + 50000; ++n)
        fragment(1, n, ReliableReader::kLargestAnnouncement, 50000);
    ASSERT_FALSE(sink.sizes.empty());
    EXPECT_EQ(sink.sizes[0], ReliableReader::kLargestAnnouncement);
}
} // namespace
} // namespace meridian::rtps::test
