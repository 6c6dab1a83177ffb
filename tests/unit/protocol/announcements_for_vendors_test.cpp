// What is announced to participants of a maker that refuses announcements with parameters that it does not
// know.

#include "protocol/participant_fixture.h"

namespace meridian::rtps::test {

namespace {

class AnnouncementsForVendorsTest : public ParticipantTest {
  protected:
    AnnouncementsForVendorsTest() {
        config.name = "spy";
        config.properties = {{"dds.sys_info.hostname", "host"}};
        config.incarnation = 5;
        config.user_data = {1, 2, 3};
    }
    /// The announcements that went there since the last call.
    std::vector<ParticipantData> announced_to(const Locator& locator) {
        class Announcements final : public MessageVisitor {
          public:
            std::vector<ParticipantData> list;
            EntityId reader;
            void on_data(const MessageContext&, const Data& data) override {
                std::string error;
                if (data.writer != entity::participant_writer)
                    return;
                reader = data.reader;
                list.push_back(decode_participant(data.payload, error).value());
            }
        } heard;
        for (const auto& message : output.messages) {
            if (message.destination == locator)
                read_message(message.bytes, heard);
        }
        output.messages.clear();
        told_reader = heard.reader;
        return heard.list;
    }
    /// The endpoints that went there since the last call.
    std::vector<EndpointData> endpoints_told(const Locator& locator) {
        class Endpoints final : public MessageVisitor {
          public:
            std::vector<EndpointData> list;
            void on_data(const MessageContext&, const Data& data) override {
                std::string error;
                if (data.writer == entity::subscriptions_writer && !data.payload_is_key)
                    list.push_back(decode_endpoint(data.payload, false, error).value());
            }
        } heard;
        run_until(time + MessageBatcher::kLongestWait);
        for (const auto& message : output.messages) {
            if (message.destination == locator)
                read_message(message.bytes, heard);
        }
        return heard.list;
    }
    void add_reader(const std::string& topic, uint32_t entity) {
        EndpointData data = publication(1, entity);
        data.topic_name = topic;
        ASSERT_TRUE(participant->add_reader(data, {}, sink, now()));
    }
    class : public ReaderSink {
        void on_sample(const Sample&) override {}
    } sink;

    EntityId told_reader; // of the last one
    void meet(VendorId vendor) {
        start();
        ParticipantData data = remote(2);
        data.vendor = vendor;
        announce(data);
    }
};

TEST_F(AnnouncementsForVendorsTest, SomeGetNothingButTheFirstParameters) {
    meet(kEmbeddedRtps);
    for (const MonotonicTime end : {time, time + std::chrono::seconds(30)}) { // the answer, and later ones
        run_until(end);
        const auto list = announced_to(udpv4(2));
        ASSERT_FALSE(list.empty());
        EXPECT_EQ(told_reader, entity::participant_reader);
        for (const ParticipantData& data : list) {
            EXPECT_EQ(data.guid.prefix, prefix(1));
            EXPECT_EQ(data.metatraffic_unicast, LocatorList{udpv4(1)});
            EXPECT_FALSE(data.domain_id);
            EXPECT_TRUE(data.name.empty() && data.properties.empty() && data.user_data.empty() &&
                        data.raw.empty());
        }
    }
}

// What goes to the group is nothing for it.
TEST_F(AnnouncementsForVendorsTest, SomeGetThemAmongManyParticipantsToo) {
    meet(kEmbeddedRtps);
    for (uint8_t id = 3; id < 40; ++id)
        announce(remote(id));
    Count count = 0;
    for (const MonotonicTime end = time + std::chrono::seconds(8); time < end;) {
        for (uint8_t id = 2; id < 40; ++id)
            receive(id, [&](MessageWriter& writer) {
                writer.add_heartbeat(heartbeat_of(entity::publications_writer, 1, 0, ++count));
            });
        run_until(time + std::chrono::seconds(1));
    }
    output.messages.clear();
    run_until(time + config.announce_period);
    EXPECT_FALSE(announced_to(udpv4(2)).empty());
}

TEST_F(AnnouncementsForVendorsTest, OthersGetAll) {
    meet(VendorId{{0x01, 0x10}});
    const auto list = announced_to(udpv4(2));
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(told_reader, entity::unknown);
    EXPECT_EQ(list[0].domain_id, 3u);
    EXPECT_EQ(list[0].name, "spy");
    EXPECT_FALSE(list[0].raw.empty());
}

TEST_F(AnnouncementsForVendorsTest, SomeAreToldOfReadersOfTheirWritersOnlyAndWithTheirAddresses) {
    meet(kEmbeddedRtps);
    announce(remote(3));
    output.messages.clear();
    send_data(2, entity::publications_writer, 1, encode(publication(2)));
    add_reader("Other", 0x107);
    add_reader("Square", 0x207);
    const auto told = endpoints_told(udpv4(2));
    ASSERT_EQ(told.size(), 1u);
    EXPECT_EQ(told[0].topic_name, "Square");
    EXPECT_EQ(told[0].unicast, LocatorList{udpv4(1, 7411)});
    const auto told_others = endpoints_told(udpv4(3));
    ASSERT_EQ(told_others.size(), 2u);
    EXPECT_TRUE(told_others[1].unicast.empty());
    output.messages.clear();
    EXPECT_TRUE(participant->remove_endpoint(EntityId{0x207}, now()));
    EXPECT_FALSE(sent_to(udpv4(2)).empty()) << "it is told of the end";
}

// An interface comes, say.
TEST_F(AnnouncementsForVendorsTest, SomeAreToldOfNewAddressesOfReaders) {
    meet(kEmbeddedRtps);
    send_data(2, entity::publications_writer, 1, encode(publication(2)));
    add_reader("Square", 0x207);
    endpoints_told(udpv4(2));
    output.messages.clear();
    OwnLocators locators = config.locators;
    locators.default_unicast.push_back(udpv4(7, 7411));
    participant->set_locators(locators, now());
    const auto told = endpoints_told(udpv4(2));
    ASSERT_EQ(told.size(), 1u);
    EXPECT_EQ(told[0].unicast, locators.default_unicast);
}

} // namespace

} // namespace meridian::rtps::test
