// Which plugin handles which type name, and the topics that stand on it.

#include "dcps/topics/type_registry.h"

#include <future>
#include <thread>

#include "factory_fixture.h"
#include "support/logger_guard.h"
#include "support/type_documents.h"
#include "test_type.h"

namespace meridian::dcps::test {
namespace {

using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

/// The logged reason of a refusal with that code.
template <typename Call>
std::string reason_of(DDS_ReturnCode_t expected, Call call) {
    CaptureStderr();
    EXPECT_EQ(call(), expected);
    return GetCapturedStderr();
}

TEST(TypeRegistryTest, ATypeIsAttachedWhileItIsRegistered) {
    const PRESTypePlugin plugin = test_plugin(true);
    TypeRegistry types;
    auto* support = new TestTypeSupport;
    ASSERT_EQ(types.register_type("T", &plugin, support), DDS_RETCODE_OK);
    EXPECT_EQ(counters().participants, 1);
    {
        const TypeRegistry::Type type = types.find("T");
        ASSERT_NE(type, nullptr);
        EXPECT_EQ(type->type_support(), support);
        EXPECT_TRUE(type->is_keyed());
        EXPECT_NE(type->participant_data(), nullptr);
        EXPECT_EQ(types.find("U"), nullptr);
        EXPECT_EQ(types.unregister_type("T"), DDS_RETCODE_PRECONDITION_NOT_MET); // in use
    }
    EXPECT_EQ(types.unregister_type("T"), DDS_RETCODE_OK);
    EXPECT_EQ(types.find("T"), nullptr);
    EXPECT_EQ(types.unregister_type("T"), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(types.unregister_type(nullptr), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(counters().participants, 0);
    EXPECT_EQ(counters().supports, 0);
}

TEST(TypeRegistryTest, TheSamePluginMayComeAgainAnotherMayNot) {
    const PRESTypePlugin plugin = test_plugin(true);
    PRESTypePlugin other = plugin;
    other.getKeyKind = [] { return PRES_TYPEPLUGIN_NO_KEY; };
    TypeRegistry types;
    ASSERT_EQ(types.register_type("T", &plugin, nullptr), DDS_RETCODE_OK);
    EXPECT_EQ(types.register_type("T", &plugin, nullptr), DDS_RETCODE_OK);
    TestTypeSupport stays_ours;
    const LoggerGuard guard(QUIX_LOG_ERROR | QUIX_LOG_WARNING);
    EXPECT_NE(reason_of(DDS_RETCODE_PRECONDITION_NOT_MET,
                        [&] { return types.register_type("T", &other, &stays_ours); })
                  .find("\"T\" is registered with another plugin"),
              std::string::npos);
    EXPECT_TRUE(types.find("T")->is_keyed());
    EXPECT_EQ(counters().participants, 1);
}

TEST(TypeRegistryTest, EqualTypeCodesAreOneTypeAndNoneIsWhatIsKnown) {
    const auto made = [](const char* member) {
        types::TypeDocuments documents;
        std::string error;
        EXPECT_TRUE(documents.load("types",
                                   std::string("<dds><types><struct name=\"A\"><member name=\"") + member +
                                       "\" type=\"int32\"/></struct></types></dds>",
                                   error))
            << error;
        return documents.find("A");
    };
    const types::TypeRef first = made("x");
    const types::TypeRef equal = made("x");
    const types::TypeRef other = made("y");
    ASSERT_NE(first.get(), equal.get());
    PRESTypePlugin plugin = test_plugin(true);
    TypeRegistry types;
    plugin.typeCode = first.get();
    ASSERT_EQ(types.register_type("T", &plugin, nullptr), DDS_RETCODE_OK);
    plugin.typeCode = equal.get();
    EXPECT_EQ(types.register_type("T", &plugin, nullptr), DDS_RETCODE_OK);
    plugin.typeCode = nullptr;
    EXPECT_EQ(types.register_type("T", &plugin, nullptr), DDS_RETCODE_OK);
    EXPECT_EQ(types.find("T")->plugin().typeCode, first.get()) << "the first stays in use";
    plugin.typeCode = other.get();
    EXPECT_EQ(types.register_type("T", &plugin, nullptr), DDS_RETCODE_PRECONDITION_NOT_MET);
}

TEST(TypeRegistryTest, APluginThatKnowsTheTypeReplacesOneThatKnowsItsNameOnly) {
    types::TypeDocuments documents;
    std::string error;
    ASSERT_TRUE(documents.load(
        "types", "<dds><types><struct name=\"A\"><member name=\"x\" type=\"int32\"/></struct></types></dds>",
        error))
        << error;
    const types::TypeRef type = documents.find("A");
    PRESTypePlugin plugin = test_plugin(true);
    TypeRegistry types;
    ASSERT_EQ(types.register_type("T", &plugin, nullptr), DDS_RETCODE_OK);
    {
        const TypeRegistry::Type in_use = types.find("T");
        plugin.typeCode = type.get();
        EXPECT_EQ(types.register_type("T", &plugin, nullptr), DDS_RETCODE_OK);
        EXPECT_EQ(types.find("T")->plugin().typeCode, type.get());
        EXPECT_EQ(in_use->plugin().typeCode, nullptr) << "topics that exist keep theirs";
        EXPECT_EQ(counters().participants, 2);
    }
    EXPECT_EQ(counters().participants, 1);
}

TEST(TypeRegistryTest, UnusablePluginsAreRefusedByName) {
    const PRESTypePlugin good = test_plugin(true);
    TypeRegistry types;
    const auto refused = [&types](DDS_ReturnCode_t code, const char* name, const PRESTypePlugin* plugin) {
        TestTypeSupport stays_ours;
        return reason_of(code, [&] { return types.register_type(name, plugin, &stays_ours); });
    };
    EXPECT_NE(refused(DDS_RETCODE_BAD_PARAMETER, nullptr, &good).find("type_name"), std::string::npos);
    EXPECT_NE(refused(DDS_RETCODE_BAD_PARAMETER, "", &good).find("type_name"), std::string::npos);
    EXPECT_NE(refused(DDS_RETCODE_BAD_PARAMETER, "T", nullptr).find("plugin"), std::string::npos);
    using Spoil = void (*)(PRESTypePlugin&);
    for (const Spoil spoil : {Spoil([](PRESTypePlugin& plugin) { plugin.deserialize = nullptr; }),
                              Spoil([](PRESTypePlugin& plugin) { plugin.getSample = nullptr; }),
                              Spoil([](PRESTypePlugin& plugin) { plugin.returnSample = nullptr; }),
                              Spoil([](PRESTypePlugin& plugin) { plugin.onEndpointAttached = nullptr; }),
                              Spoil([](PRESTypePlugin& plugin) { plugin.onEndpointDetached = nullptr; }),
                              Spoil([](PRESTypePlugin& plugin) { ++plugin.version.major; }),
                              Spoil([](PRESTypePlugin& plugin) { ++plugin.version.revision; }),
                              Spoil([](PRESTypePlugin& plugin) { ++plugin.languageConstant; })}) {
        PRESTypePlugin bad = good;
        spoil(bad);
        EXPECT_NE(refused(DDS_RETCODE_BAD_PARAMETER, "T", &bad).find("plugin"), std::string::npos);
    }
    PRESTypePlugin unwilling = good;
    unwilling.onParticipantAttached = [](void*, const DDS_TypeCode*) -> PRESTypePluginParticipantData {
        return nullptr;
    };
    EXPECT_NE(refused(DDS_RETCODE_ERROR, "T", &unwilling).find("on_participant_attached"), std::string::npos);
    EXPECT_EQ(types.find("T"), nullptr);
    EXPECT_EQ(counters().supports, 0);
    EXPECT_EQ(counters().participants, 0);
}

TEST(TypeRegistryTest, TheLockNestsAndKeepsOthersOut) {
    const PRESTypePlugin plugin = test_plugin(false);
    TypeRegistry types;
    EXPECT_EQ(types.unlock(), DDS_RETCODE_PRECONDITION_NOT_MET);
    EXPECT_EQ(types.lock(), DDS_RETCODE_OK);
    EXPECT_EQ(types.lock(), DDS_RETCODE_OK);
    EXPECT_EQ(types.register_type("Mine", &plugin, nullptr), DDS_RETCODE_OK);
    std::promise<DDS_ReturnCode_t> unlocked;
    std::promise<void> registered;
    std::future<void> done = registered.get_future();
    std::thread other([&] {
        unlocked.set_value(types.unlock());
        EXPECT_EQ(types.register_type("Theirs", &plugin, nullptr), DDS_RETCODE_OK);
        registered.set_value();
    });
    EXPECT_EQ(unlocked.get_future().get(), DDS_RETCODE_PRECONDITION_NOT_MET);
    EXPECT_EQ(done.wait_for(std::chrono::milliseconds(30)), std::future_status::timeout);
    EXPECT_EQ(types.unlock(), DDS_RETCODE_OK);
    EXPECT_EQ(done.wait_for(std::chrono::milliseconds(30)), std::future_status::timeout);
    EXPECT_EQ(types.unlock(), DDS_RETCODE_OK);
    other.join();
    EXPECT_EQ(types.unlock(), DDS_RETCODE_PRECONDITION_NOT_MET);
    EXPECT_NE(types.find("Theirs"), nullptr);
}

class TopicTest : public FactoryTest {
  protected:
    void SetUp() override {
        FactoryTest::SetUp();
        participant_ = create();
        ASSERT_TRUE(register_test_types(*participant_));
    }
    DDSTopic* create_topic(const char* name, const char* type, const DDS_TopicQos& qos = {}) {
        return participant_->create_topic(name, type, qos, nullptr, DDS_STATUS_MASK_NONE);
    }
    std::string refused(const char* name, const char* type, const DDS_TopicQos& qos = {}) {
        CaptureStderr();
        EXPECT_EQ(create_topic(name, type, qos), nullptr);
        return GetCapturedStderr();
    }
    ParticipantImpl* participant_ = nullptr;
};

TEST_F(TopicTest, ATopicIsFoundByItsNameUntilItIsDeleted) {
    EXPECT_EQ(participant_->lookup_topicdescription("Square"), nullptr);
    DDSTopic* topic = create_topic("Square", "Keyed");
    ASSERT_NE(topic, nullptr);
    EXPECT_EQ(participant_->lookup_topicdescription("Square"), topic);
    EXPECT_EQ(participant_->lookup_topicdescription("Squar"), nullptr);
    EXPECT_EQ(participant_->lookup_topicdescription(nullptr), nullptr);
    EXPECT_EQ(DDSTopic::narrow(participant_->lookup_topicdescription("Square")), topic);
    EXPECT_STREQ(topic->get_name(), "Square");
    EXPECT_STREQ(topic->get_type_name(), "Keyed");
    EXPECT_EQ(topic->get_participant(), participant_);
    EXPECT_EQ(participant_->unregister_type("Keyed"), DDS_RETCODE_PRECONDITION_NOT_MET);
    EXPECT_EQ(participant_->delete_topic(topic), DDS_RETCODE_OK);
    EXPECT_EQ(participant_->delete_topic(topic), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(participant_->delete_topic(nullptr), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(participant_->lookup_topicdescription("Square"), nullptr);
    EXPECT_EQ(participant_->unregister_type("Keyed"), DDS_RETCODE_OK);
}

TEST_F(TopicTest, TopicsThatCannotBeAreRefusedByName) {
    ASSERT_NE(create_topic("Square", "Keyed"), nullptr);
    EXPECT_NE(refused("Square", "Keyed").find("\"Square\" exists already"), std::string::npos);
    EXPECT_NE(refused("Square", "Keyless").find("\"Square\" exists already"), std::string::npos);
    EXPECT_NE(refused("Circle", "Unknown").find("\"Unknown\" is not registered"), std::string::npos);
    EXPECT_NE(refused("Circle", nullptr).find("is not registered"), std::string::npos);
    EXPECT_NE(refused("", "Keyed").find("topic_name"), std::string::npos);
    EXPECT_NE(refused(nullptr, "Keyed").find("topic_name"), std::string::npos);
    DDS_TopicQos wrong;
    wrong.history.depth = 0;
    EXPECT_NE(refused("Circle", "Keyed", wrong).find("depth"), std::string::npos);
    EXPECT_EQ(participant_->lookup_topicdescription("Circle"), nullptr);
    CaptureStderr();
    auto* listener = reinterpret_cast<DDSTopicListener*>(participant_);
    EXPECT_EQ(participant_->create_topic("Circle", "Keyed", {}, listener, 0), nullptr);
    EXPECT_NE(GetCapturedStderr().find("listener"), std::string::npos);
}

TEST_F(TopicTest, OfManyThreadsOneMakesTheTopic) {
    std::atomic<int> made{0};
    CaptureStderr();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int round = 0; round < 50; ++round) {
                if (create_topic(("T" + std::to_string(round)).c_str(), "Keyed") != nullptr)
                    ++made;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    GetCapturedStderr();
    EXPECT_EQ(made, 50);
}

TEST_F(TopicTest, TypesOfOneParticipantAreNotThoseOfAnother) {
    ParticipantImpl* other = create();
    EXPECT_TRUE(participant_->is_type_registered("Keyed"));
    EXPECT_FALSE(other->is_type_registered("Keyed"));
    EXPECT_FALSE(participant_->is_type_registered(nullptr));
    EXPECT_EQ(participant_->get_typecode("Keyed"), nullptr);
    EXPECT_EQ(participant_->get_typecode(nullptr), nullptr);
    DDSTopic* topic = create_topic("Square", "Keyed");
    CaptureStderr();
    DDSSubscriber* subscriber = other->create_subscriber({}, nullptr, DDS_STATUS_MASK_NONE);
    EXPECT_EQ(subscriber->create_datareader(topic, {}, nullptr, 0), nullptr);
    EXPECT_NE(GetCapturedStderr().find("topic"), std::string::npos);
    EXPECT_EQ(other->delete_topic(topic), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(participant_->lock(), DDS_RETCODE_OK);
    EXPECT_EQ(other->unlock(), DDS_RETCODE_PRECONDITION_NOT_MET);
    EXPECT_EQ(participant_->unlock(), DDS_RETCODE_OK);
}

} // namespace
} // namespace meridian::dcps::test
