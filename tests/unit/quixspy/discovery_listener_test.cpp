// The discovery listener: the literal lines, the registry behind them, and every way a call can end early.

#include <gtest/gtest.h>

#include "quixspy/fixture.h"
#include "support/fake_entities.h"
#include "support/test_output.h"
#include "support/verbosity_guard.h"

namespace {

using Publication = DDS_PublicationBuiltinTopicData;
using Subscription = DDS_SubscriptionBuiltinTopicData;

DDS_InstanceHandle_t handle_of(const RtpsGuid& guid) {
    DDS_InstanceHandle_t handle{};
    const uint32_t words[] = {guid.hostId, guid.appId, guid.instanceId, guid.entityId};
    for (size_t i = 0; i < 16; ++i)
        handle.keyHash[i] = static_cast<DDS_Octet>(words[i / 4] >> (24 - 8 * (i % 4)));
    handle.length = 16;
    handle.isValid = true;
    return handle;
}

DDS_SampleInfo info_of(const RtpsGuid& guid, DDS_ViewStateMask view = DDS_NEW_VIEW_STATE, bool valid = true,
                       DDS_InstanceStateMask instance = DDS_ALIVE_INSTANCE_STATE) {
    DDS_SampleInfo info;
    info.instance_handle = handle_of(guid);
    info.view_state = view;
    info.valid_data = valid;
    info.instance_state = instance;
    info.source_timestamp = {44730, 500}; // 12:25:30
    return info;
}

DDS_SampleInfo gone(const RtpsGuid& guid) {
    return info_of(guid, DDS_NOT_NEW_VIEW_STATE, false, DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE);
}

template <typename Data>
Data sample(const char* topic, const char* type) {
    Data data;
    data.topic_name = DDS_String_dup(topic);
    data.type_name = DDS_String_dup(type);
    data.unicast_locators = locators({locator(DDS_LOCATOR_KIND_UDPv4, {192, 168, 1, 20})});
    return data;
}

const RtpsGuid kWriter{0x0101888c, 0x46c9ef71, 0xfa7ed5ae, 0x80004202};
const RtpsGuid kReader{0x0101888c, 0x46c9ef71, 0xfa7ed5ae, 0x80004207};

class DiscoveryListener : public ::testing::Test {
  protected:
    DiscoveryListener() {
        subscriber.participant = &participant;
        subscriptions.subscriber = &subscriber;
        publications.subscriber = &subscriber;
        participant.results["get_discovered_participant_data"] = DDS_RETCODE_BAD_PARAMETER;
        agent._printUserData = false; // what becomes of a publication is tested with the subscriptions
    }

    QuixSpyDiscoveryListener& listener() {
        if (!listener_) {
            listener_ = std::make_unique<QuixSpyDiscoveryListener>(
                &agent, &publications, &subscriptions, show_handle, false, false, type_width, topic_width,
                PRINT_SAMPLE_NONE, show_partition);
        }
        return *listener_;
    }
    std::string report(DDSDataReader& reader) {
        QuixSpyDiscoveryListener& target = listener();
        return printed_by([&] { target.on_data_available(&reader); });
    }
    std::string report(const Publication& data, const DDS_SampleInfo& info) {
        publications.samples.assign(1, {data, info});
        return report(publications);
    }
    std::string report(const Subscription& data, const DDS_SampleInfo& info) {
        subscriptions.samples.assign(1, {data, info});
        return report(subscriptions);
    }

    VerbosityGuard verbosity{1};
    QuixSpyAgent agent{"Spy", test_output()};
    FakeParticipant participant;
    FakeSubscriber subscriber;
    FakeBuiltinReader<Publication> publications;
    FakeBuiltinReader<Subscription> subscriptions;
    bool show_handle = false;
    bool show_partition = false;
    int type_width = 50;
    int topic_width = 50;

  private:
    std::unique_ptr<QuixSpyDiscoveryListener> listener_;
};

} // namespace

