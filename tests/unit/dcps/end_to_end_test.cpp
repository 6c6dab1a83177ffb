// Participants of this process and one of another process, over the loopback interface of a private network.

#include <chrono>
#include <cstring>
#include <memory>
#include <thread>

#include "discovery/conversions.h"
#include "factory_fixture.h"
#include "meridian/condition.h"
#include "meridian/logger.h"
#include "meridian/transport.h"
#include "peer_process.h"
#include "support/no_threads.h"

namespace meridian::dcps::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

constexpr milliseconds kPatience{30000};
constexpr milliseconds kQuiet{700}; // several bursts of announcements

/// "new", "changed" or "gone", and the topic name where there is one, for each sample.
template <typename Data>
class Watcher {
  public:
    using Reader = DDSBuiltinTopicDataReader<Data>;

    Watcher(DDSDomainParticipant* participant, const char* topic)
        : reader_(Reader::narrow(participant->get_builtin_subscriber()->lookup_datareader(topic))) {
        reader_->get_statuscondition()->set_enabled_statuses(DDS_DATA_AVAILABLE_STATUS);
        wait_set_.attach_condition(reader_->get_statuscondition());
    }

    /// The next sample, "" when there is none for so long. Of the sample, `data` and `info` remain.
    std::string next(milliseconds patience = kPatience) {
        const auto deadline = steady_clock::now() + patience;
        while (true) {
            if (take())
                return describe();
            const auto left =
                std::chrono::duration_cast<milliseconds>(deadline - steady_clock::now()).count();
            if (left <= 0)
                return "";
            DDSConditionSeq active;
            wait_set_.wait(active, {static_cast<DDS_Long>(left / 1000),
                                    static_cast<DDS_UnsignedLong>(left % 1000 * 1000000)});
        }
    }
    Reader* reader() { return reader_; }

    Data data;
    DDS_SampleInfo info;

  private:
    bool take() {
        DDS_Sequence<Data> samples;
        DDS_SampleInfoSeq infos;
        if (reader_->take(samples, infos, 1, DDS_ANY_SAMPLE_STATE, DDS_ANY_VIEW_STATE,
                          DDS_ANY_INSTANCE_STATE) != DDS_RETCODE_OK)
            return false;
        data = samples[0];
        info = infos[0];
        DDS_ParticipantBuiltinTopicData participant;
        EXPECT_EQ(reader_->get_matched_publication_participant_data(participant, info.instance_handle),
                  DDS_RETCODE_OK);
        EXPECT_EQ(reader_->return_loan(samples, infos), DDS_RETCODE_OK);
        return true;
    }
    std::string describe() const {
        if (!info.valid_data)
            return info.instance_state == DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE ? "gone" : "?";
        return (info.view_state == DDS_NEW_VIEW_STATE ? "new " : "changed ") + std::string(data.topic_name);
    }

    Reader* const reader_;
    DDSWaitSet wait_set_;
};
using WriterWatcher = Watcher<DDS_PublicationBuiltinTopicData>;
using ReaderWatcher = Watcher<DDS_SubscriptionBuiltinTopicData>;

DDS_DomainParticipantQos qos_with_partition(const char* name) {
    DDS_DomainParticipantQos qos;
    DDS_StringSeq_append(qos.partition.name, name);
    return qos;
}

class EndToEndTest : public FactoryTest {
  protected:
    ParticipantImpl* create_enabled(const DDS_DomainParticipantQos& qos = qos_with_partition("*")) {
        ParticipantImpl* participant = create(qos);
        EXPECT_NE(participant, nullptr);
        EXPECT_EQ(participant->enable(), DDS_RETCODE_OK);
        return participant;
    }
    static std::string guid_text(const DDS_InstanceHandle_t& handle) {
        const auto guid = discovery::to_guid(handle);
        return guid ? rtps::to_string(*guid) : "none";
    }
    /// What a participant of another process says of ours, as soon as it knows it.
    static std::string seen_by(PeerProcess& peer, ParticipantImpl& participant,
                               milliseconds patience = kPatience) {
        const std::string question = "participant " + rtps::to_string(participant.guid().prefix);
        const auto deadline = steady_clock::now() + patience;
        std::string answer = peer.ask(question);
        while (answer == "unknown" && steady_clock::now() < deadline) {
            std::this_thread::sleep_for(milliseconds(10));
            answer = peer.ask(question);
        }
        return answer;
    }
};

