#pragma once

// A small type with a plugin of its own: a number that can be the key, and a text. Samples whose text is one
// of the words below misbehave on purpose.

#include <atomic>
#include <cstdint>
#include <string>

#include "meridian/domain_participant.h"
#include "meridian/type_plugin.h"
#include "meridian/type_support.h"
#include "meridian/typed_entities.h"

namespace meridian::dcps::test {

struct TestSample {
    uint32_t id = 0;
    std::string text;
};
using TestSequence = DDS_Sequence<TestSample>;
using TestReader = DDSTypedDataReader<TestSample, TestSequence>;
using TestWriter = DDSTypedDataWriter<TestSample>;

constexpr const char* kEmpty = "empty";             // serialize writes nothing
constexpr const char* kRefused = "refused";         // serialize fails
constexpr const char* kUndecodable = "undecodable"; // deserialize fails
constexpr const char* kDropped = "dropped";         // deserialize asks for the sample to be dropped

/// How many plugins are attached and samples exist; both must come back to what they were.
struct TestTypeCounters {
    std::atomic<int> participants{0};
    std::atomic<int> endpoints{0};
    std::atomic<int> supports{0};
    std::atomic<int> samples{0};
};
TestTypeCounters& counters();

PRESTypePlugin test_plugin(bool keyed);

class TestTypeSupport final : public DDSTypeSupport {
  public:
    TestTypeSupport() { ++counters().supports; }
    ~TestTypeSupport() override { --counters().supports; }
    DDSDataReader* create_datareaderI(DDSUntypedDataReader* untyped) override;
    DDS_ReturnCode_t destroy_datareaderI(DDSDataReader* reader) override;
    DDSDataWriter* create_datawriterI(DDSUntypedDataWriter* untyped) override;
    DDS_ReturnCode_t destroy_datawriterI(DDSDataWriter* writer) override;
};

/// Registers "Keyed" and "Keyless", each with a type support.
bool register_test_types(DDSDomainParticipant& participant);

} // namespace meridian::dcps::test