TEST_F(DiscoveryListener, PrintsTheLifeOfAWriter) {
    const Publication data = sample<Publication>("Circle", "ShapeType");
    EXPECT_EQ(report(data, info_of(kWriter)),
              "12:25:30 New writer        from 192.168.1.20    : topic=\"Circle\" type=\"ShapeType\"\n");
    EXPECT_EQ(report(data, info_of(kWriter, DDS_NOT_NEW_VIEW_STATE)),
              "12:25:30 Updated writer    from 192.168.1.20    : topic=\"Circle\" type=\"ShapeType\"\n");
    EXPECT_EQ(report(Publication(), gone(kWriter)),
              "12:25:30 Deleted writer    from 192.168.1.20    : topic=\"Circle\" type=\"ShapeType\"\n");
    EXPECT_EQ(report(Publication(), gone(kWriter)), "") << "it is forgotten";
    EXPECT_EQ(listener().registry().count, 0);
    EXPECT_EQ(listener().discoveredWriters, 1U);
    EXPECT_EQ(listener().discoveredReaders, 0U);
    EXPECT_TRUE(publications.takes_everything);
    EXPECT_EQ(publications.loans, 0);
}

TEST_F(DiscoveryListener, PrintsTheLifeOfAReader) {
    const Subscription data = sample<Subscription>("Circle", "ShapeType");
    EXPECT_EQ(report(data, info_of(kReader)),
              "12:25:30 New reader        from 192.168.1.20    : topic=\"Circle\" type=\"ShapeType\"\n");
    EXPECT_EQ(report(data, info_of(kReader, DDS_NOT_NEW_VIEW_STATE)),
              "12:25:30 Updated reader    from 192.168.1.20    : topic=\"Circle\" type=\"ShapeType\"\n");
    EXPECT_EQ(report(Subscription(), gone(kReader)),
              "12:25:30 Deleted reader    from 192.168.1.20    : topic=\"Circle\" type=\"ShapeType\"\n");
    EXPECT_EQ(listener().discoveredWriters, 0U);
    EXPECT_EQ(listener().discoveredReaders, 1U);
}

TEST_F(DiscoveryListener, PrintsWhatIsKnown) {
    show_handle = show_partition = true;
    Publication writer = sample<Publication>("Circle", "ShapeType");
    writer.entity_name = entity_name("pub", "Sensor");
    writer.partition.name = string_seq({"A", "B"});
    publications.participant_data.partition.name = string_seq({"P*"});
    EXPECT_EQ(report(writer, info_of(kWriter)),
              "12:25:30 New writer        from 192.168.1.20    : topic=\"Circle\" type=\"ShapeType\""
              " guid=\"0x0101888C,0x46C9EF71,0xFA7ED5AE:0x80004202\" name=\"pub:Sensor\" DP partition=\"P*\""
              " S  partition=\"A,B\"\n");
    Subscription reader = sample<Subscription>("Circle", "ShapeType");
    reader.partition.name = string_seq({"A"});
    EXPECT_EQ(report(reader, info_of(kReader)),
              "12:25:30 New reader        from 192.168.1.20    : topic=\"Circle\" type=\"ShapeType\""
              " guid=\"0x0101888C,0x46C9EF71,0xFA7ED5AE:0x80004207\" P  partition=\"A\"\n");
}

TEST_F(DiscoveryListener, PrintsANameWithoutBeingAsked) {
    Publication writer = sample<Publication>("T", "Y");
    writer.entity_name = entity_name(nullptr, "Sensor");
    writer.partition.name = string_seq({"A"});
    EXPECT_EQ(report(writer, info_of(kWriter)),
              "12:25:30 New writer        from 192.168.1.20    : topic=\"T\" type=\"Y\" name=\"Sensor\"\n");
}

