#pragma once

// Readers and writers of the test type: in the test, and in another process that the test tells what to do.

#include <map>
#include <memory>
#include <sstream>
#include <string>

#include "dcps/entities/participant.h"
#include "meridian/publisher.h"
#include "peer_process.h"
#include "test_type.h"

namespace meridian::dcps::test {

/// QoS from words: reliable, best_effort, transient_local, keep_all, depth=N, max_samples=N, max_instances=N,
/// max_per_instance=N, blocking=MS, deadline=MS, separation=MS, exclusive, strength=N, manual_by_topic,
/// lease=MS, partition=NAME, xcdr2, keep_unregistered. Words that are unknown to one kind of entity are left
/// out.
struct EndpointWords {
    explicit EndpointWords(const std::string& words);
    DDS_DataReaderQos reader;
    DDS_DataWriterQos writer;
    DDS_PartitionQosPolicy partition;
};

/// The participant's topic of that name and type, made when it does not exist.
DDSTopic* topic_of(DDSDomainParticipant& participant, const std::string& name, const std::string& type);
TestWriter* make_writer(DDSDomainParticipant& participant, const std::string& topic, const std::string& type,
                        const std::string& words = "");
TestReader* make_reader(DDSDomainParticipant& participant, const std::string& topic, const std::string& type,
                        const std::string& words = "", DDSDataReaderListener* listener = nullptr,
                        DDS_StatusMask mask = DDS_STATUS_MASK_NONE);

/// "1 text", "1 disposed", "1 no_writers" for each sample, joined by ", "; the number is the key's for
/// instances that ended. Empty: nothing there.
std::string take_all(TestReader& reader);

/// The other process. Its endpoints have names, by which later commands call them:
///   writer|reader NAME TOPIC TYPE WORDS...    "ok"
///   write NAME ID TEXT, dispose NAME ID, unregister NAME ID: the return code
///   many NAME FROM TO: writes texts "FROM" to "TO" with these numbers as ids, the return code of the last
///   matched NAME: how many remote endpoints; acknowledged NAME: return code of waiting for 20 s
///   guid NAME, take NAME, assert NAME, delete NAME
class EndpointsPeer final : public PeerCommands {
  public:
    static std::unique_ptr<PeerCommands> make();
    ~EndpointsPeer() override;
    std::string obey(const std::string& command) override;

  private:
    std::string write(const std::string& verb, TestWriter& writer, std::istringstream& words);

    DDSDomainParticipant* participant_ = nullptr;
    std::map<std::string, TestWriter*> writers_;
    std::map<std::string, TestReader*> readers_;
};

} // namespace meridian::dcps::test