TEST_F(EndToEndTest, EndpointsAppearChangeAndGo) {
    PeerProcess peer({});
    const std::string writer = peer.ask("writer 1 Square P1");
    ParticipantImpl* participant = create_enabled();
    WriterWatcher writers(participant, DDS_PUBLICATION_TOPIC_NAME);
    ReaderWatcher readers(participant, DDS_SUBSCRIPTION_TOPIC_NAME);
    const DDS_Time_t before = [] {
        DDS_Time_t now{};
        create()->get_current_time(now);
        return now;
    }();

    ASSERT_EQ(writers.next(), "new Square");
    EXPECT_EQ(guid_text(writers.info.instance_handle), writer);
    EXPECT_STREQ(writers.data.type_name, "Type");
    EXPECT_STREQ(writers.data.entity_name.name, "writer Square");
    EXPECT_EQ(writers.data.reliability.kind, DDS_RELIABLE_RELIABILITY_QOS);
    ASSERT_EQ(writers.data.partition.name.length(), 1);
    EXPECT_STREQ(writers.data.partition.name[0], "P1");
    EXPECT_NEAR(writers.info.source_timestamp.sec, before.sec, 60);
    DDS_ParticipantBuiltinTopicData remote;
    ASSERT_EQ(
        writers.reader()->get_matched_publication_participant_data(remote, writers.info.instance_handle),
        DDS_RETCODE_OK);
    EXPECT_STREQ(remote.participant_name.name, "peer");
    ASSERT_GE(remote.default_unicast_locators.length(), 1);
    EXPECT_EQ(remote.default_unicast_locators[0].kind, DDS_LOCATOR_KIND_UDPv4);

    EXPECT_EQ(peer.ask("update 1 P2"), writer);
    ASSERT_EQ(writers.next(), "changed Square");
    EXPECT_STREQ(writers.data.partition.name[0], "P2");
    EXPECT_EQ(peer.ask("remove 1"), writer);
    ASSERT_EQ(writers.next(), "gone");
    EXPECT_EQ(guid_text(writers.info.instance_handle), writer);
    EXPECT_EQ(peer.ask("writer 1 Square"), writer);
    EXPECT_EQ(writers.next(), "new Square");

    const std::string reader = peer.ask("reader 2 Circle");
    ASSERT_EQ(readers.next(), "new Circle");
    EXPECT_EQ(guid_text(readers.info.instance_handle), reader);
    EXPECT_EQ(writers.next(milliseconds(50)), "");
}

TEST_F(EndToEndTest, AProcessThatLeavesOrDiesTakesItsEndpointsAlong) {
    ParticipantImpl* participant = create(); // not enabled yet: a process with threads must not fork
    PeerSettings short_lived;
    short_lived.lease_ms = 2000;
    PeerSettings long_lived;
    long_lived.lease_ms = 600000; // its end is not noticed by silence
    PeerProcess leaving(long_lived);
    PeerProcess dying(short_lived);
    const std::string left = leaving.ask("writer 1 Leaving");
    const std::string died = dying.ask("writer 1 Dying");
    const DDS_InstanceHandle_t own_handle = participant->get_instance_handle();
    ASSERT_EQ(participant->enable(), DDS_RETCODE_OK);
    WriterWatcher writers(participant, DDS_PUBLICATION_TOPIC_NAME);
    EXPECT_EQ(writers.next().substr(0, 3), "new");
    EXPECT_EQ(writers.next().substr(0, 3), "new");

    leaving.leave();
    ASSERT_EQ(writers.next(), "gone");
    EXPECT_EQ(guid_text(writers.info.instance_handle), left);

    dying.kill();
    ASSERT_EQ(writers.next(), "gone");
    EXPECT_EQ(guid_text(writers.info.instance_handle), died);
    DDS_ParticipantBuiltinTopicData data;
    EXPECT_EQ(participant->get_discovered_participant_data(data, own_handle), DDS_RETCODE_BAD_PARAMETER);
}

