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

TEST_F(AnnouncementsForVendorsTest, OthersGetAll) {
    meet(VendorId{{0x01, 0x10}});
    const auto list = announced_to(udpv4(2));
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(told_reader, entity::unknown);
    EXPECT_EQ(list[0].domain_id, 3u);
    EXPECT_EQ(list[0].name, "spy");
    EXPECT_FALSE(list[0].raw.empty());
}

} // namespace

} // namespace meridian::rtps::test
