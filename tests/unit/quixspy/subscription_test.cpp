// Which participant watches the topic of a discovered writer, and with what reader; on participants that only
// pretend.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "meridian/dynamic_data_type_support.h"
#include "meridian/heap.h"
#include "quixspy/fixture.h"
#include "quixspy/quixSpyDataListener.h"
#include "support/fake_entities.h"
#include "support/test_output.h"
#include "support/verbosity_guard.h"
#include "types/model/type.h"

namespace {

using meridian::types::Member;
using meridian::types::Type;
using meridian::types::TypeGraph;
using meridian::types::TypeRef;

/// struct NAME { @key long x; }
TypeRef structure(const char* name, bool keyed = true) {
    TypeGraph* const graph = TypeGraph::create();
    Type* const type = graph->add();
    type->kind = DDS_TK_STRUCT;
    type->name = name;
    Member member;
    member.name = "x";
    member.type = graph->primitive(DDS_TK_LONG);
    member.key = keyed;
    type->members = {member};
    return TypeRef::adopt(type);
}

/// A participant of the agent with everything that it hands out.
struct World {
    World() {
        subscriber.participant = &participant;
        subscriber.created_reader = &reader;
        node.participant = &participant;
        node.subscriber = &subscriber;
    }
    FakeParticipant participant;
    FakeSubscriber subscriber;
    FakeReader reader;
    QuixSpyParticipantListNode node{}; // of the first participant only: further ones get nodes of the agent
};

/// Its participants are those of the test: they leave the list before the agent would delete them.
class SubscribingAgent : public QuixSpyAgent {
  public:
    SubscribingAgent() : QuixSpyAgent("Spy", test_output()) {
        _semaphore = QUIXSemaphore::create();
        _participantList.append(&worlds[0].node);
    }
    ~SubscribingAgent() override {
        for (auto* node = _participantList.head(); node != nullptr;) {
            auto* const following = QuixSpyList<QuixSpyParticipantListNode>::next(node);
            node->delete_topics();
            if (node != &worlds[0].node)
                QuixSpyParticipantListNode::destroy(node);
            node = following;
        }
        _participantList = {};
    }
    DDSDomainParticipant* createDomainParticipant(int participantPartitionCount,
                                                  const char** participantPartitions,
                                                  int subscriberPartitionCount,
                                                  const char** subscriberPartitions, bool setDiscoveryPlugins,
                                                  DDS_DiscoveryConfigBuiltinPluginKind discoveryPlugins,
                                                  DDSDomainParticipant* existing,
                                                  DDSSubscriber** subscriber) override {
        ++created;
        EXPECT_EQ(participantPartitionCount, _participantPartitionCount);
        EXPECT_EQ(participantPartitions, const_cast<const char**>(_participantPartitions));
        EXPECT_EQ(subscriberPartitionCount, _subscriberPartitionCount);
        EXPECT_EQ(subscriberPartitions, const_cast<const char**>(_subscriberPartitions));
        EXPECT_EQ(setDiscoveryPlugins, _discoveryPluginsSet);
        EXPECT_EQ(discoveryPlugins, _discoveryPluginKind);
        EXPECT_EQ(existing, &worlds[0].participant) << "the first one ignores the new one";
        if (created >= kWorlds)
            return nullptr;
        *subscriber = &worlds[created].subscriber;
        return &worlds[created].participant;
    }

    static constexpr int kWorlds = 3;
    World worlds[kWorlds];
    int created = 0;
};

class Subscription : public ::testing::Test {
  protected:
    struct Writer {
        const char* topic = "Circle";
        const char* type = "ShapeType";
        bool keyed = true;
        const DDS_TypeCode* type_code = nullptr;
        DDS_OwnershipQosPolicyKind ownership = DDS_SHARED_OWNERSHIP_QOS;
        DDS_ReliabilityQosPolicyKind reliability = DDS_BEST_EFFORT_RELIABILITY_QOS;
        DDS_DurabilityQosPolicyKind durability = DDS_VOLATILE_DURABILITY_QOS;
        RtpsGuid guid{};
        DDS_TypeCodeAbsence absence = DDS_TYPE_CODE_NOT_ANNOUNCED;
        const DDS_EndpointBuiltinTopicData* announced = nullptr;
    };