TEST_F(EndToEndTest, NothingOfThisProcessIsEverSeen) {
    ParticipantImpl* first = create(qos_with_partition("*"));
    ParticipantImpl* second = create(qos_with_partition("*"));
    PeerProcess peer({});
    peer.ask("writer 1 Square");
    ASSERT_EQ(first->enable(), DDS_RETCODE_OK);
    ASSERT_EQ(second->enable(), DDS_RETCODE_OK);
    EXPECT_EQ(first->enable(), DDS_RETCODE_OK);
    WriterWatcher writers_of_first(first, DDS_PUBLICATION_TOPIC_NAME);
    WriterWatcher writers_of_second(second, DDS_PUBLICATION_TOPIC_NAME);
    EXPECT_EQ(writers_of_first.next(), "new Square");
    EXPECT_EQ(writers_of_second.next(), "new Square");
    // The other process sees both, so both were there to be seen.
    EXPECT_NE(seen_by(peer, *first), "unknown");
    EXPECT_NE(seen_by(peer, *second), "unknown");
    DDS_ParticipantBuiltinTopicData data;
    EXPECT_EQ(first->get_discovered_participant_data(data, second->get_instance_handle()),
              DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(second->get_discovered_participant_data(data, first->get_instance_handle()),
              DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(first->get_discovered_participant_data(data, DDS_HANDLE_NIL), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(first->ignore_participant(second->get_instance_handle()), DDS_RETCODE_OK);
    EXPECT_EQ(writers_of_first.next(kQuiet), "");
}

TEST_F(EndToEndTest, AnAnnouncementCarriesNamePropertiesPartitionsAndLease) {
    DDS_DomainParticipantQos qos = qos_with_partition("*");
    qos.participant_name.name = DDS_String_dup("the-name");
    qos.discovery_config.participant_liveliness_lease_duration = {6, 500000000};
    qos.discovery_config.participant_liveliness_assert_period = {2, 0};
    DDS_PropertyQosPolicyHelper_add_property(qos.property, "seen", "1", true);
    DDS_PropertyQosPolicyHelper_add_property(qos.property, "hidden", "1", false);
    PeerProcess peer({});
    ParticipantImpl* participant = create_enabled(qos);
    EXPECT_EQ(seen_by(peer, *participant), "the-name 6 0 seen=1 dds.domain_participant.partition=*");

    DDS_StringSeq_append(qos.partition.name, "A");
    const DDS_Octet octet = 1;
    qos.user_data.value.append(octet);
    ASSERT_EQ(participant->set_qos(qos), DDS_RETCODE_OK);
    const std::string changed = "the-name 6 1 seen=1 dds.domain_participant.partition=*,A";
    const auto deadline = steady_clock::now() + kPatience;
    while (seen_by(peer, *participant) != changed && steady_clock::now() < deadline)
        std::this_thread::sleep_for(milliseconds(10));
    EXPECT_EQ(seen_by(peer, *participant), changed);

    CaptureStderr();
    qos.discovery_config.participant_liveliness_assert_period = {1, 0};
    EXPECT_EQ(participant->set_qos(qos), DDS_RETCODE_IMMUTABLE_POLICY);
    EXPECT_FALSE(GetCapturedStderr().empty());
    ASSERT_EQ(factory()->delete_participant(participant), DDS_RETCODE_OK);
}

TEST_F(EndToEndTest, ADomainTagSeparates) {
    PeerSettings tagged;
    tagged.tag = "blue";
    PeerProcess peer(tagged);
    peer.ask("writer 1 Square");
    DDS_DomainParticipantQos qos = qos_with_partition("*");
    ParticipantImpl* untagged = create_enabled(qos);
    DDS_PropertyQosPolicyHelper_add_property(qos.property, "dds.domain_participant.domain_tag", "blue",
                                             false);
    ParticipantImpl* blue = create_enabled(qos);
    WriterWatcher writers_of_blue(blue, DDS_PUBLICATION_TOPIC_NAME);
    WriterWatcher writers_of_untagged(untagged, DDS_PUBLICATION_TOPIC_NAME);
    EXPECT_EQ(writers_of_blue.next(), "new Square");
    EXPECT_EQ(writers_of_untagged.next(kQuiet), "");
    EXPECT_NE(seen_by(peer, *blue), "unknown");
    EXPECT_EQ(seen_by(peer, *untagged, milliseconds(0)), "unknown");
}

TEST_F(EndToEndTest, ParticipantPartitionsSeparateUntilTheyMatch) {
    PeerSettings settings;
    settings.partitions = "B";
    PeerProcess in_b(settings);
    PeerProcess in_default({});
    in_b.ask("writer 1 FromB");
    in_default.ask("writer 1 FromDefault");
    ParticipantImpl* participant = create_enabled(qos_with_partition("B*"));
    WriterWatcher writers(participant, DDS_PUBLICATION_TOPIC_NAME);
    EXPECT_EQ(writers.next(), "new FromB");
    DDS_ParticipantBuiltinTopicData remote;
    ASSERT_EQ(
        writers.reader()->get_matched_publication_participant_data(remote, writers.info.instance_handle),
        DDS_RETCODE_OK);
    ASSERT_EQ(remote.partition.name.length(), 1);
    EXPECT_STREQ(remote.partition.name[0], "B");
    EXPECT_EQ(writers.next(kQuiet), "");
    ASSERT_EQ(participant->set_qos(qos_with_partition("*")), DDS_RETCODE_OK);
    EXPECT_EQ(writers.next(), "new FromDefault");
    ASSERT_EQ(participant->set_qos(qos_with_partition("")), DDS_RETCODE_OK);
    EXPECT_EQ(writers.next(), "gone");
    EXPECT_EQ(writers.next(milliseconds(50)), "");
}

TEST_F(EndToEndTest, AnIgnoredParticipantIsGoneOrNeverComes) {
    ParticipantImpl* before = create(qos_with_partition("*"));
    ParticipantImpl* after = create(qos_with_partition("*"));
    PeerProcess peer({});
    peer.ask("writer 1 Square");
    ASSERT_EQ(after->enable(), DDS_RETCODE_OK);
    WriterWatcher writers_of_after(after, DDS_PUBLICATION_TOPIC_NAME);
    ASSERT_EQ(writers_of_after.next(), "new Square");
    DDS_InstanceHandle_t peer_handle = writers_of_after.info.instance_handle;
    const uint8_t participant_entity[] = {0, 0, 1, 0xc1};
    std::memcpy(peer_handle.keyHash + 12, participant_entity, 4);
    DDS_ParticipantBuiltinTopicData data;
    EXPECT_EQ(after->get_discovered_participant_data(data, peer_handle), DDS_RETCODE_OK);
    EXPECT_STREQ(data.participant_name.name, "peer");

    ASSERT_EQ(before->ignore_participant(peer_handle), DDS_RETCODE_OK);
    ASSERT_EQ(before->enable(), DDS_RETCODE_OK);
    EXPECT_NE(seen_by(peer, *before), "unknown");
    ASSERT_EQ(after->ignore_participant(peer_handle), DDS_RETCODE_OK);
    EXPECT_EQ(writers_of_after.next(), "gone");
    WriterWatcher writers_of_before(before, DDS_PUBLICATION_TOPIC_NAME);
    EXPECT_EQ(writers_of_before.next(kQuiet), "");
}

TEST_F(EndToEndTest, EnablingReachesWhatIsContainedAndFixesTransports) {
    ParticipantImpl* participant = create();
    DDSSubscriber* subscriber = participant->create_subscriber({}, nullptr, DDS_STATUS_MASK_NONE);
    EXPECT_EQ(subscriber->enable(), DDS_RETCODE_PRECONDITION_NOT_MET);
    QUIXTransport_Property property(DDS_TRANSPORT_KIND_UDPv4);
    property.udp.multicast_ttl = 3;
    EXPECT_EQ(QUIXTransportSupport::set_builtin_transport_property(participant, property), DDS_RETCODE_OK);
    ASSERT_EQ(participant->enable(), DDS_RETCODE_OK);
    EXPECT_EQ(subscriber->enable(), DDS_RETCODE_OK);
    EXPECT_EQ(participant->get_builtin_subscriber()->enable(), DDS_RETCODE_OK);
    EXPECT_EQ(QUIXTransportSupport::set_builtin_transport_property(participant, property),
              DDS_RETCODE_ILLEGAL_OPERATION);
    EXPECT_EQ(QUIXTransportSupport::get_builtin_transport_property(participant, property), DDS_RETCODE_OK);
    EXPECT_EQ(property.udp.multicast_ttl, 3);

    CaptureStderr();
    DDS_SubscriberQos qos;
    qos.presentation.access_scope = DDS_GROUP_PRESENTATION_QOS;
    EXPECT_EQ(subscriber->set_qos(qos), DDS_RETCODE_IMMUTABLE_POLICY);
    EXPECT_NE(GetCapturedStderr().find("presentation"), std::string::npos);
    EXPECT_EQ(factory()->delete_participant(participant), DDS_RETCODE_PRECONDITION_NOT_MET);
}

TEST_F(EndToEndTest, ParticipantsOfOneProcessShareAnIndexAndItsThreads) {
    DDS_DomainParticipantQos qos;
    qos.wire_protocol.participant_id = 0;
    ParticipantImpl* first = create_enabled(qos);
    const NoThreads none;
    ParticipantImpl* second = create_enabled(qos);
    EXPECT_EQ(first->runtime()->participant_index(), 0u);
    EXPECT_EQ(second->runtime()->participant_index(), 0u);
    EXPECT_EQ(&first->delivery(), &second->delivery());
    // Ids of endpoints are unique among those that share a socket.
    const auto kind = rtps::kUserReaderNoKey;
    EXPECT_NE(first->new_guid(kind).entity, second->new_guid(kind).entity);
}

TEST_F(EndToEndTest, AnIndexThatIsTakenCannotBeEnabled) {
    DDS_DomainParticipantQos qos;
    qos.wire_protocol.participant_id = 0;
    create_enabled(qos);
    qos.transport_builtin.mask = DDS_TRANSPORTBUILTIN_UDPv4; // other sockets than the first one's
    ParticipantImpl* second = create(qos);
    ASSERT_NE(second, nullptr);
    CaptureStderr();
    EXPECT_EQ(second->enable(), DDS_RETCODE_ERROR);
    EXPECT_NE(GetCapturedStderr().find("index"), std::string::npos);
    EXPECT_FALSE(second->is_enabled());
    EXPECT_EQ(second->delete_contained_entities(), DDS_RETCODE_OK);
    EXPECT_EQ(factory()->delete_participant(second), DDS_RETCODE_OK);
}

TEST_F(EndToEndTest, ParticipantsAreUsedFromManyThreads) {
    ParticipantImpl* participant = create(qos_with_partition("*"));
    PeerProcess peer({});
    ASSERT_EQ(participant->enable(), DDS_RETCODE_OK);
    std::vector<std::thread> users;
    for (int i = 0; i < 3; ++i) {
        users.emplace_back([participant, i] {
            for (int round = 0; round < 50; ++round) {
                DDSPublisher* publisher = participant->create_publisher({}, nullptr, 0);
                DDS_DomainParticipantQos qos;
                participant->get_qos(qos);
                EXPECT_EQ(participant->set_qos(qos_with_partition(i == 0 ? "*" : "B")), DDS_RETCODE_OK);
                DDS_ParticipantBuiltinTopicData data;
                participant->get_discovered_participant_data(data, participant->get_instance_handle());
                EXPECT_EQ(participant->delete_publisher(publisher), DDS_RETCODE_OK);
            }
        });
    }
    for (int i = 0; i < 20; ++i) {
        peer.ask("writer 1 Square");
        peer.ask("remove 1");
    }
    for (std::thread& user : users)
        user.join();
    ASSERT_EQ(participant->set_qos(qos_with_partition("*")), DDS_RETCODE_OK);
    peer.ask("writer 2 Last");
    WriterWatcher writers(participant, DDS_PUBLICATION_TOPIC_NAME);
    std::string told;
    while (told != "new Last" && !(told = writers.next()).empty()) {
    }
    EXPECT_EQ(told, "new Last");
}

} // namespace
} // namespace meridian::dcps::test
