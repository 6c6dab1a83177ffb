// How many bytes a datagram makes this side send, in the name of any participant: none may be a means to send
// more to a third one than the sender could send himself.

#include <gtest/gtest.h>

#include <numeric>

#include "protocol/participant_fixture.h"
#include "protocol/silent_reader.h"

namespace meridian::rtps::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

using Attack = std::function<void(MessageWriter&, Count)>; // one datagram; counts grow

class Reflection : public ParticipantTest {
  protected:
    static constexpr SequenceNumber kSecret = 1500;
    static constexpr int kDatagrams = 100;

    Reflection() {
        config.secret_begin = kSecret;
        config.announce_period = seconds(3600);
    }
    /// Participant 2 lives and has confirmed its address; 3 announced that of another host; 4 is unknown.
    void meet() {
        start();
        for (uint32_t i = 0; i < 100; ++i)
            ASSERT_TRUE(participant->add_reader(publication(1, (i << 8) + 7), {}, sink, now()));
        announce(remote(2));
        acknowledge(2, kSecret + 101);
        for (int i = 0; i < 30; ++i) {
            run_until(time + milliseconds(100));
            acknowledge(2, kSecret + 101);
        }
        ParticipantData other = remote(3);
        other.lease = kDurationInfinite;
        announce(other);
        run_until(time + seconds(60)); // until nothing more goes there
        announce(remote(2));
        acknowledge(2, kSecret + 101);
        run_until(time + seconds(1));
        output.messages.clear();
        received_bytes = 0;
    }
    size_t sent_bytes() const {
        size_t bytes = 0;
        for (const auto& message : output.messages)
            bytes += message.bytes.size();
        return bytes;
    }
    /// Bytes sent within ten seconds for one byte that came.
    double factor(uint8_t from, const Attack& attack) {
        meet();
        source_host = 8; // from another host than it announced itself
        for (int i = 0; i < kDatagrams; ++i) {
            receive(from, [&](MessageWriter& writer) { attack(writer, 1000 + 1000 * i); });
            run_until(time + milliseconds(10));
        }
        run_until(time + seconds(5));
        source_host = 0;
        return static_cast<double>(sent_bytes()) / static_cast<double>(received_bytes);
    }
    SilentReader sink;
};

void heartbeats(MessageWriter& writer, EntityId id, Count count) {
    writer.add_heartbeat(heartbeat_of(id, 1, 100, count));
}

void requests(MessageWriter& writer, EntityId reader, EntityId of, Count count) {
    AckNack acknack;
    acknack.reader = reader;
    acknack.writer = of;
    for (const SequenceNumber base : {1, 1400, 1600}) { // the numbers are not known, but where they may be
        acknack.missing = {};
        acknack.missing.base = base;
        for (SequenceNumber i = 0; i < 256; ++i)
            acknack.missing.insert(base + i);
        acknack.count = count++;
        writer.add_acknack(acknack);
    }
    NackFrag nack;
    nack.reader = reader;
    nack.writer = of;
    nack.sequence_number = 1501;
    nack.missing.base = 1;
    for (FragmentNumber i = 1; i < 257; ++i)
        nack.missing.insert(i);
    nack.count = count;
    writer.add_nack_frag(nack);
}

void fragments(MessageWriter& writer, EntityId id, Count count) {
    DataFrag fragment;
    const ByteBuffer payload(100);
    fragment.writer = id;
    fragment.sequence_number = 1 + count / 1000;
    fragment.fragment_size = 100;
    fragment.sample_size = 60000;
    fragment.first_fragment = 300;
    fragment.payload = payload;
    writer.add_data_frag(fragment);
    heartbeats(writer, id, count);
}

TEST_F(Reflection, IsBoundedForWhateverComes) {
    const std::pair<const char*, Attack> attacks[] = {
        {"heartbeats of publications",
         [](MessageWriter& w, Count count) { heartbeats(w, entity::publications_writer, count); }},
        {"heartbeats of participant messages",
         [](MessageWriter& w, Count count) { heartbeats(w, entity::participant_message_writer, count); }},
        {"requests for subscriptions",
         [](MessageWriter& w, Count count) {
             requests(w, entity::subscriptions_reader, entity::subscriptions_writer, count);
         }},
        {"requests for publications",
         [](MessageWriter& w, Count count) {
             requests(w, entity::publications_reader, entity::publications_writer, count);
         }},
        {"requests for participant messages",
         [](MessageWriter& w, Count count) {
             requests(w, entity::participant_message_reader, entity::participant_message_writer, count);
         }},
        {"fragments of publications",
         [](MessageWriter& w, Count count) { fragments(w, entity::publications_writer, count); }},
        {"farewells",
         [](MessageWriter& w, Count count) {
             add_end(w, entity::participant_writer, count,
                     {w.view().data[19] == 2 ? prefix(2) : prefix(3), entity::participant});
         }},
    };
    for (const auto& [name, attack] : attacks) {
        for (uint8_t from = 2; from <= 4; ++from) {
            SCOPED_TRACE(std::string(name) + " in the name of " + std::to_string(from));
            EXPECT_LE(factor(from, attack), 3);
        }
    }
}

} // namespace
} // namespace meridian::rtps::test
