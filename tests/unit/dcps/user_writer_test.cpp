// A writer of this process and readers of another one.

#include "endpoints_fixture.h"
#include "meridian/condition.h"

#include <algorithm>

namespace meridian::dcps::test {
namespace {

using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

class UserWriterTest : public EndpointsTest {
  protected:
    DDSPublisher* publisher() { return participant().create_publisher({}, nullptr, DDS_STATUS_MASK_NONE); }
    DDSDataWriter* create_writer(DDSTopic* topic, const DDS_DataWriterQos& qos = {}) {
        return publisher()->create_datawriter(topic, qos, nullptr, DDS_STATUS_MASK_NONE);
    }
    static DDS_Long matched(TestWriter& writer) {
        DDS_InstanceHandleSeq readers;
        EXPECT_EQ(writer.get_matched_subscriptions(readers), DDS_RETCODE_OK);
        return readers.length();
    }
    static bool await_match(TestWriter& writer, DDS_Long count = 1) {
        return eventually(count, [&] { return matched(writer); }) == count;
    }
    /// Both sides: a volatile reader does not ask for what was written before it knew the writer.
    bool await_match(TestWriter& writer, const std::string& remote_reader) {
        return await_match(writer) && matched_to(remote_reader, "1") == "1";
    }
    static DDS_ReturnCode_t write(TestWriter& writer, uint32_t id, const std::string& text) {
        return writer.write({id, text}, DDS_HANDLE_NIL);
    }
};

TEST_F(UserWriterTest, AReliableReaderGetsEverySampleInOrder) {
    ASSERT_EQ(ask("reader r Square Keyless reliable keep_all"), "ok");
    TestWriter* writer = make_writer(participant(), "Square", "Keyless", "keep_all");
    ASSERT_NE(writer, nullptr);
    ASSERT_TRUE(await_match(*writer, "r"));
    std::string expected;
    for (uint32_t i = 1; i <= 300; ++i) {
        const std::string text = i % 50 == 0 ? std::string(3000, 'x') : "text";
        ASSERT_EQ(write(*writer, i, text), DDS_RETCODE_OK);
        expected += (i > 1 ? ", " : "") + std::to_string(i) + " " + text;
    }
    EXPECT_EQ(writer->wait_for_acknowledgments({10, 0}), DDS_RETCODE_OK);
    EXPECT_EQ(remotely_taken("r", expected), expected);
}

TEST_F(UserWriterTest, InstancesAreDisposedUnregisteredAndComeBack) {
    ASSERT_EQ(ask("reader r Square Keyed reliable keep_all"), "ok");
    TestWriter* writer = make_writer(participant(), "Square", "Keyed", "keep_all");
    ASSERT_TRUE(await_match(*writer, "r"));
    EXPECT_EQ(write(*writer, 1, "a"), DDS_RETCODE_OK);
    EXPECT_EQ(write(*writer, 2, "b"), DDS_RETCODE_OK);
    EXPECT_EQ(writer->dispose({1, ""}, DDS_HANDLE_NIL), DDS_RETCODE_OK);
    EXPECT_EQ(writer->unregister_instance({2, ""}, writer->lookup_instance({2, ""})), DDS_RETCODE_OK);
    EXPECT_EQ(write(*writer, 1, "c"), DDS_RETCODE_OK);
    const std::string expected = "1 a, 1 disposed, 1 c, 2 b, 2 disposed";
    std::string all;
    EXPECT_EQ(eventually(size_t{5},
                         [&] {
                             all = joined(all, ask("take r"));
                             return static_cast<size_t>(std::count(all.begin(), all.end(), ',')) + 1;
                         }),
              5u)
        << all;
    for (const char* part : {"1 a", "1 disposed", "1 c", "2 b", "2 disposed"})
        EXPECT_NE(all.find(part), std::string::npos) << all;

    TestWriter* keeping = make_writer(participant(), "Square", "Keyed", "keep_unregistered");
    ASSERT_EQ(matched_to("r", "2"), "2");
    ASSERT_TRUE(await_match(*keeping));
    EXPECT_EQ(write(*keeping, 7, "k"), DDS_RETCODE_OK);
    EXPECT_EQ(remotely_taken("r", "7 k"), "7 k");
    EXPECT_EQ(keeping->unregister_instance({7, ""}, DDS_HANDLE_NIL), DDS_RETCODE_OK);
    EXPECT_EQ(remotely_taken("r", "7 no_writers"), "7 no_writers");
    // The end of the writer ends its part in what is left.
    EXPECT_EQ(writer->get_publisher()->delete_datawriter(writer), DDS_RETCODE_OK);
    EXPECT_EQ(remotely_taken("r", "1 no_writers"), "1 no_writers");
}

TEST_F(UserWriterTest, ALateJoinerGetsWhatHistoryKeeps) {
    TestWriter* writer = make_writer(participant(), "Square", "Keyed", "transient_local depth=2");
    ASSERT_NE(writer, nullptr);
    for (int i = 1; i <= 5; ++i)
        ASSERT_EQ(write(*writer, 1, "v" + std::to_string(i)), DDS_RETCODE_OK);
    ASSERT_EQ(write(*writer, 2, "w"), DDS_RETCODE_OK);
    ASSERT_EQ(ask("reader late Square Keyed reliable transient_local keep_all"), "ok");
    ASSERT_EQ(ask("reader volatile Square Keyed reliable keep_all"), "ok");
    EXPECT_EQ(remotely_taken("late", "1 v4, 1 v5, 2 w"), "1 v4, 1 v5, 2 w");
    ASSERT_TRUE(await_match(*writer, 2));
    ASSERT_EQ(matched_to("volatile", "1"), "1");
    ASSERT_EQ(write(*writer, 3, "now"), DDS_RETCODE_OK);
    EXPECT_EQ(remotely_taken("volatile", "3 now"), "3 now");
    EXPECT_EQ(remotely_taken("late", "3 now"), "3 now");
}

TEST_F(UserWriterTest, ASampleWithoutPayloadDoesNoHarm) {
    ASSERT_EQ(ask("reader r Square Keyless reliable keep_all"), "ok");
    TestWriter* writer = make_writer(participant(), "Square", "Keyless", "keep_all");
    ASSERT_TRUE(await_match(*writer, "r"));
    EXPECT_EQ(write(*writer, 1, kEmpty), DDS_RETCODE_OK);
    EXPECT_EQ(write(*writer, 2, "after"), DDS_RETCODE_OK);
    EXPECT_EQ(writer->wait_for_acknowledgments({10, 0}), DDS_RETCODE_OK);
    EXPECT_EQ(remotely_taken("r", "2 after"), "2 after");
}

TEST_F(UserWriterTest, WritesThatCannotBeAreRefused) {
    DDS_Long limit = 2;
    TestWriter* writer =
        make_writer(participant(), "Square", "Keyed", "max_instances=" + std::to_string(limit));
    TestWriter* keyless = make_writer(participant(), "Circle", "Keyless");
    EXPECT_EQ(write(*writer, 1, kRefused), DDS_RETCODE_ERROR);
    EXPECT_EQ(writer->untyped()->write_untyped(nullptr, {}), DDS_RETCODE_BAD_PARAMETER);
    const DDS_InstanceHandle_t one = writer->register_instance({1, ""});
    EXPECT_TRUE(one.isValid);
    EXPECT_EQ(writer->lookup_instance({1, ""}), one);
    EXPECT_EQ(writer->write({1, "fits"}, one), DDS_RETCODE_OK);
    EXPECT_EQ(writer->write({2, "does not"}, one), DDS_RETCODE_PRECONDITION_NOT_MET);
    EXPECT_FALSE(writer->lookup_instance({2, ""}).isValid);
    DDS_InstanceHandle_t unknown = one;
    unknown.keyHash[0] = 9;
    EXPECT_EQ(writer->write({1, "x"}, unknown), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(keyless->write({1, "x"}, one), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(writer->unregister_instance({2, ""}, DDS_HANDLE_NIL), DDS_RETCODE_PRECONDITION_NOT_MET);
    EXPECT_EQ(keyless->dispose({1, ""}, DDS_HANDLE_NIL), DDS_RETCODE_PRECONDITION_NOT_MET);
    EXPECT_EQ(keyless->unregister_instance({1, ""}, DDS_HANDLE_NIL), DDS_RETCODE_PRECONDITION_NOT_MET);
    EXPECT_FALSE(keyless->register_instance({1, ""}).isValid);
    EXPECT_FALSE(keyless->lookup_instance({1, ""}).isValid);
    EXPECT_EQ(write(*writer, 2, "x"), DDS_RETCODE_OK);
    EXPECT_EQ(write(*writer, 3, "x"), DDS_RETCODE_OUT_OF_RESOURCES);
    EXPECT_FALSE(writer->register_instance({3, ""}).isValid);
    EXPECT_EQ(writer->unregister_instance({1, ""}, one), DDS_RETCODE_OK);
    EXPECT_EQ(write(*writer, 3, "x"), DDS_RETCODE_OK);
    for (const DDS_Time_t impossible : {DDS_Time_t{-5, 0}, DDS_Time_t{1, 1000000000}})
        EXPECT_EQ(writer->write_w_timestamp({2, "x"}, DDS_HANDLE_NIL, impossible), DDS_RETCODE_BAD_PARAMETER);
    TestSample holder;
    EXPECT_EQ(writer->get_key_value(holder, one), DDS_RETCODE_UNSUPPORTED);
    EXPECT_EQ(writer->get_key_value(holder, DDS_HANDLE_NIL), DDS_RETCODE_BAD_PARAMETER);
}

TEST_F(UserWriterTest, AFullHistoryMakesAWriteWaitAndThenFail) {
    ASSERT_EQ(ask("reader r Square Keyless reliable keep_all"), "ok");
    TestWriter* writer =
        make_writer(participant(), "Square", "Keyless", "transient_local keep_all max_samples=3 blocking=50");
    ASSERT_TRUE(await_match(*writer, "r"));
    for (uint32_t i = 1; i <= 3; ++i)
        EXPECT_EQ(write(*writer, i, "x"), DDS_RETCODE_OK);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(write(*writer, 4, "x"), DDS_RETCODE_TIMEOUT); // kept for late joiners: no room ever
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(50));
    EXPECT_EQ(writer->wait_for_acknowledgments({10, 0}), DDS_RETCODE_OK);
    EXPECT_EQ(remotely_taken("r", "1 x, 2 x, 3 x"), "1 x, 2 x, 3 x");
    peer().leave();
    ASSERT_TRUE(await_match(*writer, 0));
    TestWriter* lonely = make_writer(participant(), "Square", "Keyless", "keep_all");
    EXPECT_EQ(write(*lonely, 1, "x"), DDS_RETCODE_OK);
    EXPECT_EQ(lonely->wait_for_acknowledgments({0, 0}), DDS_RETCODE_OK); // no reader has to
}

TEST_F(UserWriterTest, AReaderThatFellSilentLeavesSamplesUnacknowledged) {
    ASSERT_EQ(ask("reader r Square Keyless reliable keep_all"), "ok");
    TestWriter* writer = make_writer(participant(), "Square", "Keyless", "keep_all");
    ASSERT_TRUE(await_match(*writer));
    peer().kill();
    EXPECT_EQ(write(*writer, 1, "x"), DDS_RETCODE_OK);
    EXPECT_EQ(writer->wait_for_acknowledgments({0, 30000000}), DDS_RETCODE_TIMEOUT);
}

TEST_F(UserWriterTest, StatusesTellOfReadersThatMatchAndThatDoNot) {
    TestWriter* writer = make_writer(participant(), "Square", "Keyed", "best_effort");
    DDSStatusCondition* condition = writer->get_statuscondition();
    CaptureStderr();
    ASSERT_EQ(ask("reader wrong Square Keyed reliable"), "ok");
    EXPECT_TRUE(eventually(
        true, [&] { return (writer->get_status_changes() & DDS_OFFERED_INCOMPATIBLE_QOS_STATUS) != 0; }));
    EXPECT_TRUE(condition->get_trigger_value());
    const std::string logged = GetCapturedStderr();
    EXPECT_NE(logged.find("reliability: offered BEST_EFFORT, requested RELIABLE"), std::string::npos)
        << logged;
    DDS_OfferedIncompatibleQosStatus incompatible;
    EXPECT_EQ(writer->get_offered_incompatible_qos_status(incompatible), DDS_RETCODE_OK);
    EXPECT_EQ(incompatible.total_count, 1);
    EXPECT_EQ(incompatible.last_policy_id, DDS_RELIABILITY_QOS_POLICY_ID);
    ASSERT_EQ(incompatible.policies.length(), 1);
    EXPECT_EQ(incompatible.policies[0].count, 1);
    EXPECT_FALSE(condition->get_trigger_value());
    ASSERT_EQ(ask("reader other Square Keyed partition=elsewhere"), "ok"); // no mistake, and not told
    ASSERT_EQ(ask("reader right Square Keyed"), "ok");
    ASSERT_TRUE(await_match(*writer));
    DDS_PublicationMatchedStatus matched;
    EXPECT_EQ(writer->get_publication_matched_status(matched), DDS_RETCODE_OK);
    EXPECT_EQ(matched.total_count, 1);
    EXPECT_EQ(matched.total_count_change, 1);
    EXPECT_EQ(matched.current_count, 1);
    EXPECT_EQ(writer->get_publication_matched_status(matched), DDS_RETCODE_OK);
    EXPECT_EQ(matched.total_count_change, 0);
    EXPECT_EQ(matched.current_count_change, 0);
    EXPECT_EQ(writer->get_status_changes() & DDS_OFFERED_INCOMPATIBLE_QOS_STATUS, 0u);
    peer().leave();
    ASSERT_TRUE(await_match(*writer, 0));
    EXPECT_EQ(writer->get_publication_matched_status(matched), DDS_RETCODE_OK);
    EXPECT_EQ(matched.current_count, 0);
    EXPECT_EQ(matched.current_count_change, -1);
}

TEST_F(UserWriterTest, QosIsAnnouncedAndItsChangeToo) {
    ASSERT_EQ(ask("reader r Square Keyed partition=A"), "ok");
    TestWriter* writer = make_writer(participant(), "Square", "Keyed", "strength=3 partition=B");
    DDS_PublisherQos group;
    EXPECT_EQ(writer->get_publisher()->get_qos(group), DDS_RETCODE_OK);
    group.partition.name.length(0);
    DDS_StringSeq_append(group.partition.name, "A*");
    EXPECT_EQ(writer->get_publisher()->set_qos(group), DDS_RETCODE_OK);
    EXPECT_TRUE(await_match(*writer));
    EXPECT_EQ(matched_to("r", "1"), "1");
    DDS_DataWriterQos qos;
    EXPECT_EQ(writer->get_qos(qos), DDS_RETCODE_OK);
    EXPECT_EQ(qos.ownership_strength.value, 3);
    qos.ownership_strength.value = 9;
    EXPECT_EQ(writer->set_qos(qos), DDS_RETCODE_OK);
    CaptureStderr();
    qos.durability.kind = DDS_TRANSIENT_LOCAL_DURABILITY_QOS;
    EXPECT_EQ(writer->set_qos(qos), DDS_RETCODE_IMMUTABLE_POLICY);
    group.presentation.ordered_access = true;
    EXPECT_EQ(writer->get_publisher()->set_qos(group), DDS_RETCODE_IMMUTABLE_POLICY);
    const std::string logged = GetCapturedStderr();
    EXPECT_NE(logged.find("durability"), std::string::npos) << logged;
    EXPECT_NE(logged.find("presentation"), std::string::npos) << logged;
}

TEST_F(UserWriterTest, CreationFailuresAreNamed) {
    DDSTopic* topic = topic_of(participant(), "Square", "Keyed");
    CaptureStderr();
    EXPECT_EQ(create_writer(nullptr), nullptr);
    EXPECT_NE(GetCapturedStderr().find("topic"), std::string::npos);
    CaptureStderr();
    DDS_DataWriterQos wrong;
    wrong.history.depth = 0;
    EXPECT_EQ(create_writer(topic, wrong), nullptr);
    EXPECT_NE(GetCapturedStderr().find("depth"), std::string::npos);
    CaptureStderr();
    EXPECT_EQ(create_writer(topic_of(participant(), kRefused, "Keyed")), nullptr);
    EXPECT_NE(GetCapturedStderr().find(kRefused), std::string::npos);
    CaptureStderr();
    PRESTypePlugin mute = test_plugin(false);
    mute.serialize = nullptr;
    ASSERT_EQ(participant().register_type("Mute", &mute, nullptr), DDS_RETCODE_OK);
    EXPECT_EQ(create_writer(topic_of(participant(), "Silence", "Mute")), nullptr);
    EXPECT_NE(GetCapturedStderr().find("does not serialize"), std::string::npos);
    CaptureStderr();
    auto* listener = reinterpret_cast<DDSDataWriterListener*>(topic);
    EXPECT_EQ(publisher()->create_datawriter(topic, {}, listener, 0), nullptr);
    auto* group_listener = reinterpret_cast<DDSPublisherListener*>(topic);
    EXPECT_EQ(participant().create_publisher({}, group_listener, 0), nullptr);
    DDS_PublisherQos coherent;
    coherent.presentation.coherent_access = true;
    EXPECT_EQ(participant().create_publisher(coherent, nullptr, 0), nullptr);
    EXPECT_NE(GetCapturedStderr().find("coherent_access"), std::string::npos);
}

TEST_F(UserWriterTest, DeletionFollowsOwnership) {
    DDSTopic* topic = topic_of(participant(), "Square", "Keyed");
    DDSPublisher* first = publisher();
    DDSPublisher* second = publisher();
    DDSDataWriter* writer = first->create_datawriter(topic, {}, nullptr, 0);
    EXPECT_EQ(first->lookup_datawriter("Square"), writer);
    EXPECT_EQ(first->lookup_datawriter("Circle"), nullptr);
    EXPECT_EQ(first->lookup_datawriter(nullptr), nullptr);
    EXPECT_EQ(writer->get_publisher(), first);
    EXPECT_EQ(writer->get_topic(), topic);
    EXPECT_EQ(first->get_participant(), &participant());
    EXPECT_EQ(second->delete_datawriter(writer), DDS_RETCODE_PRECONDITION_NOT_MET);
    EXPECT_EQ(participant().delete_publisher(first), DDS_RETCODE_PRECONDITION_NOT_MET);
    EXPECT_EQ(participant().delete_publisher(nullptr), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(participant().delete_topic(topic), DDS_RETCODE_PRECONDITION_NOT_MET);
    EXPECT_EQ(first->delete_datawriter(writer), DDS_RETCODE_OK);
    EXPECT_EQ(participant().delete_topic(topic), DDS_RETCODE_OK);
    EXPECT_EQ(participant().delete_publisher(first), DDS_RETCODE_OK);
    EXPECT_EQ(participant().delete_publisher(second), DDS_RETCODE_OK);
}

TEST_F(UserWriterTest, AWriterThatIsNotEnabledDoesNothing) {
    ParticipantImpl* sleeping = create();
    ASSERT_TRUE(register_test_types(*sleeping));
    TestWriter* writer = make_writer(*sleeping, "Square", "Keyed");
    ASSERT_NE(writer, nullptr);
    EXPECT_EQ(write(*writer, 1, "x"), DDS_RETCODE_NOT_ENABLED);
    EXPECT_EQ(writer->dispose({1, ""}, DDS_HANDLE_NIL), DDS_RETCODE_NOT_ENABLED);
    EXPECT_EQ(writer->wait_for_acknowledgments({1, 0}), DDS_RETCODE_NOT_ENABLED);
    EXPECT_EQ(writer->assert_liveliness(), DDS_RETCODE_NOT_ENABLED);
    EXPECT_EQ(writer->enable(), DDS_RETCODE_PRECONDITION_NOT_MET);
    EXPECT_EQ(sleeping->enable(), DDS_RETCODE_OK);
    EXPECT_EQ(write(*writer, 1, "x"), DDS_RETCODE_OK);
    EXPECT_EQ(sleeping->delete_contained_entities(), DDS_RETCODE_OK);
    EXPECT_EQ(factory()->delete_participant(sleeping), DDS_RETCODE_OK);
}

TEST_F(UserWriterTest, ManyThreadsWriteThroughOneWriter) {
    ASSERT_EQ(ask("reader r Square Keyless reliable keep_all"), "ok");
    TestWriter* writer = make_writer(participant(), "Square", "Keyless", "keep_all");
    ASSERT_TRUE(await_match(*writer, "r"));
    std::vector<std::thread> threads;
    for (uint32_t t = 0; t < 3; ++t)
        threads.emplace_back([writer, t] {
            for (uint32_t i = 0; i < 100; ++i)
                EXPECT_EQ(write(*writer, t * 100 + i, "x"), DDS_RETCODE_OK);
        });
    for (std::thread& thread : threads)
        thread.join();
    std::string all;
    EXPECT_EQ(eventually(300L,
                         [&] {
                             all = joined(all, ask("take r"));
                             return std::count(all.begin(), all.end(), 'x');
                         }),
              300L);
}

} // namespace
} // namespace meridian::dcps::test
