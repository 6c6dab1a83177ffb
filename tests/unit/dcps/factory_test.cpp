#include <cstdlib>
#include <cstring>

#include <unistd.h>

#include "factory_fixture.h"
#include "support/logger_guard.h"

namespace meridian::dcps::test {
namespace {

using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

TEST_F(FactoryTest, ThereIsOneUntilItIsFinalised) {
    DDSDomainParticipantFactory* first = factory();
    EXPECT_EQ(first, factory());
    ASSERT_EQ(load(kProfiles), DDS_RETCODE_OK);
    EXPECT_EQ(DDSDomainParticipantFactory::finalize_instance(), DDS_RETCODE_OK);
    EXPECT_EQ(DDSDomainParticipantFactory::finalize_instance(), DDS_RETCODE_OK);
    DDS_StringSeq libraries;
    EXPECT_EQ(factory()->get_qos_profile_libraries(libraries), DDS_RETCODE_OK);
    EXPECT_EQ(libraries.length(), 0);
    DDS_DomainParticipantFactoryQos qos;
    EXPECT_EQ(factory()->get_qos(qos), DDS_RETCODE_OK);
    EXPECT_TRUE(qos.entity_factory.autoenable_created_entities);
}

TEST_F(FactoryTest, FinalisingDeletesWhatIsLeft) {
    ParticipantImpl* participant = create();
    ASSERT_NE(participant, nullptr);
    ASSERT_NE(participant->create_subscriber({}, nullptr, DDS_STATUS_MASK_NONE), nullptr);
    EXPECT_EQ(DDSDomainParticipantFactory::finalize_instance(),
              DDS_RETCODE_OK); // the leak checker sees the rest
}

TEST_F(FactoryTest, ListsLibrariesAndProfiles) {
    ASSERT_EQ(load(kProfiles), DDS_RETCODE_OK);
    DDS_StringSeq names;
    ASSERT_EQ(factory()->get_qos_profile_libraries(names), DDS_RETCODE_OK);
    ASSERT_EQ(names.length(), 2);
    EXPECT_STREQ(names[0], "Lib");
    EXPECT_STREQ(names[1], "Other");
    ASSERT_EQ(factory()->get_qos_profiles(names, "Lib"), DDS_RETCODE_OK);
    ASSERT_EQ(names.length(), 2);
    EXPECT_STREQ(names[0], "First");
    EXPECT_STREQ(names[1], "Second");
    EXPECT_EQ(factory()->get_qos_profiles(names, "None"), DDS_RETCODE_OK);
    EXPECT_EQ(names.length(), 0);
    EXPECT_EQ(factory()->get_qos_profiles(names, nullptr), DDS_RETCODE_BAD_PARAMETER);
}

TEST_F(FactoryTest, ParticipantQosComesFromAProfile) {
    ASSERT_EQ(load(kProfiles), DDS_RETCODE_OK);
    DDS_DomainParticipantQos qos;
    ASSERT_EQ(factory()->get_participant_qos_from_profile(qos, "Lib", "First"), DDS_RETCODE_OK);
    EXPECT_STREQ(qos.participant_name.name, "named");
    ASSERT_EQ(qos.partition.name.length(), 1);
    EXPECT_STREQ(qos.partition.name[0], "A");
    CaptureStderr();
    EXPECT_EQ(factory()->get_participant_qos_from_profile(qos, "Lib", "None"), DDS_RETCODE_ERROR);
    EXPECT_EQ(factory()->get_participant_qos_from_profile(qos, "None", "First"), DDS_RETCODE_ERROR);
    EXPECT_NE(GetCapturedStderr().find("None"), std::string::npos);
    EXPECT_EQ(factory()->get_participant_qos_from_profile(qos, nullptr, "First"), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(factory()->get_participant_qos_from_profile(qos, "Lib", nullptr), DDS_RETCODE_BAD_PARAMETER);
}

TEST_F(FactoryTest, ADocumentThatCannotBeUsedChangesNothing) {
    ASSERT_EQ(load(kProfiles), DDS_RETCODE_OK);
    CaptureStderr();
    EXPECT_EQ(load("<dds><qos_library"), DDS_RETCODE_ERROR);
    EXPECT_FALSE(GetCapturedStderr().empty());
    DDS_DomainParticipantFactoryQos qos;
    factory()->get_qos(qos);
    ASSERT_EQ(qos.profile.string_profile.length(), 1);
    EXPECT_STREQ(qos.profile.string_profile[0], kProfiles);
    DDS_StringSeq names;
    factory()->get_qos_profile_libraries(names);
    EXPECT_EQ(names.length(), 2);
}

TEST_F(FactoryTest, AFileThatIsGoneIsNotNeededAgain) {
    char path[] = "/tmp/ferret-factory-XXXXXX";
    const int descriptor = mkstemp(path);
    ASSERT_GE(descriptor, 0);
    ASSERT_GT(write(descriptor, kProfiles, std::strlen(kProfiles)), 0);
    close(descriptor);
    DDS_DomainParticipantFactoryQos qos;
    const char* const file = path;
    DDS_StringSeq_from_array(qos.profile.url_profile, &file, 1);
    EXPECT_EQ(factory()->set_qos(qos), DDS_RETCODE_OK);
    ASSERT_EQ(unlink(path), 0);

    qos.entity_factory.autoenable_created_entities = true;
    EXPECT_EQ(factory()->set_qos(qos), DDS_RETCODE_OK);
    DDS_StringSeq names;
    factory()->get_qos_profile_libraries(names);
    EXPECT_EQ(names.length(), 2);
    DDS_DomainParticipantFactoryQos kept;
    factory()->get_qos(kept);
    EXPECT_TRUE(kept.entity_factory.autoenable_created_entities);

    CaptureStderr();
    DDS_StringSeq_from_array(qos.profile.string_profile, &kProfiles, 1);
    EXPECT_EQ(factory()->set_qos(qos), DDS_RETCODE_ERROR); // other sources: everything is read anew
    EXPECT_NE(GetCapturedStderr().find(path), std::string::npos);
}

TEST_F(FactoryTest, CreatedParticipantsAreNotEnabledUnlessAsked) {
    ParticipantImpl* participant = create();
    ASSERT_NE(participant, nullptr);
    EXPECT_FALSE(participant->is_enabled());
    EXPECT_EQ(factory()->delete_participant(participant), DDS_RETCODE_OK);
    EXPECT_EQ(factory()->delete_participant(participant), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(factory()->delete_participant(nullptr), DDS_RETCODE_BAD_PARAMETER);

    DDS_DomainParticipantFactoryQos qos;
    qos.entity_factory.autoenable_created_entities = true;
    ASSERT_EQ(factory()->set_qos(qos), DDS_RETCODE_OK);
    participant = create();
    ASSERT_NE(participant, nullptr);
    EXPECT_TRUE(participant->is_enabled());
}

TEST_F(FactoryTest, EachParticipantHasAGuidOfItsOwn) {
    ParticipantImpl* first = create();
    ParticipantImpl* second = create();
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first->guid().prefix, second->guid().prefix);
    EXPECT_EQ(first->guid().entity, rtps::entity::participant);
    const DDS_InstanceHandle_t handle = first->get_instance_handle();
    EXPECT_TRUE(handle.isValid);
    EXPECT_EQ(std::memcmp(handle.keyHash, first->guid().prefix.bytes.data(), 12), 0);
    EXPECT_EQ(handle.keyHash[15], 0xc1);
}

TEST_F(FactoryTest, TheApplicationIdIsTheSecondWordOfTheGuid) {
    DDS_DomainParticipantQos qos;
    qos.wire_protocol.rtps_app_id = 0x01020304;
    ParticipantImpl* first = create(qos);
    ParticipantImpl* second = create(qos);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    const uint8_t expected[] = {1, 2, 3, 4};
    EXPECT_EQ(std::memcmp(first->guid().prefix.bytes.data() + 4, expected, 4), 0);
    EXPECT_EQ(std::memcmp(second->guid().prefix.bytes.data() + 4, expected, 4), 0);
    EXPECT_NE(first->guid().prefix, second->guid().prefix);
}

TEST_F(FactoryTest, TwoLivingParticipantsCannotHaveOneGuid) {
    DDS_DomainParticipantQos qos;
    qos.wire_protocol.rtps_host_id = 1;
    qos.wire_protocol.rtps_app_id = 2;
    qos.wire_protocol.rtps_instance_id = 3;
    ParticipantImpl* first = create(qos);
    ASSERT_NE(first, nullptr);
    EXPECT_NE(reason_of_refusal(qos).find("GUID"), std::string::npos);
    ASSERT_EQ(factory()->delete_participant(first), DDS_RETCODE_OK);
    EXPECT_NE(create(qos), nullptr);
}

TEST_F(FactoryTest, WhatCannotBeUsedIsRefusedWithAReason) {
    DDS_DomainParticipantQos qos;
    qos.discovery_config.builtin_discovery_plugins = DDS_DISCOVERYCONFIG_BUILTIN_SDP2;
    EXPECT_NE(reason_of_refusal(qos).find("not offered"), std::string::npos);
    qos.discovery_config.builtin_discovery_plugins = 4;
    EXPECT_NE(reason_of_refusal(qos).find("4"), std::string::npos);

    EXPECT_NE(reason_of_refusal({}, -1).find("domain"), std::string::npos);
    EXPECT_NE(reason_of_refusal({}, 233).find("domain"), std::string::npos);
    EXPECT_NE(create({}, 232), nullptr);

    qos = {};
    DDS_StringSeq_append(qos.discovery.initial_peers, "udpv9://nowhere");
    EXPECT_NE(reason_of_refusal(qos).find("udpv9://nowhere"), std::string::npos);

    qos = {};
    qos.transport_builtin.mask = 0;
    EXPECT_FALSE(reason_of_refusal(qos).empty());

    qos = {};
    qos.wire_protocol.participant_id = 5000;
    EXPECT_FALSE(reason_of_refusal(qos).empty());

    qos = {};
    DDS_PropertyQosPolicyHelper_add_property(
        qos.property, "dds.transport.UDPv4.builtin.ignore_loopback_interface", "maybe", false);
    EXPECT_NE(reason_of_refusal(qos).find("ignore_loopback_interface"), std::string::npos);

    int anything = 0;
    auto* listener = reinterpret_cast<DDSDomainParticipantListener*>(&anything);
    CaptureStderr();
    EXPECT_EQ(factory()->create_participant(0, {}, listener, DDS_STATUS_MASK_NONE), nullptr);
    EXPECT_NE(GetCapturedStderr().find("listener"), std::string::npos);
}

TEST_F(FactoryTest, PropertiesWithoutEffectAreToldOf) {
    const LoggerGuard guard(QUIX_LOG_WARNING | QUIX_LOG_ERROR);
    DDS_DomainParticipantQos qos;
    DDS_PropertyQosPolicyHelper_add_property(qos.property, "dds.transport.made_up", "1", false);
    DDS_PropertyQosPolicyHelper_add_property(qos.property, "dds.builtin_type.auto_register", "0", false);
    for (const char* const idle : {"dds.transport.use_510_compatible_locator_kinds",
                                   "dds.data_writer.protocol.use_43_large_data_format",
                                   "dds.data_reader.protocol.use_43_large_data_format"})
        DDS_PropertyQosPolicyHelper_add_property(qos.property, idle, "1", false);
    DDS_PropertyQosPolicyHelper_add_property(
        qos.property, " dds.transport.UDPv4.builtin.ignore_loopback_interface ", " 0 ", false);
    CaptureStderr();
    EXPECT_NE(create(qos), nullptr);
    const std::string logged = GetCapturedStderr();
    EXPECT_NE(logged.find("dds.transport.made_up"), std::string::npos) << logged;
    for (const char* const idle : {"transport.use_510_compatible_locator_kinds\" has no effect",
                                   "data_writer.protocol.use_43_large_data_format\" has no effect",
                                   "data_reader.protocol.use_43_large_data_format\" has no effect"})
        EXPECT_NE(logged.find(idle), std::string::npos) << logged;
    EXPECT_EQ(logged.find("ignore_loopback"), std::string::npos) << logged;
    EXPECT_EQ(logged.find("auto_register"), std::string::npos) << logged;
}

} // namespace
} // namespace meridian::dcps::test
