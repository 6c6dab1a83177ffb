// Participants of a node of OpenSplice that have no builtin endpoints: the participant of its service speaks
// for them.

#include <gmock/gmock.h>

#include "protocol/participant_fixture.h"

namespace meridian::rtps::test {

namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint8_t kService = 2;
constexpr uint8_t kApplication = 3;

class ManagedParticipantsTest : public ParticipantTest {
  protected:
    ManagedParticipantsTest() { start(); }
    ParticipantData service() {
        ParticipantData data = remote(kService);
        data.vendor = kOpenSplice;
        return data;
    }
    ParticipantData application() {
        ParticipantData data = remote(kApplication);
        data.vendor = kOpenSplice;
        data.builtin_endpoints = 0;
        data.metatraffic_unicast = {udpv4(kService)};
        data.default_unicast = {udpv4(kService)};
        return data;
    }
    void service_tells(const ParticipantData& data) {
        send_data(kService, entity::participant_writer, ++announcements, encode(data));
    }
    void service_tells_of_publication() {
        send_data(kService, entity::publications_writer, ++publications, encode(publication(kApplication)));
    }
    void service_ends(const ParticipantData& data) {
        receive(kService, [&](MessageWriter& writer) {
            add_end(writer, entity::participant_writer, ++announcements, data.guid);
        });
    }
    size_t endpoints() const { return recorder.endpoints.size(); }
    void run_while_service_announces(Duration duration) {
        for (const MonotonicTime end = time + duration; time < end; run_until(time + seconds(5)))
            service_tells(service());
    }

