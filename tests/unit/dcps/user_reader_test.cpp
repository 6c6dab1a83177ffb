// A reader of this process and writers of another one: what it delivers, tells and refuses.

#include <atomic>
#include <future>

#include "dcps/entities/subscriber.h"
#include "endpoints_fixture.h"
#include "meridian/condition.h"
#include "meridian/dynamic_data_type_support.h"
#include "meridian/string.h"
#include "support/no_threads.h"
#include "types/model/type.h"

namespace meridian::dcps::test {
namespace {

using std::chrono::milliseconds;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

class UserReaderTest : public EndpointsTest {
  protected:
    TestReader* reader_of(const std::string& type, const std::string& words,
                          DDSDataReaderListener* listener = nullptr) {
        return make_reader(participant(), "Square", type, words, listener, DDS_STATUS_MASK_ALL);
    }
    /// Both sides know each other.
    bool await_match(TestReader& reader, const std::string& remote_writer, DDS_Long count = 1) {
        return matched_to(remote_writer, "1") == "1" &&
               eventually(count, [&] {
                   DDS_SubscriptionMatchedStatus writers;
                   EXPECT_EQ(reader.get_subscription_matched_status(writers), DDS_RETCODE_OK);
                   return writers.current_count;
               }) == count;
    }
    static bool await_status(DDSDataReader& reader, DDS_StatusMask status) {
        return eventually(true, [&] { return (reader.get_status_changes() & status) != 0; });
    }
    /// A reader of "Square" that the test gives its samples and matches itself.
    std::unique_ptr<UserReader> reader_to_feed(const DDS_DataReaderQos& qos) {
        auto& subscriber = dynamic_cast<SubscriberImpl&>(
            *participant().create_subscriber({}, nullptr, DDS_STATUS_MASK_NONE));
        auto& topic = dynamic_cast<TopicImpl&>(*topic_of(participant(), "Square", "Keyed"));
        return UserReader::create(subscriber, topic, topic.type(),
                                  participant().new_guid(rtps::kUserReaderWithKey), qos,
                                  participant().delivery());
    }
    bool start(UserReader& reader, TestReader& face) {
        reader.set_face(&face);
        return reader.start(*participant().runtime(), DDS_SubscriberQos{});
    }
    /// Waits until everything that the remote writer wrote is in the reader.
    void delivered(const std::string& remote_writer) { EXPECT_EQ(ask("acknowledged " + remote_writer), "0"); }
};

struct TellingListener : DDSDataReaderListener {
    void on_data_available(DDSDataReader*) override { told = true; }
    std::atomic<bool> told{false};
};

struct Reading {
    TestSequence samples;
    DDS_SampleInfoSeq infos;
};

TEST_F(UserReaderTest, SamplesArriveWithCompleteInformation) {
    TestReader* reader = reader_of("Keyed", "reliable keep_all");
    ASSERT_NE(reader, nullptr);
    ASSERT_EQ(ask("writer w Square Keyed keep_all"), "ok");
    ASSERT_TRUE(await_match(*reader, "w"));
    ASSERT_EQ(ask("write w 258 hello"), "0");
    ASSERT_EQ(ask("write w 258 again"), "0");
    ASSERT_EQ(ask("dispose w 258"), "0");
    delivered("w");
    const DDS_InstanceHandle_t known = reader->lookup_instance({258, ""});
    Reading all;
    ASSERT_EQ(reader->take(all.samples, all.infos, DDS_LENGTH_UNLIMITED, DDS_ANY_SAMPLE_STATE,
                           DDS_ANY_VIEW_STATE, DDS_ANY_INSTANCE_STATE),
              DDS_RETCODE_OK);
    ASSERT_EQ(all.samples.length(), 3);
    EXPECT_EQ(all.samples[0].id, 258u);
    EXPECT_EQ(all.samples[0].text, "hello");
    EXPECT_EQ(all.samples[1].text, "again");
    DDS_Time_t now{};
    participant().get_current_time(now);
    for (DDS_Long i = 0; i < 3; ++i) {
        const DDS_SampleInfo& info = all.infos[i];
        EXPECT_EQ(info.valid_data, i < 2);
        // As they were when the sample came.
        EXPECT_EQ(info.view_state, i == 0 ? DDS_NEW_VIEW_STATE : DDS_NOT_NEW_VIEW_STATE);
        EXPECT_EQ(info.instance_state,
                  i < 2 ? DDS_ALIVE_INSTANCE_STATE : DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE);
        EXPECT_NEAR(info.source_timestamp.sec, now.sec, 5);
        EXPECT_TRUE(info.instance_handle.isValid);
        EXPECT_EQ(info.instance_handle.keyHash[2], 1);
        EXPECT_EQ(info.instance_handle.keyHash[3], 2);
        EXPECT_EQ(rtps::to_string(*discovery::to_guid(info.publication_handle)), ask("guid w"));
        EXPECT_EQ(std::memcmp(info.sample_identity.writer_guid.value, info.publication_handle.keyHash, 16),
                  0);
        EXPECT_EQ(info.sample_identity.sequence_number.high, 0);
        EXPECT_EQ(info.sample_identity.sequence_number.low, static_cast<DDS_UnsignedLong>(i + 1));
        EXPECT_EQ(info.related_sample_identity.writer_guid, DDS_GUID_UNKNOWN);
    }
    EXPECT_EQ(known, all.infos[0].instance_handle);
    EXPECT_FALSE(reader->lookup_instance({1, ""}).isValid);
    DDS_ParticipantBuiltinTopicData remote;
    EXPECT_EQ(reader->get_matched_publication_participant_data(remote, all.infos[0].publication_handle),
              DDS_RETCODE_OK);
    EXPECT_EQ(reader->get_matched_publication_participant_data(remote, DDS_HANDLE_NIL),
              DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(reader->return_loan(all.samples, all.infos), DDS_RETCODE_OK);
}

TEST_F(UserReaderTest, ListenersAreToldWhereNoFurtherThreadCanBeHad) {
    const NoThreads none;
    TellingListener listener;
    TestReader* reader = reader_of("Keyed", "reliable keep_all", &listener);
    ASSERT_NE(reader, nullptr);
    ASSERT_EQ(ask("writer w Square Keyed keep_all"), "ok");
    ASSERT_TRUE(await_match(*reader, "w"));
    ASSERT_EQ(ask("write w 1 a"), "0");
    EXPECT_TRUE(eventually(true, [&] { return listener.told.load(); }));
    EXPECT_EQ(participant().delete_contained_entities(), DDS_RETCODE_OK);
}

TEST_F(UserReaderTest, ReadAndTakeChooseByStatesInstancesAndConditions) {
    TestReader* reader = reader_of("Keyed", "reliable keep_all");
    ASSERT_EQ(ask("writer w Square Keyed keep_all"), "ok");
    ASSERT_TRUE(await_match(*reader, "w"));
    for (const char* command : {"write w 1 a", "write w 1 b", "write w 2 c", "write w 3 d"})
        ASSERT_EQ(ask(command), "0");
    delivered("w");
    constexpr auto kAny = DDS_ANY_SAMPLE_STATE;
    const auto texts = [reader](DDS_ReturnCode_t code, Reading& reading) {
        std::string text;
        if (code != DDS_RETCODE_OK)
            return "code " + std::to_string(code);
        for (DDS_Long i = 0; i < reading.samples.length(); ++i)
            text += reading.samples[i].text;
        EXPECT_EQ(reader->return_loan(reading.samples, reading.infos), DDS_RETCODE_OK);
        return text;
    };
    Reading r;
    EXPECT_EQ(texts(reader->read(r.samples, r.infos, 1, kAny, DDS_ANY_VIEW_STATE, DDS_ANY_INSTANCE_STATE), r),
              "a");
    EXPECT_EQ(
        texts(reader->read(r.samples, r.infos, -1, DDS_READ_SAMPLE_STATE, DDS_ANY_VIEW_STATE, 0xffff), r),
        "a");
    EXPECT_EQ(texts(reader->read(r.samples, r.infos, -2, kAny, DDS_ANY_VIEW_STATE, 0xffff), r), "code 3");
    const DDS_InstanceHandle_t one = reader->lookup_instance({1, ""});
    EXPECT_EQ(texts(reader->read_instance(r.samples, r.infos, -1, one, kAny, DDS_ANY_VIEW_STATE, 0xffff), r),
              "ab");
    EXPECT_EQ(texts(reader->read_instance(r.samples, r.infos, -1, DDS_HANDLE_NIL, kAny, 0xffff, 0xffff), r),
              "code 3");
    EXPECT_EQ(
        texts(reader->read_next_instance(r.samples, r.infos, -1, DDS_HANDLE_NIL, kAny, 0xffff, 0xffff), r),
        "ab");
    EXPECT_EQ(texts(reader->take_next_instance(r.samples, r.infos, -1, one, kAny, 0xffff, 0xffff), r), "c");
    EXPECT_EQ(texts(reader->take_next_instance(r.samples, r.infos, -1, one, kAny, 0xffff, 0xffff), r), "d");
    EXPECT_EQ(texts(reader->take_next_instance(r.samples, r.infos, -1, one, kAny, 0xffff, 0xffff), r),
              "code 11");

    DDSReadCondition* unread = reader->create_readcondition(DDS_NOT_READ_SAMPLE_STATE, 0xffff, 0xffff);
    ASSERT_NE(unread, nullptr);
    EXPECT_FALSE(unread->get_trigger_value());
    EXPECT_EQ(texts(reader->take_w_condition(r.samples, r.infos, -1, unread), r), "code 11");
    EXPECT_EQ(texts(reader->take_w_condition(r.samples, r.infos, -1, nullptr), r), "code 3");
    DDSWaitSet waits;
    ASSERT_EQ(waits.attach_condition(unread), DDS_RETCODE_OK);
    DDSConditionSeq active;
    EXPECT_EQ(waits.wait(active, {0, 20000000}), DDS_RETCODE_TIMEOUT);
    ASSERT_EQ(ask("write w 1 e"), "0");
    EXPECT_EQ(waits.wait(active, {10, 0}), DDS_RETCODE_OK);
    ASSERT_EQ(active.length(), 1);
    EXPECT_EQ(active[0], unread);
    EXPECT_EQ(texts(reader->read_w_condition(r.samples, r.infos, -1, unread), r), "e");
    EXPECT_FALSE(unread->get_trigger_value());
    EXPECT_EQ(waits.detach_condition(unread), DDS_RETCODE_OK);
    EXPECT_EQ(reader->delete_readcondition(unread), DDS_RETCODE_OK);
    EXPECT_EQ(reader->delete_readcondition(nullptr), DDS_RETCODE_PRECONDITION_NOT_MET);

    // Copies, into sequences that own their elements.
    Reading copies;
    copies.samples.maximum(2);
    copies.infos.maximum(2);
    ASSERT_EQ(reader->take(copies.samples, copies.infos, -1, kAny, 0xffff, 0xffff), DDS_RETCODE_OK);
    ASSERT_EQ(copies.samples.length(), 2);
    EXPECT_EQ(copies.samples[1].text, "b");
    EXPECT_TRUE(copies.samples.has_ownership());
    EXPECT_EQ(reader->return_loan(copies.samples, copies.infos), DDS_RETCODE_OK);
    EXPECT_EQ(reader->take(copies.samples, copies.infos, 3, kAny, 0xffff, 0xffff),
              DDS_RETCODE_PRECONDITION_NOT_MET);
    Reading uneven;
    uneven.samples.maximum(2);
    EXPECT_EQ(reader->take(uneven.samples, uneven.infos, -1, kAny, 0xffff, 0xffff),
              DDS_RETCODE_PRECONDITION_NOT_MET);
    TestSample sample;
    DDS_SampleInfo info;
    EXPECT_EQ(reader->take_next_sample(sample, info), DDS_RETCODE_NO_DATA); // "e" was read
    ASSERT_EQ(ask("write w 4 f"), "0");
    EXPECT_EQ(eventually(DDS_RETCODE_OK, [&] { return reader->take_next_sample(sample, info); }),
              DDS_RETCODE_OK);
    EXPECT_EQ(sample.text, "f");
}

TEST_F(UserReaderTest, ALoanKeepsTheReaderAndSurvivesTheEntities) {
    TestReader* reader = reader_of("Keyed", "reliable keep_all");
    ASSERT_EQ(ask("writer w Square Keyed keep_all"), "ok");
    ASSERT_TRUE(await_match(*reader, "w"));
    ASSERT_EQ(ask("write w 1 lent"), "0");
    delivered("w");
    Reading loan;
    ASSERT_EQ(reader->take(loan.samples, loan.infos, -1, 0xffff, 0xffff, 0xffff), DDS_RETCODE_OK);
    Reading second;
    EXPECT_EQ(reader->take(loan.samples, second.infos, -1, 0xffff, 0xffff, 0xffff),
              DDS_RETCODE_PRECONDITION_NOT_MET);
    EXPECT_EQ(reader->return_loan(loan.samples, second.infos), DDS_RETCODE_PRECONDITION_NOT_MET);
    EXPECT_EQ(reader->get_subscriber()->delete_datareader(reader), DDS_RETCODE_PRECONDITION_NOT_MET);
    EXPECT_EQ(participant().delete_contained_entities(), DDS_RETCODE_OK);
    EXPECT_EQ(participant().lookup_topicdescription("Square"), nullptr);
    EXPECT_EQ(loan.samples[0].text, "lent");
    EXPECT_EQ(reader->return_loan(loan.samples, loan.infos), DDS_RETCODE_OK);
    EXPECT_TRUE(loan.samples.has_ownership());
}

TEST_F(UserReaderTest, SamplesThatCannotBeDecodedAreLostAndHarmNothing) {
    TestReader* reader = reader_of("Keyed", "reliable keep_all");
    ASSERT_EQ(ask("writer w Square Keyed keep_all"), "ok");
    ASSERT_TRUE(await_match(*reader, "w"));
    CaptureStderr();
    for (const char* text : {kUndecodable, kEmpty, kUndecodable, kDropped, "good"})
        ASSERT_EQ(ask("write w 1 " + std::string(text)), "0");
    EXPECT_EQ(taken(*reader, "1 good"), "1 good");
    const std::string logged = GetCapturedStderr();
    const size_t first = logged.find("is not what its type \"Keyed\" says");
    EXPECT_NE(first, std::string::npos) << logged;
    EXPECT_EQ(logged.find("is not what", first + 1), std::string::npos) << logged; // once
    EXPECT_NE(logged.find(" error dcps "), std::string::npos) << "there is no line of it: " << logged;
    DDS_SampleLostStatus lost;
    EXPECT_EQ(reader->read_status(&lost), DDS_RETCODE_OK);
    EXPECT_EQ(lost.total_count, 2); // without a payload there is nothing to lose
}

TEST_F(UserReaderTest, ADisposeMayBringData) {
    DDS_DataReaderQos qos;
    qos.history.kind = DDS_KEEP_ALL_HISTORY_QOS;
    const auto reader = reader_to_feed(qos);
    ASSERT_NE(reader, nullptr);
    TestReader face(reader.get());
    ASSERT_TRUE(start(*reader, face));

    CaptureStderr();
    const auto receive = [&reader](uint32_t status_info, uint8_t id, const std::string& text, bool key) {
        std::vector<uint8_t> bytes{0, 1, 0, 0, id, 0, 0, 0};
        if (!key) {
            bytes.insert(bytes.end(), {static_cast<uint8_t>(text.size() + 1), 0, 0, 0});
            bytes.insert(bytes.end(), text.begin(), text.end());
            bytes.push_back(0);
        }
        rtps::Sample sample;
        sample.inline_qos.status_info = status_info;
        sample.has_payload = true;
        sample.payload_is_key = key;
        sample.payload = {bytes.data(), bytes.size()};
        reader->on_sample(sample);
        reader->on_batch_end();
    };
    receive(0, 1, "", true); // registers the instance
    EXPECT_EQ(take_all(face), "");
    receive(1, 1, "last words", false);
    receive(3, 2, "bye", false);
    receive(1, 3, kUndecodable, false);
    receive(1, 4, kDropped, false);
    receive(1, 5, "", true);
    receive(2, 6, "", true);
    TestSequence samples;
    DDS_SampleInfoSeq infos;
    ASSERT_EQ(face.read(samples, infos, DDS_LENGTH_UNLIMITED, 0xffff, 0xffff, 0xffff), DDS_RETCODE_OK);
    for (DDS_Long i = 0; i < infos.length(); ++i)
        EXPECT_EQ(infos[i].instance_state, DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE);
    EXPECT_EQ(face.return_loan(samples, infos), DDS_RETCODE_OK);
    EXPECT_EQ(take_all(face), "1 last words, 2 bye, 3 disposed, 4 disposed, 5 disposed");
    receive(2, 6, "unregistered", false);
    EXPECT_EQ(take_all(face), "6 unregistered, 6 no_writers");
    // What cannot be read is told, but the dispose is there: nothing counts as lost.
    const std::string logged = GetCapturedStderr();
    EXPECT_NE(logged.find("is not what its type \"Keyed\" says"), std::string::npos);
    EXPECT_EQ(logged.find("(8 bytes)"), std::string::npos) << "no data was to come: " << logged;
    DDS_SampleLostStatus lost;
    EXPECT_EQ(reader->read_status(&lost), DDS_RETCODE_OK);
    EXPECT_EQ(lost.total_count, 0);
}

TEST_F(UserReaderTest, AnOwnerWhoseStrengthChangesKeepsOrLosesItsInstances) {
    DDS_DataReaderQos qos;
    qos.history.kind = DDS_KEEP_ALL_HISTORY_QOS;
    qos.ownership.kind = DDS_EXCLUSIVE_OWNERSHIP_QOS;
    const auto reader = reader_to_feed(qos);
    ASSERT_NE(reader, nullptr);
    TestReader face(reader.get());
    ASSERT_TRUE(start(*reader, face));
    const auto writer = [](uint32_t entity, int32_t strength) {
        rtps::EndpointData data;
        data.guid = {{}, rtps::EntityId{entity}};
        data.qos.ownership_strength = strength;
        return rtps::RecordMaker().make(std::move(data), rtps::kTimeInvalid);
    };
    const auto write = [&reader](uint32_t entity, char text) {
        const std::vector<uint8_t> bytes{0, 1, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, static_cast<uint8_t>(text), 0};
        rtps::Sample sample;
        sample.writer = {{}, rtps::EntityId{entity}};
        sample.has_payload = true;
        sample.payload = {bytes.data(), bytes.size()};
        reader->on_sample(sample);
        reader->on_batch_end();
    };
    reader->matched(*writer(0x102, 1));
    reader->matched(*writer(0x202, 2));
    write(0x202, 'a');
    write(0x102, 'b'); // weaker
    reader->match_changed(*writer(0x102, 3));
    write(0x102, 'c');
    write(0x202, 'd'); // weaker now
    EXPECT_EQ(take_all(face), "1 a, 1 c");
}

/// A reader, a remote writer, and an application that takes an interest in publications.
class AnnouncementFirst : public UserReaderTest {
  protected:
    void SetUp() override {
        UserReaderTest::SetUp();
        publications_ = DDSPublicationBuiltinTopicDataDataReader::narrow(
            participant().get_builtin_subscriber()->lookup_datareader(DDS_PUBLICATION_TOPIC_NAME));
        EXPECT_EQ(take_publications(), DDS_RETCODE_NO_DATA);
        reader_ = reader_of("Keyed", "reliable keep_all");
    }
    DDS_ReturnCode_t take_publications() {
        return publications_->take(data_, infos_, DDS_LENGTH_UNLIMITED, DDS_ANY_SAMPLE_STATE,
                                   DDS_ANY_VIEW_STATE, DDS_ANY_INSTANCE_STATE);
    }
    void write_one() {
        ASSERT_EQ(ask("writer w Square Keyed keep_all"), "ok");
        ASSERT_TRUE(await_match(*reader_, "w"));
        ASSERT_EQ(ask("write w 1 a"), "0");
        ASSERT_EQ(ask("write w 1 b"), "0");
        delivered("w");
    }

    DDSPublicationBuiltinTopicDataDataReader* publications_ = nullptr;
    TestReader* reader_ = nullptr;
    DDS_PublicationBuiltinTopicDataSeq data_;
    DDS_SampleInfoSeq infos_;
};

TEST_F(AnnouncementFirst, SamplesFollowTheAnnouncementOfTheirWriter) {
    DDSReadCondition* condition =
        reader_->create_readcondition(DDS_ANY_SAMPLE_STATE, DDS_ANY_VIEW_STATE, DDS_ANY_INSTANCE_STATE);
    write_one();
    EXPECT_EQ(take_all(*reader_), "");
    ASSERT_EQ(take_publications(), DDS_RETCODE_OK);
    EXPECT_EQ(take_all(*reader_), ""); // the application looks at it still
    EXPECT_FALSE(condition->get_trigger_value());
    EXPECT_EQ(publications_->return_loan(data_, infos_), DDS_RETCODE_OK);
    EXPECT_TRUE(condition->get_trigger_value());
    EXPECT_EQ(take_all(*reader_), "1 a, 1 b");
    ASSERT_EQ(ask("write w 1 c"), "0");
    delivered("w");
    EXPECT_EQ(take_all(*reader_), "1 c");
    EXPECT_EQ(reader_->delete_readcondition(condition), DDS_RETCODE_OK);
}

TEST_F(AnnouncementFirst, SoDoesTheEndOfAWriterThatIsGoneAlready) {
    write_one();
    ASSERT_EQ(ask("delete w"), "0");
    DDS_SubscriptionMatchedStatus matched;
    const auto writers = [&] {
        EXPECT_EQ(reader_->get_subscription_matched_status(matched), DDS_RETCODE_OK);
        return matched.current_count;
    };
    ASSERT_EQ(eventually(0, writers), 0);
    EXPECT_EQ(take_all(*reader_), "");
    ASSERT_EQ(take_publications(), DDS_RETCODE_OK);
    EXPECT_EQ(publications_->return_loan(data_, infos_), DDS_RETCODE_OK);
    EXPECT_EQ(take_all(*reader_), "1 a, 1 b, 1 no_writers");
}

TEST_F(AnnouncementFirst, SoDoSamplesOfReadersOfFurtherParticipants) {
    ParticipantImpl* const other = create();
    ASSERT_TRUE(register_test_types(*other));
    ASSERT_EQ(other->enable(), DDS_RETCODE_OK);
    TestReader* const reader =
        make_reader(*other, "Square", "Keyed", "reliable keep_all", nullptr, DDS_STATUS_MASK_NONE);
    ASSERT_NE(reader, nullptr);
    ASSERT_EQ(ask("writer w Square Keyed keep_all"), "ok");
    ASSERT_EQ(matched_to("w", "2"), "2");
    const auto writers = [reader] {
        DDS_SubscriptionMatchedStatus matched;
        EXPECT_EQ(reader->get_subscription_matched_status(matched), DDS_RETCODE_OK);
        return matched.current_count;
    };
    ASSERT_EQ(eventually(1, writers), 1);
    ASSERT_EQ(ask("write w 1 a"), "0");
    delivered("w");
    EXPECT_EQ(take_all(*reader), "");
    ASSERT_EQ(take_publications(), DDS_RETCODE_OK);
    EXPECT_EQ(take_all(*reader), "");
    EXPECT_EQ(publications_->return_loan(data_, infos_), DDS_RETCODE_OK);
    EXPECT_EQ(take_all(*reader), "1 a");
    EXPECT_EQ(other->delete_contained_entities(), DDS_RETCODE_OK);
}

TEST_F(AnnouncementFirst, TheyComeAnywayAfterASecond) {
    const auto begin = std::chrono::steady_clock::now();
    write_one();
    EXPECT_EQ(take_all(*reader_), "");
    EXPECT_EQ(taken(*reader_, "1 a, 1 b"), "1 a, 1 b");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(900));
}

TEST_F(AnnouncementFirst, WhatIsWithheldGoesWithItsReader) {
    write_one();
    EXPECT_EQ(reader_->get_subscriber()->delete_datareader(reader_), DDS_RETCODE_OK); // the pool is checked
    reader_ = nullptr;
    ASSERT_EQ(take_publications(), DDS_RETCODE_OK);
    EXPECT_EQ(publications_->return_loan(data_, infos_), DDS_RETCODE_OK);
}

TEST_F(UserReaderTest, OnlyWritersThatAnnounceATypeMatchAReaderThatValidatesTypes) {
    types::TypeGraph* const graph = types::TypeGraph::create();
    types::Type* const type = graph->add();
    type->kind = DDS_TK_STRUCT;
    type->name = "Typed";
    const types::TypeRef owner = types::TypeRef::adopt(type);
    DDSDynamicDataTypeSupport support(owner.get(), DDS_DYNAMIC_DATA_TYPE_PROPERTY_DEFAULT);
    ASSERT_EQ(support.register_type(&participant(), "Typed"), DDS_RETCODE_OK);
    DDSTopic* const topic = participant().create_topic("T", "Typed", {}, nullptr, DDS_STATUS_MASK_NONE);
    DDSSubscriber* const subscriber = participant().create_subscriber({}, nullptr, DDS_STATUS_MASK_NONE);
    rtps::RemoteEndpoint without_type;
    for (const bool validates : {false, true}) {
        DDS_DataReaderQos qos;
        qos.type_consistency.kind = DDS_DISALLOW_TYPE_COERCION;
        qos.type_consistency.force_type_validation = validates;
        auto* const reader = dynamic_cast<DDSDynamicDataReader*>(
            subscriber->create_datareader(topic, qos, nullptr, DDS_STATUS_MASK_NONE));
        ASSERT_NE(reader, nullptr);
        auto* const user_reader = dynamic_cast<UserReader*>(reader->untyped());
        EXPECT_EQ(user_reader->accepts_type(without_type), !validates);
    }
}

TEST_F(UserReaderTest, OwnLossIsToldWhenItBeginsAndAtTheEnd) {
    TestReader* reader = reader_of("Keyless", "reliable depth=2");
    ASSERT_EQ(ask("writer w Square Keyless keep_all"), "ok");
    ASSERT_TRUE(await_match(*reader, "w"));
    CaptureStderr();
    ASSERT_EQ(ask("many w 1 10"), "0");
    delivered("w");
    const std::string begin = GetCapturedStderr();
    const size_t first = begin.find("topic \"Square\": samples come faster");
    EXPECT_NE(first, std::string::npos) << begin;
    EXPECT_EQ(begin.find("topic \"Square\": samples come faster", first + 1), std::string::npos) << begin;
    EXPECT_EQ(take_all(*reader), "9 9, 10 10");
    CaptureStderr();
    EXPECT_EQ(reader->get_subscriber()->delete_datareader(reader), DDS_RETCODE_OK);
    const std::string end = GetCapturedStderr();
    EXPECT_NE(end.find("topic \"Square\": 8 samples were overwritten"), std::string::npos) << end;
}

TEST_F(UserReaderTest, SamplesThatCannotBeTakenAreToldWhenItBeginsAndAtTheEnd) {
    TestReader* reader = reader_of("Keyless", "best_effort");
    rtps::ReaderSink& sink = *dynamic_cast<UserReader*>(reader->untyped());
    CaptureStderr();
    sink.on_not_taken({}, rtps::NotTaken::incomplete, 1);
    sink.on_not_taken({}, rtps::NotTaken::incomplete, 4);
    const std::string begin = GetCapturedStderr();
    const size_t first = begin.find("topic \"Square\": samples come incomplete");
    EXPECT_NE(first, std::string::npos) << begin;
    EXPECT_EQ(begin.find("incomplete", first + 40), std::string::npos) << begin;
    CaptureStderr();
    EXPECT_EQ(reader->get_subscriber()->delete_datareader(reader), DDS_RETCODE_OK);
    const std::string end = GetCapturedStderr();
    EXPECT_NE(end.find("topic \"Square\": 5 samples came incomplete"), std::string::npos) << end;
    EXPECT_EQ(end.find("too large"), std::string::npos) << end;
}

TEST_F(UserReaderTest, EveryPolicyThatKeepsAWriterAwayIsToldInWords) {
    TestReader& reader = *reader_of("Keyed",
                                    "transient_local deadline=2500 manual_by_topic lease=3000 exclusive "
                                    "reliable xcdr2 partition=Hall");
    DDS_EndpointPolicies writer;
    DDS_GroupPolicies publisher;
    const auto told = [&] {
        char* const text = reader.describe_incompatibility(writer, publisher);
        std::string copy = text;
        DDS_String_free(text);
        return copy;
    };
    EXPECT_EQ(told(),
              "durability: offered VOLATILE, requested TRANSIENT_LOCAL; "
              "deadline: offered infinite, requested 2.5 s; "
              "ownership: offered SHARED, requested EXCLUSIVE; "
              "liveliness: offered AUTOMATIC with a lease of infinite, requested MANUAL_BY_TOPIC with a "
              "lease of 3 s; "
              "partition: offered \"\", requested \"Hall\"; "
              "reliability: offered BEST_EFFORT, requested RELIABLE; "
              "data representation: offered XCDR1, requested XCDR2");
    publisher.partition.name = discovery::to_string_seq({"Hall/1", "H*"});
    writer.representation.value.append(DDS_XCDR2_DATA_REPRESENTATION);
    writer.durability.kind = DDS_TRANSIENT_LOCAL_DURABILITY_QOS;
    writer.deadline.period = writer.liveliness.lease_duration = {1, 0};
    writer.liveliness.kind = DDS_MANUAL_BY_TOPIC_LIVELINESS_QOS;
    writer.reliability.kind = DDS_RELIABLE_RELIABILITY_QOS;
    writer.ownership.kind = DDS_EXCLUSIVE_OWNERSHIP_QOS;
    EXPECT_EQ(told(), "") << "a pattern of the writer's lets it in";
    publisher.partition.name = discovery::to_string_seq({"Hall/1", "Yard"});
    EXPECT_EQ(told(), "partition: offered \"Hall/1,Yard\", requested \"Hall\"");
    publisher.partition.name = discovery::to_string_seq({"x*", "y*"});
    EXPECT_EQ(told(), "") << "patterns alone are no mistake";
}

TEST_F(UserReaderTest, StatusesOfMatchesLivelinessAndIncompatibility) {
    TestReader* reader = reader_of("Keyed", "reliable manual_by_topic lease=1500 transient_local");
    CaptureStderr();
    ASSERT_EQ(ask("writer bad Square Keyed best_effort manual_by_topic lease=1000"), "ok");
    ASSERT_TRUE(await_status(*reader, DDS_REQUESTED_INCOMPATIBLE_QOS_STATUS));
    const std::string logged = GetCapturedStderr();
    for (const char* part : {"reliability: offered BEST_EFFORT, requested RELIABLE",
                             "durability: offered VOLATILE, requested TRANSIENT_LOCAL", "\"Square\""})
        EXPECT_NE(logged.find(part), std::string::npos) << logged;
    EXPECT_NE(logged.find(ask("guid bad")), std::string::npos) << logged;
    DDS_RequestedIncompatibleQosStatus incompatible;
    EXPECT_EQ(reader->read_status(&incompatible), DDS_RETCODE_OK);
    EXPECT_EQ(incompatible.total_count, 1);
    EXPECT_EQ(incompatible.policies.length(), 2);
    EXPECT_EQ(reader->get_status_changes() & DDS_REQUESTED_INCOMPATIBLE_QOS_STATUS, 0u);

    ASSERT_EQ(ask("writer w Square Keyed transient_local manual_by_topic lease=1000"), "ok");
    ASSERT_TRUE(await_match(*reader, "w"));
    DDS_SubscriptionMatchedStatus matched;
    EXPECT_EQ(reader->get_subscription_matched_status(matched), DDS_RETCODE_OK);
    EXPECT_EQ(matched.current_count, 1);
    EXPECT_EQ(matched.total_count, 1);
    EXPECT_EQ(rtps::to_string(*discovery::to_guid(matched.last_publication_handle)), ask("guid w"));
    ASSERT_EQ(ask("write w 1 a"), "0");
    EXPECT_EQ(taken(*reader, "1 a"), "1 a");
    const auto liveliness = [reader] {
        DDS_LivelinessChangedStatus status;
        EXPECT_EQ(reader->read_status(&status), DDS_RETCODE_OK);
        return std::make_pair(status.alive_count, status.not_alive_count);
    };
    EXPECT_EQ(eventually(std::make_pair(0, 1), liveliness), std::make_pair(0, 1)); // it asserts nothing
    EXPECT_EQ(taken(*reader, "1 no_writers"), "1 no_writers");
    ASSERT_EQ(ask("assert w"), "0");
    EXPECT_EQ(eventually(std::make_pair(1, 0), liveliness), std::make_pair(1, 0));
    ASSERT_EQ(ask("delete w"), "0");
    EXPECT_EQ(eventually(std::make_pair(0, 0), liveliness), std::make_pair(0, 0));
    EXPECT_EQ(reader->get_subscription_matched_status(matched), DDS_RETCODE_OK);
    EXPECT_EQ(matched.current_count, 0);
    EXPECT_EQ(matched.current_count_change, -1);
}

TEST_F(UserReaderTest, MissedDeadlinesAndRejectedSamplesAreCounted) {
    TestReader* reader = reader_of("Keyed", "reliable keep_all deadline=50 max_samples=3 max_instances=2");
    ASSERT_EQ(ask("writer w Square Keyed keep_all deadline=50"), "ok");
    ASSERT_TRUE(await_match(*reader, "w"));
    for (const char* command : {"write w 1 a", "write w 2 b", "write w 3 c", "write w 1 d", "write w 1 e"})
        ASSERT_EQ(ask(command), "0");
    delivered("w");
    DDS_SampleRejectedStatus rejected;
    EXPECT_EQ(reader->read_status(&rejected), DDS_RETCODE_OK);
    EXPECT_EQ(rejected.total_count, 2);
    EXPECT_EQ(rejected.last_reason, DDS_REJECTED_BY_SAMPLES_LIMIT);
    EXPECT_EQ(take_all(*reader), "1 a, 2 b, 1 d");
    DDS_RequestedDeadlineMissedStatus missed;
    EXPECT_TRUE(eventually(true, [&] {
        EXPECT_EQ(reader->read_status(&missed), DDS_RETCODE_OK);
        return missed.total_count >= 4; // of two instances, more than once
    }));
    EXPECT_TRUE(missed.last_instance_handle.isValid);
}

TEST_F(UserReaderTest, CreationFailuresAreNamed) {
    DDSSubscriber* subscriber = participant().create_subscriber({}, nullptr, DDS_STATUS_MASK_NONE);
    const auto refused = [subscriber](DDSTopicDescription* topic, const DDS_DataReaderQos& qos) {
        CaptureStderr();
        EXPECT_EQ(subscriber->create_datareader(topic, qos, nullptr, 0), nullptr);
        return GetCapturedStderr();
    };
    DDSTopic* topic = topic_of(participant(), "Square", "Keyed");
    EXPECT_NE(refused(nullptr, {}).find("topic"), std::string::npos);
    DDS_DataReaderQos wrong;
    wrong.history.depth = 0;
    EXPECT_NE(refused(topic, wrong).find("depth"), std::string::npos);
    EXPECT_NE(refused(topic_of(participant(), kRefused, "Keyed"), {}).find("refused"), std::string::npos);
    DDSSubscriber* other = participant().create_subscriber({}, nullptr, DDS_STATUS_MASK_NONE);
    DDSDataReader* reader = subscriber->create_datareader(topic, {}, nullptr, 0);
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(subscriber->lookup_datareader("Square"), reader);
    EXPECT_EQ(other->delete_datareader(reader), DDS_RETCODE_PRECONDITION_NOT_MET);
    EXPECT_EQ(other->delete_datareader(nullptr), DDS_RETCODE_PRECONDITION_NOT_MET);
    EXPECT_EQ(participant().delete_topic(topic), DDS_RETCODE_PRECONDITION_NOT_MET);
    EXPECT_EQ(subscriber->delete_datareader(reader), DDS_RETCODE_OK);
    EXPECT_EQ(participant().delete_topic(topic), DDS_RETCODE_OK);
}

TEST_F(UserReaderTest, PartitionsOfTheSubscriberFollowItsQos) {
    TestReader* reader = reader_of("Keyed", "reliable partition=A");
    ASSERT_EQ(ask("writer w Square Keyed transient_local partition=B1"), "ok");
    DDS_SubscriberQos qos;
    EXPECT_EQ(reader->get_subscriber()->get_qos(qos), DDS_RETCODE_OK);
    DDS_StringSeq_append(qos.partition.name, "B?");
    EXPECT_EQ(reader->get_subscriber()->set_qos(qos), DDS_RETCODE_OK);
    EXPECT_TRUE(await_match(*reader, "w"));
    qos.partition.name.length(1);
    EXPECT_EQ(reader->get_subscriber()->set_qos(qos), DDS_RETCODE_OK);
    EXPECT_EQ(matched_to("w", "0"), "0");
}

/// Listens, and stays in on_data_available until the test lets it go.
class SlowListener : public DDSDataReaderListener {
  public:
    ~SlowListener() override { detach(); }
    void on_data_available(DDSDataReader* reader) override {
        running = true;
        if (calls++ == 0)
            entered.set_value();
        if (action)
            action(reader);
        std::this_thread::sleep_for(delay);
        running = false;
    }
    void on_subscription_matched(DDSDataReader*, const DDS_SubscriptionMatchedStatus& status) override {
        matches = status.current_count;
    }

