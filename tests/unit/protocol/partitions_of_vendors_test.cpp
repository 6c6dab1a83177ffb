// Participants of a maker whose default partition no name matches, and readers of all partitions.

#include "protocol/participant_fixture.h"

namespace meridian::rtps::test {

namespace {

constexpr EntityId kReader{0x107};

class PartitionsOfVendorsTest : public ParticipantTest {
  protected:
    using Partitions = std::vector<std::string>;

    /// One of the maker, and one of another, each with a way to it.
    void meet() {
        start();
        ParticipantData particular = remote(2);
        particular.vendor = kDustDds;
        announce(particular);
        announce(remote(3));
        output.messages.clear();
    }
    void add_reader() {
        EndpointData data = publication(1, kReader.value);
        data.qos.partitions = {"", "*"};
        ASSERT_TRUE(participant->add_reader(data, {}, sink, now()));
    }
    void announce_writer(uint8_t participant_id, const Partitions& partitions, uint32_t entity = 0x102) {
        EndpointData data = publication(participant_id, entity);
        data.qos.partitions = partitions;
        send_data(participant_id, entity::publications_writer, ++publications, encode(data));
    }
    /// The partitions of the reader in each announcement that went to this host since the last call.
    std::vector<Partitions> told(uint8_t host) {
        class Announcements final : public MessageVisitor {
          public:
            std::vector<Partitions> partitions;
            std::vector<SequenceNumber> numbers;
            void on_data(const MessageContext&, const Data& data) override {
                std::string error;
                const auto reader = data.writer == entity::subscriptions_writer && !data.payload_is_key
                                        ? decode_endpoint(data.payload, false, error)
                                        : std::nullopt;
                if (!reader)
                    return;
                partitions.push_back(reader->qos.partitions);
                numbers.push_back(data.sequence_number);
            }
        } heard;
        run_until(time + MessageBatcher::kLongestWait);
        for (const auto& message : output.messages) {
            if (message.destination == udpv4(host))
                read_message(message.bytes, heard);
        }
        output.messages.clear();
        if (!heard.numbers.empty())
            last_told = heard.numbers.back();
        return heard.partitions;
    }

    const Partitions all{"", "*"};
    const Partitions none;
    SequenceNumber publications = 0;
    SequenceNumber last_told = 0;
    class : public ReaderSink {
        void on_sample(const Sample&) override {}
    } sink;
};

TEST_F(PartitionsOfVendorsTest, AWriterInTheDefaultPartitionIsToldOfAReaderWithoutNames) {
    meet();
    announce_writer(2, {});
    add_reader();
    EXPECT_EQ(told(2), (std::vector<Partitions>{all, none}));
}

TEST_F(PartitionsOfVendorsTest, SoItIsWhenTheReaderIsThereFirst) {
    meet();
    add_reader();
    EXPECT_EQ(told(2), std::vector<Partitions>{all});
    announce_writer(2, {});
    EXPECT_EQ(told(2), std::vector<Partitions>{none});
}

TEST_F(PartitionsOfVendorsTest, AWriterWithNamesIsToldOfThemAfterwards) {
    meet();
    add_reader();
    announce_writer(2, {});
    told(2);
    announce_writer(2, {"A"}, 0x202);
    EXPECT_EQ(told(2), std::vector<Partitions>{all});
}

TEST_F(PartitionsOfVendorsTest, OtherParticipantsHearNothingOfIt) {
    meet();
    announce_writer(2, {});
    announce_writer(3, {});
    add_reader();
    EXPECT_EQ(told(3), std::vector<Partitions>{all});
}

TEST_F(PartitionsOfVendorsTest, AReaderWithoutNamesIsToldOnce) {
    meet();
    announce_writer(2, {});
    ASSERT_TRUE(participant->add_reader(publication(1, kReader.value), {}, sink, now()));
    EXPECT_EQ(told(2), std::vector<Partitions>{none});
}

TEST_F(PartitionsOfVendorsTest, AReaderThatDoesNotMatchIsNotToldAnew) {
    meet();
    announce_writer(2, {});
    EndpointData data = publication(1, kReader.value);
    data.qos.partitions = {"A"};
    ASSERT_TRUE(participant->add_reader(data, {}, sink, now()));
    EXPECT_EQ(told(2), (std::vector<Partitions>{{"A"}}));
}

TEST_F(PartitionsOfVendorsTest, WhatWasToldForAWriterEndsWithIt) {
    meet();
    add_reader();
    announce_writer(2, {});
    told(2);
    acknowledge(2, last_told, {last_told});
    EXPECT_EQ(told(2), std::vector<Partitions>{none});
    run_until(time + std::chrono::seconds(1));
    receive(2, [&](MessageWriter& writer) {
        add_end(writer, entity::publications_writer, ++publications, {prefix(2), EntityId{0x102}});
    });
    output.messages.clear();
    acknowledge(2, last_told, {last_told});
    EXPECT_EQ(told(2), std::vector<Partitions>{});
}

TEST_F(PartitionsOfVendorsTest, UnderAnotherPrefixItIsToldAnew) {
    meet();
    add_reader();
    announce_writer(2, {});
    told(2);
    participant->join_again(prefix(100), config.locators, now());
    EXPECT_EQ(told(2), (std::vector<Partitions>{all, none}));
}

} // namespace

} // namespace meridian::rtps::test