    /// A writer, each time another one unless it brings its GUID. Returns what was printed.
    std::string discover(Writer writer) {
        if (RtpsGuid_isUnknown(writer.guid))
            writer.guid = {1, 2, 3, ++entity_};
        return printed_by([&] {
            subscribed = agent.on_publication_discovered(
                "10.1.2.3", writer.guid, writer.topic, writer.type, writer.ownership, writer.reliability,
                writer.durability, writer.keyed, writer.type_code, entity_name("role", "name"),
                string_seq({"A"}), string_seq({"P"}), writer.absence, writer.announced);
        });
    }
    std::vector<RequestedReader>& readers(int world = 0) { return agent.worlds[world].subscriber.requested; }
    FakeParticipant& participant(int world = 0) { return agent.worlds[world].participant; }
    QuixSpyDataListener& listener(int index = 0, int world = 0) {
        auto* node = agent._participantList.head();
        for (int i = 0; i < world; ++i)
            node = QuixSpyList<QuixSpyParticipantListNode>::next(node);
        auto* topic = node->dataListeners.head();
        for (int i = 0; i < index; ++i)
            topic = QuixSpyList<QuixSpyDataListenerNode>::next(topic);
        return *topic->listener;
    }
    /// The line of a sample of the writer with that entity id, from the address on.
    std::string line_from(QuixSpyDataListener& from, DDS_Octet entity) {
        DDS_SampleInfo info;
        info.source_timestamp = {0, 0};
        info.valid_data = true;
        info.publication_handle = {{0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, entity}, 16, true};
        return printed_by([&] { from.print_user_data(info, nullptr); }).substr(26);
    }

    VerbosityGuard verbosity{1};
    SubscribingAgent agent;
    bool subscribed = false;

  private:
    uint32_t entity_ = 0;
};

} // namespace

TEST_F(Subscription, MakesAReaderOfANewTopic) {
    EXPECT_EQ(discover({}), "");
    EXPECT_TRUE(subscribed);
    ASSERT_EQ(readers().size(), 1U);
    EXPECT_EQ(readers()[0].topic, "Circle");
    EXPECT_EQ(readers()[0].listener, &listener());
    EXPECT_EQ(readers()[0].mask, DDS_STATUS_MASK_ALL);
    EXPECT_TRUE(participant().topics["Circle"]->enabled) << "a profile may leave that to us";
    EXPECT_TRUE(agent.worlds[0].reader.enabled);
    EXPECT_EQ(participant().registered["ShapeType"], PRES_TYPEPLUGIN_USER_KEY);
    EXPECT_STREQ(listener().topicName, "Circle");
    EXPECT_STREQ(listener().typeName, "ShapeType");
    EXPECT_EQ(line_from(listener(), 1), " from 10.1.2.3        : topic=\"Circle\" type=\"ShapeType\"\n");
    EXPECT_EQ(agent.created, 0);

    EXPECT_EQ(discover({"Square", "Plain", false}), "");
    EXPECT_TRUE(subscribed);
    EXPECT_EQ(participant().registered["Plain"], PRES_TYPEPLUGIN_NO_KEY);
    EXPECT_STREQ(listener(1).topicName, "Square") << "in the order of subscription";
}

TEST_F(Subscription, SaysWhatItDoes) {
    const VerbosityGuard talkative(2);
    EXPECT_EQ(discover({}),
              "ferret: ... topic and type MATCHED\n"
              "ferret: Registering type... ShapeType\n"
              "ferret: Creating topic... Circle\n"
              "ferret: Creating data reader listener...\n");
    EXPECT_EQ(discover({}), "ferret: ... topic and type MATCHED\n");
    agent._typeRegex[agent._typeRegexCount++] = DDS_String_dup("Other*");
    EXPECT_EQ(discover({}), "ferret: ... topic and type NOT MATCHED\n");
    agent._topicRegex[agent._topicRegexCount++] = DDS_String_dup("Sq*");
    EXPECT_EQ(discover({}), "ferret: ... topic and type NOT MATCHED\n");
}