    std::promise<void> entered;
    std::function<void(DDSDataReader*)> action;
    milliseconds delay{0};
    std::atomic<bool> running{false};
    std::atomic<int> calls{0};
    std::atomic<int> matches{-1};
};

class ListenerTest : public UserReaderTest {
  protected:
    /// A callback of the listener runs when this returns.
    TestReader* reader_in_callback(SlowListener& listener, milliseconds delay = milliseconds(50)) {
        listener.delay = delay;
        TestReader* reader = reader_of("Keyed", "reliable keep_all", &listener);
        EXPECT_EQ(ask("writer w Square Keyed keep_all"), "ok");
        EXPECT_TRUE(await_match(*reader, "w"));
        EXPECT_EQ(ask("many w 1 5"), "0");
        EXPECT_EQ(listener.entered.get_future().wait_for(kPatience), std::future_status::ready);
        return reader;
    }
};

TEST_F(ListenerTest, CallbacksTellWhatHappened) {
    SlowListener listener;
    reader_in_callback(listener, milliseconds(0));
    EXPECT_EQ(eventually(1, [&] { return listener.matches.load(); }), 1);
    peer().leave();
    EXPECT_EQ(eventually(0, [&] { return listener.matches.load(); }), 0);
    listener.detach();
}

TEST_F(ListenerTest, DetachWaitsForTheCallback) {
    auto listener = std::make_unique<SlowListener>();
    TestReader* reader = reader_in_callback(*listener);
    listener->detach();
    EXPECT_FALSE(listener->running);
    const int calls = listener->calls;
    SlowListener later; // of a reader that is told after the first one
    ASSERT_NE(reader_of("Keyed", "reliable keep_all", &later), nullptr);
    ASSERT_EQ(matched_to("w", "2"), "2");
    ASSERT_EQ(ask("write w 9 more"), "0");
    EXPECT_EQ(later.entered.get_future().wait_for(kPatience), std::future_status::ready);
    delivered("w");
    EXPECT_EQ(listener->calls, calls);
    listener.reset();
    EXPECT_NE(take_all(*reader).find("9 more"), std::string::npos);
}

TEST_F(ListenerTest, DeletingTheReaderWaitsForTheCallback) {
    SlowListener listener;
    TestReader* reader = reader_in_callback(listener);
    EXPECT_EQ(reader->get_subscriber()->delete_datareader(reader), DDS_RETCODE_OK);
    EXPECT_FALSE(listener.running);
    EXPECT_EQ(participant().delete_contained_entities(), DDS_RETCODE_OK);
}

TEST_F(ListenerTest, ACallbackThatUsesTheParticipantDoesNotBlockItsEnd) {
    for (int round = 0; round < 20; ++round) {
        SlowListener listener;
        listener.action = [this](DDSDataReader* reader) {
            DDSSubscriber* subscriber = reader->get_subscriber();
            DDS_SubscriberQos group;
            EXPECT_EQ(subscriber->get_qos(group), DDS_RETCODE_OK);
            subscriber->set_qos(group);
            DDS_DataReaderQos qos;
            EXPECT_EQ(reader->get_qos(qos), DDS_RETCODE_OK);
            EXPECT_EQ(reader->set_qos(qos), DDS_RETCODE_OK);
            for (int i = 0; i < 5; ++i) {
                DDSTopicDescription* topic = participant().lookup_topicdescription("Square");
                if (DDSDataReader* another = subscriber->create_datareader(topic, qos, nullptr, 0))
                    subscriber->delete_datareader(another);
                DDS_DomainParticipantQos own;
                EXPECT_EQ(participant().get_qos(own), DDS_RETCODE_OK);
                participant().create_subscriber({}, nullptr, DDS_STATUS_MASK_NONE);
                participant().is_type_registered("Keyed");
            }
            take_all(*dynamic_cast<TestReader*>(reader));
        };
        CaptureStderr(); // there may be no topic any more
        const std::string writer = "w" + std::to_string(round);
        reader_of("Keyed", "reliable keep_all transient_local", &listener);
        ASSERT_EQ(ask("writer " + writer + " Square Keyed keep_all transient_local"), "ok");
        ASSERT_EQ(ask("many " + writer + " 1 20"), "0");
        EXPECT_EQ(listener.entered.get_future().wait_for(kPatience), std::future_status::ready);
        EXPECT_EQ(participant().delete_contained_entities(), DDS_RETCODE_OK);
        EXPECT_FALSE(listener.running);
        ASSERT_EQ(ask("delete " + writer), "0");
        GetCapturedStderr();
    }
}

TEST_F(UserReaderTest, SamplesOfABatchAreStoredAndToldAtItsEnd) {
    struct Counter final : DDSDataReaderListener {
        ~Counter() override { detach(); }
        void on_data_available(DDSDataReader*) override { ++calls; }
        std::atomic<int> calls{0};
    } counter;
    TestReader* reader = reader_of("Keyed", "reliable keep_all", &counter);
    auto& sink = dynamic_cast<UserReader&>(*reader->untyped());
    const uint8_t payload[] = {0, 1, 0, 0, 7, 0, 0, 0, 2, 0, 0, 0, 'x', 0};
    rtps::Sample sample;
    sample.writer.entity = rtps::EntityId{0x102};
    sample.has_payload = true;
    sample.payload = {payload, sizeof payload};
    for (int i = 0; i < 3; ++i) {
        ++sample.sequence_number;
        sink.on_sample(sample);
    }
    EXPECT_EQ(take_all(*reader), "");
    EXPECT_EQ(reader->get_status_changes() & DDS_DATA_AVAILABLE_STATUS, 0u);
    sink.on_batch_end();
    EXPECT_EQ(eventually(1, [&] { return counter.calls.load(); }), 1);
    EXPECT_EQ(take_all(*reader), "7 x, 7 x, 7 x");

    // What else happens to a writer comes after its samples.
    ++sample.sequence_number;
    sink.on_sample(sample);
    sink.on_lost(sample.writer, 1);
    EXPECT_EQ(take_all(*reader), "7 x");

    // A large batch does not wait for its end.
    for (int i = 0; i < 1000; ++i) {
        ++sample.sequence_number;
        sink.on_sample(sample);
    }
    EXPECT_NE(take_all(*reader), "");
    counter.detach();
}

} // namespace
} // namespace meridian::dcps::test