TEST_F(DiscoveryListener, CutsLongNames) {
    topic_width = 5;
    type_width = 1;
    EXPECT_EQ(report(sample<Publication>("Circles", "ShapeType"), info_of(kWriter)),
              "12:25:30 New writer        from 192.168.1.20    : topic=\"Circl\" type=\"S\"\n");
    EXPECT_EQ(report(sample<Subscription>("Circl", "Y"), info_of(kReader)),
              "12:25:30 New reader        from 192.168.1.20    : topic=\"Circl\" type=\"Y\"\n");
}

TEST_F(DiscoveryListener, ShowsWhatWasStoredWhenAnEndpointGoes) {
    show_partition = true;
    Publication data = sample<Publication>("Circle", "ShapeType");
    data.entity_name = entity_name("r", "n");
    data.partition.name = string_seq({"A"});
    report(data, info_of(kWriter));
    Publication last = sample<Publication>("Other", "Type");
    last.unicast_locators = locators({locator(DDS_LOCATOR_KIND_UDPv4, {9, 9, 9, 9})});
    publications.participant_data.partition.name = string_seq({"late"});
    EXPECT_EQ(
        report(last, gone(kWriter)),
        "12:25:30 Deleted writer    from 192.168.1.20    : topic=\"Circle\" type=\"ShapeType\" name=\"r:n\""
        " S  partition=\"A\"\n");
}

TEST_F(DiscoveryListener, SaysNothingOfAnEndpointItNeverSaw) {
    EXPECT_EQ(report(Publication(), gone(kWriter)), "");
    EXPECT_EQ(report(Subscription(), gone(kReader)), "");
    EXPECT_EQ(publications.loans + subscriptions.loans, 0);
}

TEST_F(DiscoveryListener, PrintsValidDataThatIsNotAliveAsDeletedAndKeepsIt) {
    EXPECT_EQ(report(sample<Publication>("T", "Y"),
                     info_of(kWriter, DDS_NEW_VIEW_STATE, true, DDS_NOT_ALIVE_NO_WRITERS_INSTANCE_STATE)),
              "12:25:30 Deleted writer    from 192.168.1.20    : topic=\"T\" type=\"Y\"\n");
    EXPECT_EQ(listener().registry().count, 1);
    EXPECT_EQ(listener().discoveredWriters, 0U);
    EXPECT_EQ(report(sample<Publication>("T", "Y"), info_of(kWriter, 0)),
              "12:25:30 Deleted writer    from 192.168.1.20    : topic=\"T\" type=\"Y\"\n")
        << "a view state that does not exist";
}

TEST_F(DiscoveryListener, CrossesOutATimeThatIsNone) {
    DDS_SampleInfo info = info_of(kWriter);
    info.source_timestamp = DDS_TIME_INVALID;
    EXPECT_EQ(report(sample<Publication>("T", "Y"), info),
              "xx:xx:xx New writer        from 192.168.1.20    : topic=\"T\" type=\"Y\"\n");
}

TEST_F(DiscoveryListener, ReportsSeveralInOrder) {
    std::string expected;
    for (uint32_t i = 1; i <= 3; ++i) {
        const std::string topic = "T" + std::to_string(i);
        publications.samples.emplace_back(sample<Publication>(topic.c_str(), "Y"),
                                          info_of({1, 1, 1, 0x102 + 256 * i}));
        expected += "12:25:30 New writer        from 192.168.1.20    : topic=\"" + topic + "\" type=\"Y\"\n";
    }
    EXPECT_EQ(report(publications), expected);
    EXPECT_EQ(listener().discoveredWriters, 3U);
    EXPECT_EQ(publications.takes, 1);
    EXPECT_EQ(publications.loans, 0);
}