TEST_F(Subscription, BothNamesHaveToPass) {
    for (const char* const pattern : {"Sq*", "C?rcle"})
        agent._topicRegex[agent._topicRegexCount++] = DDS_String_dup(pattern);
    agent._typeRegex[agent._typeRegexCount++] = DDS_String_dup("Shape*");
    EXPECT_EQ(discover({"Circle", "Other"}), "");
    EXPECT_FALSE(subscribed);
    discover({"Triangle", "ShapeType"});
    EXPECT_FALSE(subscribed);
    EXPECT_TRUE(participant().registered.empty());
    discover({"Circle", "ShapeType"});
    EXPECT_TRUE(subscribed);
    discover({"Square", "ShapeX"});
    EXPECT_TRUE(subscribed);
}

TEST_F(Subscription, SaysOnceForEachTopicWhyThereAreNoContents) {
    Writer writer;
    EXPECT_EQ(discover(writer), "") << "contents were not asked for";
    agent._printSample = PRINT_SAMPLE_COMPACT;
    writer.topic = "Square";
    EXPECT_EQ(discover(writer),
              "ferret: topic 'Square' is shown without contents: type 'ShapeType' is unknown, as "
              "only its name is announced (a <types> document can tell it)\n");
    writer.absence = DDS_TYPE_CODE_NOT_TOLD;
    EXPECT_EQ(discover(writer), "");
    writer.topic = "Triangle";
    EXPECT_EQ(discover(writer),
              "ferret: topic 'Triangle' is shown without contents: type 'ShapeType' is unknown, as "
              "no application told it in time\n");
}

TEST_F(Subscription, SaysOnceThatATypeIsToldTooLateForItsTopic) {
    const TypeRef type = structure("ShapeType");
    Writer known;
    known.type_code = type.get();
    discover({});
    EXPECT_EQ(discover(known), "") << "contents were not asked for";
    agent._printSample = PRINT_SAMPLE_COMPACT;
    discover({"Square"});
    known.topic = "Square";
    EXPECT_EQ(
        discover(known),
        "ferret: topic 'Square' stays without contents: type 'ShapeType' is told now, but its first "
        "writer was seen without (start ferret when that writer is gone, or give a <types> document)\n");
    EXPECT_EQ(discover(known), "");
    known.topic = "Triangle";
    discover(known);
    EXPECT_EQ(discover(known), "") << "it has contents";
    Writer keyless = known;
    keyless.topic = "Circle of bytes";
    keyless.keyed = false;
    discover(keyless);
    EXPECT_EQ(discover(keyless), "") << "so have bytes of a known type";
}

TEST_F(Subscription, FurtherWritersOfATopicAreOnlyRecorded) {
    discover({});
    EXPECT_EQ(discover({}), "");
    EXPECT_FALSE(subscribed);
    EXPECT_EQ(readers().size(), 1U);
    for (const DDS_Octet entity : {DDS_Octet{1}, DDS_Octet{2}})
        EXPECT_EQ(line_from(listener(), entity),
                  " from 10.1.2.3        : topic=\"Circle\" type=\"ShapeType\"\n");
    EXPECT_EQ(line_from(listener(), 3), " from unknown ip      : topic=\"Circle\" type=\"ShapeType\"\n");
}

TEST_F(Subscription, RefusesAWriterWithoutGuid) {
    discover({});
    const auto discover_without_guid = [&](const char* topic) {
        return printed_by([&] {
            subscribed = agent.on_publication_discovered(
                "10.1.2.3", {}, topic, "ShapeType", DDS_SHARED_OWNERSHIP_QOS, DDS_RELIABLE_RELIABILITY_QOS,
                DDS_VOLATILE_DURABILITY_QOS, true, nullptr, {}, {}, {});
        });
    };
    EXPECT_EQ(discover_without_guid("Circle"),
              "ferret: Error initializing QuixSpyEndpointInfo\n"
              "ferret: Failed to add entity for topic 'Circle' to internal endpoint "
              "list).\n");
    EXPECT_FALSE(subscribed);
    EXPECT_EQ(discover_without_guid("Square"),
              "ferret: Error initializing QuixSpyEndpointInfo\n"
              "ferret: Failed to add entity for topic 'Square' to internal endpoint "
              "list).\n");
    EXPECT_FALSE(subscribed);
    EXPECT_EQ(readers().size(), 1U);
    EXPECT_STREQ(listener(1).topicName, "Square") << "a listener without a reader stays, with zero counts";
}

