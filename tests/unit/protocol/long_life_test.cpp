// A participant that runs for months: others come and go in tens of thousands, and all counters pass the
// places where they wrap around.

#include <gmock/gmock.h>

#include "platform/memory_budget.h"
#include "protocol/participant_fixture.h"
#include "protocol/reliable_reader_fixture.h"
#include "support/allocation_counter.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class LongLife : public ParticipantTest {
  protected:
    /// Another one that comes: with so many writers of topics of its own and one of a topic that is read.
    void come(uint32_t number, uint32_t writers) {
        ParticipantData data = remote(static_cast<uint8_t>(2 + number % 200));
        data.guid.prefix = prefix_of(number);
        say(number, entity::participant_writer, 1, encode(data));
        for (uint32_t i = 0; i < writers; ++i) {
            EndpointData writer = publication(1, 0x102 + (i << 8));
            writer.guid.prefix = data.guid.prefix;
            if (i > 0)
                writer.topic_name = "T" + std::to_string(number) + "_" + std::to_string(i);
            say(number, entity::publications_writer, 1 + static_cast<SequenceNumber>(i), encode(writer));
        }
    }
    void leave(uint32_t number) {
        send(number, [&](MessageWriter& writer) {
            add_end(writer, entity::participant_writer, 2, {prefix_of(number), entity::participant});
        });
    }
    static GuidPrefix prefix_of(uint32_t number) {
        GuidPrefix result;
        result.bytes = {9, 9, 9, 9, 9, 9, 9, 9};
        for (size_t i = 0; i < 4; ++i)
            result.bytes[8 + i] = static_cast<uint8_t>(number >> (8 * i));
        return result;
    }

  private:
    void say(uint32_t number, EntityId writer_id, SequenceNumber sequence_number, const ByteBuffer& payload) {
        send(number,
             [&](MessageWriter& writer) { writer.add_data(data_of(writer_id, sequence_number, payload)); });
    }
    void send(uint32_t number, const std::function<void(MessageWriter&)>& fill) {
        MessageWriter writer(prefix_of(number), 60000);
        fill(writer);
        participant->receive(writer.view(), udpv4(static_cast<uint8_t>(2 + number % 200), 50000), now());
        output.messages.clear();
    }
};

TEST_F(LongLife, NothingStaysOfThoseThatCameAndWent) {
    constexpr uint32_t kRound = 500;
    start();
    EndpointData reader = publication(1, 0x107);
    participant->add_reader(reader, {}, recorder.sink_of(reader.guid), now());
    const size_t budget = MemoryBudget::of_process().used();
    uint32_t number = 0;
    const auto round = [&] {
        for (const uint32_t end = number + kRound; number < end; ++number) {
            come(number, 5);
            run_until(time + milliseconds(20));
            if (number % 2 == 0)
                leave(number); // of the others the lease ends
        }
        run_until(time + seconds(30));
        output.messages.clear();
        recorder.history.clear();
        recorder.gone.clear();
        recorder.warnings.clear();
        return ::test::heap_bytes();
    };
    round();
    const size_t before = round();
    size_t after = 0;
    for (int i = 0; i < 4; ++i)
        after = round();
    EXPECT_EQ(recorder.participants.size(), 0u);
    EXPECT_EQ(recorder.endpoints.size(), 0u);
    EXPECT_EQ(recorder.matches.size(), 0u);
    EXPECT_TRUE(recorder.contradictions.empty());
    EXPECT_EQ(recorder.errors, std::vector<std::string>());
    EXPECT_EQ(MemoryBudget::of_process().used(), budget);
    EXPECT_LE(after, before);
}

class WrappedNumbers : public ReliableReaderTest, public ::testing::WithParamInterface<SequenceNumber> {};

TEST_P(WrappedNumbers, AreTakenInOrderWithGapsLossesAndFragments) {
    const SequenceNumber first = GetParam() - 50;
    make(true);
    count = 0x7fffffff - 40; // of heartbeats, which wrap around as well
    heartbeat(1, first - 1);
    sent();
    std::vector<SequenceNumber> expected;
    for (SequenceNumber number = first; number < first + 100; ++number) {
        if (number % 10 == 3) {
            heartbeat(first, number);
            gap(number, number + 1);
        } else {
            expected.push_back(number);
            if (number % 10 == 7) {
                for (FragmentNumber fragment_number : {2u, 1u})
                    fragment(number, fragment_number, 20);
            } else if (number % 10 != 5) {
                data(number);
            }
        }
        heartbeat(first, number);
        const Lines lines = sent_after(milliseconds(60));
        if (number % 10 == 5) { // it is lost the first time
            EXPECT_THAT(lines,
                        ::testing::Contains(::testing::HasSubstr("ACKNACK " + std::to_string(number))));
            data(number);
        }
    }
    EXPECT_EQ(sink.numbers, expected);
    EXPECT_EQ(sink.lost, 0u);
    EXPECT_EQ(observer.restarts, 0);
    EXPECT_EQ(observer.too_high, 0);
}

INSTANTIATE_TEST_SUITE_P(PowersOfTwo, WrappedNumbers,
                         ::testing::Values(SequenceNumber{1} << 31, SequenceNumber{1} << 32,
                                           SequenceNumber{1} << 33, SequenceNumber{1} << 53,
                                           (SequenceNumber{1} << 62) - 60));

} // namespace
} // namespace meridian::rtps::test