    SequenceNumber publications = 0;
};

TEST_F(ManagedParticipantsTest, TheirServiceTellsOfThemAndOfTheirEndpoints) {
    announce(service());
    service_tells(application());
    service_tells_of_publication();
    EXPECT_THAT(known_participants(), ElementsAre(prefix(kService), prefix(kApplication)));
    ASSERT_EQ(endpoints(), 1u);
    EXPECT_EQ(recorder.endpoints.begin()->first.prefix, prefix(kApplication));
    receive(kService, [&](MessageWriter& writer) {
        add_end(writer, entity::publications_writer, ++publications, publication(kApplication).guid);
    });
    EXPECT_EQ(endpoints(), 0u);
    EXPECT_THAT(recorder.warnings, IsEmpty());
}

TEST_F(ManagedParticipantsTest, EndpointsMayBeToldOfFirst) {
    announce(service());
    service_tells_of_publication();
    EXPECT_EQ(endpoints(), 0u);
    service_tells(application());
    EXPECT_EQ(endpoints(), 1u);
}

TEST_F(ManagedParticipantsTest, TheyMayBeToldOfBeforeTheService) {
    service_tells(application());
    EXPECT_THAT(known_participants(), ElementsAre(prefix(kApplication)));
    announce(service());
    service_tells_of_publication();
    EXPECT_EQ(endpoints(), 1u);
    run_while_service_announces(seconds(60));
    EXPECT_EQ(endpoints(), 1u);
}

TEST_F(ManagedParticipantsTest, TheyLiveAsLongAsTheirService) {
    announce(service());
    service_tells(application());
    service_tells_of_publication();
    run_while_service_announces(seconds(60));
    EXPECT_EQ(endpoints(), 1u);
    run_until(time + seconds(11));
    EXPECT_THAT(known_participants(), IsEmpty());
    EXPECT_EQ(endpoints(), 0u);
}

TEST_F(ManagedParticipantsTest, TheServiceSaysTheirFarewell) {
    announce(service());
    service_tells(application());
    EXPECT_EQ(known_participants().size(), 2u);
    service_ends(application());
    EXPECT_THAT(known_participants(), ElementsAre(prefix(kService)));
}

TEST_F(ManagedParticipantsTest, WhoHasBuiltinEndpointsSpeaksForItself) {
    announce(service());
    ParticipantData other = remote(kApplication);
    other.vendor = kOpenSplice;
    service_tells(other);
    EXPECT_THAT(known_participants(), ElementsAre(prefix(kService)));
    announce(other);
    service_tells_of_publication();
    service_ends(other);
    run_until(time + seconds(2));
    EXPECT_EQ(known_participants().size(), 2u);
    EXPECT_EQ(endpoints(), 0u);
}

TEST_F(ManagedParticipantsTest, OnlyOneOfTheSameNodeAndMakerSpeaksForThem) {
    announce(service());
    announce(remote(4)); // of another maker
    send_data(4, entity::participant_writer, ++announcements, encode(application()));
    ParticipantData elsewhere = application();
    elsewhere.guid.prefix.bytes[0] = 7;
    service_tells(elsewhere);
    ParticipantData of_other = application();
    of_other.vendor = remote(4).vendor;
    service_tells(of_other);
    EXPECT_THAT(known_participants(), ElementsAre(prefix(kService), prefix(4)));
}

TEST_F(ManagedParticipantsTest, WhatOthersSayInTheirNameDoesNotCount) {
    announce(service());
    service_tells(application());
    service_tells_of_publication();
    source_host = 9;
    for (const uint8_t name : {kService, kApplication}) {
        receive(name, [&](MessageWriter& writer) {
            add_end(writer, entity::participant_writer, ++announcements, application().guid);
        });
        ParticipantData other = application();
        other.metatraffic_unicast = {udpv4(9, 1234)};
        send_data(name, entity::participant_writer, ++announcements, encode(other));
        source_host = 0;
        run_while_service_announces(seconds(10)); // and is there
        source_host = 9;
    }
    EXPECT_EQ(known_participants().size(), 2u);
    EXPECT_EQ(endpoints(), 1u);
    source_host = 0;
    service_ends(application());
    EXPECT_THAT(known_participants(), ElementsAre(prefix(kService)));
}

TEST_F(ManagedParticipantsTest, WhatIsForgedBeforeTheServiceIsKnownHidesNone) {
    source_host = 9;
    ParticipantData forged = application();
    forged.metatraffic_unicast = {udpv4(9, 1234)};
    send_data(8, entity::participant_writer, ++announcements, encode(forged));
    source_host = 0;
    announce(service());
    service_tells_of_publication();
    service_tells(application());
    run_while_service_announces(seconds(30));
    EXPECT_EQ(known_participants().size(), 2u);
    EXPECT_EQ(endpoints(), 1u);
}

TEST_F(ManagedParticipantsTest, AnotherOfTheNodeDoesNotSpeakForThem) {
    announce(service());
    service_tells(application());
    service_tells_of_publication();
    ParticipantData other = service();
    other.guid = remote(4).guid;
    announce(other);
    receive(4, [&](MessageWriter& writer) {
        add_end(writer, entity::publications_writer, 1, publication(kApplication).guid);
        add_end(writer, entity::participant_writer, ++announcements, application().guid);
    });
    EXPECT_EQ(endpoints(), 1u);
    run_while_service_announces(seconds(20)); // the other one is lost
    EXPECT_THAT(known_participants(), ElementsAre(prefix(kService), prefix(kApplication)));
}

TEST_F(ManagedParticipantsTest, NothingWaitsForOneThatSpeaksForItself) {
    announce(service());
    service_tells_of_publication();
    announce(remote(kApplication));
    EXPECT_EQ(known_participants().size(), 2u);
    EXPECT_EQ(endpoints(), 0u);
}

TEST_F(ManagedParticipantsTest, ALimitedNumberOfEndpointsWaits) {
    announce(service());
    for (uint32_t i = 0; i < 1100; ++i)
        send_data(kService, entity::publications_writer, ++publications,
                  encode(publication(kApplication, i << 8 | 2)));
    service_tells(application());
    EXPECT_EQ(endpoints(), 1000u);
    EXPECT_EQ(recorder.warnings.size() + recorder.errors.size(), 1u);
}

TEST_F(ManagedParticipantsTest, TheirEndpointsWaitUntilTheServiceRepeatsThem) {
    announce(service());
    service_tells_of_publication();
    run_while_service_announces(seconds(40));
    send_data(kService, entity::publications_writer, ++publications,
              encode(publication(kApplication, 0x202)));
    service_tells(application());
    EXPECT_EQ(endpoints(), 2u);
}

TEST_F(ManagedParticipantsTest, EachWaitOfTheirEndpointsIsOfTheSameLength) {
    announce(service());
    service_tells_of_publication();
    service_tells(application());
    service_ends(application());
    run_while_service_announces(seconds(55));
    service_tells_of_publication();
    run_while_service_announces(seconds(10));
    send_data(kService, entity::publications_writer, ++publications, encode(publication(7, 0x202)));
    service_tells(application());
    EXPECT_EQ(endpoints(), 1u);
}

TEST_F(ManagedParticipantsTest, NothingIsAnnouncedToThem) {
    announce(service());
    output.messages.clear();
    ParticipantData elsewhere = application();
    elsewhere.metatraffic_unicast = {udpv4(5)};
    service_tells(elsewhere);
    run_while_service_announces(seconds(20));
    EXPECT_EQ(destinations().count(udpv4(5)), 0u);
}

TEST_F(ManagedParticipantsTest, TheyAreNotForgottenBeforeStrangers) {
    config.max_remote_participants = 4;
    start();
    announce(service());
    service_tells(application());
    run_until(time + seconds(1));
    announce(service());
    for (uint8_t id = 10; id < 20; ++id)
        announce(remote(id));
    EXPECT_EQ(recorder.participants.count(prefix(kApplication)), 1u);
}

} // namespace

} // namespace meridian::rtps::test