TEST_F(Subscription, AnotherTypeNameNeedsAnotherParticipant) {
    discover({"Circle", "A"});
    EXPECT_EQ(discover({"Circle", "B"}), "");
    EXPECT_TRUE(subscribed);
    EXPECT_EQ(agent.created, 1);
    EXPECT_EQ(agent._participantList.count, 2);
    EXPECT_STREQ(listener(0, 1).typeName, "B");
    EXPECT_EQ(readers(1).size(), 1U);
    // Each has its writers now, and what fits the first participant goes there.
    discover({"Circle", "B"});
    EXPECT_FALSE(subscribed);
    discover({"Square", "B"});
    EXPECT_TRUE(subscribed);
    EXPECT_EQ(readers(0).size(), 2U);
    EXPECT_EQ(agent.created, 1);
    EXPECT_EQ(printed_by([&] { agent.print_statistics(); }),
              "\n\n---- Statistics ----\n"
              "Received samples (Data, Dispose, NoWriters):\n"
              "\t0, 0, 0 \t(Topic=\"Circle\"  Type=\"A\")\n"
              "\t0, 0, 0 \t(Topic=\"Square\"  Type=\"B\")\n"
              "Received samples (Data, Dispose, NoWriters):\n"
              "\t0, 0, 0 \t(Topic=\"Circle\"  Type=\"B\")\n"
              "\n\n");
}

TEST_F(Subscription, SaysThatAParticipantCannotBeHad) {
    discover({"Circle", "A"});
    discover({"Circle", "B"});
    discover({"Circle", "C"});
    EXPECT_EQ(discover({"Circle", "D"}), "ferret: Error creation participant\n");
    EXPECT_FALSE(subscribed);
    EXPECT_EQ(agent._participantList.count, 3);
    const VerbosityGuard silent(0);
    EXPECT_EQ(discover({"Circle", "D"}), "");
}

TEST_F(Subscription, TypeCodesDecideWhereBothSidesHaveOne) {
    const TypeRef one = structure("One");
    const TypeRef same = structure("One");
    const TypeRef other = structure("Other");
    Writer writer;
    writer.type_code = one.get();
    discover(writer);
    EXPECT_TRUE(subscribed);
    participant().type_codes["ShapeType"] = one.get();

    writer.type_code = same.get();
    discover(writer);
    EXPECT_FALSE(subscribed) << "an equal type";
    writer.type = "Renamed";
    discover(writer);
    EXPECT_FALSE(subscribed) << "an equal type of another name is compatible, though nothing listens to it";
    EXPECT_EQ(agent.created, 0);

    writer = {};
    writer.type_code = other.get();
    discover(writer);
    EXPECT_TRUE(subscribed) << "the name alone does not make it the same type";
    EXPECT_EQ(agent.created, 1);

    // Types conflict without a topic too.
    writer.topic = "Square";
    discover(writer);
    EXPECT_TRUE(subscribed);
    EXPECT_EQ(readers(0).size(), 1U);
    EXPECT_EQ(readers(1).size(), 2U);
    writer.topic = "Triangle";
    writer.type_code = nullptr;
    discover(writer);
    EXPECT_TRUE(subscribed);
    EXPECT_EQ(readers(0).size(), 2U) << "without a type code there is no conflict";
    EXPECT_EQ(agent.created, 1);
}

TEST_F(Subscription, ATopicThatIsReadAsBytesStaysSoWhateverBecomesKnownOfItsType) {
    const TypeRef one = structure("One");
    const TypeRef other = structure("Other");
    discover({"Circle"}); // its type is not told
    Writer writer{"Square"};
    writer.type_code = one.get();
    discover(writer);
    participant().type_codes["ShapeType"] = one.get();
    writer = {"Circle"};
    writer.type_code = other.get();
    discover(writer);
    EXPECT_FALSE(subscribed) << "the reader of the topic takes every writer";
    EXPECT_EQ(agent.created, 0);
}

