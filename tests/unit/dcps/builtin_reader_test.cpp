#include <cstring>
#include <thread>

#include "discovery/conversions.h"
#include "discovery/samples.h"
#include "factory_fixture.h"
#include "meridian/condition.h"

namespace meridian::dcps::test {
namespace {

using meridian::test::make_participant;
using meridian::test::make_prefix;
using meridian::test::make_reader;
using meridian::test::make_writer;
using meridian::test::record;
using meridian::test::shared;
using rtps::GoneReason;

using PublicationReader = DDSPublicationBuiltinTopicDataDataReader;
using PublicationSeq = DDS_PublicationBuiltinTopicDataSeq;
constexpr rtps::WireTime kTime{1000, 0};

/// The builtin readers of a participant that was not enabled; the test plays the protocol.
class BuiltinReaderTest : public FactoryTest {
  protected:
    void SetUp() override {
        FactoryTest::SetUp();
        participant_ = create();
        ASSERT_NE(participant_, nullptr);
        DDSSubscriber* builtin = participant_->get_builtin_subscriber();
        reader_ = PublicationReader::narrow(builtin->lookup_datareader(DDS_PUBLICATION_TOPIC_NAME));
        subscriptions_ = DDSSubscriptionBuiltinTopicDataDataReader::narrow(
            builtin->lookup_datareader(DDS_SUBSCRIPTION_TOPIC_NAME));
        store().participant_discovered(shared(make_participant(1)));
    }
    discovery::DiscoveryStore& store() { return participant_->store(); }
    void discover(uint32_t key) { store().endpoint_discovered(record(make_writer(1, key), kTime)); }
    void lose(uint32_t key) {
        store().endpoint_gone(record(make_writer(1, key)), GoneReason::disposed, kTime);
    }

    static DDS_ReturnCode_t take(PublicationReader* reader, PublicationSeq& data, DDS_SampleInfoSeq& infos,
                                 DDS_Long max_samples = DDS_LENGTH_UNLIMITED) {
        return reader->take(data, infos, max_samples, DDS_ANY_SAMPLE_STATE, DDS_ANY_VIEW_STATE,
                            DDS_ANY_INSTANCE_STATE);
    }
    DDS_ReturnCode_t take(DDS_Long max_samples = DDS_LENGTH_UNLIMITED) {
        return take(reader_, data_, infos_, max_samples);
    }
    DDS_ReturnCode_t give_back() { return reader_->return_loan(data_, infos_); }

