// The construction of a participant: what is asked of the middleware, in which order, and every way it can
// fail.

#include <gtest/gtest.h>
#include <unistd.h>

#include "agent/QuixAgentParticipant.h"
#include "agent/QuixAgentQosProfile.h"
#include "agent/fake_agent.h"
#include "support/fake_entities.h"
#include "support/output_file.h"
#include "support/test_output.h"
#include "support/verbosity_guard.h"

namespace {

using Strings = std::vector<std::string>;

/// The transports of the one participant under test.
struct FakeTransports {
    QUIXTransport_Property udpv4{DDS_TRANSPORT_KIND_UDPv4};
    QUIXTransport_Property shmem{DDS_TRANSPORT_KIND_SHMEM};
    QUIXTransport_Property udpv6{DDS_TRANSPORT_KIND_UDPv6};
    std::vector<DDS_TransportBuiltinKind> written;
    OutputFile* log = nullptr; // gets a line for every property that is written
    DDS_ReturnCode_t write_result = DDS_RETCODE_OK;

    QUIXTransport_Property& of(DDS_TransportBuiltinKind kind) {
        return kind == DDS_TRANSPORT_KIND_UDPv4 ? udpv4 : kind == DDS_TRANSPORT_KIND_SHMEM ? shmem : udpv6;
    }
};
FakeTransports* transports = nullptr;

DDS_ReturnCode_t get_transport(DDSDomainParticipant*, QUIXTransport_Property& property) {
    property = transports->of(property.kind);
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t set_transport(DDSDomainParticipant*, const QUIXTransport_Property& property) {
    transports->of(property.kind) = property;
    transports->written.push_back(property.kind);
    if (transports->log != nullptr) {
        EXPECT_TRUE(transports->log->log("logged\n"));
    }
    return transports->write_result;
}

Strings strings(const DDS_StringSeq& sequence) {
    Strings result;
    for (DDS_Long i = 0; i < sequence.length(); ++i)
        result.emplace_back(sequence[i]);
    return result;
}

std::string property(const DDS_PropertyQosPolicy& policy, const char* name) {
    const DDS_Property_t* const found = DDS_PropertyQosPolicyHelper_lookup_property(policy, name);
    return found != nullptr ? found->value : "(absent)";
}

class Participant : public ::testing::Test {
  protected:
    Participant() {
        transports = &fake_transports;
        builtin.readers = {{"DCPSPublication", &publications}, {"DCPSSubscription", &subscriptions}};
        participant.builtin_subscriber = &builtin;
        participant.created_subscriber = &subscriber;
        factory.created_participant = &participant;
    }

    std::string create(bool expect_success = true) {
        DDSDomainParticipant* created = nullptr;
        DDSSubscriber* created_subscriber = nullptr;
        const QuixAgentMiddleware middleware{&factory, get_transport, set_transport};
        const std::string text = printed_by(
            [&] { created = QuixAgentParticipant_create(agent, middleware, request, &created_subscriber); });
        EXPECT_EQ(created, expect_success ? &participant : nullptr);
        if (expect_success) {
            EXPECT_EQ(created_subscriber, &subscriber);
        }
        return text;
    }

    /// A failure from verbosity 1 on, and the same without a word.
    void expect_failure(const std::string& message) {
        EXPECT_EQ(create(false), message);
        const VerbosityGuard silent(0);
        EXPECT_EQ(create(false), "");
    }

    VerbosityGuard verbosity{1};
    FakeTransports fake_transports;
    FakeAgent agent{"Kvo Meridian DDS Spy"};
    FakeFactory factory;
    FakeParticipant participant;
    FakeSubscriber builtin;
    FakeSubscriber subscriber;
    FakeBuiltinReader<DDS_PublicationBuiltinTopicData> publications;
    FakeBuiltinReader<DDS_SubscriptionBuiltinTopicData> subscriptions;
    QuixAgentParticipantRequest request;
};

} // namespace

TEST(QosProfile, HasItsPiecesInOrder) {
    std::string document;
    int opened = 0;
    for (const char* const fragment : QUIX_AGENT_QOS_FRAGMENTS) {
        ASSERT_NE(fragment, nullptr);
        const std::string text = fragment;
        const bool is_tag = text.front() == '<' && text.find('<', 1) == std::string::npos;
        opened += !is_tag ? 0 : text[1] == '/' ? -1 : 1;
        document += text;
    }
    EXPECT_EQ(opened, 0);
    EXPECT_NE(document.find("<element><name> dds.transport.UDPv4.builtin.ignore_loopback_interface </name>"
                            "<value> 0 </value></element>"),
              std::string::npos);
    EXPECT_NE(document.find("<latency_budget><duration><sec> DURATION_INFINITE_SEC</sec>"
                            "<nanosec>DURATION_INFINITE_NSEC</nanosec></duration></latency_budget>"),
              std::string::npos);
    EXPECT_NE(document.find("<representation><value><element>XCDR_DATA_REPRESENTATION</element>"
                            "<element>XCDR2_DATA_REPRESENTATION</element></value></representation>"),
              std::string::npos);
}

TEST_F(Participant, IsBuiltFromTheBuiltInProfile) {
    agent.domainId = 7;
    EXPECT_EQ(create(), "");
    const Strings fragments = strings(factory.factory_qos.profile.string_profile);
    ASSERT_EQ(fragments.size(), 85U);
    EXPECT_EQ(fragments.front(), "<dds>");
    EXPECT_EQ(fragments[1], "<qos_library name=\"InternalSpyLibrary\">");
    EXPECT_EQ(fragments.back(), "</dds>");
    EXPECT_EQ(factory.factory_qos.profile.url_profile.length(), 0);
    EXPECT_FALSE(factory.factory_qos.entity_factory.autoenable_created_entities);
    EXPECT_EQ(factory.loaded, "InternalSpyLibrary::InternalSpyProfile");
    EXPECT_EQ(participant.profiles, Strings(3, "InternalSpyLibrary::InternalSpyProfile"));
    EXPECT_EQ(factory.domain, 7);
    EXPECT_EQ(builtin.looked_up, (Strings{"DCPSPublication", "DCPSSubscription"}));
    EXPECT_EQ(participant.calls, (Strings{"topic", "subscriber", "datareader", "enable",
                                          "get_default_subscriber_qos", "create_subscriber"}));
    EXPECT_TRUE(subscriber.enabled) << "whatever the profile says of that";
    EXPECT_TRUE(fake_transports.written.empty());
    EXPECT_TRUE(factory.deleted.empty());
    EXPECT_EQ(property(factory.participant_qos.property, "dds.builtin_type.auto_register"), "0");
    EXPECT_EQ(factory.participant_qos.property.value.length(), 1);
}

TEST_F(Participant, SaysHowItGetsOnAboveVerbosityOne) {
    const VerbosityGuard talkative(2);
    EXPECT_EQ(create(), "loading QoS ...\nCreating domain participant...\nCreating subscriber...\n");
}

TEST_F(Participant, LoadsTheQosFile) {
    QuixAgent_replaceString(agent.qosFile, "a.xml;b.xml");
    create();
    EXPECT_EQ(strings(factory.factory_qos.profile.url_profile), Strings{"a.xml;b.xml"});
}

TEST_F(Participant, PrefersTheUsersDefaultProfile) {
    factory.profiles["DefaultSpyLibrary"] = {"Other", "DefaultSpyProfile"};
    create();
    EXPECT_EQ(factory.loaded, "DefaultSpyLibrary::DefaultSpyProfile");
    factory.profiles["DefaultSpyLibrary"] = {"Other"};
    create();
    EXPECT_EQ(factory.loaded, "InternalSpyLibrary::InternalSpyProfile");
}

TEST_F(Participant, UsesTheProfileThatWasAskedFor) {
    QuixAgent_replaceString(agent.qosProfile, "Mine::P");
    QuixAgent_replaceString(agent.qosLibraryName, "Mine");
    QuixAgent_replaceString(agent.qosProfileName, "P");
    EXPECT_EQ(create(), "QoS profile 'Mine::P' was not found. Using default configuration.\n");
    EXPECT_EQ(factory.loaded, "InternalSpyLibrary::InternalSpyProfile");

    factory.profiles["Mine"] = {"p", "Q"};
    EXPECT_EQ(create(), "QoS profile 'Mine::P' was not found. Using default configuration.\n");
    factory.profiles["Mine"] = {"p", "P"};
    factory.profiles["DefaultSpyLibrary"] = {"DefaultSpyProfile"};
    EXPECT_EQ(create(), "");
    EXPECT_EQ(factory.loaded, "Mine::P");
    EXPECT_EQ(participant.profiles.back(), "Mine::P");

    factory.profiles["Mine"].clear();
    const VerbosityGuard silent(0);
    EXPECT_EQ(create(), "");
    EXPECT_EQ(factory.loaded, "DefaultSpyLibrary::DefaultSpyProfile");
}

TEST_F(Participant, KeepsTheProfileWhereNothingIsAskedFor) {
    DDS_DomainParticipantQos& qos = factory.profile_qos;
    qos.wire_protocol.participant_id = 4;
    qos.wire_protocol.rtps_app_id = 5;
    qos.transport_builtin.mask = 1;
    qos.receiver_pool.buffer_size = 6;
    qos.resource_limits.type_code_max_serialized_length = 7;
    qos.discovery_config.builtin_discovery_plugins = 8;
    DDS_StringSeq_append(qos.discovery.initial_peers, "peer");
    DDS_StringSeq_append(qos.partition.name, "*");
    DDS_StringSeq_append(participant.default_subscriber_qos.partition.name, "S");
    QuixAgent_replaceString(qos.participant_name.name, "Name");
    create();
    const DDS_DomainParticipantQos& used = factory.participant_qos;
    EXPECT_EQ(used.wire_protocol.participant_id, 4);
    EXPECT_EQ(used.wire_protocol.rtps_app_id, 5U);
    EXPECT_EQ(used.transport_builtin.mask, 1);
    EXPECT_EQ(used.receiver_pool.buffer_size, 6);
    EXPECT_EQ(used.resource_limits.type_code_max_serialized_length, 7);
    EXPECT_EQ(used.discovery_config.builtin_discovery_plugins, 8);
    EXPECT_EQ(strings(used.discovery.initial_peers), Strings{"peer"});
    EXPECT_EQ(strings(used.partition.name), Strings{"*"});
    EXPECT_EQ(strings(participant.subscriber_qos.partition.name), Strings{"S"});
    EXPECT_STREQ(used.participant_name.name, "Name");
}

TEST_F(Participant, AppliesWhatIsAskedFor) {
    agent.participantIndex = 3;
    agent.appId = 0xbeef;
    agent.transportMask = 9;
    agent.msgMaxSize = 0;
    agent.tcMaxSize = 100;
    for (const char* const peer : {"a", "b"})
        agent.peerList[agent.peerCount++] = DDS_String_dup(peer);
    QuixAgent_replaceString(agent.domainTag, "tag");
    const char* participant_partitions[] = {"P1", "P2"};
    const char* subscriber_partitions[] = {"S"};
    request.participantPartitionCount = 2;
    request.participantPartitions = participant_partitions;
    request.subscriberPartitionCount = 1;
    request.subscriberPartitions = subscriber_partitions;
    request.setDiscoveryPlugins = true;
    request.discoveryPlugins = DDS_DISCOVERYCONFIG_BUILTIN_SDP2;
    QuixAgent_replaceString(factory.profile_qos.participant_name.name, "");
    DDS_StringSeq_append(factory.profile_qos.discovery.initial_peers, "of the profile");
    EXPECT_EQ(create(), "");
    const DDS_DomainParticipantQos& used = factory.participant_qos;
    EXPECT_EQ(used.wire_protocol.participant_id, 3);
    EXPECT_EQ(used.wire_protocol.rtps_app_id, 0xbeefU);
    EXPECT_EQ(used.transport_builtin.mask, 9);
    EXPECT_EQ(used.receiver_pool.buffer_size, 0) << "although no transport is changed for it";
    EXPECT_TRUE(fake_transports.written.empty());
    EXPECT_EQ(used.resource_limits.type_code_max_serialized_length, 100);
    EXPECT_EQ(used.discovery_config.builtin_discovery_plugins, 18);
    EXPECT_EQ(strings(used.discovery.initial_peers), (Strings{"a", "b"}));
    EXPECT_EQ(strings(used.partition.name), (Strings{"P1", "P2"}));
    EXPECT_EQ(strings(participant.subscriber_qos.partition.name), Strings{"S"});
    EXPECT_STREQ(used.participant_name.name, "Kvo Meridian DDS Spy");
    EXPECT_EQ(property(used.property, "dds.domain_participant.domain_tag"), "tag");
}

TEST_F(Participant, AddsCompatibilityPropertiesUnlessThereAreSome) {
    agent.use43LargeDataFormat = true;
    agent.use510CompatibleLocatorKinds = true;
    DDS_PropertyQosPolicyHelper_add_property(factory.profile_qos.property,
                                             "dds.data_reader.protocol.use_43_large_data_format", "0", false);
    EXPECT_EQ(create(), "");
    const DDS_PropertyQosPolicy& used = factory.participant_qos.property;
    EXPECT_EQ(property(used, "dds.data_writer.protocol.use_43_large_data_format"), "1");
    EXPECT_EQ(property(used, "dds.data_reader.protocol.use_43_large_data_format"), "0");
    EXPECT_EQ(property(used, "dds.transport.use_510_compatible_locator_kinds"), "1");
}

TEST_F(Participant, PrintsWhatItChangesBeforeTheMiddlewareLogs) {
    OutputFile file;
    FakeAgent logging("Kvo Meridian DDS Spy", 0, file.output);
    logging.discoveryTTL = 5;
    fake_transports.log = &file;
    const int before = fake_transports.udpv4.udp.multicast_ttl;
    const QuixAgentMiddleware middleware{&factory, get_transport, set_transport};
    EXPECT_TRUE(QuixAgentTransports_adjust(logging, middleware, &participant));
    EXPECT_EQ(file.text(), "Changing UDPv4 TTL from " + std::to_string(before) + " to 5\nlogged\n");
}

TEST_F(Participant, DropsTheMonitoringLibrary) {
    for (const char* const name :
         {"kvo.monitor.library", "kvo.monitor", "kvo.mon", "kvo.monitoring", "other"})
        DDS_PropertyQosPolicyHelper_add_property(factory.profile_qos.property, name, "x", false);
    EXPECT_EQ(create(), "The usage of the monitoring library is not supported in this tool.\n");
    const DDS_PropertyQosPolicy& used = factory.participant_qos.property;
    EXPECT_EQ(property(used, "kvo.monitor.library"), "(absent)");
    EXPECT_EQ(property(used, "kvo.monitor"), "(absent)");
    EXPECT_EQ(property(used, "kvo.monitoring"), "(absent)");
    EXPECT_EQ(property(used, "kvo.mon"), "x");
    EXPECT_EQ(property(used, "other"), "x");
}

TEST_F(Participant, IsIgnoredByTheExistingOne) {
    FakeParticipant existing;
    request.existing = &existing;
    create();
    ASSERT_EQ(existing.ignored.size(), 1U);
    EXPECT_TRUE(existing.ignored[0] == participant.handle);
    EXPECT_TRUE(participant.ignored.empty());
}

TEST_F(Participant, ReportsEveryFailure) {
    const auto with = [this](std::map<std::string, DDS_ReturnCode_t>& results, const char* operation,
                             const std::string& message) {
        results = {{operation, 5}};
        expect_failure(message);
        results.clear();
    };
    with(factory.results, "get_qos", "get_qos on DomainParticipantFactory error 5\n");
    with(factory.results, "set_qos", "set_qos on DomainParticipantFactory error 0\n");
    with(factory.results, "get_participant_qos_from_profile", "get_participant_qos_from_profile error 5\n");
    with(participant.results, "topic", "QUIXAgent: set_default_topic_qos_with_profile 5\n");
    with(participant.results, "subscriber", "QUIXAgent: set_default_subscriber_qos_with_profile 5\n");
    with(participant.results, "datareader", "QUIXAgent: set_default_datareader_qos_with_profile 5\n");
    with(participant.results, "get_default_subscriber_qos", "get_default_subscriber_qos error 5\n");

    subscriber.enable_result = DDS_RETCODE_ERROR;
    expect_failure("QUIXAgent: Subscriber::enable error 1\n");
    participant.created_subscriber = nullptr;
    expect_failure("create_subscriber error\n");
    builtin.readers.erase("DCPSSubscription");
    expect_failure("lookup DCPSSubscription error\n");
    builtin.readers.clear();
    expect_failure("lookup DCPSPublication error\n");
    participant.builtin_subscriber = nullptr;
    expect_failure("get_builtin_subscriber error\n");
    EXPECT_TRUE(factory.deleted.empty()) << "none of these deletes the participant";
    factory.created_participant = nullptr;
    expect_failure("create_participant error\n");
}

TEST_F(Participant, IsDestroyedWhenItCannotBeEnabled) {
    participant.results["enable"] = 1;
    EXPECT_EQ(create(false), "QUIXAgent: DomainParticipant::enable error 1\n");
    EXPECT_EQ(participant.calls.back(), "delete_contained_entities");
    EXPECT_EQ(factory.deleted, std::vector<DDSDomainParticipant*>{&participant});

    participant.results["delete_contained_entities"] = 2;
    factory.results["delete_participant"] = 3;
    expect_failure(
        "QUIXAgent: DomainParticipant::enable error 1\ndelete_contained_entities error 2\ndelete_participant "
        "error 3\n");
    EXPECT_EQ(factory.deleted.size(), 3U);
}

TEST_F(Participant, ReportsARefusedTransport) {
    agent.discoveryTTL = 1;
    fake_transports.write_result = 3;
    EXPECT_EQ(create(false),
              "Changing UDPv4 TTL from 1 to 1\nQUIXAgent: set_builtin_transport_property error 3\n");
}

TEST_F(Participant, ChangesTheTtlOfBothFamilies) {
    agent.transportMask = 8;
    agent.discoveryTTL = 5;
    const VerbosityGuard silent(0);
    EXPECT_EQ(create(), "Changing UDPv4 TTL from 1 to 5\nChanging UDPv6 TTL from 1 to 5\n")
        << "at any verbosity";
    EXPECT_EQ(fake_transports.udpv4.udp.multicast_ttl, 5);
    EXPECT_EQ(fake_transports.udpv6.udp.multicast_ttl, 5);
    EXPECT_EQ(fake_transports.udpv4.udp.message_size_max, 65507);
    EXPECT_EQ(fake_transports.written,
              (std::vector<DDS_TransportBuiltinKind>{DDS_TRANSPORT_KIND_UDPv4, DDS_TRANSPORT_KIND_UDPv6}));
}

TEST_F(Participant, ChangesTheMessageSizeOfEveryTransport) {
    agent.transportMask = 9;
    agent.discoveryTTL = 0;
    agent.msgMaxSize = 1400;
    fake_transports.shmem.shmem.receive_buffer_size = 2799;
    EXPECT_EQ(create(),
              "Changing UDPv4 TTL from 1 to 0\n"
              "Changing UDPv4 message size max from 65507 to 1400\n"
              "Changing shmem message size max from 65507 to 1400\n"
              "Changing shmem receive buffer size from 2799 to 2800\n"
              "Changing UDPv6 TTL from 1 to 0\n"
              "Changing UDPv6 message size max from 65507 to 1400\n");
    EXPECT_EQ(fake_transports.udpv4.udp.message_size_max, 1400);
    EXPECT_EQ(fake_transports.udpv4.udp.send_socket_buffer_size, 1400);
    EXPECT_EQ(fake_transports.udpv4.udp.recv_socket_buffer_size, 1400);
    EXPECT_EQ(fake_transports.shmem.shmem.message_size_max, 1400);
    EXPECT_EQ(fake_transports.shmem.shmem.receive_buffer_size, 2800);
    EXPECT_EQ(factory.participant_qos.receiver_pool.buffer_size, 1400);
}

TEST_F(Participant, LeavesUdpv6AloneWhenItIsNotSelected) {
    agent.msgMaxSize = 65536;
    fake_transports.shmem.shmem.receive_buffer_size = 131071;
    EXPECT_EQ(create(),
              "Changing UDPv4 message size max from 65507 to 65536\n"
              "Changing shmem message size max from 65507 to 65536\n"
              "Changing shmem receive buffer size from 131071 to 131072\n");
    fake_transports.shmem.shmem.receive_buffer_size = 131072;
    EXPECT_EQ(create(),
              "Changing UDPv4 message size max from 65536 to 65536\n"
              "Changing shmem message size max from 65536 to 65536\n");
}

TEST_F(Participant, RaisesTheSharedMemoryMessageCount) {
    agent.shmRcvSize = 1000000;
    fake_transports.shmem.shmem = {65536, 1, 31};
    EXPECT_EQ(create(),
              "Changing shmem receive buffer size from 1 to 1000000\n"
              "Changing shmem received message count max from 31 to 32\n");
    EXPECT_EQ(fake_transports.shmem.shmem.received_message_count_max, 32);
    EXPECT_EQ(create(), "Changing shmem receive buffer size from 1000000 to 1000000\n");
    agent.shmRcvSize = 1;
    EXPECT_EQ(create(), "Changing shmem receive buffer size from 1000000 to 1\n") << "it is never lowered";
    EXPECT_EQ(fake_transports.shmem.shmem.received_message_count_max, 32);
}

TEST_F(Participant, UsesTheNewMessageSizeForTheCount) {
    agent.msgMaxSize = 1000;
    agent.shmRcvSize = 100500;
    fake_transports.shmem.shmem = {65536, 1, 64};
    EXPECT_EQ(create(),
              "Changing UDPv4 message size max from 65507 to 1000\n"
              "Changing shmem message size max from 65536 to 1000\n"
              "Changing shmem receive buffer size from 1 to 100500\n"
              "Changing shmem received message count max from 64 to 202\n");
}

TEST_F(Participant, StaysWithinThirtyTwoBits) {
    agent.msgMaxSize = 2000000000;
    fake_transports.shmem.shmem.receive_buffer_size = 1;
    create();
    EXPECT_EQ(fake_transports.shmem.shmem.receive_buffer_size, 2147483647);
    agent.msgMaxSize = -1;
    agent.shmRcvSize = 2147483647;
    fake_transports.shmem.shmem = {0, 1, 1};
    create();
    EXPECT_EQ(fake_transports.shmem.shmem.received_message_count_max, 2147483647);
}