TEST_F(Subscription, AWriterWhoseTypeDisagreesAboutTheKeyIsReadAsItIs) {
    const TypeRef with_key = structure("T");
    const TypeRef without_key = structure("T", false);
    Writer writer;
    for (const bool keyed : {false, true}) {
        writer.topic = keyed ? "Keyed" : "Keyless";
        writer.type = keyed ? "K" : "L";
        writer.keyed = keyed;
        writer.type_code = keyed ? without_key.get() : with_key.get();
        EXPECT_EQ(discover(writer), "");
        EXPECT_TRUE(subscribed);
        EXPECT_EQ(participant().registered[writer.type],
                  keyed ? PRES_TYPEPLUGIN_USER_KEY : PRES_TYPEPLUGIN_NO_KEY);
        EXPECT_EQ(listener(keyed ? 1 : 0).is_keyed(), keyed);
    }
    EXPECT_EQ(agent._participantList.head()->dataListeners.head()->typeSupport, nullptr);
    EXPECT_EQ(agent.created, 0);

    // The name now stands for readers of that kind: who agrees with his type is read by another participant.
    writer = {};
    writer.topic = "Other";
    writer.type = "L";
    writer.type_code = with_key.get();
    discover(writer);
    EXPECT_TRUE(subscribed);
    EXPECT_EQ(agent.created, 1);
    EXPECT_EQ(participant(1).registered["L"], PRES_TYPEPLUGIN_USER_KEY);
    // And so is who says nothing of his type.
    participant(1).type_codes["L"] = with_key.get();
    writer = {};
    writer.topic = "Third";
    writer.type = "L";
    writer.keyed = false;
    discover(writer);
    EXPECT_EQ(readers(0).size(), 3U);
    EXPECT_EQ(agent.created, 1);
    const VerbosityGuard talkative(2);
    writer.topic = "Fourth";
    writer.type = "M";
    writer.type_code = with_key.get();
    EXPECT_NE(discover(writer).find("ferret: using non dynamic data type instead\n"), std::string::npos);
}

TEST_F(Subscription, FailuresEndOneAttemptOnly) {
    participant().results["register_type ShapeType"] = DDS_RETCODE_PRECONDITION_NOT_MET;
    EXPECT_EQ(discover({}), "ferret: register_type error 4\n");
    EXPECT_FALSE(subscribed);
    participant().results.clear();
    participant().results["create_topic Circle"] = DDS_RETCODE_ERROR;
    EXPECT_EQ(discover({}), "ferret: Create_topic error\n");
    EXPECT_FALSE(subscribed);
    EXPECT_EQ(agent._participantList.head()->dataListeners.count, 0);
    participant().results.clear();
    EXPECT_EQ(discover({}), "");
    EXPECT_TRUE(subscribed);

    agent.worlds[0].subscriber.created_reader = nullptr;
    EXPECT_EQ(discover({"Square"}), "ferret: Create_datareader error\n");
    EXPECT_FALSE(subscribed);
    EXPECT_STREQ(listener(1).topicName, "Square");
    EXPECT_EQ(discover({"Square"}), "") << "the topic is there now";
    EXPECT_FALSE(subscribed);

    agent.worlds[0].subscriber.created_reader = &agent.worlds[0].reader;
    agent.worlds[0].reader.enable_result = DDS_RETCODE_ERROR;
    EXPECT_EQ(discover({"Pentagon"}), "ferret: enable error 1\n");
    EXPECT_FALSE(subscribed);

    const VerbosityGuard silent(0);
    EXPECT_EQ(discover({"Triangle"}), "");
}

TEST_F(Subscription, ATopicWithoutTypeNameIsAnError) {
    discover({});
    participant().topics["Circle"]->has_type_name = false;
    EXPECT_EQ(discover({}), "ferret: Error getting the type name from topic 'Circle'\n");
    EXPECT_FALSE(subscribed);
    EXPECT_EQ(agent.created, 0);
}