    ParticipantImpl* participant_ = nullptr;
    PublicationReader* reader_ = nullptr;
    DDSSubscriptionBuiltinTopicDataDataReader* subscriptions_ = nullptr;
    PublicationSeq data_;
    DDS_SampleInfoSeq infos_;
};

TEST_F(BuiltinReaderTest, SamplesComeOnLoan) {
    EXPECT_EQ(take(), DDS_RETCODE_NO_DATA);
    discover(1);
    discover(2);
    ASSERT_EQ(take(), DDS_RETCODE_OK);
    ASSERT_EQ(data_.length(), 2);
    ASSERT_EQ(infos_.length(), 2);
    EXPECT_FALSE(data_.has_ownership());
    EXPECT_STREQ(data_[0].topic_name, "Topic1");
    EXPECT_STREQ(data_[1].topic_name, "Topic2");
    EXPECT_TRUE(infos_[0].valid_data);
    EXPECT_EQ(infos_[0].view_state, DDS_NEW_VIEW_STATE);
    EXPECT_EQ(infos_[0].instance_state, DDS_ALIVE_INSTANCE_STATE);
    EXPECT_EQ(infos_[0].source_timestamp.sec, 1000);
    EXPECT_EQ(give_back(), DDS_RETCODE_OK);
    EXPECT_EQ(data_.length(), 0);
    EXPECT_TRUE(data_.has_ownership());
    EXPECT_EQ(take(), DDS_RETCODE_NO_DATA);
    EXPECT_EQ(data_.length(), 0);
}

TEST_F(BuiltinReaderTest, AGoneEndpointIsASampleWithoutData) {
    discover(1);
    take();
    give_back();
    lose(1);
    ASSERT_EQ(take(), DDS_RETCODE_OK);
    ASSERT_EQ(infos_.length(), 1);
    EXPECT_FALSE(infos_[0].valid_data);
    EXPECT_EQ(infos_[0].instance_state, DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE);
    EXPECT_EQ(infos_[0].view_state, DDS_NOT_NEW_VIEW_STATE);
    DDS_PublicationBuiltinTopicData key;
    EXPECT_EQ(reader_->get_key_value(key, infos_[0].instance_handle), DDS_RETCODE_OK);
    EXPECT_EQ(key.key.value[3], 0x102u);
    EXPECT_EQ(std::memcmp(&key.key, &data_[0].key, sizeof key.key), 0);
    give_back();
}

TEST_F(BuiltinReaderTest, KeysAreThoseOfKnownEndpointsOnly) {
    discover(1);
    take();
    DDS_PublicationBuiltinTopicData holder;
    ASSERT_EQ(reader_->get_key_value(holder, infos_[0].instance_handle), DDS_RETCODE_OK);
    EXPECT_EQ(holder.key.value[0], 0x01020304u);
    EXPECT_EQ(holder.key.value[3], 0x102u);
    EXPECT_EQ(reader_->get_key_value(holder, DDS_HANDLE_NIL), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(reader_->get_key_value(holder, discovery::to_handle(make_writer(1, 9).guid)),
              DDS_RETCODE_BAD_PARAMETER);
    give_back();
}

TEST_F(BuiltinReaderTest, TheParticipantOfEverySampleJustTakenIsKnown) {
    EXPECT_EQ(take(), DDS_RETCODE_NO_DATA); // shows interest: else nothing stays of what goes
    DDS_SubscriptionBuiltinTopicDataSeq readers;
    EXPECT_EQ(subscriptions_->take(readers, infos_, DDS_LENGTH_UNLIMITED, DDS_ANY_SAMPLE_STATE,
                                   DDS_ANY_VIEW_STATE, DDS_ANY_INSTANCE_STATE),
              DDS_RETCODE_NO_DATA);
    discover(1);
    discover(2);
    store().endpoint_discovered(record(make_reader(1, 3), kTime));
    for (uint32_t key : {1u, 2u})
        lose(key);
    store().endpoint_gone(record(make_reader(1, 3)), GoneReason::lease_expired, rtps::kTimeInvalid);
    store().participant_gone(shared(make_participant(1)), GoneReason::lease_expired);
    ASSERT_EQ(take(), DDS_RETCODE_OK);
    ASSERT_EQ(infos_.length(), 4);
    DDS_ParticipantBuiltinTopicData participant;
    for (DDS_Long i = 0; i < infos_.length(); ++i) {
        participant = {};
        EXPECT_EQ(reader_->get_matched_publication_participant_data(participant, infos_[i].instance_handle),
                  DDS_RETCODE_OK);
        EXPECT_STREQ(participant.participant_name.name, "participant 1");
        EXPECT_EQ(
            reader_->get_matched_publication_participant_data(participant, infos_[i].publication_handle),
            DDS_RETCODE_OK);
    }
    const DDS_InstanceHandle_t handle = infos_[0].instance_handle;
    PublicationSeq none;
    DDS_SampleInfoSeq no_infos;
    EXPECT_EQ(take(reader_, none, no_infos), DDS_RETCODE_NO_DATA);
    EXPECT_EQ(reader_->get_matched_publication_participant_data(participant, handle), DDS_RETCODE_OK)
        << "on loan";
    give_back();
    take();
    EXPECT_EQ(reader_->get_matched_publication_participant_data(participant, handle),
              DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(reader_->get_matched_publication_participant_data(participant, DDS_HANDLE_NIL),
              DDS_RETCODE_BAD_PARAMETER);

    // The other reader has not taken its samples yet, and knows the participant still.
    ASSERT_EQ(subscriptions_->take(readers, infos_, DDS_LENGTH_UNLIMITED, DDS_ANY_SAMPLE_STATE,
                                   DDS_ANY_VIEW_STATE, DDS_ANY_INSTANCE_STATE),
              DDS_RETCODE_OK);
    ASSERT_EQ(infos_.length(), 2);
    EXPECT_EQ(
        subscriptions_->get_matched_publication_participant_data(participant, infos_[1].instance_handle),
        DDS_RETCODE_OK);
    EXPECT_EQ(subscriptions_->return_loan(readers, infos_), DDS_RETCODE_OK);
}

TEST_F(BuiltinReaderTest, TheLimitLeavesTheRestAndTheStatus) {
    DDSStatusCondition* condition = reader_->get_statuscondition();
    condition->set_enabled_statuses(DDS_DATA_AVAILABLE_STATUS);
    EXPECT_FALSE(condition->get_trigger_value());
    for (uint32_t key = 1; key <= 3; ++key)
        discover(key);
    EXPECT_TRUE(condition->get_trigger_value());
    EXPECT_EQ(reader_->get_status_changes(), DDS_DATA_AVAILABLE_STATUS);
    ASSERT_EQ(take(2), DDS_RETCODE_OK);
    EXPECT_EQ(data_.length(), 2);
    EXPECT_TRUE(condition->get_trigger_value());
    give_back();
    ASSERT_EQ(take(2), DDS_RETCODE_OK);
    EXPECT_EQ(data_.length(), 1);
    EXPECT_FALSE(condition->get_trigger_value());
    give_back();
    EXPECT_FALSE(subscriptions_->get_statuscondition()->get_trigger_value());
}

TEST_F(BuiltinReaderTest, MisusedSequencesAreRefusedAndLoseNothing) {
    discover(1);
    EXPECT_EQ(take(0), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(take(-2), DDS_RETCODE_BAD_PARAMETER);
    infos_.maximum(4);
    EXPECT_EQ(take(), DDS_RETCODE_PRECONDITION_NOT_MET);
    data_.maximum(4);
    EXPECT_EQ(take(), DDS_RETCODE_PRECONDITION_NOT_MET) << "it lends only";
    infos_.maximum(0);
    data_.maximum(0);
    EXPECT_EQ(reader_->take(data_, infos_, DDS_LENGTH_UNLIMITED, DDS_READ_SAMPLE_STATE, DDS_ANY_VIEW_STATE,
                            DDS_ANY_INSTANCE_STATE),
              DDS_RETCODE_UNSUPPORTED);
    ASSERT_EQ(take(), DDS_RETCODE_OK);
    EXPECT_EQ(take(), DDS_RETCODE_PRECONDITION_NOT_MET) << "still on loan";
    PublicationSeq other;
    EXPECT_EQ(reader_->return_loan(other, infos_), DDS_RETCODE_PRECONDITION_NOT_MET);

    ParticipantImpl* elsewhere = create();
    auto* other_reader = PublicationReader::narrow(
        elsewhere->get_builtin_subscriber()->lookup_datareader(DDS_PUBLICATION_TOPIC_NAME));
    EXPECT_EQ(other_reader->return_loan(data_, infos_), DDS_RETCODE_PRECONDITION_NOT_MET);
    EXPECT_EQ(give_back(), DDS_RETCODE_OK);
    EXPECT_EQ(give_back(), DDS_RETCODE_OK); // nothing is on loan
}

TEST_F(BuiltinReaderTest, LoansStayReadableUntilTheParticipantIsDeleted) {
    discover(1);
    ASSERT_EQ(take(), DDS_RETCODE_OK);
    lose(1);
    store().participant_gone(shared(make_participant(1)), GoneReason::disposed);
    EXPECT_EQ(participant_->delete_contained_entities(), DDS_RETCODE_OK);
    EXPECT_STREQ(data_[0].topic_name, "Topic1");
    EXPECT_EQ(factory()->delete_participant(participant_), DDS_RETCODE_OK); // the leak checker sees the rest
    data_.unloan();
    infos_.unloan();
}

TEST_F(BuiltinReaderTest, HasNoOtherQos) {
    DDS_DataReaderQos qos;
    EXPECT_EQ(reader_->get_qos(qos), DDS_RETCODE_OK);
    EXPECT_EQ(qos.durability.kind, DDS_TRANSIENT_LOCAL_DURABILITY_QOS);
    EXPECT_EQ(reader_->set_qos(qos), DDS_RETCODE_IMMUTABLE_POLICY);
    EXPECT_EQ(reader_->get_subscriber(), participant_->get_builtin_subscriber());
    EXPECT_STREQ(reader_->get_topicdescription()->get_name(), DDS_PUBLICATION_TOPIC_NAME);
    EXPECT_EQ(reader_->get_instance_handle().keyHash[15], 0xc7);
    EXPECT_EQ(reader_->get_statuscondition()->get_entity(), reader_);
}

TEST_F(BuiltinReaderTest, AWaitSetWakesForEveryDiscoveryWhileSamplesAreTaken) {
    constexpr uint32_t kCount = 500;
    DDSWaitSet wait_set;
    reader_->get_statuscondition()->set_enabled_statuses(DDS_DATA_AVAILABLE_STATUS);
    wait_set.attach_condition(reader_->get_statuscondition());
    std::thread protocol([this] {
        for (uint32_t key = 1; key <= kCount; ++key) {
            discover(key);
            if (key % 2 == 0)
                lose(key);
        }
    });
    uint32_t appeared = 0;
    uint32_t gone = 0;
    DDSConditionSeq active;
    while (appeared < kCount || gone < kCount / 2) {
        ASSERT_EQ(wait_set.wait(active, {20, 0}), DDS_RETCODE_OK) << appeared << " " << gone;
        ASSERT_EQ(active.length(), 1);
        const DDS_ReturnCode_t result = take();
        if (result == DDS_RETCODE_NO_DATA)
            continue;
        ASSERT_EQ(result, DDS_RETCODE_OK);
        for (DDS_Long i = 0; i < infos_.length(); ++i) {
            ++(infos_[i].valid_data ? appeared : gone);
            DDS_ParticipantBuiltinTopicData participant;
            EXPECT_EQ(
                reader_->get_matched_publication_participant_data(participant, infos_[i].instance_handle),
                DDS_RETCODE_OK);
        }
        ASSERT_EQ(give_back(), DDS_RETCODE_OK);
    }
    EXPECT_EQ(appeared, kCount);
    EXPECT_EQ(gone, kCount / 2);
    protocol.join();
}

TEST_F(BuiltinReaderTest, AParticipantDeletedWithAnAttachedConditionLeavesTheWaitSetUsable) {
    DDSWaitSet wait_set;
    DDSCondition* condition = reader_->get_statuscondition();
    wait_set.attach_condition(condition);
    discover(1);
    EXPECT_EQ(factory()->delete_participant(participant_), DDS_RETCODE_OK);
    DDSConditionSeq active;
    EXPECT_EQ(wait_set.wait(active, {0, 0}), DDS_RETCODE_TIMEOUT);
    EXPECT_EQ(wait_set.detach_condition(condition), DDS_RETCODE_PRECONDITION_NOT_MET);
}

} // namespace
} // namespace meridian::dcps::test
