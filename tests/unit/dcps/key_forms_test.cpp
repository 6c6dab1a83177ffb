// Disposes that carry nothing but a hash, of writers whose samples carry none.

#include <map>

#include "dcps/reader/user_reader.h"
#include "factory_fixture.h"
#include "meridian/dynamic_data_type_support.h"
#include "support/type_documents.h"
#include "types/data/dynamic_sample.h"

namespace meridian::dcps::test {
namespace {

class KeyFormsTest : public FactoryTest {
  protected:
    /// How many instances a reader of the last type of a document has after a sample, and a dispose by
    /// `hash`.
    size_t instances(const std::string& members, const rtps::ByteBuffer& payload, const rtps::KeyHash& hash) {
        types::TypeDocuments documents;
        std::string error;
        EXPECT_TRUE(documents.load(
            "doc", "<types><struct name='T' extensibility='final'>" + members + "</struct></types>", error))
            << error;
        const types::TypeRef type = documents.find("T");
        DDSDynamicDataTypeSupport support(type.get(), DDS_DYNAMIC_DATA_TYPE_PROPERTY_DEFAULT);
        ParticipantImpl* participant = create();
        EXPECT_EQ(participant->enable(), DDS_RETCODE_OK);
        EXPECT_EQ(support.register_type(participant, "T"), DDS_RETCODE_OK);
        DDSTopic* topic = participant->create_topic("T", "T", {}, nullptr, DDS_STATUS_MASK_NONE);
        DDSSubscriber* subscriber = participant->create_subscriber({}, nullptr, DDS_STATUS_MASK_NONE);
        DDS_DataReaderQos qos;
        qos.history.kind = DDS_KEEP_ALL_HISTORY_QOS;
        auto* reader = DDSDynamicDataReader::narrow(
            subscriber->create_datareader(topic, qos, nullptr, DDS_STATUS_MASK_NONE));
        auto* sink = dynamic_cast<UserReader*>(reader->untyped());
        rtps::Sample sample;
        sample.writer = {rtps::GuidPrefix{{1, 2, 3}}, rtps::EntityId{0x102}};
        sample.vendor = rtps::VendorId{{1, 15}};
        sample.sequence_number = 1;
        sample.has_payload = true;
        sample.payload = payload;
        sink->on_sample(sample);
        sample.sequence_number = 2;
        sample.has_payload = false;
        sample.payload = {};
        sample.inline_qos.status_info = 1;
        sample.inline_qos.key_hash = hash;
        sink->on_sample(sample);
        sink->on_batch_end();
        DDS_DynamicDataSeq samples;
        DDS_SampleInfoSeq infos;
        EXPECT_EQ(reader->take(samples, infos, DDS_LENGTH_UNLIMITED, DDS_ANY_SAMPLE_STATE, DDS_ANY_VIEW_STATE,
                               DDS_ANY_INSTANCE_STATE),
                  DDS_RETCODE_OK);
        std::map<std::string, int> handles;
        for (DDS_Long i = 0; i < infos.length(); ++i)
            ++handles[std::string(std::begin(infos[i].instance_handle.keyHash),
                                  std::end(infos[i].instance_handle.keyHash))];
        EXPECT_EQ(infos.length(), 2);
        EXPECT_TRUE(infos[0].valid_data);
        EXPECT_EQ(samples[0].impl().source().writer, sample.writer);
        EXPECT_EQ(samples[0].impl().source().vendor, sample.vendor);
        disposed_ = infos[infos.length() - 1].instance_state == DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE;
        EXPECT_EQ(reader->return_loan(samples, infos), DDS_RETCODE_OK);
        EXPECT_EQ(participant->delete_contained_entities(), DDS_RETCODE_OK);
        EXPECT_EQ(factory()->delete_participant(participant), DDS_RETCODE_OK);
        return handles.size();
    }
    bool disposed_ = false;
};

const rtps::ByteBuffer kPayload{0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0}; // XCDR1

TEST_F(KeyFormsTest, ADisposeByTheHashOfTheOtherFormMeansTheInstance) {
    const std::string members =
        "<member name='a' type='int32' key='true'/><member name='b' type='int64' key='true'/>";
    const rtps::KeyHash xcdr1{0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2};
    const rtps::KeyHash xcdr2{0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 2};
    const rtps::KeyHash other{0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 3};
    EXPECT_EQ(instances(members, kPayload, xcdr1), 1u);
    EXPECT_TRUE(disposed_);
    EXPECT_EQ(instances(members, kPayload, xcdr2), 1u);
    EXPECT_TRUE(disposed_);
    EXPECT_EQ(instances(members, kPayload, other), 2u) << "that of another instance";
}

TEST_F(KeyFormsTest, AShortKeyMayStandAsItIs) {
    const rtps::ByteBuffer payload{0, 1, 0, 0, 2, 0, 0, 0, 'x', 0};
    EXPECT_EQ(instances("<member name='a' type='string' key='true'/>", payload, {0, 0, 0, 2, 'x'}), 1u);
    EXPECT_TRUE(disposed_);
}

TEST_F(KeyFormsTest, WhereAllHashAlikeNothingIsKept) {
    types::TypeDocuments documents;
    std::string error;
    ASSERT_TRUE(
        documents.load("doc",
                       "<types><struct name='A'><member name='a' type='int32' key='true'/></struct>"
                       "<struct name='B'><member name='a' type='int64'/></struct>"
                       "<struct name='C'><member name='a' type='string' key='true'/></struct></types>",
                       error));
    EXPECT_EQ(KeyForms::of(documents.find("A").get()), nullptr);
    EXPECT_EQ(KeyForms::of(documents.find("B").get()), nullptr);
    EXPECT_NE(KeyForms::of(documents.find("C").get()), nullptr);
    EXPECT_EQ(KeyForms::of(nullptr), nullptr);
}

} // namespace
} // namespace meridian::dcps::test