TEST_F(Subscription, ReaderQosStartsFromTheDefault) {
    DDS_DataReaderQos& before = agent.worlds[0].subscriber.default_reader_qos;
    before.reliability.kind = DDS_RELIABLE_RELIABILITY_QOS;
    before.durability.kind = DDS_TRANSIENT_LOCAL_DURABILITY_QOS;
    before.history.kind = DDS_KEEP_ALL_HISTORY_QOS;
    before.history.depth = 3;
    before.time_based_filter.minimum_separation = {9, 9};
    before.deadline.period = {8, 8};
    before.reader_resource_limits.dynamically_allocate_fragmented_samples = false;
    before.type_consistency.kind = DDS_ALLOW_TYPE_COERCION;
    Writer writer;
    writer.ownership = DDS_EXCLUSIVE_OWNERSHIP_QOS;
    discover(writer);
    EXPECT_EQ(agent.worlds[0].subscriber.asked_default_of, "Circle");
    const DDS_DataReaderQos& qos = readers().at(0).qos;
    EXPECT_EQ(qos.reliability.kind, DDS_RELIABLE_RELIABILITY_QOS);
    EXPECT_EQ(qos.durability.kind, DDS_TRANSIENT_LOCAL_DURABILITY_QOS);
    EXPECT_EQ(qos.history.kind, DDS_KEEP_ALL_HISTORY_QOS);
    EXPECT_EQ(qos.history.depth, 8192);
    EXPECT_EQ(qos.time_based_filter.minimum_separation, (DDS_Duration_t{9, 9}));
    EXPECT_EQ(qos.deadline.period, (DDS_Duration_t{8, 8}));
    EXPECT_EQ(qos.ownership.kind, DDS_EXCLUSIVE_OWNERSHIP_QOS);
    EXPECT_TRUE(qos.reader_resource_limits.dynamically_allocate_fragmented_samples);
    EXPECT_EQ(qos.type_consistency.kind, DDS_DISALLOW_TYPE_COERCION);
    const DDS_Property_t* const property = DDS_PropertyQosPolicyHelper_lookup_property(
        qos.property, "dds.data_reader.history.memory_manager.fast_pool.pool_buffer_max_size");
    ASSERT_NE(property, nullptr);
    EXPECT_STREQ(property->value, "4096");
    EXPECT_FALSE(property->propagate);
}

TEST_F(Subscription, OptionsChangeTheReaderQos) {
    agent._timeFilter = 1.5F;
    agent._deadline = 0.0F;
    agent._historyDepth = 7;
    agent._useFirstPublicationQos = true;
    Writer writer;
    writer.reliability = DDS_RELIABLE_RELIABILITY_QOS;
    writer.durability = DDS_TRANSIENT_LOCAL_DURABILITY_QOS;
    discover(writer);
    const DDS_DataReaderQos& qos = readers().at(0).qos;
    EXPECT_EQ(qos.time_based_filter.minimum_separation, (DDS_Duration_t{1, 500000000}));
    EXPECT_EQ(qos.deadline.period, DDS_DURATION_ZERO) << "zero is not without";
    EXPECT_EQ(qos.history.depth, 7);
    EXPECT_EQ(qos.reliability.kind, DDS_RELIABLE_RELIABILITY_QOS);
    EXPECT_EQ(qos.durability.kind, DDS_TRANSIENT_LOCAL_DURABILITY_QOS);

    agent._deadline = 2.25F;
    discover({"Square"});
    EXPECT_EQ(readers().at(1).qos.deadline.period, (DDS_Duration_t{2, 250000000}));
    EXPECT_EQ(readers().at(1).qos.reliability.kind, DDS_BEST_EFFORT_RELIABILITY_QOS);
    EXPECT_EQ(readers().at(1).qos.durability.kind, DDS_VOLATILE_DURABILITY_QOS);
}

