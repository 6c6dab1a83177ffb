#pragma once

#include <gtest/gtest.h>

#include <string>

#include "dcps/entities/participant.h"
#include "meridian/domain_participant_factory.h"

namespace meridian::dcps::test {

/// What the tests of profiles load.
constexpr const char* kProfiles =
    "<dds><qos_library name=\"Lib\">"
    "<qos_profile name=\"First\">"
    "<domain_participant_qos><participant_name><name>named</name></participant_name>"
    "<partition><name><element>A</element></name></partition></domain_participant_qos>"
    "<subscriber_qos><partition><name><element>S</element></name></partition></subscriber_qos>"
    "<datareader_qos><history><depth>12</depth></history></datareader_qos>"
    "<datareader_qos topic_filter=\"Spec*\"><history><depth>34</depth></history></datareader_qos>"
    "<topic_qos><history><depth>56</depth></history></topic_qos>"
    "</qos_profile><qos_profile name=\"Second\"/></qos_library>"
    "<qos_library name=\"Other\"><qos_profile name=\"Third\"/></qos_library></dds>";

/// A factory without profiles that enables nothing by itself, and is finalised after each test.
class FactoryTest : public ::testing::Test {
  protected:
    void SetUp() override {
        DDS_DomainParticipantFactoryQos qos;
        qos.entity_factory.autoenable_created_entities = false;
        ASSERT_EQ(factory()->set_qos(qos), DDS_RETCODE_OK);
    }
    void TearDown() override { EXPECT_EQ(DDSDomainParticipantFactory::finalize_instance(), DDS_RETCODE_OK); }

    static DDSDomainParticipantFactory* factory() { return DDSDomainParticipantFactory::get_instance(); }

    static DDS_ReturnCode_t load(const char* document) {
        DDS_DomainParticipantFactoryQos qos;
        factory()->get_qos(qos);
        DDS_StringSeq_from_array(qos.profile.string_profile, &document, 1);
        return factory()->set_qos(qos);
    }

    /// What a failed creation wrote to the logger stands in `logged`.
    static ParticipantImpl* create(const DDS_DomainParticipantQos& qos = {}, DDS_DomainId_t domain = 0) {
        return dynamic_cast<ParticipantImpl*>(
            factory()->create_participant(domain, qos, nullptr, DDS_STATUS_MASK_NONE));
    }
    static std::string reason_of_refusal(const DDS_DomainParticipantQos& qos, DDS_DomainId_t domain = 0) {
        ::testing::internal::CaptureStderr();
        EXPECT_EQ(create(qos, domain), nullptr);
        return ::testing::internal::GetCapturedStderr();
    }
};

} // namespace meridian::dcps::test
