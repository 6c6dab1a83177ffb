// What a remote writer costs below the application, once its announcement was taken.

#include <malloc.h>

#include <cstdio>
#include <string>
#include <vector>

#include "discovery/samples.h"
#include "endpoints_peer.h"
#include "factory_fixture.h"
#include "rtps/wire/message.h"

namespace meridian::dcps::test {
namespace {

constexpr uint32_t kWriters = 4000;
constexpr size_t kMostBytes = 1740; // for each: 1.7 KiB

/// Bytes in use; 0 where the allocator does not tell.
size_t heap() {
#if defined(__GLIBC__) && __GLIBC_PREREQ(2, 33)
    return mallinfo2().uordblks + mallinfo2().hblkhd;
#else
    return 0;
#endif
}

/// A participant that is told of remote writers as packets tell of them.
class RemoteWriterMemory : public FactoryTest {
  protected:
    void SetUp() override {
        FactoryTest::SetUp();
        participant_ = create();
        ASSERT_TRUE(register_test_types(*participant_));
        ASSERT_EQ(participant_->enable(), DDS_RETCODE_OK);
        publications_ = DDSPublicationBuiltinTopicDataDataReader::narrow(
            participant_->get_builtin_subscriber()->lookup_datareader(DDS_PUBLICATION_TOPIC_NAME));
    }
    void TearDown() override {
        EXPECT_EQ(participant_->delete_contained_entities(), DDS_RETCODE_OK);
        FactoryTest::TearDown();
    }

    void receive(rtps::EntityId writer, rtps::SequenceNumber number, const rtps::ByteBuffer& payload) {
        rtps::MessageWriter message(prefix_, 60000);
        rtps::Data data;
        data.writer = writer;
        data.sequence_number = number;
        data.has_payload = true;
        data.payload = payload;
        message.add_info_timestamp({1000, 0});
        message.add_data(data);
        participant_->runtime()->with_participant([&](rtps::Participant& own, rtps::Now now) {
            own.receive(message.view(), rtps::Locator{}, now);
        });
    }
    void announce_participant() {
        rtps::ParticipantData data;
        data.guid = {prefix_, rtps::entity::participant};
        data.builtin_endpoints = 0xc3f;
        data.default_unicast = {locator(7411)};
        data.lease = {1000, 0};
        receive(rtps::entity::participant_writer, 1, rtps::encode(data));
    }
    static rtps::Locator locator(uint32_t port) {
        rtps::Locator result;
        result.kind = rtps::kLocatorUdpV4;
        result.port = port;
        result.address[12] = 127;
        result.address[15] = 1;
        return result;
    }
    /// With names of ordinary length.
    void announce_writer(uint32_t number, const std::string& topic, const std::string& type) {
        rtps::EndpointData data;
        data.guid = {prefix_, rtps::EntityId{number << 8 | rtps::kUserWriterWithKey}};
        data.topic_name = topic;
        data.type_name = type;
        data.qos.reliability = rtps::Reliability::reliable;
        data.qos.representations = {0};
        data.unicast = {locator(7411), locator(7413)};
        receive(rtps::entity::publications_writer, number, rtps::encode(data));
    }
    DDS_Long take_announcements() {
        DDS_PublicationBuiltinTopicDataSeq data;
        DDS_SampleInfoSeq infos;
        if (publications_->take(data, infos, DDS_LENGTH_UNLIMITED, DDS_ANY_SAMPLE_STATE, DDS_ANY_VIEW_STATE,
                                DDS_ANY_INSTANCE_STATE) != DDS_RETCODE_OK)
            return 0;
        const DDS_Long count = data.length();
        publications_->return_loan(data, infos);
        return count;
    }
    /// Announces writers of these topics, as many on each as on the next one; returns the bytes for each
    /// writer.
    size_t measure(uint32_t topics, const std::string& type) {
        announce_participant();
        take_announcements();
        const size_t before = heap();
        for (uint32_t i = 1; i <= kWriters; ++i) {
            announce_writer(i, topic_name(i % topics), type);
            if (i % 100 == 0)
                taken_ += take_announcements();
        }
        EXPECT_EQ(taken_, static_cast<DDS_Long>(kWriters));
        const size_t bytes = (heap() - before) / kWriters;
        std::printf("%zu bytes for each of %u writers on %u topics\n", bytes, kWriters, topics);
        return bytes;
    }
    static std::string topic_name(uint32_t number) {
        const std::string digits = std::to_string(number);
        return "Vehicle/Telemetry/Unit" + std::string(6 - digits.size(), '0') + digits;
    }

    ParticipantImpl* participant_ = nullptr;
    DDSPublicationBuiltinTopicDataDataReader* publications_ = nullptr;
    rtps::GuidPrefix prefix_ = meridian::test::make_prefix(77);
    DDS_Long taken_ = 0;
};

TEST_F(RemoteWriterMemory, OfAWriterThatNoReaderIsInterestedIn) {
    if (heap() == 0)
        GTEST_SKIP() << "the allocator does not tell";
    EXPECT_LE(measure(kWriters, "vehicle_msgs::msg::dds_::Telemetry_"), kMostBytes);
}

TEST_F(RemoteWriterMemory, OfAWriterThatIsMatchedWithAReader) {
    if (heap() == 0)
        GTEST_SKIP() << "the allocator does not tell";
    constexpr uint32_t kTopics = 10;
    std::vector<TestReader*> readers;
    for (uint32_t i = 0; i < kTopics; ++i) {
        readers.push_back(
            make_reader(*participant_, topic_name(i), "Keyed", "reliable", nullptr, DDS_STATUS_MASK_NONE));
        ASSERT_NE(readers.back(), nullptr);
    }
    EXPECT_LE(measure(kTopics, "Keyed"), kMostBytes);
    DDS_Long matched = 0;
    for (TestReader* reader : readers) {
        DDS_SubscriptionMatchedStatus writers;
        EXPECT_EQ(reader->get_subscription_matched_status(writers), DDS_RETCODE_OK);
        matched += writers.current_count;
    }
    EXPECT_EQ(matched, static_cast<DDS_Long>(kWriters));
}

} // namespace
} // namespace meridian::dcps::test