TEST_F(Subscription, WritersThatAnnounceNoTypeAreReadByTheFirstReaderOfTheirName) {
    const TypeRef keyed = structure("ShapeType");
    const TypeRef keyless = structure("ShapeType", false);
    const DDS_TypeCode* const code = keyed.get();
    const DDS_TypeCode* const other = keyless.get();
    discover({"Circle", "ShapeType", true, code});
    participant(0).type_codes["ShapeType"] = code;
    discover({"Circle", "ShapeType", false, other});
    participant(1).type_codes["ShapeType"] = other;
    discover({"Circle", "Shape2", false, other});
    EXPECT_FALSE(readers(0).at(0).qos.type_consistency.force_type_validation);
    EXPECT_TRUE(readers(1).at(0).qos.type_consistency.force_type_validation);
    ASSERT_EQ(agent.created, 1) << "an equal type is watched already";
}

TEST_F(Subscription, AFirstWriterThatOffersLessThanAProfileAsksForIsTold) {
    agent.worlds[0].reader.qos.reliability.kind = DDS_RELIABLE_RELIABILITY_QOS;
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(discover({"Circle"}), "");
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                ::testing::HasSubstr("\"Circle\" is not read: it is best-effort, and the reader asks"));
    ASSERT_EQ(readers().size(), 1U) << "others may come that it reads";
}

TEST_F(Subscription, OtherPoliciesThatKeepWritersAwayAreToldOncePerTopic) {
    DDS_DataReaderQos& qos = agent.worlds[0].reader.qos;
    qos.liveliness.kind = DDS_MANUAL_BY_TOPIC_LIVELINESS_QOS;
    DDS_PublicationBuiltinTopicData announced;
    const auto told_of = [&](const char* topic) {
        Writer writer{topic};
        writer.announced = &announced;
        ::testing::internal::CaptureStderr();
        EXPECT_EQ(discover(writer), "");
        return ::testing::internal::GetCapturedStderr();
    };
    EXPECT_THAT(told_of("Circle"), ::testing::HasSubstr("\"Circle\" is not read: liveliness: too little\n"));
    EXPECT_EQ(told_of("Circle"), "") << "the topic was told";
    EXPECT_THAT(told_of("Square"), ::testing::HasSubstr("\"Square\" is not read: liveliness: too little\n"));
    announced.liveliness.kind = DDS_MANUAL_BY_TOPIC_LIVELINESS_QOS;
    qos.deadline.period = {1, 0};
    EXPECT_EQ(told_of("Triangle"), "") << "the listener tells of the deadline";
}

TEST_F(Subscription, WritersThatAreNotReadAreToldOnceWithTheReason) {
    const TypeRef type = structure("ShapeType");
    const DDS_TypeCode* const code = type.get();
    DDS_DataReaderQos& qos = agent.worlds[0].reader.qos;
    qos.durability.kind = DDS_TRANSIENT_LOCAL_DURABILITY_QOS;
    qos.reliability.kind = DDS_RELIABLE_RELIABILITY_QOS;
    Writer first{"Circle", "ShapeType", true, code};
    first.durability = DDS_TRANSIENT_LOCAL_DURABILITY_QOS;
    first.reliability = DDS_RELIABLE_RELIABILITY_QOS;
    const auto told_of = [this](Writer writer) {
        ::testing::internal::CaptureStderr();
        EXPECT_EQ(discover(writer), "");
        const std::string told = ::testing::internal::GetCapturedStderr();
        return told.empty() ? told : told.substr(told.find("error"));
    };
    EXPECT_EQ(told_of(first), "");
    participant().type_codes["ShapeType"] = code;
    EXPECT_EQ(told_of(first), "");
    Writer volatile_one = first;
    volatile_one.guid = {1, 2, 3, 0x102};
    volatile_one.durability = DDS_VOLATILE_DURABILITY_QOS;
    EXPECT_EQ(
        told_of(volatile_one),
        "error ferret subscription: writer guid=\"0x00000001,0x00000002,0x00000003:0x00000102\" of topic "
        "\"Circle\" is not read: its durability is volatile, and the reader asks for transient-local\n");
    EXPECT_EQ(told_of(volatile_one), "") << "an update";
    Writer again = first;
    again.guid = {1, 2, 3, 0x202};
    EXPECT_EQ(told_of(again), "");
    again.durability = DDS_VOLATILE_DURABILITY_QOS;
    EXPECT_THAT(told_of(again),
                ::testing::HasSubstr(":0x00000202\" of topic \"Circle\" is not read: its durability"))
        << "its application was started again with the same GUID and less";
    Writer exclusive = first;
    exclusive.ownership = DDS_EXCLUSIVE_OWNERSHIP_QOS;
    EXPECT_THAT(told_of(exclusive), ::testing::HasSubstr("its ownership is exclusive"));
    Writer best_effort = first;
    best_effort.reliability = DDS_BEST_EFFORT_RELIABILITY_QOS;
    EXPECT_THAT(told_of(best_effort), ::testing::HasSubstr("it is best-effort"));
    Writer renamed = first;
    renamed.type = "Shape2";
    EXPECT_THAT(told_of(renamed), ::testing::HasSubstr("is read as type \"ShapeType\", which is equal"));
    Writer keyless = first;
    keyless.type_code = nullptr;
    keyless.keyed = false;
    EXPECT_THAT(told_of(keyless), ::testing::HasSubstr("is read as one with key"));
    EXPECT_EQ(agent.created, 0);
    std::string all;
    for (int i = 0; i < 100; ++i)
        all += told_of(exclusive);
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 44);
    EXPECT_THAT(all, ::testing::HasSubstr("further ones are not told"));
}