TEST_F(DiscoveryListener, IsSilentInUserModeButKeepsTheRegistry) {
    agent._printDiscovery = false;
    agent._printUserData = true;
    agent._topicRegex[agent._topicRegexCount++] = DDS_String_dup("no such topic");
    EXPECT_EQ(report(sample<Publication>("T", "Y"), info_of(kWriter)), "");
    EXPECT_EQ(listener().registry().count, 1);
    EXPECT_EQ(listener().discoveredWriters, 1U);
    const VerbosityGuard talkative(2);
    EXPECT_EQ(report(sample<Publication>("T", "Y"), info_of(kWriter, DDS_NOT_NEW_VIEW_STATE)),
              "ferret: ... topic and type NOT MATCHED\n")
        << "the agent is told";
    EXPECT_EQ(report(Publication(), gone(kWriter)), "");
    EXPECT_EQ(listener().registry().count, 0);
}

TEST_F(DiscoveryListener, TellsTheAgentOfPublicationsOnly) {
    const VerbosityGuard talkative(2);
    agent._printUserData = true;
    agent._topicRegex[agent._topicRegexCount++] = DDS_String_dup("C");
    const std::string line = " from 192.168.1.20    : topic=\"Circle\" type=\"Y\"\n";
    EXPECT_EQ(report(sample<Publication>("Circle", "Y"), info_of(kWriter)),
              "ferret: ... topic and type NOT MATCHED\n12:25:30 New writer       " + line);
    EXPECT_EQ(report(sample<Publication>("Circle", "Y"), info_of(kWriter, DDS_NOT_NEW_VIEW_STATE)),
              "ferret: ... topic and type NOT MATCHED\n12:25:30 Updated writer   " + line);
    EXPECT_EQ(report(Publication(), gone(kWriter)), "12:25:30 Deleted writer   " + line);
    EXPECT_EQ(report(sample<Subscription>("Circle", "Y"), info_of(kReader)),
              "12:25:30 New reader       " + line);

    agent._printUserData = false;
    EXPECT_EQ(report(sample<Publication>("Circle", "Y"), info_of(kWriter, DDS_NOT_NEW_VIEW_STATE)),
              "12:25:30 Updated writer   " + line);
}

TEST_F(DiscoveryListener, KnowsItsReaders) {
    FakeBuiltinReader<Publication> stranger;
    EXPECT_EQ(report(stranger), "unidentified reader for DiscoveryListener\n");
    EXPECT_EQ(stranger.takes, 0);
    EXPECT_EQ(printed_by([&] { listener().on_data_available(nullptr); }),
              "unidentified reader for DiscoveryListener\n");
    const VerbosityGuard silent(0);
    EXPECT_EQ(report(stranger), "");
}

TEST_F(DiscoveryListener, EndsWithTheRun) {
    QUIXSPY_INTERRUPTED = true;
    EXPECT_EQ(report(sample<Publication>("Circle", "ShapeType"), info_of(kWriter)), "");
    QUIXSPY_INTERRUPTED = false;
    EXPECT_EQ(listener().discoveredWriters, 0U) << "the statistics count lines";
    EXPECT_EQ(publications.loans, 0);
}

TEST_F(DiscoveryListener, ShowsWhatATerminalWouldObey) {
    show_partition = true;
    Publication data = sample<Publication>("Cir\ncle", "\x1b[2J");
    data.entity_name = entity_name(nullptr, "\xff");
    data.partition.name = string_seq({"\x7f"});
    EXPECT_EQ(report(data, info_of(kWriter)),
              "12:25:30 New writer        from 192.168.1.20    : topic=\"Cir\\x0acle\" type=\"\\x1b[2J\" "
              "name=\"\\xff\" S  partition=\"\\x7f\"\n");
    EXPECT_NE(report(Publication(), gone(kWriter)).find(" topic=\"Cir\\x0acle\" "), std::string::npos);
}

TEST_F(DiscoveryListener, IsSilentWithoutData) {
    EXPECT_EQ(report(publications), "");
    EXPECT_EQ(publications.loans, 0);
}

TEST_F(DiscoveryListener, ReportsAFailedTake) {
    publications.take_result = DDS_RETCODE_ERROR;
    EXPECT_EQ(report(publications), "take error 1\n");
    const VerbosityGuard silent(0);
    EXPECT_EQ(report(publications), "");
}

TEST_F(DiscoveryListener, SkipsASampleWithoutKey) {
    DDS_SampleInfo bad = info_of(kWriter);
    bad.instance_handle = DDS_HANDLE_NIL;
    publications.samples.emplace_back(sample<Publication>("A", "Y"), bad);
    publications.samples.emplace_back(sample<Publication>("B", "Y"), info_of(kWriter));
    EXPECT_EQ(report(publications),
              "get_key_value error 3\n"
              "12:25:30 New writer        from 192.168.1.20    : topic=\"B\" type=\"Y\"\n");
    EXPECT_EQ(publications.loans, 0);
}

TEST_F(DiscoveryListener, StopsWhenAParticipantIsNotKnown) {
    const RtpsGuid orphan{7, 7, 7, 0x102};
    publications.handle_without_participant = handle_of(orphan);
    publications.samples.emplace_back(sample<Publication>("A", "Y"), info_of(kWriter));
    publications.samples.emplace_back(sample<Publication>("B", "Y"), info_of(orphan));
    publications.samples.emplace_back(sample<Publication>("C", "Y"), info_of({8, 8, 8, 0x102}));
    EXPECT_EQ(report(publications),
              "12:25:30 New writer        from 192.168.1.20    : topic=\"A\" type=\"Y\"\n"
              "get_matched_publication_participant_data error 3\n");
    EXPECT_EQ(publications.loans, 1) << "the loan stays out";
    EXPECT_EQ(listener().discoveredWriters, 1U);
    EXPECT_EQ(listener().registry().count, 1);
}

TEST_F(DiscoveryListener, ReportsALoanThatCannotBeReturned) {
    publications.return_loan_result = DDS_RETCODE_PRECONDITION_NOT_MET;
    EXPECT_EQ(
        report(sample<Publication>("T", "Y"), info_of(kWriter)),
        "12:25:30 New writer        from 192.168.1.20    : topic=\"T\" type=\"Y\"\nreturn loan error 4\n");
}

TEST_F(DiscoveryListener, RefusesTheUnknownGuid) {
    EXPECT_EQ(report(sample<Publication>("T", "Y"), info_of({0, 0, 0, 0})),
              "Unknown writer\n"
              "ferret: Error initializing QuixSpyEndpointInfo\n"
              "ferret: Failed to add entity for topic 'T' to internal endpoint list).\n");
    const VerbosityGuard silent(0);
    EXPECT_EQ(report(sample<Publication>("T", "Y"), info_of({0, 0, 0, 0})), "");
}

TEST(KeyedTopic, IsDecidedByTheEntityKind) {
    const VerbosityGuard guard(1);
    QuixSpyAgent agent("Spy", test_output());
    const QuixSpyDiscoveryListener listener(&agent, nullptr, nullptr, false, false, false, 50, 50,
                                            PRINT_SAMPLE_NONE, false);
    for (uint32_t kind = 0; kind < 256; ++kind) {
        const uint32_t low = kind & 0x3f;
        const bool is_keyed = low == 0x02 || low == 0x07 || low == 0x0b || low == 0x0e || low == 0x3d;
        const bool is_unkeyed = low == 0x03 || low == 0x04 || low == 0x0c || low == 0x0d || low == 0x3c;
        bool keyed = false;
        const std::string printed = printed_by([&] {
            keyed = listener.checkIsKeyedTopic({0, 0, 0, 0xabcdef00U | kind});
        });
        EXPECT_EQ(keyed, !is_unkeyed) << kind;
        EXPECT_EQ(printed, is_keyed || is_unkeyed ? "" : "Unknown writer\n") << kind;
    }
}