TEST_F(Subscription, ParticipantsAreNotMadeWithoutEnd) {
    // The limit counts nodes, whatever they are of.
    const int before = agent._participantList.count;
    agent._participantList.count = QuixSpyAgent::kMostParticipants;
    discover({});
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(discover({"Circle", "Other"}), "");
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                ::testing::HasSubstr("is not read: 256 participants of this tool read other types already"));
    EXPECT_EQ(agent.created, 0);
    agent._participantList.count = before;
}

TEST_F(Subscription, TopicsWithoutWritersMakeRoom) {
    discover({});
    ASSERT_TRUE(subscribed);
    for (DDS_UnsignedLong other = 10; other < 40; ++other) {
        while (agent._topicRoom.take({1, 2, other, 1}, 1)) {
        }
    }
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(discover({"Square"}), "");
    EXPECT_FALSE(subscribed);
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                ::testing::HasSubstr("too many topics are read already"));
    agent.worlds[0].reader.matched = 0;
    EXPECT_EQ(discover({"Square"}), "");
    EXPECT_FALSE(subscribed) << "looked a moment ago";
    std::this_thread::sleep_for(std::chrono::milliseconds(1050));
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(discover({"Square"}), "");
    EXPECT_TRUE(subscribed);
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                ::testing::HasSubstr("no writer any more are forgotten"));
    EXPECT_STREQ(listener().topicName, "Square");
}

TEST_F(Subscription, HistoryGivesWayToTheLimitsOfTheProfile) {
    DDS_DataReaderQos& qos = agent.worlds[0].subscriber.default_reader_qos;
    qos.resource_limits.max_samples_per_instance = 100;
    discover({});
    EXPECT_EQ(readers().at(0).qos.history.depth, 100);
    qos.history.kind = DDS_KEEP_ALL_HISTORY_QOS;
    discover({"Square"});
    EXPECT_EQ(readers().at(1).qos.history.depth, 8192);
}

TEST_F(Subscription, OptionsReachTheLines) {
    agent._showHandle = agent._showSampleIdentity = agent._showSampleFlags = true;
    agent._showEntityName = agent._showPartition = true;
    agent._topicWidth = 2;
    agent._typeWidth = 3;
    discover({});
    DDS_SampleInfo info;
    info.source_timestamp = {0, 0};
    info.publication_handle = {{0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 1}, 16, true};
    info.flag = 1;
    info.sample_identity.sequence_number = {0, 4};
    EXPECT_EQ(
        printed_by([&] { listener().print_user_data(info, nullptr); }),
        "00:00:00 New data          from 10.1.2.3        : topic=\"Ci\" type=\"Sha\""
        " key=\"00000000.00000000.00000000.00000000\" guid=\"0x00000001,0x00000002,0x00000003:0x00000001\""
        " flags=\"R\" virtual_sn=(0, 4) name=\"role:name\" DP partition=\"P\" S partition=\"A\"\n");
}