TEST(Locators, TheFirstIpv4OneCounts) {
    char ip[QUIXSPY_IP_SIZE] = "before";
    EXPECT_FALSE(QuixSpyDiscoveryListenerHelper_getIpv4Address(ip, locators({})));
    EXPECT_FALSE(QuixSpyDiscoveryListenerHelper_getIpv4Address(
        ip, locators({locator(DDS_LOCATOR_KIND_UDPv6, {1, 2, 3, 4}), locator(0x01000000, {1, 2, 3, 4}),
                      locator(16, {1, 2, 3, 4}), locator(DDS_LOCATOR_KIND_INVALID, {1, 2, 3, 4}),
                      locator(DDS_LOCATOR_KIND_RESERVED, {1, 2, 3, 4})})));
    EXPECT_STREQ(ip, "before");
    for (const DDS_Long kind :
         {DDS_LOCATOR_KIND_UDPv4, DDS_LOCATOR_KIND_UDPv4_WAN, DDS_LOCATOR_KIND_TCPV4_LAN,
          DDS_LOCATOR_KIND_TCPV4_WAN, DDS_LOCATOR_KIND_TLSV4_LAN, DDS_LOCATOR_KIND_TLSV4_WAN}) {
        EXPECT_TRUE(QuixSpyDiscoveryListenerHelper_getIpv4Address(
            ip, locators({locator(DDS_LOCATOR_KIND_UDPv6, {9, 9, 9, 9}), locator(kind, {255, 255, 255, 255}),
                          locator(DDS_LOCATOR_KIND_UDPv4, {1, 1, 1, 1})})));
        EXPECT_STREQ(ip, "255.255.255.255") << kind;
    }
}

TEST_F(DiscoveryListener, AsksTheParticipantForAnAddress) {
    char ip[QUIXSPY_IP_SIZE] = {};
    const DDS_LocatorSeq none =
        locators({locator(16, {1, 2, 3, 4}), locator(DDS_LOCATOR_KIND_UDPv6, {1, 2, 3, 4})});
    participant.participant_data.default_unicast_locators = locators(
        {locator(DDS_LOCATOR_KIND_UDPv6, {1, 1, 1, 1}), locator(DDS_LOCATOR_KIND_UDPv4, {10, 0, 0, 7}),
         locator(DDS_LOCATOR_KIND_UDPv4, {10, 0, 0, 8})});
    participant.results.clear();
    listener().getIpv4Address(ip, kWriter, none);
    EXPECT_STREQ(ip, "10.0.0.7");
    const DDS_Octet expected[16] = {0x01, 0x01, 0x88, 0x8c, 0x46, 0xc9, 0xef, 0x71,
                                    0xfa, 0x7e, 0xd5, 0xae, 0x00, 0x00, 0x01, 0xc1};
    EXPECT_EQ(std::memcmp(participant.asked_participant.keyHash, expected, 16), 0);
    EXPECT_EQ(participant.asked_participant.length, 16U);
    EXPECT_TRUE(participant.asked_participant.isValid);

    participant.participant_data.default_unicast_locators = none;
    listener().getIpv4Address(ip, kWriter, none);
    EXPECT_STREQ(ip, "unknown ip");
}

TEST_F(DiscoveryListener, LivesWithoutAnAddress) {
    char ip[QUIXSPY_IP_SIZE] = {};
    const auto ask = [&] { listener().getIpv4Address(ip, kWriter, locators({})); };
    EXPECT_EQ(printed_by(ask), "") << "a participant that is not known is no error";
    EXPECT_STREQ(ip, "unknown ip");
    subscriber.participant = nullptr;
    EXPECT_EQ(printed_by(ask), "ferret: Error getting DomainParticipant\n");
    EXPECT_STREQ(ip, "unknown ip");
    subscriptions.subscriber = nullptr;
    EXPECT_EQ(printed_by(ask), "ferret: Error getting Subscriber\n");
    EXPECT_STREQ(ip, "unknown ip");

    Publication data = sample<Publication>("T", "Y");
    data.unicast_locators = locators({});
    const VerbosityGuard silent(0);
    EXPECT_EQ(report(data, info_of(kWriter)),
              "12:25:30 New writer        from unknown ip      : topic=\"T\" type=\"Y\"\n");
}
